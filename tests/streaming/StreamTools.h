#pragma once

#include "Core/Log.h"
#include "Core/Parameter.h"
#include "Lib/FactoryRegistry.h"
#include "Stream/ImageStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <semaphore>
#include <thread>

namespace Kelvaris::Tests {

/// An ultrasound image of one row.
inline std::shared_ptr<SharedImage> row(const std::vector<float>& pixels) {
  auto image = std::make_shared<TypedImage<float>>(static_cast<int>(pixels.size()), 1);
  std::copy(pixels.begin(), pixels.end(), image->pointer());
  return std::make_shared<SharedImage>(image);
}

inline std::shared_ptr<SharedImageSet> setOf(const std::vector<std::shared_ptr<SharedImage>>& images) {
  auto set = std::make_shared<SharedImageSet>();
  set->setModality(Data::Ultrasound);
  for (const auto& image : images)
    set->add(image, 100.0 + set->size());
  return set;
}

inline std::shared_ptr<ImageStreamData> emission(std::shared_ptr<const SharedImageSet> images,
                                                 std::uint64_t timestampDevice = 0) {
  auto data = std::make_shared<ImageStreamData>(std::move(images));
  data->setTimestampDevice(timestampDevice);
  data->setTimestampArrival(timestampDevice + 1);
  return data;
}

/// First pixels of images that make trouble for processImage(), or for the creation of ShowParameters.
constexpr float kNull = -1, kThrow = -2, kThrowNumber = -3, kRefuse = -4;

/// Its result is one row: the value of `first`, that of `second`, the first pixel of the input. Its parameters have no
/// guard of their own.
struct ShowParameters : Algorithm, SequentialImageProcessor {
  explicit ShowParameters(const SharedImageSet* images = nullptr) : input(images) {
    registerParameter(&first);
    registerParameter(&second);
  }
  static bool createCompatible(const DataList& data, Algorithm** algorithm) {
    const auto images = data.getImages(Data::UnknownKind, Data::Ultrasound);
    if (images.size() != 1) return false;
    if (images[0]->get(0).mem()->valueAsDouble(0, 0, 0, 0) == kRefuse) throw std::out_of_range("no events");
    if (algorithm) *algorithm = std::make_unique<ShowParameters>(images[0]).release();
    return true;
  }
  void compute() override {}
  OwningDataList takeOutput() override { return {}; }

  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& image, const DataComponentList& components) const override {
    const auto pixel = static_cast<float>(image.mem()->valueAsDouble(0, 0, 0, 0));
    if (pixel == kNull) return {};
    if (pixel == kThrow) {
      ++thrown;
      throw std::runtime_error("no device memory");
    }
    if (pixel == kThrowNumber) throw 1;
    const auto firstValue = static_cast<float>(first);
    std::this_thread::yield(); // a change between the two reads would show
    return {row({firstValue, static_cast<float>(second), pixel}), components};
  }

  Parameter<int> first{"first", 0}, second{"second", 0};
  inline static std::atomic<std::size_t> thrown = 0; ///< by all of them
  const SharedImageSet* input;                       ///< the example that it was created for
};

/// Works on whole sets alone.
struct Whole : Algorithm {
  static bool createCompatible(const DataList&, Algorithm** algorithm) {
    if (algorithm) *algorithm = std::make_unique<Whole>().release();
    return true;
  }
  void compute() override {}
  OwningDataList takeOutput() override { return {}; }
};

/// A menu entry that takes streams alone, and stands for ShowParameters in their names.
struct ForStreams : Whole {
  static bool createCompatible(const DataList&, Algorithm**) { return false; }
};

struct TestFactory : AlgorithmFactory {
  TestFactory() : AlgorithmFactory("Test") {
    registerAlgorithm<ForStreams>("ForStreams", "Test;Expert;Live");
    registerAlgorithm<ShowParameters>("Show", "Test;Show Parameters");
    registerAlgorithm<Whole>("Whole", "Test;Whole");
    addAlias("Show", "Live");
  }
};

