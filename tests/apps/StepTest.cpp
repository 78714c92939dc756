#include "kelvaris/Step.h"

#include "apps/TestAlgorithms.h"
#include "kelvaris/Chain.h"
#include "kelvaris/InfoCommand.h"
#include "kelvaris/ProgressBar.h"
#include "kelvaris/RunCommand.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"

#include "Lib/FactoryRegistry.h"

namespace Kelvaris::CommandLine {
namespace {

using Tests::errorOf;

/// A text, and a part of the message with which it is refused.
struct Refusal {
  const char* text;
  const char* part;
};

/// With the algorithms of the tests registered.
class Chains : public testing::Test {
protected:
  Chains() { FactoryRegistry::get().add(std::make_unique<Tests::TestAlgorithmFactory>(), nullptr, this); }
  ~Chains() override { FactoryRegistry::get().remove(this); }
};

TEST(Step, ReadsIdAndValues) {
  const std::pair<const char*, Step> table[] = {
      {"Test.Gain", {"Test.Gain", {}}},
      {" Gain : factor = -2.5e6 , levels=true ", {"Gain", {{"factor", "-2.5e6"}, {"levels", "true"}}}},
      {"Gain:outputSize=[512,256],factor=1", {"Gain", {{"outputSize", "512 256"}, {"factor", "1"}}}},
      {"Gain:label=\"a, [b\",factor=1", {"Gain", {{"label", "a, [b"}, {"factor", "1"}}}},
      {"Gain:label='say \"x\"'", {"Gain", {{"label", "say \"x\""}}}},
      {"Gain:mode=Debug: a=b,offset=", {"Gain", {{"mode", "Debug: a=b"}, {"offset", ""}}}}};
  for (const auto& [text, step] : table)
    EXPECT_EQ(parseStep(text), step) << text;
  const Refusal refusals[] = {{":factor=1", "names no algorithm"},
                              {"Gain:factor", "\"factor\""},
                              {"Gain:outputSize=512,256", "\"256\""},
                              {"Gain:=3", "\"=3\""},
                              {"Gain:factor=1,factor=2", "\"factor\" twice"},
                              {"Gain:label=\"a", "lacks a closing \""},
                              {"Gain:outputSize=[1,2", "lacks a closing ]"}};
  for (const Refusal& r : refusals)
    EXPECT_CONTAINS(errorOf([&] { parseStep(r.text); }), r.part) << r.text;
}

TEST(Step, ChainsSurviveXml) {
  const std::vector<Step> steps = {{"Gain", {{"factor", "-1.6667e6"}, {"label", "a <&> \"b\""}}}, {"Test.Levels", {}}};
  EXPECT_EQ(parseChain(chainToXml(steps), "x"), steps);
}

TEST(Step, BrokenChainsAreErrors) {
  const Tests::ExpectedLog log;
  const Refusal refusals[] = {{"<chain><step id='a'>", "Broken XML"},
                              {"<steps/>", "<steps>, expected <chain>"},
                              {"<chain/>", "no <step>"},
                              {"<chain><stage id='a'/></chain>", "<stage>"},
                              {"<chain><step/></chain>", "\"id\""},
                              {"<chain><step id='a'><properties key='b'/></step></chain>", "step a"}};
  for (const Refusal& r : refusals) {
    const std::string message = errorOf([&] { parseChain(r.text, "c.xml"); });
    EXPECT_CONTAINS(message, r.part) << r.text;
    EXPECT_CONTAINS(message, "c.xml") << r.text;
  }
  EXPECT_CONTAINS(errorOf([] { readChain("/no/such.xml"); }), "/no/such.xml");
}

TEST_F(Chains, FindAlgorithmsWithAndWithoutTheFactorysName) {
  EXPECT_EQ(findAlgorithm("Gain").id, "Test.Gain");
  EXPECT_EQ(findAlgorithm("Test.Gain").id, "Test.Gain");
  EXPECT_CONTAINS(errorOf([&] { findAlgorithm("gain"); }), "Gain, Levels");
  EXPECT_CONTAINS(errorOf([] { findAlgorithm("levles"); }), "did you mean \"Levels\"?");
  EXPECT_CONTAINS(errorOf([] { findAlgorithm("lev"); }), "did you mean \"Levels\"?");
  EXPECT_EQ(errorOf([] { findAlgorithm("Zzzzzz"); }).find("did you mean"), std::string::npos);
}

TEST_F(Chains, HoldTwoImagesAndMakeEachAlgorithmOnce) {
  Tests::Record::get() = {};
  Progress progress;
  Chain chain({parseStep("Gain"), parseStep("Gain"), parseStep("Gain"), parseStep("Levels")}, progress);
  SharedImageSet images; // a run takes its image out
  images.setModality(Data::Ultrasound);
  for (int i = 0; i < 20; ++i) {
    images.add(Tests::floatImage(4, 3, 1.0F));
    chain.run(images, i);
    ASSERT_EQ(images.size(), 0);
  }
  EXPECT_EQ(Tests::Record::get().made, 4);
  EXPECT_EQ(Tests::Record::get().mostAlive, 2);
}

TEST(Step, SettingsAreWhatTheParametersRead) {
  SharedImageSet set;
  Tests::GainAlgorithm gain(&set);
  const auto configured = [&](const std::string& step) {
    const Properties settings = settingsFor(parseStep(step), gain);
    gain.configure(&settings);
  };
  configured("Gain:factor=2.5,offset=3,levels=1,count=+7");
  EXPECT_EQ(gain.factor.value(), 2.5);
  EXPECT_EQ(gain.offset.value(), 3.0);
  EXPECT_TRUE(gain.levels.value());
  EXPECT_EQ(gain.count.value(), 7);
  configured("Gain:offset=-2.5 dB,count=4dB,label=3 dB");
  EXPECT_EQ(gain.offset.value(), -2.5);
  EXPECT_EQ(gain.count.value(), 4);
  EXPECT_EQ(gain.label.value(), "3 dB");
  configured("Gain:offset=,label=' x '");
  EXPECT_EQ(gain.offset.value(), std::nullopt);
  EXPECT_EQ(gain.label.value(), " x ");
  for (const std::string size : {"300x200", "[300,200]", "\"300 200\"", "(300, 200)"}) {
    configured("Gain:outputSize=1x1");
    configured("Gain:outputSize=" + size);
    EXPECT_EQ(gain.outputSize.value(), Eigen::Vector2i(300, 200)) << size;
  }
  for (const std::string mode : {"1", "Hamming Das", "hamming-das"}) {
    configured("Gain:mode=0");
    configured("Gain:mode=" + mode);
    EXPECT_EQ(gain.mode.value(), Tests::GainAlgorithm::Mode::HammingDas) << mode;
  }
}

TEST(Step, BadSettingsNameWhatThereIs) {
  SharedImageSet set;
  const Tests::GainAlgorithm gain(&set);
  const Refusal refusals[] = {
      {"Gain:facto=2", "did you mean \"factor\"?"},
      {"Gain:zzzzz=2", "outputSize = 512 512"},
      {"Gain:factor=two", "\"two\" is no value of a parameter of Gain: factor = 1 (a number; default 1)"},
      {"Gain:factor=2 dB", "\"2 dB\" is no value"},
      {"Gain:offset=2 MHz", "offset = \"\" dB (a number, or nothing, -5 to 5; default \"\")"},
      {"Gain:offset=dBdB", "\"dBdB\" is no value"},
      {"Gain:count=99999999999", "count = 3 dB (a whole number, from 1; default 3)"},
      {"Gain:mode=3", "one of 0 \"Plain\", 1 \"Hamming Das\", 2 \"Debug: Other\""},
      {"Gain:mode=Hanning", "one of 0 \"Plain\""}};
  for (const Refusal& r : refusals)
    EXPECT_CONTAINS(errorOf([&] { settingsFor(parseStep(r.text), gain); }), r.part) << r.text;
}

TEST(Run, RangesOfImages) {
  for (const auto& [text, range] :
       {std::pair("", std::pair(0, 5)), {"1:3", {1, 3}}, {"2:", {2, 5}}, {":2", {0, 2}}, {"4", {4, 5}}})
    EXPECT_EQ(parseRange(text, 5), range) << text;
  for (const char* text : {"3:3", "0:6", "5", "-1:2", "a:b", "1:2:3", "99999999999"})
    EXPECT_THROW(parseRange(text, 5), std::invalid_argument) << text;
  EXPECT_THROW(parseRange("", 0), std::invalid_argument);
}

TEST(ProgressBar, Line) {
  EXPECT_EQ(ProgressBar::line(0, 4, -1.0), "[                              ]   0 %");
  EXPECT_EQ(ProgressBar::line(2, 4, 61.2), "[###############               ]  50 %  1:02 left");
  EXPECT_EQ(ProgressBar::line(1, 100000, 36061.0), "[                              ]   0 %  10:01:01 left");
}

TEST(Info, ContentsInWordsAreCutUnlessFull) {
  Properties properties;
  properties.setParam("pitch", 0.3);
  properties.setParam("delays", std::vector<double>(128, 0.25));
  for (int i = 0; i < 3; ++i)
    properties.addSubProperties("event").setParam("number", i);
  EXPECT_EQ(describeProperties(properties, 2, false),
            "  pitch: 0.3\n"
            "  delays: 0.25 0.25 0.25 0.25 0.25 0.25 0.25 0.25 0.25 0.25 ... (128 values)\n"
            "  event (the first of 3)\n"
            "    number: 0\n");
  const std::string full = describeProperties(properties, 0, true);
  EXPECT_CONTAINS(full, "event\n  number: 2\n");
  EXPECT_EQ(full.find("..."), std::string::npos);
}

} // namespace
} // namespace Kelvaris::CommandLine
