#pragma once

#include "Core/Configurable.h"
#include "Core/Signal.h"
#include "Lib/Data.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <string>

namespace Kelvaris {

/// One emission of a stream.
class StreamData {
public:
  virtual ~StreamData() = default;

  /// When the device took the data, and when it arrived here; both in milliseconds.
  std::uint64_t timestampDevice() const { return m_timestampDevice; }
  void setTimestampDevice(std::uint64_t milliseconds) { m_timestampDevice = milliseconds; }
  std::uint64_t timestampArrival() const { return m_timestampArrival; }
  void setTimestampArrival(std::uint64_t milliseconds) { m_timestampArrival = milliseconds; }

private:
  std::uint64_t m_timestampDevice = 0;
  std::uint64_t m_timestampArrival = 0;
};

/// A live source of data with a worker thread of its own, which carries out the commands and makes the data.
///
/// The thread exists from the first command until the stream is closed. A class that overrides an ...Impl, doWork() or
/// a property which they use ends its destructor's part of the work first of all with `closeAsync().wait()`: after it
/// the worker calls none of them. A stream must not be deleted on its own worker thread.
class Stream : public Data, public Configurable {
public:
  enum class State : int { Closed = 0, Open = 2, Running = 4, Paused = 6 };

  /// What doWork() answers: whether it wants to be called again, and when. A time in the past means at once.
  struct Continuation {
    using Clock = std::chrono::steady_clock;
    bool again;
    Clock::time_point when;

    static Continuation at(Clock::time_point when) { return {true, when}; }
    static Continuation now() { return {true, Clock::time_point::min()}; }
    static Continuation never() { return {false, Clock::time_point::max()}; }
  };

  explicit Stream(std::string name);
  ~Stream() override;

  Kind kind() const override { return m_kind; }
  void setKind(Kind kind) { m_kind = kind; }
  Modality modality() const override { return m_modality; }
  void setModality(Modality modality) { m_modality = modality; }

  /// Thread-safe.
  State state() const { return m_state; }

  /// Commands, thread-safe. Each is carried out on the worker thread, after those given before; one that comes from the
  /// worker thread itself (a slot of a signal below) is carried out at once, so that waiting for it doesn't hang.
  ///
  /// The future holds true if all went well, also where there was nothing to do: the stream is then in the asked state
  /// (for open: open, running or paused). It holds false, with a logged warning, for a command that the present state
  /// doesn't allow; and false, with the state as it was, if the ...Impl answers false. What an ...Impl throws is stored
  /// in the future and leaves the state as it was. Closing alone can't be refused: the stream is closed also if
  /// stopImpl() or closeImpl() answers false (the future's value is then false) or throws.
  ///
  /// | command | closed  | open    | running            | paused        |
  /// | open    | open    | nothing | nothing            | nothing       |
  /// | close   | nothing | close   | stop, then close   | as if running |
  /// | start   | refused | start   | nothing            | resume        |
  /// | stop    | refused | nothing | stop               | stop          |
  /// | pause   | refused | refused | pause if supported | nothing       |
  /// | resume  | refused | refused | nothing            | resume        |
  std::shared_future<bool> openAsync();
  std::shared_future<bool> closeAsync();
  std::shared_future<bool> startAsync();
  std::shared_future<bool> stopAsync();
  std::shared_future<bool> pauseAsync();
  std::shared_future<bool> resumeAsync();

  virtual bool supportsPausing() const { return false; }
  /// Names the source across sessions. By default the stream's name.
  virtual std::string uuid() const { return name(); }
  /// If true, an OpenGL context is current on the worker thread while the stream is open; openAsync()'s future throws
  /// GL::Error where there can't be one.
  virtual bool workerThreadRequiresOpenGl() const { return false; }
  /// If true, doWork() is called while the stream is paused, too.
  virtual bool worksWhilePaused() const { return false; }

  /// Emitted for every piece of data, on the thread that made it. Slots must not throw, nor delete the stream.
  SignalImpl<const std::shared_ptr<const StreamData>&> dataSignal;
  /// Emitted with the new state after each transition, on the worker thread.
  SignalImpl<State> stateChanged;
  /// Emitted once, when the stream goes away.
  SignalImpl<> closedSignal;

protected:
  /// These carry out the commands, on the worker thread. False: it can't be done, for a reason that the Impl logs.
  virtual bool openImpl() { return true; }
  virtual bool closeImpl() { return true; }
  virtual bool startImpl() { return true; }
  virtual bool stopImpl() { return true; }
  virtual bool pauseImpl() { return true; }
  virtual bool resumeImpl() { return true; }

  /// One beat of the stream, on the worker thread while running. The first one follows start and resume at once. An
  /// exception is logged as an error and stops the stream. Between two beats waiting commands are carried out.
  virtual Continuation doWork() { return Continuation::never(); }

private:
  struct Worker;

  bool open();
  bool close();
  bool start();
  bool stop();
  bool pause();
  bool resume();
  bool refuse(const char* command, const char* reason) const;
  void enter(State state);
  bool isWorking() const;
  void work();

  std::atomic<Kind> m_kind = OtherStreamKind;
  std::atomic<Modality> m_modality = UnknownModality;
  std::atomic<State> m_state = State::Closed; ///< written by the worker thread
  std::unique_ptr<Worker> m_worker;
};

} // namespace Kelvaris
