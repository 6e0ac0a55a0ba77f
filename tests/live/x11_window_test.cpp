// The window operations against a real X server: each test starts its own
// Xvfb on a free display (Xvfb picks the number and reports it through
// -displayfd), optionally the openbox window manager, and a Java program of
// ours that opens one frame. The frame is found by the Java process id,
// iconified and brought back; a process without windows has none.
#include "../../platform/X11Windows.h"

#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace jdwpkrvdbg {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// JVM start-up with the desktop toolkit on a shared two-core machine.
constexpr milliseconds kWindowDeadline{30000};
constexpr milliseconds kServerDeadline{10000};
constexpr milliseconds kStopGrace{3000};
constexpr milliseconds kPollInterval{20};

std::string findInPath(const std::string& name) {
    const char* path = std::getenv("PATH");
    std::string dirs = path != nullptr ? path : "/usr/bin:/bin";
    size_t start = 0;
    while (start <= dirs.size()) {
        size_t end = dirs.find(':', start);
        if (end == std::string::npos) {
            end = dirs.size();
        }
        std::string candidate = dirs.substr(start, end - start) + "/" + name;
        if (end > start && access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
        start = end + 1;
    }
    return {};
}

// Polls `done` until it holds or `deadline` passed; answers done().
bool pollUntil(const std::function<bool()>& done, milliseconds deadline) {
    const Clock::time_point end = Clock::now() + deadline;
    while (!done()) {
        if (Clock::now() >= end) {
            return done();
        }
        std::this_thread::sleep_for(kPollInterval);
    }
    return true;
}

// A child process that is stopped when the object goes away: first politely
// (so Xvfb removes its lock file and socket), then for good.
class ChildProcess {
public:
    ChildProcess() = default;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() { stop(); }

    // Starts `argv` with `display` as DISPLAY. `quiet` sends its output to
    // /dev/null; `closeInChild` is a descriptor the child must not keep.
    bool start(const std::vector<std::string>& argv, const std::string& display, bool quiet,
               int closeInChild = -1) {
        std::vector<std::string> envStrings;
        for (char** e = environ; *e != nullptr; ++e) {
            if (std::strncmp(*e, "DISPLAY=", 8) != 0) {
                envStrings.emplace_back(*e);
            }
        }
        if (!display.empty()) {
            envStrings.push_back("DISPLAY=" + display);
        }
        std::vector<char*> envp;
        for (std::string& s : envStrings) {
            envp.push_back(s.data());
        }
        envp.push_back(nullptr);
        std::vector<std::string> args = argv;
        std::vector<char*> argp;
        for (std::string& s : args) {
            argp.push_back(s.data());
        }
        argp.push_back(nullptr);

        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        if (quiet) {
            posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
            posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        }
        if (closeInChild >= 0) {
            posix_spawn_file_actions_addclose(&actions, closeInChild);
        }
        // Its own process group, so a terminal's Ctrl-C reaches only the test.
        posix_spawnattr_t attrs;
        posix_spawnattr_init(&attrs);
        posix_spawnattr_setflags(&attrs, POSIX_SPAWN_SETPGROUP);
        posix_spawnattr_setpgroup(&attrs, 0);
        int rc = posix_spawn(&pid_, argp[0], &actions, &attrs, argp.data(), envp.data());
        posix_spawnattr_destroy(&attrs);
        posix_spawn_file_actions_destroy(&actions);
        if (rc != 0) {
            pid_ = -1;
            return false;
        }
        return true;
    }

    pid_t pid() const { return pid_; }

    bool running() {
        if (pid_ <= 0 || exited_) {
            return false;
        }
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            exited_ = true;
        }
        return !exited_;
    }

    void stop() {
        if (pid_ <= 0) {
            return;
        }
        if (running()) {
            kill(pid_, SIGTERM);
            if (!pollUntil([this] { return !running(); }, kStopGrace)) {
                kill(pid_, SIGKILL);
                waitpid(pid_, nullptr, 0);
            }
        }
        pid_ = -1;
        exited_ = false;
    }

private:
    pid_t pid_ = -1;
    bool exited_ = false;
};

