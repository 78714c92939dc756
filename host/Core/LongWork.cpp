#include "Core/LongWork.h"

namespace Kelvaris {
namespace {

struct State {
  LongWork::Handler* handler = nullptr;
  int depth = 0;
  double from = 0.0, to = 1.0; ///< of the innermost work in the whole
  bool reported = false, reporting = false, givenUp = false;
};
thread_local State g_state;

} // namespace

LongWork::LongWork(double from, double to) : m_outerFrom(g_state.from), m_outerTo(g_state.to) {
  ++g_state.depth;
  const double size = m_outerTo - m_outerFrom;
  g_state.from = m_outerFrom + from * size;
  g_state.to = m_outerFrom + to * size;
}

LongWork::~LongWork() {
  g_state.from = m_outerFrom;
  g_state.to = m_outerTo;
  if (--g_state.depth > 0) return;
  if (g_state.reported) g_state.handler->end();
  g_state.reported = g_state.givenUp = false;
}

bool LongWork::report(const std::string& text, double fraction) {
  State& state = g_state;
  if (state.depth == 0 || !state.handler) return true;
  if (!state.reporting) { // else it comes from what the handler does
    state.reported = state.reporting = true;
    const bool goOn =
        state.handler->report(text, fraction < 0.0 ? fraction : state.from + fraction * (state.to - state.from));
    state.reporting = false;
    state.givenUp = state.givenUp || !goOn;
  }
  return !state.givenUp;
}

bool LongWork::isGoingOn() {
  return g_state.depth > 0;
}

void LongWork::setHandler(Handler* handler) {
  g_state.handler = handler;
}

LongWork::Handler* LongWork::handler() {
  return g_state.handler;
}

} // namespace Kelvaris
