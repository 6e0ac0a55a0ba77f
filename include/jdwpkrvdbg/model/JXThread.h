// One VM thread. Its name and thread group are fetched once and kept; its
// state and suspension are read live on every access. It can be armed with a
// single-step request of its own so that it stops at its next step.
#pragma once

#include <memory>
#include <string>

#include "jdwpkrvdbg/protocol/JDWPStructs.h"

namespace jdwpkrvdbg {

class JXBreakpoint;

class JXThread {
public:
    double threadID = 0;

    void RegisterStopMe();
    void UnregisterStopMe();
    bool CanSuspend();
    std::string ThreadName();
    bool ThreadSuspended();
    ThreadStatus ThreadState();
    double threadGroupID();
    double parentThreadGroupID();
    std::string ThreadGroupName();

private:
    std::string myThreadName;
    double myParentGroupID = 0;
    double myGroupID = -1;
    std::string myGroupName;
    std::shared_ptr<JXBreakpoint> myStopRequest;
    bool bStopRegistered = false;
};

} // namespace jdwpkrvdbg
