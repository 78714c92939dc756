#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>

namespace Kelvaris::Tests {
namespace {

struct Collector {
  std::mutex mutex;
  const void* owner = nullptr;
  std::vector<std::string> messages;
};

Collector& collector() {
  static Collector instance;
  return instance;
}

} // namespace

void installUnexpectedLogCheck() {
  Log::addSink([](const Log::Entry& entry) {
    if (entry.level < Log::Warning) return;
    std::string text = std::to_string(entry.level) + " " + entry.category + ": " + entry.message;
    Collector& c = collector();
    const std::scoped_lock lock(c.mutex);
    if (c.owner)
      c.messages.push_back(std::move(text));
    else
      ADD_FAILURE() << "unexpected log entry: " << text;
  });
}

ExpectedLog::ExpectedLog() {
  const std::scoped_lock lock(collector().mutex);
  collector().owner = this;
  collector().messages.clear();
}

ExpectedLog::~ExpectedLog() {
  const std::scoped_lock lock(collector().mutex);
  collector().owner = nullptr;
}

std::vector<std::string> ExpectedLog::messages() const {
  const std::scoped_lock lock(collector().mutex);
  return collector().messages;
}

bool ExpectedLog::contains(const std::string& part) const {
  const auto all = messages();
  return std::any_of(all.begin(), all.end(), [&](const std::string& m) { return m.find(part) != std::string::npos; });
}

} // namespace Kelvaris::Tests
