#include "kelvaris/CancelOnInterrupt.h"

#include <atomic>

namespace Kelvaris::CommandLine {
namespace {

/// The progress that Ctrl-C cancels. A signal handler reaches nothing but statics.
std::atomic<Progress*> interrupted = nullptr;
static_assert(std::atomic<Progress*>::is_always_lock_free);

extern "C" void cancelOnSignal(int) {
  if (Progress* progress = interrupted) progress->cancel();
}

} // namespace

CancelOnInterrupt::CancelOnInterrupt(Progress& progress) {
  interrupted = &progress;
  struct sigaction action {};
  action.sa_handler = cancelOnSignal;
  action.sa_flags = SA_RESTART;
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    sigaction(kSignals[i], nullptr, &m_previous[i]);
    if (m_previous[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
  }
}

CancelOnInterrupt::~CancelOnInterrupt() {
  for (std::size_t i = 0; i < kSignals.size(); ++i)
    sigaction(kSignals[i], &m_previous[i], nullptr);
  interrupted = nullptr;
}

} // namespace Kelvaris::CommandLine
