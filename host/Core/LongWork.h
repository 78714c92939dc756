#pragma once

#include <string>

namespace Kelvaris {

/// Work that keeps the thread that it is called on for long, because it must run there. It lasts as long as this
/// object, and calls report() several times a second, so that a program with a window on that thread can show how far
/// it is, stay alive and let its user give up. Whatever such a program must not do meanwhile, such as calling into an
/// object whose lock the work holds, it puts off as long as isGoingOn().
///
/// Everything here is of the calling thread: other threads have work and a handler of their own, or none.
class LongWork {
public:
  /// What a program does while work goes on.
  class Handler {
  public:
    virtual ~Handler() = default;
    /// Fraction of the whole work in [0, 1], negative where it isn't known. Returns false to give up.
    virtual bool report(const std::string& text, double fraction) = 0;
    /// The work that was reported is over.
    virtual void end() = 0;
  };

  /// Work within other work is a part of it, from one fraction of that to another.
  explicit LongWork(double from = 0.0, double to = 1.0);
  ~LongWork();
  LongWork(const LongWork&) = delete;
  LongWork& operator=(const LongWork&) = delete;

  /// Tells the handler what is being done, and which fraction in [0, 1] of the innermost work is done, negative where
  /// that isn't known. Returns false from the time on when the whole work is to be given up. Without a handler, or
  /// without work, nothing happens, and the answer is true.
  static bool report(const std::string& text, double fraction = -1.0);
  static bool isGoingOn();

  /// Null: none. Not while work goes on.
  static void setHandler(Handler* handler);
  static Handler* handler();

private:
  double m_outerFrom, m_outerTo;
};

} // namespace Kelvaris
