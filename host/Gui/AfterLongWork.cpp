#include "Gui/AfterLongWork.h"

#include "Core/LongWork.h"
#include "Gui/QtHelpers.h"

#include <QCoreApplication>
#include <QPointer>
#include <QTimer>

#include <chrono>
#include <deque>
#include <utility>

namespace Kelvaris {
namespace {

/// Calls that wait for the end of the work. Asks for it by a timer: a call that posts itself anew would keep the event
/// loop, which delivers whatever is posted meanwhile, for ever.
class HeldCalls : public QObject {
public:
  explicit HeldCalls(QObject* application) : QObject(application) {
    m_timer.setInterval(std::chrono::milliseconds(10));
    connect(&m_timer, &QTimer::timeout, this, &HeldCalls::makeCalls);
  }

  bool empty() const { return m_calls.empty(); }
  void add(QObject* receiver, std::function<void()> call) {
    m_calls.emplace_back(receiver, std::move(call));
    m_timer.start();
  }

private:
  void makeCalls() {
    if (m_makesCalls) return; // one of them does long work
    m_makesCalls = true;
    while (!m_calls.empty() && !LongWork::isGoingOn()) {
      const auto [receiver, call] = std::move(m_calls.front());
      m_calls.pop_front();
      if (receiver) call();
    }
    m_makesCalls = false;
    if (m_calls.empty()) m_timer.stop();
  }

  std::deque<std::pair<QPointer<QObject>, std::function<void()>>> m_calls;
  QTimer m_timer;
  bool m_makesCalls = false;
};

HeldCalls& heldCalls() {
  static QPointer<HeldCalls> calls; // a process can have one application after the other
  if (!calls) calls = &QtHelpers::make<HeldCalls>(QCoreApplication::instance());
  return *calls;
}

} // namespace

void afterLongWork(QObject* receiver, std::function<void()> call) {
  if (!LongWork::isGoingOn() && heldCalls().empty())
    call();
  else
    heldCalls().add(receiver, std::move(call));
}

} // namespace Kelvaris
