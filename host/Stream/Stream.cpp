#include "Stream/Stream.h"

#include "Lib/PluginAutoRegistrationGuard.h"

#include <utility>

namespace Kelvaris {
namespace {

const char* streamPluginId() {
  return "Kelvaris.Stream";
}

// The stream classes count as a plugin that others depend on; it is there as soon as this library is.
const PluginAutoRegistrationGuard g_streamPluginGuard(&streamPluginId);

} // namespace

Stream::Stream(std::string name) {
  setName(std::move(name));
}

Stream::~Stream() {
  closedSignal.emitSignal();
}

} // namespace Kelvaris
