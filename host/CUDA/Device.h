#pragma once

#include <array>
#include <string>

namespace Kelvaris::CUDA {

/// What runs kernels: the first CUDA device, or the processor's cores in its place. Device memory lies there too.
enum class Executor { Cpu, Cuda };

/// The executor of this process and the properties that launch shapes are made from.
///
/// Chosen at the first use: CUDA if its driver loads and device 0 has compute capability 7.5 or above, else the CPU.
/// The environment variable KELVARIS_DEVICE, "cpu" or "cuda", overrides.
class Device {
public:
  /// Throws std::runtime_error if KELVARIS_DEVICE asks for a device that is not there or is neither "cpu" nor "cuda".
  static const Device& current();
  static bool isCuda() { return current().executor() == Executor::Cuda; }

  /// Why there is no usable CUDA device, in words; empty if there is one.
  static std::string cudaProblem();

  Executor executor() const { return m_executor; }
  const std::string& name() const { return m_name; }
  int warpSize() const { return m_warpSize; }
  int maxThreadsPerBlock() const { return m_maxThreadsPerBlock; }
  /// Largest block along x, y, z.
  const std::array<int, 3>& maxThreadsDim() const { return m_maxThreadsDim; }
  int maxBlocksPerMultiProcessor() const { return m_maxBlocksPerMultiProcessor; }

  /// The CPU executor's properties, with those given in place of its own (for launch shapes of other devices).
  static Device cpu(int warpSize = 32, int maxThreadsPerBlock = 1024,
                    std::array<int, 3> maxThreadsDim = {1024, 1024, 64}, int maxBlocksPerMultiProcessor = 16);

private:
  Device() = default;
  static Device cuda();
  static Device choose();

  Executor m_executor = Executor::Cpu;
  std::string m_name;
  int m_warpSize = 0;
  int m_maxThreadsPerBlock = 0;
  std::array<int, 3> m_maxThreadsDim{};
  int m_maxBlocksPerMultiProcessor = 0;
};

} // namespace Kelvaris::CUDA
