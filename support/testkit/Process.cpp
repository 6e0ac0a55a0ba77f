// Children, signals, ports (see Process.h). Not the library's launcher: that
// one closes every inherited descriptor, and tests hand some on.
#include "Process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include <jdwpkrvdbg/platform/MessagePump.h>

extern char** environ;

namespace jdwpkrvdbg::testing {

namespace {

// The state letter of /proc/<pid>/stat ('\0' when there is no such process).
char processState(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    if (pid <= 0 || !std::getline(in, text))
        return '\0';
    // pid (comm) state ...: the state follows the last ')'.
    const size_t close = text.rfind(')');
    return close != std::string::npos && close + 2 < text.size() ? text[close + 2] : '\0';
}

// Forks (into a new pseudo-terminal with `master`, else with stdout and
// stderr on `output`) and execs; throws when the program cannot be run. The
// child keeps the descriptors it inherits without FD_CLOEXEC (a test may
// hand one on, as Xvfb -displayfd wants), and asks the kernel to kill it
// when this thread (the test's main thread) ends.
pid_t start(const std::vector<char*>& args, const std::vector<char*>& env, int* master, int output)
{
    int report[2];
    if (::pipe2(report, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    winsize size{};
    size.ws_row = 50;
    size.ws_col = 200;
    const pid_t parent = ::getpid();
    const pid_t pid = master ? ::forkpty(master, nullptr, nullptr, &size) : ::fork();
    if (pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent)
            ::_exit(127);
        if (!master) {
            const int in = ::open("/dev/null", O_RDONLY);
            ::dup2(in, 0);
            ::dup2(output, 1);
            ::dup2(output, 2);
        }
        ::execvpe(args[0], args.data(), env.data());
        const int error = errno;
        ssize_t ignored = ::write(report[1], &error, sizeof error);
        (void)ignored;
        ::_exit(127);
    }
    ::close(report[1]);
    int error = pid < 0 ? errno : 0;
    if (pid > 0 && ::read(report[0], &error, sizeof error) == static_cast<ssize_t>(sizeof error))
        ::waitpid(pid, nullptr, 0);
    ::close(report[0]);
    if (error != 0)
        throw std::runtime_error(std::string("cannot start ") + args[0] + ": " + std::strerror(error));
    if (master)
        ::fcntl(*master, F_SETFD, FD_CLOEXEC);
    return pid;
}

} // namespace

int64_t nowMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

bool signalProcess(pid_t pid, int signal)
{
    if (pid <= 0 || pid == ::getpid())
        return false;
    return ::kill(pid, signal) == 0;
}

bool processRunning(pid_t pid)
{
    const char state = processState(pid);
    return state != '\0' && state != 'Z' && state != 'X';
}

bool processStopped(pid_t pid)
{
    return processState(pid) == 'T';
}

int freeTcpPort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t len = sizeof(addr);
    const bool bound = ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0 &&
                       ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0;
    ::close(fd);
    return bound ? ntohs(addr.sin_port) : 0;
}

std::string javaPath()
{
    return JDWPKRVDBG_JAVA;
}
std::string javaClassesDir()
{
    return JDWPKRVDBG_JAVA_CLASSES;
}
std::string examplesClassPath()
{
    return javaClassesDir() + "/examples";
}
std::string testsClassPath()
{
    return javaClassesDir() + "/tests";
}
std::string shmemLibraryDir()
{
    return JDWPKRVDBG_SHMEM_DIR;
}
std::string sourceDir()
{
    return JDWPKRVDBG_SOURCE_DIR;
}
std::string buildDir()
{
    return JDWPKRVDBG_BUILD_DIR;
}

int lineOf(const std::string& path, const std::string& marker)
{
    std::ifstream in(path.empty() || path[0] == '/' ? path : sourceDir() + "/" + path);
    std::string line;
    for (int n = 1; std::getline(in, line); ++n)
        if (line.find(marker) != std::string::npos)
            return n;
    return 0;
}

std::string socketAgent(int port, bool suspend)
{
    return "-agentlib:jdwp=transport=dt_socket,server=y,suspend=" + std::string(suspend ? "y" : "n") +
           ",address=127.0.0.1:" + std::to_string(port);
}

bool pumpUntil(const std::function<bool()>& done, int timeoutMs)
{
    const int64_t deadline = nowMs() + timeoutMs;
    while (!done()) {
        if (nowMs() > deadline)
            return false;
        MessagePump::instance().pumpOnce(5);
    }
    return true;
}

ChildProcess::ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv,
                           bool terminal)
{
    std::vector<std::string> envStore(extraEnv);
    for (char** e = environ; *e; ++e)
        envStore.emplace_back(*e);
    std::vector<char*> args, env;
    for (const auto& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    for (auto& e : envStore)
        env.push_back(e.data());
    args.push_back(nullptr);
    env.push_back(nullptr);
    if (terminal) {
        pid_ = start(args, env, &fd_, -1);
        return;
    }
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    try {
        pid_ = start(args, env, nullptr, fds[1]);
    } catch (...) {
        ::close(fds[0]);
        ::close(fds[1]);
        throw;
    }
    ::close(fds[1]);
    fd_ = fds[0];
}

ChildProcess::~ChildProcess()
{
    kill();
    if (fd_ >= 0)
        ::close(fd_);
}

void ChildProcess::send(const std::string& text)
{
    if (fd_ >= 0 && ::write(fd_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("cannot write to the child");
}

bool ChildProcess::readSome(int timeoutMs)
{
    if (fd_ < 0)
        return false;
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, timeoutMs) <= 0)
        return false;
    char buf[4096];
    const ssize_t n = ::read(fd_, buf, sizeof(buf));
    if (n <= 0) {
        ::close(fd_);
        fd_ = -1;
        return false;
    }
    output_.append(buf, static_cast<size_t>(n));
    return true;
}

std::string ChildProcess::waitForLine(const std::string& text, int timeoutMs)
{
    const int64_t deadline = nowMs() + timeoutMs;
    for (;;) {
        const size_t at = output_.find(text, scanned_);
        const size_t end = at == std::string::npos ? at : output_.find('\n', at);
        if (end != std::string::npos) {
            // No line break before: npos + 1 wraps to 0, the start.
            const size_t begin = output_.rfind('\n', at) + 1;
            scanned_ = end + 1;
            return output_.substr(begin, end - begin);
        }
        const int64_t left = deadline - nowMs();
        if (left <= 0 || (!readSome(static_cast<int>(left)) && fd_ < 0))
            return std::string();
    }
}

bool ChildProcess::waitForText(const std::string& text, int timeoutMs)
{
    const int64_t deadline = nowMs() + timeoutMs;
    for (;;) {
        const size_t at = output_.find(text, scanned_);
        if (at != std::string::npos) {
            scanned_ = at + text.size();
            return true;
        }
        const int64_t left = deadline - nowMs();
        if (left <= 0 || (!readSome(static_cast<int>(left)) && fd_ < 0))
            return false;
    }
}

std::string ChildProcess::readAll(int timeoutMs)
{
    const int64_t deadline = nowMs() + timeoutMs;
    for (int64_t left = timeoutMs; fd_ >= 0 && left > 0; left = deadline - nowMs())
        readSome(static_cast<int>(left));
    return output_;
}

void ChildProcess::kill()
{
    if (pid_ > 0 && signal(SIGKILL))
        ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

int ChildProcess::wait(int timeoutMs)
{
    const int64_t deadline = nowMs() + timeoutMs;
    for (int status = 0; pid_ > 0 && nowMs() <= deadline; readSome(10))
        if (::waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
    return -1;
}

} // namespace jdwpkrvdbg::testing
