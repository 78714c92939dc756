#pragma once

#include <mutex>
#include <vector>

namespace Kelvaris {

class ParameterBase;
class Properties;

/// An object whose settings can be stored in and read from `Properties`. The default implementation stores the
/// registered parameters under their names. Parameters belong to the object that registers them: a copy starts with
/// none registered.
class Configurable {
public:
  Configurable() = default;
  Configurable(const Configurable&) {}
  Configurable& operator=(const Configurable&) { return *this; }

  /// Reads what is there; a null pointer is ignored, missing keys leave values as they are.
  virtual void configure(const Properties* properties);
  /// Writes everything; a null pointer is ignored.
  virtual void configuration(Properties* properties) const;
  /// Sets every registered parameter to its default.
  virtual void configureDefaults();
  virtual ~Configurable() = default;

  /// The registered parameters in the order of registration.
  const std::vector<ParameterBase*>& parameters() const { return m_parameters; }
  /// The registered parameter of that name, or null.
  ParameterBase* parameter(const char* name) const;

protected:
  /// `parameter` must be a member of this object, and so must `guard`, which becomes the parameter's guard.
  void registerParameter(ParameterBase* parameter, std::mutex* guard = nullptr);

private:
  std::vector<ParameterBase*> m_parameters;
};

} // namespace Kelvaris
