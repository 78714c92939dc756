#pragma once

#include <boost/signals2/connection.hpp>
#include <boost/signals2/signal.hpp>

#include <utility>
#include <vector>

namespace Kelvaris {

/// A signal that carries `Args` to every connected slot, on the thread that emits.
template <typename... Args> class SignalImpl {
public:
  template <typename Slot> boost::signals2::connection connect(Slot&& slot) {
    return m_signal.connect(std::forward<Slot>(slot));
  }
  void emitSignal(Args... args) { m_signal(args...); }

private:
  boost::signals2::signal<void(Args...)> m_signal;
};

/// Base of objects that listen to signals: their connections end with them.
class SignalReceiver {
public:
  SignalReceiver() = default;
  SignalReceiver(const SignalReceiver&) {}
  SignalReceiver& operator=(const SignalReceiver&) { return *this; }

protected:
  ~SignalReceiver() = default;

  template <typename... Args, typename Slot> void receive(SignalImpl<Args...>& signal, Slot&& slot) {
    m_connections.emplace_back(signal.connect(std::forward<Slot>(slot)));
  }

private:
  std::vector<boost::signals2::scoped_connection> m_connections;
};

} // namespace Kelvaris