// DISPLAY of this process for one scope (the window calls read it).
class DisplayEnv {
public:
    explicit DisplayEnv(const std::string& value) {
        if (const char* old = std::getenv("DISPLAY")) {
            saved_ = old;
        }
        setenv("DISPLAY", value.c_str(), 1);
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

class X11WindowLive : public testing::Test {
protected:
    void SetUp() override {
        xvfbPath_ = findInPath("Xvfb");
        if (xvfbPath_.empty()) {
            GTEST_SKIP() << "Xvfb is not installed (Debian package xvfb): the X11 window tests need it";
        }
        ASSERT_TRUE(startServer()) << "Xvfb did not report a display";
        displayEnv_.emplace(display_);
    }

    void TearDown() override {
        // Clients first, the server last.
        app_.stop();
        windowManager_.stop();
        displayEnv_.reset();
        server_.stop();
    }

    bool startServer() {
        int fds[2];
        if (pipe(fds) != 0) {
            return false;
        }
        bool started = server_.start({xvfbPath_, "-displayfd", std::to_string(fds[1]), "-screen", "0",
                                      "1024x768x24", "-nolisten", "tcp", "-noreset"},
                                     "", true, fds[0]);
        close(fds[1]);
        std::string number;
        const Clock::time_point end = Clock::now() + kServerDeadline;
        while (started) {
            auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now()).count();
            pollfd p{fds[0], POLLIN, 0};
            if (left <= 0 || poll(&p, 1, static_cast<int>(left)) <= 0) {
                break;
            }
            char c = 0;
            if (read(fds[0], &c, 1) != 1 || c == '\n') {
                break;
            }
            number += c;
        }
        close(fds[0]);
        if (number.empty()) {
            return false;
        }
        display_ = ":" + number;
        return true;
    }

    bool startWindowManager() {
        std::string openbox = findInPath("openbox");
        if (openbox.empty()) {
            return false;
        }
        return windowManager_.start({openbox, "--sm-disable"}, display_, true) &&
               pollUntil([] { return ewmhWindowManagerRunning(); }, kServerDeadline);
    }

    // Starts WindowApp and answers its frame (0 if it never showed).
    int32_t startAppAndWaitForFrame() {
        if (!app_.start({JDWPKRVDBG_JAVA, "-cp", JDWPKRVDBG_TESTS_CP, "WindowApp"}, display_, false)) {
            ADD_FAILURE() << "could not start " << JDWPKRVDBG_JAVA;
            return 0;
        }
        int32_t frame = 0;
        pollUntil(
            [&] {
                frame = findTopLevelWindowOfProcess(app_.pid());
                return frame != 0 || !app_.running();
            },
            kWindowDeadline);
        EXPECT_TRUE(app_.running()) << "WindowApp ended (does this JDK have its desktop modules?)";
        return frame;
    }

    std::string xvfbPath_;
    std::string display_;
    ChildProcess server_;
    ChildProcess windowManager_;
    ChildProcess app_;
    std::optional<DisplayEnv> displayEnv_;
};

TEST_F(X11WindowLive, WithoutWindowManagerRaisesAndFocusesTheFrame) {
    int32_t frame = startAppAndWaitForFrame();
    ASSERT_NE(frame, 0) << "no window of the Java process appeared";

    // The same process always answers the same frame; other processes none.
    EXPECT_EQ(findTopLevelWindowOfProcess(app_.pid()), frame);
    EXPECT_EQ(findTopLevelWindowOfProcess(getpid()), 0);
    ChildProcess sleeper;
    ASSERT_TRUE(sleeper.start({"/bin/sleep", "30"}, display_, true));
    EXPECT_EQ(findTopLevelWindowOfProcess(sleeper.pid()), 0);

    EXPECT_FALSE(ewmhWindowManagerRunning());
    int pumped = 0;
    EXPECT_TRUE(activateWindow(frame, [&] { ++pumped; }));
    EXPECT_EQ(pumped, 1);
    X11WindowState state = queryWindowState(frame);
    EXPECT_TRUE(state.exists);
    EXPECT_TRUE(state.viewable);
    EXPECT_TRUE(state.focused);
    EXPECT_FALSE(state.active); // nobody maintains _NET_ACTIVE_WINDOW

    // Nothing iconifies a window without a window manager.
    EXPECT_FALSE(iconifyWindow(frame));

    // Once the process is gone its frame is too, and nothing fails loudly.
    app_.stop();
    EXPECT_TRUE(pollUntil([&] { return !queryWindowState(frame).exists; }, kServerDeadline));
    EXPECT_FALSE(activateWindow(frame, [&] { ++pumped; }));
    EXPECT_EQ(pumped, 1);
}

TEST_F(X11WindowLive, UnderOpenboxRestoresAnIconifiedFrame) {
    if (!startWindowManager()) {
        GTEST_SKIP() << "openbox (Debian package openbox) is not installed or did not start";
    }
    int32_t frame = startAppAndWaitForFrame();
    ASSERT_NE(frame, 0) << "no window of the Java process appeared";

    ASSERT_TRUE(iconifyWindow(frame));
    X11WindowState state = queryWindowState(frame);
    EXPECT_TRUE(state.iconic);
    EXPECT_FALSE(state.viewable);
    EXPECT_FALSE(state.focused);
    // A minimised frame is still the program's window.
    EXPECT_EQ(findTopLevelWindowOfProcess(app_.pid()), frame);

    int pumped = 0;
    EXPECT_TRUE(activateWindow(frame, [&] { ++pumped; }));
    EXPECT_EQ(pumped, 1);
    state = queryWindowState(frame);
    EXPECT_FALSE(state.iconic);
    EXPECT_TRUE(state.viewable);
    EXPECT_TRUE(state.active);
    // The manager names the window active once it has handed it the focus.
    EXPECT_TRUE(state.focused);
}


// The debugger launches the program itself (startVM) and raises its window
// by the process it started.
TEST_F(X11WindowLive, BringToTopRaisesTheLaunchedVMsIconifiedWindow) {
    if (!startWindowManager()) {
        GTEST_SKIP() << "openbox (Debian package openbox) is not installed or did not start";
    }
    int port = 0;
    {
        int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof(addr);
        if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0 &&
            getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0) {
            port = ntohs(addr.sin_port);
        }
        close(fd);
    }
    auto handler = JDWPHandler::create();
    const std::string agent = "-agentlib:jdwp=transport=dt_socket,server=y,suspend=y,address=127.0.0.1:" +
                              std::to_string(port);
    ASSERT_TRUE(handler->startVM(JDWPKRVDBG_JAVA, agent + " -cp " + JDWPKRVDBG_TESTS_CP + " WindowApp", "", false,
                                 true, 0, "127.0.0.1", std::to_string(port), true));
    int32_t frame = 0;
    pollUntil(
        [&] {
            DoEvents();
            frame = handler->ProcessIDTohWnd(handler->getProcessID());
            return frame != 0;
        },
        kWindowDeadline);
    ASSERT_NE(frame, 0) << "no window of the launched VM appeared";
    ASSERT_TRUE(iconifyWindow(frame));
    EXPECT_TRUE(queryWindowState(frame).iconic);
    handler->BringToTop();
    X11WindowState state = queryWindowState(frame);
    EXPECT_FALSE(state.iconic);
    EXPECT_TRUE(state.viewable);
    EXPECT_TRUE(state.focused);
    EXPECT_EQ(handler->ProcessIDTohWnd(getpid()), 0);
    handler->Disconnect();
    handler.reset();
    setCurrentHandler(nullptr);
}

} // namespace
} // namespace jdwpkrvdbg
