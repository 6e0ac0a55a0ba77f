// The command loop.
#include "Controller.h"

#include <csignal>
#include <cstdio>

#include "ClassNames.h"
#include "CommandSyntax.h"
#include "Interrupt.h"

namespace krvdbg {

int Controller::run()
{
    Printer& printer = session_.printer();
    for (;;) {
        const auto line = reader_.next();
        if (!line || Interrupt::endingSignal() != 0)
            break;
        if (CommandSyntax::stripComment(*line).empty())
            continue;
        if (reader_.isScript() && session_.options().echo)
            printer.echo(CommandSyntax::stripComment(*line));
        const CommandOutcome outcome = commands_.execute(*line);
        printer.outcome(outcome);
        if (commands_.startFailed()) {
            std::fprintf(stderr, "krvdbg: %s\n", session_.failureText().c_str());
            return kExitNoVM;
        }
        if (commands_.quitRequested() || Interrupt::endingSignal() != 0)
            break;
        if (session_.ended())
            return finishAfterEnd();
    }
    if (const int sig = Interrupt::endingSignal(); sig != 0)
        std::fprintf(stderr, "krvdbg: %s: ending the session as quit does\n", sig == SIGHUP ? "SIGHUP" : "SIGTERM");
    session_.shutdown();
    return kExitOk;
}

int Controller::finishAfterEnd()
{
    session_.drainAfterEnd();
    if (session_.options().mode != LaunchMode::Attach && !session_.mainClassLoaded()) {
        std::fprintf(stderr, "krvdbg: the VM ended without loading the main class %s (is the class path right?)\n",
                     ClassNames::toJava(ClassNames::toInternal(session_.options().mainClass)).c_str());
        return kExitMainClass;
    }
    return kExitOk;
}

} // namespace krvdbg
