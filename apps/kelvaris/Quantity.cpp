#include "kelvaris/Quantity.h"

#include "Core/Properties.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cmath>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace Kelvaris::CommandLine {
namespace {

struct Unit {
  const char* name;
  double factor;
  double divisor = 1.0; ///< instead of a factor below 1, so that decimals stay exact
};

/// The first unit is that of numbers without one, if `bare`; 0 has no unit anyway.
double parse(const std::string& text, const char* what, const std::vector<Unit>& units, bool bare) {
  const auto end = text.find_last_of("0123456789.");
  const std::size_t length = end == std::string::npos ? 0 : end + 1;
  std::string name = text.substr(length);
  name.erase(0, name.find_first_not_of(' '));
  double number = 0.0;
  if (PropertyText::fromText(text.substr(0, length), number) && std::isfinite(number)) {
    if (name.empty() && (bare || number == 0.0)) return number * units.front().factor;
    for (const Unit& unit : units)
      if (name == unit.name) return number * unit.factor / unit.divisor;
  }
  std::vector<std::string_view> names;
  for (const Unit& unit : units)
    names.emplace_back(unit.name);
  throw std::invalid_argument(fmt::format("\"{}\" is no {}; expected a number{} {}", text, what,
                                          bare ? ", behind it if you like" : " and behind it",
                                          fmt::join(names, " or ")));
}

} // namespace

double parseTime(const std::string& text) {
  return parse(text, "time", {{"s", 1.0}, {"ms", 1.0, 1e3}, {"us", 1.0, 1e6}, {"ns", 1.0, 1e9}}, false);
}

double parseFrequency(const std::string& text) {
  return parse(text, "frequency", {{"Hz", 1.0}, {"kHz", 1e3}, {"MHz", 1e6}}, true);
}

double parseLength(const std::string& text) {
  return parse(text, "length", {{"mm", 1.0}}, true);
}

} // namespace Kelvaris::CommandLine
