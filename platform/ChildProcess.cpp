// The launched VM's process, console pipe and exit watch (see
// ChildProcess.h), and the shell-like splitting of its command line.
#include "ChildProcess.h"

#include "ChildLauncher.h"
#include "ShmemRing.h"
#include "TransportParts.h"
#include "jdwpkrvdbg/platform/Clock.h"
#include "jdwpkrvdbg/platform/LinuxTransport.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

extern char** environ;

namespace jdwpkrvdbg {

namespace {

// True when the child has exited (or is not ours any more); the zombie is
// left in place so that the pid cannot be reused before we reap it.
bool hasExited(pid_t pid)
{
    siginfo_t info;
    std::memset(&info, 0, sizeof info);
    int r;
    do {
        r = ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
    } while (r < 0 && errno == EINTR);
    if (r < 0)
        return true;
    return info.si_pid == pid;
}

// The host's environment, with `libraryDir` put in front of LD_LIBRARY_PATH
// (which is added when the host has none).
std::vector<std::string> childEnvironment(const std::string& libraryDir)
{
    constexpr std::string_view kLd = "LD_LIBRARY_PATH=";
    std::vector<std::string> env;
    bool sawLibraryPath = false;
    for (char** e = environ; e && *e; ++e) {
        std::string_view entry(*e);
        if (!libraryDir.empty() && entry.substr(0, kLd.size()) == kLd) {
            sawLibraryPath = true;
            std::string_view old = entry.substr(kLd.size());
            std::string value = std::string(kLd) + libraryDir;
            if (!old.empty()) {
                value += ':';
                value += old;
            }
            env.push_back(std::move(value));
        } else {
            env.emplace_back(entry);
        }
    }
    if (!libraryDir.empty() && !sawLibraryPath)
        env.push_back(std::string(kLd) + libraryDir);
    return env;
}

} // namespace

bool splitCommandLine(const std::string& commandLine, std::vector<std::string>& words, std::string& error)
{
    words.clear();
    error.clear();
    std::string current;
    bool inWord = false;
    const size_t n = commandLine.size();
    size_t i = 0;
    while (i < n) {
        const char c = commandLine[i];
        if (c == ' ' || c == '\t' || c == '\n') {
            if (inWord) {
                words.push_back(std::move(current));
                current.clear();
                inWord = false;
            }
            ++i;
        } else if (c == '\'') {
            size_t end = commandLine.find('\'', i + 1);
            if (end == std::string::npos) {
                error = "unterminated single quote at position " + std::to_string(i + 1);
                words.clear();
                return false;
            }
            current.append(commandLine, i + 1, end - i - 1);
            inWord = true;
            i = end + 1;
        } else if (c == '"') {
            const size_t open = i;
            bool closed = false;
            inWord = true;
            ++i;
            while (i < n) {
                const char d = commandLine[i];
                if (d == '"') {
                    closed = true;
                    ++i;
                    break;
                }
                if (d == '\\' && i + 1 < n) {
                    const char e = commandLine[i + 1];
                    if (e == '$' || e == '`' || e == '"' || e == '\\') {
                        current += e;
                        i += 2;
                        continue;
                    }
                    if (e == '\n') {
                        i += 2;
                        continue;
                    }
                }
                current += d;
                ++i;
            }
            if (!closed) {
                error = "unterminated double quote at position " + std::to_string(open + 1);
                words.clear();
                return false;
            }
        } else if (c == '\\') {
            if (i + 1 >= n) {
                // A lone trailing backslash has nothing to escape: keep it.
                current += c;
                inWord = true;
                ++i;
            } else if (commandLine[i + 1] == '\n') {
                i += 2; // line continuation
            } else {
                current += commandLine[i + 1];
                inWord = true;
                i += 2;
            }
        } else {
            current += c;
            inWord = true;
            ++i;
        }
    }
    if (inWord)
        words.push_back(std::move(current));
    return true;
}

namespace platform_detail {

ChildProcess::ChildProcess(MessagePump& pump, ConsoleCallback console, ExitCallback exited)
    : pump_(pump), console_(std::move(console)), exited_(std::move(exited))
{
}

ChildProcess::~ChildProcess()
{
    closePipes();
    if (pid_ != 0 && hasExited(pid_))
        reap(false);
    forget();
}

bool describeLaunch(const std::string& path, const std::string& commandLine, const std::string& libraryDir,
                    ChildLaunch& launch, std::string& status)
{
    if (path.empty()) {
        status = "Cannot start a process: no program path given";
        return false;
    }
    std::vector<std::string> words;
    std::string splitError;
    if (!splitCommandLine(commandLine, words, splitError)) {
        status = "Cannot start " + path + ": " + splitError + " in the command line";
        return false;
    }
    launch.path = path;
    launch.argv.assign(1, path);
    for (std::string& w : words)
        launch.argv.push_back(std::move(w));
    launch.env = childEnvironment(libraryDir);
    return true;
}

bool ChildProcess::start(ChildLaunch launch, bool console, bool usePipe, std::string& status)
{
    closePipes();
    const std::string& path = launch.path;
    int pipeFds[2] = {-1, -1};
    int errorFds[2] = {-1, -1};
    if (usePipe && (::pipe2(pipeFds, O_CLOEXEC) != 0 || ::pipe2(errorFds, O_CLOEXEC) != 0)) {
        status = "Cannot start " + path + ": no pipe for its console (" + std::strerror(errno) + ")";
        for (int fd : {pipeFds[0], pipeFds[1]})
            if (fd >= 0)
                ::close(fd);
        return false;
    }
    // Without a console the VM is kept away from the host's terminal: it
    // reads nothing from it, and Ctrl-C there (a signal to the terminal's
    // foreground process group) is the host's alone. With a console it shares
    // the terminal, and so the host's group, as a console program would.
    launch.stdinNull = !console;
    launch.outputFd = pipeFds[1];
    launch.errorFd = errorFds[1];
    launch.outputNull = !usePipe && !console;
    launch.ownProcessGroup = !console;

    int error = 0;
    const pid_t pid = launchChild(launch, error);
    for (int fd : {pipeFds[1], errorFds[1]})
        if (fd >= 0)
            ::close(fd);
    if (pid == 0) {
        for (int fd : {pipeFds[0], errorFds[0]})
            if (fd >= 0)
                ::close(fd);
        status = "Cannot start " + path + ": " + std::strerror(error);
        return false;
    }

    pid_ = pid;
    watchPipe(out_, pipeFds[0]);
    watchPipe(err_, errorFds[0]);
    watchExit();
    return true;
}

void ChildProcess::watchPipe(Capture& capture, int fd)
{
    if (fd < 0)
        return;
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    capture.fd = fd;
    capture.watch = pump_.addWatch(fd, POLLIN, [this, &capture](short) { onPipeReady(capture); });
}

void ChildProcess::watchExit()
{
    pidFd_ = shmem::openPidFd(pid_);
    if (pidFd_ >= 0) {
        exitWatch_ = pump_.addWatch(pidFd_, POLLIN, [this](short) { onExited(); });
        exitWatchIsTimer_ = false;
    } else {
        exitWatch_ = pump_.addTimer(kExitPollMs, [this] {
            if (pid_ != 0 && hasExited(pid_))
                onExited();
        });
        exitWatchIsTimer_ = true;
    }
}

bool ChildProcess::kill()
{
    if (pid_ == 0)
        return false;
    // The pid stays ours until we reap it, so it cannot name another process.
    ::kill(pid_, SIGKILL);
    reap(true);
    forget();
    return true;
}

bool ChildProcess::waitExit(int maxWaitMs) const
{
    const uint32_t start = GetTickCount();
    while (pid_ != 0 && !hasExited(pid_)) {
        const int64_t left = static_cast<int64_t>(maxWaitMs) - static_cast<int64_t>(GetTickCount() - start);
        if (left <= 0)
            return false;
        // The pidfd becomes readable at the exit; without one the exit is
        // polled as the exit watch polls it.
        pollfd fd{pidFd_, POLLIN, 0};
        const int slice = pidFd_ >= 0 ? static_cast<int>(left) : static_cast<int>(std::min<int64_t>(left, kExitPollMs));
        ::poll(pidFd_ >= 0 ? &fd : nullptr, pidFd_ >= 0 ? 1 : 0, slice);
    }
    return true;
}

bool ChildProcess::running() const
{
    return pid_ != 0 && !hasExited(pid_);
}

void ChildProcess::drainPipe(Capture& capture, std::string& text)
{
    if (capture.fd < 0)
        return;
    char chunk[4096];
    while (text.size() < kMaxReadBatch) {
        ssize_t n = ::read(capture.fd, chunk, sizeof chunk);
        if (n > 0) {
            text.append(chunk, static_cast<size_t>(n));
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        closePipe(capture); // end of file, or an error that ends the capture
        return;
    }
}

void ChildProcess::onPipeReady(Capture& capture)
{
    std::string text;
    drainPipe(capture, text);
    if (!text.empty())
        console_(text, capture.error);
}

void ChildProcess::closePipe(Capture& capture)
{
    unwatchAndClose(pump_, capture.watch, capture.fd);
}

void ChildProcess::closePipes()
{
    closePipe(out_);
    closePipe(err_);
}

void ChildProcess::onExited()
{
    if (pid_ == 0)
        return;
    // All console text the child wrote is in the pipes now; it goes out
    // before the exit. The pipes themselves stay open until end of file, since a
    // grandchild may still hold its write end.
    std::string text, errorText;
    drainPipe(out_, text);
    drainPipe(err_, errorText);
    reap(true);
    forget();
    if (!text.empty())
        console_(text, false);
    if (!errorText.empty())
        console_(errorText, true);
    exited_();
}

bool ChildProcess::reap(bool block)
{
    if (pid_ == 0)
        return true;
    int status = 0;
    pid_t r;
    do {
        r = ::waitpid(pid_, &status, block ? 0 : WNOHANG);
    } while (r < 0 && errno == EINTR);
    if (r == pid_) {
        lastExitStatus_ = status;
        return true;
    }
    return r < 0; // ECHILD: reaped elsewhere (e.g. SIGCHLD ignored)
}

void ChildProcess::forget()
{
    if (exitWatch_ != 0) {
        if (exitWatchIsTimer_)
            pump_.removeTimer(exitWatch_);
        else
            pump_.removeWatch(exitWatch_);
        exitWatch_ = 0;
    }
    if (pidFd_ >= 0) {
        ::close(pidFd_);
        pidFd_ = -1;
    }
    pid_ = 0;
}

} // namespace platform_detail
} // namespace jdwpkrvdbg
