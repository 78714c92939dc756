#include "viewer/LiveFeed.h"

#include "GL/ContextManager.h"
#include "GL/GlImage.h"
#include "GL/RequireGL.h"
#include "streaming/StreamTools.h"
#include "support/ExpectedLog.h"

#include <QTest>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace Kelvaris::Viewer {
namespace {

using Tests::emission;
using Tests::row;
using Tests::setOf;

template <typename F> bool await(F&& condition) {
  return QTest::qWaitFor(condition, 90'000);
}

float valueOf(const SharedImageSet& set) {
  return static_cast<float>(set.get(0).mem()->valueAsDouble(0, 0, 0, 0));
}

/// Emits 0, 1, 2, ... as fast as it can, until told to stop.
class FastEmitter {
public:
  explicit FastEmitter(ImageStream& stream)
      : m_thread([this, &stream] {
          while (!m_stop) {
            const std::shared_ptr<SharedImage> image = row({static_cast<float>(m_emitted)});
            stream.dataSignal.emitSignal(emission(setOf({image})));
            ++m_emitted;
          }
        }) {}
  ~FastEmitter() { stop(); }
  int stop() {
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
    return m_emitted;
  }
  int emitted() const { return m_emitted; }

private:
  std::atomic<bool> m_stop = false;
  std::atomic<int> m_emitted = 0;
  std::thread m_thread;
};

TEST(LiveFeedTest, ShowsTheNewestOfAFastStreamAndKeepsNothing) {
  ImageStream stream("fast");
  LiveFeed feed(stream);
  EXPECT_EQ(feed.frameRate(), 0.0);
  std::weak_ptr<const SharedImageSet> first;
  float last = -1.0F;
  long arrivals = 0;
  QObject::connect(&feed, &LiveFeed::arrived, [&](const std::shared_ptr<const SharedImageSet>& images) {
    EXPECT_GT(valueOf(*images), last);
    last = valueOf(*images);
    if (++arrivals == 1) first = images;
    EXPECT_TRUE(arrivals == 1 || first.expired());
  });
  FastEmitter emitter(stream);
  ASSERT_TRUE(await([&] { return arrivals > 20; }));
  EXPECT_GT(feed.frameRate(), 0.0);
  // The main thread is busy meanwhile, and the emitter isn't held up.
  const int before = emitter.emitted();
  Tests::waitFor([&] { return emitter.emitted() > before + 1000; });
  const int emitted = emitter.stop();
  ASSERT_TRUE(await([&] { return last == static_cast<float>(emitted - 1); })) << "the last one arrives";
  EXPECT_EQ(feed.received(), emitted);
  EXPECT_EQ(feed.shown(), arrivals);
  EXPECT_EQ(feed.dropped(), emitted - arrivals);
  EXPECT_GE(feed.dropped(), 998);
}

TEST(LiveFeedTest, TellsTheRateOverTheLastSecond) {
  using Clock = std::chrono::steady_clock;
  ImageStream stream("steady");
  LiveFeed feed(stream);
  std::vector<Clock::time_point> arrivals;
  const auto emit = [&] {
    stream.dataSignal.emitSignal(emission(setOf({row({1.0F})})));
    arrivals.push_back(Clock::now());
    return arrivals.back() - arrivals.front() > std::chrono::milliseconds(1500);
  };
  ASSERT_TRUE(await(emit));
  while (arrivals.front() + std::chrono::seconds(1) < arrivals.back())
    arrivals.erase(arrivals.begin());
  const double span = std::chrono::duration<double>(arrivals.back() - arrivals.front()).count();
  const double expected = static_cast<double>(arrivals.size() - 1) / span;
  EXPECT_NEAR(feed.frameRate(), expected, 0.1 * expected);
  ASSERT_TRUE(await([&] { return feed.frameRate() == 0.0; })) << "a stream that has stopped has none";
}

TEST(LiveFeedTest, BringsTexturesToMainMemory) {
  KELVARIS_REQUIRE_GL();
  ImageStream stream("textures");
  LiveFeed feed(stream);
  int inMemory = 0;
  QObject::connect(&feed, &LiveFeed::arrived, [&](const std::shared_ptr<const SharedImageSet>& images) {
    inMemory += images->get(0).hasForm(ImageForm::Mem) && valueOf(*images) == 3.0F;
  });
  for (const bool withContext : {true, false}) {
    std::thread([&] {
      const auto image = std::make_shared<SharedImage>(std::make_shared<GlImage>(*row({3.0F})->mem()));
      const std::shared_ptr<ImageStreamData> data = emission(setOf({image}));
      const auto emit = [&] { stream.dataSignal.emitSignal(data); };
      if (withContext)
        GL::ContextManager::get().runWithOpenGL(emit);
      else
        emit();
    }).join();
    ASSERT_TRUE(await([&] { return inMemory == (withContext ? 1 : 2); }));
  }
}

TEST(LiveFeedTest, DropsWhatItCannotRead) {
  ImageStream stream("empty");
  LiveFeed feed(stream);
  const Tests::ExpectedLog log;
  stream.dataSignal.emitSignal(emission(setOf({})));
  stream.dataSignal.emitSignal(nullptr);
  for (int i = 1; i <= 2; ++i) {
    stream.dataSignal.emitSignal(emission(setOf({std::make_shared<SharedImage>(ImageDescriptor(PixelFloat, 1, 1))})));
    ASSERT_TRUE(await([&] { return feed.dropped() == i; }));
  }
  EXPECT_EQ(feed.received(), 2);
  EXPECT_EQ(log.messages().size(), 1U) << "said once";
}

TEST(LiveFeedTest, EndsBeforeAndAfterTheStream) {
  for (const bool feedFirst : {true, false})
    for (int round = 0; round < 20; ++round) {
      auto stream = std::make_unique<ImageStream>("ends");
      auto feed = std::make_unique<LiveFeed>(*stream);
      FastEmitter emitter(*stream);
      Tests::waitFor([&] { return feed->received() > round; });
      if (feedFirst) feed.reset();
      emitter.stop(); // who emits stops before the stream goes
      stream.reset();
      if (feed) {
        EXPECT_GE(feed->received(), 1);
        QCoreApplication::processEvents();
      }
    }
}

} // namespace
} // namespace Kelvaris::Viewer
