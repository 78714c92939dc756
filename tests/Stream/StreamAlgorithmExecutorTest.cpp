#include "Stream/StreamAlgorithmExecutor.h"

#include "Lib/FactoryRegistry.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <latch>
#include <memory>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Kelvaris {
namespace {

/// An algorithm that takes everything, but can't process images one by one.
struct Whole : Algorithm {
  static bool createCompatible(const DataList&, Algorithm** a) {
    if (a) *a = std::make_unique<Whole>().release();
    return true;
  }
  void compute() override {}
  OwningDataList takeOutput() override { return {}; }
};

/// Hands images through; refuses those that are 2 pixels wide, fails on those of 9, can't be made for those of 8.
struct PassOn : Whole, SequentialImageProcessor {
  static bool createCompatible(const DataList& data, Algorithm** a) {
    const auto images = data.getImages(Data::UnknownKind, Data::Ultrasound);
    if (images.empty()) return false;
    if (images[0]->get(0).descriptor().width() == 8) throw std::out_of_range("no events");
    if (a) *a = std::make_unique<PassOn>().release();
    return true;
  }
  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& image, const DataComponentList& components) const override {
    if (image.descriptor().width() == 2) return {};
    if (image.descriptor().width() == 9) throw std::runtime_error("no device memory");
    return {image.clone(1), components};
  }
};

/// A menu entry that takes streams alone.
struct ForStreams : Whole {
  static bool createCompatible(const DataList&, Algorithm**) { return false; }
};

struct Factory : AlgorithmFactory {
  Factory() : AlgorithmFactory("Test") {
    registerAlgorithm<ForStreams>("ForStreams", "Test;Expert;Live");
    registerAlgorithm<PassOn>("PassOn", "Test;Pass On");
    registerAlgorithm<Whole>("Whole", "Test;Whole");
    addAlias("PassOn", "Live");
  }
};

class StreamAlgorithmExecutorTest : public ::testing::Test {
protected:
  StreamAlgorithmExecutorTest() { FactoryRegistry::get().add(std::make_unique<Factory>(), nullptr, this); }
  ~StreamAlgorithmExecutorTest() override { FactoryRegistry::get().remove(this); }

  void listenTo(const StreamAlgorithmExecutor& executor) {
    m_connection = executor.stream()->dataSignal.connect([this](const std::shared_ptr<const StreamData>& data) {
      received.push_back(std::dynamic_pointer_cast<const ImageStreamData>(data));
    });
  }

  void emit(const std::vector<int>& widths, Data::Modality modality = Data::Ultrasound) {
    auto images = std::make_shared<SharedImageSet>();
    images->setModality(modality);
    for (const int width : widths)
      images->add(std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(width, 1)), 100.0 + width);
    auto data = std::make_shared<ImageStreamData>(images);
    data->setTimestampArrival(5);
    data->setTimestampDevice(4);
    input.dataSignal.emitSignal(data);
  }

  ImageStream input{"probe"};
  std::vector<std::shared_ptr<const ImageStreamData>> received;

private:
  boost::signals2::scoped_connection m_connection;
};

TEST_F(StreamAlgorithmExecutorTest, WorksOnTheFirstImageOrOnEveryOneThatCanBeProcessed) {
  StreamAlgorithmExecutor executor(input, std::make_unique<PassOn>());
  EXPECT_TRUE(dynamic_cast<const PassOn&>(*executor.streamAlgorithm()).isSequentialMode());
  EXPECT_EQ(executor.stream()->kind(), Data::ImageStreamKind);
  listenTo(executor);
  emit({1, 2, 3});
  executor.mode = StreamAlgorithmExecutor::EveryImage;
  const Tests::ExpectedLog log;
  emit({1, 2, 9, 3});
  EXPECT_EQ(log.messages(), std::vector<std::string>{"4 StreamAlgorithmExecutor: An image of the stream \"probe\" is "
                                                     "dropped: no device memory"});
  emit({2}); // nothing comes of it
  input.dataSignal.emitSignal(std::make_shared<StreamData>());
  ASSERT_EQ(received.size(), 2u);
  EXPECT_EQ(received[0]->images()->size(), 1);
  ASSERT_EQ(received[1]->images()->size(), 2) << "without the refused and the failed one";
  EXPECT_EQ(received[1]->images()->timestamp(1), 103.0);
  EXPECT_EQ(received[1]->images()->modality(), Data::Ultrasound);
  EXPECT_EQ(received[1]->timestampArrival(), 5u);
  EXPECT_EQ(received[1]->timestampDevice(), 4u);
}

