// The commands a user types at krvdbg's prompt or writes in a script, in the
// spirit of the JDK's jdb. Each command line gives one CommandOutcome; a
// malformed or unknown command gives one line saying what is expected and
// changes nothing.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "CommandSyntax.h"
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
    // The help text, made from the command table.
    static std::vector<std::string> helpLines();

private:
    using Args = std::vector<std::string>;
    struct HelpLine {
        const char* usage;
        const char* text; // a '\n' continues it on a line of its own
    };
    // One verb: its names (the first is the one help shows), its arity (0:
    // no arguments; -1: the handler reads them and says what it expects),
    // its lines in the help and the handler.
    struct Verb {
        std::vector<std::string> names;
        int arity;
        std::vector<HelpLine> help;
        CommandOutcome (*handler)(Commands& commands, const std::string& cmd, const Args& args);
    };
    static const std::vector<Verb>& verbs();
    // The handler of a verb whose member takes the command line alone.
    template <CommandOutcome (Commands::*Run)(const std::string&)>
    static CommandOutcome plain(Commands& commands, const std::string& cmd, const Args&)
    {
        return (commands.*Run)(cmd);
    }

    // stop (`log` false) or log, with the text after the verb.
    CommandOutcome setBreakpoint(const std::string& cmd, const std::string& text, bool log);
    CommandOutcome setLineBreakpoint(const std::string& cmd, const BreakpointForm& form);
    CommandOutcome setMethodBreakpoint(const std::string& cmd, const BreakpointForm& form);
    CommandOutcome setStopPoint(const std::string& cmd, const BreakpointForm& form);
    CommandOutcome clear(const std::string& cmd, const std::string& text);
    CommandOutcome listBreakpoints(const std::string& cmd);
    CommandOutcome run(const std::string& cmd);
    CommandOutcome cont(const std::string& cmd);
    CommandOutcome step(const std::string& cmd, int depth);
    CommandOutcome print(const std::string& cmd, const std::string& rest);
    CommandOutcome set(const std::string& cmd, const std::string& rest);
    CommandOutcome locals(const std::string& cmd);
    CommandOutcome where(const std::string& cmd);
    CommandOutcome threads(const std::string& cmd);
    CommandOutcome suspendOrResume(const std::string& cmd, bool suspend);
    CommandOutcome pop(const std::string& cmd);
    CommandOutcome redefine(const std::string& cmd, const Args& args);
    CommandOutcome holdOrRelease(const std::string& cmd, bool hold);
    CommandOutcome wait(const std::string& cmd, const Args& args);

    // Ctrl-C during a wait: the program is suspended and each thread's place
    // is shown.
    CommandOutcome interrupted(const std::string& cmd);
    // The outcome of a command that let the VM run: how the wait ended.
    CommandOutcome waited(const std::string& cmd, WaitOutcome how, uint32_t timeoutMs = 0);
    // Lists the threads and where each is, and makes the one that runs the
    // program's code (main first) the current one.
    void showThreadsAndChooseOne(CommandOutcome& o);
    // Every command that lets the VM run tells the host events through it.
    void noteResume();
    void noteCallStillRunning();
    // The refusal of a command that needs a live, or a suspended, VM; none
    // when the VM is in the state the command needs.
    std::optional<CommandOutcome> requireAlive(const std::string& cmd) const;
    std::optional<CommandOutcome> requireSuspended(const std::string& cmd);

    // The method breakpoints as they were asked for (the library holds one
    // entry per overload once the class is known): class (internal form),
    // method, parameter list ("" for every overload).
    struct MethodBreakpoint {
        std::string className, method, parameters;
    };

    Session& session_;
    std::vector<MethodBreakpoint> methodBreakpoints_;
    // The current thread, chosen after a suspend, is in a native method.
    bool stepLeavesNative_ = false;
    bool quit_ = false;
    bool startFailed_ = false;
};

} // namespace krvdbg
