#include "Core/Properties.h"

#include "Core/PropertiesIO.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>

namespace Kelvaris {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

template <typename T> std::optional<T> parse(const std::string& text) {
  T value{};
  return PropertyText::fromText(text, value) ? std::optional(value) : std::nullopt;
}

TEST(PropertyTextTest, EveryDoubleReadsBackBitForBit) {
  std::mt19937_64 random(3);
  std::vector<double> values = {0.0, -0.0, kInfinity, -kInfinity, std::nan(""), 5e-324, 1.7976931348623157e308};
  while (values.size() < 20000)
    if (const auto value = std::bit_cast<double>(random()); !std::isnan(value)) values.push_back(value);
  const auto read = parse<std::vector<double>>(PropertyText::toText(values));
  ASSERT_TRUE(read && read->size() == values.size());
  for (std::size_t i = 0; i < values.size(); ++i)
    EXPECT_EQ(std::bit_cast<std::uint64_t>((*read)[i]), std::bit_cast<std::uint64_t>(values[i])) << values[i];
}

TEST(PropertyTextTest, ReadsNumbersAsPeopleWriteThem) {
  EXPECT_EQ(parse<double>("  +1.5e1\n"), 15.0);
  EXPECT_EQ(parse<double>("-1.5e400"), -kInfinity);
  EXPECT_EQ(parse<double>("1e-400"), 0.0);
  EXPECT_EQ(parse<bool>("1"), true);
  EXPECT_EQ(parse<bool>(" false "), false);
  EXPECT_EQ(parse<std::vector<int>>(" 1\t2\n -3 "), (std::vector{1, 2, -3}));
  EXPECT_EQ(parse<std::vector<int>>(" "), std::vector<int>());
  EXPECT_EQ(parse<Eigen::Vector2i>("512 -3"), Eigen::Vector2i(512, -3));
  const auto matrix = parse<Eigen::Matrix4d>("1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16");
  EXPECT_EQ((*matrix)(1, 3), 8.0);
  EXPECT_EQ(PropertyText::toText(*matrix), "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16");
  const auto points = parse<std::vector<Eigen::Vector2d>>("0 1; 2 3;4 5 ;");
  ASSERT_TRUE(points);
  EXPECT_EQ(*points, (std::vector<Eigen::Vector2d>{{0, 1}, {2, 3}, {4, 5}}));
  EXPECT_EQ(parse<std::vector<Eigen::Vector2d>>(PropertyText::toText(*points)), points);
}

TEST(PropertyTextTest, RefusesWhatIsNoSuchValueInFull) {
  for (const char* text : {"", " ", "1,5", "1.5x", "0x10", "1 2", "--1", "+-1", "e5", "1e", "."})
    EXPECT_FALSE(parse<double>(text)) << text;
  for (const char* text : {"", "1.0", "2147483648", "-2147483649", "1e3", "9999999999999999999999", "true"})
    EXPECT_FALSE(parse<int>(text)) << text;
  for (const char* text : {"", "True", "yes", "2", "10", "true false"})
    EXPECT_FALSE(parse<bool>(text)) << text;
  for (const char* text : {"", "1", "1 2 3", "1 x", "1, 2"})
    EXPECT_FALSE(parse<Eigen::Vector2d>(text)) << text;
  for (const char* text : {"1", "1 2; 3", ";", "1 2;; 3 4", "1 2 | 3 4"})
    EXPECT_FALSE(parse<std::vector<Eigen::Vector2d>>(text)) << text;
}

TEST(PropertiesTest, AnUnreadableValueLeavesTheTargetAndIsLogged) {
  Properties properties;
  properties.setParam("pitch", std::string(100, 'x'));
  double pitch = 0.3;
  EXPECT_FALSE(properties.param("missing", pitch)) << "without a log entry";
  const Tests::ExpectedLog log;
  EXPECT_FALSE(properties.param("pitch", pitch));
  EXPECT_TRUE(log.contains("\"pitch\"")) << "names the key";
  EXPECT_FALSE(log.contains(std::string(70, 'x'))) << "and cuts a long text";
  EXPECT_EQ(pitch, 0.3);
}

TEST(PropertiesTest, KeepsOrderAndSubPropertiesOfOneName) {
  Properties properties;
  properties.setParam("b", 1);
  properties.setParam("a", 2);
  properties.setParam("b", 3);
  EXPECT_EQ(properties.params(), (std::vector<Properties::Param>{{"b", "3"}, {"a", "2"}}));
  for (int i = 0; i < 3; ++i)
    properties.addSubProperties("event").setParam("index", i);
  properties.subProperties("event").setParam("first", true);
  EXPECT_EQ(properties.allSubProperties("event").size(), 3u);
  EXPECT_TRUE(properties.allSubProperties("event")[0]->hasParam("first"));
  EXPECT_EQ(properties.findSubProperties("other"), nullptr);
  properties.removeSubProperties("event");
  properties.removeParam("a");
  properties.removeParam("b");
  EXPECT_TRUE(properties.empty());
}

std::string randomText(std::mt19937_64& random) {
  static const char* const pieces[] = {"a", " ", "\n", "\t", "\r", "<", ">", "&amp;", "\"", "'", "]]>", "漢", "<!--"};
  std::string text;
  for (auto n = random() % 6; n > 0; --n)
    text += pieces[random() % std::size(pieces)];
  return text;
}

Properties randomTree(std::mt19937_64& random, int depth) {
  Properties tree;
  for (auto n = random() % 4; n > 0; --n)
    tree.setParam("key" + randomText(random), randomText(random));
  if (depth > 0)
    for (auto n = random() % 3; n > 0; --n)
      tree.addSubProperties("sub" + randomText(random)) = randomTree(random, depth - 1);
  return tree;
}

TEST(PropertiesIOTest, AnyTreeComesBackFromItsXml) {
  std::mt19937_64 random(11);
  for (int i = 0; i < 300; ++i) {
    const Properties tree = randomTree(random, 4);
    const std::string xml = PropertiesIO::toXml(tree);
    const auto read = PropertiesIO::fromXml(xml);
    ASSERT_TRUE(read) << xml;
    EXPECT_EQ(*read, tree) << xml;
  }
}

TEST(PropertiesIOTest, ReadsWhatAPersonWrites) {
  const auto properties = PropertiesIO::fromXml(R"(<?xml version="1.0"?>
    <!-- a probe -->
    <properties>
      <param key="pitch"> 0.3 </param> <!-- mm -->
      <param key="name">L7-4 &lt;old&gt;</param>
      <param key="empty"/><param key="pitch">0.4</param>
      <properties key="transmit"><param key="delays">0 1.5
        2</param></properties>
    </properties>)");
  ASSERT_TRUE(properties);
  double pitch = 0.0;
  std::string name, empty = "x";
  std::vector<double> delays;
  EXPECT_TRUE(properties->param("pitch", pitch) && pitch == 0.4) << "the last one holds";
  EXPECT_TRUE(properties->param("name", name) && name == "L7-4 <old>");
  EXPECT_TRUE(properties->param("empty", empty) && empty.empty());
  EXPECT_TRUE(properties->findSubProperties("transmit")->param("delays", delays));
  EXPECT_EQ(delays, (std::vector{0.0, 1.5, 2.0}));
}

TEST(PropertiesIOTest, RefusesBrokenXmlInWords) {
  const auto nested = [](int depth) {
    std::string xml;
    for (int i = 0; i <= depth; ++i)
      xml = "<properties key='a'>" + xml + "</properties>";
    return xml;
  };
  const std::pair<std::string, const char*> cases[] = {
      {"", "Broken XML at byte 0"},
      {"<param key='a'>1</param>", "outermost element is <param>, expected <properties>"},
      {"<properties><param>1</param></properties>", "A <param> has no attribute \"key\""},
      {"<properties><value key='a'/></properties>", "Unknown element <value>"},
      {nested(PropertiesIO::kMaxDepth + 1), "deeper than 64 levels"},
      {std::string("<properties>\0</properties>", 26), "Broken XML"}};
  for (const auto& [xml, message] : cases) {
    const Tests::ExpectedLog log;
    EXPECT_FALSE(PropertiesIO::fromXml(xml)) << xml;
    EXPECT_TRUE(log.contains(message)) << xml << ": " << ::testing::PrintToString(log.messages());
  }
  EXPECT_TRUE(PropertiesIO::fromXml(nested(PropertiesIO::kMaxDepth)));
}

} // namespace
} // namespace Kelvaris
