#include "Stream/StreamIoAlgorithm.h"

#include "Core/Log.h"

#include <exception>
#include <initializer_list>
#include <utility>

namespace Kelvaris {
namespace {

/// The first key that is there decides.
void readFirst(const Properties& properties, std::initializer_list<const char*> keys, bool& flag) {
  for (const char* key : keys)
    if (properties.hasParam(key)) {
      properties.param(key, flag);
      return;
    }
}

} // namespace

void StreamIoAlgorithm::compute() {
  std::unique_ptr<Stream> created;
  try {
    created = makeStream();
  } catch (const std::exception& error) {
    giveUp(error.what());
    return;
  }
  setStream(std::move(created));
}

void StreamIoAlgorithm::setStream(std::unique_ptr<Stream> newStream) {
  m_status = Failure;
  replaceStream(std::move(newStream));
  if (!stream()) return;
  try {
    if (m_settings) stream()->configure(&*m_settings);
    bool ok = true;
    if (m_autoOpen) ok = stream()->openAsync().get();
    if (m_autoOpen && m_autoStart && ok) ok = stream()->startAsync().get();
    m_status = ok ? Success : Failure;
  } catch (const std::exception& error) {
    giveUp(error.what());
  }
}

void StreamIoAlgorithm::giveUp(const char* reason) {
  Log::error("CreateStreamIoAlgorithm", "Could not instantiate a new Stream: {}", reason);
  resetStream();
  m_status = Failure;
}

void StreamIoAlgorithm::configure(const Properties* properties) {
  if (!properties) return;
  m_settings = *properties;
  if (stream()) stream()->configure(properties);
  readFirst(*properties, {"open", "autoOpen", "connect"}, m_autoOpen);
  readFirst(*properties, {"start", "autoStart"}, m_autoStart);
}

void StreamIoAlgorithm::configuration(Properties* properties) const {
  if (!properties) return;
  if (stream())
    stream()->configuration(properties);
  else if (m_settings)
    *properties = *m_settings;
}

} // namespace Kelvaris
