#include "GL/SyncObject.h"

#include "GL/Check.h"
#include "GL/Context.h"
#include "RequireGL.h"
#include "SlowPicture.h"
#include "support/ErrorOf.h"
#include "support/ExpectedLog.h"

#include <latch>
#include <thread>

namespace Kelvaris {
namespace {

using GL::ContextManager;
using SyncObjectTest = Tests::GLTest<>;

TEST_F(SyncObjectTest, AnotherContextSeesWhatASlowProducerHasDrawn) {
  for (const bool consumerHasContext : {true, false}) {
    Tests::SlowPicture picture;
    std::unique_ptr<GL::SyncObject> drawn;
    std::latch handedOver(1), seen(1);
    std::thread producer([&] {
      const auto context = ContextManager::get().createContext();
      picture.draw();
      drawn = std::make_unique<GL::SyncObject>();
      GL::flush();
      handedOver.count_down();
      seen.wait(); // a context that ends finishes its work, which would do instead of waiting for the mark
    });
    std::thread consumer([&] {
      const auto context = consumerHasContext ? ContextManager::get().createContext() : nullptr;
      handedOver.wait();
      drawn->wait();
      EXPECT_TRUE(picture.isDrawn());
      EXPECT_EQ(picture.error(), 0.0);
      drawn->wait(); // at once
      if (consumerHasContext) drawn.reset();
      seen.count_down();
    });
    producer.join();
    consumer.join();
    EXPECT_FALSE(ContextManager::hasCurrent());
  } // the picture and, in the second round, the mark end without a context
  EXPECT_CONTAINS(Tests::errorOf<GL::Error>([] { const GL::SyncObject sync; }), "the thread has none");
  EXPECT_THROW(GL::flush(), GL::Error);
}

TEST_F(SyncObjectTest, AContextIsCurrentForItsWholeLifeOnOneThread) {
  ContextManager& manager = ContextManager::get();
  auto context = manager.createContext();
  EXPECT_TRUE(ContextManager::hasCurrent());
  EXPECT_CONTAINS(Tests::errorOf<GL::Error>([&] { manager.createContext(); }), "has an OpenGL context already");
  std::thread([] { EXPECT_FALSE(ContextManager::hasCurrent()); }).join();
  context.reset();
  EXPECT_FALSE(ContextManager::hasCurrent());

  std::thread([&] { // and stays there with its context
    std::unique_ptr<GL::Context> carriedOff = manager.createContext();
    std::thread([&] {
      Tests::ExpectedLog log;
      carriedOff.reset();
      EXPECT_TRUE(log.contains("ends on another thread than the one that it is current on"));
    }).join();
    EXPECT_TRUE(ContextManager::hasCurrent());
  })
      .join();
}

} // namespace
} // namespace Kelvaris
