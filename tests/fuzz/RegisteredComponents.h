#pragma once

#include <string>
#include <vector>

namespace Kelvaris::Tests {

/// While it lives, the component types of the plugin are registered under their ids, as the plugin does it.
class RegisteredComponents {
public:
  RegisteredComponents();
  ~RegisteredComponents();
  RegisteredComponents(const RegisteredComponents&) = delete;
  RegisteredComponents& operator=(const RegisteredComponents&) = delete;

  /// The XML of one list of components for each type, with contents.
  std::vector<std::string> examples() const;
};

} // namespace Kelvaris::Tests
