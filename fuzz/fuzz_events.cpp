// Fuzz target: composite event packets. Input: an option byte, the event
// payload, the name of a value to read if the event stops the VM, and the
// answers to the follow-up requests (class signatures, methods, line
// tables, frames, values ...). After a stop the host's usual questions are
// asked: the stack and the value.
#include "FuzzHarness.h"

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return runRecordsTarget(data, size, 2, [](FuzzSession& session, const std::vector<std::string>& in) {
        const std::string& event = in[0];
        const std::string& name = in[1];
        auto& jvm = session.jvm();
        jvm.setTargetClassName(targetClasses());
        session.deliver(session.frameCommand(0x7000, CMDSET_Event, EV_COMPOSITE, event));
        if (jvm.JVMState() == VMSuspend && session.handler().isConnected()) {
            jvm.getStackTrace();
            if (!name.empty())
                jvm.getValue(name);
            session.settle();
        }
    });
}
