// The command loop of krvdbg: reads command lines, runs them, prints their
// outcomes, and decides when the session is over and with which exit status.
#pragma once

#include "Commands.h"
#include "LineReader.h"
#include "Session.h"

namespace krvdbg {

enum ExitStatus : int {
    kExitOk = 0,        // the program ran to its end, or the user quit
    kExitUsage = 1,     // bad command line
    kExitNoVM = 2,      // the VM could not be started or reached
    kExitMainClass = 3, // the VM ended without loading the main class
};

class Controller {
public:
    Controller(Session& session, LineReader& reader) : session_(session), reader_(reader), commands_(session) {}
    // Runs until the input ends, the user quits or the program ends.
    int run();

private:
    // What happens once the VM has ended: the rest of its output, the
    // check that the main class was there at all.
    int finishAfterEnd();

    Session& session_;
    LineReader& reader_;
    Commands commands_;
};

} // namespace krvdbg
