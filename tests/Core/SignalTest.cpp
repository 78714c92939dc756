#include "Core/Signal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace Kelvaris {
namespace {

TEST(BlockingConnectionTest, ItsEndWaitsForTheRunningCall) {
  for (const bool assigned : {false, true}) {
    SignalImpl<int> signal;
    std::promise<void> inSlot;
    std::atomic<int> calls = 0, ended = 0;
    auto connection = std::make_unique<BlockingConnection>(signal.connectBlocking([&](int value) {
      if (++calls == 1) inSlot.set_value();
      for (int i = 0; i < 100; ++i)
        std::this_thread::yield();
      ended += value;
    }));
    std::thread emitter([&] { signal.emitSignal(1); });
    inSlot.get_future().wait();
    if (assigned)
      *connection = BlockingConnection();
    else
      connection.reset();
    EXPECT_EQ(ended, 1) << assigned;
    signal.emitSignal(1);
    emitter.join();
    EXPECT_EQ(calls, 1) << assigned;
  }
}

TEST(BlockingConnectionTest, MayEndWithinItsSlotAndMoves) {
  SignalImpl<> signal;
  int calls = 0;
  BlockingConnection connection;
  connection = signal.connectBlocking([&] {
    ++calls;
    connection.disconnect();
    signal.emitSignal();
  });
  signal.emitSignal();
  signal.emitSignal();
  EXPECT_EQ(calls, 1);

  connection = signal.connectBlocking([&] { ++calls; });
  {
    BlockingConnection other = std::move(connection);
    signal.emitSignal();
  }
  signal.emitSignal();
  EXPECT_EQ(calls, 2);
}

} // namespace
} // namespace Kelvaris
