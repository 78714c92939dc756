#pragma once

/// Rows that show what this machine can do at best, for comparison with the kernels' rows: multiply-adds of floats in
/// registers, and reading memory that no cache holds. Both run on all cores, with the best vector instructions.
namespace Kelvaris::Bench {

/// Adds the rows "Ceiling: ..." to this program's benchmarks; call before benchmark::RunSpecifiedBenchmarks(). The
/// first counts `operations` (one multiply-add of one float each), the second bytes.
void registerCeilings();

} // namespace Kelvaris::Bench
