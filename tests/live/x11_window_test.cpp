// The window operations against a real X server: the test starts its own
// Xvfb on a free display (Xvfb picks the number and reports it through
// -displayfd), then the openbox window manager, and launches a Java program
// of ours that opens one frame. The frame is found by the Java process id,
// iconified and brought back; a process without windows has none.
#include "../../platform/X11Windows.h"

#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "LiveVM.h"

namespace jdwpkrvdbg {
namespace {

using testing::ChildProcess;

// JVM start-up with the desktop toolkit on a shared two-core machine.
constexpr int kWindowMs = 30000;
constexpr int kServerMs = 10000;

// Started through PATH; null when the program is not installed.
std::unique_ptr<ChildProcess> startIfInstalled(const std::vector<std::string>& argv)
{
    try {
        return std::make_unique<ChildProcess>(argv);
    } catch (const std::runtime_error&) {
        return nullptr;
    }
}

class X11WindowLive : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (const char* old = std::getenv("DISPLAY"))
            savedDisplay_ = old;
        int fds[2];
        ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
        fcntl(fds[1], F_SETFD, 0); // the only descriptor of ours the server inherits
        server_ = startIfInstalled({"Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0", "1024x768x24",
                                    "-nolisten", "tcp", "-noreset"});
        close(fds[1]);
        std::string number;
        pollfd p{fds[0], POLLIN, 0};
        char c = 0;
        while (server_ && poll(&p, 1, kServerMs) == 1 && read(fds[0], &c, 1) == 1 && c != '\n')
            number += c;
        close(fds[0]);
        if (!server_)
            GTEST_SKIP() << "Xvfb is not installed (Debian package xvfb): the X11 window tests need it";
        ASSERT_FALSE(number.empty()) << "Xvfb did not report a display: " << server_->output();
        setenv("DISPLAY", (":" + number).c_str(), 1); // read by the window calls and inherited by children
    }

    void TearDown() override
    {
        // Clients first, the server last, and politely, so that Xvfb removes its lock file and socket.
        if (handler_) {
            handler_->Disconnect();
            handler_.reset();
            setCurrentHandler(nullptr);
        }
        windowManager_.reset();
        if (savedDisplay_)
            setenv("DISPLAY", savedDisplay_->c_str(), 1);
        else
            unsetenv("DISPLAY");
        if (server_) {
            server_->signal(SIGTERM);
            server_->wait(kServerMs);
        }
    }

    std::optional<std::string> savedDisplay_;
    std::unique_ptr<ChildProcess> server_;
    std::unique_ptr<ChildProcess> windowManager_;
    std::shared_ptr<JDWPHandler> handler_;
};

// The debugger launches the program (startVM) and finds its frame by the
// process it started; first without a window manager, then under openbox,
// which takes the frame over when it starts and restores it iconified on
// BringToTop.
TEST_F(X11WindowLive, RaisesTheLaunchedVMsFrameWithoutAndUnderAWindowManager)
{
    const int port = testing::freeTcpPort();
    handler_ = JDWPHandler::create();
    ASSERT_TRUE(handler_->startVM(testing::javaPath(),
                                  testing::socketAgent(port) + " -cp " + testing::testsClassPath() + " WindowApp", "",
                                  false, true, 0, "127.0.0.1", std::to_string(port), true));
    const int32_t pid = handler_->getProcessID();
    int32_t frame = 0;
    testing::pumpUntil(
        [&] { return (frame = handler_->ProcessIDTohWnd(pid)) != 0 || handler_->myJVM()->JVMState() == VMDead; },
        kWindowMs);
    ASSERT_NE(frame, 0) << "no window of the launched VM appeared (does this JDK have its desktop modules?)\n"
                        << handler_->history().dump();
    EXPECT_EQ(findTopLevelWindowOfProcess(getpid()), 0); // a process without windows

    EXPECT_FALSE(ewmhWindowManagerRunning());
    int pumped = 0;
    EXPECT_TRUE(activateWindow(frame, [&] { ++pumped; }));
    EXPECT_EQ(pumped, 1);
    X11WindowState s = queryWindowState(frame);
    // Not active: nobody maintains _NET_ACTIVE_WINDOW.
    EXPECT_EQ(std::make_tuple(s.exists, s.viewable, s.focused, s.active), std::make_tuple(true, true, true, false));
    // Nothing iconifies a window without a window manager.
    EXPECT_FALSE(iconifyWindow(frame));

    windowManager_ = startIfInstalled({"openbox", "--sm-disable"});
    const bool managed = windowManager_ && testing::pumpUntil([] { return ewmhWindowManagerRunning(); }, kServerMs);
    if (managed) {
        ASSERT_TRUE(iconifyWindow(frame));
        s = queryWindowState(frame);
        EXPECT_EQ(std::make_tuple(s.iconic, s.viewable, s.focused), std::make_tuple(true, false, false));
        // A minimised frame is still the program's window.
        EXPECT_EQ(handler_->ProcessIDTohWnd(pid), frame);
        handler_->BringToTop();
        // The frame takes the focus itself (WM_TAKE_FOCUS): the debuggee's
        // toolkit thread may first wait for the debugger to handle its
        // class loads, as any host loop does.
        testing::pumpUntil(
            [&] {
                s = queryWindowState(frame);
                return !s.iconic && s.viewable && s.focused;
            },
            kServerMs);
        EXPECT_EQ(std::make_tuple(s.iconic, s.viewable, s.focused), std::make_tuple(false, true, true));

        // Its classes loaded, the frame takes the focus without the debugger.
        ASSERT_TRUE(iconifyWindow(frame));
        EXPECT_TRUE(activateWindow(frame, [&] { ++pumped; }));
        EXPECT_EQ(pumped, 2);
        s = queryWindowState(frame);
        // The manager names the window active once it has handed it the focus.
        EXPECT_EQ(std::make_tuple(s.iconic, s.viewable, s.active, s.focused), std::make_tuple(false, true, true, true));
    }

    // Once the process is gone its frame is too, and nothing fails loudly.
    handler_->Disconnect();
    EXPECT_TRUE(testing::pumpUntil([&] { return !queryWindowState(frame).exists; }, kServerMs));
    const int before = pumped;
    EXPECT_FALSE(activateWindow(frame, [&] { ++pumped; }));
    EXPECT_EQ(pumped, before);
    if (!managed)
        GTEST_SKIP() << "openbox (Debian package openbox) is not installed or did not start: its part did not run";
}

} // namespace
} // namespace jdwpkrvdbg
