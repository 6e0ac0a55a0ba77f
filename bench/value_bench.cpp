// Value benchmarks at one stop: getValue of a local int ("i") and of a field
// of an object local ("p.x"), and ObjectToString of that object (toString
// invoked in the VM), against JDI's frame(0).getValue, getValue(field) and
// invokeMethod at a stop of its own in the same program.
#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <cstdio>
#include <cstdlib>

#include "BenchKit.h"

using namespace jdwpkrvdbg;

namespace {

constexpr int kRounds = 3;
constexpr int kCalls = 700; // per round
constexpr int kWarmUp = 100;
// JDI is Java code: it is given time to be compiled before it is timed.
constexpr int kJdiWarmUp = 1000;

// Samples of the three rows.
struct Samples {
    std::vector<double> local, field, toString;
};

struct Ours : Samples {
    std::vector<double> frameRefresh;
    std::string localText, fieldText, objectText;
};

template <typename F>
void timeCalls(std::vector<double>& samples, F call)
{
    for (int i = 0; i < kWarmUp + kCalls; ++i) {
        const double t0 = bench::nowUs();
        call();
        const double t1 = bench::nowUs();
        if (i >= kWarmUp)
            samples.push_back(t1 - t0);
    }
}

bool library(int line, Ours& out)
{
    bench::Session session({"BenchTarget"});
    auto& handler = session.handler;
    auto& jvm = session.jvm;
    if (!session.launchToLine(bench::benchClassPath(), "BenchTarget", "BenchTarget", line))
        return bench::fail("no stop: %s\n", session.dump().c_str());
    timeCalls(out.local, [&] { out.localText = jvm->getValue("i"); });
    timeCalls(out.field, [&] { out.fieldText = jvm->getValue("p.x"); });
    // "p: #Type: BenchPoint - ObjID: <id>#"
    const std::string p = jvm->getValue("p");
    const size_t at = p.find("ObjID: ");
    const double objectID = at == std::string::npos ? 0 : std::atof(p.c_str() + at + 7);
    timeCalls(out.toString, [&] { out.objectText = handler->ObjectToString(objectID, false); });
    // The frame refresh that the design makes after every invocation (its
    // two round trips are part of each ObjectToString above).
    timeCalls(out.frameRefresh, [&] { jvm->refreshFrameID(); });
    if (std::getenv("BENCH_TRACE")) {
        // The packets of one call of each kind.
        for (const char* expr : {"i", "p.x"}) {
            handler->history().clear();
            jvm->getValue(expr);
            std::fprintf(stderr, "getValue(%s):\n%s\n", expr, handler->history().dump().c_str());
        }
        handler->history().clear();
        handler->ObjectToString(objectID, false);
        std::fprintf(stderr, "ObjectToString:\n%s\n", handler->history().dump().c_str());
    }
    return out.localText.find("i: #") == 0 && out.fieldText.find("#p.x: 3#") == 0 &&
           out.objectText.find("BenchPoint(3, ") == 0;
}

// Bytes of a reply; empty when the reply was cut short.
std::string part(const std::string& s, size_t pos, size_t n)
{
    return pos + n <= s.size() ? s.substr(pos, n) : std::string();
}

// The floor: the same three reads by a raw blocking client, stopped at a
// breakpoint of its own (an invocation needs a thread that an event
// suspended). Only the commands a value needs are timed.
bool rawClient(int line, Samples& out)
{
    const int port = bench::freeTcpPort();
    bench::ChildProcess vm(
        {bench::javaPath(), bench::socketAgent(port, false), "-cp", bench::benchClassPath(), "BenchTarget"});
    if (vm.waitForLine("bench target ready", 20000).empty())
        return false;
    bench::RawClient c;
    const std::string T = c.attachAndStop(port, line);
    if (T.empty())
        return false;
    const std::string frames = c.roundTrip(11, 6, T + bench::be32(0) + bench::be32(1));
    // Count, frame id, then the location: tag, class, method, index.
    if (frames.size() < 4 + 8 + 25)
        return false;
    const std::string F = frames.substr(4, 8);
    // Slots of i and p from the variable table of main.
    const std::string vars = c.roundTrip(6, 2, frames.substr(13, 16));
    uint32_t slotI = 0, slotP = 0;
    size_t at = 8;
    for (uint64_t k = 0, n = bench::readBe(vars, 4, 4); k < n && at < vars.size(); ++k) {
        at += 8;
        const std::string name = bench::readJdwpString(vars, at);
        bench::readJdwpString(vars, at);
        at += 4;
        const uint32_t slot = static_cast<uint32_t>(bench::readBe(vars, at, 4));
        at += 4;
        if (name == "i")
            slotI = slot;
        if (name == "p")
            slotP = slot;
    }
    const std::string getI = T + F + bench::be32(1) + bench::be32(slotI) + "I";
    const std::string getP = T + F + bench::be32(1) + bench::be32(slotP) + "L";
    const std::string object = part(c.roundTrip(16, 1, getP), 5, 8);
    const std::string type = part(c.roundTrip(9, 1, object), 1, 8);
    const std::string fields = c.roundTrip(2, 4, type);
    const std::string fieldX = bench::idOfName(fields, "x");
    const std::string methodToString = bench::idOfName(c.roundTrip(2, 5, type), "toString");
    if (fieldX.empty() || methodToString.empty())
        return false;
    timeCalls(out.local, [&] { c.roundTrip(16, 1, getI); });
    timeCalls(out.field, [&] {
        const std::string p = part(c.roundTrip(16, 1, getP), 5, 8);
        c.roundTrip(9, 2, p + bench::be32(1) + fieldX);
    });
    const std::string invoke = object + T + type + methodToString + bench::be32(0) + bench::be32(0);
    timeCalls(out.toString, [&] {
        const std::string r = c.roundTrip(9, 6, invoke);
        c.roundTrip(10, 1, part(r, 1, 8));
    });
    c.roundTrip(1, 6, "");
    return true;
}

} // namespace

