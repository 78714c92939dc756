#include "module/PropertiesDict.h"

#include <fmt/format.h>

#include <cstring>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

namespace Kelvaris::Python {
namespace {

/// The value that the host writes as exactly this text, if there is one of this type.
template <typename T> std::optional<T> exact(const std::string& text) {
  T value{};
  if (PropertyText::fromText(text, value) && PropertyText::toText(value) == text) return value;
  return std::nullopt;
}

py::list listOf(const auto& numbers) {
  py::list list;
  for (const auto number : numbers)
    list.append(number);
  return list;
}

py::object valueOf(const std::string& text) {
  if (text.empty()) return py::str();
  if (text == "true" || text == "false") return py::bool_(text == "true");
  if (const auto number = exact<int>(text)) return py::int_(*number);
  if (const auto number = exact<double>(text)) return py::float_(*number);
  if (const auto numbers = exact<std::vector<int>>(text)) return listOf(*numbers);
  if (const auto numbers = exact<std::vector<double>>(text)) return listOf(*numbers);
  if (const auto points = exact<std::vector<Eigen::Vector2d>>(text)) {
    py::list list;
    for (const Eigen::Vector2d& point : *points)
      list.append(listOf(std::vector<double>{point.x(), point.y()}));
    return list;
  }
  return py::str(text);
}

/// NumPy's numbers and arrays as Python's.
py::object plain(const py::object& value) {
  return py::hasattr(value, "tolist") ? py::object(value.attr("tolist")()) : value;
}

bool isSequence(const py::object& value) {
  return py::isinstance<py::list>(value) || py::isinstance<py::tuple>(value);
}

std::string typeName(const py::object& value) {
  return py::cast<std::string>(py::type::of(value).attr("__name__"));
}

std::string described(const py::object& value) {
  return fmt::format("{} ({})", py::cast<std::string>(py::repr(value)), typeName(value));
}

std::string numberText(const py::object& value) {
  if (py::isinstance<py::int_>(value)) {
    int overflow = 0;
    const long long whole = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
    if (overflow == 0) return fmt::format("{}", whole);
  }
  return PropertyText::toText(py::cast<double>(value));
}

bool isNumber(const py::object& value) {
  return !py::isinstance<py::bool_>(value) && (py::isinstance<py::int_>(value) || py::isinstance<py::float_>(value));
}

[[noreturn]] void refuseProperty(const std::string& key, const py::object& value) {
  throw py::type_error(fmt::format("\"{}\" is {}; expected None, a bool, a number, a str, a list of numbers, a list of "
                                   "lists of numbers, a dict, or a list of dicts",
                                   key, described(value)));
}

std::string textOf(const std::string& key, const py::object& value) {
  if (value.is_none()) return {};
  if (py::isinstance<py::bool_>(value)) return PropertyText::toText(py::cast<bool>(value));
  if (py::isinstance<py::str>(value)) return py::cast<std::string>(value);
  if (isNumber(value)) return numberText(value);
  if (!isSequence(value)) refuseProperty(key, value);
  std::string text;
  bool nested = false;
  for (const py::handle item : value) {
    const py::object element = plain(py::reinterpret_borrow<py::object>(item));
    if (isNumber(element)) {
      text += (text.empty() ? "" : " ") + numberText(element);
    } else if (isSequence(element)) {
      text += (text.empty() ? "" : "; ") + textOf(key, element);
      nested = true;
    } else {
      refuseProperty(key, value);
    }
  }
  if (nested)
    for (const py::handle item : value)
      if (!isSequence(plain(py::reinterpret_borrow<py::object>(item)))) refuseProperty(key, value);
  return text;
}

std::vector<std::string> displayTexts(const ParameterBase& parameter) {
  std::vector<std::string> texts;
  const std::string values = parameter.attribute("values");
  for (std::size_t begin = 0; !values.empty() && begin <= values.size();) {
    const std::size_t end = std::min(values.find(',', begin), values.size());
    const std::string text = values.substr(begin, end - begin);
    const std::size_t first = text.find_first_not_of(' ');
    texts.push_back(first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1));
    begin = end + 1;
  }
  return texts;
}

std::string expectedText(const ParameterBase& parameter) {
  switch (parameter.type()) {
  case ParameterType::Bool:
    return "a bool";
  case ParameterType::Int:
    return "an int";
  case ParameterType::Double:
    return "a float";
  case ParameterType::OptionalDouble:
    return "a float, or None";
  case ParameterType::Vector2i:
    return "two ints";
  case ParameterType::Enum: {
    std::string texts;
    for (const std::string& text : displayTexts(parameter))
      texts += (texts.empty() ? "" : ", ") + fmt::format("\"{}\"", text);
    return "one of " + texts;
  }
  case ParameterType::Text:
    break;
  }
  return "a str";
}

} // namespace

