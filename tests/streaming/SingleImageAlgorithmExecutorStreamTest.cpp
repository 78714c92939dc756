#include "streaming/SingleImageAlgorithmExecutorStream.h"

#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"

namespace Kelvaris::US {
namespace {

/// Notes what is asked of it, and does it, refuses it or throws.
struct Input : ImageStream {
  Input() : ImageStream("probe") {}
  ~Input() override { closeAsync().wait(); }

  std::string commands;
  char answer = 'y'; ///< or 'n', or '!' to throw

  bool workerThreadRequiresOpenGl() const override { return false; }
  bool supportsPausing() const override { return true; }
  bool startImpl() override { return note("start "); }
  bool stopImpl() override { return note("stop "); }
  bool pauseImpl() override { return note("pause "); }
  bool resumeImpl() override { return note("resume "); }

private:
  bool note(const char* command) {
    commands += command;
    if (answer == '!') throw std::runtime_error("cable is loose");
    return answer == 'y';
  }
};

using Output = SingleImageAlgorithmExecutorStream;

struct OpenOutput : Output {
  using Output::Output;
  using Output::pauseImpl, Output::resumeImpl, Output::startImpl, Output::stopImpl;
};

TEST(SingleImageAlgorithmExecutorStream, PassesCommandsOnAndWaitsForThem) {
  Input input;
  Output output(false, Data::VolumeStreamKind, &input);
  EXPECT_FALSE(output.topDown());
  EXPECT_EQ(output.kind(), Data::VolumeStreamKind);

  EXPECT_TRUE(output.openAsync().get());
  EXPECT_EQ(input.state(), Stream::State::Closed) << "opening concerns the output alone";
  {
    const Tests::ExpectedLog log;
    EXPECT_FALSE(output.startAsync().get()) << "so the input can't start";
    EXPECT_TRUE(log.contains("The stream \"probe\" can't start: it is closed"));
  }
  EXPECT_TRUE(input.openAsync().get());
  EXPECT_TRUE(output.startAsync().get());
  EXPECT_TRUE(output.pauseAsync().get());
  EXPECT_EQ(input.state(), Stream::State::Paused);
  EXPECT_TRUE(output.resumeAsync().get());
  EXPECT_TRUE(output.stopAsync().get());
  EXPECT_EQ(input.state(), Stream::State::Open);
  EXPECT_EQ(input.commands, "start pause resume stop ");

  input.answer = 'n';
  EXPECT_FALSE(output.startAsync().get());
  input.answer = '!';
  EXPECT_EQ(Tests::errorOf([&] { output.startAsync().get(); }), "cable is loose");
  EXPECT_EQ(output.state(), Stream::State::Open);
}

TEST(SingleImageAlgorithmExecutorStream, WithoutInputOrAfterIt) {
  for (const bool hadInput : {false, true}) {
    auto input = std::make_unique<Input>();
    OpenOutput output(true, Data::ImageStreamKind, hadInput ? input.get() : nullptr);
    input.reset();
    EXPECT_FALSE(output.supportsPausing());
    EXPECT_TRUE(output.startImpl());
    EXPECT_TRUE(output.stopImpl());
    EXPECT_FALSE(output.pauseImpl());
    EXPECT_FALSE(output.resumeImpl());
  }
}

TEST(SingleImageAlgorithmExecutorStream, ItsEndStopsTheInputAndIsNoticed) {
  for (const char answer : {'y', '!'}) {
    Input input;
    input.openAsync().wait();
    const Tests::ExpectedLog log;
    std::string commandsAtTheEnd = "not noticed";
    {
      Output output(true, Data::ImageStreamKind, &input);
      output.goneSignal.connect([&] { commandsAtTheEnd = input.commands; });
      output.openAsync().wait();
      output.startAsync().wait();
      input.answer = answer;
    }
    EXPECT_EQ(commandsAtTheEnd, "start stop ");
    EXPECT_EQ(log.contains("though its input failed to stop: cable is loose"), answer == '!');
    EXPECT_EQ(log.messages().size(), answer == '!' ? 1u : 0u);
    input.answer = 'y';
  }
}

} // namespace
} // namespace Kelvaris::US
