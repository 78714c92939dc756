#include "Stream/StreamAlgorithmExecutor.h"

#include "streaming/StreamTools.h"
#include "support/ExpectedLog.h"

#include <atomic>
#include <latch>
#include <semaphore>
#include <thread>

namespace Kelvaris {
namespace {

using namespace Tests;

using StreamAlgorithmExecutorTest = WithTestAlgorithms;

TEST_F(StreamAlgorithmExecutorTest, WorksOnTheFirstImageOrOnEveryOneThatCanBeProcessed) {
  input.setKind(Data::VolumeStreamKind);
  StreamAlgorithmExecutor executor(input, std::make_unique<ShowParameters>());
  EXPECT_TRUE(dynamic_cast<const ShowParameters&>(*executor.streamAlgorithm()).isSequentialMode());
  EXPECT_EQ(executor.stream()->kind(), Data::VolumeStreamKind) << "nothing else is known yet";
  const Receiver receiver(*executor.stream());
  emit({1, kNull, 3});
  EXPECT_EQ(executor.stream()->kind(), Data::ImageStreamKind) << "that of what it emits";
  executor.mode = StreamAlgorithmExecutor::EveryImage;
  const Tests::ExpectedLog log;
  emit({1, kNull, kThrow, 3}, 4);
  EXPECT_EQ(log.messages(), std::vector<std::string>{"4 StreamAlgorithmExecutor: An image of the stream \"probe\" is "
                                                     "dropped: no device memory"});
  emit({kNull}); // nothing comes of it
  input.dataSignal.emitSignal(std::make_shared<StreamData>());
  const auto received = receiver.received();
  ASSERT_EQ(received.size(), 2u);
  EXPECT_EQ(received[0]->images()->size(), 1);
  ASSERT_EQ(received[1]->images()->size(), 2) << "without the refused and the failed one";
  EXPECT_EQ(received[1]->images()->timestamp(1), 103.0);
  EXPECT_EQ(received[1]->images()->modality(), Data::Ultrasound);
  EXPECT_EQ(received[1]->images()->kind(), Data::Images) << "no volumes";
  EXPECT_EQ(received[1]->timestampArrival(), 5u);
  EXPECT_EQ(received[1]->timestampDevice(), 4u);
}

TEST_F(StreamAlgorithmExecutorTest, StartsAtOnceOrWithCompute) {
  StreamAlgorithmExecutor executor(input, std::make_unique<ShowParameters>());
  const Receiver receiver(*executor.stream());
  executor.autoStart = false;
  emit({1});
  EXPECT_EQ(receiver.count(), 0u);
  executor.compute();
  EXPECT_EQ(executor.status(), Algorithm::Success);
  executor.compute();
  emit({1});
  EXPECT_EQ(receiver.count(), 1u) << "listens once only";
}

TEST_F(StreamAlgorithmExecutorTest, CreatesTheAlgorithmOfThatNameThatTakesTheImages) {
  for (const char* name : {"Show Parameters", "Live", "Test.Show"}) {
    StreamAlgorithmExecutor executor(input, nullptr);
    const Receiver receiver(*executor.stream());
    emit({1});
    EXPECT_EQ(executor.streamAlgorithm(), nullptr);
    executor.setStreamAlgorithmName(name);
    emit({1});
    EXPECT_EQ(receiver.count(), 1u) << name;
  }
}

TEST_F(StreamAlgorithmExecutorTest, SettingsOfTheAlgorithmWaitForIt) {
  StreamAlgorithmExecutor executor(input, nullptr);
  int created = 0;
  const auto connection = executor.outputChanged.connect([&] { ++created; });
  const auto configure = [&](int value) {
    Properties settings;
    settings.subProperties("algorithmConfig").setParam("first", value);
    executor.configure(&settings);
  };
  const auto first = [&] {
    int stored = 0;
    Properties settings;
    executor.configuration(&settings);
    settings.subProperties("algorithmConfig").param("first", stored);
    return stored;
  };
  configure(2);
  executor.setStreamAlgorithmName("Show Parameters");
  EXPECT_EQ(first(), 0) << "those were for another one";
  configure(3);
  EXPECT_EQ(first(), 3);
  emit({1});
  emit({1});
  EXPECT_EQ(created, 1);
  EXPECT_EQ(first(), 3);
  configure(4);
  EXPECT_EQ(first(), 4);
}

TEST_F(StreamAlgorithmExecutorTest, SaysOnceWhyThereIsNoAlgorithmAndGoesOnTrying) {
  const struct {
    std::string name;
    float pixel;
    Data::Modality modality;
    std::string message;
    std::size_t results; ///< once the stream has good images
  } cases[] = {{"Absent", 1, Data::Ultrasound, "Could not create the algorithm \"Absent\" so far: no factory has", 0},
               {"Live", 1, Data::UnknownModality, "\"Live\" so far: it doesn't work on the images of this stream", 1},
               {"Live", kRefuse, Data::Ultrasound, "\"Live\" so far: no events", 1},
               {"Whole", 1, Data::Ultrasound, "The algorithm Whole can't process images one by one", 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    StreamAlgorithmExecutor executor(input, nullptr);
    const Receiver receiver(*executor.stream());
    const Tests::ExpectedLog log;
    for (int i = 0; i < 2; ++i) { // a name that is given anew is worth another message
      executor.setStreamAlgorithmName(c.name);
      for (int emission = 0; emission < 3; ++emission)
        emit({c.pixel}, 0, c.modality);
    }
    EXPECT_EQ(log.messages().size(), 2u);
    EXPECT_TRUE(log.contains(c.message));
    EXPECT_EQ(executor.streamAlgorithmName().empty(), c.name == "Whole");
    EXPECT_EQ(receiver.count(), 0u);
    emit({1});
    EXPECT_EQ(receiver.count(), c.results);
  }
}

TEST_F(StreamAlgorithmExecutorTest, ComputeSaysWhatIsMissing) {
  auto probe = std::make_unique<ImageStream>("phantom");
  StreamAlgorithmExecutor executor(*probe, nullptr);
  const Tests::ExpectedLog log;
  executor.compute();
  EXPECT_EQ(executor.status(), Algorithm::IncompleteInput);
  executor.setStreamAlgorithmName("Show Parameters");
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

TEST(StreamAlgorithmExecutorConcurrencyTest, EndsWhileTheInputEmits) {
  Source input;
  input.run();
  using End = std::function<void(std::unique_ptr<StreamAlgorithmExecutor>&, OwningDataList&)>;
  const End ends[] = {[](auto& executor, auto&) { executor.reset(); }, [](auto&, auto& output) { output = {}; },
                      [](auto& executor, auto&) { executor->autoStart = false; }};
  for (const End& end : ends)
    for (int repetition = 0; repetition < 10; ++repetition) {
      SCOPED_TRACE(&end - ends);
      std::binary_semaphore atWork(0);
      std::atomic<bool> over = false;
      auto executor =
          std::make_unique<StreamAlgorithmExecutor>(input, std::make_unique<Callback>([&](const SharedImage&) {
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
      end(executor, output);
      over = true;
      EXPECT_TRUE(!executor || (executor->stream() != nullptr) == (output.size() == 1));
    }
}

TEST(StreamAlgorithmExecutorConcurrencyTest, SettingsDontWaitForTheImageInWork) {
  Source input;
  std::latch atWork(1), go(1);
  StreamAlgorithmExecutor executor(input, std::make_unique<Callback>([&](const SharedImage&) {
                                     atWork.count_down();
                                     go.wait();
                                   }));
  input.run();
  atWork.wait();
  executor.mode = StreamAlgorithmExecutor::EveryImage;
  EXPECT_NE(executor.streamAlgorithm(), nullptr);
  executor.setStreamAlgorithmName("Show Parameters");
  go.count_down();
  EXPECT_TRUE(input.closeAsync().get());
}

} // namespace
} // namespace Kelvaris
