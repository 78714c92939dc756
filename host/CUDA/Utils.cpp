#include "CUDA/Utils.h"

#include "CUDA/Check.h"
#include "Core/Log.h"

#include <fmt/format.h>

#include <array>
#include <cstdint>
#include <stdexcept>

#if KELVARIS_HAVE_CUDA
#include <cuda_runtime_api.h>
#endif

namespace Kelvaris::CUDA::Utils {

LaunchShape kernelBlocks(const EitherVec3iOrDim3& extent, const Device& device) {
  const std::array<std::int64_t, 3> e{extent.value.x, extent.value.y, extent.value.z};
  if (e[0] < 1 || e[1] < 1 || e[2] < 1)
    throw std::invalid_argument(fmt::format("A launch needs sizes of at least 1, not {} x {} x {}", e[0], e[1], e[2]));
  const auto product = [](const std::array<std::int64_t, 3>& v) {
    return static_cast<double>(v[0]) * static_cast<double>(v[1]) * static_cast<double>(v[2]);
  };
  if (product(e) <= device.warpSize()) return {{1, 1, 1}, extent.value};

  const int limit =
      device.maxThreadsPerBlock() % 3 == 0 ? device.maxThreadsPerBlock() / 3 : device.maxThreadsPerBlock();
  std::array<std::int64_t, 3> block{1, 1, 1}, remainder = e;
  const auto isOpen = [&](std::size_t axis) { return block[axis] * 2 <= device.maxThreadsDim()[axis]; };
  const auto threads = [&] { return block[0] * block[1] * block[2]; };
  while (threads() < device.warpSize() ||
         (threads() < limit && product(remainder) > device.maxBlocksPerMultiProcessor())) {
    int even = -1, largest = -1;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      if (!isOpen(axis)) continue;
      const auto exceeds = [&](int other) {
        return other < 0 || remainder[axis] > remainder[static_cast<std::size_t>(other)];
      };
      if (remainder[axis] % 2 == 0 && exceeds(even)) even = static_cast<int>(axis);
      if (exceeds(largest)) largest = static_cast<int>(axis);
    }
    const int chosen = even >= 0 ? even : largest;
    if (chosen < 0) break;
    const auto axis = static_cast<std::size_t>(chosen);
    block[axis] *= 2;
    remainder[axis] = (remainder[axis] + 1) / 2;
  }
  const auto blocks = [&](std::size_t axis) { return static_cast<int>((e[axis] - 1) / block[axis] + 1); };
  return {{blocks(0), blocks(1), blocks(2)},
          {static_cast<int>(block[0]), static_cast<int>(block[1]), static_cast<int>(block[2])}};
}

#if KELVARIS_HAVE_CUDA

void printError(int error) {
  if (error == cudaSuccess) return;
  const auto code = static_cast<cudaError_t>(error);
  Log::error("CUDA", "CUDA error {} ({}): {}", error, cudaGetErrorName(code), cudaGetErrorString(code));
}

void PrimaryContext::retain(int device) {
  if (!Device::isCuda()) return;
  printError(static_cast<int>(cudaSetDevice(device)));
}

void PrimaryContext::ensureCurrent() {
  if (!Device::isCuda()) return;
  // cuCtxGetCurrent by way of the runtime, so that nothing links the driver's library.
  using GetCurrent = int (*)(void**);
  static const GetCurrent getCurrent = [] {
    void* entry = nullptr;
    cudaDriverEntryPointQueryResult found{};
    const cudaError_t error =
        cudaGetDriverEntryPointByVersion("cuCtxGetCurrent", &entry, 4000, cudaEnableDefault, &found);
    return error == cudaSuccess && found == cudaDriverEntryPointSuccess ? reinterpret_cast<GetCurrent>(entry) : nullptr;
  }();
  void* context = nullptr;
  if (!getCurrent || getCurrent(&context) != 0 || !context) retain(0);
}

#else

void printError(int error) {
  if (error != 0) Log::error("CUDA", "CUDA error {} in a build without CUDA code", error);
}

void PrimaryContext::retain(int) {}

void PrimaryContext::ensureCurrent() {}

#endif

} // namespace Kelvaris::CUDA::Utils
