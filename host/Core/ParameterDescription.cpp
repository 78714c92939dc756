#include "Core/ParameterDescription.h"

#include "Core/Parameter.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cctype>
#include <cstddef>
#include <sstream>
#include <string_view>

namespace Kelvaris::ParameterDescription {
namespace {

bool isUpper(char c) {
  return std::isupper(static_cast<unsigned char>(c)) != 0;
}

char toLower(char c) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

std::string trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(blanks) - first + 1));
}

} // namespace

std::vector<std::string> displayTexts(const ParameterBase& parameter) {
  std::vector<std::string> texts;
  std::istringstream stream(parameter.attribute("values"));
  for (std::string text; std::getline(stream, text, ',');)
    texts.push_back(trimmed(text));
  return texts;
}

std::string label(const ParameterBase& parameter) {
  const std::string& name = parameter.name();
  std::string words;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const bool endsWord = i + 1 == name.size() || !isUpper(name[i + 1]);
    const bool afterUpper = i > 0 && isUpper(name[i - 1]);
    if (i == 0)
      words += static_cast<char>(std::toupper(static_cast<unsigned char>(name[i])));
    else if (!isUpper(name[i]))
      words += name[i];
    else if (!afterUpper)
      words += std::string(" ") + (endsWord ? toLower(name[i]) : name[i]);
    else if (endsWord && i + 1 < name.size()) // the first letter after an abbreviation
      words += std::string(" ") + toLower(name[i]);
    else
      words += name[i];
  }
  return words;
}

std::string expected(const ParameterBase& parameter) {
  std::string text = parameter.expected();
  if (const auto texts = displayTexts(parameter); parameter.type() == ParameterType::Enum && !texts.empty()) {
    std::vector<std::string> numbered;
    for (std::size_t i = 0; i < texts.size(); ++i)
      numbered.push_back(fmt::format("{} \"{}\"", i, texts[i]));
    text = fmt::format("one of {}", fmt::join(numbered, ", "));
  }
  const std::string least = parameter.attribute("min"), most = parameter.attribute("max");
  if (!least.empty() && !most.empty()) return fmt::format("{}, {} to {}", text, least, most);
  if (!most.empty()) return fmt::format("{}, up to {}", text, most);
  return least.empty() ? text : fmt::format("{}, from {}", text, least);
}

std::string shown(const ParameterBase& parameter, const std::string& text, const std::string& empty) {
  if (text.empty()) return empty;
  if (parameter.type() == ParameterType::Enum) {
    const auto texts = displayTexts(parameter);
    int index = 0;
    if (PropertyText::fromText(text, index) && index >= 0 && index < static_cast<int>(texts.size()))
      return texts[static_cast<std::size_t>(index)];
  }
  const std::string unit = parameter.attribute("suffix");
  return unit.empty() ? text : text + " " + unit;
}

} // namespace Kelvaris::ParameterDescription
