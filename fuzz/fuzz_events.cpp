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
    ByteReader in(data, size);
    FuzzSession session(optionsFromByte(in.byte()));
    const std::string event = in.record();
    const std::string name = in.record();
    session.setAnswers(readAnswers(in));
    auto& jvm = session.jvm();
    jvm.setTargetClassName(targetClasses());
    session.deliver(session.frameCommand(0x7000, CMDSET_Event, EV_COMPOSITE, event));
    if (jvm.JVMState() == VMSuspend && session.handler().isConnected()) {
        jvm.getStackTrace();
        if (!name.empty())
            jvm.getValue(name);
        session.settle();
    }
    return 0;
}
