#include "CUDA/Device.h"

#include "CUDA/Check.h"

#include <fmt/format.h>

#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <thread>

#if KELVARIS_HAVE_CUDA
#include <cuda_runtime_api.h>
#endif

namespace Kelvaris::CUDA {

Device Device::cpu(int warpSize, int maxThreadsPerBlock, std::array<int, 3> maxThreadsDim,
                   int maxBlocksPerMultiProcessor) {
  Device device;
  device.m_executor = Executor::Cpu;
  device.m_name = fmt::format("CPU ({} threads)", std::thread::hardware_concurrency());
  device.m_warpSize = warpSize;
  device.m_maxThreadsPerBlock = maxThreadsPerBlock;
  device.m_maxThreadsDim = maxThreadsDim;
  device.m_maxBlocksPerMultiProcessor = maxBlocksPerMultiProcessor;
  return device;
}

#if KELVARIS_HAVE_CUDA

std::string Device::cudaProblem() {
  int count = 0;
  if (const cudaError_t error = cudaGetDeviceCount(&count); error != cudaSuccess) {
    cudaGetLastError(); // a missing driver is an answer here, no failure of the next call
    return cudaGetErrorString(error);
  }
  if (count == 0) return "the CUDA driver reports no device";
  cudaDeviceProp properties{};
  if (const cudaError_t error = cudaGetDeviceProperties(&properties, 0); error != cudaSuccess) {
    cudaGetLastError();
    return cudaGetErrorString(error);
  }
  if (properties.major * 10 + properties.minor < 75)
    return fmt::format("device 0 ({}) has compute capability {}.{}, at least 7.5 is needed", properties.name,
                       properties.major, properties.minor);
  return {};
}

Device Device::cuda() {
  cudaDeviceProp properties{};
  KELVARIS_CUDA_CHECKED(cudaGetDeviceProperties(&properties, 0));
  Device device;
  device.m_executor = Executor::Cuda;
  device.m_name = properties.name;
  device.m_warpSize = properties.warpSize;
  device.m_maxThreadsPerBlock = properties.maxThreadsPerBlock;
  device.m_maxThreadsDim = {properties.maxThreadsDim[0], properties.maxThreadsDim[1], properties.maxThreadsDim[2]};
  device.m_maxBlocksPerMultiProcessor = properties.maxBlocksPerMultiProcessor;
  return device;
}

#else

std::string Device::cudaProblem() {
  return "this build has no CUDA code";
}

Device Device::cuda() {
  throw std::logic_error("this build has no CUDA code");
}

#endif

Device Device::choose() {
  const char* variable = std::getenv("KELVARIS_DEVICE");
  const std::string_view wish = variable ? variable : "";
  if (wish == "cpu") return cpu();
  if (wish != "" && wish != "cuda")
    throw std::runtime_error(fmt::format("KELVARIS_DEVICE is \"{}\", but it can only be \"cpu\" or \"cuda\"", wish));
  const std::string problem = cudaProblem();
  if (problem.empty()) return cuda();
  if (wish == "cuda")
    throw std::runtime_error(fmt::format("KELVARIS_DEVICE asks for CUDA, but there is no usable device: {}", problem));
  return cpu();
}

const Device& Device::current() {
  static const Device device = choose();
  return device;
}

} // namespace Kelvaris::CUDA
