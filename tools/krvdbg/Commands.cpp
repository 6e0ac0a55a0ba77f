// krvdbg's commands: each one checks its arguments and the VM's state, calls
// the library, and describes the result both for a person and as JSON.
#include "Commands.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>

#include <jdwpkrvdbg/model/JXBreakpoint.h>
#include <jdwpkrvdbg/model/JXClass.h>
#include <jdwpkrvdbg/model/JXMethod.h>
#include <jdwpkrvdbg/model/JXThread.h>
#include <jdwpkrvdbg/model/JXThreadList.h>
#include <jdwpkrvdbg/platform/MessagePump.h>
#include <jdwpkrvdbg/protocol/JDWPMessage.h>
#include <jdwpkrvdbg/protocol/JDWPMessageData.h>
#include <jdwpkrvdbg/protocol/JDWPMessageFactory.h>
#include <jdwpkrvdbg/session/JDWPLimits.h>

#include "ClassNames.h"
#include "CommandSyntax.h"
#include "TextPrinter.h"
#include "ValueText.h"

namespace krvdbg {

using namespace jdwpkrvdbg;
using json = Json;

namespace {

constexpr uint32_t kDefaultWaitMs = 30000;
// How long suspend/resume wait for the VM to confirm the new state.
constexpr uint32_t kStateConfirmMs = 2000;

const char* kUsageStopAt =
    "stop at CLASS:LINE [if CONDITION] [hit N | >= N | % N] (e.g. stop at demo.Cart:14 if count > 2)";
const char* kUsageStopIn = "stop in CLASS.METHOD[(TYPES)] [if CONDITION] [hit ...] or stop in CLASS.METHOD+OFFSET "
                           "(e.g. stop in demo.Cart.add(demo.Item), stop in demo.Item.getPrice+1)";
const char* kUsageLog = "log CLASS:LINE \"TEXT {EXPRESSION}\" [if CONDITION] [hit N | >= N | % N] "
                        "(e.g. log demo.Cart:17 \"count is {count}\")";
const char* kUsageClear =
    "clear CLASS:LINE, clear CLASS.METHOD[(TYPES)], clear CLASS.METHOD+OFFSET, or clear alone to list them";
const char* kUsagePrint = "print NAME[.NAME...] [in CLASS] (e.g. print item.name)";
const char* kUsageSet = "set NAME[.NAME...] [in CLASS] = VALUE (e.g. set item.price = 99, set s = \"text\")";
const char* kUsageRedefine = "redefine CLASS FILE.class";
const char* kUsageWait = "wait [MILLISECONDS] (default 30000)";

std::string lineText(const std::string& javaClass, int line)
{
    return javaClass + ":" + std::to_string(line);
}

std::string codeText(const CodePlace& p)
{
    return p.className + "." + p.method + "+" + std::to_string(p.offset);
}

JXBreakpointOptions optionsOf(const BreakpointForm& form)
{
    JXBreakpointOptions o;
    o.Condition = form.condition;
    o.HitCondition = form.hitCondition;
    o.LogMessage = form.logMessage;
    return o;
}

// What a breakpoint does beyond stopping, as the commands write it.
std::string optionsText(const JXBreakpointOptions& o)
{
    std::string text;
    if (!o.LogMessage.empty())
        text += " " + CommandSyntax::quote(o.LogMessage);
    if (!o.Condition.empty())
        text += " if " + o.Condition;
    if (!o.HitCondition.empty())
        text += " hit " + o.HitCondition;
    return text;
}

void addOptionsJson(json& j, const JXBreakpointOptions& o)
{
    if (!o.Condition.empty())
        j["Condition"] = o.Condition;
    if (!o.HitCondition.empty())
        j["HitCondition"] = o.HitCondition;
    if (!o.LogMessage.empty())
        j["LogMessage"] = o.LogMessage;
}

// The text after the first `count` words of a command line.
std::string afterWords(const std::string& line, size_t count)
{
    size_t i = 0;
    for (size_t w = 0; w < count; ++w) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t'))
            ++i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t')
            ++i;
    }
    return line.substr(i);
}

json numberOrText(const std::string& s)
{
    long long n = 0;
    if (CommandSyntax::parseNumber(s, -0x7fffffffffffffffLL, 0x7fffffffffffffffLL, n))
        return n;
    return s;
}

std::string threadStateName(ThreadStatus s)
{
    switch (s) {
    case THREAD_STATE_ZOMBIE:
        return "zombie";
    case THREAD_STATE_RUNNING:
        return "running";
    case THREAD_STATE_SLEEPING:
        return "sleeping";
    case THREAD_STATE_MONITOR:
        return "waiting for a monitor";
    case THREAD_STATE_WAIT:
        return "waiting";
    }
    return "state " + std::to_string(static_cast<int>(s));
}

// Values may carry CR LF of their own (a string with line breaks).
std::string oneLine(const std::string& s)
{
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\r')
            continue;
        if (s[i] == '\n')
            out += "\\n";
        else
            out += s[i];
    }
    return out;
}

// Where a suspended thread is: its first frame in the program's own code,
// else its top frame.
struct ThreadPlace {
    bool found = false;
    bool program = false;
    std::string className, method;
    int line = 0;
    double classID = 0, methodID = 0;
    std::string inside; // the top frame's method when the place is below it
    bool topNative = false;
};

// The code index of a native method's frame.
const std::string kNativeIndex = "-1";

