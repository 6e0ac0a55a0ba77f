// Breakpoints set before an attach to a program that already runs: their
// classes were loaded long before and send no class-prepare event, so
// nothing registers them by itself. krvdbg and krvdbg-dap call this once
// the attach's opening sequence is over.
#pragma once

namespace jdwpkrvdbg {
class JXMachine;
}

namespace krvdbg {

// Registers every breakpoint, stop point and method breakpoint that is not
// in the VM yet (those of classes not loaded keep waiting for them).
void registerWaitingBreakpoints(jdwpkrvdbg::JXMachine& jvm);

} // namespace krvdbg
