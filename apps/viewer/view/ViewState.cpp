#include "viewer/view/ViewState.h"

#include "viewer/view/ColorMap.h"

#include <fmt/format.h>

#include <cmath>

namespace Kelvaris::Viewer {
namespace {

constexpr const char *kLinear = "linear", *kDecibels = "decibels";

/// Reads values of a view one by one. One that is no such value, or that `isPossible` denies, stays as it was.
class Reader {
public:
  Reader(const Properties& properties, std::vector<std::string>& problems)
      : m_properties(properties), m_problems(problems) {}

  /// `expected` says what would be right: "a number above 0".
  template <typename T, typename Check>
  void read(const char* key, T& value, const char* expected, const Check& isPossible) {
    std::string text;
    T read{};
    if (!m_properties.param(key, text)) return;
    if (PropertyText::fromText(text, read) && isPossible(read))
      value = read;
    else
      m_problems.push_back(
          fmt::format("The session's view has the {} \"{}\", expected {}; the default is taken", key, text, expected));
  }

private:
  const Properties& m_properties;
  std::vector<std::string>& m_problems;
};

} // namespace

void ViewState::writeTo(Properties& properties) const {
  properties.setParam("image", image);
  properties.setParam("slice", slice);
  if (mapping) {
    properties.setParam("law", std::string(mapping->law == DisplayMapping::Law::Decibels ? kDecibels : kLinear));
    properties.setParam("low", mapping->low);
    properties.setParam("high", mapping->high);
  }
  properties.setParam("colorMap", colorMap.toStdString());
  properties.setParam("magnification", magnification);
  if (magnification > 0.0) properties.setParam("center", Eigen::Vector2d(center.x(), center.y()));
}

ViewState ViewState::from(const Properties& properties, std::vector<std::string>& problems) {
  ViewState state;
  Reader reader(properties, problems);
  const auto isIndex = [](int index) { return index >= 0; };
  const auto isFinite = [](double value) { return std::isfinite(value); };
  reader.read("image", state.image, "0 or more", isIndex);
  reader.read("slice", state.slice, "0 or more", isIndex);
  std::string map = state.colorMap.toStdString();
  reader.read("colorMap", map, "the name of a colour map",
              [](const std::string& name) { return colorMapIndex(QString::fromStdString(name)) >= 0; });
  state.colorMap = QString::fromStdString(map);
  reader.read("magnification", state.magnification, "a number of 0 or more",
              [](double value) { return std::isfinite(value) && value >= 0.0; });
  Eigen::Vector2d center = Eigen::Vector2d::Zero();
  reader.read("center", center, "two numbers", [](const Eigen::Vector2d& place) { return place.allFinite(); });
  state.center = {center.x(), center.y()};
  if (!properties.hasParam("law") && !properties.hasParam("low") && !properties.hasParam("high")) return state;
  // All three or none: a window with an edge of another one would be neither.
  const std::size_t beforeMapping = problems.size();
  std::string law = kLinear;
  DisplayMapping mapping;
  reader.read("law", law, "linear or decibels",
              [](const std::string& name) { return name == kLinear || name == kDecibels; });
  reader.read("low", mapping.low, "a number", isFinite);
  reader.read("high", mapping.high, "a number", isFinite);
  mapping.law = law == kDecibels ? DisplayMapping::Law::Decibels : DisplayMapping::Law::Linear;
  if (problems.size() == beforeMapping && !(mapping.high > mapping.low))
    problems.push_back(fmt::format("The session's view shows values from {} to {}, expected a range that rises; the "
                                   "default is taken",
                                   mapping.low, mapping.high));
  if (problems.size() == beforeMapping) state.mapping = mapping;
  return state;
}

} // namespace Kelvaris::Viewer
