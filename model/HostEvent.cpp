// Each JXMachineEvents call of HostEventSink made into its HostEvent.
#include "jdwpkrvdbg/model/HostEvent.h"

#include <iterator>

namespace jdwpkrvdbg {

using K = HostEvent::Kind;

const char* HostEvent::name(Kind kind)
{
    // In the order of Kind.
    static constexpr const char* kNames[] = {
        "Message",        "Breakpoint",          "VMStateChanged", "OpenConnection",  "CloseConnection", "DebugMessage",
        "ConsoleMessage", "ConsoleErrorMessage", "Exception",      "LogpointMessage", "ConditionFailed",
    };
    static_assert(std::size(kNames) == static_cast<size_t>(Kind::ConditionFailed) + 1);
    return kNames[static_cast<size_t>(kind)];
}

void HostEventSink::Message(const std::string& Prompt, int32_t Buttons, const std::string& Title)
{
    hostEvent({.kind = K::Message, .text = Prompt, .buttons = Buttons, .title = Title});
}

void HostEventSink::Breakpoint(double threadID, const std::string& ClassName, int32_t LineNr, int32_t Offset)
{
    hostEvent({.kind = K::Breakpoint, .threadID = threadID, .className = ClassName, .line = LineNr, .offset = Offset});
}

void HostEventSink::VMStateChanged(VMState NewState)
{
    hostEvent({.kind = K::VMStateChanged, .state = NewState});
}

void HostEventSink::OpenConnection()
{
    hostEvent({.kind = K::OpenConnection});
}

void HostEventSink::CloseConnection()
{
    hostEvent({.kind = K::CloseConnection});
}

void HostEventSink::DebugMessage(const std::string& s)
{
    hostEvent({.kind = K::DebugMessage, .text = s});
}

void HostEventSink::ConsoleMessage(const std::string& s)
{
    hostEvent({.kind = K::ConsoleMessage, .text = s});
}

void HostEventSink::ConsoleErrorMessage(const std::string& s)
{
    hostEvent({.kind = splitStderr_ ? K::ConsoleErrorMessage : K::ConsoleMessage, .text = s});
}

void HostEventSink::Exception(const std::string& s)
{
    hostEvent({.kind = K::Exception, .text = s});
}

void HostEventSink::LogpointMessage(double threadID, const std::string& ClassName, int32_t LineNr,
                                    const std::string& text)
{
    hostEvent({.kind = K::LogpointMessage, .threadID = threadID, .className = ClassName, .line = LineNr, .text = text});
}

void HostEventSink::ConditionFailed(double threadID, const std::string& ClassName, int32_t LineNr,
                                    const std::string& condition, const std::string& reason)
{
    hostEvent({.kind = K::ConditionFailed,
               .threadID = threadID,
               .className = ClassName,
               .line = LineNr,
               .text = condition,
               .reason = reason});
}

} // namespace jdwpkrvdbg
