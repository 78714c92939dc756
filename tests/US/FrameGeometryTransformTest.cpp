#include "GL/AbstractInclude.h"
#include "GL/GlImage.h"
#include "GL/Program.h"
#include "GL/RequireGL.h"
#include "US/GeometryCases.h"
#include "support/Samples.h"

#include <gtest/gtest.h>

#include <random>

namespace Kelvaris::US {
namespace {

constexpr int kSize = 64;

/// Both conversions of the points of an image, under two prefixes, so that names that lack theirs would clash.
const char* const kText = R"(#version 450 core
layout(local_size_x = 8, local_size_y = 8) in;
layout(rg32f) readonly uniform image2D u_points;
layout(rg32f) writeonly uniform image2D u_converted;
uniform int u_direction;
#abstract_include first
#abstract_include second
void main() {
  ivec2 pixel = ivec2(gl_GlobalInvocationID.xy);
  vec2 p = imageLoad(u_points, pixel).xy;
  vec2 converted = u_direction == 0 ? firstToPhysical(p) : secondToNormalized(p);
  imageStore(u_converted, pixel, vec4(converted, 0.0, 0.0));
}
)";

/// What the geometry's shader makes of the points, an image of kSize x kSize with two components.
std::unique_ptr<MemImage> converted(const FrameGeometry& geometry, const MemImage& points,
                                    FrameGeometry::Direction direction) {
  const auto program = GL::Program::createComputeFromText("convert", kText, {}, GL::CompilationMode::Deferred);
  const std::unique_ptr<GL::AbstractInclude> include = geometry.transformInclude();
  program->enable();
  program->addAbstractIncludeDefinition(*include, "first");
  EXPECT_TRUE(program->addAbstractIncludeDefinition(*include, "second"));
  for (const char* name : {"first", "second"})
    include->setArguments(*program, name);

  const GlImage input(points);
  const GlImage output(points.descriptor());
  program->setUniform("u_direction", static_cast<int>(direction));
  program->bindImage("u_points", input, GL::ImageAccess::ReadOnly);
  program->bindImage("u_converted", output, GL::ImageAccess::WriteOnly);
  program->dispatchCompute(kSize / 8, kSize / 8, 1);
  program->unbindImages();
  GL::memoryBarrier(GL::kAllBarriers);
  program->disable();
  return output.download();
}

Eigen::Vector2d at(const MemImage& image, int x, int y) {
  return {image.valueAsDouble(x, y, 0, 0), image.valueAsDouble(x, y, 0, 1)};
}

/// An image of the points that `point` gives, one a pixel.
template <typename F> std::shared_ptr<MemImage> pointImage(F&& point) {
  Eigen::Vector2d current;
  const ImageDescriptor descriptor(PixelFloat, kSize, kSize, 1, 2);
  return Kelvaris::Tests::imageOf(descriptor, [&](int, int, int, int channel) {
    if (channel == 0) current = point();
    return current[channel];
  });
}

class FrameGeometryTransform : public testing::TestWithParam<Tests::GeometryCase> {};

INSTANTIATE_TEST_SUITE_P(Cases, FrameGeometryTransform, testing::ValuesIn(Tests::geometryCases()),
                         [](const auto& test) { return test.param.geometry->type() + std::to_string(test.index); });

TEST_P(FrameGeometryTransform, ShaderAgreesWithConvertPoint) {
  KELVARIS_REQUIRE_GL();
  const GL::ContextManager::ActivationGuard guard;
  const FrameGeometry& geometry = *GetParam().geometry;
  const Geometry::AlignedBox bounds = geometry.bounds();
  const double largest = std::max(bounds.min().cwiseAbs().maxCoeff(), bounds.max().cwiseAbs().maxCoeff());
  std::mt19937 random(11);
  std::uniform_real_distribution<double> across(-0.02, 1.02);
  std::uniform_real_distribution<double> down(0.01, 1.02);
  for (const auto direction : {FrameGeometry::NormalizedToPhysical, FrameGeometry::PhysicalToNormalized}) {
    const auto points = pointImage([&]() -> Eigen::Vector2d {
      const Eigen::Vector2d uv(across(random), down(random)); // some just beyond the frame
      return direction == FrameGeometry::NormalizedToPhysical
                 ? uv
                 : geometry.convertPoint(uv, FrameGeometry::NormalizedToPhysical);
    });
    const std::unique_ptr<MemImage> result = converted(geometry, *points, direction);
    // Some roundings to 24 bits, of coordinates as large as the frame's.
    const double tolerance = 1e-6 * (direction == FrameGeometry::NormalizedToPhysical ? largest : 1.0);
    for (int y = 0; y < kSize; ++y)
      for (int x = 0; x < kSize; ++x) {
        const Eigen::Vector2d expected = geometry.convertPoint(at(*points, x, y), direction);
        ASSERT_LT((at(*result, x, y) - expected).norm(), tolerance)
            << at(*points, x, y).transpose() << " became " << at(*result, x, y).transpose() << ", not "
            << expected.transpose();
      }
  }
}

TEST(FrameGeometryShader, HasNoFinitePointWhereThereIsNone) {
  KELVARIS_REQUIRE_GL();
  const GL::ContextManager::ActivationGuard guard;
  for (const auto& [c, direction, point] : Tests::undefinedPoints()) {
    const auto points = pointImage([&] { return point; });
    EXPECT_FALSE(at(*converted(*c.geometry, *points, direction), 3, 5).allFinite()) << c.name << point.transpose();
  }
}

} // namespace
} // namespace Kelvaris::US
