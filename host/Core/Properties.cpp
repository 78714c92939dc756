#include "Core/Properties.h"

#include "Core/Log.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <system_error>
#include <unordered_map>

namespace Kelvaris {
namespace PropertyText {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// Takes the next word off `text`; empty at the end.
std::string_view nextWord(std::string_view& text) {
  text = trimmed(text);
  const std::string_view word = text.substr(0, text.find_first_of(kBlanks));
  text.remove_prefix(word.size());
  return word;
}

/// strtod with a point for the decimal sign, whatever the program's locale.
double parseBeyondRange(const char* word) {
  static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(word, nullptr, cLocale);
}

template <typename T> bool parseNumber(std::string_view word, T& value) {
  if (!word.empty() && word.front() == '+' && word.size() > 1 && word[1] != '-') word.remove_prefix(1);
  T parsed{};
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), parsed);
  if (error == std::errc::result_out_of_range && std::is_floating_point_v<T> && end == word.data() + word.size()) {
    // from_chars leaves the value alone where it over- or underflows; the limit values are what IEEE readers expect.
    parsed = static_cast<T>(parseBeyondRange(std::string(word).c_str()));
  } else if (error != std::errc() || end != word.data() + word.size()) {
    return false;
  }
  value = parsed;
  return true;
}

template <typename T> bool parseNumbers(std::string_view text, std::vector<T>& values) {
  std::vector<T> parsed;
  for (std::string_view word = nextWord(text); !word.empty(); word = nextWord(text)) {
    T number{};
    if (!parseNumber(word, number)) return false;
    parsed.push_back(number);
  }
  values = std::move(parsed);
  return true;
}

template <typename Vector> bool parseVector(std::string_view text, Vector& value) {
  std::vector<typename Vector::Scalar> numbers;
  if (!parseNumbers(text, numbers) || numbers.size() != static_cast<std::size_t>(value.size())) return false;
  for (Eigen::Index i = 0; i < value.rows(); ++i)
    for (Eigen::Index j = 0; j < value.cols(); ++j)
      value(i, j) = numbers[static_cast<std::size_t>(i * value.cols() + j)];
  return true;
}

template <typename Vector> bool parseVectors(std::string_view text, std::vector<Vector>& value) {
  std::vector<Vector> parsed;
  text = trimmed(text);
  while (!text.empty()) {
    const auto end = std::min(text.find(';'), text.size());
    Vector point;
    if (!parseVector(text.substr(0, end), point)) return false;
    parsed.push_back(point);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  value = std::move(parsed);
  return true;
}

template <typename Range> std::string join(const Range& values, const char* separator) {
  std::string text;
  for (const auto& value : values) {
    if (!text.empty()) text += separator;
    text += toText(value);
  }
  return text;
}

template <typename Matrix> std::string joinMatrix(const Matrix& value) {
  std::vector<typename Matrix::Scalar> numbers;
  for (Eigen::Index i = 0; i < value.rows(); ++i)
    for (Eigen::Index j = 0; j < value.cols(); ++j)
      numbers.push_back(value(i, j));
  return join(numbers, " ");
}

} // namespace

std::string toText(bool value) {
  return value ? "true" : "false";
}
std::string toText(int value) {
  return std::to_string(value);
}

std::string toText(double value) {
  if (std::isnan(value)) return "nan";
  char buffer[32];
  const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
  return {buffer, end};
}

std::string toText(const std::string& value) {
  return value;
}
std::string toText(const char* value) {
  return value;
}
std::string toText(const std::vector<int>& value) {
  return join(value, " ");
}
std::string toText(const std::vector<double>& value) {
  return join(value, " ");
}
std::string toText(const Eigen::Vector2i& value) {
  return joinMatrix(value);
}
std::string toText(const Eigen::Vector2d& value) {
  return joinMatrix(value);
}
std::string toText(const Eigen::Vector3d& value) {
  return joinMatrix(value);
}
std::string toText(const Eigen::Matrix4d& value) {
  return joinMatrix(value);
}
std::string toText(const std::vector<Eigen::Vector2d>& value) {
  return join(value, "; ");
}
std::string toText(const std::vector<Eigen::Vector3d>& value) {
  return join(value, "; ");
}

