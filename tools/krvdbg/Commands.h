// The commands a user types at krvdbg's prompt or writes in a script, in the
// spirit of the JDK's jdb. Each command line gives one CommandOutcome; a
// malformed or unknown command gives one line saying what is expected and
// changes nothing.
#pragma once

#include <string>
#include <vector>

#include "Printer.h"
#include "Session.h"

namespace krvdbg {

class Commands {
public:
    explicit Commands(Session& session) : session_(session) {}

    CommandOutcome execute(const std::string& line);
    bool quitRequested() const { return quit_; }
    // The run command could not start or reach the VM.
    bool startFailed() const { return startFailed_; }
    static std::vector<std::string> helpLines();

private:
    using Args = std::vector<std::string>;
    CommandOutcome stopAt(const std::string& cmd, const std::string& placeText);
    CommandOutcome stopIn(const std::string& cmd, const std::string& placeText);
    CommandOutcome clear(const std::string& cmd, const Args& args);
    CommandOutcome listBreakpoints(const std::string& cmd);
    CommandOutcome run(const std::string& cmd);
    CommandOutcome cont(const std::string& cmd);
    CommandOutcome step(const std::string& cmd, int depth);
    CommandOutcome print(const std::string& cmd, const std::string& rest);
    CommandOutcome locals(const std::string& cmd);
    CommandOutcome where(const std::string& cmd);
    CommandOutcome threads(const std::string& cmd);
    CommandOutcome suspend(const std::string& cmd);
    CommandOutcome resume(const std::string& cmd);
    CommandOutcome pop(const std::string& cmd);
    CommandOutcome redefine(const std::string& cmd, const Args& args);
    CommandOutcome holdOrRelease(const std::string& cmd, bool hold);
    CommandOutcome wait(const std::string& cmd, const Args& args);

    // Ctrl-C during a wait: the program is suspended and each thread's place
    // is shown.
    CommandOutcome interrupted(const std::string& cmd);
    // The outcome of a command that let the VM run: how the wait ended.
    CommandOutcome waited(const std::string& cmd, WaitOutcome how, uint32_t timeoutMs = 0);
    // An empty string when the VM is in a state the command can work in,
    // else the reason why not.
    std::string needAlive() const;
    void noteCallStillRunning();
    std::string needSuspended();

    Session& session_;
    bool quit_ = false;
    bool startFailed_ = false;
};

} // namespace krvdbg
