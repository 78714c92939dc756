#pragma once

/// Rows that show what this machine can do at best, for comparison with the kernels' rows: multiply-adds of floats in
/// registers, reading and copying memory that no cache holds, and reading single floats here and there in the
/// first-level cache. All run on all cores, with the best vector instructions; the copy alone goes by the executor,
/// from device memory to device memory.
namespace Kelvaris::Bench {

/// Adds the rows "Ceiling: ..." to this program's benchmarks; call before benchmark::RunSpecifiedBenchmarks(). They
/// count `operations` (one multiply-add of one float each), bytes (those of a copy twice, read and written), and
/// `reads` (of one float each).
void registerCeilings();

} // namespace Kelvaris::Bench
