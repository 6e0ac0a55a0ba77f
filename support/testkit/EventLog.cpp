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

void EventLog::hostEvent(const HostEvent& e)
{
    using K = HostEvent::Kind;
    const std::string at = e.className + "," + std::to_string(e.line);
    switch (e.kind) {
    case K::Message:
        boxes.push_back(e.text + "|" + std::to_string(e.buttons) + "|" + e.title);
        note("Message(" + e.text + "," + std::to_string(e.buttons) + "," + e.title + ")");
        break;
    case K::Breakpoint:
        stops.push_back({e.threadID, e.className, e.line, e.offset, nowUs()});
        note("Break(" + std::to_string(static_cast<int64_t>(e.threadID)) + "," + at + "," + std::to_string(e.offset) +
             ")");
        if (onBreak)
            onBreak();
        break;
    case K::VMStateChanged:
        states.push_back(e.state);
        note("State(" + std::to_string(e.state) + ")");
        break;
    case K::OpenConnection:
        note("Open");
        break;
    case K::CloseConnection:
        note("Close");
        break;
    case K::DebugMessage:
        debug.push_back(e.text);
        note("Debug(" + e.text + ")");
        if (onDebug)
            onDebug(e.text);
        break;
    case K::ConsoleMessage:
    case K::ConsoleErrorMessage:
        console += e.text;
        note("Console(" + e.text + ")");
        break;
    case K::Exception:
        exceptions.push_back(e.text);
        note("Exception(" + e.text + ")");
        break;
    case K::LogpointMessage:
        logpoints.push_back(e.text);
        note("Log(" + at + "," + e.text + ")");
        break;
    case K::ConditionFailed:
        note("ConditionFailed(" + at + "," + e.text + "," + e.reason + ")");
        break;
    }
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
