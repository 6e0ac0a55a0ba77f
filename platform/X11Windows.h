// The debuggee's windows on an X11 desktop: finds the top-level window that a
// process owns and brings it to the front, the way the IDE raises the program
// it debugs. libX11 is loaded at run time (dlopen of libX11.so.6), so the
// library has no link-time dependency on X; where there is no display or no
// libX11 every call answers 0 / false without printing anything.
//
// Window handles are X11 window ids (XIDs use 29 bits, so they fit an
// int32_t). Each call opens its own short-lived display connection and keeps
// an X error handler installed while it talks to the server, so a window that
// vanishes meanwhile only makes the call fail.
#pragma once

#include <cstdint>
#include <functional>

namespace jdwpkrvdbg {

// The top-level window of process `pid`: the root's children are walked from
// the top of the stacking order down, and a window-manager frame is looked
// into (up to two levels) for the client window it holds. The first client
// window that is managed or mapped, is not override-redirect, has no
// transient-for parent and whose _NET_WM_PID is `pid` is the answer. 0 if
// none, if `pid` is not positive, or if there is no display.
int32_t findTopLevelWindowOfProcess(int32_t pid);

// Restores `window` if it is iconic, calls `pump` (may be empty) so the host
// handles its events, then brings the window to the front: through the
// window manager's _NET_ACTIVE_WINDOW where an EWMH window manager runs,
// otherwise by raising it and giving it the input focus. Answers true once,
// within a bounded wait (1 s), the window is viewable and the window manager
// names it the active window (without a manager: the window has the input
// focus); false for 0, a vanished window, or no display.
bool activateWindow(int32_t window, const std::function<void()>& pump);

// Asks the window manager to iconify `window` (XIconifyWindow) and answers
// whether it reached the iconic state within a bounded wait. Without a
// window manager nothing iconifies a window, so this answers false.
bool iconifyWindow(int32_t window);

// Whether an EWMH window manager runs on the display (its check window is
// alive and names itself).
bool ewmhWindowManagerRunning();

// What the server says about a window at this moment (for callers that check
// the outcome of the calls above).
struct X11WindowState {
    bool exists = false;   // the server knows the window
    bool viewable = false; // mapped, and all its ancestors too
    bool iconic = false;   // WM_STATE says IconicState
    bool focused = false;  // the input focus is the window or inside it
    bool active = false;   // _NET_ACTIVE_WINDOW on the root names it
};
X11WindowState queryWindowState(int32_t window);

} // namespace jdwpkrvdbg
