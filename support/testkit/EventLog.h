// A recorder of the library's host events, for tests, benchmarks and the
// fuzz harness' trace: every event in order as text ("State(1)",
// "Break(7,Foo,10,0)", ...), and the details of each kind for checks that
// want them. Stops carry the time they were seen, for the benchmarks.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <jdwpkrvdbg/jdwpkrvdbg.h>

namespace jdwpkrvdbg::testing {

struct EventLog : HostEventSink {
    struct Stop {
        double threadID = 0;
        std::string className;
        int32_t line = 0;
        int32_t offset = 0;
        double atUs = 0;
        // "Class:line+offset"
        std::string text() const;
    };

    std::vector<std::string> all;
    std::vector<Stop> stops;
    std::vector<VMState> states;
    std::vector<std::string> debug;
    std::vector<std::string> exceptions;
    std::vector<std::string> boxes;     // "prompt|buttons|title"
    std::vector<std::string> logpoints; // the messages
    std::string console;
    // Run inside the event, as a host's handler would.
    std::function<void(const std::string&)> onDebug;
    std::function<void()> onBreak;
    // Print every event to stderr as it comes.
    bool echo = false;

    // Every event is noted in `all`, then kept by its kind.
    void hostEvent(const HostEvent& event) override;

    size_t count(const std::string& entry) const;
    bool has(const std::string& entry) const { return count(entry) > 0; }
    bool hasPrefix(const std::string& prefix) const;
    bool sawDebug(const std::string& text) const;
    // The Open and Close events, in order.
    std::vector<std::string> connections() const;
    std::vector<std::string> stopTexts() const;
    bool sawState(VMState state) const;
    VMState lastState() const { return states.empty() ? VMDead : states.back(); }
    void clear();

private:
    void note(std::string entry);
};

} // namespace jdwpkrvdbg::testing
