// Processes and ports for the programs that drive real VMs: tests and
// benchmarks. A child whose output is read line by line (so a caller waits
// for "Listening for transport" instead of sleeping), the one way to send a
// signal, a free port, source-line markers and a bounded pump.
//
// Every child started here ends with the process that started it, also when
// that process is killed (a test's time-out, a crash): nothing is left
// running to skew the next test or benchmark.
#pragma once

#include <sys/types.h>

#include "jdwpkrvdbg/support/NonCopyable.h"
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace jdwpkrvdbg::testing {

int64_t nowMs();

// Sends `signal` to process `pid`; false, and nothing sent, for a pid of 0
// or less (which would reach a whole process group: ctest's included), for
// this process itself, or for a process that is gone.
bool signalProcess(pid_t pid, int signal);
// Whether process `pid` still runs (a zombie does not).
bool processRunning(pid_t pid);
// Whether process `pid` is stopped (SIGSTOP took effect).
bool processStopped(pid_t pid);

// A TCP port on 127.0.0.1 that was free a moment ago.
int freeTcpPort();
// The 1-based line of file `path` (a relative path is taken from the
// project's source folder) that contains `marker`; 0 if none.
int lineOf(const std::string& path, const std::string& marker);

// Where the build put what the children run.
std::string javaPath();
// The compiled Java programs, a folder per set (examples, tests, bench).
std::string javaClassesDir();
std::string examplesClassPath();
std::string testsClassPath();
std::string shmemLibraryDir();
std::string sourceDir();
std::string buildDir();
// The agent option of a VM that listens on `port` for the debugger.
std::string socketAgent(int port, bool suspend = true);

// Pumps the library's events until `done()` or `timeoutMs` passed; done().
bool pumpUntil(const std::function<bool()>& done, int timeoutMs = 10000);

// A child process whose stdout and stderr are read through a pipe, or, with
// `terminal`, that runs in a pseudo-terminal of its own (its controlling
// terminal, stdin included: what send() writes is typed there, "\x03" is
// Ctrl-C). argv[0] is looked up in PATH when it has no '/'.
class ChildProcess : NonCopyable {
public:
    ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv = {},
                 bool terminal = false);
    ~ChildProcess();

    pid_t pid() const { return pid_; }
    // Reads output until a line contains `text` or `timeoutMs` passes; the
    // whole line is returned ("" on time-out or end of output).
    std::string waitForLine(const std::string& text, int timeoutMs);
    // The same for text that need not end a line (a prompt).
    bool waitForText(const std::string& text, int timeoutMs);
    // Everything written until the child closes its output or the time-out.
    std::string readAll(int timeoutMs);
    const std::string& output() const { return output_; }
    void send(const std::string& text);
    bool signal(int signal) { return signalProcess(pid_, signal); }
    // Kills and reaps the child.
    void kill();
    // Waits for the exit; returns the exit status (128 + signal when killed)
    // or -1 on time-out.
    int wait(int timeoutMs);

private:
    bool readSome(int timeoutMs);
    pid_t pid_ = -1;
    int fd_ = -1;
    std::string output_;
    size_t scanned_ = 0;
};

} // namespace jdwpkrvdbg::testing
