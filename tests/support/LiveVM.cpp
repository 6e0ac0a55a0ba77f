// The real-VM test kit.
#include "LiveVM.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <stdexcept>

extern char** environ;

namespace jdwpkrvdbg::testing {

namespace {
int64_t nowMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}
} // namespace

int freeTcpPort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t len = sizeof(addr);
    const bool bound = ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0 &&
                       ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0;
    ::close(fd);
    return bound ? ntohs(addr.sin_port) : 0;
}

std::string javaPath() { return JDWPKRVDBG_JAVA; }
std::string examplesClassPath() { return JDWPKRVDBG_EXAMPLES_CP; }
std::string testsClassPath() { return JDWPKRVDBG_TESTS_CP; }
std::string shmemLibraryDir() { return JDWPKRVDBG_SHMEM_DIR; }

int lineOf(const std::string& sourceFile, const std::string& marker)
{
    std::ifstream in(std::string(JDWPKRVDBG_SOURCE_DIR) + "/" + sourceFile);
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
        winsize size{};
        size.ws_row = 50;
        size.ws_col = 200;
        int master = -1;
        pid_ = ::forkpty(&master, nullptr, nullptr, &size);
        if (pid_ < 0)
            throw std::runtime_error("forkpty failed");
        if (pid_ == 0) {
            ::execve(args[0], args.data(), env.data());
            ::_exit(127);
        }
        ::fcntl(master, F_SETFD, FD_CLOEXEC);
        fd_ = master;
        return;
    }
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 2);
    int rc = posix_spawnp(&pid_, args[0], &actions, nullptr, args.data(), env.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    fd_ = fds[0];
    if (rc != 0)
        throw std::runtime_error(std::string("spawn failed: ") + std::strerror(rc));
}

void ChildProcess::send(const std::string& text)
{
    if (fd_ >= 0 && ::write(fd_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("cannot write to the child");
}

ChildProcess::~ChildProcess()
{
    kill();
    if (fd_ >= 0)
        ::close(fd_);
}

bool ChildProcess::readSome(int timeoutMs)
{
    if (fd_ < 0)
        return false;
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, timeoutMs) <= 0)
        return false;
    char buf[4096];
    ssize_t n = ::read(fd_, buf, sizeof(buf));
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

void ChildProcess::kill()
{
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
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

ListeningVM::ListeningVM(const std::string& mainClass, const std::string& classPath, bool suspend)
{
    process_ = std::make_unique<ChildProcess>(std::vector<std::string>{
        javaPath(),
        std::string("-agentlib:jdwp=transport=dt_socket,server=y,suspend=") + (suspend ? "y" : "n") +
            ",address=127.0.0.1:0",
        "-cp", classPath, mainClass});
    const std::string line = process_->waitForLine("Listening for transport dt_socket at address:", 20000);
    const size_t colon = line.rfind(':');
    if (colon != std::string::npos)
        port_ = std::atoi(line.c_str() + colon + 1);
}

TickShift::TickShift()
{
    setTickSource([this] { return static_cast<uint32_t>(nowMs()) + offset_; });
}

bool processRunning(pid_t pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    if (!std::getline(stat, text))
        return false;
    // pid (comm) state ...: the state follows the last ')'.
    const size_t close = text.rfind(')');
    return close != std::string::npos && close + 2 < text.size() && text[close + 2] != 'Z' && text[close + 2] != 'X';
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

} // namespace jdwpkrvdbg::testing
