#include "BothEvaluators.h"

#include "Lib/IntensityMask.h"
#include "support/ErrorOf.h"

#include <omp.h>
#include <thread>

namespace Kelvaris::ImageMath {
namespace {

/// Notes which threads ask it for values and how often. Known to main memory alone.
class Witness : public ExprBaseTpl<Witness> {
public:
  struct Record {
    std::mutex mutex;
    std::map<int, std::set<std::thread::id>> threadsOfSlice;
    long long pixels = 0;
  };
  using ValueType = double;
  static constexpr bool hasLog = false;

  Witness(const ImageDescriptor& shape, Record& record) : m_shape(shape), m_record(&record) {}
  ImageDescriptor imgDesc() const override { return m_shape; }
  int numImgs() const override { return 1; }
  int deviceStrategy() const override { return 0; }
  std::vector<const ExprInterface*> children() const override { return {}; }
  internal::GlExpr glExpr() const { return nullptr; }

  class Evaluator {
  public:
    Evaluator(const Witness& node, const internal::EvaluationContext&) : m_record(*node.m_record) {}
    void load(const internal::Block& block, int) {
      const std::scoped_lock lock(m_record.mutex);
      m_record.threadsOfSlice[block.slice].insert(std::this_thread::get_id());
      m_record.pixels += block.count;
    }
    double operator[](int i) const { return i; }
    double exact(int i) const { return i; }

