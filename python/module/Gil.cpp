#include "module/Gil.h"

#include <mutex>
#include <vector>

namespace Kelvaris::Python {
namespace {

struct Queue {
  std::mutex mutex;
  std::vector<std::function<void()>> work;
};

Queue& queue() {
  static auto* const instance = std::make_unique<Queue>().release(); // threads of the host may outlive the statics
  return *instance;
}

bool isAlive() {
  return Py_IsInitialized() && !_Py_IsFinalizing();
}

} // namespace

bool holdsGil() {
  return isAlive() && PyGILState_Check();
}

void runUnderGilLater(std::function<void()> work) {
  if (!isAlive()) return;
  bool first = false;
  {
    const std::scoped_lock lock(queue().mutex);
    first = queue().work.empty();
    queue().work.push_back(std::move(work));
  }
  // Should Python's own short queue be full, the next call of this module does it.
  if (first)
    Py_AddPendingCall(
        [](void*) {
          runPending();
          return 0;
        },
        nullptr);
}

void runUnderGil(std::function<void()> work) {
  if (holdsGil())
    work();
  else
    runUnderGilLater(std::move(work));
}

void runPending() {
  if (!isAlive()) return;
  const pybind11::error_scope error; // work may find and leave no other error than the one that is on its way
  while (true) {
    std::vector<std::function<void()>> work;
    {
      const std::scoped_lock lock(queue().mutex);
      work.swap(queue().work);
    }
    if (work.empty()) return;
    for (auto& call : work) {
      try {
        call();
      } catch (pybind11::error_already_set& exception) {
        exception.discard_as_unraisable("kelvaris");
      }
    }
  }
}

} // namespace Kelvaris::Python
