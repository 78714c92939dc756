#pragma once

#include "Core/Log.h"

#include <string>
#include <vector>

namespace Kelvaris::Tests {

/// Fails the running test on every warning or error that no ExpectedLog on the stack caught. Called once by the test
/// main.
void installUnexpectedLogCheck();

/// Collects the warnings and errors logged while it lives, from any thread, and keeps them from failing the test.
class ExpectedLog {
public:
  ExpectedLog();
  ~ExpectedLog();
  ExpectedLog(const ExpectedLog&) = delete;
  ExpectedLog& operator=(const ExpectedLog&) = delete;

  /// The messages so far, as "level category: message" (for example "4 Transducer: Incomplete properties during
  /// configure").
  std::vector<std::string> messages() const;
  /// True if a message contains `part`.
  bool contains(const std::string& part) const;
};

} // namespace Kelvaris::Tests
