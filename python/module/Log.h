#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Kelvaris::Python {

/// What the calling thread logs as warnings and errors while this lives; with `allThreads`, what any thread does.
class LoggedReasons {
public:
  explicit LoggedReasons(bool allThreads = false);
  ~LoggedReasons();
  LoggedReasons(const LoggedReasons&) = delete;
  LoggedReasons& operator=(const LoggedReasons&) = delete;

  bool anyError() const;
  /// The messages, the errors where there are any, with "; " between; "no reason was logged" without any.
  std::string text() const;

private:
  struct Messages {
    std::mutex mutex;
    std::vector<std::string> errors, warnings;
  };
  std::shared_ptr<Messages> m_messages; ///< a thread may still be about to write when the sink has been removed
  int m_sink;
};

void bindLog(pybind11::module_& module);

} // namespace Kelvaris::Python
