#include "Stream/Stream.h"

#include "Core/Log.h"
#include "Lib/PluginAutoRegistrationGuard.h"
#ifdef KELVARIS_STREAM_HAS_GL
#include "GL/ContextManager.h"
#endif

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

namespace Kelvaris {
namespace {

constexpr const char* kCategory = "Stream";

const char* streamPluginId() {
  return "Kelvaris.Stream";
}

// The stream classes count as a plugin that others depend on; it is there as soon as this library is.
const PluginAutoRegistrationGuard g_streamPluginGuard(&streamPluginId);

/// Of the exception being handled.
std::string currentMessage() {
  try {
    throw;
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "unknown exception";
  }
}

#ifdef KELVARIS_STREAM_HAS_GL
using OpenGl = GL::ContextManager::ActivationGuard;
#else
struct OpenGl {
  OpenGl() { throw std::runtime_error("a stream needs OpenGL, which this build is without"); }
};
#endif

} // namespace

/// The thread, and the commands that wait for it. The thread ends by itself once the stream is closed and no command
/// waits; the next command starts another.
struct Stream::Worker {
  struct Command {
    bool (Stream::*carryOut)();
    std::promise<bool> result;
  };

  explicit Worker(Stream& owner) : stream(owner) {}

  std::shared_future<bool> submit(bool (Stream::*carryOut)());
  void run();
  void end();

  Stream& stream;
  std::mutex mutex; ///< guards these five
  std::condition_variable wakeUp;
  std::deque<Command> commands;
  bool active = false; ///< the thread takes commands; the stream is closed where it doesn't
  bool ending = false;
  std::thread thread;

