#include "beamforming/BeamformingAlgorithm.h"

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

#include <future>
#include <thread>

namespace Kelvaris::US {
namespace {

using Kelvaris::Tests::ExpectedLog;
using Tests::componentsOf, Tests::focusedBeams, Tests::noise, Tests::planeWaves;

class BeamformingAlgorithmTest : public testing::Test {
protected:
  BeamformingAlgorithmTest() {
    Resource::addRepository(&m_repository);
    algorithm.outputSize = Eigen::Vector2i(30, 40);
  }
  void expectRefusal(const std::shared_ptr<MemImage>& data, const DataComponentList& components,
                     std::vector<std::string> messages) const {
    const ExpectedLog log;
    const auto [image, out] = algorithm.processImage(SharedImage(data), components);
    EXPECT_FALSE(image) << messages.back();
    EXPECT_TRUE(out.empty()) << messages.back();
    for (std::string& message : messages)
      message.insert(0, "4 BeamformingAlgorithm: ");
    EXPECT_EQ(log.messages(), messages);
  }
  BeamformingAlgorithm algorithm{nullptr};

private:
  Repository_KelvarisUSImgFormationPlugin m_repository;
};

/// Counts the log's entries of one text while it lives.
struct LogCount {
  explicit LogCount(std::string text)
      : id(Log::addSink([this, wanted = std::move(text)](const Log::Entry& entry) {
          count += entry.category == "BeamformingAlgorithm" && entry.message.starts_with(wanted) ? 1 : 0;
        })) {}
  ~LogCount() { Log::removeSink(id); }
  /// Since the last call.
  int take() { return std::exchange(count, 0); }
  int count = 0, id;
};

std::pair<std::shared_ptr<SharedImage>, DataComponentList> process(const BeamformingAlgorithm& algorithm,
                                                                   const FrameAcquisition& acquisition,
                                                                   const DataComponentList& extra = {},
                                                                   int pixelType = PixelFloat, int channels = 1) {
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

const FrameGeometry& geometryOf(const FrameAcquisition& acquisition) {
  return *acquisition.frameGeometry().frameGeometry();
}

int validRows(const SharedImage& image, int x) {
  const auto mem = image.mem();
  int count = 0;
  for (int y = 0; y < mem->height(); ++y)
    count += !std::isnan(mem->valueAsDouble(x, y, 0, 0));
  return count;
}

TEST_F(BeamformingAlgorithmTest, AcceptsChannelDataOfOneOrTwoComponents) {
  const FrameAcquisition acquisition = planeWaves();
  for (const int channels : {1, 2, 3})
    for (const bool described : {false, true}) {
      SharedImageSet images;
      images.setModality(Data::Ultrasound);
      if (described) images.components().add<FrameAcquisition>(acquisition);
      EXPECT_FALSE(BeamformingAlgorithm::createCompatible(DataList{&images}, nullptr)) << "no image";
      images.add(std::make_shared<SharedImage>(noise(acquisition, PixelFloat, channels)));
      EXPECT_EQ(BeamformingAlgorithm::createCompatible(DataList{&images}, nullptr), described && channels < 3);
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
  for (const auto& row : table) {
    algorithm.outputSize = Eigen::Vector2i(30, row.rows);
    algorithm.coherentCompounding = row.coherent;
    const auto [image, components] = process(algorithm, row.acquisition, {}, PixelInt16, 2);
    ASSERT_TRUE(image);
    ImageDescriptor expected(PixelInt16, row.expected.x(), row.expected.y(), row.expected.z(), 2);
    expected.setSpacing({1.0, geometryOf(row.acquisition).depth() / (row.rows - 1), 1.0});
    EXPECT_TRUE(image->descriptor().isApprox(expected)) << image->descriptor().toString();
    ASSERT_TRUE(image->mask());
    EXPECT_TRUE(intensityMask(*image).isMasked(-32768.0));
  }
}

// The other waves come out right in the pictures of the recordings.
TEST_F(BeamformingAlgorithmTest, AScattererBeyondTheFocusIsBrightestAtItsPlace) {
  constexpr int rows = 201, beam = 3;
  constexpr double beyond = 1.5;
  for (const Transducer& array : {Transducer::createLinear(16, 0.3), Transducer::createConvex(16, 0.3, 30)}) {
    const FrameAcquisition acquisition = focusedBeams(5, array);
    const auto& transmit = acquisition.events()[beam].transmit;
    const auto& receive = acquisition.events()[beam].receive;
    const Eigen::Vector3d scatterer =
        transmit.waveFiducial + beyond * (transmit.waveFiducial - transmit.waveStart).normalized();
    const double sent = (transmit.waveFiducial - transmit.timeZeroPoint).norm() + beyond;
    const auto elements = array.elementPositions();
    const auto data =
        Kelvaris::Tests::imageOf(Tests::dataDescriptor(acquisition), [&](int element, int sample, int event, int) {
          const double arrival = (sent + (scatterer - elements[static_cast<std::size_t>(element)]).norm()) / 1.54e6;
          const double t = (receive.startTime + sample / receive.samplingFrequency - arrival) / 1e-7;
          return event == beam ? std::exp(-t * t) : 0.0;
        });
    algorithm.outputSize = Eigen::Vector2i(1, rows);
    const auto image = algorithm.processImage(SharedImage(data), componentsOf(acquisition)).first;
    ASSERT_TRUE(image);
    const auto* column = static_cast<const TypedImage<float>*>(image->mem().get());
    int brightest = 0;
    for (int y = 0; y < rows; ++y)
      if (column->value(beam, y) > column->value(beam, brightest)) brightest = y; // false for NaN
    const Eigen::Vector2d place =
        geometryOf(acquisition)
            .convertPoint({(beam + 0.5) / 5, (brightest + 0.5) / rows}, FrameGeometry::NormalizedToPhysical);
    EXPECT_LT((place - scatterer.head<2>()).norm(), 0.05) << place.transpose();
  }
}

TEST_F(BeamformingAlgorithmTest, TheLayoutSaysHowToReadTheDataAndComponentsDescribeTheResult) {
  const FrameAcquisition acquisition = planeWaves();
  const ChannelDataLayout layout(ChannelDataLayout::Axis::SlowTime, ChannelDataLayout::Axis::Channels,
                                 ChannelDataLayout::Axis::FastTime);
  const auto data = noise(acquisition);
  const auto expected = algorithm.processImage(SharedImage(data), componentsOf(acquisition)).first;
  const auto [image, components] = algorithm.processImage(SharedImage(permuteChannelData(*data, {}, layout)),
                                                          componentsOf(acquisition, with(layout)));
  ASSERT_TRUE(image && expected);
  EXPECT_TRUE(sameBytes(*image, *expected));
  EXPECT_FALSE(components.get<ChannelDataLayout>());
  ASSERT_TRUE(components.get<UltrasoundMetadata>());
  EXPECT_EQ(*components.get<FrameAcquisition>(), acquisition);
  EXPECT_EQ(*components.get<UltrasoundMetadata>(), acquisition.ultrasoundMetadata());
  const FrameGeometry& geometry = *components.get<FrameGeometryMetadata>()->frameGeometry();
  EXPECT_TRUE(geometry.isApprox(geometryOf(acquisition), 1e-12));
  EXPECT_TRUE(geometry.imgDescPrescan().isApprox(image->descriptor()));
}

// ---- Overrides

TEST_F(BeamformingAlgorithmTest, AGeometryOverrideReplacesThatOfTheAcquisition) {
  for (const FrameAcquisition& acquisition : {focusedBeams(), planeWaves()}) {
    auto shallow = geometryOf(acquisition).clone();
    shallow->setDepth(7.8);
    const auto [image, components] = process(algorithm, acquisition, with(FrameGeometryMetadata(std::move(shallow))));
    ASSERT_TRUE(image);
    EXPECT_DOUBLE_EQ(image->descriptor().spacing().y(), 7.8 / 39);
    EXPECT_EQ(components.get<FrameGeometryMetadata>()->frameGeometry()->depth(), 7.8);
  }
  EXPECT_TRUE(process(algorithm, focusedBeams(), with(FrameGeometryMetadata())).first) << "an empty override is none";

  const FrameAcquisition beams = focusedBeams();
  FrameGeometryLinear wider(dynamic_cast<const FrameGeometryLinear&>(geometryOf(beams)));
  wider.setWidth(wider.width() + 1e-6);
  EXPECT_TRUE(process(algorithm, planeWaves(), with(FrameGeometryMetadata(wider))).first);
  expectRefusal(noise(beams), componentsOf(beams, with(FrameGeometryMetadata(wider))),
                {"In focused mode, a frame geometry override must only change the depth"});
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
  const auto rowsOf = [&](auto change) {
    return validRows(*process(algorithm, acquisition, with(changedLines(acquisition, change))).first, 2);
  };
  EXPECT_EQ(rowsOf([](int, Line& line) {
              line = {0.75 * line[0] + 0.25 * line[1], 0.25 * line[0] + 0.75 * line[1]};
            }),
            20);
  EXPECT_EQ(rowsOf([](int, Line& line) { std::swap(line[0], line[1]); }), 0);
  EXPECT_EQ(rowsOf([](int, Line& line) { line[1] += Eigen::Vector2d(0.9e-7, 0.9e-7); }), 40);

  void (*const refused[])(int, Line&) = {
      [](int, Line& line) { line[1].y() += 1.2e-7; },
      [](int i, Line& line) { line[1].x() += i == 4 ? 1.2e-7 : 0.0; },
      [](int i, Line& line) { line.resize(i == 2 ? 1 : 2); },
      [](int, Line& line) { line[0].x() = std::nan(""); },
  };
  const auto data = noise(acquisition);
  for (const auto& change : refused) {
    SCOPED_TRACE(&change - refused);
    expectRefusal(data, componentsOf(acquisition, with(changedLines(acquisition, change))),
                  {"In focused mode, a ROI override must only change the depth"});
  }
}

// ---- What it refuses

TEST_F(BeamformingAlgorithmTest, TellsWhatItRefuses) {
  const FrameAcquisition waves = planeWaves(3), beams = focusedBeams(5), bare(waves.transducer(), waves.events());
  const auto oneLess = [](const FrameAcquisition& acquisition) {
    BeamformingRois result;
    for (int i = 1; i < acquisition.rois()->size(); ++i)
      result.add(acquisition.rois()->roi(i));
    return componentsOf(acquisition, with(result));
  };
  const auto data = noise(waves), bytes = noise(waves, PixelUInt8);
  const std::string noRegions = "Invalid frame geometry or beamforming ROIs";
  for (const bool used : {false, true}) {
    // A second time after regions that have gone: what was made of them must not stand in.
    if (used) process(algorithm, waves);
    expectRefusal(data, with(ChannelDataLayout()), {"Input data is not channel data"});
    expectRefusal(bytes, componentsOf(waves), {"Unsupported input type: " + bytes->descriptor().toString()});
    expectRefusal(data, oneLess(waves),
                  {"Number of ROIs in the BeamformingRois DataComponent does not match number of events"});
    expectRefusal(data, oneLess(beams), {"In focused mode, a ROI override must only change the depth"});
    expectRefusal(data, componentsOf(bare, with(FrameGeometryMetadata(geometryOf(waves)))),
                  {noRegions, "Failed to create sampling position map: " + noRegions});
    expectRefusal(data, componentsOf(bare), {"Neither the frame acquisition nor the image has a frame geometry"});
  }
  algorithm.outputSize = Eigen::Vector2i(512, std::numeric_limits<int>::max());
  expectRefusal(noise(beams), componentsOf(beams),
                {"An image of 5 x 2147483647 pixels can't be formed: each side must have 1 to 65536"});
}

TEST_F(BeamformingAlgorithmTest, AFailureOfTheBeamformerLeavesTheComponents) {
  const FrameAcquisition waves = planeWaves(3);
  const ExpectedLog log;
  const auto [image, components] = process(algorithm, waves, {}, PixelFloat, 3);
  EXPECT_FALSE(image);
  EXPECT_TRUE(components.get<FrameAcquisition>() && components.get<FrameGeometryMetadata>());
  EXPECT_EQ(log.messages(), std::vector<std::string>{"4 : Unsupported input data type for beamforming."});
}

// ---- What it keeps from frame to frame

TEST_F(BeamformingAlgorithmTest, RebuildsOnlyWhatChanged) {
  LogCount beamformers("Preparing the beamformer"), maps("Building the sampling position map");
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
  EXPECT_EQ(built(waves), Built(0, 0));
  EXPECT_EQ(built(planeWaves(2)), Built(1, 1));
  EXPECT_EQ(built(waves), Built(1, 1)) << "only the last acquisition is kept";
  FrameAcquisition faster = waves;
  faster.setReceiveSamplingFrequency(21e6);
  EXPECT_EQ(built(faster), Built(1, 0)) << "same geometry and regions";
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
  set.components().add<FrameAcquisition>(acquisition);
  set.add(std::make_shared<SharedImage>(noise(acquisition)));
  BeamformingAlgorithm onSet(&set);
  onSet.compute();
  ASSERT_EQ(onSet.status(), 0);
  const auto images = onSet.takeOutput().extract<SharedImageSet>();
  bool topDown = false;
  EXPECT_TRUE(images->properties().param("topDown", topDown) && topDown);
  EXPECT_TRUE(images->elementwiseComponents().components(0).get<FrameAcquisition>());
}

// ---- Threads

TEST_F(BeamformingAlgorithmTest, ParametersStayAsTheyAreUntilTheBeamformerIsPrepared) {
  std::future<void> change;
  const int sink = Log::addSink([&](const Log::Entry& entry) {
    if (!entry.message.starts_with("Preparing the beamformer")) return;
    change = std::async(std::launch::async, [&] { algorithm.fNumber = 2.0; });
    EXPECT_EQ(change.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  });
  EXPECT_TRUE(process(algorithm, planeWaves()).first);
  Log::removeSink(sink);
  change.get();
  EXPECT_EQ(algorithm.fNumber.value(), 2.0);
}

TEST_F(BeamformingAlgorithmTest, WorksOnSeveralThreadsWhileParametersAreSet) {
  const FrameAcquisition acquisitions[] = {planeWaves(2), focusedBeams(4)};
  const auto first = process(algorithm, acquisitions[0]).first, second = process(algorithm, acquisitions[1]).first;
  std::atomic<int> running = 4;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int round = 0; round < 6; ++round) {
        const bool focused = (t + round) % 2 == 1;
        const auto result = process(algorithm, acquisitions[focused ? 1 : 0]).first;
        EXPECT_TRUE(result && sameBytes(*result, focused ? *second : *first));
      }
      --running;
    });
  for (double towards = 2.0; running > 0; towards = 2.0 - towards) { // another value, the same in single precision
    algorithm.fNumber = std::nextafter(1.0, towards);
    std::this_thread::yield();
  }
  for (std::thread& thread : threads)
    thread.join();
}

} // namespace
} // namespace Kelvaris::US
