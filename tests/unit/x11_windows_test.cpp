// The X11 window operations where no display can be reached: every call must
// answer 0 / false quietly, whether DISPLAY is unset, empty or names a server
// that is not there, and whatever handle or process id it is given.
#include "../../platform/X11Windows.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <unistd.h>

namespace jdwpkrvdbg {
namespace {

// Sets DISPLAY for one scope and puts the old value back.
class DisplayEnv {
public:
    explicit DisplayEnv(const char* value) {
        if (const char* old = std::getenv("DISPLAY")) {
            saved_ = old;
        }
        if (value == nullptr) {
            unsetenv("DISPLAY");
        } else {
            setenv("DISPLAY", value, 1);
        }
    }
    ~DisplayEnv() {
        if (saved_) {
            setenv("DISPLAY", saved_->c_str(), 1);
        } else {
            unsetenv("DISPLAY");
        }
    }

private:
    std::optional<std::string> saved_;
};

TEST(X11Windows, NoReachableDisplayAnswersNothingQuietly) {
    struct Case {
        const char* display;
        const char* why;
    };
    const Case cases[] = {
        {nullptr, "DISPLAY unset"},
        {"", "DISPLAY empty"},
        // A display number no server uses: the socket connect fails at once.
        {":65000", "no server on the display"},
        {"not a display name", "malformed name"},
    };
    const int32_t pids[] = {static_cast<int32_t>(getpid()), 1, 0, -1};
    const int32_t windows[] = {0x400007, 1, 0, -5};

    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        DisplayEnv env(c.display);
        int pumped = 0;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(ewmhWindowManagerRunning());
        for (int32_t pid : pids) {
            EXPECT_EQ(findTopLevelWindowOfProcess(pid), 0) << "pid " << pid;
        }
        for (int32_t window : windows) {
            EXPECT_FALSE(activateWindow(window, [&] { ++pumped; })) << "window " << window;
            EXPECT_FALSE(activateWindow(window, {})) << "window " << window;
            EXPECT_FALSE(iconifyWindow(window)) << "window " << window;
            X11WindowState state = queryWindowState(window);
            EXPECT_FALSE(state.exists || state.viewable || state.iconic || state.focused || state.active);
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        // Nothing happened, so the host's events were not pumped either.
        EXPECT_EQ(pumped, 0);
    }
}

} // namespace
} // namespace jdwpkrvdbg