TEST_F(StreamAlgorithmExecutorTest, StartsAtOnceOrWithCompute) {
  StreamAlgorithmExecutor executor(input, std::make_unique<PassOn>());
  listenTo(executor);
  executor.autoStart = false;
  emit({1});
  EXPECT_TRUE(received.empty());
  executor.compute();
  EXPECT_EQ(executor.status(), Algorithm::Success);
  executor.compute();
  emit({1});
  EXPECT_EQ(received.size(), 1u) << "listens once only";
}

TEST_F(StreamAlgorithmExecutorTest, CreatesTheAlgorithmOfThatNameThatTakesTheImages) {
  for (const char* name : {"Pass On", "Live", "Test.PassOn"}) {
    StreamAlgorithmExecutor executor(input, nullptr);
    received.clear();
    listenTo(executor);
    emit({1});
    EXPECT_EQ(executor.streamAlgorithm(), nullptr);
    executor.setStreamAlgorithmName(name);
    emit({1});
    ASSERT_NE(executor.streamAlgorithm(), nullptr) << name;
    EXPECT_EQ(executor.streamAlgorithm()->factoryInfo().id, "Test.PassOn");
    EXPECT_EQ(received.size(), 1u);
  }
}

TEST_F(StreamAlgorithmExecutorTest, SaysOnceWhyThereIsNoAlgorithmAndGoesOnTrying) {
  const struct {
    const char* name;
    int width;
    Data::Modality modality;
    const char* message;
    const char* nameAfter;
    std::size_t results; ///< once the stream has images of 1 pixel
  } cases[] = {
      {"Absent", 1, Data::Ultrasound,
       "Could not create the algorithm \"Absent\" so far: no factory has one of this name", "Absent", 0},
      {"Pass On", 1, Data::UnknownModality,
       "Could not create the algorithm \"Pass On\" so far: it doesn't work on the images of this stream", "Pass On", 1},
      {"Pass On", 8, Data::Ultrasound, "Could not create the algorithm \"Pass On\" so far: no events", "Pass On", 1},
      {"Whole", 1, Data::Ultrasound, "The algorithm Whole can't process images one by one", "", 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    StreamAlgorithmExecutor executor(input, nullptr);
    received.clear();
    listenTo(executor);
    const Tests::ExpectedLog log;
    for (int i = 0; i < 2; ++i) { // a name that is given anew is worth another message
      executor.setStreamAlgorithmName(c.name);
      for (int emission = 0; emission < 3; ++emission)
        emit({c.width}, c.modality);
    }
    const std::string message = std::string("4 StreamAlgorithmExecutor: ") + c.message;
    EXPECT_EQ(log.messages(), (std::vector<std::string>{message, message}));
    EXPECT_EQ(executor.streamAlgorithmName(), c.nameAfter);
    EXPECT_TRUE(received.empty());
    emit({1});
    EXPECT_EQ(received.size(), c.results);
  }
}

TEST_F(StreamAlgorithmExecutorTest, ComputeSaysWhatIsMissing) {
  auto probe = std::make_unique<ImageStream>("phantom");
  StreamAlgorithmExecutor executor(*probe, nullptr);
  const Tests::ExpectedLog log;
  executor.compute();
  EXPECT_EQ(executor.status(), Algorithm::IncompleteInput);
  executor.setStreamAlgorithmName("Pass On");
  executor.compute();
  EXPECT_EQ(executor.status(), Algorithm::Success);
  probe.reset();
  executor.autoStart = false;
  executor.autoStart = true;
  executor.compute();
  EXPECT_EQ(executor.status(), Algorithm::IncompleteInput);
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{"4 StreamAlgorithmExecutor: Neither an algorithm nor the name of one is given",
                                      "4 StreamAlgorithmExecutor: The input stream \"phantom\" is gone"}));
}

