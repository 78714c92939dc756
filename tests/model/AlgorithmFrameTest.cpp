#include "model/AlgorithmFrame.h"

#include "Core/Progress.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

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

SharedImageSet imagesOf(int number, int slices) {
  SharedImageSet images;
  images.setModality(Data::Ultrasound);
  for (int i = 0; i < number; ++i)
    images.add(std::make_shared<SharedImage>(ImageDescriptor(PixelFloat, 2, 2, slices)));
  return images;
}

TEST(AlgorithmFrame, StopsBetweenImagesAndWithoutInput) {
  const SharedImageSet images = imagesOf(3, 1);
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

TEST(AlgorithmFrame, AcceptsExactlyOneElementThatFits) {
  ImageStream imageStream("images"), volumeStream("volumes");
  volumeStream.setKind(Data::VolumeStreamKind);
  SharedImageSet volumes = imagesOf(2, 3), flat = imagesOf(2, 1), foreign = imagesOf(2, 3), empty = imagesOf(0, 1);
  foreign.setModality(Data::UnknownModality);
  const struct {
    const char* what;
    DataList data;
    bool fits;
  } cases[] = {{"nothing", {}, false},
               {"volumes", {&volumes}, true},
               {"a volume stream", {&volumeStream}, true},
               {"a set and a stream", {&volumes, &volumeStream}, false},
               {"an image stream", {&imageStream}, false},
               {"flat images", {&flat}, false},
               {"another modality", {&foreign}, false},
               {"a set without images", {&empty}, false}};
  for (const auto& c : cases) {
    const auto [stream, images] = compatibleInput(kFrame, c.data);
    EXPECT_EQ(stream || images, c.fits) << c.what;
  }
}

} // namespace
} // namespace Kelvaris::US
