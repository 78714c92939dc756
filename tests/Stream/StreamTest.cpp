#include "Stream/Stream.h"

#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <random>
#include <thread>

namespace Kelvaris {
namespace {

using State = Stream::State;
using Continuation = Stream::Continuation;
using Clock = Continuation::Clock;

/// What a stream has been asked to do, has told of and has worked on so far.
struct Seen {
  std::string calls;
  std::vector<State> states;
  std::vector<Clock::time_point> beats;
};

/// Records what its worker thread is asked to do. Answers and beats are set before the first command.
class RecordingStream : public Stream {
public:
  RecordingStream() : Stream("probe") {
    stateChanged.connect([this](State state) { note([&](Seen& seen) { seen.states.push_back(state); }); });
  }
  ~RecordingStream() override { closeAsync().wait(); }

  bool supportsPausing() const override { return pausable; }
  bool worksWhilePaused() const override { return restless; }

  Seen seen() const {
    const std::scoped_lock lock(m_mutex);
    return m_seen;
  }
  void run() {
    openAsync();
    startAsync();
  }
  void clearCalls() {
    note([](Seen& seen) { seen.calls.clear(); });
  }
  template <typename T> void waitFor(std::vector<T> Seen::*list, std::size_t count) {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return (m_seen.*list).size() >= count; });
  }

  bool pausable = true;
  bool restless = false;
  std::function<bool(const std::string& impl)> answer = [](const std::string&) { return true; };
  std::function<Continuation()> beat = [] { return Continuation::never(); };

protected:
  bool openImpl() override { return record("open"); }
  bool closeImpl() override { return record("close"); }
  bool startImpl() override { return record("start"); }
  bool stopImpl() override { return record("stop"); }
  bool pauseImpl() override { return record("pause"); }
  bool resumeImpl() override { return record("resume"); }
  Continuation doWork() override {
    note([](Seen& seen) { seen.beats.push_back(Clock::now()); });
    return beat();
  }

private:
  template <typename Change> void note(const Change& change) {
    {
      const std::scoped_lock lock(m_mutex);
      change(m_seen);
    }
    m_changed.notify_all();
  }
  bool record(const std::string& impl) {
    note([&](Seen& seen) { seen.calls += (seen.calls.empty() ? "" : " ") + impl; });
    return answer(impl);
  }

  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  Seen m_seen;
};

using States = std::vector<State>;
using Command = std::shared_future<bool> (Stream::*)();
constexpr Command kOpen = &Stream::openAsync, kClose = &Stream::closeAsync, kStart = &Stream::startAsync,
                  kStop = &Stream::stopAsync, kPause = &Stream::pauseAsync, kResume = &Stream::resumeAsync;

TEST(StreamTest, EveryCommandInEveryState) {
  struct Case {
    State before;
    Command command;
    const char* calls;
    State after;
    const char* refusal = nullptr;
    bool pausable = true;
  };
  constexpr State closed = State::Closed, open = State::Open, running = State::Running, paused = State::Paused;
  std::vector<Case> cases = {
      {closed, kOpen, "open", open},
      {closed, kStart, "", closed, "can't start: it is closed"},
      {closed, kStop, "", closed, "can't stop: it is closed"},
      {open, kClose, "close", closed},
      {open, kStart, "start", running},
      {running, kClose, "stop close", closed},
      {running, kStop, "stop", open},
      {running, kPause, "pause", paused},
      {running, kPause, "", running, "can't pause: it doesn't support pausing", false},
      {paused, kClose, "stop close", closed},
      {paused, kStart, "resume", running},
      {paused, kStop, "stop", open},
      {paused, kResume, "resume", running},
  };
  for (const auto& [state, command] : {std::pair(closed, kClose),
                                       {open, kOpen},
                                       {open, kStop},
                                       {running, kOpen},
                                       {running, kStart},
                                       {running, kResume},
                                       {paused, kOpen},
                                       {paused, kPause}})
    cases.push_back({state, command, "", state}); // it is so already
  for (const State state : {closed, open}) {
    cases.push_back({state, kPause, "", state, "can't pause: it isn't running"});
    cases.push_back({state, kResume, "", state, "can't resume: it isn't paused"});
  }
  for (const auto& c : cases)
    // As asked, with an Impl that answers false, and with one that throws.
    for (const std::string refuses : {"", "false", "throw"}) {
      SCOPED_TRACE("case " + std::to_string(&c - cases.data()) + refuses);
      RecordingStream stream;
      stream.pausable = c.pausable;
      std::atomic<bool> obedient = true;
      stream.answer = [&](const std::string&) {
        if (!obedient && refuses == "throw") throw std::runtime_error("broken cable");
        return obedient.load();
      };
      if (c.before != State::Closed) stream.openAsync().wait();
      if (c.before == State::Running || c.before == State::Paused) stream.startAsync().wait();
      if (c.before == State::Paused) stream.pauseAsync().wait();
      ASSERT_EQ(stream.state(), c.before);
      stream.clearCalls();

      obedient = refuses.empty();
      const Tests::ExpectedLog log;
      const std::shared_future<bool> result = (stream.*c.command)();
      result.wait();
      const bool hasImpl = *c.calls != '\0';
      EXPECT_EQ(stream.seen().calls, c.calls);
      if (hasImpl && refuses == "throw")
        EXPECT_THROW(result.get(), std::runtime_error);
      else
        EXPECT_EQ(result.get(), !c.refusal && (!hasImpl || refuses.empty()));
      const bool isObeyed = refuses.empty() || c.command == kClose; // closing can't be refused
      EXPECT_EQ(stream.state(), isObeyed ? c.after : c.before);
      if (c.refusal)
        EXPECT_EQ(log.messages(), std::vector<std::string>{std::string("3 Stream: The stream \"probe\" ") + c.refusal});
      else
        EXPECT_TRUE(log.messages().empty());
      obedient = true;
    }
}

