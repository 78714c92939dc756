// The stream under commands and setters from several threads at once; made for the thread sanitizer, too.

#include "SimulatedStreamCases.h"
#include "model/Utils.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <latch>
#include <random>
#include <thread>
#include <vector>

namespace Kelvaris::US {
namespace {

using Tests::shortFrame;
using Axis = ChannelDataLayout::Axis;

class SimulatedStreamStress : public Tests::SimulatedStream {};

const AcquisitionSequence& sequence(unsigned which) {
  using Mode = AcquisitionSequence::EnsembleMode;
  static const AcquisitionSequence sequences[] = {AcquisitionSequence({shortFrame(1, 4, 8)}),
                                                  AcquisitionSequence({shortFrame(0, 8, 16), shortFrame(2, 4, 4)},
                                                                      {1, 2}, {Mode::PerEvent, Mode::PerFrame},
                                                                      {1e-3, {}})};
  return sequences[which % std::size(sequences)];
}

void changeSomething(SimulatedChannelDataStream& stream, std::mt19937& random) {
  const unsigned value = random() % 8;
  const std::function<void()> changes[] = {
      [&] { stream.setTargetFrameRate(50.0 + value); },
      [&] { stream.setEchoAmplitude(value); },
      [&] { stream.setNoiseAmplitude(value % 2); },
      [&] { stream.setTransmitAmplitude(value); },
      [&] { stream.setPixelType(value % 2 ? PixelFloat : PixelInt16); },
      [&] {
        stream.setPhantomOrigin({0.0, 5.0 + value, 0.0});
      },
      [&] {
        stream.setInterEventPhantomMotion({10.0 * value, 0.0, 0.0});
      },
      [&] { stream.setPhantomType(static_cast<PhantomType>(value % 3)); },
      [&] { stream.setCacheSIMUSechos(value % 2 == 0); },
      [&] { stream.setUseSIMUS(false); },
      [&] {
        stream.setChannelDataLayout(value % 2 ? ChannelDataLayout()
                                              : ChannelDataLayout(Axis::FastTime, Axis::Channels, Axis::SlowTime));
      },
      [&] { stream.setAcquisitionSequence(sequence(value)); },
      [&] {
        Properties properties;
        stream.configuration(&properties);
        stream.configure(&properties);
      },
  };
  changes[random() % std::size(changes)]();
}

/// An emission holds each frame once, as the components beside it say.
bool isConsistent(const ImageStreamData& data) {
  const SharedImageSet& images = *data.images();
  for (int i = 0; i < images.size(); ++i) {
    const FrameAcquisition* frame = getFrameAcquisition(images, i);
    const Eigen::Vector3i size = images.get(i).descriptor().dimensions();
    const auto events = static_cast<int>(frame->events().size());
    if (size.z() != events || images.get(i).mem()->descriptor().dimensions() != size) return false;
  }
  return images.size() == sequence(0).numFrameAcquisitions() || images.size() == sequence(1).numFrameAcquisitions();
}

TEST_F(SimulatedStreamStress, SettersAndCommandsFromSeveralThreads) {
  const auto stream = Tests::streamOf(sequence(0), 0.5);
  std::atomic<int> emissions = 0, inconsistent = 0;
  const auto connection = stream->dataSignal.connectBlocking([&](const std::shared_ptr<const StreamData>& data) {
    inconsistent += !isConsistent(dynamic_cast<const ImageStreamData&>(*data));
    ++emissions;
    emissions.notify_all();
  });
  std::atomic<bool> isOver = false;
  std::vector<std::jthread> setters;
  for (unsigned seed = 1; seed <= 3; ++seed)
    setters.emplace_back([&, seed] {
      std::mt19937 random(seed);
      while (!isOver)
        changeSomething(*stream, random);
    });

  using Command = std::shared_future<bool> (Stream::*)();
  constexpr Command commands[] = {&Stream::openAsync,   &Stream::startAsync, &Stream::pauseAsync,
                                  &Stream::resumeAsync, &Stream::stopAsync,  &Stream::closeAsync};
  const Tests::ExpectedLog log; // commands that the state refuses
  std::mt19937 random(99);
  for (int round = 0; round < 40; ++round) {
    std::vector<std::shared_future<bool>> answers;
    for (int i = 0; i < 6; ++i)
      answers.push_back((*stream.*commands[random() % std::size(commands)])());
    for (auto& answer : answers)
      answer.get();
    stream->openAsync();
    ASSERT_TRUE(stream->startAsync().get());
    const int seen = emissions;
    emissions.wait(seen); // setters hold the worker up, but never keep it from working
    ASSERT_TRUE(stream->stopAsync().get());
  }
  isOver = true;
  setters.clear();
  EXPECT_EQ(inconsistent, 0);
  for (const std::string& message : log.messages())
    EXPECT_EQ(message.substr(0, 1), "3") << message;
}

TEST_F(SimulatedStreamStress, DestructionWhileRunning) {
  for (unsigned round = 0; round < 20; ++round) {
    auto stream = Tests::streamOf(sequence(round), 0.5);
    stream->setTargetFrameRate(1e9); // beat after beat
    std::latch emitted(1);
    std::atomic<int> emissions = 0;
    stream->dataSignal.connect([&](const std::shared_ptr<const StreamData>&) {
      if (emissions++ == 0) emitted.count_down();
    });
    stream->openAsync();
    stream->startAsync();
    if (round % 2 == 0) emitted.wait();
    if (round % 4 == 0) stream->pauseAsync();
    stream.reset(); // the slot's variables end here, too
  }
}

} // namespace
} // namespace Kelvaris::US
