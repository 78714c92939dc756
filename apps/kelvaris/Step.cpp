#include "kelvaris/Step.h"

#include "Core/Parameter.h"
#include "Core/ParameterDescription.h"
#include "Core/PropertiesIO.h"
#include "Lib/FactoryRegistry.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <pugixml.hpp>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace Kelvaris::CommandLine {
namespace {

using ParameterDescription::displayTexts, ParameterDescription::expected;

std::string trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(blanks) - first + 1));
}

/// Splits at commas that stand outside of quotes and brackets. Throws for those left open.
std::vector<std::string> splitAtCommas(const std::string& text) {
  std::vector<std::string> parts(1);
  std::string open; // the closing characters that are awaited, innermost last
  for (const char c : text) {
    if (!open.empty() && c == open.back())
      open.pop_back();
    else if (!open.empty() && (open.back() == '"' || open.back() == '\''))
      ; // within quotes, brackets are text
    else if (c == '"' || c == '\'')
      open += c;
    else if (c == '[' || c == '(')
      open += c == '[' ? ']' : ')';
    if (c == ',' && open.empty())
      parts.emplace_back();
    else
      parts.back() += c;
  }
  if (!open.empty()) throw std::invalid_argument(fmt::format("\"{}\" lacks a closing {}", text, open.back()));
  return parts;
}

bool isEnclosed(const std::string& text, char first, char last) {
  return text.size() >= 2 && text.front() == first && text.back() == last;
}

/// Without the quotes or brackets around it; in brackets, commas become blanks.
std::string unwrapped(const std::string& text) {
  std::string value = trimmed(text);
  if (isEnclosed(value, '"', '"') || isEnclosed(value, '\'', '\'')) return value.substr(1, value.size() - 2);
  if (isEnclosed(value, '[', ']') || isEnclosed(value, '(', ')')) {
    value = value.substr(1, value.size() - 2);
    std::replace(value.begin(), value.end(), ',', ' ');
  }
  return value;
}

/// Letters and digits in lower case: what is compared of a display text.
std::string normalized(std::string_view text) {
  std::string letters;
  for (const char c : text)
    if (std::isalnum(static_cast<unsigned char>(c)))
      letters += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return letters;
}

/// Single-character edits from one to the other.
std::size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t(0));
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0]++;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

/// " (did you mean "x"?)", or nothing where no candidate begins with the word or is close to it.
std::string suggestion(const std::string& word, const std::vector<std::string>& candidates) {
  const std::string typed = normalized(word);
  const std::string* best = nullptr;
  std::size_t least = std::min(std::max<std::size_t>(word.size() / 3, 2) + 1, word.size());
  for (const std::string& candidate : candidates) {
    const std::string known = normalized(candidate);
    const bool abbreviated = typed.size() > 2 && known.starts_with(typed);
    if (const auto distance = abbreviated ? 0 : editDistance(typed, known); distance < least) {
      least = distance;
      best = &candidate;
    }
  }
  return best ? fmt::format(" (did you mean \"{}\"?)", *best) : "";
}

std::string withoutFactory(const std::string& id) {
  return id.substr(id.find('.') + 1);
}

/// The index of the display text `value` among those of an enum, as text; else `value` itself.
std::string enumIndex(const std::string& value, const std::vector<std::string>& displayTexts) {
  for (std::size_t i = 0; i < displayTexts.size(); ++i)
    if (!normalized(value).empty() && normalized(displayTexts[i]) == normalized(value)) return std::to_string(i);
  return value;
}

bool isNumber(const ParameterBase& parameter) {
  return parameter.type() == ParameterType::Int || parameter.type() == ParameterType::Double ||
         parameter.type() == ParameterType::OptionalDouble;
}

/// Without the parameter's unit, which may follow a number as forms show it: "5 MHz", "5MHz".
std::string withoutUnit(const ParameterBase& parameter, const std::string& text) {
  const std::string unit = parameter.attribute("suffix");
  if (unit.empty() || text.size() < unit.size() || !isNumber(parameter)) return text;
  const std::size_t length = text.size() - unit.size();
  return text.compare(length, unit.size(), unit) == 0 ? trimmed(std::string_view(text).substr(0, length)) : text;
}

/// The text that the parameter reads.
std::string parameterText(const ParameterBase& parameter, const std::string& value) {
  std::string text = parameter.type() == ParameterType::Text ? value : withoutUnit(parameter, trimmed(value));
  if (parameter.type() == ParameterType::Vector2i)
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == 'x' || c == 'X'; }, ' ');
  if (parameter.type() == ParameterType::Enum) text = enumIndex(text, displayTexts(parameter));
  return text;
}

bool accepts(const ParameterBase& parameter, const std::string& text) {
  if (!parameter.accepts(text)) return false;
  if (parameter.type() != ParameterType::Enum) return true;
  const std::vector<std::string> texts = displayTexts(parameter);
  int index = 0;
  return texts.empty() || (PropertyText::fromText(text, index) && index >= 0 && index < static_cast<int>(texts.size()));
}

/// For example "dynamicRange = 40 dB (a number, 5 to 100; default 50)". The range is a hint, as it is to forms.
std::string describe(const ParameterBase& parameter) {
  const auto shown = [](const std::string& text) { return text.empty() ? "\"\"" : text; };
  const std::string unit = parameter.attribute("suffix"), value = parameter.text();
  return fmt::format("{} = {}{}{} ({}; default {})", parameter.name(), shown(value), unit.empty() ? "" : " ", unit,
                     expected(parameter), shown(parameter.defaultText()));
}

} // namespace