TEST(StreamTest, CommandsFollowOneAnotherAndEachTransitionIsTold) {
  RecordingStream stream;
  for (int i = 0; i < 2; ++i) { // closing ends the worker thread, opening again starts another
    for (const Command command : {kOpen, kStart, kPause})
      (stream.*command)();
    EXPECT_TRUE(stream.closeAsync().get());
  }
  EXPECT_EQ(stream.seen().calls, "open start pause stop close open start pause stop close");
  const States states = {State::Open, State::Running, State::Paused, State::Open, State::Closed,
                         State::Open, State::Running, State::Paused, State::Open, State::Closed};
  EXPECT_EQ(stream.seen().states, states);
}

TEST(StreamTest, BeatsAreNeverEarlyAndPastOnesFollowAtOnce) {
  constexpr std::size_t kBeats = 40;
  RecordingStream stream;
  std::vector<Clock::time_point> due; // of the worker thread until the stream is closed
  stream.beat = [&] {
    // Every third one is an hour late already.
    due.push_back(Clock::now() +
                  (due.size() % 3 == 2 ? Clock::duration(std::chrono::hours(-1)) : std::chrono::microseconds(300)));
    return due.size() < kBeats ? Continuation::at(due.back()) : Continuation::never();
  };
  stream.run();
  stream.waitFor(&Seen::beats, kBeats);
  stream.closeAsync().wait();
  const auto beats = stream.seen().beats;
  ASSERT_EQ(beats.size(), kBeats) << "never means never";
  for (std::size_t i = 1; i < kBeats; ++i)
    EXPECT_GE(beats[i], due[i - 1]) << i;
}

TEST(StreamTest, StartAndResumeBeatAtOnceWhateverWasAskedBefore) {
  RecordingStream stream;
  stream.beat = [] { return Continuation::at(Clock::now() + std::chrono::hours(1)); };
  stream.openAsync();
  std::size_t beats = 0;
  for (const auto& [command, back] : {std::pair(kStart, kStop), std::pair(kStart, kPause), std::pair(kResume, kStop)}) {
    (stream.*command)();
    stream.waitFor(&Seen::beats, ++beats);
    EXPECT_TRUE((stream.*back)().get()) << "the command wakes the waiting worker";
  }
  EXPECT_EQ(stream.seen().beats.size(), beats);
}

TEST(StreamTest, CommandsGetThroughBetweenBeatsThatAreAllLate) {
  for (const bool restless : {false, true}) {
    RecordingStream stream;
    stream.restless = restless;
    stream.beat = [] { return Continuation::now(); };
    stream.run();
    stream.waitFor(&Seen::beats, 3);
    EXPECT_TRUE(stream.pauseAsync().get());
    const std::size_t beats = stream.seen().beats.size();
    if (restless) stream.waitFor(&Seen::beats, beats + 3);
    EXPECT_TRUE(stream.resumeAsync().get());
    stream.waitFor(&Seen::beats, beats + 1);
  } // ends while it runs
}

