#include "viewer/CoalescedCall.h"

#include "Gui/AfterLongWork.h"

#include <utility>

namespace Kelvaris::Viewer {

CoalescedCall::CoalescedCall(std::function<void()> function, std::chrono::milliseconds interval)
    : m_function(std::move(function)), m_interval(interval) {
  m_later.setSingleShot(true);
  connect(&m_later, &QTimer::timeout, this, &CoalescedCall::call);
}

void CoalescedCall::request() {
  if (!m_requested.exchange(true))
    QMetaObject::invokeMethod(
        this, [this] { arrive(); }, Qt::QueuedConnection);
}

void CoalescedCall::arrive() {
  const std::chrono::milliseconds left =
      m_sinceLast.isValid() ? m_interval - std::chrono::milliseconds(m_sinceLast.elapsed()) : decltype(m_interval)(0);
  if (left.count() > 0)
    m_later.start(left);
  else
    call();
}

void CoalescedCall::call() {
  afterLongWork(this, [this] {
    m_sinceLast.start();
    m_requested = false;
    m_function();
  });
}

} // namespace Kelvaris::Viewer
