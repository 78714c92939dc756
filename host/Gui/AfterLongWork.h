#pragma once

#include <functional>

class QObject;

namespace Kelvaris {

/// Calls `call` at once, unless work keeps this thread (LongWork): then when it is over, in the order in which calls
/// came, and not if `receiver` has gone by then. A window stays alive during such work because it processes events in
/// the middle of it. So what comes from timers and from other threads can find objects half changed and locks taken;
/// it goes through here if it does more than to show something. For the main thread.
void afterLongWork(QObject* receiver, std::function<void()> call);

} // namespace Kelvaris
