// Executors in a chain, with all their threads at work.

#include "streaming/SingleImageStreamAlgorithmExecutor.h"
#include "streaming/StreamTools.h"
#include "support/ExpectedLog.h"

#include <algorithm>
#include <numeric>
#include <random>

namespace Kelvaris::US {
namespace {

using namespace Tests;
using Executor = SingleImageStreamAlgorithmExecutor;

class StreamChain : public WithTestAlgorithms {
protected:
  /// Executors of ShowParameters on one another; the first is on `source`.
  static std::vector<std::unique_ptr<Executor>> chainOn(ImageStream& source, bool blocking) {
    std::vector<std::unique_ptr<Executor>> chain;
    ImageStream* input = &source;
    for (int stage = 0; stage < 3; ++stage) {
      chain.push_back(std::make_unique<Executor>(*input, nullptr));
      chain.back()->forceBlocking = blocking;
      chain.back()->setStreamAlgorithmName("Show Parameters");
      input = dynamic_cast<ImageStream*>(chain.back()->stream());
    }
    return chain;
  }
};

TEST_F(StreamChain, NoneOfTenThousandFramesGetsLostUnnoticed) {
  for (const bool blocking : {true, false}) {
    const std::uint64_t count = blocking ? 2'000 : 10'000; // who blocks, waits for every thread to get its turn
    const Tests::ExpectedLog log;
    ShowParameters::thrown = 0;
    Source source(count);
    const auto chain = chainOn(source, blocking);
    std::vector<std::unique_ptr<Receiver>> receivers;
    for (const auto& executor : chain)
      receivers.push_back(std::make_unique<Receiver>(*executor->stream()));
    source.run();
    waitFor([&] { return source.emitted() == count; });
    for (const auto& executor : chain)
      executor->waitUntilCompleted();

    std::vector<std::uint64_t> before(count);
    std::iota(before.begin(), before.end(), 1);
    for (const auto& receiver : receivers) {
      std::vector<std::uint64_t> stamps;
      for (const auto& data : receiver->received())
        stamps.push_back(data->timestampDevice());
      ASSERT_FALSE(stamps.empty());
      EXPECT_EQ(stamps.back(), count) << "the newest is never dropped";
      EXPECT_TRUE(std::includes(before.begin(), before.end(), stamps.begin(), stamps.end())) << "each once, in order";
      before = std::move(stamps);
    }
    EXPECT_TRUE(!blocking || before.size() == count - count / 100) << before.size();
    EXPECT_EQ(log.messages().size(), ShowParameters::thrown);
  }
}

TEST_F(StreamChain, EveryPictureBelongsToOneSetOfParametersAndTheNextToTheNew) {
  for (const bool blocking : {true, false}) {
    const Tests::ExpectedLog log; // of the frames that throw
    Source source;
    Executor executor(source, nullptr);
    executor.forceBlocking = blocking;
    executor.setStreamAlgorithmName("Show Parameters");
    const Receiver receiver(*executor.stream());
    source.run();
    waitFor([&] { return receiver.count() > 0; });
    for (int value = 1; value <= 50; ++value) {
      Properties settings;
      settings.subProperties("algorithmConfig").setParam("first", value);
      settings.subProperties("algorithmConfig").setParam("second", value);
      executor.configure(&settings);
      const std::uint64_t before = source.emitted() + 1; // which may be on its way
      waitFor([&] { return receiver.newest() > before; });
      EXPECT_EQ(receiver.last()[0], static_cast<float>(value));
    }
    source.stopAsync().wait();
    for (const auto& data : receiver.received()) {
      const auto shown = data->images()->get(0).mem();
      ASSERT_EQ(shown->valueAsDouble(0, 0, 0, 0), shown->valueAsDouble(1, 0, 0, 0));
    }
  }
}

TEST_F(StreamChain, StopsClosesAndEndsInEveryOrderWhileBusy) {
  std::mt19937 random(1);
  for (int round = 0; round < 60; ++round) {
    const Tests::ExpectedLog log;
    auto source = std::make_unique<Source>();
    auto chain = chainOn(*source, round % 2 == 0);
    source->run();
    if (round % 3 == 0) { // the end of the last output, once started, stops all before it
      for (const auto& executor : chain)
        executor->stream()->openAsync().wait();
      chain.back()->stream()->startAsync().wait();
    }
    std::vector<OwningDataList> outputs(chain.size());
    const auto command = [&source](auto method) {
      if (source) (source.get()->*method)().wait();
    };
    std::vector<std::function<void()>> steps = {[&] { source.reset(); }, [&] { command(&Stream::stopAsync); },
                                                [&] { command(&Stream::closeAsync); }};
    for (std::size_t i = 0; i < chain.size(); ++i) {
      if (random() % 2) {
        outputs[i] = chain[i]->takeOutput();
        steps.emplace_back([&, i] { outputs[i] = {}; });
      }
      steps.emplace_back([&, i] { chain[i].reset(); });
      steps.emplace_back([&, i] {
        if (chain[i]) chain[i]->setStreamAlgorithmName("Test.Show");
      });
    }
    std::shuffle(steps.begin(), steps.end(), random);
    waitFor([&] { return source->emitted() > 20; });
    for (const auto& step : steps)
      step();
    for (const std::string& message : log.messages())
      EXPECT_TRUE(message.find("A frame is lost: no device memory") != std::string::npos ||
                  message.find("can't stop: it is closed") != std::string::npos)
          << message;
  }
}

} // namespace
} // namespace Kelvaris::US
