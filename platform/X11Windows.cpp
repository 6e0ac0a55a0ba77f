// Finding and raising the debuggee's top-level window on an X11 desktop.
//
// libX11 is opened with dlopen at first use and its few functions are looked
// up with dlsym; the X headers are used for types and constants only. Every
// public call opens its own display connection (a handle from one call stays
// valid in the next: X window ids are server-wide) and holds an error handler
// that counts errors instead of ending the process, so a window that goes
// away in the middle of a call only makes that call fail.
#include "X11Windows.h"

#include <dlfcn.h>
#include <poll.h>

#include "jdwpkrvdbg/support/NonCopyable.h"
#include <chrono>
#include <cstdlib>
#include <vector>

// Last: the X headers define short macros (None, Bool, Status, ...).
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace jdwpkrvdbg {
namespace {

// ICCCM WM_STATE values (Xutil.h has them as NormalState / IconicState; the
// withdrawn state is 0).
constexpr long kWmStateNormal = NormalState;
constexpr long kWmStateIconic = IconicState;

// _NET_ACTIVE_WINDOW source indication "pager": the IDE acts on the user's
// request, so focus-stealing prevention must not swallow the activation.
constexpr long kActivationSourcePager = 2;

// How deep a window-manager frame is searched for its client window: most
// managers put the client straight into the frame, some add a wrapper.
constexpr int kMaxFrameDepth = 2;

// Bounded waits for the window manager (and, through WM_TAKE_FOCUS, the
// client) to carry out a request; they only run out when the request failed.
constexpr int kActivateWaitMs = 1000;
constexpr int kIconifyWaitMs = 1000;

// Guard against a malformed tree when walking up from the focus window.
constexpr int kMaxAncestorSteps = 32;

// The functions we use, as (member of X11Api, libX11 name): one list for the
// members and for their lookup.
#define JDWPKRVDBG_X11_FUNCTIONS(F)                                                                                    \
    F(openDisplay, XOpenDisplay)                                                                                       \
    F(closeDisplay, XCloseDisplay)                                                                                     \
    F(setErrorHandler, XSetErrorHandler)                                                                               \
    F(defaultRootWindow, XDefaultRootWindow)                                                                           \
    F(defaultScreen, XDefaultScreen)                                                                                   \
    F(connectionNumber, XConnectionNumber)                                                                             \
    F(internAtom, XInternAtom)                                                                                         \
    F(getWindowProperty, XGetWindowProperty)                                                                           \
    F(free, XFree)                                                                                                     \
    F(queryTree, XQueryTree)                                                                                           \
    F(getTransientForHint, XGetTransientForHint)                                                                       \
    F(getWindowAttributes, XGetWindowAttributes)                                                                       \
    F(mapRaised, XMapRaised)                                                                                           \
    F(raiseWindow, XRaiseWindow)                                                                                       \
    F(setInputFocus, XSetInputFocus)                                                                                   \
    F(getInputFocus, XGetInputFocus)                                                                                   \
    F(sendEvent, XSendEvent)                                                                                           \
    F(selectInput, XSelectInput)                                                                                       \
    F(sync, XSync)                                                                                                     \
    F(pending, XPending)                                                                                               \
    F(nextEvent, XNextEvent)                                                                                           \
    F(iconifyWindow, XIconifyWindow)

struct X11Api {
#define JDWPKRVDBG_X11_MEMBER(member, name) decltype(&::name) member = nullptr;
    JDWPKRVDBG_X11_FUNCTIONS(JDWPKRVDBG_X11_MEMBER)
#undef JDWPKRVDBG_X11_MEMBER
};

template <typename Fn>
bool resolve(void* library, const char* name, Fn& slot)
{
    slot = reinterpret_cast<Fn>(dlsym(library, name));
    return slot != nullptr;
}

// The loaded library, or nullptr when libX11 (or one of its functions) is
// missing. Loaded once and never unloaded: Xlib keeps process-wide state.
const X11Api* x11Api()
{
    static const X11Api* api = []() -> const X11Api* {
        void* library = dlopen("libX11.so.6", RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) {
            return nullptr;
        }
        static X11Api loaded;
        bool ok = true;
#define JDWPKRVDBG_X11_RESOLVE(member, name) ok = ok && resolve(library, #name, loaded.member);
        JDWPKRVDBG_X11_FUNCTIONS(JDWPKRVDBG_X11_RESOLVE)
#undef JDWPKRVDBG_X11_RESOLVE
        return ok ? &loaded : nullptr;
    }();
    return api;
}

// Errors seen while one of our connections is open. Everything runs on the
// host's single thread, so a plain counter is enough.
int gErrorCount = 0;

int countError(Display*, XErrorEvent*)
{
    ++gErrorCount;
    return 0;
}

// One display connection with our error handler installed; the previous
// handler is back once the connection is closed (closing flushes requests
// whose errors must still land with us).
class X11Connection : NonCopyable {
public:
    X11Connection()
    {
        const char* name = std::getenv("DISPLAY");
        api_ = x11Api();
        if (name == nullptr || *name == '\0' || api_ == nullptr) {
            api_ = nullptr;
            return;
        }
        installHandler();
        display_ = api_->openDisplay(name);
        if (display_ == nullptr) {
            restoreHandler();
            return;
        }
        root_ = api_->defaultRootWindow(display_);
    }
    ~X11Connection()
    {
        if (display_ != nullptr) {
            api_->closeDisplay(display_);
            restoreHandler();
        }
    }

    bool ok() const { return display_ != nullptr; }
    const X11Api& x() const { return *api_; }
    Display* display() const { return display_; }
    Window root() const { return root_; }

    // Host code run in the middle of a call gets the handler it installed.
    void runOutside(const std::function<void()>& callback)
    {
        if (!callback) {
            return;
        }
        api_->sync(display_, False);
        restoreHandler();
        callback();
        installHandler();
    }

    Atom atom(const char* name) const { return api_->internAtom(display_, name, False); }

    // Calls `request` and answers whether the server reported no error for it.
    template <typename Request>
    bool checked(Request&& request)
    {
        int before = gErrorCount;
        request();
        api_->sync(display_, False);
        return gErrorCount == before;
    }

    // The 32-bit items of a property of type `type` (empty if absent).
    std::vector<unsigned long> cardinals(Window window, Atom property, Atom type)
    {
        std::vector<unsigned long> items;
        Atom actualType = None;
        int actualFormat = 0;
        unsigned long count = 0;
        unsigned long remaining = 0;
        unsigned char* data = nullptr;
        int before = gErrorCount;
        int status = api_->getWindowProperty(display_, window, property, 0, 1024, False, type, &actualType,
                                             &actualFormat, &count, &remaining, &data);
        if (status == Success && gErrorCount == before && data != nullptr && actualType == type && actualFormat == 32) {
            // Format-32 items come back as an array of C long, whatever its size.
            const long* values = reinterpret_cast<const long*>(data);
            for (unsigned long i = 0; i < count; ++i) {
                items.push_back(static_cast<unsigned long>(values[i]));
            }
        }
        if (data != nullptr) {
            api_->free(data);
        }
        return items;
    }

    bool hasProperty(Window window, Atom property)
    {
        Atom actualType = None;
        int actualFormat = 0;
        unsigned long count = 0;
        unsigned long remaining = 0;
        unsigned char* data = nullptr;
        int status = api_->getWindowProperty(display_, window, property, 0, 0, False, AnyPropertyType, &actualType,
                                             &actualFormat, &count, &remaining, &data);
        if (data != nullptr) {
            api_->free(data);
        }
        return status == Success && actualType != None;
    }

    // Children bottom to top, as the server stacks them; `parent` is set too.
    std::vector<Window> children(Window window, Window* parent = nullptr)
    {
        std::vector<Window> result;
        Window rootReturn = None;
        Window parentReturn = None;
        Window* list = nullptr;
        unsigned int count = 0;
        int before = gErrorCount;
        if (api_->queryTree(display_, window, &rootReturn, &parentReturn, &list, &count) != 0 &&
            gErrorCount == before) {
            result.assign(list, list + count);
            if (parent != nullptr) {
                *parent = parentReturn;
            }
        } else if (parent != nullptr) {
            *parent = None;
        }
        if (list != nullptr) {
            api_->free(list);
        }
        return result;
    }

    bool attributes(Window window, XWindowAttributes& out)
    {
        int before = gErrorCount;
        return api_->getWindowAttributes(display_, window, &out) != 0 && gErrorCount == before;
    }

    long wmState(Window window)
    {
        Atom wmStateAtom = atom("WM_STATE");
        std::vector<unsigned long> state = cardinals(window, wmStateAtom, wmStateAtom);
        return state.empty() ? -1 : static_cast<long>(state[0]);
    }

    // True when an EWMH window manager runs: its check window names itself,
    // so a property left behind by a manager that ended does not count.
    bool ewmhRunning()
    {
        Atom check = atom("_NET_SUPPORTING_WM_CHECK");
        std::vector<unsigned long> fromRoot = cardinals(root_, check, XA_WINDOW);
        if (fromRoot.empty() || fromRoot[0] == None) {
            return false;
        }
        std::vector<unsigned long> fromChild = cardinals(fromRoot[0], check, XA_WINDOW);
        return !fromChild.empty() && fromChild[0] == fromRoot[0];
    }

    // True when that manager announces `feature` in _NET_SUPPORTED.
    bool ewmhSupports(Atom feature)
    {
        if (!ewmhRunning()) {
            return false;
        }
        for (unsigned long supported : cardinals(root_, atom("_NET_SUPPORTED"), XA_ATOM)) {
            if (supported == feature) {
                return true;
            }
        }
        return false;
    }

    void requestActivation(Window window)
    {
        XEvent event{};
        event.xclient.type = ClientMessage;
        event.xclient.display = display_;
        event.xclient.window = window;
        event.xclient.message_type = atom("_NET_ACTIVE_WINDOW");
        event.xclient.format = 32;
        event.xclient.data.l[0] = kActivationSourcePager;
        event.xclient.data.l[1] = CurrentTime;
        event.xclient.data.l[2] = None;
        api_->sendEvent(display_, root_, False, SubstructureRedirectMask | SubstructureNotifyMask, &event);
    }

    X11WindowState state(Window window)
    {
        X11WindowState result;
        XWindowAttributes attrs{};
        if (!attributes(window, attrs)) {
            return result;
        }
        result.exists = true;
        result.viewable = attrs.map_state == IsViewable;
        result.iconic = wmState(window) == kWmStateIconic;
        std::vector<unsigned long> active = cardinals(root_, atom("_NET_ACTIVE_WINDOW"), XA_WINDOW);
        result.active = !active.empty() && active[0] == window;

        // Toolkits often hand the focus to a child of their frame (a focus
        // proxy), so the focus counts when it is anywhere inside the window.
        Window focus = None;
        int revert = 0;
        api_->getInputFocus(display_, &focus, &revert);
        for (int step = 0; step < kMaxAncestorSteps && focus != None && focus != PointerRoot; ++step) {
            if (focus == window) {
                result.focused = true;
                break;
            }
            if (focus == root_) {
                break;
            }
            Window parent = None;
            children(focus, &parent);
            focus = parent;
        }
        return result;
    }

    // Reads events until `done()` holds or `timeoutMs` passed. The caller
    // has selected the events that announce the change it waits for. The
    // steady clock, not the component's replaceable tick source, bounds this
    // wait so it ends even while a test holds the ticks still.
    bool waitFor(const std::function<bool()>& done, int timeoutMs)
    {
        using Clock = std::chrono::steady_clock;
        const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
        while (true) {
            if (done()) {
                return true;
            }
            if (api_->pending(display_) == 0) {
                auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
                if (left <= 0) {
                    return done();
                }
                pollfd fd{api_->connectionNumber(display_), POLLIN, 0};
                poll(&fd, 1, static_cast<int>(left));
            }
            while (api_->pending(display_) > 0) {
                XEvent event;
                api_->nextEvent(display_, &event);
            }
        }
    }

private:
    void installHandler() { previous_ = api_->setErrorHandler(countError); }
    void restoreHandler() { api_->setErrorHandler(previous_); }

    const X11Api* api_ = nullptr;
    Display* display_ = nullptr;
    Window root_ = None;
    XErrorHandler previous_ = nullptr;
};

// The window inside `window` (or `window` itself) that a client owns: the
// one carrying WM_STATE (set by the window manager on the windows it manages)
// or _NET_WM_PID (set by the client, also when no manager runs). Frames are
// searched top-down.
Window clientWindowOf(X11Connection& conn, Window window, int depth, Atom wmState, Atom netWmPid)
{
    if (conn.hasProperty(window, wmState) || conn.hasProperty(window, netWmPid)) {
        return window;
    }
    if (depth <= 0) {
        return None;
    }
    std::vector<Window> inner = conn.children(window);
    for (auto it = inner.rbegin(); it != inner.rend(); ++it) {
        Window client = clientWindowOf(conn, *it, depth - 1, wmState, netWmPid);
        if (client != None) {
            return client;
        }
    }
    return None;
}

bool isTopLevelOf(X11Connection& conn, Window client, int32_t pid, Atom netWmPid)
{
    std::vector<unsigned long> owner = conn.cardinals(client, netWmPid, XA_CARDINAL);
    if (owner.empty() || owner[0] != static_cast<unsigned long>(pid)) {
        return false;
    }
    XWindowAttributes attrs{};
    if (!conn.attributes(client, attrs) || attrs.override_redirect) {
        return false;
    }
    // A toolkit's hidden helper windows carry the process id too; only a
    // window the user can see (or has minimised) is the program's window.
    long state = conn.wmState(client);
    if (attrs.map_state != IsViewable && state != kWmStateNormal && state != kWmStateIconic) {
        return false;
    }
    Window parent = None;
    return conn.x().getTransientForHint(conn.display(), client, &parent) == 0;
}

} // namespace

int32_t findTopLevelWindowOfProcess(int32_t pid)
{
    if (pid <= 0) {
        return 0;
    }
    X11Connection conn;
    if (!conn.ok()) {
        return 0;
    }
    const Atom wmState = conn.atom("WM_STATE");
    const Atom netWmPid = conn.atom("_NET_WM_PID");
    // XQueryTree lists the root's children bottom to top: walking them
    // backwards visits the windows from the top of the stack down (with or
    // without a window manager), looking into the frames of a manager that
    // reparents. _NET_CLIENT_LIST_STACKING would spare the frame search but
    // exists only under an EWMH manager; one walk serves every desktop.
    std::vector<Window> tops = conn.children(conn.root());
    for (auto it = tops.rbegin(); it != tops.rend(); ++it) {
        Window client = clientWindowOf(conn, *it, kMaxFrameDepth, wmState, netWmPid);
        if (client != None && isTopLevelOf(conn, client, pid, netWmPid)) {
            return static_cast<int32_t>(client);
        }
    }
    return 0;
}

namespace {

// Runs `act` on a connection to the display with the window, when there is
// a display and the window exists; false otherwise.
template <typename Act>
bool withExistingWindow(int32_t window, Act act)
{
    if (window <= 0) {
        return false;
    }
    X11Connection conn;
    if (!conn.ok()) {
        return false;
    }
    const Window target = static_cast<Window>(window);
    if (!conn.state(target).exists) {
        return false;
    }
    return act(conn, target, conn.x(), conn.display());
}

} // namespace

bool activateWindow(int32_t window, const std::function<void()>& pump)
{
    return withExistingWindow(window, [&](X11Connection& conn, Window target, const X11Api& x, Display* display) {
        // Select before acting so no change the wait looks for is missed.
        x.selectInput(display, conn.root(), PropertyChangeMask);
        x.selectInput(display, target, PropertyChangeMask | StructureNotifyMask | FocusChangeMask);
        const bool ewmh = conn.ewmhSupports(conn.atom("_NET_ACTIVE_WINDOW"));

        if (conn.wmState(target) == kWmStateIconic) {
            // Mapping an iconic window asks an ICCCM manager to restore it; an
            // EWMH manager de-iconifies on activation as well.
            conn.checked([&] {
                x.mapRaised(display, target);
                if (ewmh) {
                    conn.requestActivation(target);
                }
            });
        }
        conn.runOutside(pump);

        if (ewmh) {
            // The manager raises and focuses the window itself (honouring the
            // client's WM_TAKE_FOCUS protocol), so no focus is forced on it here.
            conn.requestActivation(target);
            x.sync(display, False);
        } else {
            XWindowAttributes attrs{};
            bool raised = conn.attributes(target, attrs) && conn.checked([&] { x.raiseWindow(display, target); });
            // Focus only once the raise worked; an unmapped window cannot take it.
            if (raised && attrs.map_state == IsViewable) {
                conn.checked([&] { x.setInputFocus(display, target, RevertToParent, CurrentTime); });
            }
        }
        return conn.waitFor(
            [&] {
                X11WindowState now = conn.state(target);
                // Under a manager its own word counts: the window is raised
                // and focused once the manager names it active.
                return now.exists && now.viewable && (ewmh ? now.active : now.focused);
            },
            kActivateWaitMs);
    });
}

bool iconifyWindow(int32_t window)
{
    return withExistingWindow(window, [&](X11Connection& conn, Window target, const X11Api& x, Display* display) {
        x.selectInput(display, target, PropertyChangeMask | StructureNotifyMask);
        if (!conn.checked([&] { x.iconifyWindow(display, target, x.defaultScreen(display)); })) {
            return false;
        }
        return conn.waitFor([&] { return conn.wmState(target) == kWmStateIconic; }, kIconifyWaitMs);
    });
}

bool ewmhWindowManagerRunning()
{
    X11Connection conn;
    return conn.ok() && conn.ewmhRunning();
}

X11WindowState queryWindowState(int32_t window)
{
    if (window <= 0) {
        return {};
    }
    X11Connection conn;
    if (!conn.ok()) {
        return {};
    }
    return conn.state(static_cast<Window>(window));
}

} // namespace jdwpkrvdbg
