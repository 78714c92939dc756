#include "Stream/CreateStreamIoAlgorithm.h"

#include "Core/Parameter.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

namespace Kelvaris {
namespace {

using State = Stream::State;

int g_alive = 0;

/// `trouble` names the call that answers false, or, with "!", throws.
class Phantom : public Stream {
public:
  Phantom() : Stream("phantom") {
    registerParameter(&trouble);
    if (s_cannotBeMade) throw std::runtime_error("no creation");
    ++g_alive;
  }
  ~Phantom() override {
    closeAsync().wait();
    --g_alive;
  }
  static inline bool s_cannotBeMade = false;
  Parameter<std::string> trouble{"trouble", ""};

protected:
  bool openImpl() override { return answer("open"); }
  bool startImpl() override { return answer("start"); }

private:
  bool answer(const std::string& call) const {
    if (trouble.value() == call + "!") throw std::runtime_error("no " + call);
    return trouble.value() != call;
  }
};

using CreatePhantom = CreateStreamIoAlgorithm<Phantom, true, true>;

Properties properties(const std::vector<Properties::Param>& params) {
  Properties made;
  made.setParams(params);
  return made;
}

TEST(CreateStreamIoAlgorithmTest, OpensAndStartsAsTheSettingsSay) {
  const struct {
    std::vector<Properties::Param> settings;
    State state;
    Algorithm::Status status = Algorithm::Success;
  } cases[] = {{{}, State::Running},
               {{{"open", "false"}}, State::Closed},
               {{{"connect", "false"}}, State::Closed},
               {{{"connect", "false"}, {"autoOpen", "true"}}, State::Running},
               {{{"autoStart", "false"}}, State::Open},
               {{{"autoStart", "true"}, {"start", "false"}}, State::Open},
               {{{"trouble", "open"}}, State::Closed, Algorithm::Failure},
               {{{"trouble", "start"}}, State::Open, Algorithm::Failure}};
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    CreatePhantom algorithm;
    const Properties settings = properties(c.settings);
    algorithm.configure(&settings);
    algorithm.compute();
    EXPECT_EQ(algorithm.status(), c.status);
    ASSERT_NE(algorithm.stream(), nullptr);
    EXPECT_EQ(algorithm.stream()->state(), c.state);
  }
}

TEST(CreateStreamIoAlgorithmTest, AStreamThatThrowsIsNone) {
  for (const std::string call : {"open", "start", "creation"}) {
    CreatePhantom algorithm;
    const Properties settings = properties({{"trouble", call + "!"}});
    algorithm.configure(&settings);
    Phantom::s_cannotBeMade = call == "creation";
    const Tests::ExpectedLog log;
    algorithm.compute();
    Phantom::s_cannotBeMade = false;
    EXPECT_EQ(algorithm.status(), Algorithm::Failure);
    EXPECT_EQ(algorithm.stream(), nullptr);
    EXPECT_TRUE(algorithm.takeOutput().empty());
    EXPECT_TRUE(log.contains("4 CreateStreamIoAlgorithm: Could not instantiate a new Stream: no " + call));
  }
  EXPECT_EQ(g_alive, 0);
}

TEST(CreateStreamIoAlgorithmTest, ReplacesItsStreamAndLeavesTakenOnesAlone) {
  CreatePhantom algorithm;
  EXPECT_TRUE(algorithm.takeOutput().empty());
  algorithm.compute();
  algorithm.compute();
  EXPECT_EQ(g_alive, 1);
  OwningDataList taken = algorithm.takeOutput();
  EXPECT_TRUE(algorithm.takeOutput().empty());
  EXPECT_EQ(algorithm.stream(), taken[0]);
  EXPECT_EQ(algorithm.outputStream(), taken[0]);

  algorithm.compute();
  EXPECT_EQ(g_alive, 2);
  EXPECT_NE(algorithm.stream(), taken[0]);
  taken = {};
  EXPECT_EQ(g_alive, 1);
  ASSERT_NE(algorithm.stream(), nullptr) << "the end of an earlier stream is not that of the present one";
  EXPECT_EQ(algorithm.stream()->state(), State::Running);

  algorithm.setStream(std::make_unique<Phantom>());
  EXPECT_EQ(algorithm.status(), Algorithm::Success);
  algorithm.setStream(nullptr);
  EXPECT_EQ(algorithm.status(), Algorithm::Failure);
  EXPECT_EQ(g_alive, 0);
}

TEST(CreateStreamIoAlgorithmTest, KeepsSettingsForStreamsToCome) {
  CreatePhantom algorithm;
  const auto configuration = [&algorithm] {
    Properties written;
    algorithm.configuration(&written);
    return written;
  };
  const Properties settings = properties({{"start", "false"}, {"trouble", "resume"}, {"other", "1"}});
  algorithm.configure(&settings);
  EXPECT_EQ(configuration(), settings);
  algorithm.compute();
  EXPECT_EQ(configuration(), properties({{"trouble", "resume"}})) << "what the stream says";
  const Properties change = properties({{"trouble", "start"}});
  algorithm.configure(&change);
  EXPECT_EQ(configuration(), change) << "passed on at once";
  EXPECT_FALSE(algorithm.autoStart()) << "missing keys leave flags alone";
  algorithm.resetStream();
  EXPECT_EQ(configuration(), change);
}

} // namespace
} // namespace Kelvaris
