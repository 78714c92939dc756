#include "US/FanMask.h"

#include "Lib/KelvarisFile.h"
#include "US/GeometryCases.h"
#include "support/ExpectedLog.h"
#include "support/TemporaryFolder.h"
#ifdef KELVARIS_HAVE_GL
#include "GL/GlImage.h"
#include "GL/ImageProgram.h"
#include "GL/MaskInclude.h"
#include "GL/RequireGL.h"
#endif

#include <gtest/gtest.h>

#include <numeric>

namespace Kelvaris::US {
namespace {

constexpr int kAcross = 150; ///< pixels of an image along the longer side, about

/// Gives the geometry a Cartesian image that holds it with a margin of some pixels, and the offset that belongs to it.
void setCartesianImage(FrameGeometry& geometry, double spacing) {
  const Geometry::AlignedBox box = geometry.bounds();
  const auto pixels = [&](int axis) { return static_cast<int>(std::ceil(box.extent()[axis] / spacing)) + 6; };
  ImageDescriptor descriptor(PixelUInt8, pixels(0), pixels(1));
  descriptor.setSpacing({spacing, spacing, 1.0});
  geometry.setImgDesc(descriptor);
  const Eigen::Vector2d centre = box.center();
  geometry.setOffset({-centre.x(), -centre.y(), 0.0});
}

std::shared_ptr<const FanMask> fanMask(const Tests::GeometryCase& c) {
  setCartesianImage(*c.geometry, c.geometry->bounds().extent().maxCoeff() / kAcross);
  return std::make_shared<FanMask>(*c.geometry);
}

std::vector<unsigned char> evaluated(const FanMask& mask) {
  const ImageDescriptor& d = mask.geometry().imgDesc();
  const TypedImage<unsigned char> image(d);
  std::vector<unsigned char> valid(d.elementCount());
  for (int y = 0; y < d.height(); ++y) // in two pieces
    for (const auto& [x, count] : {std::pair{0, 7}, std::pair{7, d.width() - 7}})
      mask.evaluate(image, x, y, 0, count, &valid[image.index(x, y, 0, 0)]);
  return valid;
}

class FanMaskOf : public testing::TestWithParam<Tests::GeometryCase> {};

INSTANTIATE_TEST_SUITE_P(Cases, FanMaskOf,
                         testing::Values(Tests::linearCase(38.1, -15, 40), Tests::convexCase(100, 10, 30),
                                         Tests::steeredCase(28.5, 60, 20, 120), Tests::sectorCase(45, 10, 150, 0)),
                         [](const auto& test) { return test.param.geometry->type() + std::to_string(test.index); });

#ifdef KELVARIS_HAVE_GL
TEST_P(FanMaskOf, IsTheSameInAShaderButForTheVeryEdge) {
  KELVARIS_REQUIRE_GL();
  const char* const text = R"(#version 450 core
uniform vec2 u_size;
layout(location = 0) out vec4 result;
#abstract_include mask
void main() {
  result = vec4(maskIsValid(vec4(0.0), gl_FragCoord.xy / u_size) ? 1.0 : 0.0);
}
)";
  const auto mask = fanMask(GetParam());
  const auto include = GL::maskInclude(mask);
  ASSERT_NE(include, nullptr);
  const GL::ContextManager::ActivationGuard guard;
  const auto program = GL::ImageProgram::createFromText("fan", text, {}, GL::CompilationMode::Deferred);
  const GlImage output(mask->geometry().imgDesc());
  program->enable();
  ASSERT_TRUE(program->addAbstractIncludeDefinition(*include, "mask"));
  include->setArguments(*program, "mask");
  program->setUniform("u_size", Eigen::Vector2f(output.descriptor().dimensions().head<2>().cast<float>()));
  program->compute(output);
  program->disable();
  const auto pixels = output.download();
  const auto* const valid = static_cast<const unsigned char*>(pixels->data());
  const std::vector<unsigned char> expected = evaluated(*mask);
  const auto same = std::inner_product(expected.begin(), expected.end(), valid, 0, std::plus<>(), std::equal_to<>());
  EXPECT_LE(static_cast<int>(expected.size()) - same, kAcross / 25) << "pixel centres on the very edge only";
}
#endif

TEST_P(FanMaskOf, ComesBackFromAFile) {
  const Kelvaris::Tests::TemporaryFolder folder;
  const auto mask = fanMask(GetParam());
  SharedImageSet set;
  set.add(std::make_shared<SharedImage>(MemImage::create(mask->geometry().imgDesc())));
  set.shared(0)->setMask(mask);
  KelvarisFile::save(folder / "a.kvx", set);
  const auto loaded = std::dynamic_pointer_cast<const FanMask>(KelvarisFile::load(folder / "a.kvx")->get(0).mask());
  ASSERT_NE(loaded, nullptr);
  EXPECT_TRUE(*loaded == *mask);
  EXPECT_EQ(evaluated(*loaded), evaluated(*mask));
}

TEST(FanMask, HasNoPixelsWhereTheFrameHasNoShape) {
  const auto frame = Tests::convexCase(0, 60, 50).geometry;
  frame->setImgDesc(ImageDescriptor(PixelUInt8, 20, 30));
  EXPECT_EQ(evaluated(FanMask(*frame)), std::vector<unsigned char>(600, 0));
}

TEST(FanMask, ComparesByGeometryAndImageAndNeedsBoth) {
  const auto c = Tests::convexCase(28.5, 60, 120);
  EXPECT_THROW(FanMask{*c.geometry}, std::invalid_argument);
  const auto mask = fanMask(c);
  Properties broken = mask->configuration();
  broken.setParam("openingAngle", "wide");
  const Kelvaris::Tests::ExpectedLog log;
  EXPECT_EQ(FanMask::create(broken, c.geometry->imgDesc()), nullptr);

  EXPECT_TRUE(*mask == *fanMask(c));
  auto moved = mask->geometry().clone();
  moved->setOffset({0.0, 0.1, 0.0});
  EXPECT_FALSE(*mask == FanMask(*moved));
  setCartesianImage(*moved, 3.0);
  EXPECT_FALSE(*mask == FanMask(*moved));
}

} // namespace
} // namespace Kelvaris::US
