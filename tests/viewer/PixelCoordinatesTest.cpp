#include "viewer/view/PixelCoordinates.h"

#include "Lib/DataComponent.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometryMetadata.h"
#include "US/FrameGeometrySector.h"
#include "US/UltrasoundMetadata.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace Kelvaris::Viewer {
namespace {

/// A component as a plugin would bring it, known by its stored form alone.
class StoredComponent : public DataComponent<StoredComponent> {
public:
  StoredComponent(std::string id, Properties stored) : m_id(std::move(id)), m_stored(std::move(stored)) {}
  std::string id() const override { return m_id; }
  void configuration(Properties* properties) const override { *properties = m_stored; }
  bool operator==(const StoredComponent& other) const { return m_stored == other.m_stored; }

private:
  std::string m_id;
  Properties m_stored;
};

SharedImageSet setOf(const ImageDescriptor& descriptor) {
  SharedImageSet set;
  set.add(std::make_shared<SharedImage>(descriptor));
  return set;
}

ImageDescriptor descriptorOf(int width, int height, double spacingX, double spacingY, bool metric = true) {
  ImageDescriptor descriptor(PixelUInt8, width, height, 3);
  descriptor.setSpacing({spacingX, spacingY, 1.0});
  descriptor.setMetric(metric);
  return descriptor;
}

/// The text with "#" for its numbers, and these.
std::pair<QString, std::vector<double>> taken(QString text) {
  static const QRegularExpression number(QStringLiteral("-?\\d+(\\.\\d+)?"));
  std::vector<double> numbers;
  for (auto found = number.globalMatch(text); found.hasNext();)
    numbers.push_back(found.next().captured().toDouble());
  return {text.replace(number, QStringLiteral("#")), numbers};
}

void expectText(const PixelCoordinates& coordinates, const QPointF& place, const char* words,
                const std::vector<double>& expected) {
  const auto [text, numbers] = taken(coordinates.describe(place));
  EXPECT_EQ(text.toStdString(), words);
  ASSERT_EQ(numbers.size(), expected.size());
  for (std::size_t i = 0; i < numbers.size(); ++i)
    EXPECT_NEAR(numbers[i], expected[i], 0.006) << coordinates.describe(place).toStdString();
}

TEST(PixelCoordinates, ParallelLinesAreMillimetresOfTheFrame) {
  SharedImageSet set = setOf(descriptorOf(40, 300, 1.0, 0.1)); // a spacing that counts lines
  auto& geometry = static_cast<US::FrameGeometryLinear&>(
      *set.components().add<US::FrameGeometryMetadata>(US::FrameGeometryLinear()).frameGeometry());
  geometry.setWidth(20.0);
  geometry.setDepth(30.0);
  const PixelCoordinates upright(set, 0, 0);
  EXPECT_TRUE(upright.isMetric());
  expectText(upright, {0.0, 0.0}, "x # mm, depth # mm", {-10.0, 0.0});
  expectText(upright, {30.5, 120.25}, "x # mm, depth # mm", {-10.0 + 30.5 * 0.5, 12.025});

  geometry.setSteeringAngle(20.0);
  const PixelCoordinates steered(set, 0, 0);
  EXPECT_FALSE(steered.isMetric());
  EXPECT_TRUE(steered.isUnlike());
  expectText(steered, {30.5, 120.25}, "line #, depth along the line # mm (x # mm, depth # mm)",
             {30, 12.025, 5.25 + 12.025 * std::tan(20.0 * std::numbers::pi / 180.0), 12.025});
}

TEST(PixelCoordinates, FansAreLinesAndDepths) {
  SharedImageSet set = setOf(descriptorOf(64, 200, 1.0, 0.2));
  auto& sector = static_cast<US::FrameGeometrySector&>(*set.elementwiseComponents()
                                                            .components(0)
                                                            .add<US::FrameGeometryMetadata>(US::FrameGeometrySector())
                                                            .frameGeometry());
  sector.setOpeningAngle(30.0);
  sector.setShortRadius(15.0);
  sector.setLongRadius(55.0);
  sector.setBottomCurvature(1.0);
  const double angle = (2.0 * 50.25 / 64.0 - 1.0) * 30.0 * std::numbers::pi / 180.0,
               radius = 15.0 + 40.0 * 101.0 / 200.0;
  expectText(PixelCoordinates(set, 0, 0), {50.25, 101.0}, "line #, depth along the line # mm (x # mm, depth # mm)",
             {50, 20.2, radius * std::sin(angle), radius * std::cos(angle) - 15.0});
}

TEST(PixelCoordinates, ScanConvertedImagesAreInTheFrameByTheirOffset) {
  SharedImageSet set = setOf(descriptorOf(101, 80, 0.5, 0.5));
  set.components().add<US::UltrasoundMetadata>().scanConverted = true;
  US::FrameGeometrySector sector;
  sector.setOffset({-1.0, -18.0, 0.0});
  set.components().add<US::FrameGeometryMetadata>(sector);
  const PixelCoordinates coordinates(set, 0, 0);
  EXPECT_TRUE(coordinates.isMetric());
  expectText(coordinates, {50.5, 40.0}, "x # mm, depth # mm", {1.0, 18.0}); // the centre
  expectText(coordinates, {60.5, 0.0}, "x # mm, depth # mm", {6.0, -2.0});
}

TEST(PixelCoordinates, OtherImages) {
  const PixelCoordinates metric(setOf(descriptorOf(10, 20, 0.3, 0.2)), 0, 0);
  EXPECT_TRUE(metric.isMetric());
  expectText(metric, {10.0, 5.0}, "x # mm, y # mm", {1.5, -1.0});
  const PixelCoordinates plain(setOf(descriptorOf(10, 20, 0.3, 0.2, false)), 0, 0);
  EXPECT_FALSE(plain.isMetric() || plain.isUnlike());
  expectText(plain, {9.99, 0.0}, "column #, row #", {9, 0});
  EXPECT_THROW(PixelCoordinates(SharedImageSet(), 0, 0), std::out_of_range);
}

TEST(PixelCoordinates, ChannelDataInTheOrderOfTheirLayout) {
  Properties events, parameters;
  for (const double start : {1e-6, 2e-6}) {
    Properties& receive = events.addSubProperties("events").subProperties("receive");
    receive.setParam("samplingFrequency", 20e6);
    receive.setParam("startTime", start);
  }
  parameters.setParam("receiveSamplingFrequency", 4e6);
  Properties broken = parameters;
  broken.setParam("receiveSamplingFrequency", -1.0);
  const struct {
    const Properties& acquisition;
    std::vector<int> layout;
    int slice;
    const char* words;
    std::vector<double> numbers; ///< at (12.5, 40.5), the centre of pixel (12, 40)
    const char* sliceTitle;
  } table[] = {
      {events, {0, 1, 2}, 0, "channel #, time # µs", {12, 1.0 + 40 / 20.0}, "Event"},
      {events, {0, 1, 2}, 1, "channel #, time # µs", {12, 2.0 + 40 / 20.0}, "Event"},
      {events, {1, 0, 2}, 1, "time # µs, channel #", {2.0 + 12 / 20.0, 40}, "Event"},
      {events, {2, 1, 0}, 1, "event #, time # µs", {12, 1.0 + 40 / 20.0}, "Channel"},
      {parameters, {0, 1, 2}, 0, "channel #, time # µs", {12, 10.0}, "Event"},
      {broken, {0, 1, 2}, 0, "channel #, sample #", {12, 40}, "Event"},
      {events, {}, 0, "channel #, time # µs", {12, 3.0}, "Event"},
  };
  for (const auto& c : table) {
    SharedImageSet set = setOf(descriptorOf(64, 100, 1.0, 1.0, false));
    DataComponentList& components = set.elementwiseComponents().components(0);
    components.add<StoredComponent>("FrameAcquisition", c.acquisition);
    if (!c.layout.empty()) {
      Properties layout;
      layout.setParam("axisSemantics", c.layout);
      set.components().add<StoredComponent>("ChannelDataLayout", layout);
    }
    const PixelCoordinates coordinates(set, 0, c.slice);
    EXPECT_TRUE(coordinates.isUnlike());
    EXPECT_EQ(coordinates.sliceTitle().toStdString(), c.sliceTitle);
    expectText(coordinates, {12.5, 40.5}, c.words, c.numbers);
  }
}

TEST(RoundTicks, AreTheRoundValuesBetween) {
  const struct {
    double from, to, closest;
    std::vector<std::string> texts;
  } table[] = {
      {-1.2, 1.2, 0.4, {"-1.0", "-0.5", "0.0", "0.5", "1.0"}},
      {0.0, 35.0, 9.0, {"0", "10", "20", "30"}},
      {35.0, 0.0, 10.0, {"0", "10", "20", "30"}},
      {0.0, 0.05, 0.011, {"0.00", "0.02", "0.04"}},
      {99.5, 103.0, 1.0, {"100", "101", "102", "103"}},
      {-5.0, 3000.0, 600.0, {"0", "1000", "2000", "3000"}},
      {0.0, 1.0, 0.0, {}},
      {std::nan(""), 1.0, 0.1, {}},
  };
  for (const auto& c : table) {
    std::vector<std::string> texts;
    for (const Tick& tick : roundTicks(c.from, c.to, c.closest)) {
      texts.push_back(tick.text.toStdString());
      EXPECT_NEAR(tick.value, std::stod(texts.back()), 1e-9);
    }
    EXPECT_EQ(texts, c.texts) << c.from << " to " << c.to;
  }
}

} // namespace
} // namespace Kelvaris::Viewer
