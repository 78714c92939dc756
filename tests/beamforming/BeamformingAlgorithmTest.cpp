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
#include "support/IntensityMaskOf.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <thread>

namespace Kelvaris::US {
namespace {

using Kelvaris::Tests::ExpectedLog;
using Tests::componentsOf;
using Tests::focusedBeams;
using Tests::noise;
using Tests::planeWaves;

class BeamformingAlgorithmTest : public testing::Test {
protected:
  BeamformingAlgorithmTest() { Resource::addRepository(&m_repository); }

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
  const auto first = a.mem(), second = b.mem();
  return first->byteSize() == second->byteSize() && std::memcmp(first->data(), second->data(), first->byteSize()) == 0;
}

/// Whether the first component of every pixel of a column is NaN.
bool isColumnInvalid(const SharedImage& image, int x) {
  const auto mem = image.mem();
  for (int y = 0; y < mem->height(); ++y)
    if (!std::isnan(mem->valueAsDouble(x, y, 0, 0))) return false;
  return true;
}

int validRows(const SharedImage& image, int x) {
  const auto mem = image.mem();
  int count = 0;
  for (int y = 0; y < mem->height(); ++y)
    count += std::isnan(mem->valueAsDouble(x, y, 0, 0)) ? 0 : 1;
  return count;
}

// ---- Parameters and creation

TEST_F(BeamformingAlgorithmTest, ParametersAreTheirStoredForm) {
  BeamformingAlgorithm algorithm(nullptr);
  std::vector<std::string> described;
  for (const ParameterBase* parameter : algorithm.parameters()) {
    described.push_back(parameter->name() + " = " + parameter->text());
    for (const auto& [key, value] : parameter->attributes())
      described.back() += " " + key + ":" + value;
  }
  EXPECT_EQ(described,
            (std::vector<std::string>{"fNumber = 1 max:4 min:0.1 step:0.1", "coherentCompounding = true",
                                      "outputSize = 512 512", "outputValueScaling = 1 max:10 min:0 step:0.01",
                                      "beamformerType = 0 values:Unweighted Das, Hamming Das, Tukey Das, Debug: "
                                      "Aperture Size, Debug: Aperture Start, Debug: ApertureEnd"}));
  EXPECT_EQ(static_cast<int>(algorithm.beamformerType.type()), 8);

  Properties stored;
  stored.setParam("beamformerType", 4);
  algorithm.configure(&stored);
  EXPECT_EQ(algorithm.beamformerType.value(), BeamformingAlgorithm::BeamformerType::DebugApertureStart);
  algorithm.beamformerType = BeamformingAlgorithm::BeamformerType::HammingDas;
  Properties written;
  algorithm.configuration(&written);
  int value = -1;
  EXPECT_TRUE(written.param("beamformerType", value));
  EXPECT_EQ(value, 1);
}

TEST_F(BeamformingAlgorithmTest, AcceptsChannelDataOfOneOrTwoComponentsAndVolumeStreams) {
  const FrameAcquisition acquisition = planeWaves();
  const struct {
    int channels; // 0: no image
    bool described;
    Data::Modality modality;
    bool accepted;
  } table[] = {{1, true, Data::Ultrasound, true},   {2, true, Data::Ultrasound, true},
               {3, true, Data::Ultrasound, false},  {0, true, Data::Ultrasound, false},
               {1, false, Data::Ultrasound, false}, {1, true, Data::UnknownModality, false}};
  for (const auto& row : table) {
    SharedImageSet images;
    images.setModality(row.modality);
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
      BeamformingAlgorithm algorithm(nullptr);
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

Eigen::Vector2i brightest(const SharedImage& image) {
  const auto mem = image.mem();
  Eigen::Vector2i best(0, 0);
  double value = 0.0;
  for (int y = 0; y < mem->height(); ++y)
    for (int x = 0; x < mem->width(); ++x)
      if (std::abs(mem->valueAsDouble(x, y, 0, 0)) > value) { // false for NaN
        value = std::abs(mem->valueAsDouble(x, y, 0, 0));
        best = {x, y};
      }
  return best;
}

TEST_F(BeamformingAlgorithmTest, AScattererIsBrightestAtItsPlace) {
  constexpr double c = 1.54e6;
  for (const bool focused : {false, true}) {
    // In the focused frame the scatterer lies in the focus of beam 3; the plane waves see it off the middle.
    const FrameAcquisition acquisition = focused ? focusedBeams(5) : planeWaves(3);
    const Eigen::Vector3d scatterer =
        focused ? acquisition.events()[3].transmit.waveFiducial : Eigen::Vector3d(0.6, 7, 0);
    const auto elements = acquisition.transducer().elementPositions();
    const auto data = std::static_pointer_cast<TypedImage<float>>(Tests::emptyData(acquisition));
    for (int event = 0; event < static_cast<int>(acquisition.events().size()); ++event) {
      const auto& transmit = acquisition.events()[static_cast<std::size_t>(event)].transmit;
      if (focused && event != 3) continue;
      const double sent = focused ? (transmit.waveFiducial - transmit.timeZeroPoint).norm()
                                  : transmit.waveFiducial.dot(scatterer - transmit.timeZeroPoint);
      for (std::size_t e = 0; e < elements.size(); ++e)
        addPulse(*data, acquisition, static_cast<int>(e), event, (sent + (scatterer - elements[e]).norm()) / c);
    }
    BeamformingAlgorithm algorithm(nullptr);
    algorithm.outputSize = Eigen::Vector2i(97, 201);
    const auto [image, components] = algorithm.processImage(SharedImage(data), componentsOf(acquisition));
    ASSERT_TRUE(image);
    const Eigen::Vector2i pixel = brightest(*image);
    const FrameGeometry& geometry = *components.get<FrameGeometryMetadata>()->frameGeometry();
    const Eigen::Vector2d place = geometry.convertPoint(
        {(pixel.x() + 0.5) / image->descriptor().width(), (pixel.y() + 0.5) / image->descriptor().height()},
        FrameGeometry::NormalizedToPhysical);
    EXPECT_NEAR(place.y(), scatterer.y(), 0.05) << focused;
    if (focused)
      EXPECT_EQ(pixel.x(), 3);
    else
      EXPECT_NEAR(place.x(), scatterer.x(), 0.1);
  }
}

TEST_F(BeamformingAlgorithmTest, TheLayoutSaysHowToReadTheData) {
  const FrameAcquisition acquisition = planeWaves();
  const ChannelDataLayout standard;
  const ChannelDataLayout other(ChannelDataLayout::Axis::SlowTime, ChannelDataLayout::Axis::Channels,
                                ChannelDataLayout::Axis::FastTime);
  const auto data = noise(acquisition);
  BeamformingAlgorithm algorithm(nullptr);
  algorithm.outputSize = Eigen::Vector2i(30, 40);
  const auto expected = algorithm.processImage(SharedImage(data), componentsOf(acquisition));
  const auto result = algorithm.processImage(SharedImage(permuteChannelData(*data, standard, other)),
                                             componentsOf(acquisition, with(other)));
  ASSERT_TRUE(result.first && expected.first);
  EXPECT_TRUE(sameBytes(*result.first, *expected.first));
  EXPECT_FALSE(result.second.get<ChannelDataLayout>());
}

TEST_F(BeamformingAlgorithmTest, ComponentsDescribeTheResult) {
  const FrameAcquisition acquisition = planeWaves();
  DataComponentList extra = with(ChannelDataLayout());
  extra.add<Transducer>(acquisition.transducer()); // stands for any other component
  BeamformingAlgorithm algorithm(nullptr);
  algorithm.outputSize = Eigen::Vector2i(30, 40);
  const auto [image, components] = process(algorithm, acquisition, extra);
  ASSERT_TRUE(image);
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
  BeamformingAlgorithm algorithm(nullptr);
  algorithm.outputSize = Eigen::Vector2i(30, 40);
  const auto depthOnly = [&](const FrameAcquisition& acquisition) {
    auto geometry = geometryOf(acquisition);
    geometry->setDepth(7.8);
    return process(algorithm, acquisition, with(FrameGeometryMetadata(std::move(geometry))));
  };
  for (const FrameAcquisition& acquisition : {focusedBeams(), planeWaves()}) {
    const auto [image, components] = depthOnly(acquisition);
    ASSERT_TRUE(image);
    EXPECT_DOUBLE_EQ(image->descriptor().spacing().y(), 7.8 / 39);
    EXPECT_EQ(components.get<FrameGeometryMetadata>()->frameGeometry()->depth(), 7.8);
  }

  EXPECT_TRUE(process(algorithm, focusedBeams(), with(FrameGeometryMetadata())).first) << "an empty override is none";

  const auto wider = [&](const FrameAcquisition& acquisition) {
    const auto base = geometryOf(acquisition);
    const auto* linear = dynamic_cast<const FrameGeometryLinear*>(base.get());
    auto geometry = std::make_unique<FrameGeometryLinear>();
    geometry->setWidth(linear ? linear->width() + 1e-6 : 3.0);
    geometry->setDepth(7.8);
    return process(algorithm, acquisition, with(FrameGeometryMetadata(std::move(geometry))));
  };
  EXPECT_TRUE(wider(planeWaves()).first);
  const ExpectedLog log;
  const auto [image, components] = wider(focusedBeams());
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
  const struct {
    const char* name;
    std::function<void(int, Line&)> change;
    bool accepted;
  } table[] = {
      {"the same", [](int, Line&) {}, true},
      {"shorter at both ends",
       [](int, Line& line) {
         const Line old = line;
         line = {old[0] + 0.25 * (old[1] - old[0]), old[0] + 0.75 * (old[1] - old[0])};
       },
       true},
      {"within the tolerance", [](int, Line& line) { line[1] += Eigen::Vector2d(0.9e-7, 0.9e-7); }, true},
      {"beyond its end", [](int, Line& line) { line[1].y() += 1.2e-7; }, false},
      {"before its start", [](int, Line& line) { line[0].y() -= 1.2e-7; }, false},
      {"beside it", [](int i, Line& line) { line[1].x() += i == 4 ? 1.2e-7 : 0.0; }, false},
      {"moved", [](int i, Line& line) { line[i % 2 == 0 ? 0u : 1u].x() += 0.1; }, false},
      {"an area", [](int i, Line& line) { i == 2 ? line.push_back(line[0]) : void(); }, false},
      {"not a number", [](int, Line& line) { line[0].x() = std::nan(""); }, false},
  };
  for (const auto& row : table) {
    BeamformingAlgorithm algorithm(nullptr);
    algorithm.outputSize = Eigen::Vector2i(30, 40);
    const ExpectedLog log;
    const auto [image, components] = process(algorithm, acquisition, with(changedLines(acquisition, row.change)));
    EXPECT_EQ(image != nullptr, row.accepted) << row.name;
    EXPECT_EQ(components.empty(), !row.accepted) << row.name;
    EXPECT_EQ(log.messages(),
              row.accepted ? std::vector<std::string>{}
                           : std::vector<std::string>{"4 BeamformingAlgorithm: In focused mode, a ROI override must "
                                                      "only change the depth"})
        << row.name;
  }

  BeamformingAlgorithm algorithm(nullptr);
  algorithm.outputSize = Eigen::Vector2i(30, 40);
  const auto whole = process(algorithm, acquisition);
  const auto half =
      process(BeamformingAlgorithm(nullptr), acquisition, with(changedLines(acquisition, table[1].change)));
  ASSERT_TRUE(whole.first && half.first);
  EXPECT_EQ(validRows(*half.first, 2), 256) << "half of 512 rows";
}

TEST_F(BeamformingAlgorithmTest, AReversedLineHasNoValidPixels) {
  const FrameAcquisition acquisition = focusedBeams();
  BeamformingAlgorithm algorithm(nullptr);
  algorithm.outputSize = Eigen::Vector2i(30, 40);
  const auto reverse = [](int i, Line& line) {
    if (i == 1) std::swap(line[0], line[1]);
  };
  const auto [image, components] = process(algorithm, acquisition, with(changedLines(acquisition, reverse)));
  ASSERT_TRUE(image);
  EXPECT_TRUE(isColumnInvalid(*image, 1));
  EXPECT_FALSE(isColumnInvalid(*image, 0));
}

TEST_F(BeamformingAlgorithmTest, OtherRegionsReplaceThoseOfTheAcquisition) {
  const FrameAcquisition acquisition = planeWaves(3);
  BeamformingRois lower; // below 5 mm
  for (int i = 0; i < 3; ++i)
    lower.add(Geometry::Polygon2D({{-5, 5}, {5, 5}, {5, 50}, {-5, 50}}));
  BeamformingAlgorithm algorithm(nullptr);
  algorithm.outputSize = Eigen::Vector2i(30, 40);
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
  const auto without = [](const FrameAcquisition& acquisition, int count) {
    BeamformingRois result;
    for (int i = 0; i < count; ++i)
      result.add(acquisition.rois()->roi(i));
    return with(result);
  };
  BeamformingRois mixed;
  mixed.add(Geometry::Polygon2D({{0, 0}, {0, 10}}));
  mixed.add(waves.rois()->roi(1));
  mixed.add(waves.rois()->roi(2));
  const Eigen::Vector2i size(30, 40);
  const auto typeError = [](const MemImage& data) { return "Unsupported input type: " + data.descriptor().toString(); };
  const std::string mapError = "Failed to create sampling position map: ";

  const struct {
    std::shared_ptr<MemImage> data;
    DataComponentList components;
    Eigen::Vector2i outputSize;
    std::vector<std::string> messages;
  } table[] = {
      {noise(waves), {}, size, {"Input data is not channel data"}},
      {noise(waves), with(ChannelDataLayout()), size, {"Input data is not channel data"}},
      {noise(waves, PixelUInt8), componentsOf(waves), size, {typeError(*noise(waves, PixelUInt8))}},
      {noise(waves, PixelDouble), componentsOf(waves), size, {typeError(*noise(waves, PixelDouble))}},
      {noise(waves),
       componentsOf(waves, without(waves, 2)),
       size,
       {"Number of ROIs in the BeamformingRois DataComponent does not match number of events"}},
      {noise(beams),
       componentsOf(beams, without(beams, 4)),
       size,
       {"In focused mode, a ROI override must only change the depth"}},
      {noise(waves),
       componentsOf(waves, with(mixed)),
       size,
       {"BeamformingRois must all be of the same type (all line ROIs or all polygonal ROIs), but mixed types were "
        "given.",
        mapError + "BeamformingRois: mixed ROI types (line vs polygon). All ROIs must be either lines (two vertices) "
                   "or polygons."}},
      {noise(waves),
       componentsOf(bare, with(FrameGeometryMetadata(geometryOf(waves)))),
       size,
       {"Invalid frame geometry or beamforming ROIs", mapError + "Invalid frame geometry or beamforming ROIs"}},
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
  for (const auto& row : table) {
    BeamformingAlgorithm algorithm(nullptr);
    algorithm.outputSize = row.outputSize;
    const ExpectedLog log;
    const auto [image, components] = algorithm.processImage(SharedImage(row.data), row.components);
    EXPECT_FALSE(image) << row.messages.back();
    EXPECT_TRUE(components.empty()) << row.messages.back();
    std::vector<std::string> expected;
    for (const std::string& message : row.messages)
      expected.push_back("4 BeamformingAlgorithm: " + message);
    EXPECT_EQ(log.messages(), expected);
  }
}

TEST_F(BeamformingAlgorithmTest, RegionsThatGoAwayAreMissed) {
  const FrameAcquisition waves = planeWaves(3);
  FrameAcquisition bare(waves.transducer(), waves.events());
  BeamformingAlgorithm algorithm(nullptr);
  algorithm.outputSize = Eigen::Vector2i(30, 40);
  EXPECT_TRUE(process(algorithm, waves).first);
  const ExpectedLog log;
  EXPECT_FALSE(process(algorithm, bare, with(FrameGeometryMetadata(geometryOf(waves)))).first);
  EXPECT_TRUE(log.contains("Failed to create sampling position map: Invalid frame geometry or beamforming ROIs"));
}

TEST_F(BeamformingAlgorithmTest, AFailureOfTheBeamformerLeavesTheComponents) {
  const FrameAcquisition waves = planeWaves(3);
  BeamformingAlgorithm algorithm(nullptr);
  algorithm.outputSize = Eigen::Vector2i(30, 40);
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
  BeamformingAlgorithm algorithm(nullptr);
  algorithm.outputSize = Eigen::Vector2i(30, 40);
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
  BeamformingAlgorithm algorithm(nullptr);
  algorithm.outputSize = Eigen::Vector2i(30, 40);
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
  for (unsigned seed : {1u, 2u})
    set.add(std::make_shared<SharedImage>(noise(acquisition, PixelFloat, 1, seed)));
  set.elementwiseComponents().components(1).add<Transducer>(acquisition.transducer());
  BeamformingAlgorithm algorithm(&set);
  algorithm.outputSize = Eigen::Vector2i(30, 40);
  algorithm.compute();
  ASSERT_EQ(algorithm.status(), 0);
  const auto images = algorithm.takeOutput().extract<SharedImageSet>();
  bool topDown = false;
  EXPECT_TRUE(images->properties().param("topDown", topDown));
  EXPECT_TRUE(topDown);
  for (int i = 0; i < 2; ++i) {
    const DataComponentList& components = images->elementwiseComponents().components(i);
    EXPECT_TRUE(components.get<FrameAcquisition>());
    EXPECT_EQ(components.get<Transducer>() != nullptr, i == 1);
  }
  EXPECT_FALSE(sameBytes(images->get(0), images->get(1)));
}

// ---- Threads

TEST_F(BeamformingAlgorithmTest, WorksOnSeveralThreadsWhileParametersChange) {
  BeamformingAlgorithm algorithm(nullptr);
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
