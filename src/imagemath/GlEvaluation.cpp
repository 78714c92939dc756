#include "imagemath/GlEvaluation.h"

#include "Core/Log.h"
#include "GL/Check.h"
#include "GL/ContextManager.h"
#include "GL/GlImage.h"
#include "imagemath/Array.h"
#include "imagemath/NoiseFunctions.h"
#include "imagemath/ProgramCache.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <set>
#include <type_traits>

namespace Kelvaris::ImageMath::internal {
namespace {

/// How leaves read their textures.
constexpr const char* kReading = R"(
ivec3 extent(sampler2D image) { return ivec3(textureSize(image, 0), 1); }
ivec3 extent(sampler2DArray image) { return textureSize(image, 0); }
vec4 fetch(sampler2D image, ivec3 at) { return texelFetch(image, at.xy, 0); }
vec4 fetch(sampler2DArray image, ivec3 at) { return texelFetch(image, at, 0); }
ivec3 mapped(ivec3 at, ivec3 offset, ivec3 axes) {
  at += offset;
  return ivec3(at[axes.x], at[axes.y], at[axes.z]);
}
#define FOR_SAMPLER(Sampler) \
bool isInside(Sampler image, ivec3 at) { return clamp(at, ivec3(0), extent(image) - 1) == at; } \
vec4 fetchOrEdge(Sampler image, ivec3 at) { return fetch(image, clamp(at, ivec3(0), extent(image) - 1)); } \
vec4 fetchOrBorder(Sampler image, ivec3 at, vec4 border) { return isInside(image, at) ? fetchOrEdge(image, at) : border; }
FOR_SAMPLER(sampler2D)
FOR_SAMPLER(sampler2DArray)
)";

/// What the names in formulas mean: the same as in C++, also for NaN and infinities, about which shaders promise
/// nothing. NaN is told by its bits, since comparisons with it may be optimised away.
constexpr const char* kArithmetic = R"(
bool isNotANumber(float x) { return (floatBitsToUint(x) & 0x7FFFFFFFu) > 0x7F800000u; }
float cMax(float a, float b) { return isNotANumber(a) || isNotANumber(b) ? a : max(a, b); }
float cMin(float a, float b) { return isNotANumber(a) || isNotANumber(b) ? a : min(a, b); }
bool cGreater(float a, float b) { return !isNotANumber(a) && !isNotANumber(b) && a > b; }
float cSqrt(float x) {
  uint bits = floatBitsToUint(x);
  if ((bits & 0x7FFFFFFFu) == 0u || bits >= 0x7F800000u && bits <= 0x80000000u || isNotANumber(x)) return x;
  return x < 0.0 ? uintBitsToFloat(0x7FC00000u) : sqrt(x);
}
float cLog(float x) {
  uint bits = floatBitsToUint(x);
  if (isNotANumber(x) || bits == 0x7F800000u) return x;
  if ((bits & 0x7FFFFFFFu) == 0u) return uintBitsToFloat(0xFF800000u);
  if (bits > 0x7F800000u) return uintBitsToFloat(0x7FC00000u);
  if (bits < 0x00800000u) return logOfNormal(float(bits)) - 103.27893;
  return logOfNormal(x);
}
float roundedHalfAway(float x, float lowest, float highest) {
  if (isNotANumber(x)) return 0.0;
  float whole = floor(abs(x));
  if (abs(x) - whole >= 0.5) whole += 1.0;
  return clamp(x < 0.0 ? -whole : whole, lowest, highest);
}
vec4 toTexel(bool value) { return vec4(value); }
vec4 toTexel(float value) { return vec4(value); }
vec4 toTexel(bvec2 value) { return vec4(value, 0.0, 0.0); }
vec4 toTexel(bvec3 value) { return vec4(value, 0.0); }
vec4 toTexel(bvec4 value) { return vec4(value); }
vec4 toTexel(vec2 value) { return vec4(value, 0.0, 0.0); }
vec4 toTexel(vec3 value) { return vec4(value, 0.0); }
vec4 toTexel(vec4 value) { return value; }
)";

constexpr const char* kNames = R"(
#define max cMax
#define min cMin
#define greaterThan cGreater
#define sqrt cSqrt
#define log cLog
ivec3 pixel;
)";

/// "vec3(f(a.r), f(a.g), f(a.b))" for each component of the result.
std::string perComponent(const std::string& type, int channels, const std::string& function, bool isBinary) {
  std::string text = type + "(";
  for (int c = 0; c < channels; ++c) {
    const char component = "rgba"[c];
    text += fmt::format("{}{}(a.{}", c == 0 ? "" : ", ", function, component);
    text += isBinary ? fmt::format(", b.{})", component) : ")";
  }
  return text + ")";
}

