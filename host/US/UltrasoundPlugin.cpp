#include "Lib/PluginAutoRegistrationGuard.h"

namespace Kelvaris::US {
namespace {

const char* ultrasoundPluginId() {
  return "Kelvaris.US";
}

// The ultrasound classes count as a plugin that others depend on; it is there as soon as this library is.
const PluginAutoRegistrationGuard g_ultrasoundPluginGuard(&ultrasoundPluginId);

} // namespace
} // namespace Kelvaris::US
