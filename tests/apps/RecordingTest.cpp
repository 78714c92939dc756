#include "kelvaris/Recording.h"

#include "support/ErrorOf.h"

#include <algorithm>
#include <cstring>

namespace Kelvaris::CommandLine {
namespace {

using Extents = SampleArray::Extents;

template <typename T> class MemoryArray : public ContiguousSampleArray {
public:
  MemoryArray(SampleType type, const Extents& shape, bool firstIndexFastest, std::vector<T> values)
      : ContiguousSampleArray(type, shape, firstIndexFastest), m_values(std::move(values)) {}

protected:
  void readRun(std::size_t first, std::size_t count, std::byte* samples) const override {
    std::memcpy(samples, m_values.data() + first, count * sizeof(T));
  }

private:
  std::vector<T> m_values;
};

std::unique_ptr<SampleArray> doubles(const Extents& shape, std::vector<double> values, bool firstIndexFastest = true) {
  return std::make_unique<MemoryArray<double>>(SampleType::Double, shape, firstIndexFastest, std::move(values));
}

/// `events` events that fire one element each and record `elements` elements over `samples` samples.
AcquisitionSummary acquisition(int events, int elements, long samples) {
  AcquisitionSummary summary;
  summary.numElements = summary.numChannels = elements;
  summary.numEvents = events;
  summary.samples = samples;
  for (int e = 0; e < events; ++e) {
    std::vector<int> channels;
    for (int i = 0; i < elements; ++i)
      channels.push_back(elements - 1 - i); // shuffled, so that elements and channels can't be mixed up
    summary.events.push_back({e, e, 0, elements - 1, channels});
  }
  return summary;
}

/// The sample at channel, time and event of a frame's image.
double at(const Recording& recording, const MemImage& image, int channel, int time, int event) {
  const int logical[3] = {channel, time, event};
  int position[3];
  for (std::size_t i = 0; i < 3; ++i)
    position[i] = logical[recording.axisSemantics()[i]];
  return image.valueAsDouble(position[0], position[1], position[2], 0);
}

std::string errorOf(std::unique_ptr<SampleArray> samples, const AcquisitionSummary& summary,
                    const RecordingOptions& options, int frame = -1) {
  return Tests::errorOf([&] {
    const Recording recording(std::move(samples), summary, options);
    if (frame >= 0) recording.frame(frame);
  });
}

TEST(Recording, PutsEverySampleInItsPlaceForEveryLayout) {
  // Of channels, time, events in the file, frames. Each frame holds twice the acquisition's events: 8 images.
  const std::size_t extents[4] = {3, 5, 2, 4};
  const auto code = [](std::size_t channel, std::size_t time, std::size_t event, std::size_t frame) {
    return static_cast<std::int16_t>(channel + 3 * time + 15 * event + 30 * frame);
  };
  RecordingOptions options;
  options.layout = {RecordingAxis::Channels, RecordingAxis::FastTime, RecordingAxis::SlowTime, RecordingAxis::Frames};
  do
    for (const bool firstFastest : {true, false}) {
      Extents shape;
      for (const RecordingAxis axis : options.layout)
        shape.push_back(extents[static_cast<std::size_t>(axis)]);
      std::vector<RecordingAxis> fastestFirst = options.layout;
      if (!firstFastest) std::reverse(fastestFirst.begin(), fastestFirst.end());
      std::vector<std::int16_t> values;
      for (std::size_t i = 0; i < 120; ++i) {
        std::size_t index[4], rest = i;
        for (const RecordingAxis axis : fastestFirst) {
          index[static_cast<std::size_t>(axis)] = rest % extents[static_cast<std::size_t>(axis)];
          rest /= extents[static_cast<std::size_t>(axis)];
        }
        values.push_back(code(index[0], index[1], index[2], index[3]));
      }
      const Recording recording(
          std::make_unique<MemoryArray<std::int16_t>>(SampleType::Int16, shape, firstFastest, values),
          acquisition(1, 3, 5), options);
      ASSERT_EQ(recording.size(), 8);
      for (std::size_t frame = 0; frame < 8; ++frame) {
        const auto image = recording.frame(static_cast<int>(frame));
        for (int c = 0; c < 3; ++c)
          for (int t = 0; t < 5; ++t)
            ASSERT_EQ(at(recording, *image, c, t, 0),
                      code(static_cast<std::size_t>(c), static_cast<std::size_t>(t), frame % 2, frame / 2));
      }
    }
  while (std::next_permutation(options.layout.begin(), options.layout.end()));
}

TEST(Recording, CompletesHalfMatricesByReciprocity) {
  const double transmit[] = {1, 1, 1, 2, 2, 3}, receive[] = {1, 2, 3, 2, 3, 3};
  const auto full = acquisition(3, 3, 2);
  RecordingOptions options;
  options.layout = {RecordingAxis::Traces, RecordingAxis::FastTime};
  for (const double base : {0.0, 1.0}) {
    TracePairs& pairs = options.pairs.emplace();
    std::vector<double> samples;
    for (std::size_t i = 0; i < 6; ++i) {
      pairs.transmit.push_back(transmit[i] - 1 + base);
      pairs.receive.push_back(receive[i] - 1 + base);
    }
    for (std::size_t i = 0; i < 12; ++i)
      samples.push_back(100 * transmit[i % 6] + 10 * receive[i % 6] + (i < 6 ? 0 : 1));
    const Recording recording(doubles({6, 2}, samples), full, options);
    const auto image = recording.frame(0);
    for (int e = 0; e < 3; ++e)
      for (int element = 0; element < 3; ++element)
        for (int t = 0; t < 2; ++t)
          EXPECT_EQ(at(recording, *image, 2 - element, t, e),
                    100 * (std::min(e, element) + 1) + 10 * (std::max(e, element) + 1) + t);
  }

  const std::pair<TracePairs, const char*> refusals[] = {
      {{{0, 0, 0, 1, 1, 2}, {0, 0, 2, 1, 2, 2}, {}}, "Two traces"},
      {{{0, 0, 0, 1, 1, 2}, {0, 7, 2, 1, 2, 2}, {}}, "array has the elements"},
      {{{0, 0, 0, 1, 1, 2}, {0, 1.5, 2, 1, 2, 2}, {}}, "1.5"},
      {{{0, 0, 0, 1, 1, 2}, {0, 1, 2, 1, 2}, {}}, "6 traces, but 6"},
      {{{0, 0, 1, 1, 2}, {0, 1, 1, 2, 2}, {}}, "2 pairs"}, // without 0, 2: missing in both directions
      {{{1, 1, 2}, {1, 2, 2}, {}}, "whether the first element is 0 or 1"}};
  for (const auto& [pairs, part] : refusals) {
    options.pairs = pairs;
    const std::size_t n = pairs.transmit.size();
    EXPECT_CONTAINS(errorOf(doubles({n, 2}, std::vector<double>(2 * n)), full, options), part);
  }
}

TEST(Recording, SubtractsOffsetsAndChoosesTheType) {
  const auto samples = [] {
    return std::make_unique<MemoryArray<std::uint8_t>>(SampleType::UInt8, Extents{2, 2}, true,
                                                       std::vector<std::uint8_t>{128, 130, 120, 126});
  };
  EXPECT_EQ(Recording::mean(*samples()), 126.0);
  const struct {
    double offset;
    bool subtractTraceMeans;
    int type;
    std::vector<double> expected; ///< samples 0 and 1 of channel 0, then of channel 1
  } cases[] = {{0.0, false, PixelInt16, {128, 130, 120, 126}},
               {126.0, false, PixelInt16, {2, 4, -6, 0}},
               {126.5, false, PixelFloat, {1.5, 3.5, -6.5, -0.5}},
               {126.5, true, PixelFloat, {-1, 1, -3, 3}}};
  for (const auto& c : cases) {
    RecordingOptions options;
    options.layout = {RecordingAxis::FastTime, RecordingAxis::Channels};
    options.offset = c.offset;
    options.subtractTraceMeans = c.subtractTraceMeans;
    const Recording recording(samples(), acquisition(1, 2, 2), options);
    EXPECT_EQ(recording.descriptor().pixelType(), c.type);
    const auto frame = recording.frame(0);
    for (int i = 0; i < 4; ++i)
      EXPECT_EQ(at(recording, *frame, i / 2, i % 2, 0), c.expected[static_cast<std::size_t>(i)]);
  }
}

TEST(Recording, RefusesWhatDoesNotFitInWords) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const auto summary = acquisition(2, 4, 6);
  const auto zeros = [](const Extents& shape) { return doubles(shape, std::vector<double>(256, 0.0)); };
  std::vector<double> broken(48, 0.0);
  broken[4 * 6 + 4 * 2 + 3] = nan;
  RecordingOptions standard, shorts, traces, layout;
  shorts.pixelType = PixelInt16;
  traces.layout = {RecordingAxis::FastTime, RecordingAxis::Traces};
  layout.layout = {RecordingAxis::FastTime, RecordingAxis::Channels};
  for (const auto& [message, part] :
       {std::pair(errorOf(zeros({6, 4, 2}), summary, standard), "Layouts that fit: fastTime,channels,slowTime"),
        {errorOf(zeros({4, 9, 2}), summary, standard), "9 samples, the acquisition's time window 6"},
        {errorOf(zeros({3, 6, 2}), summary, standard), "3 channels, the acquisition has 4"},
        {errorOf(zeros({4, 6, 3}), summary, standard), "slow time holds 3 events, the acquisition has 2"},
        {errorOf(zeros({4, 0, 2}), summary, standard), "holds no samples"},
        {errorOf(zeros({6, 4, 2}), summary, layout), "names 2 axes, but the samples have the shape (6, 4, 2)"},
        {errorOf(zeros({6, 8}), summary, traces), "\"traces\" and the pairs"},
        {errorOf(doubles({4, 6, 2}, broken), summary, standard, 0), "Sample 2 of channel 3 in event 1 is nan"},
        {errorOf(doubles({4, 6, 2}, std::vector<double>(48, 4e4)), summary, shorts, 0), "import as float"}})
    EXPECT_CONTAINS(message, part);
  EXPECT_EQ(errorOf(zeros({4, 7, 2}), summary, standard), "") << "one sample more or less is a matter of counting";
  EXPECT_THROW(parseLayout("channels,channels"), std::invalid_argument);
}

} // namespace
} // namespace Kelvaris::CommandLine
