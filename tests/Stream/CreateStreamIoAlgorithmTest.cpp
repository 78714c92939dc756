#include "Stream/CreateStreamIoAlgorithm.h"

#include "Core/Parameter.h"
#include "support/ExpectedLog.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Kelvaris {
namespace {

using State = Stream::State;

int g_alive = 0;

/// `trouble` names the call that answers false, or, with "!", throws.
class Phantom : public Stream {
public:
  Phantom() : Stream("phantom") {
    registerParameter(&trouble);
    if (s_cannotBeMade) throw std::runtime_error("no memory");
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
    State state; // Closed and Failure: see `error`
    Algorithm::Status status;
    const char* error;
  } cases[] = {
      {{}, State::Running, Algorithm::Success, nullptr},
      {{{"open", "false"}}, State::Closed, Algorithm::Success, nullptr},
      {{{"autoOpen", "false"}}, State::Closed, Algorithm::Success, nullptr},
      {{{"connect", "false"}}, State::Closed, Algorithm::Success, nullptr},
      {{{"connect", "false"}, {"autoOpen", "true"}}, State::Running, Algorithm::Success, nullptr},
      {{{"start", "false"}}, State::Open, Algorithm::Success, nullptr},
      {{{"autoStart", "false"}}, State::Open, Algorithm::Success, nullptr},
      {{{"autoStart", "true"}, {"start", "false"}}, State::Open, Algorithm::Success, nullptr},
      {{{"trouble", "open"}}, State::Closed, Algorithm::Failure, nullptr},
      {{{"trouble", "start"}}, State::Open, Algorithm::Failure, nullptr},
      {{{"trouble", "open!"}}, State::Closed, Algorithm::Failure, "no open"},
      {{{"trouble", "start!"}}, State::Closed, Algorithm::Failure, "no start"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    CreatePhantom algorithm;
    const Properties settings = properties(c.settings);
    algorithm.configure(&settings);
    const Tests::ExpectedLog log;
    algorithm.compute();
    EXPECT_EQ(algorithm.status(), c.status);
    if (!c.error) {
      ASSERT_NE(algorithm.stream(), nullptr);
      EXPECT_EQ(algorithm.stream()->state(), c.state);
      EXPECT_TRUE(log.messages().empty());
    } else {
      EXPECT_EQ(algorithm.stream(), nullptr);
      EXPECT_TRUE(algorithm.takeOutput().empty());
      EXPECT_EQ(log.messages(), std::vector<std::string>{std::string("4 CreateStreamIoAlgorithm: Could not instantiate "
                                                                     "a new Stream: ") +
                                                         c.error});
    }
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

  Phantom::s_cannotBeMade = true;
  {
    const Tests::ExpectedLog log;
    algorithm.compute();
    EXPECT_TRUE(log.contains("4 CreateStreamIoAlgorithm: Could not instantiate a new Stream: no memory"));
  }
  Phantom::s_cannotBeMade = false;
  EXPECT_EQ(algorithm.status(), Algorithm::Failure);
  EXPECT_EQ(g_alive, 0);
  algorithm.setStream(std::make_unique<Phantom>());
  EXPECT_EQ(algorithm.status(), Algorithm::Success);
  algorithm.setStream(nullptr);
  EXPECT_EQ(algorithm.status(), Algorithm::Failure);
  EXPECT_EQ(g_alive, 0);
}

TEST(CreateStreamIoAlgorithmTest, KeepsSettingsForStreamsToCome) {
  CreatePhantom algorithm;
  algorithm.configure(nullptr);
  algorithm.configuration(nullptr);
  const auto configuration = [&algorithm] {
    Properties written;
    algorithm.configuration(&written);
    return written;
  };
  EXPECT_TRUE(configuration().empty());
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
