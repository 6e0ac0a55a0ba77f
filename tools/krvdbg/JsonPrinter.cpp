// JSON-lines output of a debugging session.
#include "JsonPrinter.h"

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

void JsonPrinter::message(const std::string& Prompt, int32_t Buttons, const std::string& Title)
{
    emit({{"event", "Message"}, {"Prompt", Prompt}, {"Buttons", Buttons}, {"Title", Title}});
}

void JsonPrinter::breakpoint(double threadID, const std::string& ClassName, int32_t LineNr, int32_t Offset, StopCause)
{
    emit({{"event", "Breakpoint"},
          {"threadID", jsonNumber(threadID)},
          {"ClassName", ClassName},
          {"LineNr", LineNr},
          {"Offset", Offset}});
}

void JsonPrinter::stateChanged(jdwpkrvdbg::VMState NewState, bool)
{
    emit({{"event", "VMStateChanged"}, {"NewState", static_cast<int>(NewState)}});
}

void JsonPrinter::openConnection()
{
    emit({{"event", "OpenConnection"}});
}

void JsonPrinter::closeConnection()
{
    emit({{"event", "CloseConnection"}});
}

void JsonPrinter::debugMessage(const std::string& s)
{
    emit({{"event", "DebugMessage"}, {"s", s}});
}

void JsonPrinter::consoleMessage(const std::string& s)
{
    emit({{"event", "ConsoleMessage"}, {"s", s}});
}

void JsonPrinter::exception(const std::string& s)
{
    emit({{"event", "Exception"}, {"s", s}});
}

void JsonPrinter::logpoint(double threadID, const std::string& ClassName, int32_t LineNr, const std::string& text)
{
    emit({{"event", "LogpointMessage"},
          {"threadID", jsonNumber(threadID)},
          {"ClassName", ClassName},
          {"LineNr", LineNr},
          {"text", text}});
}

void JsonPrinter::conditionFailed(double threadID, const std::string& ClassName, int32_t LineNr,
                                  const std::string& condition, const std::string& reason)
{
    emit({{"event", "ConditionFailed"},
          {"threadID", jsonNumber(threadID)},
          {"ClassName", ClassName},
          {"LineNr", LineNr},
          {"condition", condition},
          {"reason", reason}});
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