ThreadPlace placeOf(Session& session, double threadID)
{
    constexpr int32_t kMaxFrames = 64;
    auto& handler = session.handler();
    auto& jvm = session.jvm();
    ThreadPlace place;
    const auto countReply = handler.sendSync(handler.myFactory()->createGetFrameCountMessage(threadID), kReplyWaitMs);
    if (!countReply || !countReply->hasDataContainer())
        return place;
    const auto count = static_cast<int32_t>(std::llround(countReply->myDataContainer()->RequestFrameCount));
    if (count <= 0)
        return place;
    const auto reply = handler.sendSync(
        handler.myFactory()->createGetFrameMessage(threadID, 0, std::min(count, kMaxFrames)), kReplyWaitMs);
    if (!reply || !reply->hasDataContainer())
        return place;
    std::string top;
    for (const auto& frame : reply->myDataContainer()->requestFrame()) {
        const JDWPJLocation& loc = frame.FrameLocation;
        const auto cls = jvm.getClassByID(loc.ClassID, true);
        const auto method = cls ? cls->JMethodID(loc.MethodID) : nullptr;
        if (!method)
            continue;
        ThreadPlace here;
        here.found = true;
        here.className = cls->ClassName();
        here.method = method->MethodName;
        here.classID = loc.ClassID;
        here.methodID = loc.MethodID;
        here.program = jvm.isPossibleClass(here.className);
        double line = 0;
        if (method->LocationToSrcLine(loc, line))
            here.line = static_cast<int>(std::llround(line));
        if (!place.found) {
            // A line step never ends in a native frame (Thread.sleep): it
            // has no lines.
            here.topNative = &frame == &reply->myDataContainer()->requestFrame().front() && method->isNative();
            place = here;
        }
        here.topNative = place.topNative;
        if (here.program) {
            if (&frame != &reply->myDataContainer()->requestFrame().front())
                here.inside = ClassNames::toJava(place.className) + "." + place.method;
            return here;
        }
    }
    return place;
}

json stopJson(const StopInfo& stop)
{
    json j{{"threadID", jsonNumber(stop.threadID)},
           {"ClassName", stop.className},
           {"LineNr", stop.line},
           {"Offset", stop.offset}};
    if (!stop.exception.empty())
        j["exception"] = stop.exception;
    return j;
}

} // namespace

const std::vector<Commands::Verb>& Commands::verbs()
{
    // In help order. Arity 0: the verb takes no arguments (checked here);
    // -1: the handler reads its arguments and says what it expects.
    static const std::vector<Verb> table{
        {{"stop"},
         -1,
         {{"stop at CLASS:LINE [if COND] [hit N]", "breakpoint on a source line (also before the class loads);\n"
                                                   "if: only where COND holds (count > 2 && item != null);\n"
                                                   "hit N: the Nth hit only; hit >= N: from the Nth on;\n"
                                                   "hit % N: every Nth (hits where COND holds)"},
          {"stop in CLASS.METHOD[(TYPES)] [if COND] [hit N]",
           "on entry to a method: every overload, or the one of the\n"
           "Java parameter types (stop in demo.Cart.add(demo.Item))"},
          {"stop in CLASS.METHOD+OFFSET", "stop point at a code index of a method"},
          {"stop", "list breakpoints, logpoints and stop points"}},
         [](Commands& c, const std::string& cmd, const Args& args) {
             if (args.empty())
                 return c.listBreakpoints(cmd);
             if (args[0] == "at" || args[0] == "in")
                 return c.setBreakpoint(cmd, afterWords(cmd, 1), false);
             return CommandOutcome::failure(cmd, std::string("expected ") + kUsageStopAt + " or " + kUsageStopIn);
         }},
        {{"log"},
         -1,
         {{"log CLASS:LINE \"TEXT {EXPR}\" [if COND] [hit N]",
           "logpoint: prints TEXT with each {EXPR} filled in at each hit\n"
           "and the program goes on ({{ and }} for braces; log\n"
           "CLASS.METHOD[(TYPES)] \"TEXT\" logs a method's entry)"}},
         [](Commands& c, const std::string& cmd, const Args&) {
             return c.setBreakpoint(cmd, afterWords(cmd, 1), true);
         }},
        {{"clear"},
         -1,
         {{"clear CLASS:LINE | clear CLASS.METHOD[(TYPES)|+OFFSET]", "remove one; clear alone lists them"}},
         [](Commands& c, const std::string& cmd, const Args&) { return c.clear(cmd, afterWords(cmd, 1)); }},
        {{"run"},
         0,
         {{"run", "start the program and wait for the first stop or its end\n"
                  "(attached to a program that runs: returns with it running)"}},
         plain<&Commands::run>},
        {{"cont"}, 0, {{"cont", "continue and wait for the next stop or the end"}}, plain<&Commands::cont>},
        {{"step"},
         -1,
         {{"step | next | step up", "one line into calls | over calls | out of the method"}},
         [](Commands& c, const std::string& cmd, const Args& args) {
             if (args.empty())
                 return c.step(cmd, SD_INTO);
             if (args.size() == 1 && args[0] == "up")
                 return c.step(cmd, SD_OUT);
             return CommandOutcome::failure(cmd, "expected step (into calls) or step up (out of the method)");
         }},
        {{"next"}, 0, {}, [](Commands& c, const std::string& cmd, const Args&) { return c.step(cmd, SD_OVER); }},
        {{"print", "p"},
         -1,
         {{"print EXPR [in CLASS]", "a variable, a field or a method without arguments, also as a\n"
                                    "dotted path (print cart.total); in CLASS: its static members"}},
         // The expression is the rest of the line as typed, after the verb.
         [](Commands& c, const std::string& cmd, const Args&) { return c.print(cmd, afterWords(cmd, 1)); }},
        {{"set"},
         -1,
         {{"set EXPR [in CLASS] = VALUE", "give a variable, a field or a static of primitive or String type\n"
                                          "a new value: 5, 2.5, true, 'c', \"text\" or null"}},
         [](Commands& c, const std::string& cmd, const Args&) { return c.set(cmd, afterWords(cmd, 1)); }},
        {{"locals"}, 0, {{"locals", "the local variables of the current method"}}, plain<&Commands::locals>},
        {{"where"}, 0, {{"where", "the stack of the stopped thread"}}, plain<&Commands::where>},
        {{"threads"}, 0, {{"threads", "the VM's threads"}}, plain<&Commands::threads>},
        {{"suspend"},
         0,
         {{"suspend | resume", "suspend the whole VM and show where each thread is, as\n"
                               "Ctrl-C does | resume it (resume does not wait)"}},
         [](Commands& c, const std::string& cmd, const Args&) { return c.suspendOrResume(cmd, true); }},
        {{"resume"},
         0,
         {},
         [](Commands& c, const std::string& cmd, const Args&) { return c.suspendOrResume(cmd, false); }},
        {{"pop"}, 0, {{"pop", "drop the top frame of the stopped thread"}}, plain<&Commands::pop>},
        {{"redefine"},
         -1,
         {{"redefine CLASS FILE.class", "replace a class with new bytecode"}},
         [](Commands& c, const std::string& cmd, const Args& args) { return c.redefine(cmd, args); }},
        {{"hold"},
         0,
         {{"hold | release", "hold back or release the VM's events"}},
         [](Commands& c, const std::string& cmd, const Args&) { return c.holdOrRelease(cmd, true); }},
        {{"release"},
         0,
         {},
         [](Commands& c, const std::string& cmd, const Args&) { return c.holdOrRelease(cmd, false); }},
        {{"wait"},
         -1,
         {{"wait [MS]", "wait until the VM stops or ends (default 30000 ms)"}},
         [](Commands& c, const std::string& cmd, const Args& args) { return c.wait(cmd, args); }},
        {{"help", "?"},
         -1,
         {{"help", "this list"}},
         [](Commands&, const std::string& cmd, const Args&) {
             CommandOutcome o;
             o.command = cmd;
             o.text = helpLines();
             o.result = o.text;
             return o;
         }},
        {{"quit", "exit"},
         -1,
         {{"quit", "end the session (a launched program is ended too)"}},
         [](Commands& c, const std::string& cmd, const Args&) {
             c.quit_ = true;
             CommandOutcome o;
             o.command = cmd;
             o.result = "quit";
             return o;
         }},
    };
    return table;
}