/// Calls a function of the test for every image. Fails the test if it is deleted meanwhile.
struct Callback : ShowParameters {
  explicit Callback(std::function<void(const SharedImage&)> function) : f(std::move(function)) {}
  ~Callback() override { EXPECT_FALSE(working); }
  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& image, const DataComponentList& components) const override {
    working = true;
    f(image);
    working = false;
    return {image.clone(1), components};
  }
  std::function<void(const SharedImage&)> f;
  mutable std::atomic<bool> working = false;
};

/// Emits images as fast as it can, with the timestamps 1, 2, ... One in a hundred makes ShowParameters throw.
class Source : public ImageStream {
public:
  static constexpr std::uint64_t kForever = ~std::uint64_t{0};
  explicit Source(std::uint64_t count = kForever) : ImageStream("source"), m_count(count) {}
  ~Source() override { closeAsync().wait(); }
  bool workerThreadRequiresOpenGl() const override { return false; }
  std::uint64_t emitted() const { return m_emitted; }
  void run() {
    EXPECT_TRUE(openAsync().get());
    EXPECT_TRUE(startAsync().get());
  }

protected:
  Continuation doWork() override {
    const std::uint64_t number = m_emitted + 1;
    dataSignal.emitSignal(emission(setOf({row({number % 100 == 50 ? kThrow : 1.0f})}), number));
    m_emitted = number;
    return number < m_count ? Continuation::now() : Continuation::never();
  }

private:
  std::uint64_t m_count;
  std::atomic<std::uint64_t> m_emitted = 0;
};

/// Has the algorithms above registered, and an input to emit on.
class WithTestAlgorithms : public ::testing::Test {
protected:
  WithTestAlgorithms() { FactoryRegistry::get().add(std::make_unique<TestFactory>(), nullptr, this); }
  ~WithTestAlgorithms() override { FactoryRegistry::get().remove(this); }

  /// One image of one pixel for each.
  void emit(const std::vector<float>& pixels, std::uint64_t timestamp = 0, int modality = Data::Ultrasound) {
    const auto images = setOf({});
    for (const float pixel : pixels)
      images->add(row({pixel}), 100.0 + images->size());
    images->setModality(static_cast<Data::Modality>(modality));
    input.dataSignal.emitSignal(emission(images, timestamp));
  }

  ImageStream input{"probe"};
};

/// Waits for what another thread is about to do.
template <typename Condition> void waitFor(Condition&& condition) {
  while (!condition())
    std::this_thread::yield();
}

/// Calls `end`, which ends a BackgroundThreadQueue, and `release` when that waits for the item in progress.
template <typename End, typename Release> void endQueue(End&& end, Release&& release) {
  std::binary_semaphore waiting(0);
  const int sink = Log::addSink([&](const Log::Entry& entry) {
    if (entry.message == "BackgroundThreadQueue waiting for processing thread to finish.") waiting.release();
  });
  std::thread ender(end);
  waiting.acquire();
  release();
  ender.join();
  Log::removeSink(sink);
}

/// Collects what a stream emits.
class Receiver {
public:
  explicit Receiver(Stream& stream)
      : m_connection(stream.dataSignal.connectBlocking([this](const std::shared_ptr<const StreamData>& data) {
          const std::scoped_lock lock(m_mutex);
          m_received.push_back(std::dynamic_pointer_cast<const ImageStreamData>(data));
        })) {}

  std::vector<std::shared_ptr<const ImageStreamData>> received() const {
    const std::scoped_lock lock(m_mutex);
    return m_received;
  }
  std::size_t count() const { return received().size(); }
  /// The device's timestamp of the last emission; 0 without one.
  std::uint64_t newest() const {
    const std::scoped_lock lock(m_mutex);
    return m_received.empty() ? 0 : m_received.back()->timestampDevice();
  }
  /// The pixels of the last emission's first image.
  std::vector<float> last() const {
    const auto all = received();
    if (all.empty()) return {};
    const auto image = all.back()->images()->get(0).mem();
    const auto* pixels = static_cast<const float*>(image->data());
    return {pixels, pixels + image->width()};
  }

private:
  mutable std::mutex m_mutex;
  std::vector<std::shared_ptr<const ImageStreamData>> m_received;
  BlockingConnection m_connection;
};

} // namespace Kelvaris::Tests
