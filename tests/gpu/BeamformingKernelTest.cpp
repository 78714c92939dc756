#include "gpu/BeamformingScenes.h"
#include "gpu/KernelLauncher.h"
#include "support/DeviceTest.h"
#include "support/Samples.h"

#include <fmt/format.h>

#include <sys/mman.h>

namespace Kelvaris::Tests {
namespace {

using CUDA::CpuVariant;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float inf = std::numeric_limits<float>::infinity();

/// The instruction sets of this processor; one stands for all where a CUDA device runs the kernel.
std::vector<CpuVariant> variants() {
  std::vector<CpuVariant> result;
  for (const auto v : {CpuVariant::V2, CpuVariant::V3, CpuVariant::V4})
    if (CUDA::isSupported(v) && (result.empty() || !CUDA::Device::isCuda())) result.push_back(v);
  return result;
}

bool isNan(std::complex<double> v) {
  return std::isnan(v.real()) || std::isnan(v.imag());
}

struct Comparison {
  double relativeL2 = 0;
  double largest = 0;                        ///< largest difference of a component
  int compared = 0, doubtful = 0, wrong = 0; ///< pixels; wrong: valid, invalid or left alone where they must not be
};

/// Compares kernel pixels with the reference, leaving doubtful ones aside.
template <typename T> Comparison compare(const std::vector<T>& pixels, const std::vector<BeamformedPixel>& reference) {
  Comparison c;
  double difference = 0, total = 0;
  for (std::size_t i = 0; i < pixels.size(); ++i) {
    const std::complex<double> v = toComplex<T>(pixels[i]);
    std::complex<double> r = reference[i].value;
    if (!isComplex<T>) r = r.real();
    if (!reference[i].isWritten) {
      c.wrong += v.real() != 77.0;
    } else if (reference[i].isDoubtful) {
      ++c.doubtful;
    } else if (isNan(v) || !reference[i].isValid) {
      c.wrong += isNan(v) == reference[i].isValid;
    } else {
      ++c.compared;
      difference += std::norm(v - r);
      total += std::norm(r);
      c.largest = std::max({c.largest, std::abs(v.real() - r.real()), std::abs(v.imag() - r.imag())});
    }
  }
  c.relativeL2 = total > 0 ? std::sqrt(difference / total) : std::sqrt(difference);
  return c;
}

template <typename T> class BeamformingKernel : public DeviceTest<> {};
using SampleTypes = ::testing::Types<short, float, short2, float2>;
TYPED_TEST_SUITE(BeamformingKernel, SampleTypes);

constexpr std::array<std::array<int, 3>, 6> axisOrders{
    {{0, 1, 2}, {1, 0, 2}, {2, 1, 0}, {0, 2, 1}, {1, 2, 0}, {2, 0, 1}}};

// All windows and debug outputs, all orders of the axes, all workmodes: against double precision for the values, and
// against single precision in the stated order for the bits of the apertures.
template <typename T> void expectAgreement(ArrayShape shape, Wave wave, int type) {
  const auto order = static_cast<std::size_t>((type + 2 * static_cast<int>(wave) + 3 * static_cast<int>(shape)) % 6);
  const auto workmode = static_cast<Workmode>((type + static_cast<int>(wave)) % 3);
  const bool isDebug = type >= 3 && type <= 5;
  BeamformingScene scene = makeScene({.shape = shape, .wave = wave, .seed = static_cast<unsigned>(type + 1)});
  scene.axes = axisOrders[order];
  scene.type = static_cast<BeamformerType>(type);
  scene.workmode = workmode;
  scene.slices = workmode == Workmode::PerEvent ? 4 : 1; // one slice more than there are events
  scene.fNumber = type == 1 ? 0.7f : 1.3f;
  scene.scaling = isDebug ? 1.0f : 0.75f;
  quantise<T>(scene);
  const auto exact = delayAndSum<double>(scene);
  const auto single = delayAndSum<float>(scene);
  for (const CpuVariant variant : variants()) {
    SCOPED_TRACE(fmt::format("array {}, wave {}, type {}, x86-64-v{}", static_cast<int>(shape), static_cast<int>(wave),
                             type, static_cast<int>(variant)));
    const auto pixels = runKernel<T>(scene, variant);
    const Comparison toDouble = compare(pixels, exact), toSingle = compare(pixels, single);
    EXPECT_EQ(toDouble.wrong, 0);
    EXPECT_EQ(toSingle.wrong, 0);
    EXPECT_GT(toDouble.compared, 50);
    EXPECT_LT(toDouble.doubtful, toDouble.compared / 10);
    if (isDebug)
      EXPECT_EQ(toSingle.largest, 0.0) << "apertures differ";
    else if (isShort<T>)
      EXPECT_LE(toDouble.largest, 2.0);
    else
      EXPECT_LE(toDouble.relativeL2, isComplex<T> ? 1e-3 : 2e-4);
    EXPECT_LE(toSingle.relativeL2, isShort<T> ? 1.0 : 1e-6);
    EXPECT_LE(toSingle.largest, isShort<T> ? 1.0 : 1e-2); // shorts: a half may round the other way
  }
}

TYPED_TEST(BeamformingKernel, AgreesWithDoubleAndSinglePrecision) {
  for (const ArrayShape shape : {ArrayShape::Linear, ArrayShape::Convex})
    for (const Wave wave : {Wave::Focused, Wave::Plane, Wave::Diverging})
      for (int type = 0; type <= 6; ++type)
        expectAgreement<TypeParam>(shape, wave, type);
}

// So many pixels that the channel data are worth reordering, in layouts with and without the samples side by side.
TYPED_TEST(BeamformingKernel, LargeImagesAreThoseOfSinglePixels) {
  BeamformingScene scene =
      makeScene({.wave = Wave::Diverging, .numElements = 16, .numSamples = 171, .width = 70, .height = 83});
  quantise<TypeParam>(scene);
  const auto single = delayAndSum<float>(scene);
  for (const std::size_t order : {0u, 1u, 2u})
    for (const CpuVariant variant : variants()) {
      scene.axes = axisOrders[order];
      const Comparison c = compare(runKernel<TypeParam>(scene, variant), single);
      EXPECT_EQ(c.wrong, 0);
      EXPECT_GT(c.compared, 1000);
      EXPECT_LE(c.largest, isShort<TypeParam> ? 1.0 : 1e-2);
    }
}

// One event on an array of 8 elements at x = -1.05 ... 1.05, one pixel, samples of constant 100 unless the case says
// otherwise.
class BeamformingPixel : public DeviceTest<> {
protected:
  static BeamformingScene onePixel() {
    BeamformingScene scene = makeScene({.numElements = 8, .numEvents = 1, .numSamples = 200, .width = 1, .height = 1});
    std::fill(scene.samples.begin(), scene.samples.end(), 100.0f);
    scene.positions = {{0.15f, 5.0f}};
    scene.events[0].startTime = 0;
    return scene;
  }
  /// The pixel of each instruction set, which must all be equal, NaN included.
  template <typename T> static std::complex<double> pixel(BeamformingScene scene) {
    quantise<T>(scene);
    std::complex<double> result;
    bool first = true;
    for (const CpuVariant variant : variants()) {
      const auto value = toComplex<T>(runKernel<T>(scene, variant)[0]);
      EXPECT_TRUE(first || value == result || (isNan(value) && isNan(result))) << "variants differ";
      result = value;
      first = false;
    }
    return result;
  }
  static double real(const BeamformingScene& scene) { return pixel<float>(scene).real(); }
};

void setAperture(BeamformingScene& scene, int first, int last) {
  scene.events[0].apertureFirst = first;
  scene.events[0].apertureLast = last;
}

TEST_F(BeamformingPixel, EdgeCases) {
  using Change = void (*)(BeamformingScene&);
  const float2 below = {0.15f, 5};
  const std::array<double, 4> nothing = {nan, nan, nan, nan};
  const Change noAperture = [](BeamformingScene& s) { setAperture(s, 3, 2); };
  const Change halfPitches = [](BeamformingScene& s) { s.pitch = 0.5f, s.elements[4] = {0, 0, 0}; };
  const Change unknownWave = [](BeamformingScene& s) { s.events[0].eventType = 3; };
  const Change oneSample = [](BeamformingScene& s) { s.numSamples = 1; };
  const Change invalidChannel = [](BeamformingScene& s) {
    for (int k = 0; k < s.numSamples; ++k)
      s.sample(s.elementToChannel[2], k, 0) = nan;
  };
  const struct {
    float fNumber; ///< 50: one element
    float2 position;
    std::array<double, 4> expected; ///< unweighted sum, aperture size, start, end; NaN is invalid
    const char* what;
    Change change = nullptr;
  } cases[] = {
      {0, below, {800, 8, 0, 7}, "F-number 0 is the whole receive aperture"},
      {50, below, nothing, "an empty receive aperture has no value, debug outputs included", noAperture},
      {1, {-1.05f, 0}, {100, 1, 1, 1}, "the first element is never the centre, even for a pixel on it"},
      {50, {0.15f, 0}, {100, 1, 4, 4}, "a pixel on an element has that element"},
      {50, {0, 0.3f}, {100, 1, 3, 3}, "a tie goes to the lower index"},
      {1, {0, 0.75f}, {300, 3, 3, 5}, "width 2 from 1.5 pitches on: halves round away from zero", halfPitches},
      {1, {1.05f, 1.2f}, {300, 3, 5, 7}, "an aperture at the edge is clipped, not shifted"},
      {-0.5f, below, nothing, "a negative width of one element or more leaves nothing"},
      {nan, below, {100, 1, 4, 4}, "F-number NaN gives width 0"},
      {50, {nan, nan}, {nan, 1, 0, 0}, "a NaN position takes the first element and has no value"},
      {0, below, {nan, 8, 0, 7}, "an unknown kind of wave has no value, but an aperture", unknownWave},
      {0, below, {700, 8, 0, 7}, "NaN samples are skipped", invalidChannel},
      {50, below, {nan, 1, 4, 4}, "a recording of one sample has no interval", oneSample},
  };
  for (const auto& c : cases)
    for (const std::size_t output : {0u, 1u, 2u, 3u}) {
      BeamformingScene scene = onePixel();
      scene.fNumber = c.fNumber;
      scene.positions = std::vector(1, c.position);
      if (c.change) c.change(scene);
      scene.type = static_cast<BeamformerType>(output == 0 ? 0 : output + 2);
      EXPECT_PRED2(isSame, real(scene), c.expected[output]) << c.what << ", output " << output;
    }
  BeamformingScene oneElement = onePixel();
  setAperture(oneElement, 5, 5);
  for (const auto& [type, expected] : {std::pair(BeamformerType::HammingDas, 8.0), {BeamformerType::TukeyDas, 0.0}}) {
    oneElement.type = type;
    EXPECT_NEAR(real(oneElement), expected, 1e-4) << "not NaN";
  }
}

// A plane wave onto one element straight above the pixel: the echo comes after 2 depth / c, so a depth of c k / (2 fs)
// reads sample k.
TEST_F(BeamformingPixel, InterpolatesBetweenSamplesAndEndsBeforeTheLast) {
  const std::pair<float, double> cases[] = {{0.0f, 0},   {1.0f, 10},  {1.5f, 15},  {6.75f, 67.5},
                                            {7.0f, nan}, {8.0f, nan}, {-0.5f, nan}};
  for (const auto& [index, expected] : cases) {
    BeamformingScene scene = onePixel();
    scene.numSamples = 8;
    for (int k = 0; k < 8; ++k)
      for (int channel = 0; channel < scene.numChannels; ++channel)
        scene.sample(channel, k, 0) = 10.0f * static_cast<float>(k);
    setAperture(scene, 4, 4);
    auto& event = scene.events[0];
    event.waveFiducial = {0, 1, 0};
    event.speedOfSound = 2.0f;
    event.samplingFrequency = 1.0f;
    scene.positions[0] = {scene.elements[4].x, std::abs(index)};
    event.startTime = index < 0 ? 2 * -index : 0;
    EXPECT_PRED2(isSame, real(scene), expected) << index;
  }
}

TEST_F(BeamformingPixel, ShortResultsAreRoundedAwayFromZeroAndClamped) {
  const std::pair<float, double> cases[] = {{0.005f, 1},     {-0.005f, -1},     {0.0049f, 0},
                                            {400.0f, 32767}, {-400.0f, -32767}, {-inf, -32767}};
  for (const auto& [scaling, expected] : cases) {
    BeamformingScene scene = onePixel();
    setAperture(scene, 4, 4); // value 100
    scene.scaling = scaling;
    EXPECT_EQ(pixel<short>(scene).real(), expected) << scaling;
  }
  BeamformingScene scene = onePixel();
  scene.scaling = nan;
  EXPECT_TRUE(std::isnan(pixel<short>(scene).real())) << "NaN is the marker -32768";
  scene.scaling = 1000;
  scene.type = BeamformerType::DebugApertureSize;
  scene.fNumber = 0;
  EXPECT_EQ(pixel<short>(scene).real(), 8000) << "debug outputs are scaled too";
  EXPECT_EQ(pixel<short2>(scene), std::complex<double>(8000, 8000));
}

TEST_F(BeamformingPixel, ComplexProductsFollowTheAnnex) {
  const struct {
    const char* what;
    std::complex<float> sample;
    float pulseFrequency;
    bool isValid;
  } cases[] = {
      {"phase 0 turns nothing", {3, -4}, 0, true},
      {"both parts lost, recovered from the infinite factor", {inf, inf}, 0, true},
      {"an infinite part beside NaN is recovered, too", {nan, -inf}, 1.23e6f, true},
      {"one NaN part is no value", {inf, 1}, 0, false},
      {"nor with an infinite sample: the recovered product has a NaN part", {inf, 1}, inf, false},
  };
  for (const auto& c : cases) {
    BeamformingScene scene = onePixel();
    setAperture(scene, 4, 4);
    scene.events[0].pulseFrequency = c.pulseFrequency;
    std::fill(scene.samples.begin(), scene.samples.end(), c.sample);
    quantise<float2>(scene);
    const auto value = pixel<float2>(scene);
    EXPECT_EQ(isNan(value), !c.isValid) << c.what;
    EXPECT_TRUE(!c.isValid || value == delayAndSum<float>(scene)[0].value) << c.what;
  }
}

// Rows of 32 MiB: samples lie farther apart than 32 bits can address. Only what is touched takes memory.
TEST_F(BeamformingPixel, SamplesMayLieFarApart) {
  if (CUDA::Device::isCuda()) GTEST_SKIP() << "concerns the CPU executor";
  BeamformingScene scene = makeScene({.numElements = 4, .numEvents = 1, .numSamples = 128, .width = 3, .height = 20});
  scene.fNumber = 0;
  scene.axes = {0, 1, 2};
  quantise<float>(scene);
  constexpr std::size_t pitch = 32u << 20;
  const std::size_t size = pitch * static_cast<std::size_t>(scene.numSamples);
  void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) GTEST_SKIP() << "no room for " << size << " bytes of addresses";
  for (int k = 0; k < scene.numSamples; ++k)
    for (int channel = 0; channel < scene.numChannels; ++channel)
      reinterpret_cast<float*>(static_cast<char*>(memory) + static_cast<std::size_t>(k) * pitch)[channel] =
          scene.sample(channel, k, 0).real();
  for (const CpuVariant variant : variants()) {
    const auto near = runKernel<float>(scene, variant);
    const auto far = runKernel<float>(scene, variant, [&](US::GPU::BeamformingArguments& a) {
      a.channelData.data = memory;
      a.channelData.rowPitch = static_cast<std::int64_t>(pitch);
    });
    EXPECT_EQ(std::memcmp(near.data(), far.data(), near.size() * sizeof(float)), 0);
  }
  munmap(memory, size);
}

} // namespace
} // namespace Kelvaris::Tests
