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

TEST(X11Windows, NoReachableDisplayAnswersNothingQuietly)
{
    const char* old = std::getenv("DISPLAY");
    const std::optional<std::string> saved = old ? std::optional<std::string>(old) : std::nullopt;
    const struct {
        const char* display;
        const char* why;
    } cases[] = {
        {nullptr, "DISPLAY unset"},
        {"", "DISPLAY empty"},
        // A display number no server uses: the socket connect fails at once.
        {":65000", "no server on the display"},
        {"not a display name", "malformed name"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        c.display ? setenv("DISPLAY", c.display, 1) : unsetenv("DISPLAY");
        int pumped = 0;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(ewmhWindowManagerRunning());
        for (int32_t pid : {int32_t(getpid()), 1, 0, -1})
            EXPECT_EQ(findTopLevelWindowOfProcess(pid), 0) << "pid " << pid;
        for (int32_t window : {0x400007, 1, 0, -5}) {
            EXPECT_FALSE(activateWindow(window, [&] { ++pumped; })) << "window " << window;
            EXPECT_FALSE(activateWindow(window, {})) << "window " << window;
            EXPECT_FALSE(iconifyWindow(window)) << "window " << window;
            X11WindowState s = queryWindowState(window);
            EXPECT_FALSE(s.exists || s.viewable || s.iconic || s.focused || s.active) << "window " << window;
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        // Nothing happened, so the host's events were not pumped either.
        EXPECT_EQ(pumped, 0);
    }
    saved ? setenv("DISPLAY", saved->c_str(), 1) : unsetenv("DISPLAY");
}

} // namespace
} // namespace jdwpkrvdbg