  // Of the thread alone:
  std::unique_ptr<OpenGl> openGl;
  bool inWork = false;
  Continuation next = Continuation::never();
  int startCount = 0;

private:
  static void carryOut(Stream& stream, Command& command);
};

std::shared_future<bool> Stream::Worker::submit(bool (Stream::*method)()) {
  Command command{method, {}};
  std::shared_future<bool> result = command.result.get_future().share();
  std::unique_lock lock(mutex);
  if (active && thread.get_id() == std::this_thread::get_id()) {
    lock.unlock();
    carryOut(stream, command);
    return result;
  }
  if (ending || (!active && method == &Stream::close)) { // as in most destructors
    command.result.set_value(method == &Stream::close);
    return result;
  }
  if (!active) {
    if (thread.joinable()) thread.join();
    thread = std::thread([this] { run(); });
    active = true;
  }
  commands.push_back(std::move(command));
  lock.unlock();
  wakeUp.notify_one();
  return result;
}

void Stream::Worker::carryOut(Stream& stream, Command& command) {
  try {
    command.result.set_value((stream.*command.carryOut)());
  } catch (...) {
    command.result.set_exception(std::current_exception());
  }
}

void Stream::Worker::run() {
  std::unique_lock lock(mutex);
  const auto hasNews = [this] { return ending || !commands.empty(); };
  while (!ending) {
    if (!commands.empty()) {
      Command command = std::move(commands.front());
      commands.pop_front();
      lock.unlock();
      carryOut(stream, command);
      lock.lock();
    } else if (stream.m_state == State::Closed) {
      break;
    } else if (!next.again || !stream.isWorking()) {
      wakeUp.wait(lock, hasNews);
    } else if (Continuation::Clock::now() < next.when) {
      wakeUp.wait_until(lock, next.when, hasNews);
    } else {
      lock.unlock();
      stream.work();
      lock.lock();
    }
  }
  openGl.reset();
  active = false;
}

void Stream::Worker::end() {
  {
    const std::scoped_lock lock(mutex);
    ending = true;
  }
  wakeUp.notify_one();
  if (thread.joinable()) thread.join();
}

Stream::Stream(std::string name) : m_worker(std::make_unique<Worker>(*this)) {
  setName(std::move(name));
}

Stream::~Stream() {
  closeAsync().wait();
  m_worker->end();
  closedSignal.emitSignal();
}

std::shared_future<bool> Stream::openAsync() {
  return m_worker->submit(&Stream::open);
}
std::shared_future<bool> Stream::closeAsync() {
  return m_worker->submit(&Stream::close);
}
std::shared_future<bool> Stream::startAsync() {
  return m_worker->submit(&Stream::start);
}
std::shared_future<bool> Stream::stopAsync() {
  return m_worker->submit(&Stream::stop);
}
std::shared_future<bool> Stream::pauseAsync() {
  return m_worker->submit(&Stream::pause);
}
std::shared_future<bool> Stream::resumeAsync() {
  return m_worker->submit(&Stream::resume);
}

bool Stream::open() {
  if (m_state != State::Closed) return true;
  if (workerThreadRequiresOpenGl() && !m_worker->openGl) m_worker->openGl = std::make_unique<OpenGl>();
  if (!openImpl()) return false;
  enter(State::Open);
  return true;
}

bool Stream::close() {
  if (m_state == State::Closed) return true;
  std::exception_ptr error;
  bool ok = true;
  const auto attempt = [&](bool (Stream::*impl)()) {
    try {
      ok = (this->*impl)() && ok;
    } catch (...) {
      if (!error) error = std::current_exception();
    }
  };
  if (m_state != State::Open) {
    attempt(&Stream::stopImpl);
    enter(State::Open);
  }
  attempt(&Stream::closeImpl);
  if (!m_worker->inWork) m_worker->openGl.reset(); // doWork() keeps its context when a slot closes the stream
  enter(State::Closed);
  if (error) std::rethrow_exception(error);
  return ok;
}

bool Stream::start() {
  if (m_state == State::Running) return true;
  if (m_state == State::Paused) return resume();
  if (m_state == State::Closed) return refuse("start", "it is closed");
  if (!startImpl()) return false;
  enter(State::Running);
  return true;
}

bool Stream::stop() {
  if (m_state == State::Open) return true;
  if (m_state == State::Closed) return refuse("stop", "it is closed");
  if (!stopImpl()) return false;
  enter(State::Open);
  return true;
}

bool Stream::pause() {
  if (m_state == State::Paused) return true;
  if (m_state != State::Running) return refuse("pause", "it isn't running");
  if (!supportsPausing()) return refuse("pause", "it doesn't support pausing");
  if (!pauseImpl()) return false;
  enter(State::Paused);
  return true;
}

bool Stream::resume() {
  if (m_state == State::Running) return true;
  if (m_state != State::Paused) return refuse("resume", "it isn't paused");
  if (!resumeImpl()) return false;
  enter(State::Running);
  return true;
}

bool Stream::refuse(const char* command, const char* reason) const {
  Log::warning(kCategory, "The stream \"{}\" can't {}: {}", name(), command, reason);
  return false;
}

void Stream::enter(State state) {
  if (state == State::Running) {
    m_worker->next = Continuation::now();
    ++m_worker->startCount;
  }
  m_state = state;
  try {
    stateChanged.emitSignal(state);
  } catch (...) {
    Log::error(kCategory, "A listener to the state of the stream \"{}\" failed: {}", name(), currentMessage());
  }
}

bool Stream::isWorking() const {
  return m_state == State::Running || (m_state == State::Paused && worksWhilePaused());
}

void Stream::work() {
  m_worker->inWork = true;
  try {
    const int startCount = m_worker->startCount;
    const Continuation next = doWork();
    if (m_worker->startCount == startCount) m_worker->next = next; // else a slot has started anew, which is due at once
  } catch (...) {
    Log::error(kCategory, "The stream \"{}\" stops after an error: {}", name(), currentMessage());
    if (m_state == State::Running || m_state == State::Paused) {
      try {
        stopImpl();
      } catch (...) {
        Log::error(kCategory, "The stream \"{}\" failed to stop: {}", name(), currentMessage());
      }
      enter(State::Open);
    }
  }
  m_worker->inWork = false;
}

} // namespace Kelvaris