TEST(StreamTest, AnErrorInABeatIsLoggedAndStopsTheStream) {
  for (const bool stopFails : {false, true}) {
    RecordingStream stream;
    std::atomic<bool> broken = true;
    stream.beat = [&]() -> Continuation {
      if (broken) throw std::runtime_error("no signal");
      return Continuation::never();
    };
    stream.answer = [&](const std::string& impl) {
      if (impl == "stop" && broken && stopFails) throw std::runtime_error("broken cable");
      return true;
    };
    const Tests::ExpectedLog log;
    stream.run();
    stream.waitFor(&Seen::states, 3);
    EXPECT_EQ(stream.state(), State::Open);
    EXPECT_EQ(stream.seen().calls, "open start stop");
    std::vector<std::string> messages = {"4 Stream: The stream \"probe\" stops after an error: no signal"};
    if (stopFails) messages.emplace_back("4 Stream: The stream \"probe\" failed to stop: broken cable");
    EXPECT_EQ(log.messages(), messages);

    broken = false;
    EXPECT_TRUE(stream.startAsync().get());
    stream.waitFor(&Seen::beats, 2);
  }
}

TEST(StreamTest, SlotsMayGiveCommandsAndWaitForThem) {
  const struct {
    std::vector<Command> commands;
    State after;
    std::size_t beats;
  } cases[] = {
      {{kStop}, State::Open, 1},         {{kClose}, State::Closed, 1},         {{kPause}, State::Paused, 1},
      {{kClose, kOpen}, State::Open, 1}, {{kStop, kStart}, State::Running, 2}, {{kPause, kResume}, State::Running, 2}};
  for (const auto& c : cases) {
    RecordingStream stream;
    boost::signals2::scoped_connection once;
    std::promise<bool> done;
    once = stream.dataSignal.connect([&](const std::shared_ptr<const StreamData>&) {
      once.disconnect();
      bool ok = true;
      for (const Command command : c.commands)
        ok = (stream.*command)().get() && ok;
      done.set_value(ok);
    });
    stream.beat = [&] {
      stream.dataSignal.emitSignal(std::make_shared<StreamData>());
      return Continuation::never();
    };
    stream.run();
    EXPECT_TRUE(done.get_future().get());
    EXPECT_EQ(stream.state(), c.after);
    stream.waitFor(&Seen::beats, c.beats);
    stream.closeAsync().wait();
    EXPECT_EQ(stream.seen().beats.size(), c.beats);
  }
}

TEST(StreamTest, TellsOfItsEndOnceAndAfterTheLastBeat) {
  int ends = 0;
  std::atomic<bool> beating = false;
  {
    RecordingStream stream;
    stream.closedSignal.connect([&] {
      ++ends;
      EXPECT_FALSE(beating);
    });
    stream.beat = [&] {
      beating = true;
      std::this_thread::yield();
      beating = false;
      return Continuation::now();
    };
    stream.run();
    stream.waitFor(&Seen::beats, 1);
  }
  EXPECT_EQ(ends, 1);
}

TEST(StreamTest, RandomCommandsFromSeveralThreadsKeepTheOrderOfTheImpls) {
  const Tests::ExpectedLog log;
  Log::setConsoleLevel(Log::Error);
  RecordingStream stream;
  stream.beat = [] { return Continuation::at(Clock::now() + std::chrono::microseconds(50)); };
  std::vector<std::thread> threads;
  for (unsigned seed = 1; seed <= 4; ++seed)
    threads.emplace_back([&stream, seed] {
      constexpr Command kCommands[] = {kOpen, kStart, kPause, kResume, kStop, kStart, kClose};
      std::minstd_rand random(seed);
      for (int i = 0; i < 300; ++i) {
        const auto result = (stream.*kCommands[random() % std::size(kCommands)])();
        if (random() % 4 == 0) result.wait();
        stream.setKind(random() % 2 == 0 ? Data::ImageStreamKind : Data::VolumeStreamKind);
        EXPECT_NE(stream.kind(), Data::OtherStreamKind);
      }
    });
  for (std::thread& thread : threads)
    thread.join();
  stream.closeAsync().wait();
  EXPECT_EQ(stream.state(), State::Closed);

  // Which Impls may follow an Impl.
  const std::map<std::string, std::set<std::string>> followers = {
      {"open", {"start", "close"}},  {"start", {"pause", "stop"}}, {"pause", {"resume", "stop"}},
      {"resume", {"pause", "stop"}}, {"stop", {"start", "close"}}, {"close", {"open"}}};
  std::istringstream calls(stream.seen().calls);
  std::string last = "close";
  for (std::string call; calls >> call; last = call)
    ASSERT_TRUE(followers.at(last).contains(call)) << call << " after " << last;
  EXPECT_EQ(last, "close");
}

} // namespace
} // namespace Kelvaris
