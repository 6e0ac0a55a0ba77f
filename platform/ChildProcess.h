// The launched VM as the Linux transport sees it: the process (started with
// the shared-memory library on its LD_LIBRARY_PATH), its console captured
// through a pipe when asked, and the watch on its exit (a pidfd, or a timer
// where the kernel has none). Console text and the exit are reported from
// MessagePump callbacks through the two callbacks given at construction.
// stdout and stderr come through pipes of their own, so that a host can show
// them apart; the order between the two streams is not kept.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "ChildLauncher.h"
#include "jdwpkrvdbg/platform/MessagePump.h"
#include "jdwpkrvdbg/support/NonCopyable.h"

namespace jdwpkrvdbg::platform_detail {

// The launch of `path` with the words of `commandLine` as its arguments and
// `libraryDir` in front of its LD_LIBRARY_PATH. False with `status` set when
// there is no path or the command line cannot be split.
bool describeLaunch(const std::string& path, const std::string& commandLine, const std::string& libraryDir,
                    ChildLaunch& launch, std::string& status);

class ChildProcess : NonCopyable {
public:
    // `error`: the text came from the process's stderr.
    using ConsoleCallback = std::function<void(const std::string& text, bool error)>;
    // After the process is reaped and the text it wrote that was not
    // reported yet has gone out through the console callback.
    using ExitCallback = std::function<void()>;

    ChildProcess(MessagePump& pump, ConsoleCallback console, ExitCallback exited);
    // Killing a still running VM is the session's decision; only a child that
    // already ended is reaped here, so that it does not stay a zombie.
    ~ChildProcess();

    // The caller has ended a previous process (kill). False with `status`
    // set when the process could not be started.
    bool start(ChildLaunch launch, bool console, bool usePipe, std::string& status);
    // Kills and reaps the process; true when there was one.
    bool kill();
    // Waits at most maxWaitMs for the process to end by itself, without
    // reaping it; true when it has ended (or there is none).
    bool waitExit(int maxWaitMs) const;
    bool running() const;
    pid_t pid() const { return pid_; }
    int pidFd() const { return pidFd_; }
    // Wait status of the last process reaped (-1 before any).
    int lastExitStatus() const { return lastExitStatus_; }

private:
    void watchExit();
    // One captured stream: its pipe's read end and the pump's watch on it.
    struct Capture {
        int fd = -1;
        int watch = 0;
        bool error = false;
    };
    void watchPipe(Capture& capture, int fd);
    void onPipeReady(Capture& capture);
    void drainPipe(Capture& capture, std::string& text);
    void closePipe(Capture& capture);
    void closePipes();
    void onExited();
    bool reap(bool block);
    void forget();

    MessagePump& pump_;
    ConsoleCallback console_;
    ExitCallback exited_;
    pid_t pid_ = 0;
    int pidFd_ = -1;
    int exitWatch_ = 0; // pidfd watch, or a polling timer without pidfd
    bool exitWatchIsTimer_ = false;
    Capture out_;
    Capture err_{-1, 0, true};
    int lastExitStatus_ = -1;
};

} // namespace jdwpkrvdbg::platform_detail
