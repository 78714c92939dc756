#include "viewer/ForeignWindow.h"

#include "viewer/OnDisplay.h"

#include <cstring>

// Last: it defines names such as Bool and None.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace Kelvaris::Tests {
namespace {

/// A mapped window of that class among the children of `parent`; 0 if there is none.
Window find(::Display* display, Window parent, const char* className) {
  Window root = 0, above = 0, *children = nullptr, found = 0;
  unsigned count = 0;
  XQueryTree(display, parent, &root, &above, &children, &count);
  for (unsigned i = 0; i < count && !found; ++i) {
    XWindowAttributes attributes{};
    XClassHint hint{};
    if (!XGetWindowAttributes(display, children[i], &attributes) || attributes.map_state != IsViewable) continue;
    if (!XGetClassHint(display, children[i], &hint)) continue;
    if (std::strcmp(hint.res_name, className) == 0) found = children[i];
    XFree(hint.res_name);
    XFree(hint.res_class);
  }
  if (children) XFree(children);
  return found;
}

::Display* connection(void* display) {
  return static_cast<::Display*>(display);
}

} // namespace

ForeignWindow::ForeignWindow(const char* className) : m_display(XOpenDisplay(nullptr)) {
  waitUntil([&] {
    m_window = find(connection(m_display), DefaultRootWindow(connection(m_display)), className);
    return m_window != 0;
  });
  // Without a window manager nobody else does.
  if (m_window) XSetInputFocus(connection(m_display), m_window, RevertToParent, CurrentTime);
}

ForeignWindow::~ForeignWindow() {
  XCloseDisplay(connection(m_display));
}

void ForeignWindow::pressKey(const char* key, Qt::KeyboardModifiers modifiers) const {
  if (!m_window) return;
  ::Display* const display = connection(m_display);
  XKeyEvent event{};
  event.display = display;
  event.window = m_window;
  event.root = DefaultRootWindow(display);
  event.same_screen = True;
  event.keycode = XKeysymToKeycode(display, XStringToKeysym(key));
  event.state = (modifiers & Qt::ControlModifier ? ControlMask : 0u) | (modifiers & Qt::AltModifier ? Mod1Mask : 0u) |
                (modifiers & Qt::ShiftModifier ? ShiftMask : 0u);
  for (const int type : {KeyPress, KeyRelease}) {
    event.type = type;
    XSendEvent(display, m_window, True, type == KeyPress ? KeyPressMask : KeyReleaseMask,
               reinterpret_cast<XEvent*>(&event));
  }
  XFlush(display);
}

} // namespace Kelvaris::Tests