std::vector<std::string> Commands::helpLines()
{
    // Where the help text starts, the two leading blanks included.
    constexpr size_t kTextColumn = 33;
    std::vector<std::string> lines{"Commands (class names as Java writes them: pkg.Name, pkg.Outer$Inner):"};
    for (const Verb& v : verbs()) {
        for (const HelpLine& h : v.help) {
            // The text starts at its column; a usage too long for that has
            // a line of its own.
            const std::string usage = std::string("  ") + h.usage;
            const std::string text = h.text;
            std::string line = usage + std::string(kTextColumn - std::min(usage.size(), kTextColumn), ' ');
            if (usage.size() >= kTextColumn) {
                lines.push_back(usage);
                line = std::string(kTextColumn, ' ');
            }
            for (size_t start = 0;;) {
                const size_t end = text.find('\n', start);
                lines.push_back(line + text.substr(start, end == std::string::npos ? end : end - start));
                if (end == std::string::npos)
                    break;
                start = end + 1;
                line = std::string(kTextColumn, ' ');
            }
        }
    }
    lines.push_back("Ctrl-C while krvdbg waits suspends the program and shows where each thread is.");
    return lines;
}

CommandOutcome Commands::execute(const std::string& line)
{
    const std::string cmd = CommandSyntax::stripComment(line);
    const std::vector<std::string> w = CommandSyntax::words(cmd);
    if (w.empty()) {
        CommandOutcome o;
        o.command = cmd;
        return o;
    }
    const std::string& verb = w[0];
    const Args args(w.begin() + 1, w.end());
    for (const Verb& v : verbs()) {
        if (std::find(v.names.begin(), v.names.end(), verb) == v.names.end())
            continue;
        if (v.arity == 0 && !args.empty())
            return CommandOutcome::failure(cmd, verb + " takes no arguments");
        return v.handler(*this, cmd, args);
    }
    return CommandOutcome::failure(cmd, "unknown command '" + verb + "' (help lists the commands)");
}

std::optional<CommandOutcome> Commands::requireAlive(const std::string& cmd) const
{
    if (!session_.started())
        return CommandOutcome::failure(cmd, "the program is not running yet: use run");
    if (session_.ended())
        return CommandOutcome::failure(cmd, "the program has ended");
    return std::nullopt;
}

void Commands::noteResume()
{
    session_.events().noteResume();
    stepLeavesNative_ = false;
}

void Commands::noteCallStillRunning()
{
    // An evaluation whose call did not return leaves the program running
    // (its value says so); suspend then brings the thread back.
    if (session_.jvm().JVMState() == VMRunning)
        session_.events().noteResume();
}

std::optional<CommandOutcome> Commands::requireSuspended(const std::string& cmd)
{
    if (auto refused = requireAlive(cmd))
        return refused;
    if (!session_.suspended())
        return CommandOutcome::failure(cmd, "the VM is running: wait for a stop (wait) or suspend it (suspend)");
    return std::nullopt;
}

CommandOutcome Commands::setBreakpoint(const std::string& cmd, const std::string& text, bool log)
{
    // stop: "at" takes a line, "in" a method; log: either.
    const std::string verbWord = log ? std::string() : CommandSyntax::words(text).front();
    BreakpointForm form;
    std::string error;
    const bool parsed = CommandSyntax::parseBreakpoint(log ? text : afterWords(text, 1), log, form, error);
    const bool lineWanted = verbWord == "at";
    if (!parsed || (!log && lineWanted != (form.kind == BreakpointForm::Kind::Line))) {
        const char* usage = log ? kUsageLog : lineWanted ? kUsageStopAt : kUsageStopIn;
        return CommandOutcome::failure(cmd, error.empty() || (parsed && !log) ? std::string("expected ") + usage
                                                                              : error + " (" + usage + ")");
    }
    switch (form.kind) {
    case BreakpointForm::Kind::Line:
        return setLineBreakpoint(cmd, form);
    case BreakpointForm::Kind::Method:
        return setMethodBreakpoint(cmd, form);
    case BreakpointForm::Kind::StopPoint:
        break;
    }
    return setStopPoint(cmd, form);
}

