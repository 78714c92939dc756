#include "beamforming/BeamformingAlgorithm.h"

#include "Core/Log.h"
#include "Stream/ImageStream.h"
#include "US/FrameGeometryLinear.h"
#include "US/FrameGeometryMetadata.h"
#include "US/UltrasoundMetadata.h"
#include "beamforming/BeamformingCases.h"
#include "model/ChannelDataLayout.h"
#include "plugin/Repository_KelvarisUSImgFormationPlugin.h"
#include "support/ExpectedLog.h"
#include "support/Images.h"
#include "support/IntensityMaskOf.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <optional>
#include <thread>

namespace Kelvaris::US {
namespace {

using Kelvaris::Tests::ExpectedLog;
using Tests::componentsOf;
using Tests::divergingWaves;
using Tests::focusedBeams;
using Tests::noise;
using Tests::planeWaves;

class BeamformingAlgorithmTest : public testing::Test {
protected:
  BeamformingAlgorithmTest() {
    Resource::addRepository(&m_repository);
    algorithm.outputSize = Eigen::Vector2i(30, 40);
  }
  BeamformingAlgorithm algorithm{nullptr};

private:
  Repository_KelvarisUSImgFormationPlugin m_repository;
};

/// Counts the log's entries of one text while it lives.
class LogCount {
public:
  explicit LogCount(std::string text)
      : m_id(Log::addSink([this, wanted = std::move(text)](const Log::Entry& entry) {
          if (entry.category == "BeamformingAlgorithm" && entry.message.starts_with(wanted)) ++m_count;
        })) {}
  ~LogCount() { Log::removeSink(m_id); }
  LogCount(const LogCount&) = delete;
  LogCount& operator=(const LogCount&) = delete;
  /// Since the last call.
  int take() { return m_count.exchange(0); }

private:
  std::atomic<int> m_count = 0;
  int m_id;
};

using Result = std::pair<std::shared_ptr<SharedImage>, DataComponentList>;

Result process(const BeamformingAlgorithm& algorithm, const FrameAcquisition& acquisition,
               const DataComponentList& extra = {}, int pixelType = PixelFloat, int channels = 1) {
  return algorithm.processImage(SharedImage(noise(acquisition, pixelType, channels)), componentsOf(acquisition, extra));
}

template <typename T> DataComponentList with(const T& component) {
  DataComponentList list;
  list.add<T>(component);
  return list;
}

bool sameBytes(const SharedImage& a, const SharedImage& b) {
  return Kelvaris::Tests::sameBytes(*a.mem(), *b.mem());
}

int validRows(const SharedImage& image, int x) {
  const auto mem = image.mem();
  int count = 0;
  for (int y = 0; y < mem->height(); ++y)
    count += std::isnan(mem->valueAsDouble(x, y, 0, 0)) ? 0 : 1;
  return count;
}

// ---- Parameters and creation

TEST_F(BeamformingAlgorithmTest, HasItsParameters) {
  std::vector<std::string> described;
  const BeamformingAlgorithm fresh(nullptr);
  for (const ParameterBase* parameter : fresh.parameters()) {
    described.push_back(parameter->name() + " = " + parameter->text());
    for (const auto& [key, value] : parameter->attributes())
      described.back() += " " + key + ":" + value;
  }
  EXPECT_EQ(described,
            (std::vector<std::string>{"fNumber = 1 max:4 min:0.1 step:0.1", "coherentCompounding = true",
                                      "outputSize = 512 512", "outputValueScaling = 1 max:10 min:0 step:0.01",
                                      "beamformerType = 0 values:Unweighted Das, Hamming Das, Tukey Das, Debug: "
                                      "Aperture Size, Debug: Aperture Start, Debug: ApertureEnd"}));
}

TEST_F(BeamformingAlgorithmTest, AcceptsChannelDataOfOneOrTwoComponentsAndVolumeStreams) {
  const FrameAcquisition acquisition = planeWaves();
  const struct {
    int channels; // 0: no image
    bool described, accepted;
  } table[] = {{1, true, true}, {2, true, true}, {3, true, false}, {0, true, false}, {1, false, false}};
  for (const auto& row : table) {
    SharedImageSet images;
    images.setModality(Data::Ultrasound);
    if (row.described) images.components().add<FrameAcquisition>(acquisition);
    if (row.channels > 0) images.add(std::make_shared<SharedImage>(noise(acquisition, PixelFloat, row.channels)));
    EXPECT_EQ(BeamformingAlgorithm::createCompatible(DataList{&images}, nullptr), row.accepted);
  }
  ImageStream stream("channel data");
  for (const auto kind : {Data::ImageStreamKind, Data::VolumeStreamKind, Data::OtherStreamKind}) {
    stream.setKind(kind);
    EXPECT_EQ(BeamformingAlgorithm::createCompatible(DataList{&stream}, nullptr), kind == Data::VolumeStreamKind);
  }
}

// ---- The image

TEST_F(BeamformingAlgorithmTest, ShapeFollowsTheAcquisition) {
  const struct {
    FrameAcquisition acquisition;
    bool coherent;
    int rows;
    Eigen::Vector3i expected;
  } table[] = {{focusedBeams(5), true, 40, {5, 40, 1}}, {focusedBeams(5), false, 40, {5, 40, 1}},
               {planeWaves(3), true, 40, {30, 40, 1}},  {planeWaves(3), false, 40, {30, 40, 3}},
               {planeWaves(3), true, 1, {30, 1, 1}},      // infinite spacing
               {focusedBeams(1), true, 40, {30, 40, 1}}}; // one event is no focused frame
  const std::pair<int, int> types[] = {{PixelInt16, 1}, {PixelInt16, 2}, {PixelFloat, 1}, {PixelFloat, 2}};
  for (const auto& row : table)
    for (const auto& [pixelType, channels] : types) {
      algorithm.outputSize = Eigen::Vector2i(30, row.rows);
      algorithm.coherentCompounding = row.coherent;
      const auto [image, components] = process(algorithm, row.acquisition, {}, pixelType, channels);
      ASSERT_TRUE(image);
      EXPECT_EQ(image->descriptor().dimensions(), row.expected);
      EXPECT_EQ(image->descriptor().pixelType(), pixelType);
      EXPECT_EQ(image->descriptor().channels(), channels);
      const double depth = row.acquisition.frameGeometry().frameGeometry()->depth();
      EXPECT_EQ(image->descriptor().spacing(), Eigen::Vector3d(1.0, depth / (row.rows - 1), 1.0));
      ASSERT_TRUE(image->mask());
      EXPECT_TRUE(intensityMask(*image).isMasked(pixelType == PixelInt16 ? -32768.0 : std::nan("")));
    }
}

/// Adds a pulse around the time `seconds` to one recording; without oscillations, so that no sidelobe can win.
void addPulse(TypedImage<float>& data, const FrameAcquisition& acquisition, int channel, int event, double seconds) {
  const auto& receive = acquisition.events()[static_cast<std::size_t>(event)].receive;
  for (int sample = 0; sample < data.height(); ++sample) {
    const double t = (receive.startTime + sample / receive.samplingFrequency - seconds) / 1e-7;
    data.setValue(data.value(channel, sample, event) + static_cast<float>(std::exp(-t * t)), channel, sample, event);
  }
}

/// The way of a wave from its first element to the point.
double sentWay(const PulseEchoEvent::Transmit& transmit, const Eigen::Vector3d& point) {
  const double lead = (transmit.waveFiducial - transmit.timeZeroPoint).norm();
  if (transmit.eventType == PulseEchoEvent::EventType::PlaneWave)
    return transmit.waveFiducial.dot(point - transmit.timeZeroPoint);
  const double distance = (point - transmit.waveFiducial).norm();
  return transmit.eventType == PulseEchoEvent::EventType::Focused ? lead + distance : distance - lead;
}

Eigen::Vector2i brightest(const MemImage& image) {
  Eigen::Vector2i best(0, 0);
  double value = 0.0;
  for (int y = 0; y < image.height(); ++y)
    for (int x = 0; x < image.width(); ++x)
      if (std::abs(image.valueAsDouble(x, y, 0, 0)) > value) { // false for NaN
        value = std::abs(image.valueAsDouble(x, y, 0, 0));
        best = {x, y};
      }
  return best;
}

TEST_F(BeamformingAlgorithmTest, AScattererIsBrightestAtItsPlace) {
  constexpr double c = 1.54e6;
  for (const Transducer& array : {Transducer::createLinear(16, 0.3), Transducer::createConvex(16, 0.3, 30)})
    for (const FrameAcquisition& acquisition :
         {focusedBeams(5, array), planeWaves(3, 0.3, array), divergingWaves(3, array)}) {
      // In the focused frame the scatterer lies in the focus of beam 3; the other waves see it off the middle.
      const auto& events = acquisition.events();
      const bool focused = events[0].transmit.eventType == PulseEchoEvent::EventType::Focused;
      const Eigen::Vector3d scatterer = focused ? events[3].transmit.waveFiducial : Eigen::Vector3d(0.6, 7, 0);
      const auto elements = array.elementPositions();
      const auto data = std::static_pointer_cast<TypedImage<float>>(Tests::emptyData(acquisition));
      for (std::size_t event = focused ? 3 : 0; event < (focused ? 4 : events.size()); ++event)
        for (std::size_t e = 0; e < elements.size(); ++e)
          addPulse(*data, acquisition, static_cast<int>(e), static_cast<int>(event),
                   (sentWay(events[event].transmit, scatterer) + (scatterer - elements[e]).norm()) / c);
      algorithm.outputSize = Eigen::Vector2i(97, 201);
      const auto [image, components] = algorithm.processImage(SharedImage(data), componentsOf(acquisition));
      ASSERT_TRUE(image);
      const Eigen::Vector2i pixel = brightest(*image->mem());
      const Eigen::Vector2d place = components.get<FrameGeometryMetadata>()->frameGeometry()->convertPoint(
          {(pixel.x() + 0.5) / image->descriptor().width(), (pixel.y() + 0.5) / image->descriptor().height()},
          FrameGeometry::NormalizedToPhysical);
      EXPECT_NEAR(place.y(), scatterer.y(), 0.05) << array.isConvex() << static_cast<int>(events[0].transmit.eventType);
      if (focused)
        EXPECT_EQ(pixel.x(), 3);
      else
        EXPECT_NEAR(place.x(), scatterer.x(), 0.1);
    }
}

TEST_F(BeamformingAlgorithmTest, TheLayoutSaysHowToReadTheDataAndComponentsDescribeTheResult) {
  const FrameAcquisition acquisition = planeWaves();
  const ChannelDataLayout layout(ChannelDataLayout::Axis::SlowTime, ChannelDataLayout::Axis::Channels,
                                 ChannelDataLayout::Axis::FastTime);
  DataComponentList extra = with(layout);
  extra.add<Transducer>(acquisition.transducer()); // stands for any other component
  const auto data = noise(acquisition);
  const auto expected = algorithm.processImage(SharedImage(data), componentsOf(acquisition)).first;
  const auto [image, components] =
      algorithm.processImage(SharedImage(permuteChannelData(*data, {}, layout)), componentsOf(acquisition, extra));
  ASSERT_TRUE(image && expected);
  EXPECT_TRUE(sameBytes(*image, *expected));
  EXPECT_EQ(components.size(), 4u);
  EXPECT_TRUE(components.get<Transducer>());
  EXPECT_FALSE(components.get<ChannelDataLayout>());
  ASSERT_TRUE(components.get<FrameAcquisition>());
  EXPECT_EQ(*components.get<FrameAcquisition>(), acquisition);
  ASSERT_TRUE(components.get<UltrasoundMetadata>());
  EXPECT_EQ(*components.get<UltrasoundMetadata>(), acquisition.ultrasoundMetadata());
  ASSERT_TRUE(components.get<FrameGeometryMetadata>());
  const FrameGeometry& geometry = *components.get<FrameGeometryMetadata>()->frameGeometry();
  EXPECT_TRUE(geometry.isApprox(*acquisition.frameGeometry().frameGeometry(), 1e-12));
  EXPECT_TRUE(geometry.imgDescPrescan().isApprox(image->descriptor()));
}

// ---- Overrides

std::unique_ptr<FrameGeometry> geometryOf(const FrameAcquisition& acquisition) {
  return acquisition.frameGeometry().frameGeometry()->clone();
}

TEST_F(BeamformingAlgorithmTest, AGeometryOverrideReplacesThatOfTheAcquisition) {
  const auto depthOnly = [](const FrameAcquisition& acquisition) {
    auto geometry = geometryOf(acquisition);
    geometry->setDepth(7.8);
    return with(FrameGeometryMetadata(std::move(geometry)));
  };
  for (const FrameAcquisition& acquisition : {focusedBeams(), planeWaves()}) {
    const auto [image, components] = process(algorithm, acquisition, depthOnly(acquisition));
    ASSERT_TRUE(image);
    EXPECT_DOUBLE_EQ(image->descriptor().spacing().y(), 7.8 / 39);
    EXPECT_EQ(components.get<FrameGeometryMetadata>()->frameGeometry()->depth(), 7.8);
  }
  EXPECT_TRUE(process(algorithm, focusedBeams(), with(FrameGeometryMetadata())).first) << "an empty override is none";

  FrameGeometryLinear wider(dynamic_cast<const FrameGeometryLinear&>(*geometryOf(focusedBeams())));
  wider.setWidth(wider.width() + 1e-6);
  EXPECT_TRUE(process(algorithm, planeWaves(), with(FrameGeometryMetadata(wider))).first);
  const ExpectedLog log;
  const auto [image, components] = process(algorithm, focusedBeams(), with(FrameGeometryMetadata(wider)));
  EXPECT_FALSE(image);
  EXPECT_TRUE(components.empty());
  EXPECT_EQ(log.messages(),
            std::vector<std::string>{"4 BeamformingAlgorithm: In focused mode, a frame geometry override must only "
                                     "change the depth"});
}

using Line = std::vector<Eigen::Vector2d>;

/// The lines of the acquisition, each changed.
template <typename Change> BeamformingRois changedLines(const FrameAcquisition& acquisition, Change change) {
  BeamformingRois result;
  for (int i = 0; i < acquisition.rois()->size(); ++i) {
    Line line = acquisition.rois()->roi(i).points();
    change(i, line);
    result.add(Geometry::Polygon2D(line));
  }
  return result;
}

TEST_F(BeamformingAlgorithmTest, FocusedLinesMayBeShortenedButNotMoved) {
  const FrameAcquisition acquisition = focusedBeams();
  const auto shorten = [](int, Line& line) {
    const Line old = line;
    line = {old[0] + 0.25 * (old[1] - old[0]), old[0] + 0.75 * (old[1] - old[0])};
  };
  const struct {
    const char* name;
    std::function<void(int, Line&)> change;
    std::optional<int> rows; ///< that are valid; none: refused
  } table[] = {
      {"the same", [](int, Line&) {}, 40},
      {"shorter at both ends", shorten, 20},
      {"reversed", [](int, Line& line) { std::swap(line[0], line[1]); }, 0},
      {"within the tolerance", [](int, Line& line) { line[1] += Eigen::Vector2d(0.9e-7, 0.9e-7); }, 40},
      {"beyond its end", [](int, Line& line) { line[1].y() += 1.2e-7; }, {}},
      {"before its start", [](int, Line& line) { line[0].y() -= 1.2e-7; }, {}},
      {"beside it", [](int i, Line& line) { line[1].x() += i == 4 ? 1.2e-7 : 0.0; }, {}},
      {"moved", [](int i, Line& line) { line[i % 2 == 0 ? 0u : 1u].x() += 0.1; }, {}},
      {"an area", [](int i, Line& line) { i == 2 ? line.push_back(line[0]) : void(); }, {}},
      {"not a number", [](int, Line& line) { line[0].x() = std::nan(""); }, {}},
  };
  const std::vector<std::string> refusal = {
      "4 BeamformingAlgorithm: In focused mode, a ROI override must only change the depth"};
  for (const auto& row : table) {
    BeamformingAlgorithm fresh(nullptr);
    fresh.outputSize = Eigen::Vector2i(30, 40);
    const ExpectedLog log;
    const auto [image, components] = process(fresh, acquisition, with(changedLines(acquisition, row.change)));
    ASSERT_EQ(image != nullptr, row.rows.has_value()) << row.name;
    EXPECT_EQ(components.empty(), !image) << row.name;
    EXPECT_EQ(log.messages(), image ? std::vector<std::string>{} : refusal) << row.name;
    if (image) {
      EXPECT_EQ(validRows(*image, 2), *row.rows) << row.name;
    }
  }
}

TEST_F(BeamformingAlgorithmTest, OtherRegionsReplaceThoseOfTheAcquisition) {
  const FrameAcquisition acquisition = planeWaves(3);
  BeamformingRois lower; // below 5 mm
  for (int i = 0; i < 3; ++i)
    lower.add(Geometry::Polygon2D({{-5, 5}, {5, 5}, {5, 50}, {-5, 50}}));
  const auto [image, components] = process(algorithm, acquisition, with(lower));
  ASSERT_TRUE(image);
  const auto mem = image->mem();
  const double depth = geometryOf(acquisition)->depth();
  for (int y = 0; y < 40; ++y)
    EXPECT_EQ(std::isnan(mem->valueAsDouble(15, y, 0, 0)), (y + 0.5) / 40 * depth < 5) << y;
}

// ---- What it refuses

TEST_F(BeamformingAlgorithmTest, TellsWhatItRefuses) {
  const FrameAcquisition waves = planeWaves(3);
  const FrameAcquisition beams = focusedBeams(5);
  const FrameAcquisition bare(waves.transducer(), waves.events());
  const auto firstLines = [](const FrameAcquisition& acquisition, int count) {
    BeamformingRois result;
    for (int i = 0; i < count; ++i)
      result.add(acquisition.rois()->roi(i));
    return with(result);
  };
  const Eigen::Vector2i size(30, 40);
  const auto bytes = noise(waves, PixelUInt8);
  const std::string noRegions = "Invalid frame geometry or beamforming ROIs";
  const struct {
    std::shared_ptr<MemImage> data;
    DataComponentList components;
    Eigen::Vector2i outputSize;
    std::vector<std::string> messages;
  } table[] = {
      {noise(waves), with(ChannelDataLayout()), size, {"Input data is not channel data"}},
      {bytes, componentsOf(waves), size, {"Unsupported input type: " + bytes->descriptor().toString()}},
      {noise(waves),
       componentsOf(waves, firstLines(waves, 2)),
       size,
       {"Number of ROIs in the BeamformingRois DataComponent does not match number of events"}},
      {noise(beams),
       componentsOf(beams, firstLines(beams, 4)),
       size,
       {"In focused mode, a ROI override must only change the depth"}},
      {noise(waves),
       componentsOf(bare, with(FrameGeometryMetadata(geometryOf(waves)))),
       size,
       {noRegions, "Failed to create sampling position map: " + noRegions}},
      {noise(waves), componentsOf(bare), size, {"Neither the frame acquisition nor the image has a frame geometry"}},
      {noise(waves),
       componentsOf(waves),
       {0, 40},
       {"An image of 0 x 40 pixels can't be formed: each side must have 1 to 65536"}},
      {noise(beams),
       componentsOf(beams),
       {512, std::numeric_limits<int>::max()},
       {"An image of 5 x 2147483647 pixels can't be formed: each side must have 1 to 65536"}},
  };
  // A second time after regions that have gone: what was made of them must not stand in.
  for (const bool used : {false, true})
    for (const auto& row : table) {
      BeamformingAlgorithm fresh(nullptr);
      fresh.outputSize = size;
      if (used) process(fresh, waves);
      fresh.outputSize = row.outputSize;
      const ExpectedLog log;
      const auto [image, components] = fresh.processImage(SharedImage(row.data), row.components);
      EXPECT_FALSE(image) << row.messages.back();
      EXPECT_TRUE(components.empty()) << row.messages.back();
      std::vector<std::string> expected;
      for (const std::string& message : row.messages)
        expected.push_back("4 BeamformingAlgorithm: " + message);
      EXPECT_EQ(log.messages(), expected);
    }
}

TEST_F(BeamformingAlgorithmTest, AFailureOfTheBeamformerLeavesTheComponents) {
  const FrameAcquisition waves = planeWaves(3);
  const ExpectedLog log;
  const auto [image, components] = process(algorithm, waves, {}, PixelFloat, 3);
  EXPECT_FALSE(image);
  EXPECT_TRUE(components.get<FrameAcquisition>());
  EXPECT_TRUE(components.get<FrameGeometryMetadata>());
  EXPECT_EQ(log.messages(), std::vector<std::string>{"4 : Unsupported input data type for beamforming."});
}

// ---- What it keeps from frame to frame

TEST_F(BeamformingAlgorithmTest, RebuildsOnlyWhatChanged) {
  LogCount beamformers("Preparing the beamformer");
  LogCount maps("Building the sampling position map");
  const auto built = [&](const FrameAcquisition& acquisition, const DataComponentList& extra = {}) {
    EXPECT_TRUE(process(algorithm, acquisition, extra).first);
    const int beamformer = beamformers.take();
    return std::pair(beamformer, maps.take());
  };
  using Built = std::pair<int, int>;
  const FrameAcquisition waves = planeWaves(3);
  EXPECT_EQ(built(waves), Built(1, 1));
  EXPECT_EQ(built(planeWaves(3)), Built(0, 0)) << "an equal acquisition";

  algorithm.fNumber = 2.0;
  algorithm.outputValueScaling = 0.5;
  algorithm.beamformerType = BeamformingAlgorithm::BeamformerType::TukeyDas;
  EXPECT_EQ(built(waves), Built(0, 0));
  algorithm.outputSize = Eigen::Vector2i(30, 41);
  EXPECT_EQ(built(waves), Built(0, 1));
  algorithm.coherentCompounding = false; // the output's slices belong to its descriptor
  EXPECT_EQ(built(waves), Built(0, 1));
  EXPECT_EQ(built(waves), Built(0, 0));

  EXPECT_EQ(built(planeWaves(2)), Built(1, 1));
  EXPECT_EQ(built(waves), Built(1, 1)) << "only the last acquisition is kept";
  FrameAcquisition faster = waves;
  faster.setReceiveSamplingFrequency(21e6);
  EXPECT_EQ(built(faster), Built(1, 0)) << "same geometry and regions";
  EXPECT_EQ(built(faster), Built(0, 0));
}

TEST_F(BeamformingAlgorithmTest, OverriddenRegionsAreComparedWithThoseOfTheAcquisition) {
  LogCount maps("Building the sampling position map");
  const FrameAcquisition acquisition = focusedBeams();
  const auto shorter = with(changedLines(acquisition, [](int, Line& line) { line[1] = 0.5 * (line[0] + line[1]); }));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(validRows(*process(algorithm, acquisition, shorter).first, 2), 20);
    EXPECT_EQ(maps.take(), 1) << "a map of overridden regions is built for every frame";
  }
  EXPECT_EQ(validRows(*process(algorithm, acquisition).first, 2), 40);
  EXPECT_EQ(maps.take(), 1);
  // The other side of that rule: a map that was built without an override stays in use when one comes.
  EXPECT_EQ(validRows(*process(algorithm, acquisition, shorter).first, 2), 40);
  EXPECT_EQ(maps.take(), 0);
}

// ---- Image sets (more in the tests of what all algorithms have in common)

TEST_F(BeamformingAlgorithmTest, ComputeAddsWhatTheSetAsAWholeHas) {
  const FrameAcquisition acquisition = planeWaves();
  SharedImageSet set;
  set.setModality(Data::Ultrasound);
  set.components().add<FrameAcquisition>(acquisition);
  set.add(std::make_shared<SharedImage>(noise(acquisition)));
  BeamformingAlgorithm onSet(&set);
  onSet.outputSize = Eigen::Vector2i(30, 40);
  onSet.compute();
  ASSERT_EQ(onSet.status(), 0);
  const auto images = onSet.takeOutput().extract<SharedImageSet>();
  bool topDown = false;
  EXPECT_TRUE(images->properties().param("topDown", topDown) && topDown);
  EXPECT_TRUE(images->elementwiseComponents().components(0).get<FrameAcquisition>());
}

// ---- Threads

TEST_F(BeamformingAlgorithmTest, WorksOnSeveralThreadsWhileParametersChange) {
  algorithm.outputSize = Eigen::Vector2i(16, 24);
  const FrameAcquisition acquisitions[] = {planeWaves(2), focusedBeams(4)};
  std::shared_ptr<SharedImage> expected[2][2]; // by acquisition and scaling
  for (std::size_t a = 0; a < 2; ++a)
    for (std::size_t scaling = 0; scaling < 2; ++scaling) {
      algorithm.outputValueScaling = scaling == 0 ? 1.0 : 2.0;
      expected[a][scaling] = process(algorithm, acquisitions[a]).first;
    }
  ASSERT_FALSE(sameBytes(*expected[0][0], *expected[0][1]));

  std::vector<std::thread> threads;
  std::atomic<int> running = 4;
  for (std::size_t t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (std::size_t round = 0; round < 6; ++round) {
        const std::size_t a = (t + round) % 2;
        const auto result = process(algorithm, acquisitions[a]).first;
        EXPECT_TRUE(result && (sameBytes(*result, *expected[a][0]) || sameBytes(*result, *expected[a][1])));
      }
      --running;
    });
  Properties properties;
  for (int i = 0; running > 0; ++i) {
    properties.setParam("outputValueScaling", i % 2 == 0 ? 1.0 : 2.0);
    algorithm.configure(&properties);
    std::this_thread::yield();
  }
  for (std::thread& thread : threads)
    thread.join();
}

} // namespace
} // namespace Kelvaris::US
