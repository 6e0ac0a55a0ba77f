// Signals to krvdbg. Ctrl-C while krvdbg waits for the VM suspends the
// program instead of killing krvdbg; TERM and HUP (a closed terminal) end
// the session as `quit` does, so a launched VM goes with it and an attached
// one is let go.
#pragma once

namespace krvdbg {

class Interrupt {
public:
    // Installs the handlers of SIGINT, SIGTERM and SIGHUP (once).
    static void install();
    // True once after each Ctrl-C.
    static bool take();
    // The TERM or HUP that asked krvdbg to end; 0 while none came.
    static int endingSignal();
    // After the session is over: krvdbg ends by that signal, as it would have
    // without a handler, so that whoever sent it sees it.
    static void finishEnding();
};

} // namespace krvdbg