CommandOutcome Commands::setLineBreakpoint(const std::string& cmd, const BreakpointForm& form)
{
    const JXBreakpointOptions options = optionsOf(form);
    // Refused before anything changes, with the parser's reason.
    if (const std::string why = JXMachine::checkBreakpointOptions(options); !why.empty())
        return CommandOutcome::failure(cmd, why);
    const std::string internal = ClassNames::toInternal(form.line.className);
    const std::string java = ClassNames::toJava(internal);
    const int line = form.line.line;
    session_.addTarget(internal);
    auto& jvm = session_.jvm();
    if (!jvm.addBreakpoint(internal, line, options))
        return CommandOutcome::failure(cmd, "the library refused the breakpoint at " + lineText(java, line));
    const auto bp = jvm.getBreakPoint(internal, line);
    const bool registered = bp && bp->UsedByVM;
    CommandOutcome o;
    o.command = cmd;
    o.result = {{"ClassName", internal}, {"LineNr", line}, {"registered", registered}};
    addOptionsJson(o.result, options);
    const std::string what = options.LogMessage.empty() ? "Breakpoint" : "Logpoint";
    const std::string place = lineText(java, line) + optionsText(options);
    if (registered)
        o.text.push_back(what + " set at " + place);
    else if (session_.alive() && jvm.getClassByName(internal, false))
        o.text.push_back(what + " at " + place + " is pending: the class has no code on line " + std::to_string(line));
    else
        o.text.push_back("Deferred " + (options.LogMessage.empty() ? std::string("breakpoint") : "logpoint") + " " +
                         place + ": it is set when the class is loaded");
    return o;
}

CommandOutcome Commands::setMethodBreakpoint(const std::string& cmd, const BreakpointForm& form)
{
    const JXBreakpointOptions options = optionsOf(form);
    if (const std::string why = JXMachine::checkBreakpointOptions(options); !why.empty())
        return CommandOutcome::failure(cmd, why);
    const std::string internal = ClassNames::toInternal(form.code.className);
    const std::string place = ClassNames::toJava(internal) + "." + form.code.method + form.parameters;
    session_.addTarget(internal);
    auto& jvm = session_.jvm();
    if (!jvm.addMethodBreakpoint(internal, form.code.method, form.parameters, options))
        return CommandOutcome::failure(cmd, "the library refused the method breakpoint in " + place);
    const MethodBreakpoint asked{internal, form.code.method, form.parameters};
    if (std::none_of(methodBreakpoints_.begin(), methodBreakpoints_.end(), [&](const MethodBreakpoint& m) {
            return m.className == asked.className && m.method == asked.method && m.parameters == asked.parameters;
        }))
        methodBreakpoints_.push_back(asked);
    size_t overloads = 0;
    for (const auto& bp : jvm.methodBreakpoints(internal, form.code.method, form.parameters))
        overloads += bp && bp->UsedByVM ? 1 : 0;
    CommandOutcome o;
    o.command = cmd;
    o.result = {{"ClassName", internal}, {"MethodName", form.code.method}, {"Signature", form.parameters},
                {"MethodEntry", true},   {"registered", overloads > 0},    {"overloads", overloads}};
    addOptionsJson(o.result, options);
    const std::string what = options.LogMessage.empty() ? "Method breakpoint" : "Method logpoint";
    const std::string shown = place + optionsText(options);
    if (overloads > 0)
        o.text.push_back(what + " set in " + shown +
                         (form.parameters.empty()
                              ? " (" + std::to_string(overloads) + (overloads == 1 ? " method)" : " overloads)")
                              : std::string()));
    else if (session_.alive() && jvm.getClassByName(internal, false))
        o.text.push_back(what + " in " + shown + " is pending: the class has no such method");
    else
        o.text.push_back("Deferred " +
                         (options.LogMessage.empty() ? std::string("method breakpoint") : "method logpoint") + " in " +
                         shown + ": it is set when the class is loaded");
    return o;
}

CommandOutcome Commands::setStopPoint(const std::string& cmd, const BreakpointForm& form)
{
    CodePlace place = form.code;
    const std::string internal = ClassNames::toInternal(place.className);
    place.className = ClassNames::toJava(internal);
    session_.addTarget(internal);
    auto& jvm = session_.jvm();
    jvm.addStopPoint(internal, place.method, place.offset);
    const auto bp = jvm.getStopPoint(internal, place.method, place.offset);
    const bool registered = bp && bp->UsedByVM;
    CommandOutcome o;
    o.command = cmd;
    o.result = {
        {"ClassName", internal}, {"MethodName", place.method}, {"Offset", place.offset}, {"registered", registered}};
    if (registered)
        o.text.push_back("Stop point set in " + codeText(place));
    else if (session_.alive() && jvm.getClassByName(internal, false))
        o.text.push_back("Stop point in " + codeText(place) + " is pending: no such method or code index");
    else
        o.text.push_back("Deferred stop point in " + codeText(place) + ": it is set when the class is loaded");
    return o;
}

CommandOutcome Commands::listBreakpoints(const std::string& cmd)
{
    CommandOutcome o;
    o.command = cmd;
    o.result = json::array();
    auto& jvm = session_.jvm();
    for (const auto& bp : jvm.breakpoints()) {
        if (!bp || bp->JustStepping || bp->MethodEntry)
            continue;
        const std::string java = ClassNames::toJava(bp->ClassName);
        json item{{"ClassName", bp->ClassName}, {"registered", bp->UsedByVM}};
        std::string text;
        if (bp->StopPoint) {
            item["MethodName"] = bp->MethodName;
            item["Offset"] = jsonNumber(bp->Offset);
            text = "stop in " + java + "." + bp->MethodName + "+" + std::to_string(std::llround(bp->Offset));
        } else {
            item["LineNr"] = jsonNumber(bp->LineNr);
            addOptionsJson(item, bp->Options);
            item["HitCount"] = bp->HitCount;
            text = (bp->Options.LogMessage.empty() ? "stop at " : "log ") + java + ":" +
                   std::to_string(std::llround(bp->LineNr)) + optionsText(bp->Options);
        }
        o.text.push_back("  " + text + (bp->UsedByVM ? "" : "  (pending)"));
        o.result.push_back(item);
    }
    for (const MethodBreakpoint& m : methodBreakpoints_) {
        const auto entries = jvm.methodBreakpoints(m.className, m.method, m.parameters);
        if (entries.empty() || !entries.front())
            continue;
        const JXBreakpointOptions& options = entries.front()->Options;
        size_t overloads = 0;
        uint32_t hits = 0;
        for (const auto& bp : entries)
            if (bp && bp->UsedByVM) {
                ++overloads;
                hits += bp->HitCount;
            }
        json item{{"ClassName", m.className}, {"MethodName", m.method},      {"Signature", m.parameters},
                  {"MethodEntry", true},      {"registered", overloads > 0}, {"overloads", overloads}};
        addOptionsJson(item, options);
        item["HitCount"] = hits;
        const std::string text = (options.LogMessage.empty() ? "stop in " : "log ") + ClassNames::toJava(m.className) +
                                 "." + m.method + m.parameters + optionsText(options);
        o.text.push_back("  " + text + (overloads == 0 ? "  (pending)" : ""));
        o.result.push_back(item);
    }
    if (o.text.empty())
        o.text.push_back("No breakpoints set.");
    return o;
}