Step parseStep(const std::string& text) {
  const auto colon = std::min(text.find(':'), text.size());
  Step step{trimmed(std::string_view(text).substr(0, colon)), {}};
  if (step.id.empty())
    throw std::invalid_argument(fmt::format("\"{}\" names no algorithm; expected ID or ID:key=value,...", text));
  if (colon == text.size()) return step;
  for (const std::string& part : splitAtCommas(text.substr(colon + 1))) {
    const auto equals = part.find('=');
    const std::string key = trimmed(std::string_view(part).substr(0, std::min(equals, part.size())));
    if (equals == std::string::npos || key.empty())
      throw std::invalid_argument(fmt::format("\"{}\" in the step \"{}\" is not of the form key=value (a value with "
                                              "commas goes into quotes or brackets)",
                                              trimmed(part), text));
    if (std::any_of(step.values.begin(), step.values.end(), [&](const auto& value) { return value.first == key; }))
      throw std::invalid_argument(fmt::format("The step \"{}\" gives \"{}\" twice", text, key));
    step.values.emplace_back(key, unwrapped(part.substr(equals + 1)));
  }
  return step;
}

std::vector<Step> parseChain(const std::string& xml, const std::string& name) {
  const auto fail = [&](const std::string& reason) { throw std::runtime_error(fmt::format("{}: {}", name, reason)); };
  pugi::xml_document document;
  const pugi::xml_parse_result result = document.load_buffer(xml.data(), xml.size(), PropertiesIO::parseFlags());
  if (!result) fail(fmt::format("Broken XML at byte {}: {}", result.offset, result.description()));
  const pugi::xml_node root = document.document_element();
  if (std::string_view(root.name()) != "chain")
    fail(fmt::format("The outermost element is <{}>, expected <chain>", root.name()));
  std::vector<Step> steps;
  for (const pugi::xml_node& node : root.children()) {
    if (node.type() != pugi::node_element) continue;
    if (std::string_view(node.name()) != "step")
      fail(fmt::format("Unknown element <{}> where <step> is expected", node.name()));
    Step step{node.attribute("id").value(), {}};
    if (step.id.empty()) fail("A <step> has no attribute \"id\"");
    const auto properties = PropertiesIO::read(node);
    if (!properties || !properties->children().empty())
      fail(fmt::format("The step {} may hold nothing but <param key=\"...\">value</param>", step.id));
    step.values = properties->params();
    steps.push_back(std::move(step));
  }
  if (steps.empty()) fail("It holds no <step>");
  return steps;
}

std::vector<Step> readChain(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) throw std::runtime_error(fmt::format("Can't read {}", path.string()));
  return parseChain({std::istreambuf_iterator<char>(stream), {}}, path.string());
}

std::string chainToXml(const std::vector<Step>& steps) {
  pugi::xml_document document;
  pugi::xml_node root = document.append_child("chain");
  for (const Step& step : steps) {
    pugi::xml_node node = root.append_child("step");
    node.append_attribute("id") = step.id.c_str();
    Properties values;
    for (const auto& [key, value] : step.values)
      values.setParam(key, value);
    PropertiesIO::write(values, node);
  }
  std::ostringstream stream;
  document.save(stream, "  ", pugi::format_default | pugi::format_no_declaration);
  return stream.str();
}

AlgorithmFactory::Descriptor findAlgorithm(const std::string& id) {
  std::vector<AlgorithmFactory::Descriptor> found;
  std::vector<std::string> names;
  for (AlgorithmFactory::Descriptor& descriptor : FactoryRegistry::get().algorithmDescriptors()) {
    names.push_back(withoutFactory(descriptor.id));
    if (descriptor.id == id) return descriptor;
    if (withoutFactory(descriptor.id) == id) found.push_back(std::move(descriptor));
  }
  if (found.size() == 1) return found.front();
  if (found.size() > 1)
    throw std::invalid_argument(
        fmt::format("Several algorithms have the id \"{}\": write {} or {}", id, found[0].id, found[1].id));
  throw std::invalid_argument(
      fmt::format("There is no algorithm \"{}\"{}; there are: {}", id, suggestion(id, names), fmt::join(names, ", ")));
}

Properties settingsFor(const Step& step, const Algorithm& algorithm) {
  Properties settings;
  for (const auto& [key, value] : step.values) {
    const ParameterBase* parameter = algorithm.parameter(key.c_str());
    if (!parameter) {
      std::vector<std::string> names;
      for (const ParameterBase* known : algorithm.parameters())
        names.push_back(known->name());
      throw std::invalid_argument(fmt::format("{} has no parameter \"{}\"{}; it has:\n{}", step.id, key,
                                              suggestion(key, names), describeParameters(algorithm)));
    }
    const std::string text = parameterText(*parameter, value);
    if (!accepts(*parameter, text))
      throw std::invalid_argument(
          fmt::format("\"{}\" is no value of a parameter of {}: {}", value, step.id, describe(*parameter)));
    settings.setParam(key, text);
  }
  return settings;
}

std::string describeParameters(const Algorithm& algorithm) {
  std::string text;
  for (const ParameterBase* parameter : algorithm.parameters())
    text += fmt::format("{}  {}", text.empty() ? "" : "\n", describe(*parameter));
  return text.empty() ? "  no parameters" : text;
}

} // namespace Kelvaris::CommandLine