py::dict dictOf(const Properties& properties) {
  py::dict dictionary;
  for (const auto& [key, text] : properties.params())
    dictionary[py::str(key)] = valueOf(text);
  for (const auto& [key, child] : properties.children()) {
    const py::str name(key);
    if (properties.hasParam(key))
      throw py::value_error(
          fmt::format("There are both a value and sub-properties named \"{}\", which no dictionary can hold", key));
    if (!dictionary.contains(name)) dictionary[name] = py::list();
    dictionary[name].cast<py::list>().append(dictOf(child));
  }
  return dictionary;
}

Properties propertiesOf(const py::dict& dictionary) {
  Properties properties;
  for (const auto& [keyHandle, item] : dictionary) {
    if (!py::isinstance<py::str>(keyHandle))
      throw py::type_error(
          fmt::format("The key {} is no str", described(py::reinterpret_borrow<py::object>(keyHandle))));
    const auto key = py::cast<std::string>(keyHandle);
    const py::object value = plain(py::reinterpret_borrow<py::object>(item));
    if (py::isinstance<py::dict>(value)) {
      properties.addSubProperties(key) = propertiesOf(value);
    } else if (isSequence(value) && py::len(value) > 0 && py::isinstance<py::dict>(value[py::int_(0)])) {
      for (const py::handle child : value) {
        if (!py::isinstance<py::dict>(child)) refuseProperty(key, value);
        properties.addSubProperties(key) = propertiesOf(py::reinterpret_borrow<py::dict>(child));
      }
    } else {
      properties.setParam(key, textOf(key, value));
    }
  }
  return properties;
}

py::object valueOf(const ParameterBase& parameter, const std::string& text) {
  switch (parameter.type()) {
  case ParameterType::Bool:
    return py::bool_(text == "true");
  case ParameterType::Int:
    return py::int_(*exact<int>(text));
  case ParameterType::OptionalDouble:
    if (text.empty()) return py::none();
    [[fallthrough]];
  case ParameterType::Double: {
    double value = 0.0;
    PropertyText::fromText(text, value);
    return py::float_(value);
  }
  case ParameterType::Vector2i: {
    Eigen::Vector2i value = Eigen::Vector2i::Zero();
    PropertyText::fromText(text, value);
    return py::make_tuple(value.x(), value.y());
  }
  case ParameterType::Enum: {
    int index = 0;
    PropertyText::fromText(text, index);
    const auto texts = displayTexts(parameter);
    if (index < 0 || static_cast<std::size_t>(index) >= texts.size()) return py::int_(index);
    return py::str(texts[static_cast<std::size_t>(index)]);
  }
  case ParameterType::Text:
    break;
  }
  return py::str(text);
}

std::string textFor(const ParameterBase& parameter, const py::object& given, const std::string& owner) {
  const py::object value = plain(given);
  const auto refuse = [&](bool type) {
    const std::string text =
        fmt::format("{} of {} is {}; expected {}", parameter.name(), owner, described(given), expectedText(parameter));
    if (type) throw py::type_error(text);
    throw py::value_error(text);
  };
  const auto whole = [&](const py::object& number) {
    if (!py::isinstance<py::int_>(number) || py::isinstance<py::bool_>(number)) refuse(true);
    int overflow = 0;
    const long long wide = PyLong_AsLongLongAndOverflow(number.ptr(), &overflow);
    if (overflow != 0 || wide < std::numeric_limits<int>::min() || wide > std::numeric_limits<int>::max())
      refuse(false);
    return static_cast<int>(wide);
  };
  switch (parameter.type()) {
  case ParameterType::Bool:
    if (!py::isinstance<py::bool_>(value)) refuse(true);
    return PropertyText::toText(py::cast<bool>(value));
  case ParameterType::Int:
    return PropertyText::toText(whole(value));
  case ParameterType::OptionalDouble:
    if (value.is_none()) return {};
    [[fallthrough]];
  case ParameterType::Double: {
    if (!isNumber(value)) refuse(true);
    const double number = PyFloat_AsDouble(value.ptr());
    if (PyErr_Occurred()) {
      PyErr_Clear();
      refuse(false);
    }
    return PropertyText::toText(number);
  }
  case ParameterType::Vector2i: {
    if (!isSequence(value)) refuse(true);
    if (py::len(value) != 2) refuse(false);
    const int x = whole(value[py::int_(0)]), y = whole(value[py::int_(1)]);
    return PropertyText::toText(Eigen::Vector2i(x, y));
  }
  case ParameterType::Enum: {
    const auto texts = displayTexts(parameter);
    if (!py::isinstance<py::str>(value)) {
      const int index = whole(value);
      if (index < 0 || static_cast<std::size_t>(index) >= texts.size()) refuse(false);
      return PropertyText::toText(index);
    }
    for (std::size_t i = 0; i < texts.size(); ++i)
      if (py::cast<std::string>(value) == texts[i]) return PropertyText::toText(static_cast<int>(i));
    refuse(false);
    break;
  }
  case ParameterType::Text:
    if (!py::isinstance<py::str>(value)) refuse(true);
    break;
  }
  return py::cast<std::string>(value);
}

} // namespace Kelvaris::Python