CommandOutcome Commands::clear(const std::string& cmd, const std::string& text)
{
    if (CommandSyntax::words(text).empty())
        return listBreakpoints(cmd);
    BreakpointForm form;
    std::string error;
    if (!CommandSyntax::parseBreakpoint(text, false, form, error) || !form.condition.empty() ||
        !form.hitCondition.empty())
        return CommandOutcome::failure(cmd, std::string("expected ") + kUsageClear);
    auto& jvm = session_.jvm();
    CommandOutcome o;
    o.command = cmd;
    switch (form.kind) {
    case BreakpointForm::Kind::Line: {
        const std::string internal = ClassNames::toInternal(form.line.className);
        const std::string java = ClassNames::toJava(internal);
        const int line = form.line.line;
        if (!jvm.getBreakPoint(internal, line))
            return CommandOutcome::failure(cmd, "no breakpoint at " + lineText(java, line));
        if (!jvm.removeBreakpoint(internal, line))
            return CommandOutcome::failure(cmd, "the VM did not clear the breakpoint at " + lineText(java, line));
        o.result = {{"ClassName", internal}, {"LineNr", line}, {"removed", true}};
        o.text.push_back("Removed breakpoint " + lineText(java, line));
        return o;
    }
    case BreakpointForm::Kind::Method: {
        const std::string internal = ClassNames::toInternal(form.code.className);
        const std::string place = ClassNames::toJava(internal) + "." + form.code.method + form.parameters;
        const auto asked = std::find_if(methodBreakpoints_.begin(), methodBreakpoints_.end(), [&](const auto& m) {
            return m.className == internal && m.method == form.code.method && m.parameters == form.parameters;
        });
        if (asked == methodBreakpoints_.end()) {
            // The plain form named the stop point at code index 0 before
            // method breakpoints came.
            if (form.parameters.empty() && jvm.getStopPoint(internal, form.code.method, 0)) {
                CodePlace code = form.code;
                code.className = ClassNames::toJava(internal);
                if (!jvm.removeStopPoint(internal, code.method, 0))
                    return CommandOutcome::failure(cmd, "the VM did not clear the stop point in " + codeText(code));
                o.result = {{"ClassName", internal}, {"MethodName", code.method}, {"Offset", 0}, {"removed", true}};
                o.text.push_back("Removed stop point " + codeText(code));
                return o;
            }
            return CommandOutcome::failure(cmd, "no method breakpoint in " + place);
        }
        if (!jvm.removeMethodBreakpoint(internal, form.code.method, form.parameters))
            return CommandOutcome::failure(cmd, "the VM did not clear the method breakpoint in " + place);
        methodBreakpoints_.erase(asked);
        o.result = {{"ClassName", internal},
                    {"MethodName", form.code.method},
                    {"Signature", form.parameters},
                    {"MethodEntry", true},
                    {"removed", true}};
        o.text.push_back("Removed method breakpoint " + place);
        return o;
    }
    case BreakpointForm::Kind::StopPoint:
        break;
    }
    CodePlace code = form.code;
    const std::string internal = ClassNames::toInternal(code.className);
    code.className = ClassNames::toJava(internal);
    if (!jvm.getStopPoint(internal, code.method, code.offset))
        return CommandOutcome::failure(cmd, "no stop point in " + codeText(code));
    if (!jvm.removeStopPoint(internal, code.method, code.offset))
        return CommandOutcome::failure(cmd, "the VM did not clear the stop point in " + codeText(code));
    o.result = {{"ClassName", internal}, {"MethodName", code.method}, {"Offset", code.offset}, {"removed", true}};
    o.text.push_back("Removed stop point " + codeText(code));
    return o;
}

CommandOutcome Commands::waited(const std::string& cmd, WaitOutcome how, uint32_t timeoutMs)
{
    CommandOutcome o;
    o.command = cmd;
    switch (how) {
    case WaitOutcome::Stopped: {
        const StopInfo& stop = session_.events().lastStop();
        o.result = {{"outcome", "stopped"}};
        o.result.update(stopJson(stop));
        break;
    }
    case WaitOutcome::Ended:
        o.result = {{"outcome", "ended"}};
        o.text.push_back("The application has ended.");
        break;
    case WaitOutcome::TimedOut:
        o.result = {{"outcome", "timeout"}};
        o.text.push_back("The VM did not stop within " + std::to_string(timeoutMs) + " ms; it keeps running.");
        break;
    case WaitOutcome::Interrupted:
        return interrupted(cmd);
    case WaitOutcome::Ending:
        o.result = {{"outcome", "ending"}};
        o.text.push_back("Ending on a signal: the session ends as quit ends it.");
        break;
    }
    return o;
}

