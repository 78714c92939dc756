#include "Core/Parameter.h"

#include "Core/Configurable.h"
#include "Core/ParameterDescription.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <mutex>

namespace Kelvaris {
namespace {

enum class Window { Rectangle, Hamming, Tukey };

struct Settings : Configurable, SignalReceiver {
  Settings() {
    ParameterBase* all[] = {&flag, &count, &ratio, &carrier, &size, &window, &name};
    for (ParameterBase* parameter : all) {
      registerParameter(parameter, &mutex);
      receive(parameter->changed, [this, parameter] {
        ASSERT_TRUE(mutex.try_lock()) << "slots may take the guard";
        mutex.unlock();
        changes.push_back(parameter->name());
      });
    }
    window.setAttribute("values", "Rectangle, Hamming, Tukey");
  }
  std::mutex mutex;
  std::vector<std::string> changes;
  Parameter<bool> flag{"flag", true};
  Parameter<int> count{"count", 4};
  Parameter<double> ratio{"ratio", 0.5};
  Parameter<std::optional<double>> carrier{"carrier", std::nullopt};
  Parameter<Eigen::Vector2i> size{"size", {512, 256}};
  Parameter<Window> window{"window", Window::Hamming};
  Parameter<std::string> name{"name", "a b"};
};

TEST(ParameterTest, StoresReadsAndResetsEveryType) {
  Settings settings;
  Properties stored;
  settings.configuration(&stored);
  const std::vector<Properties::Param> defaults = {{"flag", "true"}, {"count", "4"},      {"ratio", "0.5"},
                                                   {"carrier", ""},  {"size", "512 256"}, {"window", "1"},
                                                   {"name", "a b"}};
  EXPECT_EQ(stored.params(), defaults);
  settings.configure(&stored);
  EXPECT_TRUE(settings.changes.empty()) << "equal values are no change";

  const std::vector<Properties::Param> others = {{"flag", "false"},    {"count", "-1"}, {"ratio", "nan"},
                                                 {"carrier", "5e+06"}, {"size", "1 2"}, {"window", "2"},
                                                 {"name", ""}};
  Properties changed;
  for (const auto& [key, text] : others)
    changed.setParam(key, text);
  settings.configure(&changed);
  EXPECT_EQ(settings.changes.size(), others.size());
  EXPECT_EQ(settings.window.value(), Window::Tukey);
  Properties written;
  settings.configuration(&written);
  EXPECT_EQ(written, changed);

  settings.configureDefaults();
  Properties reset;
  settings.configuration(&reset);
  EXPECT_EQ(reset, stored);
}

TEST(ParameterTest, UnreadableTextsLeaveTheValueAndAreLogged) {
  const struct {
    const char *key, *text, *expected; // what would be right
  } cases[] = {{"flag", "maybe", "true or false"},
               {"count", "4.5", "a whole number"},
               {"ratio", "half", "a number"},
               {"carrier", "5 MHz", "a number, or nothing"},
               {"size", "512", "two whole numbers with a blank between"},
               {"window", "Tukey", "the index of one of: Rectangle, Hamming, Tukey"}};
  for (const auto& c : cases) {
    Settings settings;
    const ParameterBase& parameter = *settings.parameter(c.key);
    const std::string before = parameter.text();
    EXPECT_FALSE(parameter.accepts(c.text)) << c.key;
    EXPECT_TRUE(parameter.accepts(before)) << c.key;
    EXPECT_EQ(parameter.expected(), c.expected);
    Properties bad;
    bad.setParam(c.key, c.text);
    Tests::ExpectedLog log;
    settings.configure(&bad);
    EXPECT_EQ(parameter.text(), before);
    EXPECT_TRUE(log.contains(c.text)) << c.key;
  }
  EXPECT_EQ(Settings().parameter("missing"), nullptr);
}

TEST(ParameterDescriptionTest, LabelsAreTheNamesInWords) {
  for (const auto& [name, label] : {std::pair("fNumber", "F number"),
                                    {"useSIMUS", "Use SIMUS"},
                                    {"outputURLPath", "Output URL path"},
                                    {"phantomX", "Phantom x"}})
    EXPECT_EQ(ParameterDescription::label(Parameter<bool>(name, true)), label);
}

TEST(ParameterDescriptionTest, SaysWhatIsExpectedAndShowsValues) {
  Settings settings;
  settings.ratio.setAttribute("min", "0.1");
  EXPECT_EQ(ParameterDescription::expected(settings.ratio), "a number, from 0.1");
  settings.ratio.setAttribute("max", "4");
  EXPECT_EQ(ParameterDescription::expected(settings.ratio), "a number, 0.1 to 4");
  settings.ratio.setAttribute("suffix", "MHz");
  EXPECT_EQ(ParameterDescription::shown(settings.ratio, "0.5", "none"), "0.5 MHz");
  EXPECT_EQ(ParameterDescription::shown(settings.carrier, "", "none"), "none");
  EXPECT_EQ(ParameterDescription::shown(settings.window, "2", "none"), "Tukey");
  EXPECT_EQ(ParameterDescription::shown(settings.window, "3", "none"), "3");
}

} // namespace
} // namespace Kelvaris
