#include "kelvaris/NumberList.h"

#include "Core/Properties.h"

#include <fmt/format.h>

#include <cmath>
#include <limits>
#include <stdexcept>

namespace Kelvaris::CommandLine {
namespace {

constexpr double kMostNumbers = 65536;

double number(const std::string& text, const std::string& whole) {
  double value = 0.0;
  if (!PropertyText::fromText(text, value) || !std::isfinite(value))
    throw std::invalid_argument(fmt::format("\"{}\" in \"{}\" is no number", text, whole));
  return value;
}

} // namespace

std::vector<std::string> splitText(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  for (std::size_t end; (end = text.find(separator, begin)) != std::string::npos; begin = end + 1)
    parts.push_back(text.substr(begin, end - begin));
  parts.push_back(text.substr(begin));
  return parts;
}

std::vector<double> parseNumbers(const std::string& text) {
  std::vector<double> numbers;
  for (const std::string& item : splitText(text, ',')) {
    const auto parts = splitText(item, ':');
    if (parts.size() > 3) throw std::invalid_argument(fmt::format("\"{}\" is no first:step:last", item));
    const double first = number(parts.front(), text), last = number(parts.back(), text);
    const double step = parts.size() == 3 ? number(parts[1], text) : 1.0;
    // The last value belongs to the list although the steps meet it with a rounding error.
    const double steps = parts.size() == 1 ? 0.0 : std::floor((last - first) / step + 1e-6);
    if (!(steps >= 0.0))
      throw std::invalid_argument(fmt::format("From {} no step of {} leads to {} in \"{}\"", first, step, last, text));
    if (static_cast<double>(numbers.size()) + steps >= kMostNumbers)
      throw std::invalid_argument(fmt::format("\"{}\" holds more than {} numbers", text, kMostNumbers));
    for (int i = 0; i <= static_cast<int>(steps); ++i)
      numbers.push_back(first + i * step);
  }
  return numbers;
}

std::vector<int> parseWholeNumbers(const std::string& text) {
  std::vector<int> whole;
  for (const double value : parseNumbers(text)) {
    if (value != std::floor(value) || std::abs(value) > std::numeric_limits<int>::max())
      throw std::invalid_argument(fmt::format("{} in \"{}\" is no whole number", value, text));
    whole.push_back(static_cast<int>(value));
  }
  return whole;
}

std::pair<double, double> parseInterval(const std::string& text) {
  const auto parts = splitText(text, ':');
  if (parts.size() != 2)
    throw std::invalid_argument(fmt::format("\"{}\" is no range, expected two numbers as in 10:35", text));
  return {number(parts[0], text), number(parts[1], text)};
}

std::vector<Eigen::Vector2d> parsePoints(const std::string& text) {
  std::vector<Eigen::Vector2d> points;
  for (const std::string& item : splitText(text, ';')) {
    const auto parts = splitText(item, ',');
    if (parts.size() != 2)
      throw std::invalid_argument(fmt::format("\"{}\" in \"{}\" is no point, expected x,z", item, text));
    points.emplace_back(number(parts[0], text), number(parts[1], text));
  }
  return points;
}

} // namespace Kelvaris::CommandLine