CommandOutcome Commands::interrupted(const std::string& cmd)
{
    if (session_.ended())
        return waited(cmd, WaitOutcome::Ended);
    auto& jvm = session_.jvm();
    if (!session_.suspended()) {
        session_.noteSuspendAsked();
        jvm.SuspendVM();
        MessagePump::instance().pumpUntil([&] { return jvm.JVMState() == VMSuspend || session_.ended(); },
                                          kStateConfirmMs);
        session_.printer().flush();
        if (session_.ended())
            return waited(cmd, WaitOutcome::Ended);
        if (jvm.JVMState() != VMSuspend) {
            CommandOutcome o;
            o.command = cmd;
            o.result = {{"outcome", "interrupted"}, {"state", static_cast<int>(jvm.JVMState())}};
            o.text.push_back("Interrupted; the VM did not confirm the suspend and may still run (VM state: " +
                             TextPrinter::stateName(jvm.JVMState()) + ").");
            return o;
        }
        session_.events().noteSuspended();
    }
    CommandOutcome o;
    o.command = cmd;
    o.result = {{"outcome", "interrupted"}, {"state", static_cast<int>(VMSuspend)}};
    o.text.push_back("Interrupted: the VM is suspended. Its threads:");
    showThreadsAndChooseOne(o);
    return o;
}

void Commands::showThreadsAndChooseOne(CommandOutcome& o)
{
    auto& jvm = session_.jvm();
    o.result["threads"] = json::array();
    // The thread that runs the program's own code becomes the current one,
    // so that where, print and step work on it; "main" is preferred.
    double current = 0;
    int currentRank = 0;
    ThreadPlace chosen;
    auto list = session_.handler().getAllThreads();
    for (int32_t i = 1; list && i <= list->Count(); ++i) {
        auto t = list->Item(i);
        if (!t)
            continue;
        const std::string name = t->ThreadName();
        json item{{"threadID", jsonNumber(t->threadID)}, {"ThreadName", name}};
        std::string place = "(no Java frame)";
        const ThreadPlace at = placeOf(session_, t->threadID);
        if (at.found) {
            item["ClassName"] = at.className;
            item["MethodName"] = at.method;
            item["LineNr"] = at.line > 0 ? json(at.line) : json(nullptr);
            place = ClassNames::toJava(at.className) + "." + at.method +
                    (at.line > 0 ? " line " + std::to_string(at.line) : std::string());
            if (!at.inside.empty())
                place += " (in " + at.inside + ")";
            const int rank = at.program ? (name == "main" ? 3 : 2) : (name == "main" ? 1 : 0);
            if (current == 0 || rank > currentRank) {
                current = t->threadID;
                currentRank = rank;
                chosen = at;
            }
        }
        o.result["threads"].push_back(item);
        o.text.push_back("  " + std::to_string(std::llround(t->threadID)) + "  " + name + "  " + place);
    }
    stepLeavesNative_ = false;
    if (current != 0) {
        // The place is the program's frame, also when it is below a library
        // or native one: print and locals read that frame.
        jvm.GoSilentBreak(current, chosen.classID, chosen.methodID);
        stepLeavesNative_ = chosen.topNative;
        o.result["threadID"] = jsonNumber(current);
        o.text.push_back("Current thread: " + std::to_string(std::llround(current)) +
                         " (cont, step, where and print work on it).");
    }
}

CommandOutcome Commands::run(const std::string& cmd)
{
    if (session_.started())
        return CommandOutcome::failure(cmd, session_.ended() ? "the program has ended"
                                                             : "the program is already running: use cont");
    if (!session_.start()) {
        startFailed_ = true;
        return CommandOutcome::failure(cmd, session_.failureText());
    }
    // A program that was already running when krvdbg attached has no
    // first stop to wait for: the prompt comes back with it running.
    if (session_.options().mode == LaunchMode::Attach && session_.attachedToRunningProgram()) {
        CommandOutcome o;
        o.command = cmd;
        o.result = {{"outcome", "running"}};
        o.text.push_back("Attached to the running program; it keeps running (set breakpoints, suspend it, or wait "
                         "for a stop).");
        return o;
    }
    // The VM starts suspended; the library resumes it at the end of its
    // opening sequence, so what is left is to wait for the first stop.
    return waited(cmd, session_.waitForStop());
}

CommandOutcome Commands::cont(const std::string& cmd)
{
    if (auto refused = requireSuspended(cmd))
        return *refused;
    noteResume();
    session_.jvm().ResumeVM(true);
    return waited(cmd, session_.waitForStop());
}

CommandOutcome Commands::step(const std::string& cmd, int depth)
{
    if (auto refused = requireSuspended(cmd))
        return *refused;
    auto& jvm = session_.jvm();
    // From a native frame only a step out ends (on the caller's line).
    if (stepLeavesNative_)
        depth = SD_OUT;
    session_.events().expectStep();
    noteResume();
    if (!jvm.ResumeVMStepByStep(false, 0, static_cast<JDWPStepDepth>(depth))) {
        session_.events().noteSuspended();
        return CommandOutcome::failure(cmd, jvm.myStepInProcess && jvm.currentThreadID() > 0
                                                ? "a step is already under way: use wait"
                                                : "no stopped thread to step (stop at a breakpoint first)");
    }
    return waited(cmd, session_.waitForStop());
}

CommandOutcome Commands::print(const std::string& cmd, const std::string& rest)
{
    Expression e;
    if (!CommandSyntax::parseExpression(rest, e))
        return CommandOutcome::failure(cmd, std::string("expected ") + kUsagePrint);
    if (auto refused = requireSuspended(cmd))
        return *refused;
    const std::string raw = session_.jvm().getValue(e.path, ClassNames::toInternal(e.staticClass));
    noteCallStillRunning();
    const ParsedValue v = ValueText::parse(raw);
    CommandOutcome o;
    o.command = cmd;
    json steps = json::array();
    for (const auto& s : v.steps)
        steps.push_back({{"path", s.path}, {"value", s.value}});
    o.result = {{"expression", e.path}, {"found", v.found}, {"raw", raw}, {"steps", steps}};
    if (v.found) {
        o.result["path"] = v.path;
        o.result["value"] = v.value;
        o.text.push_back((v.path.empty() ? e.path : v.path) + " = " + oneLine(v.value));
    } else {
        o.result["missing"] = v.missing.empty() ? e.path : v.missing;
        o.text.push_back((v.missing.empty() ? e.path : v.missing) + ": not available here");
    }
    for (const auto& s : v.steps)
        o.text.push_back("  (" + s.path + " = " + oneLine(s.value) + ")");
    return o;
}

