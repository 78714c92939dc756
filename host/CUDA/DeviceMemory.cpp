#include "CUDA/DeviceMemory.h"

#include "CUDA/Check.h"
#include "CUDA/Device.h"
#include "CUDA/DeviceBufferPool.h"

#include <fmt/format.h>

#include <cstring>
#include <stdexcept>

#if KELVARIS_HAVE_CUDA
#include <cuda_runtime_api.h>
#endif

namespace Kelvaris::CUDA {

DeviceMemory::DeviceMemory(std::size_t bytes) : m_data(bytes ? Detail::takeBlock(bytes) : nullptr), m_size(bytes) {}

DeviceMemory::~DeviceMemory() {
  if (m_data) Detail::giveBlock(m_data, m_size);
}

namespace {
void checkSize(const char* operation, std::size_t bytes, std::size_t size) {
  if (bytes > size)
    throw std::out_of_range(fmt::format("{} of {} bytes, but the device memory has {}", operation, bytes, size));
}
} // namespace

void DeviceMemory::upload(const void* source, std::size_t bytes) {
  checkSize("upload", bytes, m_size);
  if (bytes == 0) return;
#if KELVARIS_HAVE_CUDA
  if (Device::isCuda()) {
    KELVARIS_CUDA_CHECKED(cudaMemcpy(m_data, source, bytes, cudaMemcpyDefault));
    return;
  }
#endif
  std::memcpy(m_data, source, bytes);
}

void DeviceMemory::download(void* target, std::size_t bytes) const {
  checkSize("download", bytes, m_size);
  if (bytes == 0) return;
#if KELVARIS_HAVE_CUDA
  if (Device::isCuda()) {
    KELVARIS_CUDA_CHECKED(cudaMemcpy(target, m_data, bytes, cudaMemcpyDefault));
    return;
  }
#endif
  std::memcpy(target, m_data, bytes);
}

} // namespace Kelvaris::CUDA
