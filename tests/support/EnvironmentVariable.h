#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace Kelvaris::Tests {

/// Sets a variable of the environment while it lives. Not for tests with threads that read the environment.
class EnvironmentVariable {
public:
  EnvironmentVariable(const char* name, const std::string& value) : m_name(name) {
    if (const char* former = std::getenv(name)) m_former = former;
    setenv(name, value.c_str(), 1);
  }
  ~EnvironmentVariable() {
    if (m_former)
      setenv(m_name, m_former->c_str(), 1);
    else
      unsetenv(m_name);
  }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

private:
  const char* m_name;
  std::optional<std::string> m_former;
};

} // namespace Kelvaris::Tests