CommandOutcome Commands::set(const std::string& cmd, const std::string& rest)
{
    // The name holds no '=' and no quote: the first '=' ends it.
    const size_t eq = rest.find('=');
    Expression e;
    if (eq == std::string::npos || !CommandSyntax::parseExpression(rest.substr(0, eq), e))
        return CommandOutcome::failure(cmd, std::string("expected ") + kUsageSet);
    const std::string value = CommandSyntax::stripComment(rest.substr(eq + 1));
    if (value.empty())
        return CommandOutcome::failure(cmd, std::string("expected ") + kUsageSet);
    if (auto refused = requireSuspended(cmd))
        return *refused;
    auto& jvm = session_.jvm();
    const std::string staticClass = ClassNames::toInternal(e.staticClass);
    const std::string why = jvm.setValue(e.path, value, staticClass);
    noteCallStillRunning();
    if (!why.empty())
        return CommandOutcome::failure(cmd, why);
    // What the variable holds now, as print shows it; Class.field is read
    // as print reads statics.
    ParsedValue now = ValueText::parse(jvm.getValue(e.path, staticClass));
    const size_t dot = e.path.rfind('.');
    if (!now.found && staticClass.empty() && dot != std::string::npos)
        now = ValueText::parse(jvm.getValue(e.path.substr(dot + 1), ClassNames::toInternal(e.path.substr(0, dot))));
    noteCallStillRunning();
    CommandOutcome o;
    o.command = cmd;
    o.result = {{"expression", e.path}, {"set", value}, {"found", now.found}};
    if (now.found)
        o.result["value"] = now.value;
    o.text.push_back(e.path + " = " + (now.found ? oneLine(now.value) : value));
    return o;
}

CommandOutcome Commands::locals(const std::string& cmd)
{
    if (auto refused = requireSuspended(cmd))
        return *refused;
    auto& jvm = session_.jvm();
    const auto cls = jvm.getClassByID(jvm.currentClassID(), true);
    const auto method = cls ? cls->JMethodID(jvm.currentMethodID()) : nullptr;
    if (!method)
        return CommandOutcome::failure(cmd, "the current method is not known (stop at a breakpoint first)");
    // The code index of the method's frame tells which variables are in
    // scope. It is the top frame after a stop; after a suspend it can be
    // below a library's or a native one.
    double codeIndex = -1;
    for (const auto& row : jvm.getStackTrace()) {
        if (row.size() < 4 || row[1] != cls->ClassName() || row[2] != method->MethodName ||
            row[3] != method->MethodSignature)
            continue;
        long long n = 0;
        if (CommandSyntax::parseNumber(row[0], 0, 0x7fffffffffffffffLL, n))
            codeIndex = static_cast<double>(n);
        break;
    }
    std::vector<JDWPJVariableTableSlot> slots;
    for (const auto& slot : method->variableTable().Slot) {
        if (slot.vt_name.empty())
            continue;
        if (codeIndex >= 0 && !(slot.vt_codeIndex <= codeIndex && codeIndex < slot.vt_codeIndex + slot.vt_length))
            continue;
        const bool seen =
            std::any_of(slots.begin(), slots.end(), [&](const auto& s) { return s.vt_name == slot.vt_name; });
        if (!seen)
            slots.push_back(slot);
    }
    std::stable_sort(slots.begin(), slots.end(), [](const auto& a, const auto& b) { return a.vt_slot < b.vt_slot; });

    CommandOutcome o;
    o.command = cmd;
    o.result = {{"ClassName", cls->ClassName()}, {"MethodName", method->MethodName}, {"locals", json::array()}};
    for (const auto& slot : slots) {
        const ParsedValue v = ValueText::parse(jvm.getValue(slot.vt_name));
        noteCallStillRunning();
        o.result["locals"].push_back({{"name", slot.vt_name},
                                      {"signature", slot.vt_signature},
                                      {"found", v.found},
                                      {"value", v.found ? json(v.value) : json(nullptr)}});
        o.text.push_back("  " + slot.vt_name + " = " + (v.found ? oneLine(v.value) : std::string("(not available)")));
    }
    if (slots.empty())
        o.text.push_back(method->isNative() ? "No local variables: a native method."
                         : method->variableTable().Slot.empty()
                             ? "No local variables (the class was compiled without -g?)"
                             : "No local variables in scope.");
    return o;
}

CommandOutcome Commands::where(const std::string& cmd)
{
    if (auto refused = requireSuspended(cmd))
        return *refused;
    const auto stack = session_.jvm().getStackTrace();
    CommandOutcome o;
    o.command = cmd;
    o.result = {{"frames", json::array()}};
    for (size_t i = 0; i < stack.size(); ++i) {
        const auto& row = stack[i];
        auto col = [&](size_t c) { return c < row.size() ? row[c] : std::string(); };
        o.result["frames"].push_back({{"frame", i},
                                      {"codeIndex", numberOrText(col(0))},
                                      {"ClassName", col(1)},
                                      {"MethodName", col(2)},
                                      {"MethodSignature", col(3)},
                                      {"LineNr", numberOrText(col(4))}});
        std::string text = "  [" + std::to_string(i) + "] " + ClassNames::toJava(col(1)) + "." + col(2);
        if (!col(4).empty())
            text += " line " + col(4);
        text += col(0) == kNativeIndex ? std::string(" (native method)") : " (code index " + col(0) + ")";
        o.text.push_back(text);
    }
    if (stack.empty())
        o.text.push_back("No stack frames (the thread is not suspended?)");
    return o;
}

