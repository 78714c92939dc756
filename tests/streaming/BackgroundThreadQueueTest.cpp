#include "streaming/BackgroundThreadQueue.h"

#include "GL/RequireGL.h"
#include "streaming/StreamTools.h"
#include "support/ExpectedLog.h"

#include <cctype>

namespace Kelvaris {
namespace {

using Item = TimestampedPayload<char>;

Item itemOf(char name) {
  return {static_cast<std::uint64_t>(name), 7, std::make_shared<char>(name)};
}

/// Works on an item until the test lets it go on.
struct SteppedConsumer : BackgroundThreadConsumer<char> {
  std::string processed; ///< names of the items, in order, with '?' where the timestamps are wrong
  char order = '.';      ///< how the item in progress ends: '.' well, 'X' and 'Y' with exceptions
  std::counting_semaphore<> began{0}, mayEnd{0};
  bool hadContext = false;

  void process(Item item) override {
    const bool timestampsFit =
        item.timestampDevice == static_cast<std::uint64_t>(*item.payload) && item.timestampArrival == 7;
    processed += timestampsFit ? *item.payload : '?';
    hadContext = GL::ContextManager::hasCurrent();
    began.release();
    mayEnd.acquire();
    if (order == 'X') throw std::runtime_error("broken probe");
    if (order == 'Y') throw 1;
  }
};

/// Runs `script` on a queue, letter by letter:
///
///     a-z  push an item of that name          0-9  set the maximum size
///     >    start the thread; wait for work    !    stop, and let the item in progress end
///     .    let the item in progress end, and wait for the next one to begin or for the end of the work
///     X Y  let it end with an exception that is, or isn't, a std::exception
///
/// Returns the fate of every item, in the order in which they were pushed: P processed, D dropped with its promise
/// fulfilled, b its promise broken, f processed and its promise broken, r refused.
std::string fates(int maximumSize, const std::string& script, std::string& processed) {
  SteppedConsumer consumer;
  std::string names;
  std::map<char, std::future<void>> futures;
  {
    BackgroundThreadQueue<char> queue(&consumer, maximumSize);
    const auto waitForNext = [&] {
      Tests::waitFor([&] { return consumer.began.try_acquire() || queue.isEmpty() || queue.hasEnded(); });
    };
    for (const char step : script) {
      if (std::islower(step)) {
        names += step;
        futures[step] = queue.push(itemOf(step));
      } else if (std::isdigit(step)) {
        queue.setMaximumQueueSize(step - '0');
      } else if (step == '>') {
        queue.start(false);
        waitForNext();
      } else if (step == '!') {
        Tests::endQueue([&] { queue.stop(); }, [&] { consumer.mayEnd.release(); });
        queue.stop(); // once more, in vain
      } else {
        consumer.order = step;
        consumer.mayEnd.release();
        waitForNext();
      }
    }
    consumer.mayEnd.release(100); // whatever is left
  }
  processed = consumer.processed;
  std::string result;
  for (const char name : names) {
    const bool wasProcessed = consumer.processed.find(name) != std::string::npos;
    if (!futures[name].valid()) {
      result += 'r';
      continue;
    }
    try {
      futures[name].get();
      result += wasProcessed ? 'P' : 'D';
    } catch (const std::future_error&) {
      result += wasProcessed ? 'f' : 'b';
    }
  }
  return result;
}

TEST(BackgroundThreadQueue, DropsTheOldestAndKeepsOrBreaksPromisesAsTold) {
  const struct {
    const char* what;
    int maximumSize;
    const char *script, *fates, *processed;
  } cases[] = {
      {"in order", 3, "abc>...", "PPP", "abc"},
      {"idle: the new one waits in place of the oldest", 1, "ab>.", "DP", "b"},
      {"idle: no more than the maximum waits", 2, "abcd>..", "DDPP", "cd"},
      {"busy: one more than the maximum, with that in progress", 1, "a>b..", "PP", "ab"},
      {"busy and full: that in progress goes, and after it the next in line", 1, "a>bc..", "PbP", "ac"},
      {"the same with more room", 3, "a>bcde....", "PbPPP", "acde"},
      {"that in progress has gone: the front goes in its place", 1, "a>bcd..", "PbbP", "ad"},
      {"smaller while idle", 4, "abcd2>..", "bbPP", "cd"},
      {"smaller while busy: that in progress goes, too", 3, "abc>1.d.", "PbbP", "ad"},
      {"larger", 1, "a>3bcd....", "PPPP", "abcd"},
      {"less than 1 is 1", -5, "a>b..", "PP", "ab"},
      {"stop ends that in progress alone", 3, "abc>!d", "Pbbr", "a"},
      {"size to 0 and back", 2, "ab0>.", "bP", "b"},
  };
  for (const auto& c : cases) {
    std::string processed;
    EXPECT_EQ(fates(c.maximumSize, c.script, processed), c.fates) << c.what;
    EXPECT_EQ(processed, c.processed) << c.what;
  }
}

TEST(BackgroundThreadQueue, AnExceptionEndsTheThreadAndItemsPileUpToTheLimit) {
  for (const auto& [exception, end] : {std::pair('X', ": broken probe"), {'Y', "."}}) {
    const Tests::ExpectedLog log;
    std::string processed;
    EXPECT_EQ(fates(2, std::string("ab>") + exception + "cde", processed), "fbbbb");
    EXPECT_EQ(processed, "a");
    EXPECT_EQ(log.messages(), std::vector{"4 BackgroundThreadQueue: An unexpected exception occurred while running the "
                                          "processing thread" +
                                          std::string(end)});
  }
}

TEST(BackgroundThreadQueue, RefusesNullAndStopsBeforeAnyStart) {
  SteppedConsumer consumer;
  BackgroundThreadQueue<char> queue(&consumer, 1);
  EXPECT_FALSE(queue.push({1, 2, nullptr}).valid());
  queue.stop();
  EXPECT_TRUE(queue.push(itemOf('a')).valid()) << "it hasn't been stopped";
}

TEST(BackgroundThreadQueue, KeepsAContextForItsThreadIfAskedTo) {
  KELVARIS_REQUIRE_GL();
  for (const bool wanted : {true, false}) {
    SteppedConsumer consumer;
    consumer.mayEnd.release();
    BackgroundThreadQueue<char> queue(&consumer, 1);
    queue.start(wanted);
    queue.push(itemOf('a')).get();
    EXPECT_EQ(consumer.hadContext, wanted);
  }
}

} // namespace
} // namespace Kelvaris
