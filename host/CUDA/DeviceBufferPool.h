#pragma once

#include <cstddef>

namespace Kelvaris::CUDA {

/// Keeps freed blocks of device memory for owners to come that want the same size, as the frames of a stream do. Works
/// while at least one guard lives; with the last guard the kept blocks are released. All functions are thread-safe.
class DeviceBufferPool {
public:
  class ActivationGuard {
  public:
    ActivationGuard();
    ~ActivationGuard();
    ActivationGuard(const ActivationGuard&) = delete;
    ActivationGuard& operator=(const ActivationGuard&) = delete;
  };

  /// Blocks that wait for a new owner; at most maxKeptBlocks, of which the oldest go first.
  static std::size_t keptBlocks();
  static constexpr std::size_t maxKeptBlocks = 32;
};

namespace Detail {
/// A block of at least `bytes`, from the pool or new. Throws like DeviceMemory's constructor.
void* takeBlock(std::size_t bytes);
/// Takes a block of takeBlock back, with the same size.
void giveBlock(void* block, std::size_t bytes) noexcept;
} // namespace Detail

} // namespace Kelvaris::CUDA
