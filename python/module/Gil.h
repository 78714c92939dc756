#pragma once

#include <pybind11/pybind11.h>

#include <functional>
#include <memory>
#include <utility>

#include <unistd.h> // pause

/// Threads and Python's global lock (GIL). The rule of the whole module: nobody waits for a lock, a thread or a device
/// with the GIL held, and nobody waits for the GIL inside a sink of the log or where samples are let go of, since the
/// caller may hold any lock there.
namespace Kelvaris::Python {

/// Runs `work` under the GIL: at the next safe point of the interpreter's main thread, or when a function of this
/// module ends, whichever comes first. Never waits. Forgotten once the interpreter is ending. Called from any thread.
void runUnderGilLater(std::function<void()> work);
/// Runs what waits. The caller holds the GIL and no other lock.
void runPending();

/// True if the calling thread holds the GIL of an interpreter that is alive.
bool holdsGil();

/// Lets go of Python objects on whichever thread this is called: at once with the GIL, later without.
void runUnderGil(std::function<void()> work);

/// Releases the GIL while it lives. A thread that wants it back when the interpreter is ending waits for the end of the
/// process: Python would end the thread, right through the destructors of what it stands in.
class GilReleased {
public:
  GilReleased() : m_state(PyEval_SaveThread()) {}
  ~GilReleased() {
    try {
      PyEval_RestoreThread(m_state);
    } catch (...) { // how the end of a thread shows
      while (true)
        pause();
    }
  }
  GilReleased(const GilReleased&) = delete;
  GilReleased& operator=(const GilReleased&) = delete;

private:
  PyThreadState* m_state;
};

/// Calls `f()` with the GIL released, then runs what has come up for Python meanwhile.
template <typename F> decltype(auto) withoutGil(F&& f) {
  struct Pending {
    ~Pending() { runPending(); }
  } pending;
  const GilReleased released;
  return std::forward<F>(f)();
}

/// Shares `object`, whose destructor may wait for a thread: it runs with the GIL released. `keepAlive` goes after it.
template <typename T> std::shared_ptr<T> sharedWithoutGil(std::unique_ptr<T> object, std::shared_ptr<void> keepAlive) {
  return std::shared_ptr<T>(object.release(), [kept = std::move(keepAlive)](T* raw) mutable {
    const auto destroy = [&] {
      std::unique_ptr<T>(raw).reset();
      kept.reset();
    };
    if (!holdsGil()) return destroy();
    const GilReleased released;
    destroy();
  });
}

} // namespace Kelvaris::Python
