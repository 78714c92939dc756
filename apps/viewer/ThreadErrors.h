#pragma once

#include <string>
#include <vector>

namespace Kelvaris::Viewer {

/// Collects the errors that the thread which made it logs while it lives.
class ThreadErrors {
public:
  ThreadErrors();
  ~ThreadErrors();
  ThreadErrors(const ThreadErrors&) = delete;
  ThreadErrors& operator=(const ThreadErrors&) = delete;

  /// A line each, the same one once; empty if there were none.
  std::string text() const;

private:
  std::vector<std::string> m_messages;
  int m_sink;
};

} // namespace Kelvaris::Viewer
