#include "model/AlgorithmFrame.h"

#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

namespace Kelvaris::US {
namespace {

constexpr AlgorithmFrame kFrame = {.className = "Passing",
                                   .displayName = "Pass",
                                   .acceptsStream = &isVolumeStream,
                                   .acceptsImages = &holdsVolumes,
                                   .keepsSetState = false,
                                   .hasProgress = true,
                                   .errorText = "Error while passing image ",
                                   .errorOf = " of "};

/// Hands every image on.
struct Passing : SequentialImageProcessor {
  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& image, const DataComponentList& components) const override {
    return {std::shared_ptr<SharedImage>(image.clone(4)), components};
  }
};

TEST(AlgorithmFrame, StopsBetweenImagesAndWithoutInput) {
  SharedImageSet images;
  for (int i = 0; i < 3; ++i)
    images.add(std::make_shared<SharedImage>(ImageDescriptor(PixelFloat, 2, 2)));
  Progress progress;
  std::vector<int> steps;
  progress.onStep = [&](const ProgressTask& task) {
    steps.push_back(task.step());
    if (task.step() == 2) progress.cancel();
  };
  int status = -1;
  auto output = std::make_unique<SharedImageSet>();
  computeImages(kFrame, Passing(), &images, &progress, status, output);
  EXPECT_EQ(steps, (std::vector{0, 1, 2}));
  EXPECT_EQ(status, Algorithm::Canceled);
  EXPECT_EQ(output, nullptr);

  const Tests::ExpectedLog log;
  computeImages(kFrame, Passing(), nullptr, nullptr, status, output);
  EXPECT_EQ(log.messages(), std::vector<std::string>{"4 Passing: No input image given"});
  EXPECT_EQ(status, Algorithm::Failure);
}

} // namespace
} // namespace Kelvaris::US
