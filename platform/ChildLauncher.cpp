// The launcher thread and the fork/exec of the debuggee (see ChildLauncher.h).
//
// Between fork and exec the child runs only system calls: the host may have
// other threads, and a lock one of them held at the fork would stay locked
// in the child for ever.
#include "ChildLauncher.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>

namespace jdwpkrvdbg::platform_detail {

namespace {

// Runs jobs on a thread that is never ended: the parent of every child.
class LauncherThread {
public:
    static LauncherThread& instance()
    {
        // Never destroyed: a child may be started while static objects die.
        static LauncherThread* launcher = new LauncherThread;
        return *launcher;
    }

    void run(const std::function<void()>& job)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        idle_.wait(lock, [this] { return job_ == nullptr; });
        job_ = &job;
        done_ = false;
        wake_.notify_all();
        finished_.wait(lock, [this] { return done_; });
        job_ = nullptr;
        idle_.notify_all();
    }

private:
    LauncherThread()
    {
        // Signals belong to the host's threads, where its waits notice them.
        sigset_t all, previous;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &previous);
        std::thread([this] { loop(); }).detach();
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    }

    void loop()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return job_ != nullptr && !done_; });
            const std::function<void()>* job = job_;
            lock.unlock();
            (*job)();
            lock.lock();
            done_ = true;
            finished_.notify_all();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_, finished_, idle_;
    const std::function<void()>* job_ = nullptr;
    bool done_ = false;
};

bool isExecutableFile(const std::string& path)
{
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

// The program as the shell would find it; "" when it is nowhere.
std::string resolveProgram(const std::string& name)
{
    if (name.find('/') != std::string::npos)
        return name;
    const char* env = std::getenv("PATH");
    const std::string path = env && *env ? env : "/usr/local/bin:/usr/bin:/bin";
    for (size_t start = 0; start <= path.size();) {
        size_t end = path.find(':', start);
        if (end == std::string::npos)
            end = path.size();
        const std::string dir = end > start ? path.substr(start, end - start) : ".";
        const std::string candidate = dir + "/" + name;
        if (isExecutableFile(candidate))
            return candidate;
        start = end + 1;
    }
    return std::string();
}

void closeDescriptorsFrom(int first, int keep)
{
    auto closeRange = [](unsigned from, unsigned to) {
#ifdef SYS_close_range
        if (from > to || ::syscall(SYS_close_range, from, to, 0) == 0)
            return;
#endif
        const long limit = ::sysconf(_SC_OPEN_MAX);
        const unsigned last = limit > 0 && limit < 65536 ? static_cast<unsigned>(limit) - 1 : 65535u;
        for (unsigned fd = from; fd <= std::min(to, last); ++fd)
            ::close(static_cast<int>(fd));
    };
    if (keep >= first) {
        if (keep > first)
            closeRange(static_cast<unsigned>(first), static_cast<unsigned>(keep - 1));
        closeRange(static_cast<unsigned>(keep + 1), ~0u);
    } else {
        closeRange(static_cast<unsigned>(first), ~0u);
    }
}

[[noreturn]] void failInChild(int reportFd, int error)
{
    ssize_t ignored = ::write(reportFd, &error, sizeof error);
    (void)ignored;
    ::_exit(127);
}

} // namespace

pid_t launchChild(const ChildLaunch& launch, int& error)
{
    error = 0;
    const std::string program = resolveProgram(launch.path);
    if (program.empty()) {
        error = ENOENT;
        return 0;
    }
    std::vector<char*> argv, envp;
    for (const std::string& a : launch.argv)
        argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    for (const std::string& e : launch.env)
        envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);

    // The child reports a failed exec through this pipe; a successful exec
    // closes it.
    int report[2] = {-1, -1};
    if (::pipe2(report, O_CLOEXEC) != 0) {
        error = errno;
        return 0;
    }
    const pid_t parent = ::getpid();
    pid_t pid = -1;
    int forkError = 0;
    LauncherThread::instance().run([&] {
        pid = ::fork();
        if (pid < 0) {
            forkError = errno;
            return;
        }
        if (pid != 0)
            return;
        // The child.
        if (launch.ownProcessGroup)
            ::setpgid(0, 0);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        // The parent died before the request was in place: nobody would send it.
        if (::getppid() != parent)
            ::_exit(127);
        struct sigaction dfl {};
        dfl.sa_handler = SIG_DFL;
        for (int sig : {SIGPIPE, SIGCHLD, SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2, SIGTTIN, SIGTTOU})
            ::sigaction(sig, &dfl, nullptr);
        sigset_t none;
        sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        if (launch.stdinNull) {
            const int fd = ::open("/dev/null", O_RDONLY);
            if (fd < 0 || ::dup2(fd, 0) < 0)
                failInChild(report[1], errno);
            if (fd != 0)
                ::close(fd);
        }
        int out = launch.outputFd;
        if (out < 0 && launch.outputNull)
            out = ::open("/dev/null", O_WRONLY);
        const int err = out >= 0 && launch.errorFd >= 0 ? launch.errorFd : out;
        if (out >= 0 && (::dup2(out, 1) < 0 || ::dup2(err, 2) < 0))
            failInChild(report[1], errno);
        closeDescriptorsFrom(3, report[1]);
        ::execve(program.c_str(), argv.data(), envp.data());
        failInChild(report[1], errno);
    });
    ::close(report[1]);
    if (pid < 0) {
        ::close(report[0]);
        error = forkError;
        return 0;
    }
    if (launch.ownProcessGroup)
        ::setpgid(pid, pid); // also from here, so it holds before this returns
    int childError = 0;
    ssize_t n;
    do {
        n = ::read(report[0], &childError, sizeof childError);
    } while (n < 0 && errno == EINTR);
    ::close(report[0]);
    if (n == static_cast<ssize_t>(sizeof childError)) {
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
        error = childError != 0 ? childError : ENOEXEC;
        return 0;
    }
    return pid;
}

} // namespace jdwpkrvdbg::platform_detail