bool fromText(std::string_view text, bool& value) {
  text = trimmed(text);
  if (text == "true" || text == "1")
    value = true;
  else if (text == "false" || text == "0")
    value = false;
  else
    return false;
  return true;
}

bool fromText(std::string_view text, int& value) {
  return parseNumber(trimmed(text), value);
}
bool fromText(std::string_view text, double& value) {
  return parseNumber(trimmed(text), value);
}

bool fromText(std::string_view text, std::string& value) {
  value = text;
  return true;
}

bool fromText(std::string_view text, std::vector<int>& value) {
  return parseNumbers(text, value);
}
bool fromText(std::string_view text, std::vector<double>& value) {
  return parseNumbers(text, value);
}
bool fromText(std::string_view text, Eigen::Vector2i& value) {
  return parseVector(text, value);
}
bool fromText(std::string_view text, Eigen::Vector2d& value) {
  return parseVector(text, value);
}
bool fromText(std::string_view text, Eigen::Vector3d& value) {
  return parseVector(text, value);
}
bool fromText(std::string_view text, Eigen::Matrix4d& value) {
  return parseVector(text, value);
}

bool fromText(std::string_view text, std::vector<Eigen::Vector2d>& value) {
  return parseVectors(text, value);
}
bool fromText(std::string_view text, std::vector<Eigen::Vector3d>& value) {
  return parseVectors(text, value);
}

} // namespace PropertyText

void Properties::removeParam(const std::string& key) {
  std::erase_if(m_params, [&](const Param& p) { return p.first == key; });
}

void Properties::setParams(std::vector<Param> params) {
  std::unordered_map<std::string, std::size_t> places;
  m_params.clear();
  for (Param& param : params) {
    const auto [place, isNew] = places.try_emplace(param.first, m_params.size());
    if (isNew)
      m_params.push_back(std::move(param));
    else
      m_params[place->second].second = std::move(param.second);
  }
}

Properties& Properties::subProperties(const std::string& name) {
  for (auto& [childName, child] : m_children)
    if (childName == name) return child;
  return addSubProperties(name);
}

const Properties* Properties::findSubProperties(const std::string& name) const {
  for (const auto& [childName, child] : m_children)
    if (childName == name) return &child;
  return nullptr;
}

std::vector<const Properties*> Properties::allSubProperties(const std::string& name) const {
  std::vector<const Properties*> found;
  for (const auto& [childName, child] : m_children)
    if (childName == name) found.push_back(&child);
  return found;
}

Properties& Properties::addSubProperties(const std::string& name) {
  return m_children.emplace_back(name, Properties()).second;
}

void Properties::removeSubProperties(const std::string& name) {
  std::erase_if(m_children, [&](const Child& c) { return c.first == name; });
}

void Properties::clear() {
  m_params.clear();
  m_children.clear();
}

void Properties::setText(const std::string& key, std::string text) {
  for (auto& [paramKey, paramText] : m_params)
    if (paramKey == key) {
      paramText = std::move(text);
      return;
    }
  m_params.emplace_back(key, std::move(text));
}

const std::string* Properties::find(const std::string& key) const {
  for (const auto& [paramKey, text] : m_params)
    if (paramKey == key) return &text;
  return nullptr;
}

void Properties::reportUnreadable(const std::string& key, const std::string& text) {
  constexpr std::size_t shown = 60;
  Log::error("Properties", "The value of \"{}\" can't be read as the type that is needed: \"{}\"{}", key,
             text.substr(0, shown), text.size() > shown ? "..." : "");
}

} // namespace Kelvaris
