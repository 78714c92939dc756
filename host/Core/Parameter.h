#pragma once

#include "Core/Properties.h"
#include "Core/Signal.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace Kelvaris {

/// What a parameter holds, for generic forms and for messages.
enum class ParameterType : int { Bool = 1, Int = 2, Double = 3, OptionalDouble = 4, Vector2i = 5, Text = 6, Enum = 8 };

/// A tunable value of a `Configurable`. Its name is also its key in `Properties`; attributes ("suffix", "decimals",
/// "min", "max", "step", "values") are hints for user interfaces and never enforced.
class ParameterBase {
public:
  explicit ParameterBase(std::string name) : m_name(std::move(name)) {}
  virtual ~ParameterBase() = default;
  ParameterBase(const ParameterBase&) = delete;
  ParameterBase& operator=(const ParameterBase&) = delete;

  const std::string& name() const { return m_name; }
  bool isEnabled() const { return m_enabled; }
  void setEnabled(bool enabled) { m_enabled = enabled; }

  void setAttribute(const std::string& key, std::string value) { m_attributes[key] = std::move(value); }
  /// Empty if there is no such attribute.
  std::string attribute(const std::string& key) const;
  const std::map<std::string, std::string>& attributes() const { return m_attributes; }

  /// Reads the value from its key; a missing key or an unreadable text leaves it as it is.
  virtual void read(const Properties& properties) = 0;
  virtual void write(Properties& properties) const = 0;
  virtual void reset() = 0;
  virtual ParameterType type() const = 0;
  /// True if `text` could be read as a value of this parameter.
  virtual bool accepts(const std::string& text) const = 0;
  /// The current value as text; empty for an empty optional. Takes the guard.
  virtual std::string text() const = 0;
  /// The default value as text.
  virtual std::string defaultText() const = 0;
  /// In words, what `accepts` takes, for example "a number" or "two whole numbers with a blank between".
  std::string expected() const;

  /// Emitted after the value has changed, with the guard released.
  SignalImpl<> changed;

  /// The mutex that every change of the value takes, and that a thread holds while it reads the value of a parameter
  /// which another thread may change. It must outlive the parameter; null (the default) for none.
  void setGuard(std::mutex* guard) { m_guard = guard; }

protected:
  std::unique_lock<std::mutex> lockGuard() const {
    return m_guard ? std::unique_lock(*m_guard) : std::unique_lock<std::mutex>();
  }

private:
  std::mutex* m_guard = nullptr;
  std::string m_name;
  bool m_enabled = true;
  std::map<std::string, std::string> m_attributes;
};

namespace ParameterDetail {
template <typename T> constexpr ParameterType typeOf() {
  if constexpr (std::is_enum_v<T>)
    return ParameterType::Enum;
  else if constexpr (std::is_same_v<T, bool>)
    return ParameterType::Bool;
  else if constexpr (std::is_same_v<T, int>)
    return ParameterType::Int;
  else if constexpr (std::is_same_v<T, double>)
    return ParameterType::Double;
  else if constexpr (std::is_same_v<T, std::optional<double>>)
    return ParameterType::OptionalDouble;
  else if constexpr (std::is_same_v<T, Eigen::Vector2i>)
    return ParameterType::Vector2i;
  else {
    static_assert(std::is_same_v<T, std::string>, "no such parameter type");
    return ParameterType::Text;
  }
}
} // namespace ParameterDetail

/// A parameter of type bool, int, double, std::optional<double>, Eigen::Vector2i, std::string or an enum. An enum is
/// stored as its integer value; its attribute "values" lists the display texts in the order of the values, with commas
/// between. An empty optional is stored as an empty text.
template <typename T> class Parameter : public ParameterBase {
public:
  Parameter(std::string name, T defaultValue)
      : ParameterBase(std::move(name)), m_value(defaultValue), m_default(std::move(defaultValue)) {}

  const T& value() const { return m_value; }
  /// A copy, taken under the guard: for a parameter that another thread may change.
  T current() const {
    const auto lock = lockGuard();
    return m_value;
  }
  const T& defaultValue() const { return m_default; }
  operator const T&() const { return m_value; } // NOLINT(google-explicit-constructor): a parameter reads as its value

  void setValue(const T& value) {
    {
      const auto lock = lockGuard();
      if (value == m_value) return;
      m_value = value;
    }
    changed.emitSignal();
  }
  Parameter& operator=(const T& value) {
    setValue(value);
    return *this;
  }

  void read(const Properties& properties) override {
    if constexpr (std::is_enum_v<T>) {
      int stored = static_cast<int>(m_value);
      if (properties.param<int>(name(), stored)) setValue(static_cast<T>(stored));
    } else if constexpr (std::is_same_v<T, std::optional<double>>) {
      double stored = 0.0;
      std::string text;
      if (properties.param(name(), text) && text.find_first_not_of(" \t\r\n") == std::string::npos)
        setValue(std::nullopt);
      else if (properties.param(name(), stored))
        setValue(stored);
    } else {
      T stored = m_value;
      if (properties.param(name(), stored)) setValue(stored);
    }
  }

  void write(Properties& properties) const override { properties.setParam(name(), text()); }
  void reset() override { setValue(m_default); }
  ParameterType type() const override { return ParameterDetail::typeOf<T>(); }

  bool accepts(const std::string& text) const override {
    if constexpr (std::is_enum_v<T>) {
      int parsed = 0;
      return PropertyText::fromText(text, parsed);
    } else if constexpr (std::is_same_v<T, std::optional<double>>) {
      double parsed = 0.0;
      return text.find_first_not_of(" \t\r\n") == std::string::npos || PropertyText::fromText(text, parsed);
    } else {
      T parsed = m_value;
      return PropertyText::fromText(text, parsed);
    }
  }

  std::string text() const override {
    const auto lock = lockGuard();
    return textOf(m_value);
  }
  std::string defaultText() const override { return textOf(m_default); }

private:
  static std::string textOf(const T& value) {
    if constexpr (std::is_enum_v<T>)
      return PropertyText::toText(static_cast<int>(value));
    else if constexpr (std::is_same_v<T, std::optional<double>>)
      return value ? PropertyText::toText(*value) : std::string();
    else
      return PropertyText::toText(value);
  }

  T m_value;
  T m_default;
};

} // namespace Kelvaris
