#include "viewer/ThreadErrors.h"

#include "Core/Log.h"

#include <fmt/ranges.h>

#include <algorithm>
#include <thread>

namespace Kelvaris::Viewer {

ThreadErrors::ThreadErrors()
    : m_sink(Log::addSink([this, self = std::this_thread::get_id()](const Log::Entry& entry) {
        // Sinks are called on the thread that logs.
        if (entry.level < Log::Error || std::this_thread::get_id() != self) return;
        if (std::find(m_messages.begin(), m_messages.end(), entry.message) == m_messages.end())
          m_messages.push_back(entry.message);
      })) {}

ThreadErrors::~ThreadErrors() {
  Log::removeSink(m_sink);
}

std::string ThreadErrors::text() const {
  return fmt::format("{}", fmt::join(m_messages, "\n"));
}

} // namespace Kelvaris::Viewer