/// The functions of kArithmetic for vectors, and for vectors with numbers.
std::string vectorArithmetic() {
  std::string text;
  for (int channels = 2; channels <= 4; ++channels) {
    const std::string vec = glType(channels);
    for (const char* function : {"cMax", "cMin", "cGreater"}) {
      const std::string result = (function == std::string("cGreater") ? "b" : "") + vec;
      text += fmt::format("{0} {1}({2} a, {2} b) {{ return {3}; }}\n"
                          "{0} {1}({2} a, float b) {{ return {1}(a, {2}(b)); }}\n"
                          "{0} {1}(float a, {2} b) {{ return {1}({2}(a), b); }}\n",
                          result, function, vec, perComponent(result, channels, function, true));
    }
    for (const char* function : {"cSqrt", "cLog"})
      text += fmt::format("{0} {1}({0} a) {{ return {2}; }}\n", vec, function,
                          perComponent(vec, channels, function, false));
  }
  return text;
}

struct IntegerRange {
  bool isInteger = false;
  float lowest = 0.0f;
  float highest = 0.0f;
};

IntegerRange integerRange(int pixelType) {
  IntegerRange range;
  dispatchPixelType(pixelType, [&]<typename T>() {
    if constexpr (std::is_integral_v<T>)
      range = {true, static_cast<float>(std::numeric_limits<T>::lowest()),
               static_cast<float>(std::numeric_limits<T>::max())};
  });
  return range;
}

bool isScaled(const ImageDescriptor& target, bool raw) {
  return !raw && (target.scale() != 1.0 || target.shift() != 0.0);
}

void collectImages(const GlExprInterface& expr, std::set<const void*>& images) {
  if (const auto* array = dynamic_cast<const ArrayGl*>(&expr)) images.insert(array->image());
  for (const GlExprInterface* child : expr.children())
    collectImages(*child, images);
}

/// Keeps a program in use.
class Enabled {
public:
  explicit Enabled(GL::Program& program) : m_program(program) { program.enable(); }
  ~Enabled() {
    try {
      m_program.disable();
    } catch (const GL::Error& error) {
      Log::warning("ImageMath", "A shader can't be disabled: {}", error.what());
    }
  }
  Enabled(const Enabled&) = delete;
  Enabled& operator=(const Enabled&) = delete;

private:
  GL::Program& m_program;
};

} // namespace

std::string shaderText(const GlExprInterface& expr, const ImageDescriptor& target, bool raw) {
  GlNames names;
  expr.tagAndAssignNames("u_", names);
  std::string text = "#version 450 core\nuniform int u_slice;\nlayout(location = 0) out vec4 result;\n";
  text += kReading;
  text += NoiseFunctions::glText();
  expr.getUniformDefinitionList(text);
  text += kArithmetic + vectorArithmetic() + kNames;
  expr.getVariableDefinitionList(text);
  text += fmt::format("uniform float u_targetShift;\nuniform float u_targetScale;\n"
                      "uniform float u_targetLowest;\nuniform float u_targetHighest;\n"
                      "void main() {{\n  pixel = ivec3(ivec2(gl_FragCoord.xy), u_slice);\n"
                      "  vec4 value = toTexel({});\n",
                      expr.evalString(false));
  if (isScaled(target, raw)) text += "  value = (value + u_targetShift) * u_targetScale;\n";
  if (integerRange(target.pixelType()).isInteger)
    for (const char component : std::string("rgba").substr(0, static_cast<std::size_t>(target.channels())))
      text += fmt::format("  value.{0} = roundedHalfAway(value.{0}, u_targetLowest, u_targetHighest);\n", component);
  return text + "  result = value;\n}\n";
}

bool evaluateGl(const GlExprInterface& expr, SharedImage& target, bool raw) {
  const ImageDescriptor& descriptor = target.descriptor();
  try {
    const GL::ContextManager::ActivationGuard guard;
    std::set<const void*> images;
    collectImages(expr, images);
    if (images.size() > kMaxGlInputs) return false;

    const ProgramCache::Lease lease = ProgramCache::shared().get(shaderText(expr, descriptor, raw));
    GL::ImageProgram* const program = lease.get();
    if (!program) return false;
    // A texture can't be read while it is written.
    const bool isNew = !target.hasForm(ImageForm::Gl) || images.contains(&target);
    const auto texture = isNew ? std::make_shared<GlImage>(descriptor) : target.sharedCustom<GlImage>();
    {
      const Enabled enabled(*program);
      expr.setArguments(*program);
      program->setUniform("u_targetShift", static_cast<float>(descriptor.shift()));
      program->setUniform("u_targetScale", static_cast<float>(descriptor.scale()));
      const IntegerRange range = integerRange(descriptor.pixelType());
      program->setUniform("u_targetLowest", range.lowest);
      program->setUniform("u_targetHighest", range.highest);
      program->compute(*texture);
    }
    GL::finish(); // the next to use the program, or the image, may do so in another context
    if (isNew)
      target.assign(texture);
    else
      target.setDirtyGl();
    return true;
  } catch (const GL::Error& error) {
    Log::debug("ImageMath", "An expression for an image of {} is evaluated in main memory: {}", descriptor.toString(),
               error.what());
    return false;
  }
}

} // namespace Kelvaris::ImageMath::internal
