#include "imagemath/ImageMath.h"

#include "GL/ContextManager.h"

#include <gtest/gtest.h>

#include <optional>

namespace Kelvaris::ImageMath {
namespace {

/// In main memory, and by a shader where there is OpenGL.
class MappedArray : public ::testing::TestWithParam<bool> {
protected:
  void SetUp() override {
    if (!GetParam()) return;
    if (!GL::ContextManager::get().isAvailable()) GTEST_SKIP() << GL::ContextManager::get().unavailableReason();
    m_guard.emplace();
  }

private:
  std::optional<GL::ContextManager::ActivationGuard> m_guard;
};

TEST_P(MappedArray, ASmallImageFollowsALargerOneAlongItsAxesOfExtentOne) {
  auto samples = std::make_shared<TypedImage<short>>(7, 5, 2);
  for (std::size_t i = 0; i < samples->size(); ++i)
    (*samples)[i] = static_cast<short>(i * 37 % 1000);
  auto wave = std::make_shared<TypedImage<float>>(1, 5, 1, 2);
  for (std::size_t i = 0; i < wave->size(); ++i)
    (*wave)[i] = static_cast<float>(i) * 0.7f - 3.0f;
  const SharedImage image(samples), signal(wave);

  const Array<const SharedImage, float> x(image);
  const Array<const SharedImage, float, true> s(signal);
  const auto product = BroadcastChannels(x, 2) * s;
  SharedImage mixed(internal::combineImageDescriptors({product.imgDesc()}, false, PixelFloat));
  Array<SharedImage, float> target(mixed);
  target = product;

  EXPECT_EQ(mixed.hasForm(ImageForm::Gl), GetParam());
  const auto pixels = mixed.mem();
  ASSERT_TRUE(pixels->descriptor().isApprox(ImageDescriptor(PixelFloat, 7, 5, 2, 2)));
  for (int z = 0; z < 2; ++z)
    for (int y = 0; y < 5; ++y)
      for (int column = 0; column < 7; ++column)
        for (int c = 0; c < 2; ++c)
          EXPECT_EQ(pixels->valueAsDouble(column, y, z, c),
                    static_cast<float>(samples->value(column, y, z)) * wave->value(0, y, 0, c));
}

INSTANTIATE_TEST_SUITE_P(Evaluators, MappedArray, ::testing::Values(false, true));

} // namespace
} // namespace Kelvaris::ImageMath
