// JSON-lines output of a debugging session.
#include "JsonPrinter.h"

#include <iterator>

namespace krvdbg {

using json = Json;

std::string JsonPrinter::dumpLine(const json& object)
{
    return object.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

void JsonPrinter::emit(const json& object)
{
    write(dumpLine(object));
}

void JsonPrinter::hostEvent(const jdwpkrvdbg::HostEvent& e, StopCause, bool)
{
    using K = jdwpkrvdbg::HostEvent::Kind;
    // The name JXMachineEvents gives the text argument of each kind, in the
    // order of Kind; null where there is none.
    static constexpr const char* kTextArgument[] = {"Prompt", nullptr, nullptr, nullptr, nullptr,    "s",
                                                    "s",      "s",     "s",     "text",  "condition"};
    static_assert(std::size(kTextArgument) == static_cast<size_t>(K::ConditionFailed) + 1);

    json o{{"event", jdwpkrvdbg::HostEvent::name(e.kind)}};
    if (e.kind == K::Breakpoint || e.kind == K::LogpointMessage || e.kind == K::ConditionFailed) {
        o["threadID"] = jsonNumber(e.threadID);
        o["ClassName"] = e.className;
        o["LineNr"] = e.line;
    }
    if (e.kind == K::Breakpoint)
        o["Offset"] = e.offset;
    if (e.kind == K::VMStateChanged)
        o["NewState"] = static_cast<int>(e.state);
    if (const char* text = kTextArgument[static_cast<size_t>(e.kind)])
        o[text] = e.text;
    if (e.kind == K::Message) {
        o["Buttons"] = e.buttons;
        o["Title"] = e.title;
    }
    if (e.kind == K::ConditionFailed)
        o["reason"] = e.reason;
    emit(o);
}

void JsonPrinter::trace(const std::string& line)
{
    emit({{"trace", line}});
}

void JsonPrinter::echo(const std::string&)
{
    // The command's outcome carries the command text.
}

void JsonPrinter::outcome(const CommandOutcome& outcome)
{
    json o{{"command", outcome.command}, {"result", outcome.result}};
    if (!outcome.ok)
        o["error"] = outcome.error;
    emit(o);
}

void JsonPrinter::note(const std::string& text)
{
    emit({{"note", text}});
}

} // namespace krvdbg
