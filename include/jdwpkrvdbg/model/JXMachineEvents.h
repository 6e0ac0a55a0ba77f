// The host events of a debugging session. The host derives from this class,
// overrides the events it cares about and attaches the object to JXMachine;
// JXMachine is the only raiser. Events run synchronously on the host thread,
// and a handler may call back into the session.
#pragma once

#include <cstdint>
#include <string>

#include "jdwpkrvdbg/protocol/JDWPStructs.h"

namespace jdwpkrvdbg {

class JXMachineEvents {
public:
    virtual ~JXMachineEvents() = default;
    // A box to show: Buttons is the style code (16 critical stop, 64 info).
    virtual void Message(const std::string& Prompt, int32_t Buttons, const std::string& Title) {}
    // A breakpoint, stop point, step or exception stop. Offset is the code
    // offset of a stop point, else 0.
    virtual void Breakpoint(double threadID, const std::string& ClassName, int32_t LineNr, int32_t Offset) {}
    virtual void VMStateChanged(VMState NewState) {}
    virtual void OpenConnection() {}
    virtual void CloseConnection() {}
    // Progress lines (" *** ...") and the debuggee's debug-print output.
    virtual void DebugMessage(const std::string& s) {}
    // The debuggee's console output, line ends as CR LF.
    virtual void ConsoleMessage(const std::string& s) {}
    // The part of the console output the debuggee wrote to its stderr. A
    // host that does not tell the two apart gets it as console output.
    virtual void ConsoleErrorMessage(const std::string& s) { ConsoleMessage(s); }
    virtual void Exception(const std::string& s) {}
    // A logpoint was reached; its message with the expressions filled in. No
    // stop follows.
    virtual void LogpointMessage(double threadID, const std::string& ClassName, int32_t LineNr, const std::string& text)
    {
    }
    // A breakpoint's condition could not be evaluated (unknown name, type
    // mismatch...). The stop follows as a Breakpoint event; this comes just
    // before it and says why.
    virtual void ConditionFailed(double threadID, const std::string& ClassName, int32_t LineNr,
                                 const std::string& condition, const std::string& reason)
    {
    }
};

} // namespace jdwpkrvdbg
