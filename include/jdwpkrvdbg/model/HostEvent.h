// The host events as values. JXMachineEvents is one virtual call per event,
// which suits a host that cares about a few of them; a host that treats them
// all alike (records them, queues them, prints each one) derives from
// HostEventSink instead and gets every event, in order, as one HostEvent
// through one function.
#pragma once

#include <cstdint>
#include <string>

#include "jdwpkrvdbg/model/JXMachineEvents.h"

namespace jdwpkrvdbg {

struct HostEvent {
    // One kind per call of JXMachineEvents, named as the call is.
    enum class Kind {
        Message,
        Breakpoint,
        VMStateChanged,
        OpenConnection,
        CloseConnection,
        DebugMessage,
        ConsoleMessage,
        ConsoleErrorMessage,
        Exception,
        LogpointMessage,
        ConditionFailed,
    };

    // Every member has an initializer, so that an event is written with the
    // designated initializers of its own arguments alone.
    Kind kind = Kind::Message;
    // Where: Breakpoint, LogpointMessage, ConditionFailed.
    double threadID = 0;
    std::string className{};
    int32_t line = 0;
    int32_t offset = 0;     // Breakpoint
    VMState state = VMDead; // VMStateChanged
    // Message's prompt, ConditionFailed's condition, else the event's one
    // text argument (empty for the events that have none).
    std::string text{};
    int32_t buttons = 0;  // Message
    std::string title{};  // Message
    std::string reason{}; // ConditionFailed

    // The name of the JXMachineEvents call ("Breakpoint").
    static const char* name(Kind kind);
};

class HostEventSink : public JXMachineEvents {
public:
    // Without `splitStderr` the debuggee's stderr text comes as
    // ConsoleMessage, as it does to a JXMachineEvents host that does not
    // override ConsoleErrorMessage.
    explicit HostEventSink(bool splitStderr = false) : splitStderr_(splitStderr) {}

    // Every event, synchronously, as the library raises it; it may call back
    // into the session as any event handler may.
    virtual void hostEvent(const HostEvent& event) = 0;

    void Message(const std::string& Prompt, int32_t Buttons, const std::string& Title) final;
    void Breakpoint(double threadID, const std::string& ClassName, int32_t LineNr, int32_t Offset) final;
    void VMStateChanged(VMState NewState) final;
    void OpenConnection() final;
    void CloseConnection() final;
    void DebugMessage(const std::string& s) final;
    void ConsoleMessage(const std::string& s) final;
    void ConsoleErrorMessage(const std::string& s) final;
    void Exception(const std::string& s) final;
    void LogpointMessage(double threadID, const std::string& ClassName, int32_t LineNr, const std::string& text) final;
    void ConditionFailed(double threadID, const std::string& ClassName, int32_t LineNr, const std::string& condition,
                         const std::string& reason) final;

private:
    bool splitStderr_;
};

} // namespace jdwpkrvdbg
