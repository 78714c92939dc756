#include "model/AlgorithmFrame.h"

#include "Core/Parameter.h"
#include "Lib/SharedImageSet.h"
#include "Stream/StreamAlgorithmExecutor.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace Kelvaris::US {
namespace {

/// Adds 1 to every sample; refuses images that are `refusedWidth` wide.
class AddOne : public Algorithm, public SequentialImageProcessor, public SignalReceiver {
public:
  static AlgorithmFrame frame;
  static constexpr AlgorithmFrame kPlain = {"AddOne",
                                            "Add One",
                                            &isVolumeStream,
                                            [](const SharedImageSet& s) { return holdsVolumes(s); },
                                            false,
                                            true,
                                            "Error while adding to image ",
                                            " of "};

  explicit AddOne(const SharedImageSet* input) : m_input(input) {}
  static bool createCompatible(const DataList& data, Algorithm** a) {
    return createCompatibleAlgorithm<AddOne>(frame, data, a, executorGetsAlgorithm);
  }
  void compute() override { computeImages(frame, *this, m_input, m_progress, m_status, m_output); }
  OwningDataList takeOutput() override { return takeImages(m_output); }

  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& image, const DataComponentList& components) const override {
    if (image.descriptor().width() == refusedWidth) return {};
    auto result = image.mem()->clone();
    for (std::size_t i = 0; i < result->descriptor().elementCount(); ++i)
      static_cast<float*>(result->data())[i] += 1.0f;
    return {std::make_shared<SharedImage>(std::shared_ptr<Image>(std::move(result))), components};
  }

  static inline bool executorGetsAlgorithm = false;
  static constexpr int refusedWidth = 7;

private:
  const SharedImageSet* m_input;
  std::unique_ptr<SharedImageSet> m_output;
};
AlgorithmFrame AddOne::frame = AddOne::kPlain;

std::shared_ptr<SharedImage> image(float value, int width = 2, int slices = 3) {
  auto pixels = std::make_shared<TypedImage<float>>(width, 1, slices);
  std::fill_n(pixels->pointer(), pixels->size(), value);
  return std::make_shared<SharedImage>(pixels);
}

class AlgorithmFrameTest : public ::testing::Test {
protected:
  AlgorithmFrameTest() {
    AddOne::frame = AddOne::kPlain;
    AddOne::executorGetsAlgorithm = false;
    images.setModality(Data::Ultrasound);
    for (int i = 0; i < 3; ++i)
      images.add(image(static_cast<float>(i)), 10.0 * i);
  }
  SharedImageSet images;
};

TEST_F(AlgorithmFrameTest, AFailedImageOrNoInputEndsTheRunAndDropsTheOutput) {
  AddOne algorithm(&images);
  algorithm.compute();
  images.add(image(0.0f, AddOne::refusedWidth));
  Tests::ExpectedLog log;
  algorithm.compute();
  EXPECT_EQ(log.messages(), std::vector<std::string>{"4 AddOne: Error while adding to image 3 of 4"});
  EXPECT_EQ(algorithm.status(), Algorithm::Failure);
  EXPECT_TRUE(algorithm.takeOutput().empty()) << "the output of the earlier run is gone too";

  AddOne withoutInput(nullptr);
  withoutInput.compute();
  EXPECT_EQ(log.messages().back(), "4 AddOne: No input image given");
  EXPECT_EQ(withoutInput.status(), Algorithm::Failure);
}

TEST_F(AlgorithmFrameTest, StepsTheProgressAndCanBeCanceled) {
  Progress progress;
  std::vector<std::string> steps;
  progress.onStep = [&](const ProgressTask& task) {
    steps.push_back(task.text() + " " + std::to_string(task.step()) + "/" + std::to_string(task.steps()));
    if (task.step() == 2) progress.cancel();
  };
  AddOne algorithm(&images);
  algorithm.setProgress(&progress);
  algorithm.compute();
  EXPECT_EQ(steps, (std::vector<std::string>{"Add One 0/3", "Add One 1/3", "Add One 2/3"}));
  EXPECT_EQ(algorithm.status(), Algorithm::Canceled);
  EXPECT_TRUE(algorithm.takeOutput().empty());

  AddOne::frame.hasProgress = false;
  algorithm.compute();
  EXPECT_EQ(algorithm.status(), Algorithm::Success) << "without a progress task there is nothing to cancel";
}

TEST_F(AlgorithmFrameTest, AcceptsExactlyOneElementThatFits) {
  ImageStream imageStream("images"), volumeStream("volumes");
  volumeStream.setKind(Data::VolumeStreamKind);
  SharedImageSet flat, foreign, empty;
  for (SharedImageSet* set : {&flat, &empty})
    set->setModality(Data::Ultrasound);
  flat.add(image(1.0f, 2, 1));
  foreign.add(image(1.0f));

  const struct {
    const char* what;
    DataList data;
    bool compatible;
  } cases[] = {{"nothing", {}, false},
               {"volumes", {&images}, true},
               {"a volume stream", {&volumeStream}, true},
               {"the same twice", {&images, &images}, false},
               {"a set and a stream", {&images, &volumeStream}, false},
               {"an image stream", {&imageStream}, false},
               {"flat images", {&flat}, false},
               {"another modality", {&foreign}, false},
               {"a set without images", {&empty}, false}};
  for (const auto& c : cases) {
    EXPECT_EQ(AddOne::createCompatible(c.data, nullptr), c.compatible) << c.what;
    Algorithm* created = nullptr;
    EXPECT_EQ(AddOne::createCompatible(c.data, &created), c.compatible) << c.what;
    const std::unique_ptr<Algorithm> owned(created);
    EXPECT_EQ(created != nullptr, c.compatible) << c.what;
    const bool stream = c.compatible && c.data[0] == &volumeStream;
    EXPECT_EQ(dynamic_cast<StreamAlgorithmExecutor*>(created) != nullptr, stream) << c.what;
    EXPECT_EQ(dynamic_cast<AddOne*>(created) != nullptr, c.compatible && !stream) << c.what;
  }
}

TEST_F(AlgorithmFrameTest, TheExecutorIsSetUpForTheAlgorithm) {
  ImageStream stream("volumes");
  stream.setKind(Data::VolumeStreamKind);
  for (const bool withAlgorithm : {false, true}) {
    AddOne::executorGetsAlgorithm = withAlgorithm;
    Algorithm* created = nullptr;
    ASSERT_TRUE(AddOne::createCompatible({&stream}, &created));
    const std::unique_ptr<Algorithm> owned(created);
    const auto& executor = dynamic_cast<const StreamAlgorithmExecutor&>(*created);
    EXPECT_FALSE(executor.autoStart);
    EXPECT_EQ(executor.mode, 1);
    EXPECT_EQ(executor.streamAlgorithmName(), "Add One");
    EXPECT_EQ(dynamic_cast<AddOne*>(executor.streamAlgorithm()) != nullptr, withAlgorithm);
  }
}

} // namespace
} // namespace Kelvaris::US
