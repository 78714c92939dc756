#include "streaming/SingleImageStreamAlgorithmExecutor.h"

#include "CUDA/Device.h"
#include "GL/RequireGL.h"
#include "GL/SlowPicture.h"
#include "streaming/StreamTools.h"
#include "support/ExpectedLog.h"

namespace Kelvaris::US {
namespace {

using namespace Tests;
using Executor = SingleImageStreamAlgorithmExecutor;

const std::string kLog = "4 SingleImageStreamAlgorithmExecutor: ";

struct Note : DataComponent<Note> {
  std::string id() const override { return "Note"; }
  bool operator==(const Note&) const { return true; }
};

class SingleImageStreamAlgorithmExecutorTest : public WithTestAlgorithms {
protected:
  /// Emits, and waits until the executor is through with it.
  void complete(Executor& executor, const std::shared_ptr<const StreamData>& data) {
    input.dataSignal.emitSignal(data);
    executor.waitUntilCompleted();
  }
  void complete(Executor& executor, const std::vector<float>& pixels = {1.0f}) {
    emit(pixels);
    executor.waitUntilCompleted();
  }
};

TEST_F(SingleImageStreamAlgorithmExecutorTest, EmitsTheImageOfThatIndexAsTheInputBroughtIt) {
  for (const bool blocking : {false, true}) {
    std::thread::id thread;
    bool hadContext = false;
    Executor executor(input, std::make_unique<Callback>([&](const SharedImage&) {
                        thread = std::this_thread::get_id();
                        hadContext = GL::ContextManager::hasCurrent();
                      }));
    EXPECT_TRUE(dynamic_cast<const Callback&>(*executor.streamAlgorithm()).isSequentialMode());
    EXPECT_EQ(executor.stream()->kind(), Data::ImageStreamKind);
    const Receiver receiver(*executor.stream());
    executor.forceBlocking = blocking;
    executor.imageIndex = 1;
    const auto images = setOf({row({1.0f}), row({2.0f, 3.0f}), row({4.0f})});
    images->elementwiseComponents().components(1).add<Note>();
    input.dataSignal.emitSignal(emission(images, 77));
    input.dataSignal.emitSignal(std::make_shared<StreamData>()); // nothing comes of these two
    complete(executor, emission(setOf({})));

    ASSERT_EQ(receiver.count(), 1u);
    EXPECT_EQ(receiver.last(), (std::vector<float>{2.0f, 3.0f}));
    const auto received = receiver.received()[0];
    EXPECT_EQ(received->timestampDevice(), 77u);
    EXPECT_EQ(received->timestampArrival(), 78u);
    EXPECT_EQ(received->images()->size(), 1);
    EXPECT_EQ(received->images()->timestamp(0), 101.0);
    EXPECT_NE(received->images()->elementwiseComponents().components(0).get<Note>(), nullptr);
    EXPECT_EQ(executor.stream()->modality(), Data::Ultrasound);
    EXPECT_EQ(executor.stream()->kind(), Data::ImageStreamKind);
    EXPECT_EQ(thread == std::this_thread::get_id(), blocking);
    EXPECT_EQ(hadContext, GL::ContextManager::get().isAvailable());

    images->setVolumetric(true);
    complete(executor, emission(images));
    EXPECT_EQ(executor.stream()->kind(), Data::VolumeStreamKind);
  }
  auto events = setOf({std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(1, 1, 2))});
  events->setVolumetric(true);
  Executor executor(input, std::make_unique<ShowParameters>());
  complete(executor, emission(events));
  EXPECT_EQ(executor.stream()->kind(), Data::ImageStreamKind) << "many events that become one picture are no volume";
}

TEST_F(SingleImageStreamAlgorithmExecutorTest, IsMadeForOneStreamOfKnownKind) {
  ImageStream other("other");
  other.setKind(Data::OtherStreamKind);
  SharedImageSet images;
  for (const DataList& data : {DataList{}, DataList{&input, &input}, DataList{&other}, DataList{&images}})
    EXPECT_FALSE(Executor::createCompatible(data, nullptr));
  Algorithm* made = nullptr;
  EXPECT_TRUE(Executor::createCompatible({&input}, &made));
  const std::unique_ptr<Algorithm> executor(made);
  const Tests::ExpectedLog log;
  executor->compute();
  EXPECT_EQ(executor->status(), Algorithm::IncompleteInput);
  EXPECT_EQ(log.messages(), std::vector<std::string>{kLog + "Algorithm name required to instantiate algorithm!"});
}

TEST_F(SingleImageStreamAlgorithmExecutorTest, CreatesTheAlgorithmFromTheImageThatItWillGet) {
  for (const char* name : {"Show Parameters", "Test.Show"}) {
    Executor executor(input, nullptr);
    const Receiver receiver(*executor.stream());
    int changes = 0;
    executor.outputChanged.connect([&] { ++changes; });
    executor.imageIndex = 1;
    complete(executor, {4, 5, 6});
    EXPECT_EQ(executor.streamAlgorithm(), nullptr);
    EXPECT_EQ(executor.status(), Algorithm::IncompleteInput);
    executor.setStreamAlgorithmName(name);
    executor.compute();
    EXPECT_EQ(executor.status(), Algorithm::Success);
    complete(executor, {4, 5, 6});
    complete(executor, {4, 5, 6});
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(receiver.count(), 2u);
    const auto& algorithm = dynamic_cast<const ShowParameters&>(*executor.streamAlgorithm());
    ASSERT_EQ(algorithm.input->size(), 1);
    EXPECT_EQ(algorithm.input->get(0).mem()->valueAsDouble(0, 0, 0, 0), 5.0);
    EXPECT_TRUE(algorithm.isSequentialMode());
  }
}

TEST_F(SingleImageStreamAlgorithmExecutorTest, SaysOnceWhyThereIsNoAlgorithm) {
  const std::string failed = kLog + "Could not factory-create algorithm ";
  const std::string sequential = kLog + "Algorithm Whole is not capable of processing images sequentially. Implement "
                                        "the SequentialImageProcessor interface.";
  const std::string refused = kLog + "The creation of the algorithm Test.Show failed: no events";
  const struct {
    const char* name;
    float pixel;
    std::vector<std::string> messages;
    bool configureWorks; ///< brings it to life again, as setting a name does
  } cases[] = {{"Absent", 1, {failed + "Absent"}, false},
               {"Test.Show", kRefuse, {refused, failed + "Test.Show"}, false},
               {"Whole", 1, {sequential}, true}};
  for (const auto& c : cases) {
    Executor executor(input, nullptr);
    const Receiver receiver(*executor.stream());
    Properties settings;
    settings.setParam("algorithmName", std::string("Show Parameters"));
    for (int round = 0; round < 2; ++round) {
      executor.setStreamAlgorithmName(c.name);
      const Tests::ExpectedLog log;
      complete(executor, {c.pixel});
      complete(executor, {c.pixel});
      EXPECT_EQ(log.messages(), c.messages);
      EXPECT_EQ(executor.streamAlgorithmName(), "");
      EXPECT_EQ(executor.streamAlgorithm(), nullptr);
      EXPECT_EQ(executor.status(), Algorithm::IncompleteInput);
    }
    executor.configure(&settings);
    complete(executor);
    EXPECT_EQ(receiver.count(), c.configureWorks ? 1u : 0u) << c.name;
    executor.setStreamAlgorithmName("Show Parameters");
    complete(executor);
    EXPECT_EQ(receiver.count(), c.configureWorks ? 2u : 1u) << c.name;
  }
}

TEST_F(SingleImageStreamAlgorithmExecutorTest, AFrameThatFailsIsLostAndTheNextOneWorks) {
  const std::string bounds = " out of bounds for SharedImageSet with 1 images.";
  const struct {
    int index;
    float pixel;
    bool created; ///< already
    std::string message;
  } cases[] = {{0, kNull, true, ""},
               {0, kThrow, true, "A frame is lost: no device memory"},
               {0, kThrowNumber, true, "A frame is lost: unknown exception"},
               {1, 1, true, "Image index 1" + bounds + " No processing will be performed."},
               {-1, 1, true, "Image index -1" + bounds + " No processing will be performed."},
               {1, 1, false, "Image index 1" + bounds}};
  for (const bool blocking : {false, true})
    for (const auto& c : cases) {
      Executor executor(input, nullptr);
      executor.forceBlocking = blocking;
      const Receiver receiver(*executor.stream());
      executor.setStreamAlgorithmName("Test.Show");
      if (c.created) complete(executor);
      const std::size_t before = receiver.count();
      executor.imageIndex = c.index;
      const Tests::ExpectedLog log;
      complete(executor, {c.pixel});
      complete(executor, {c.pixel});
      EXPECT_EQ(log.messages(), std::vector(c.message.empty() ? 0 : 2, kLog + c.message));
      EXPECT_EQ(receiver.count(), before);
      executor.imageIndex = 0;
      complete(executor);
      EXPECT_EQ(receiver.count(), before + 1);
    }
}

TEST_F(SingleImageStreamAlgorithmExecutorTest, AListenerThatThrowsCostsAFrame) {
  Executor executor(input, std::make_unique<ShowParameters>());
  int calls = 0;
  executor.stream()->dataSignal.connect([&](const auto&) {
    if (++calls == 1) throw std::runtime_error("disk is full");
  });
  const Tests::ExpectedLog log;
  complete(executor);
  complete(executor);
  EXPECT_EQ(log.messages(), std::vector{kLog + "A frame is lost: disk is full"});
  EXPECT_EQ(calls, 2);
}

TEST_F(SingleImageStreamAlgorithmExecutorTest, HoldsUpTheEmitterOnlyIfToldTo) {
  std::counting_semaphore<> began(0), mayEnd(0);
  Executor executor(input, std::make_unique<Callback>([&](const SharedImage&) {
                      began.release();
                      mayEnd.acquire();
                    }));
  const Receiver receiver(*executor.stream());
  executor.queueSize = 2;
  emit({1}, 1);
  began.acquire();
  emit({1}, 2);
  emit({1}, 3);
  EXPECT_EQ(receiver.count(), 0u) << "the emitter is through, the algorithm isn't";
  executor.queueSize = 1; // leaves 3 alone, which goes with the end of 1
  mayEnd.release();
  executor.waitUntilCompleted();
  emit({1}, 4);
  mayEnd.release();
  executor.waitUntilCompleted();
  const auto received = receiver.received();
  ASSERT_EQ(received.size(), 2u);
  EXPECT_EQ(received[0]->timestampDevice(), 1u);
  EXPECT_EQ(received[1]->timestampDevice(), 4u);

  executor.forceBlocking = true;
  mayEnd.release();
  emit({1}, 5);
  EXPECT_EQ(receiver.count(), 3u);
}

TEST_F(SingleImageStreamAlgorithmExecutorTest, KeepsSettingsForTheAlgorithmToCome) {
  const auto settingsOf = [](const Executor& executor) {
    Properties settings;
    executor.configuration(&settings);
    return settings;
  };
  Properties settings;
  settings.setParam("queueSize", 3);
  settings.setParam("algorithmName", std::string("Show Parameters"));
  settings.subProperties("algorithmConfig").setParam("first", 7);
  Executor executor(input, nullptr), renamed(input, nullptr);
  executor.configure(&settings);
  EXPECT_EQ(executor.queueSize.value(), 3);
  renamed.configure(&settings);
  renamed.setStreamAlgorithmName("Show Parameters");
  EXPECT_EQ(settingsOf(renamed).findSubProperties("algorithmConfig"), nullptr) << "a new name drops those that wait";

  Executor restored(input, nullptr);
  const Receiver receiver(*restored.stream());
  const Properties stored = settingsOf(executor);
  restored.configure(&stored);
  complete(restored, {2});
  EXPECT_EQ(receiver.last(), (std::vector<float>{7, 0, 2}));

  // With an algorithm at work: what it has, and changes at once, by the name that it was asked for or its own.
  for (const char* own : {"Show Parameters", "Test.Show"}) {
    Executor running(input, nullptr);
    const Receiver runningReceiver(*running.stream());
    running.setStreamAlgorithmName(own);
    complete(running);
    Properties fromRunning = settingsOf(running);
    fromRunning.subProperties("algorithmConfig").setParam("first", 8);
    running.configure(&fromRunning);
    Properties otherName = fromRunning;
    otherName.setParam("algorithmName", std::string("Whole"));
    otherName.subProperties("algorithmConfig").setParam("first", 9);
    running.configure(&otherName); // waits for nothing
    EXPECT_EQ(running.streamAlgorithmName(), "Whole");
    complete(running, {2});
    EXPECT_EQ(runningReceiver.last(), (std::vector<float>{8, 0, 2}));
    EXPECT_EQ(settingsOf(running), fromRunning);
  }
}

TEST_F(SingleImageStreamAlgorithmExecutorTest, GoesOnWithoutOutputOrInput) {
  auto shortLived = std::make_unique<ImageStream>("short-lived");
  int processed = 0;
  Executor executor(*shortLived, std::make_unique<Callback>([&](const SharedImage&) { ++processed; }));
  executor.forceBlocking = true;
  EXPECT_EQ(executor.takeOutput().size(), 1u);
  EXPECT_TRUE(executor.takeOutput().empty());
  EXPECT_EQ(executor.stream(), nullptr);
  executor.setStreamAlgorithmName("Test.Show");
  shortLived->dataSignal.emitSignal(emission(setOf({row({1})})));
  executor.process({1, 2, std::make_shared<Executor::Payload>()}); // no images
  EXPECT_EQ(processed, 0);
  EXPECT_EQ(executor.inputStream(), shortLived.get());
  shortLived.reset();
  EXPECT_EQ(executor.inputStream(), nullptr);
}

TEST_F(SingleImageStreamAlgorithmExecutorTest, TheEndOfTheOutputLetsTheImageInProgressFinishAndNoOther) {
  std::counting_semaphore<> began(0), mayEnd(0);
  int processed = 0;
  Executor executor(input, std::make_unique<Callback>([&](const SharedImage&) {
                      began.release();
                      mayEnd.acquire();
                      ++processed;
                    }));
  OwningDataList output = executor.takeOutput();
  emit({1});
  began.acquire();
  emit({1});
  endQueue([&] { output = {}; }, [&] { mayEnd.release(2); });
  EXPECT_EQ(processed, 1);
  executor.waitUntilCompleted(); // of nothing more to come
  EXPECT_EQ(processed, 1);
}

TEST_F(SingleImageStreamAlgorithmExecutorTest, WaitsForTheEmittersOpenGLWork) {
  KELVARIS_REQUIRE_GL();
  for (const bool blocking : {false, true}) {
    SlowPicture picture;
    bool wasDrawn = false;
    Executor executor(input, std::make_unique<Callback>([&](const SharedImage&) { wasDrawn = picture.isDrawn(); }));
    executor.forceBlocking = blocking;
    const Receiver receiver(*executor.stream());
    const auto pictures = [&] { return emission(setOf({std::make_shared<SharedImage>(picture.texture)})); };
    {
      const auto context = GL::ContextManager::get().createContext();
      picture.draw();
      complete(executor, pictures()); // the end of the context would wait, too
    }
    EXPECT_TRUE(wasDrawn);
    const Tests::ExpectedLog log;
    complete(executor, pictures());
    EXPECT_EQ(log.messages(),
              std::vector<std::string>{
                  "3 SingleImageStreamAlgorithmExecutor: ImageStreamData contains GL images, but the emitting thread "
                  "does not have a GL context. Cannot synchronize GL contexts. Results may be incomplete"});
    ASSERT_EQ(receiver.count(), 2u) << "all the same";
    EXPECT_EQ(receiver.last()[5], SlowPicture::kOffset + 5);
  }
}

TEST_F(SingleImageStreamAlgorithmExecutorTest, BringsImagesToTheGpuIfAskedTo) {
  KELVARIS_REQUIRE_GL();
  const ImageForm form = CUDA::Device::isCuda() ? ImageForm::Device : ImageForm::Gl;
  bool onGpu = false;
  Executor executor(input, std::make_unique<Callback>([&](const SharedImage& image) { onGpu = image.hasForm(form); }));
  const Receiver receiver(*executor.stream());
  for (const bool asked : {false, true}) {
    executor.processOnGpu = asked;
    complete(executor, {3});
    EXPECT_EQ(onGpu, asked);
    EXPECT_EQ(receiver.last(), std::vector<float>{3});
  }
  // A texture has four channels at most.
  const auto five = std::make_shared<SharedImage>(std::make_shared<TypedImage<float>>(1, 1, 1, 5));
  complete(executor, emission(setOf({five})));
  EXPECT_EQ(receiver.count(), 3u);
}

} // namespace
} // namespace Kelvaris::US
