// The host-event recorder (see EventLog.h).
#include "EventLog.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace jdwpkrvdbg::testing {

namespace {
double nowUs()
{
    using namespace std::chrono;
    return duration_cast<duration<double, std::micro>>(steady_clock::now().time_since_epoch()).count();
}
} // namespace

std::string EventLog::Stop::text() const
{
    return className + ":" + std::to_string(line) + "+" + std::to_string(offset);
}

void EventLog::note(std::string entry)
{
    if (echo)
        std::fprintf(stderr, "  %s\n", entry.c_str());
    all.push_back(std::move(entry));
}

void EventLog::Message(const std::string& Prompt, int32_t Buttons, const std::string& Title)
{
    boxes.push_back(Prompt + "|" + std::to_string(Buttons) + "|" + Title);
    note("Message(" + Prompt + "," + std::to_string(Buttons) + "," + Title + ")");
}

void EventLog::Breakpoint(double threadID, const std::string& ClassName, int32_t LineNr, int32_t Offset)
{
    stops.push_back({threadID, ClassName, LineNr, Offset, nowUs()});
    note("Break(" + std::to_string(static_cast<int64_t>(threadID)) + "," + ClassName + "," + std::to_string(LineNr) +
         "," + std::to_string(Offset) + ")");
    if (onBreak)
        onBreak();
}

void EventLog::VMStateChanged(VMState NewState)
{
    states.push_back(NewState);
    note("State(" + std::to_string(NewState) + ")");
}

void EventLog::LogpointMessage(double, const std::string& ClassName, int32_t LineNr, const std::string& text)
{
    logpoints.push_back(text);
    note("Log(" + ClassName + "," + std::to_string(LineNr) + "," + text + ")");
}

void EventLog::ConditionFailed(double, const std::string& ClassName, int32_t LineNr, const std::string& condition,
                               const std::string& reason)
{
    note("ConditionFailed(" + ClassName + "," + std::to_string(LineNr) + "," + condition + "," + reason + ")");
}

void EventLog::DebugMessage(const std::string& s)
{
    debug.push_back(s);
    note("Debug(" + s + ")");
    if (onDebug)
        onDebug(s);
}

void EventLog::ConsoleMessage(const std::string& s)
{
    console += s;
    note("Console(" + s + ")");
}

void EventLog::Exception(const std::string& s)
{
    exceptions.push_back(s);
    note("Exception(" + s + ")");
}

size_t EventLog::count(const std::string& entry) const
{
    return static_cast<size_t>(std::count(all.begin(), all.end(), entry));
}

bool EventLog::hasPrefix(const std::string& prefix) const
{
    return std::any_of(all.begin(), all.end(), [&](const std::string& e) { return e.rfind(prefix, 0) == 0; });
}

bool EventLog::sawDebug(const std::string& text) const
{
    return std::any_of(debug.begin(), debug.end(),
                       [&](const std::string& d) { return d.find(text) != std::string::npos; });
}

bool EventLog::sawState(VMState state) const
{
    return std::find(states.begin(), states.end(), state) != states.end();
}

std::vector<std::string> EventLog::connections() const
{
    std::vector<std::string> out;
    std::copy_if(all.begin(), all.end(), std::back_inserter(out),
                 [](const std::string& e) { return e == "Open" || e == "Close"; });
    return out;
}

std::vector<std::string> EventLog::stopTexts() const
{
    std::vector<std::string> out;
    for (const auto& s : stops)
        out.push_back(s.text());
    return out;
}

void EventLog::clear()
{
    all.clear();
    stops.clear();
    states.clear();
    debug.clear();
    exceptions.clear();
    boxes.clear();
    console.clear();
}

} // namespace jdwpkrvdbg::testing
