// Ctrl-C while krvdbg waits for the VM: the wait ends and the prompt comes
// back instead of krvdbg being killed.
#pragma once

namespace krvdbg {

class Interrupt {
public:
    // Installs the SIGINT handler (once).
    static void install();
    // True once after each Ctrl-C.
    static bool take();
};

} // namespace krvdbg