  private:
    Record& m_record;
  };

private:
  ImageDescriptor m_shape;
  Record* m_record;
};

TEST(Evaluation, UsesAllThreadsFromNineSlicesOn) {
  const int before = omp_get_max_threads();
  omp_set_num_threads(3);
  for (const int slices : {8, 9}) {
    Witness::Record record;
    Witness(ImageDescriptor(PixelFloat, 40, 30, slices), record).evaluateIntoImage<float>(false);
    EXPECT_EQ(record.pixels, 40 * 30 * slices);
    EXPECT_EQ(record.threadsOfSlice.size(), static_cast<std::size_t>(slices));
    std::set<std::thread::id> all;
    for (const auto& [slice, threads] : record.threadsOfSlice) {
      EXPECT_EQ(threads.size(), 1u) << "slice " << slice;
      all.insert(threads.begin(), threads.end());
    }
    EXPECT_EQ(all.size(), slices < 9 ? 1u : 3u) << slices;
  }
  omp_set_num_threads(before);
}

/// Pixels that lie elsewhere. Notes which thread brings them to main memory.
struct RemoteImage : Image {
  explicit RemoteImage(const ImageDescriptor& descriptor) : Image(descriptor) {}
  ImageForm imageForm() const override { return ImageForm::Device; }
  std::unique_ptr<MemImage> download() const override {
    thread = std::this_thread::get_id();
    return MemImage::create(descriptor());
  }
  mutable std::thread::id thread;
};

TEST(Evaluation, BringsImagesToMainMemoryOnTheThreadThatAsked) {
  const int before = omp_get_max_threads();
  omp_set_num_threads(3);
  for (int i = 0; i < 50; ++i) {
    const auto remote = std::make_shared<RemoteImage>(ImageDescriptor(PixelFloat, 4, 3, 30));
    const SharedImage image(remote);
    const Array<const SharedImage> x(image);
    DeviceStrategyWrapper(MaskLeaf(x, std::make_shared<IntensityMask>(PixelFloat, 0.5)) * x, 0)
        .evaluateIntoImage<float>(false);
    ASSERT_EQ(remote->thread, std::this_thread::get_id());
  }
  omp_set_num_threads(before);
}

TEST(Evaluation, ComputesWhatIsRepeatedOnceAPixel) {
  const SharedImage image(randomImage(4));
  const Array<const SharedImage> x(image);
  ImageDescriptor shape = image.descriptor();
  shape.setChannels(1);
  const long long pixels = static_cast<long long>(shape.elementCount());
  Witness::Record repeated, stashed;
  (BroadcastChannels(Witness(shape, repeated), 4) * x).evaluateIntoImage<float>(false);
  EXPECT_EQ(repeated.pixels, pixels);
  Stash(Witness(shape, stashed), [&](auto v) { return v * x + v; }).evaluateIntoImage<float>(false);
  EXPECT_EQ(stashed.pixels, pixels);
}

/// Breaks in slice 11. It has no shader, whatever strategy it tells.
struct MemoryMask : Mask {
  explicit MemoryMask(int s = 0) : strategy(s) {}
  int deviceStrategy() const override { return strategy; }
  void evaluate(const MemImage&, int, int, int z, int, unsigned char*) const override {
    if (z == 11) throw std::runtime_error("the mask broke");
  }
  int strategy;
};

TEST(Evaluation, FailuresOfAThreadReachTheCaller) {
  const SharedImage image(imageOf<float>(ImageDescriptor(PixelFloat, 4, 4, 12), [](auto i) { return i; }));
  const Array<const SharedImage> x(image);
  EXPECT_THROW((makeMaskLeaf(x, std::make_shared<MemoryMask>()) + 0).evaluateIntoImage<float>(false),
               std::runtime_error);
}

TEST(Strategy, FollowsPixelTypesChannelsMasksAndInputs) {
  const struct {
    int pixelType, channels, expected;
  } cases[] = {{PixelInt8, 1, 2},   {PixelUInt8, 4, 2}, {PixelInt16, 2, 2}, {PixelUInt16, 3, 2}, {PixelInt32, 1, 0},
               {PixelUInt32, 1, 0}, {PixelFloat, 4, 2}, {PixelFloat, 5, 0}, {PixelDouble, 1, 0}, {PixelHalf, 1, 2}};
  for (const auto& c : cases) {
    const SharedImage image(ImageDescriptor(c.pixelType, 2, 2, 1, c.channels));
    const Array<const SharedImage> x(image);
    EXPECT_EQ(x.deviceStrategy(), c.expected) << image.descriptor().toString();
    EXPECT_EQ(abs(x + 1).deviceStrategy(), c.expected);
    EXPECT_EQ(DeviceStrategyWrapper(x, 5).deviceStrategy(), c.expected) << "at most 2";
    EXPECT_EQ(DeviceStrategyWrapper(x, 1).deviceStrategy(), std::min(c.expected, 1));
    EXPECT_EQ((x * DeviceStrategyWrapper(x, 0)).deviceStrategy(), 0);
    EXPECT_EQ(makeMaskLeaf(x, std::make_shared<IntensityMask>(c.pixelType, 1)).deviceStrategy(), c.expected);
  }
  const SharedImage image(ImageDescriptor(PixelFloat, 2, 2));
  const Array<const SharedImage> x(image);
  for (const int strategy : {0, 2})
    EXPECT_EQ(makeMaskLeaf(x, std::make_shared<MemoryMask>(strategy)).deviceStrategy(), 0);
  EXPECT_EQ(Scalar<double>(1).deviceStrategy(), 2);
  EXPECT_EQ(BroadcastChannels(x, 4).deviceStrategy(), 2);
  EXPECT_EQ(BroadcastChannels(x, 5).deviceStrategy(), 0);
}

template <std::size_t count> auto sumOf(const std::vector<std::unique_ptr<SharedImage>>& images) {
  const Array<const SharedImage> last(*images[count - 1]);
  if constexpr (count == 1)
    return last;
  else
    return sumOf<count - 1>(images) + last;
}

TEST_P(BothEvaluators, ManyInputsAreReadWhileTheyLast) {
  std::vector<std::unique_ptr<SharedImage>> images;
  for (int i = 0; i < 17; ++i)
    images.push_back(std::make_unique<SharedImage>(
        imageOf<float>(ImageDescriptor(PixelFloat, 3, 2), [&](std::size_t at) { return 1 << i << at; })));
  EXPECT_EQ(sumOf<16>(images).deviceStrategy(), 2);
  EXPECT_EQ(sumOf<17>(images).deviceStrategy(), 0);
  EXPECT_EQ((sumOf<16>(images) + sumOf<16>(images)).deviceStrategy(), 2) << "the same ones";
  check("sixteen", sumOf<16>(images), [](int x, int y, int, int) { return 0xFFFF << (x + 3 * y); });
  check("seventeen", sumOf<17>(images), [](int x, int y, int, int) { return 0x1FFFF << (x + 3 * y); });
}
KELVARIS_BOTH_EVALUATORS(BothEvaluators);

TEST(Expression, RefusesBadShapesInWords) {
  const auto image = [](int width, int channels) {
    return std::make_unique<SharedImage>(
        imageOf<float>(ImageDescriptor(PixelFloat, width, 2, 1, channels), [](auto i) { return i; }));
  };
  const auto two = image(3, 2), three = image(3, 3), wide = image(4, 2),
             empty = std::make_unique<SharedImage>(ImageDescriptor(PixelFloat, 3, 2, 1, 2));
  const Array<const SharedImage> x(*two), y(*three), w(*wide), e(*empty);
  const auto evaluated = [](const auto& expr) { return [&] { expr.template evaluateIntoImage<float>(false); }; };
  Array<SharedImage> target(*two);
  const auto error = [](const auto& action) { return Tests::errorOf(action); };
  EXPECT_EQ(error([&] { makeMaskLeaf(x); }), "No mask provided!");
  EXPECT_EQ(error([&] { makeMaskLeaf(x, nullptr); }), "No mask provided!");
  EXPECT_CONTAINS(error(evaluated(x + y)), "Images of 2 and 3 channels can't be combined");
  EXPECT_CONTAINS(error(evaluated(x + w)), "An image of float, 3 x 2 x 1, 2 channels can't be read pixel by pixel");
  EXPECT_CONTAINS(error([&] { target = y * 2; }), "An expression of 3 channels can't be assigned to an image of float");
  EXPECT_CONTAINS(error([&] { BroadcastChannels(x, 2); }), "2 channels can't be repeated to 2 channels");
  EXPECT_CONTAINS(error(evaluated(e + 1)), "has no pixels");
  EXPECT_CONTAINS(error(evaluated(Scalar<float>(1) + 1)), "An expression of numbers alone");
}

TEST(Expression, ShapesCombine) {
  ImageDescriptor small(PixelInt16, 1, 5, 1, 2), large(PixelInt16, 7, 5, 2), other(PixelUInt8, 7, 1, 1);
  large.setSpacing({0.1, 0.2, 0.3});
  large.setScale(4.0);
  const auto combine = [](const std::vector<ImageDescriptor>& shapes, bool normalize = false) {
    return internal::combineImageDescriptors(shapes, normalize, std::nullopt);
  };
  const ImageDescriptor both = combine({{}, small, large});
  EXPECT_EQ(both.dimensions(), Eigen::Vector3i(7, 5, 2));
  EXPECT_EQ(both.channels(), 2);
  EXPECT_EQ(both.pixelType(), PixelInt16);
  EXPECT_EQ(both.spacing(), large.spacing()) << "of the one that has the whole extent";
  EXPECT_EQ(both.scale(), 4.0);
  EXPECT_EQ(combine({small, large}, true).scale(), 1.0);
  EXPECT_EQ(combine({small, other}).pixelType(), PixelFloat);
  EXPECT_EQ(combine({small, ImageDescriptor(PixelInt32, 1, 1)}).pixelType(), PixelDouble);
  EXPECT_EQ(internal::combineImageDescriptors({small}, false, PixelUInt8).pixelType(), PixelUInt8);
  EXPECT_FALSE(combine({{}, {}}).isValid());
}

} // namespace
} // namespace Kelvaris::ImageMath