CommandOutcome Commands::threads(const std::string& cmd)
{
    if (auto refused = requireAlive(cmd))
        return *refused;
    auto list = session_.handler().getAllThreads();
    if (!list)
        return CommandOutcome::failure(cmd, "the VM did not list its threads");
    CommandOutcome o;
    o.command = cmd;
    o.result = {{"threads", json::array()}};
    for (int32_t i = 1; i <= list->Count(); ++i) {
        auto t = list->Item(i);
        if (!t)
            continue;
        const std::string name = t->ThreadName();
        const std::string group = t->ThreadGroupName();
        const ThreadStatus state = t->ThreadState();
        const bool suspended = t->ThreadSuspended();
        o.result["threads"].push_back({{"threadID", jsonNumber(t->threadID)},
                                       {"ThreadName", name},
                                       {"ThreadGroupName", group},
                                       {"ThreadState", static_cast<int>(state)},
                                       {"ThreadSuspended", suspended}});
        o.text.push_back("  " + std::to_string(std::llround(t->threadID)) + "  " + name + "  (group " + group + ")  " +
                         threadStateName(state) + (suspended ? ", suspended" : ""));
    }
    return o;
}

CommandOutcome Commands::suspendOrResume(const std::string& cmd, bool suspend)
{
    if (auto refused = requireAlive(cmd))
        return *refused;
    // A second suspend would have to be resumed twice (the VM counts them).
    if (suspend && session_.suspended())
        return CommandOutcome::failure(cmd, "the VM is already suspended");
    auto& jvm = session_.jvm();
    if (suspend) {
        session_.noteSuspendAsked();
        jvm.SuspendVM();
    } else {
        noteResume();
        jvm.ResumeVM(true);
    }
    MessagePump::instance().pumpUntil([&] { return (jvm.JVMState() == VMSuspend) == suspend || session_.ended(); },
                                      kStateConfirmMs);
    session_.printer().flush();
    const bool suspended = jvm.JVMState() == VMSuspend;
    CommandOutcome o;
    o.command = cmd;
    o.result = {{"state", static_cast<int>(jvm.JVMState())}};
    o.text.push_back(!suspend    ? "VM resumed."
                     : suspended ? "VM suspended. Its threads:"
                                 : "VM state: " + TextPrinter::stateName(jvm.JVMState()));
    if (suspend && suspended) {
        session_.events().noteSuspended();
        // As after Ctrl-C: the place of the last stop is gone.
        showThreadsAndChooseOne(o);
    }
    return o;
}

CommandOutcome Commands::pop(const std::string& cmd)
{
    if (auto refused = requireSuspended(cmd))
        return *refused;
    auto& jvm = session_.jvm();
    if (jvm.getStackCount() < 2)
        return CommandOutcome::failure(cmd, "there is no frame below the top one to return to");
    if (!jvm.PopFrame())
        return CommandOutcome::failure(cmd, "the VM refused to pop the frame");
    // The current place is now the caller's: tell the session, so that
    // print and locals work on the new top frame.
    const auto stack = jvm.getStackTrace();
    CommandOutcome o;
    o.command = cmd;
    if (!stack.empty() && stack[0].size() >= 5) {
        const auto& top = stack[0];
        if (auto cls = jvm.getClassByName(top[1], true))
            if (auto m = cls->JMethod(top[2] + top[3]))
                jvm.GoSilentBreak(jvm.currentThreadID(), cls->ClassID, m->MethodID);
        o.result = {{"ClassName", top[1]},
                    {"MethodName", top[2]},
                    {"LineNr", numberOrText(top[4])},
                    {"codeIndex", numberOrText(top[0])}};
        o.text.push_back("Frame popped; now in " + ClassNames::toJava(top[1]) + "." + top[2] + " line " + top[4] +
                         " (code index " + top[0] + ")");
    } else {
        jvm.refreshFrameID();
        o.result = {{"popped", true}};
        o.text.push_back("Frame popped.");
    }
    return o;
}

CommandOutcome Commands::redefine(const std::string& cmd, const Args& args)
{
    if (args.size() != 2 || !ClassNames::isValid(args[0]))
        return CommandOutcome::failure(cmd, std::string("expected ") + kUsageRedefine);
    if (auto refused = requireAlive(cmd))
        return *refused;
    std::ifstream in(args[1], std::ios::binary);
    if (!in)
        return CommandOutcome::failure(cmd, "cannot read " + args[1]);
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (bytes.size() < 4 || bytes.compare(0, 4, "\xCA\xFE\xBA\xBE") != 0)
        return CommandOutcome::failure(cmd, args[1] + " is not a class file");
    const std::string internal = ClassNames::toInternal(args[0]);
    if (!session_.jvm().redefineClass(internal, bytes))
        return CommandOutcome::failure(cmd, "the VM did not redefine " + ClassNames::toJava(internal) +
                                                " (is it loaded, and is the change allowed?)");
    CommandOutcome o;
    o.command = cmd;
    o.result = {{"ClassName", internal}, {"bytes", bytes.size()}, {"redefined", true}};
    o.text.push_back("Redefined " + ClassNames::toJava(internal) + " (" + std::to_string(bytes.size()) + " bytes)");
    return o;
}

CommandOutcome Commands::holdOrRelease(const std::string& cmd, bool hold)
{
    if (auto refused = requireAlive(cmd))
        return *refused;
    if (hold)
        session_.jvm().HoldEvents();
    else
        session_.jvm().ReleaseEvents();
    CommandOutcome o;
    o.command = cmd;
    o.result = hold ? "events held" : "events released";
    o.text.push_back(hold ? "The VM holds its events back." : "The VM sends its events again.");
    return o;
}

CommandOutcome Commands::wait(const std::string& cmd, const Args& args)
{
    long long ms = kDefaultWaitMs;
    if (args.size() > 1 || (args.size() == 1 && !CommandSyntax::parseNumber(args[0], 1, 86400000, ms)))
        return CommandOutcome::failure(cmd, std::string("expected ") + kUsageWait);
    if (!session_.started())
        return CommandOutcome::failure(cmd, "the program is not running yet: use run");
    if (session_.ended())
        return waited(cmd, WaitOutcome::Ended);
    if (session_.suspended()) {
        CommandOutcome o = waited(cmd, WaitOutcome::Stopped);
        o.text.push_back("The VM is already suspended.");
        return o;
    }
    return waited(cmd, session_.waitForStop(static_cast<uint32_t>(ms)), static_cast<uint32_t>(ms));
}

} // namespace krvdbg
