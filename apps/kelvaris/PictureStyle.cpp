#include "kelvaris/PictureStyle.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <charconv>
#include <map>
#include <stdexcept>
#include <string_view>

namespace Kelvaris::CommandLine {
namespace {

/// As CSS has them.
const std::map<std::string_view, PngWriter::Color> kColors = {
    {"black", {0, 0, 0}},      {"white", {255, 255, 255}}, {"gray", {128, 128, 128}}, {"silver", {192, 192, 192}},
    {"red", {255, 0, 0}},      {"green", {0, 128, 0}},     {"blue", {0, 0, 255}},     {"navy", {0, 0, 128}},
    {"yellow", {255, 255, 0}}, {"magenta", {255, 0, 255}}, {"cyan", {0, 255, 255}},
};

std::optional<PngWriter::Color> parseHexadecimal(std::string_view text) {
  if (text.size() != 7 || text[0] != '#') return std::nullopt;
  PngWriter::Color color{};
  for (std::size_t i = 0; i < 3; ++i) {
    const char* const end = text.data() + 3 + 2 * i;
    const auto [stop, error] = std::from_chars(end - 2, end, color[i], 16);
    if (error != std::errc() || stop != end) return std::nullopt;
  }
  return color;
}

} // namespace

std::optional<PngWriter::Color> parseMaskColor(const std::string& text) {
  if (text == "transparent") return std::nullopt;
  if (const auto color = parseHexadecimal(text)) return color;
  if (const auto found = kColors.find(text); found != kColors.end()) return found->second;
  std::vector<std::string_view> names;
  for (const auto& [name, color] : kColors)
    names.push_back(name);
  throw std::invalid_argument(fmt::format("\"{}\" is no colour of masked pixels; expected transparent, #rrggbb "
                                          "(for example #203040) or one of {}",
                                          text, fmt::join(names, ", ")));
}

} // namespace Kelvaris::CommandLine
