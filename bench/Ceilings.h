#pragma once

/// Rows that show what this machine can do at best, for comparison with the kernels' rows: multiply-adds of floats in
/// registers, reading memory that no cache holds, and reading single floats here and there in the first-level cache.
/// All run on all cores, with the best vector instructions.
namespace Kelvaris::Bench {

/// Adds the rows "Ceiling: ..." to this program's benchmarks; call before benchmark::RunSpecifiedBenchmarks(). They
/// count `operations` (one multiply-add of one float each), bytes, and `reads` (of one float each).
void registerCeilings();

} // namespace Kelvaris::Bench