/// Emits images without a pause.
struct Probe : ImageStream {
  Probe() : ImageStream("probe") {}
  ~Probe() override { closeAsync().wait(); }
  bool workerThreadRequiresOpenGl() const override { return false; }
  Continuation doWork() override {
    auto images = std::make_shared<SharedImageSet>();
    images->add(std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(1, 1)));
    dataSignal.emitSignal(std::make_shared<ImageStreamData>(images));
    return Continuation::now();
  }
};

/// Tells when it works, and fails the test if it is deleted meanwhile.
struct Busy : Whole, SequentialImageProcessor {
  explicit Busy(std::function<void()> doIt) : work(std::move(doIt)) {}
  ~Busy() override { EXPECT_FALSE(working); }
  std::pair<std::shared_ptr<SharedImage>, DataComponentList>
  processImage(const SharedImage& image, const DataComponentList& components) const override {
    working = true;
    work();
    working = false;
    return {image.clone(1), components};
  }
  std::function<void()> work;
  mutable std::atomic<bool> working = false;
};

TEST(StreamAlgorithmExecutorConcurrencyTest, EndsWhileTheInputEmits) {
  Probe input;
  input.openAsync();
  input.startAsync();
  const struct {
    const char* what;
    std::function<void(std::unique_ptr<StreamAlgorithmExecutor>&, OwningDataList&)> end;
  } cases[] = {{"executor",
                [](auto& executor, auto& output) {
                  executor.reset();
                  EXPECT_EQ(output.size(), 1u);
                }},
               {"output",
                [](auto& executor, auto& output) {
                  output = {};
                  EXPECT_EQ(executor->stream(), nullptr);
                }},
               {"listening", [](auto& executor, auto&) { executor->autoStart = false; }}};
  for (const auto& c : cases)
    for (int repetition = 0; repetition < 10; ++repetition) {
      SCOPED_TRACE(c.what);
      std::binary_semaphore atWork(0);
      std::atomic<bool> over = false;
      auto executor = std::make_unique<StreamAlgorithmExecutor>(input, std::make_unique<Busy>([&] {
                                                                  EXPECT_FALSE(over);
                                                                  atWork.release();
                                                                  std::this_thread::yield();
                                                                  EXPECT_FALSE(over);
                                                                }));
      OwningDataList output = executor->takeOutput();
      EXPECT_TRUE(executor->takeOutput().empty());
      const boost::signals2::scoped_connection listener =
          executor->stream()->dataSignal.connect([&](const auto&) { EXPECT_FALSE(over); });
      atWork.acquire();
      c.end(executor, output);
      over = true;
    }
}

TEST(StreamAlgorithmExecutorConcurrencyTest, SettingsDontWaitForTheImageInWork) {
  Probe input;
  std::latch atWork(1), go(1);
  StreamAlgorithmExecutor executor(input, std::make_unique<Busy>([&] {
                                     atWork.count_down();
                                     go.wait();
                                   }));
  input.openAsync();
  input.startAsync();
  atWork.wait();
  executor.mode = StreamAlgorithmExecutor::EveryImage;
  EXPECT_NE(executor.streamAlgorithm(), nullptr);
  executor.setStreamAlgorithmName("Pass On");
  go.count_down();
  EXPECT_TRUE(input.closeAsync().get());
}

} // namespace
} // namespace Kelvaris
