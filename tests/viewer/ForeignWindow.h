#pragma once

#include <QString>

namespace Kelvaris::Tests {

/// The window of another program on the X display of this one.
class ForeignWindow {
public:
  /// Waits for the window of that class, half a minute at most; without one, keys go nowhere.
  explicit ForeignWindow(const char* className);
  ~ForeignWindow();
  ForeignWindow(const ForeignWindow&) = delete;
  ForeignWindow& operator=(const ForeignWindow&) = delete;

  /// Presses and releases a key, for example "1" or "Return".
  void pressKey(const char* key, Qt::KeyboardModifiers modifiers = {}) const;

private:
  void* m_display; ///< connection of its own
  unsigned long m_window = 0;
};

} // namespace Kelvaris::Tests
