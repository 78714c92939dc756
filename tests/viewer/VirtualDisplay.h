#pragma once

#include <string>

#include <sys/types.h>

namespace Kelvaris::Tests {

/// An X server of its own without a screen to look at (Xvfb), 1600 x 1200 pixels, that ends with this object.
class VirtualDisplay {
public:
  VirtualDisplay();
  ~VirtualDisplay();
  VirtualDisplay(const VirtualDisplay&) = delete;
  VirtualDisplay& operator=(const VirtualDisplay&) = delete;

  /// For the environment variable DISPLAY; empty if there is none, which problem() then explains.
  const std::string& name() const { return m_name; }
  const std::string& problem() const { return m_problem; }

private:
  pid_t m_server = -1;
  std::string m_name, m_problem;
};

} // namespace Kelvaris::Tests
