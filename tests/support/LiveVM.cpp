// The real-VM test kit.
#include "LiveVM.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
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
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;
    socklen_t len = sizeof(addr);
    int port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0)
        port = ntohs(addr.sin_port);
    ::close(fd);
    return port;
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

ChildProcess::ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv)
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 2);
    std::vector<char*> args;
    for (const auto& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    std::vector<std::string> envStore;
    for (char** e = environ; *e; ++e)
        envStore.emplace_back(*e);
    for (const auto& e : extraEnv)
        envStore.push_back(e);
    std::vector<char*> env;
    for (auto& e : envStore)
        env.push_back(e.data());
    env.push_back(nullptr);
    int rc = posix_spawnp(&pid_, args[0], &actions, nullptr, args.data(), env.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    fd_ = fds[0];
    if (rc != 0) {
        pid_ = -1;
        throw std::runtime_error(std::string("spawn failed: ") + std::strerror(rc));
    }
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
        size_t at = output_.find(text, scanned_);
        if (at != std::string::npos) {
            size_t begin = output_.rfind('\n', at);
            begin = begin == std::string::npos ? 0 : begin + 1;
            size_t end = output_.find('\n', at);
            if (end != std::string::npos) {
                scanned_ = end + 1;
                return output_.substr(begin, end - begin);
            }
        }
        const int64_t left = deadline - nowMs();
        if (left <= 0 || (!readSome(static_cast<int>(left)) && fd_ < 0))
            return std::string();
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
    if (pid_ <= 0)
        return -1;
    const int64_t deadline = nowMs() + timeoutMs;
    for (;;) {
        int status = 0;
        pid_t r = ::waitpid(pid_, &status, WNOHANG);
        if (r == pid_) {
            pid_ = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        if (nowMs() > deadline)
            return -1;
        readSome(10);
    }
}

ListeningVM::ListeningVM(const std::string& mainClass, const std::string& classPath,
                         const std::vector<std::string>& args)
{
    std::vector<std::string> argv{javaPath(), "-agentlib:jdwp=transport=dt_socket,server=y,suspend=y,address=127.0.0.1:0",
                                  "-cp", classPath, mainClass};
    argv.insert(argv.end(), args.begin(), args.end());
    process_ = std::make_unique<ChildProcess>(argv);
    const std::string line = process_->waitForLine("Listening for transport dt_socket at address:", 20000);
    const size_t colon = line.rfind(':');
    if (colon != std::string::npos)
        port_ = std::atoi(line.c_str() + colon + 1);
}

void EventLog::Message(const std::string& Prompt, int32_t Buttons, const std::string& Title)
{
    boxes.push_back(Prompt + "|" + std::to_string(Buttons) + "|" + Title);
    lines.push_back("Message " + boxes.back());
}

void EventLog::Breakpoint(double threadID, const std::string& ClassName, int32_t LineNr, int32_t Offset)
{
    Stop stop{threadID, ClassName, LineNr, Offset};
    stops.push_back(stop);
    lines.push_back("Breakpoint " + ClassName + ":" + std::to_string(LineNr) + "+" + std::to_string(Offset));
    if (onStop)
        onStop(stop);
}

void EventLog::VMStateChanged(VMState NewState)
{
    states.push_back(NewState);
    lines.push_back("VMStateChanged " + std::to_string(NewState));
}

void EventLog::DebugMessage(const std::string& s)
{
    debug.push_back(s);
    lines.push_back("DebugMessage " + s);
}

void EventLog::ConsoleMessage(const std::string& s)
{
    console += s;
}

void EventLog::Exception(const std::string& s)
{
    exceptions.push_back(s);
    lines.push_back("Exception " + s);
}

bool EventLog::sawDebug(const std::string& text) const
{
    for (const auto& d : debug)
        if (d.find(text) != std::string::npos)
            return true;
    return false;
}

TickShift::TickShift()
{
    setTickSource([this] {
        using namespace std::chrono;
        return static_cast<uint32_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count()) +
               offset_;
    });
}

TickShift::~TickShift()
{
    setTickSource(nullptr);
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
