// Kit for tests against a real VM: the shared test kit (children, ports,
// the event recorder, wire bytes) plus a VM that listens by itself and a
// movable library clock.
#pragma once

#include <memory>
#include <string>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include "EventLog.h"
#include "Process.h"
#include "Wire.h"

namespace jdwpkrvdbg::testing {

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

} // namespace jdwpkrvdbg::testing
