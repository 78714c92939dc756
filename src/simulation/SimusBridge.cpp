#include "simulation/SimusBridge.h"

#include "Core/Log.h"

namespace Kelvaris::US {
namespace {
constexpr const char* kCategory = "SimulatedChannelDataStream";
} // namespace

std::unique_ptr<SharedImage> SimusBridge::simulateFrame(const FrameAcquisition&) const {
  if (std::this_thread::get_id() != m_mainThread)
    Log::error(kCategory, "Simulation must be performed on the main thread");
  else
    Log::warning(kCategory, "SIMUS simulation is not available: {}", m_errorText);
  return nullptr;
}

} // namespace Kelvaris::US
