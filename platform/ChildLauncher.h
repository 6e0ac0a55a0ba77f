// Starting the debuggee's process so that it cannot outlive the debugger.
//
// The child asks the kernel for SIGKILL when its parent dies (a host killed
// without warning included). That signal follows the death of the *thread*
// that forked, not of the process, so every child is forked by one launcher
// thread that lives as long as the process; a host that starts sessions
// from short-lived threads does not lose its VMs with them.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace jdwpkrvdbg::platform_detail {

struct ChildLaunch {
    std::string path;              // resolved through PATH when it has no '/'
    std::vector<std::string> argv; // argv[0] included
    std::vector<std::string> env;  // NAME=value
    bool stdinNull = false;        // stdin from /dev/null
    int outputFd = -1;             // stdout and stderr to this descriptor; -1: keep
    int errorFd = -1;              // stderr to this descriptor instead (with outputFd); -1: as stdout
    bool outputNull = false;       // stdout and stderr to /dev/null (when outputFd is -1)
    bool ownProcessGroup = false;  // a group of its own: the terminal's signals stay with the host
};

// Starts the child; returns its pid, or 0 with `error` (an errno value) set
// when it could not be started (exec failures included).
pid_t launchChild(const ChildLaunch& launch, int& error);

} // namespace jdwpkrvdbg::platform_detail
