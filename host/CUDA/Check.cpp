#include "CUDA/Check.h"

#include <fmt/format.h>

#if KELVARIS_HAVE_CUDA
#include <cuda_runtime_api.h>
#endif

namespace Kelvaris::CUDA::Detail {

void check(int error, const char* call, const char* file, int line) {
  if (error == 0) return;
#if KELVARIS_HAVE_CUDA
  cudaGetLastError();
  const char* text = cudaGetErrorString(static_cast<cudaError_t>(error));
#else
  const char* text = "no CUDA in this build";
#endif
  throw Error(fmt::format("{}:{}: {} failed with CUDA error {} ({})", file, line, call, error, text));
}

} // namespace Kelvaris::CUDA::Detail
