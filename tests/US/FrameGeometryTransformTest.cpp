#include "GL/AbstractInclude.h"
#include "GL/GlImage.h"
#include "GL/ImageProgram.h"
#include "GL/RequireGL.h"
#include "US/GeometryCases.h"
#include "support/Samples.h"

#include <random>

namespace Kelvaris::US {
namespace {

constexpr int kSize = 64;

/// Both conversions of the points of an image, under two prefixes, so that names that lack theirs would clash.
const char* const kText = R"(#version 450 core
uniform sampler2D u_points;
uniform int u_direction;
layout(location = 0) out vec4 result;
#abstract_include first
#abstract_include second
void main() {
  vec2 p = texelFetch(u_points, ivec2(gl_FragCoord.xy), 0).rg;
  result.rg = u_direction == 0 ? firstToPhysical(p) : secondToNormalized(p);
}
)";

/// What the geometry's shader makes of the points, an image with two components.
std::unique_ptr<MemImage> converted(const FrameGeometry& geometry, const MemImage& points,
                                    FrameGeometry::Direction direction) {
  const auto program = GL::ImageProgram::createFromText("convert", kText, {}, GL::CompilationMode::Deferred);
  const std::unique_ptr<GL::AbstractInclude> include = geometry.transformInclude();
  const GlImage input(points), output(points.descriptor());
  program->enable();
  program->addAbstractIncludeDefinition(*include, "first");
  EXPECT_TRUE(program->addAbstractIncludeDefinition(*include, "second"));
  for (const char* name : {"first", "second"})
    include->setArguments(*program, name);
  program->setUniform("u_direction", static_cast<int>(direction));
  program->bindTexture("u_points", input);
  program->compute(output);
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
    const double error = Kelvaris::Tests::worstError(*result, [&](int x, int y, int, int component) {
      return geometry.convertPoint(at(*points, x, y), direction)[component];
    });
    EXPECT_LT(error, tolerance) << direction;
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
