#pragma once

#include <stdexcept>

namespace Kelvaris::CUDA {

/// A call of the CUDA runtime failed, or device memory is short.
class Error : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

namespace Detail {
/// Throws an Error with file, line, the call and the error's text unless `error` is cudaSuccess.
void check(int error, const char* call, const char* file, int line);
} // namespace Detail

} // namespace Kelvaris::CUDA

/// Makes a call of the CUDA runtime and throws CUDA::Error if it fails.
#define KELVARIS_CUDA_CHECKED(call) ::Kelvaris::CUDA::Detail::check(static_cast<int>(call), #call, __FILE__, __LINE__)