int main()
{
    const int line = bench::lineOf(bench::benchSourceDir() + "/BenchTarget.java", "// @loop-b");
    Ours ours;
    Samples raw, jdi;
    for (int round = 0; round < kRounds; ++round) {
        if (!library(line, ours)) {
            std::fprintf(stderr, "unexpected values: [%s] [%s] [%s]\n", ours.localText.c_str(), ours.fieldText.c_str(),
                         ours.objectText.c_str());
            return 1;
        }
        if (!rawClient(line, raw)) {
            std::fprintf(stderr, "the raw client failed\n");
            return 1;
        }
        const bench::AnchorRun anchor = bench::runJdiAtLine("values", line, kCalls, kJdiWarmUp);
        if (!bench::anchorOk(anchor, "values"))
            return 1;
        for (auto [row, list] : {std::pair{"value_local", &jdi.local}, std::pair{"value_field", &jdi.field},
                                 std::pair{"tostring", &jdi.toString}}) {
            const auto& samples = anchor.samples.at(row);
            list->insert(list->end(), samples.begin(), samples.end());
        }
    }
    std::printf("at one stop, %d calls of each in %d rounds (ours, raw client, JDI in turn)\n", kRounds * kCalls,
                kRounds);
    std::printf("raw client floor (blocking, no model): local %.1f us (StackFrame GetValues), field %.1f us "
                "(+ ObjectReference GetValues), toString %.1f us (InvokeMethod + StringReference Value)\n",
                bench::summarize(raw.local).median, bench::summarize(raw.field).median,
                bench::summarize(raw.toString).median);
    std::printf("getValue(\"i\") of a local int vs JDI frame(0).getValue\n");
    bench::report("value_local", bench::summarize(ours.local), bench::summarize(jdi.local));
    std::printf("getValue(\"p.x\"), a field of an object local, vs JDI frame(0).getValue + getValue(field)\n");
    bench::report("value_field", bench::summarize(ours.field), bench::summarize(jdi.field));
    std::printf(
        "ObjectToString (toString invoked in the VM) vs JDI invokeMethod + StringReference.value; of ours, "
        "the frame refresh after the invocation (ThreadReference Frames; `this` is read when used) takes %.1f us\n",
        bench::summarize(ours.frameRefresh).median);
    bench::report("tostring", bench::summarize(ours.toString), bench::summarize(jdi.toString));
    return 0;
}
