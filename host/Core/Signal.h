#pragma once

#include <boost/signals2/connection.hpp>
#include <boost/signals2/signal.hpp>

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace Kelvaris {

/// A connection after whose end its slot neither runs nor starts any more, for slots that use what is about to go away
/// while another thread may emit. Ends with this object. Not thread-safe itself.
class BlockingConnection {
public:
  BlockingConnection() = default;
  BlockingConnection(BlockingConnection&& other) noexcept { swap(other); }
  BlockingConnection& operator=(BlockingConnection&& other) noexcept {
    BlockingConnection(std::move(other)).swap(*this);
    return *this;
  }
  ~BlockingConnection() { disconnect(); }

  bool connected() const { return m_connection.connected(); }
  /// Waits for a running call of the slot, unless it is this very call that asks. The caller must not hold a lock that
  /// the slot takes.
  void disconnect() {
    m_connection.disconnect();
    if (!m_gate) return;
    m_gate->open = false;
    const std::scoped_lock lock(m_gate->mutex);
  }

private:
  template <typename... Args> friend class SignalImpl;

  struct Gate {
    std::atomic<bool> open = true;
    std::recursive_mutex mutex; ///< held while the slot runs
  };

  BlockingConnection(boost::signals2::connection connection, std::shared_ptr<Gate> gate)
      : m_connection(std::move(connection)), m_gate(std::move(gate)) {}
  void swap(BlockingConnection& other) noexcept {
    m_connection.swap(other.m_connection);
    m_gate.swap(other.m_gate);
  }

  boost::signals2::connection m_connection;
  std::shared_ptr<Gate> m_gate;
};

/// A signal that carries `Args` to every connected slot, on the thread that emits.
template <typename... Args> class SignalImpl {
public:
  template <typename Slot> boost::signals2::connection connect(Slot&& slot) {
    return m_signal.connect(std::forward<Slot>(slot));
  }
  /// Calls of the slot from several threads follow one another.
  template <typename Slot> [[nodiscard]] BlockingConnection connectBlocking(Slot slot) {
    auto gate = std::make_shared<BlockingConnection::Gate>();
    auto connection = m_signal.connect([gate, slot = std::move(slot)](Args... args) mutable {
      if (!gate->open) return; // without the lock: one who waits for it is not overtaken again and again
      const std::scoped_lock lock(gate->mutex);
      if (gate->open) slot(args...);
    });
    return {std::move(connection), std::move(gate)};
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
