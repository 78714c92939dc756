#include "Lib/DataComponentFactory.h"
#include "Lib/MaskFactory.h"
#include "Lib/PluginAutoRegistrationGuard.h"
#include "US/FanMask.h"
#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"

namespace Kelvaris::US {
namespace {

const char* ultrasoundPluginId() {
  return "Kelvaris.US";
}

// The ultrasound classes count as a plugin that others depend on; it is there as soon as this library is.
const PluginAutoRegistrationGuard g_ultrasoundPluginGuard(&ultrasoundPluginId);

template <typename T> class RegisteredComponent {
public:
  RegisteredComponent() {
    DataComponentFactory::get().registerComponent(
        T().id(), []() -> std::unique_ptr<DataComponentBase> { return std::make_unique<T>(); });
  }
  ~RegisteredComponent() { DataComponentFactory::get().unregisterComponent(T().id()); }
  RegisteredComponent(const RegisteredComponent&) = delete;
  RegisteredComponent& operator=(const RegisteredComponent&) = delete;
};

class RegisteredFanMask {
public:
  RegisteredFanMask() { MaskFactory::get().registerMask("FanMask", FanMask::create); }
  ~RegisteredFanMask() { MaskFactory::get().unregisterMask("FanMask"); }
  RegisteredFanMask(const RegisteredFanMask&) = delete;
  RegisteredFanMask& operator=(const RegisteredFanMask&) = delete;
};

// So that files give back the components and masks they were written with.
const RegisteredComponent<FrameGeometryMetadata> g_frameGeometryMetadata;
const RegisteredComponent<UltrasoundMetadata> g_ultrasoundMetadata;
const RegisteredFanMask g_fanMask;

} // namespace
} // namespace Kelvaris::US
