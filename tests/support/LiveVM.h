// Kit for tests against a real VM: free ports, the paths of the compiled Java
// programs, a launched `java` whose output is read line by line (so a test
// waits for "Listening for transport" instead of sleeping), and a recorder of
// the host events.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

namespace jdwpkrvdbg::testing {

// A TCP port on 127.0.0.1 that was free a moment ago.
int freeTcpPort();
std::string javaPath();
std::string examplesClassPath();
std::string testsClassPath();
std::string shmemLibraryDir();
// The 1-based line of the first line of a Java source (relative to the
// project, e.g. "tests/java/Stepper.java") that contains `marker`; 0 if none.
int lineOf(const std::string& sourceFile, const std::string& marker);

// A child process whose stdout and stderr are read through a pipe, or, with
// `terminal`, that runs in a pseudo-terminal of its own (its controlling
// terminal, stdin included: what send() writes is typed there, "\x03" is
// Ctrl-C).
class ChildProcess {
public:
    ChildProcess(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv = {},
                 bool terminal = false);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return pid_; }
    // Reads output until a line contains `text` or `timeoutMs` passes; the
    // whole line is returned ("" on time-out or end of output).
    std::string waitForLine(const std::string& text, int timeoutMs);
    // The same for text that need not end a line (a prompt).
    bool waitForText(const std::string& text, int timeoutMs);
    const std::string& output() const { return output_; }
    void send(const std::string& text);
    void kill();
    // Waits for the exit; returns the exit status or -1 on time-out.
    int wait(int timeoutMs);

private:
    bool readSome(int timeoutMs);
    pid_t pid_ = -1;
    int fd_ = -1;
    std::string output_;
    size_t scanned_ = 0;
};

// A debuggee started by the test with the socket agent listening on a port
// the agent chose itself (address=127.0.0.1:0); port() is read from its
// "Listening for transport dt_socket at address:" line. With `suspend` false
// the program runs before a debugger attaches.
class ListeningVM {
public:
    ListeningVM(const std::string& mainClass, const std::string& classPath, bool suspend = true);
    int port() const { return port_; }
    ChildProcess& process() { return *process_; }

private:
    std::unique_ptr<ChildProcess> process_;
    int port_ = 0;
};

// The agent option for a VM that the library launches on `port`.
std::string socketAgent(int port, bool suspend = true);

// Records the host events: the connection events in order, and the details
// of the others.
struct EventLog : JXMachineEvents {
    struct Stop {
        double threadID = 0;
        std::string className;
        int32_t line = 0;
        int32_t offset = 0;
    };
    std::vector<std::string> lines;
    std::vector<Stop> stops;
    std::vector<VMState> states;
    std::vector<std::string> exceptions;
    std::string console;
    std::vector<std::string> debug;
    std::vector<std::string> boxes;

    void Message(const std::string& Prompt, int32_t Buttons, const std::string& Title) override
    {
        boxes.push_back(Prompt + "|" + std::to_string(Buttons) + "|" + Title);
    }
    void Breakpoint(double threadID, const std::string& ClassName, int32_t LineNr, int32_t Offset) override
    {
        stops.push_back({threadID, ClassName, LineNr, Offset});
    }
    void VMStateChanged(VMState NewState) override { states.push_back(NewState); }
    void OpenConnection() override { lines.push_back("OpenConnection"); }
    void CloseConnection() override { lines.push_back("CloseConnection"); }
    void DebugMessage(const std::string& s) override { debug.push_back(s); }
    void ConsoleMessage(const std::string& s) override { console += s; }
    void Exception(const std::string& s) override { exceptions.push_back(s); }
    bool sawDebug(const std::string& text) const
    {
        for (const auto& d : debug)
            if (d.find(text) != std::string::npos)
                return true;
        return false;
    }
    VMState lastState() const { return states.empty() ? VMDead : states.back(); }
};

// Moves the library's tick clock ahead of the real one (for as long as the
// object lives), so that a time window such as the 2 s in which events
// caused by an evaluation's method call are not reported can be passed
// without waiting for it.
class TickShift {
public:
    TickShift();
    ~TickShift() { setTickSource(nullptr); }
    void advance(uint32_t ms) { offset_ += ms; }

private:
    uint32_t offset_ = 0;
};

// Whether process `pid` still runs (a zombie does not).
bool processRunning(pid_t pid);

// Pumps the library's events until `done()` or `timeoutMs` passed.
bool pumpUntil(const std::function<bool()>& done, int timeoutMs = 10000);

} // namespace jdwpkrvdbg::testing
