#include "CUDA/DeviceBufferPool.h"

#include "CUDA/Check.h"
#include "CUDA/Device.h"
#include "CUDA/Utils.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <new>

#if KELVARIS_HAVE_CUDA
#include <cuda_runtime_api.h>
#endif

namespace Kelvaris::CUDA {
namespace {

constexpr std::size_t alignment = 64;

void* allocate(std::size_t bytes) {
#if KELVARIS_HAVE_CUDA
  if (Device::isCuda()) {
    void* block = nullptr;
    if (const cudaError_t error = cudaMalloc(&block, bytes); error != cudaSuccess) {
      cudaGetLastError();
      throw Error(
          fmt::format("{} bytes of device memory could not be allocated: {}", bytes, cudaGetErrorString(error)));
    }
    return block;
  }
#endif
  if (bytes > PTRDIFF_MAX - 2 * alignment) throw std::bad_alloc();
  const std::size_t end = bytes + alignment, size = (end + alignment - 1) / alignment * alignment;
  void* block = std::aligned_alloc(alignment, size);
  if (!block) throw std::bad_alloc();
  std::memset(static_cast<char*>(block) + bytes, 0, size - bytes);
  return block;
}

void release(void* block) noexcept {
#if KELVARIS_HAVE_CUDA
  if (Device::isCuda()) {
    // At exit the driver may be gone before the last owner, and the memory with it.
    if (const cudaError_t error = cudaFree(block); error != cudaSuccess && error != cudaErrorCudartUnloading)
      Utils::printError(static_cast<int>(error));
    return;
  }
#endif
  std::free(block);
}

struct Pool {
  struct Block {
    void* data;
    std::size_t bytes;
  };
  std::mutex mutex;
  int guards = 0;
  std::deque<Block> kept; // oldest first
};

Pool& pool() {
  static Pool instance;
  return instance;
}

} // namespace

DeviceBufferPool::ActivationGuard::ActivationGuard() {
  const std::scoped_lock lock(pool().mutex);
  ++pool().guards;
}

DeviceBufferPool::ActivationGuard::~ActivationGuard() {
  std::deque<Pool::Block> blocks;
  {
    const std::scoped_lock lock(pool().mutex);
    if (--pool().guards == 0) blocks.swap(pool().kept);
  }
  for (const auto& block : blocks)
    release(block.data);
}

std::size_t DeviceBufferPool::keptBlocks() {
  const std::scoped_lock lock(pool().mutex);
  return pool().kept.size();
}

void* Detail::takeBlock(std::size_t bytes) {
  {
    const std::scoped_lock lock(pool().mutex);
    auto& kept = pool().kept;
    const auto found =
        std::find_if(kept.rbegin(), kept.rend(), [&](const auto& block) { return block.bytes == bytes; });
    if (found != kept.rend()) {
      void* data = found->data;
      kept.erase(std::next(found).base());
      return data;
    }
  }
  return allocate(bytes);
}

void Detail::giveBlock(void* block, std::size_t bytes) noexcept {
  {
    const std::scoped_lock lock(pool().mutex);
    if (pool().guards > 0) {
      auto& kept = pool().kept;
      try {
        kept.push_back({block, bytes});
        block = nullptr;
      } catch (const std::bad_alloc&) { // then it is released
      }
      if (kept.size() > DeviceBufferPool::maxKeptBlocks) {
        block = kept.front().data;
        kept.pop_front();
      }
    }
  }
  if (block) release(block);
}

} // namespace Kelvaris::CUDA
