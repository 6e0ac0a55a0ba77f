// The adapter's observer of the library's host events. Events arrive while
// the library pumps, often in the middle of a request the adapter is
// answering (every synchronous call pumps), so nothing is sent from here:
// stops, output and the end are queued, and the adapter turns them into DAP
// events once its response is out.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include <jdwpkrvdbg/model/HostEvent.h>
#include <jdwpkrvdbg/model/JXMachine.h>

#include "StopRecord.h"

namespace krvdbg {

struct DebuggeeStop : StopPlace {
    double methodID = 0; // where the VM stopped: method and code index
    double index = 0;
    bool stepExpected = false; // a step was under way when it came
    bool exception = false;
    std::string exceptionText;
};

struct DebuggeeOutput {
    std::string category; // stdout, stderr, console
    std::string text;
    std::string className; // where a logpoint or a condition is (internal form), else ""
    int32_t line = 0;
};

class DebuggeeEvents : public jdwpkrvdbg::HostEventSink {
public:
    // The session whose stops are recorded: their code index is read from it
    // as they come, before a later stop moves it on.
    explicit DebuggeeEvents(const jdwpkrvdbg::JXMachine* jvm) : HostEventSink(true), jvm_(jvm) {}

    void hostEvent(const jdwpkrvdbg::HostEvent& event) override;

    void expectStep() { stepExpected_ = true; }
    void clearStep() { stepExpected_ = false; }

    std::deque<DebuggeeStop>& stops() { return stops_; }
    std::deque<DebuggeeOutput>& output() { return output_; }
    bool ended() const { return life_.ended(); }
    bool connected() const { return life_.connected(); }
    const std::string& lastMessage() const { return lastMessage_; }
    // Line ends as DAP clients expect them (LF).
    static std::string lfOnly(const std::string& s);

private:
    void stop(const jdwpkrvdbg::HostEvent& e);
    void debugMessage(const std::string& s);
    void exception(const std::string& s);

    const jdwpkrvdbg::JXMachine* jvm_;
    bool stepExpected_ = false;
    VMLifetime life_;
    std::string lastMessage_;
    std::deque<DebuggeeStop> stops_;
    std::deque<DebuggeeOutput> output_;
};

} // namespace krvdbg
