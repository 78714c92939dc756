#pragma once

/// Markers for code that runs per thread of a kernel, on the CUDA device and on the CPU executor alike.
///
/// KELVARIS_KERNEL stands before every function of per-thread code: host and device code for nvcc, always inlined for
/// g++. KELVARIS_ARCH names the inline namespace of all such code: a source file that is built several times, for
/// x86-64-v2, v3 and v4 (`kelvaris_cpu_variants` in cmake), gets a different name each time, so that the linker never
/// merges a function compiled for one instruction set with its namesake compiled for another.
#if defined(__CUDACC__)
#define KELVARIS_KERNEL __host__ __device__ __forceinline__
#else
#define KELVARIS_KERNEL inline __attribute__((always_inline))
#endif

#if !defined(KELVARIS_ARCH)
#define KELVARIS_ARCH base
#endif
