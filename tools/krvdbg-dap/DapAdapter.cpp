// The DAP requests and events over the library session (see DapAdapter.h).
#include "DapAdapter.h"

#include "LaunchWords.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <jdwpkrvdbg/model/JXBreakpoint.h>
#include <jdwpkrvdbg/model/JXClass.h>
#include <jdwpkrvdbg/model/JXMachine.h>
#include <jdwpkrvdbg/model/JXMethod.h>
#include <jdwpkrvdbg/model/JXThread.h>
#include <jdwpkrvdbg/model/JXThreadList.h>
#include <jdwpkrvdbg/platform/Clock.h>
#include <jdwpkrvdbg/platform/LinuxTransport.h>
#include <jdwpkrvdbg/platform/MessagePump.h>
#include <jdwpkrvdbg/protocol/JDWPMessage.h>
#include <jdwpkrvdbg/protocol/JDWPMessageData.h>
#include <jdwpkrvdbg/protocol/JDWPMessageFactory.h>
#include <jdwpkrvdbg/session/JDWPHandler.h>
#include <jdwpkrvdbg/session/JDWPLimits.h>
#include <jdwpkrvdbg/session/modMain.h>

#include "ClassNames.h"
#include "ProgramClasses.h"
#include "ValueText.h"
#include "WaitingBreakpoints.h"

namespace krvdbg {

using namespace jdwpkrvdbg;
namespace fs = std::filesystem;

namespace {

constexpr int32_t kWaitMs = 4000;
constexpr uint32_t kConfirmMs = 3000;
// How long a launch or attach waits for configurationDone before it starts.
constexpr uint32_t kConfigurationWaitMs = 1000;
// The one exception filter: what the library stops on.
constexpr const char* kExceptionFilter = "leavingThrowingClass";

int64_t asId(double id)
{
    return static_cast<int64_t>(std::llround(id));
}

std::vector<std::string> words(const json& value, const char* what)
{
    std::vector<std::string> out;
    if (value.is_null())
        return out;
    if (value.is_string()) {
        // A single string is split at blanks, as a shell would without quotes.
        const std::string s = value.get<std::string>();
        size_t i = 0;
        while (i < s.size()) {
            while (i < s.size() && s[i] == ' ')
                ++i;
            const size_t start = i;
            while (i < s.size() && s[i] != ' ')
                ++i;
            if (i > start)
                out.push_back(s.substr(start, i - start));
        }
        return out;
    }
    if (!value.is_array())
        throw DapError{std::string(what) + " must be an array of strings"};
    for (const auto& v : value) {
        if (!v.is_string())
            throw DapError{std::string(what) + " must be an array of strings"};
        out.push_back(v.get<std::string>());
    }
    return out;
}

// As execvp would find it: a path with a '/' as it is, else along $PATH.
bool executableFound(const std::string& program)
{
    if (program.find('/') != std::string::npos)
        return ::access(program.c_str(), X_OK) == 0;
    const char* path = std::getenv("PATH");
    std::string dirs = path ? path : "/usr/bin:/bin";
    size_t at = 0;
    while (at <= dirs.size()) {
        size_t end = dirs.find(':', at);
        if (end == std::string::npos)
            end = dirs.size();
        const std::string dir = end > at ? dirs.substr(at, end - at) : ".";
        if (::access((dir + "/" + program).c_str(), X_OK) == 0)
            return true;
        at = end + 1;
    }
    return false;
}

bool sameOptions(const JXBreakpointOptions& a, const JXBreakpointOptions& b)
{
    return a.Condition == b.Condition && a.HitCondition == b.HitCondition && a.LogMessage == b.LogMessage;
}

// The options of a source or function breakpoint; absent and empty are alike.
JXBreakpointOptions optionsOf(const json& b)
{
    JXBreakpointOptions o;
    auto text = [&](const char* key) {
        if (!b.contains(key) || b[key].is_null())
            return std::string();
        if (!b[key].is_string())
            throw DapError{std::string("\"") + key + "\" must be a string"};
        return b[key].get<std::string>();
    };
    o.Condition = text("condition");
    o.HitCondition = text("hitCondition");
    o.LogMessage = text("logMessage");
    return o;
}

std::string simpleName(const std::string& internalName)
{
    const size_t slash = internalName.rfind('/');
    return slash == std::string::npos ? internalName : internalName.substr(slash + 1);
}

// Sets environment variables and the working folder for the launch and puts
// them back afterwards: the library forks the VM from this process.
class LaunchEnvironment {
public:
    LaunchEnvironment(const std::map<std::string, std::string>& env, const std::string& cwd)
    {
        for (const auto& [k, v] : env) {
            const char* old = std::getenv(k.c_str());
            saved_.emplace_back(k, old ? std::optional<std::string>(old) : std::nullopt);
            ::setenv(k.c_str(), v.c_str(), 1);
        }
        if (!cwd.empty()) {
            std::error_code ec;
            oldCwd_ = fs::current_path(ec).string();
            fs::current_path(cwd, ec);
        }
    }
    ~LaunchEnvironment()
    {
        for (const auto& [k, v] : saved_) {
            if (v)
                ::setenv(k.c_str(), v->c_str(), 1);
            else
                ::unsetenv(k.c_str());
        }
        if (!oldCwd_.empty()) {
            std::error_code ec;
            fs::current_path(oldCwd_, ec);
        }
    }

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
    std::string oldCwd_;
};

} // namespace

const std::vector<DapAdapter::Row>& DapAdapter::table()
{
    static const std::vector<Row> rows = {
        {"initialize", &DapAdapter::onInitialize, kBeforeInit, "before anything else, once"},
        {"launch", &DapAdapter::onLaunch, kConfiguring, "after initialize, once"},
        {"attach", &DapAdapter::onAttach, kConfiguring, "after initialize, once"},
        {"configurationDone", &DapAdapter::onConfigurationDone, kConfiguring, "after initialize, once"},
        {"disconnect", &DapAdapter::onDisconnect, kBeforeInit | kAfterInit, ""},
        {"terminate", &DapAdapter::onTerminate, kAfterInit, "after initialize"},
        {"setBreakpoints", &DapAdapter::onSetBreakpoints, kAfterInit, "after initialize"},
        {"setExceptionBreakpoints", &DapAdapter::onSetExceptionBreakpoints, kAfterInit, "after initialize"},
        {"setFunctionBreakpoints", &DapAdapter::onSetFunctionBreakpoints, kAfterInit, "after initialize"},
        {"threads", &DapAdapter::onThreads, kAfterInit, "after initialize"},
        {"stackTrace", &DapAdapter::onStackTrace, kStopped, "a stopped program"},
        {"scopes", &DapAdapter::onScopes, kStopped, "a stopped program"},
        {"variables", &DapAdapter::onVariables, kStopped, "a stopped program"},
        {"evaluate", &DapAdapter::onEvaluate, kStopped, "a stopped program"},
        {"setVariable", &DapAdapter::onSetVariable, kStopped, "a stopped program"},
        {"continue", &DapAdapter::onContinue, kStopped, "a stopped program"},
        {"next", &DapAdapter::onNext, kStopped, "a stopped program"},
        {"stepIn", &DapAdapter::onStepIn, kStopped, "a stopped program"},
        {"stepOut", &DapAdapter::onStepOut, kStopped, "a stopped program"},
        {"pause", &DapAdapter::onPause, kRunning | kStopped, "a running program"},
    };
    return rows;
}

DapAdapter::DapAdapter(Sink sink) : sink_(std::move(sink))
{
    handler_ = JDWPHandler::create();
    events_ = std::make_shared<DebuggeeEvents>(handler_->myJVM().get());
    handler_->myJVM()->setEvents(events_);
    // Thread starts and ends are handled inside the library; their event
    // packets tell that one came, and the thread list is compared then.
    handler_->addPacketObserver([this](const PacketEvent& p) {
        if (p.eventKind == EK_THREAD_START || p.eventKind == EK_THREAD_DEATH)
            threadsDirty_ = true;
    });
    // KRVDBG_DAP_TRACE=1 writes every JDWP packet to stderr.
    const char* trace = std::getenv("KRVDBG_DAP_TRACE");
    if (trace && *trace && std::string(trace) != "0")
        handler_->history().setListener([](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); });
}

DapAdapter::~DapAdapter()
{
    if (events_->connected() && !events_->ended())
        handler_->Disconnect();
    handler_->history().setListener(nullptr);
    handler_->myJVM()->setEvents(nullptr);
    handler_.reset();
    setCurrentHandler(nullptr);
}

void DapAdapter::emit(const std::string& event, const json& body)
{
    json message = {{"seq", 0}, {"type", "event"}, {"event", event}};
    if (!body.is_null())
        message["body"] = body;
    if (inRequest_) {
        held_.push_back(std::move(message));
        return;
    }
    message["seq"] = seq_++;
    sink_(message);
}

void DapAdapter::respond(const json& request, bool success, json body, const std::string& message)
{
    json r = {
        {"seq", seq_++},
        {"type", "response"},
        {"request_seq", request.contains("seq") && request["seq"].is_number_integer() ? request["seq"] : json(0)},
        {"success", success},
        {"command", request.contains("command") && request["command"].is_string() ? request["command"] : json("")}};
    if (!success)
        r["message"] = message;
    // Moved, not copied: a body of a thousand variables is most of the
    // response's cost.
    if (!body.is_null())
        r["body"] = std::move(body);
    else if (!success)
        r["body"] = {{"error", {{"id", 1}, {"format", message}, {"showUser", true}}}};
    sink_(r);
}

void DapAdapter::badInput(const std::string& why)
{
    respond(json::object(), false, nullptr, "krvdbg-dap: " + why);
}

void DapAdapter::handle(const json& message)
{
    if (!message.is_object())
        return badInput("a message that is not a JSON object");
    const auto type = message.value("type", std::string());
    if (type == "response" || type == "event")
        return; // nothing is asked of the client; its answers need no reply
    if (type != "request" || !message.contains("command") || !message["command"].is_string())
        return respond(message, false, nullptr,
                       "not a DAP request: a request has \"type\": \"request\", a \"seq\" and a \"command\"");
    const std::string command = message["command"].get<std::string>();
    const auto& rows = table();
    auto row = std::find_if(rows.begin(), rows.end(), [&](const Row& r) { return command == r.command; });
    if (row == rows.end())
        return respond(message, false, nullptr, "krvdbg-dap does not know the request \"" + command + "\"");
    // Each state: the requests' mask it answers to, and how an error names it.
    struct StateInfo {
        unsigned mask;
        const char* where;
    };
    static constexpr StateInfo kStates[] = {
        {kBeforeInit, "before initialize"},
        {kConfiguring, "before the program was started"},
        {kConfiguring, "while the program is being started"},
        {kRunning, "while the program runs"},
        {kStopped, "while the program is stopped"},
        {kEnded, "after the program ended"},
    };
    const StateInfo& info = kStates[static_cast<size_t>(state_)];
    const unsigned now = info.mask;
    if (!(row->allowed & now)) {
        std::string where = info.where;
        if ((command == "launch" || command == "attach") && (state_ == State::Starting || now & kAfterInit) &&
            state_ != State::Initialized)
            where = "a second time (one program per session)";
        if (command == "configurationDone" && state_ != State::Initialized && state_ != State::New)
            where = state_ == State::Starting && !configurationDone_ ? where : "a second time";
        return respond(message, false, nullptr,
                       command + " cannot be done " + where +
                           (row->needs[0] ? std::string(": it needs ") + row->needs : std::string()));
    }
    const json arguments = message.contains("arguments") ? message["arguments"] : json::object();
    json body;
    bool ok = true;
    std::string error;
    inRequest_ = true;
    deferred_ = false;
    currentRequest_ = message;
    try {
        if (!arguments.is_object())
            throw DapError{"the arguments of " + command + " must be an object"};
        (this->*(row->handler))(arguments, body);
    } catch (const DapError& e) {
        ok = false;
        error = e.message;
    } catch (const json::exception& e) {
        ok = false;
        error = "bad arguments for " + command + ": " + e.what();
    } catch (const std::exception& e) {
        ok = false;
        error = command + " failed: " + e.what();
    }
    inRequest_ = false;
    // A deferred launch is answered once the program starts (after
    // configurationDone).
    if (!deferred_)
        respond(message, ok, ok ? std::move(body) : json(), error);
    if (startAfterResponse_) {
        startAfterResponse_ = false;
        startPending();
        return;
    }
    auto held = std::move(held_);
    held_.clear();
    for (auto& e : held) {
        e["seq"] = seq_++;
        sink_(e);
    }
}

void DapAdapter::startPending()
{
    const json launch = std::move(pendingStart_);
    pendingStart_ = json();
    inRequest_ = true;
    std::string why;
    try {
        start();
    } catch (const DapError& e) {
        why = e.message;
    }
    inRequest_ = false;
    respond(launch, why.empty(), json(), why);
    auto held = std::move(held_);
    held_.clear();
    for (auto& e : held) {
        e["seq"] = seq_++;
        sink_(e);
    }
}

// --- session set-up --------------------------------------------------------

void DapAdapter::onInitialize(const json& args, json& body)
{
    linesStartAt1_ = args.value("linesStartAt1", true);
    state_ = State::Initialized;
    body = {{"supportsConfigurationDoneRequest", true},
            {"supportsTerminateRequest", true},
            {"supportsEvaluateForHovers", true},
            {"supportTerminateDebuggee", true},
            {"supportsDelayedStackTraceLoading", true},
            {"supportsConditionalBreakpoints", true},
            {"supportsHitConditionalBreakpoints", true},
            {"supportsLogPoints", true},
            {"supportsFunctionBreakpoints", true},
            {"supportsSetVariable", true},
            {"supportsStepBack", false},
            {"supportsRestartRequest", false},
            {"supportsExceptionInfoRequest", false},
            {"supportsSingleThreadExecutionRequests", false},
            {"exceptionBreakpointFilters",
             json::array({{{"filter", kExceptionFilter},
                           {"label", "Exceptions that leave the class that threw them"},
                           {"description",
                            "Stops where the program's own code throws an exception that is not caught in the class "
                            "that threw it (uncaught ones included)"},
                           {"default", true}}})}};
    // Configuration (breakpoints) is taken at any time from here on.
    emit("initialized", nullptr);
}

DapAdapter::LaunchConfig DapAdapter::readConfig(const json& a, bool attach)
{
    LaunchConfig c;
    c.attach = attach;
    c.sourcePaths = words(a.value("sourcePaths", json()), "sourcePaths");
    c.targets = words(a.value("targets", json()), "targets");
    if (attach) {
        c.hostName = a.value("hostName", std::string("127.0.0.1"));
        if (!a.contains("port") || !a["port"].is_number_integer() || a["port"].get<int>() <= 0 ||
            a["port"].get<int>() > 65535)
            throw DapError{"attach needs \"port\": the port the VM's debug agent listens on (1..65535)"};
        c.port = a["port"].get<int>();
        c.classPaths = words(a.value("classPaths", json()), "classPaths");
        return c;
    }
    if (!a.contains("mainClass") || !a["mainClass"].is_string() || a["mainClass"].get<std::string>().empty())
        throw DapError{"launch needs \"mainClass\": the class whose main method starts the program (pkg.Name)"};
    c.mainClass = a["mainClass"].get<std::string>();
    if (!ClassNames::isValid(c.mainClass))
        throw DapError{"\"" + c.mainClass + "\" is not a class name (pkg.Name)"};
    c.cwd = a.value("cwd", std::string());
    std::error_code ec;
    if (!c.cwd.empty() && !fs::is_directory(c.cwd, ec))
        throw DapError{"the working folder \"" + c.cwd + "\" (cwd) does not exist"};
    c.classPaths = words(a.value("classPaths", json()), "classPaths");
    for (auto& entry : c.classPaths) {
        fs::path p(entry);
        if (p.is_relative() && !c.cwd.empty())
            p = fs::path(c.cwd) / p;
        if (entry.find('*') == std::string::npos && !fs::exists(p, ec))
            throw DapError{"the class path entry \"" + entry + "\" does not exist"};
        entry = entry.find('*') == std::string::npos ? fs::absolute(p, ec).lexically_normal().string() : entry;
    }
    c.args = words(a.value("args", json()), "args");
    c.vmArgs = words(a.value("vmArgs", json()), "vmArgs");
    c.javaExec = a.value("javaExec", std::string("java"));
    if (c.javaExec.empty())
        c.javaExec = "java";
    if (!executableFound(c.javaExec))
        throw DapError{"the java launcher \"" + c.javaExec + "\" (javaExec) was not found or cannot be run"};
    c.transport = a.value("transport", std::string("socket"));
    if (c.transport != "socket" && c.transport != "shmem")
        throw DapError{"\"transport\" is \"socket\" or \"shmem\", not \"" + c.transport + "\""};
    c.stopOnEntry = a.value("stopOnEntry", false);
    if (a.contains("env") && !a["env"].is_null()) {
        if (!a["env"].is_object())
            throw DapError{"\"env\" must be an object of names and values"};
        for (const auto& [k, v] : a["env"].items()) {
            if (!v.is_string())
                throw DapError{"the value of the environment variable " + k + " must be a string"};
            c.env[k] = v.get<std::string>();
        }
    }
    return c;
}

void DapAdapter::onLaunch(const json& args, json&)
{
    begin(args, false);
}

void DapAdapter::onAttach(const json& args, json&)
{
    begin(args, true);
}

void DapAdapter::begin(const json& args, bool attach)
{
    if (config_)
        throw DapError{std::string(attach ? "attach" : "launch") +
                       " cannot be done a second time (one program per session)"};
    config_ = std::make_unique<LaunchConfig>(readConfig(args, attach));
    state_ = State::Starting;
    // The start waits for configurationDone, so that the breakpoints the
    // client sends first are in place.
    if (!configurationDone_) {
        pendingStart_ = currentRequest_;
        pendingSince_ = GetTickCount();
        deferred_ = true;
        return;
    }
    start();
}

void DapAdapter::onConfigurationDone(const json&, json&)
{
    if (configurationDone_)
        throw DapError{"configurationDone cannot be done a second time"};
    configurationDone_ = true;
    // The launch waited for this: it is answered after this response.
    if (config_ && !pendingStart_.is_null())
        startAfterResponse_ = true;
}

void DapAdapter::start()
{
    const LaunchConfig& c = *config_;
    auto& jvm = *handler_->myJVM();
    // The program's classes: the main class, the classes in the class
    // path's folders, the classes of the source paths' files (with their
    // nested classes) and the configured patterns.
    std::vector<std::string> classFolders;
    std::set<std::string> targets;
    if (!c.mainClass.empty())
        targets.insert(ClassNames::toInternal(c.mainClass));
    std::string classPath;
    for (const auto& e : c.classPaths) {
        classPath += (classPath.empty() ? "" : ":") + e;
        std::error_code ec;
        if (fs::is_directory(e, ec))
            classFolders.push_back(e);
    }
    if (!classPath.empty()) {
        const auto found = ProgramClasses::inFolders(classPath);
        targets.insert(found.classes.begin(), found.classes.end());
        programClasses_ = found.classes;
    }
    for (const auto& folder : c.sourcePaths) {
        std::error_code ec;
        size_t seen = 0;
        for (fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec), last;
             !ec && it != last && ++seen < 100000; it.increment(ec)) {
            if (it->path().extension() != ".java")
                continue;
            fs::path relative = it->path().lexically_relative(folder);
            relative.replace_extension();
            targets.insert(relative.generic_string());
            targets.insert(relative.generic_string() + "$*");
        }
    }
    for (const auto& t : c.targets)
        targets.insert(ProgramClasses::targetName(t));
    jvm.setTargetClassName(std::vector<std::string>(targets.begin(), targets.end()));
    auto excludes = jvm.getExcludeClassNames();
    excludes.push_back("jdk.*");
    jvm.setExcludeClassName(excludes);
    sources_.setFolders(c.sourcePaths, classFolders);
    applyBreakpoints();
    if (c.stopOnEntry && !c.mainClass.empty()) {
        jvm.addStopPoint(ClassNames::toInternal(c.mainClass), "main", 0);
        entryArmed_ = true;
    }

    emit("output", {{"category", "console"},
                    {"output", c.attach ? " *** Attaching to " + c.hostName + ":" + std::to_string(c.port) + "\n"
                                        : " *** Launching " + c.mainClass + "\n"}});
    bool ok = false;
    if (c.attach) {
        handler_->bRemoteConnection = true;
        ok = handler_->startVM("", "", "", false, false, 0, c.hostName, std::to_string(c.port), true);
    } else {
        std::string params;
        std::string agent;
        const bool shmem = c.transport == "shmem";
        int port = 0;
        if (shmem) {
            agent = "-agentlib:jdwp=transport=dt_shmem,address=%SharedName%,server=y,suspend=y";
        } else {
            port = freeLocalPort();
            if (port == 0)
                throw DapError{"no free local TCP port for the VM's debug agent"};
            agent = "-agentlib:jdwp=transport=dt_socket,server=y,suspend=y,address=127.0.0.1:" + std::to_string(port);
        }
        params = agent;
        for (const auto& o : c.vmArgs)
            params += " " + quoteWord(o);
        if (!classPath.empty())
            params += " -cp " + quoteWord(classPath);
        params += " " + quoteWord(c.mainClass);
        for (const auto& a : c.args)
            params += " " + quoteWord(a);
        LaunchEnvironment environment(c.env, c.cwd);
        handler_->bRemoteConnection = !shmem;
        if (shmem)
            ok = handler_->startVM(c.javaExec, params, "krvdbg-dap-" + std::to_string(::getpid()), false, true, 0, "",
                                   "", false);
        else
            ok = handler_->startVM(c.javaExec, params, "", false, true, 0, "127.0.0.1", std::to_string(port), true);
    }
    if (!ok) {
        state_ = State::Ended;
        std::string why =
            events_->lastMessage().empty() ? "the VM could not be started or reached" : events_->lastMessage();
        if (c.attach)
            why = "could not attach to " + c.hostName + ":" + std::to_string(c.port) + ": " + why;
        else
            why = "could not start the VM (" + c.javaExec + "): " + why;
        if (!c.attach && c.transport == "shmem")
            why += "\n(the shared-memory transport needs libdt_shmem.so next to the library or in "
                   "JDWPKRVDBG_SHMEM_DIR; \"transport\": \"socket\" needs nothing)";
        endReported_ = true;
        emit("terminated", nullptr);
        throw DapError{why};
    }
    state_ = State::Running;
    if (c.attach) {
        // Classes loaded before the attach send no prepare event: their
        // breakpoints are set now.
        MessagePump::instance().pumpUntil([&] { return jvm.openingResumed() || events_->ended(); }, kWaitMs);
        registerWaitingBreakpoints(jvm);
    }
    // The session's opening asks for no thread events; the editor's thread
    // list follows the program's threads through them.
    jvm.registerThreadStartAndThreadEnd();
    threadsDirty_ = true;
}

// --- breakpoints -----------------------------------------------------------

void DapAdapter::applyBreakpoints()
{
    auto& jvm = *handler_->myJVM();
    std::map<std::pair<std::string, int64_t>, JXBreakpointOptions> wanted;
    for (const auto& [path, sb] : breakpoints_) {
        // The file's nested, local and anonymous classes hold its lines too.
        std::vector<std::string> classes{sb.className};
        const std::string prefix = sb.className + "$";
        for (const auto& c : programClasses_)
            if (c.compare(0, prefix.size(), prefix) == 0)
                classes.push_back(c);
        for (size_t i = 0; i < sb.lines.size(); ++i)
            if (sb.refused[i].empty())
                for (const auto& c : classes)
                    wanted.emplace(std::make_pair(c, sb.lines[i]), sb.options[i]);
    }
    for (const auto& [entry, options] : libraryBreakpoints_)
        if (!wanted.count(entry))
            jvm.removeBreakpoint(entry.first, static_cast<double>(entry.second));
    for (const auto& [entry, options] : wanted) {
        // Changed options replace those of the entry that is there.
        auto had = libraryBreakpoints_.find(entry);
        if (had == libraryBreakpoints_.end() || !sameOptions(had->second, options))
            jvm.addBreakpoint(entry.first, static_cast<double>(entry.second), options);
    }
    libraryBreakpoints_ = std::move(wanted);
}

void DapAdapter::refreshVerified(bool announce)
{
    // What was known while the VM lived stays: its end unloads no class.
    if (events_->ended())
        return;
    auto& jvm = *handler_->myJVM();
    for (auto& [path, sb] : breakpoints_) {
        const std::string prefix = sb.className + "$";
        for (size_t i = 0; i < sb.lines.size(); ++i) {
            if (!sb.refused[i].empty())
                continue; // stays unverified with the parser's reason
            bool verified = false;
            bool outerLoaded = false;
            for (const auto& bp : jvm.breakpoints()) {
                if (!bp || bp->StopPoint || bp->MethodEntry || bp->LineNr != static_cast<double>(sb.lines[i]))
                    continue;
                if (bp->ClassName == sb.className || bp->ClassName.compare(0, prefix.size(), prefix) == 0)
                    verified = verified || bp->UsedByVM;
            }
            if (events_->connected() && !events_->ended())
                outerLoaded = jvm.getClassByName(sb.className, false) != nullptr;
            std::string message;
            if (!verified)
                message = outerLoaded ? "no code at line " + std::to_string(sb.lines[i]) + " in the classes of " +
                                            ClassNames::toJava(sb.className) + " loaded so far"
                                      : ClassNames::toJava(sb.className) + " is not loaded yet";
            if (verified != sb.verified[i] || message != sb.messages[i]) {
                sb.verified[i] = verified;
                sb.messages[i] = message;
                if (announce) {
                    json b = {{"id", sb.ids[i]},
                              {"verified", verified},
                              {"line", clientLine(sb.lines[i])},
                              {"source", {{"path", path}}}};
                    if (!message.empty())
                        b["message"] = message;
                    emit("breakpoint", {{"reason", "changed"}, {"breakpoint", b}});
                }
            }
        }
    }
    refreshFunctionVerified(announce);
}

void DapAdapter::onSetBreakpoints(const json& args, json& body)
{
    const json source = args.value("source", json::object());
    const std::string path = source.is_object() ? source.value("path", std::string()) : std::string();
    if (path.empty())
        throw DapError{"setBreakpoints needs source.path: the .java file"};
    std::vector<int64_t> lines;
    std::vector<JXBreakpointOptions> options;
    if (args.contains("breakpoints") && args["breakpoints"].is_array()) {
        for (const auto& b : args["breakpoints"]) {
            lines.push_back(line(b.at("line").get<int64_t>()));
            options.push_back(optionsOf(b));
        }
    } else if (args.contains("lines") && args["lines"].is_array()) {
        for (const auto& l : args["lines"])
            lines.push_back(line(l.get<int64_t>()));
        options.resize(lines.size());
    }
    const auto cls = sources_.classOfFile(path);
    if (!cls) {
        // The file cannot be read: nothing can be set, and the client is told why.
        json list = json::array();
        for (int64_t l : lines)
            list.push_back({{"verified", false},
                            {"line", clientLine(l)},
                            {"message", "cannot read " + path + " (a .java file) to find its class"}});
        body = {{"breakpoints", list}};
        breakpoints_.erase(path);
        applyBreakpoints();
        return;
    }
    SourceBreakpoints sb;
    sb.className = *cls;
    auto old = breakpoints_.find(path);
    for (size_t k = 0; k < lines.size(); ++k) {
        const int64_t l = lines[k];
        if (std::find(sb.lines.begin(), sb.lines.end(), l) != sb.lines.end())
            continue;
        int64_t id = 0;
        if (old != breakpoints_.end())
            for (size_t i = 0; i < old->second.lines.size(); ++i)
                if (old->second.lines[i] == l)
                    id = old->second.ids[i];
        const std::string refused = JXMachine::checkBreakpointOptions(options[k]);
        sb.lines.push_back(l);
        sb.ids.push_back(id ? id : nextBreakpointId_++);
        sb.verified.push_back(false);
        sb.messages.push_back(refused);
        sb.options.push_back(options[k]);
        sb.refused.push_back(refused);
    }
    breakpoints_[path] = sb;
    applyBreakpoints();
    refreshVerified(false);
    const SourceBreakpoints& now = breakpoints_[path];
    json list = json::array();
    for (int64_t l : lines) {
        const size_t i = static_cast<size_t>(std::find(now.lines.begin(), now.lines.end(), l) - now.lines.begin());
        json b = {{"id", now.ids[i]},
                  {"verified", static_cast<bool>(now.verified[i])},
                  {"line", clientLine(l)},
                  {"source", {{"path", path}}}};
        if (!now.messages[i].empty())
            b["message"] = now.messages[i];
        list.push_back(b);
    }
    body = {{"breakpoints", list}};
}

void DapAdapter::onSetFunctionBreakpoints(const json& args, json& body)
{
    auto& jvm = *handler_->myJVM();
    if (!args.contains("breakpoints") || !args["breakpoints"].is_array())
        throw DapError{"setFunctionBreakpoints needs \"breakpoints\": an array of {name}"};
    std::vector<FunctionBreakpoint> now;
    for (const auto& b : args["breakpoints"]) {
        if (!b.is_object() || !b.contains("name") || !b["name"].is_string())
            throw DapError{"each function breakpoint needs a \"name\" such as demo.Cart.add or demo.Cart.add(int)"};
        FunctionBreakpoint f;
        f.name = b["name"].get<std::string>();
        f.options = optionsOf(b);
        ClassNames::Method m;
        std::string error;
        if (!ClassNames::parseMethod(f.name, m, error))
            f.refused = (error.empty() ? std::string("not a method name") : error) +
                        ": expected CLASS.METHOD or "
                        "CLASS.METHOD(TYPES), e.g. demo.Cart.add or demo.Cart.add(int)";
        else
            f.refused = JXMachine::checkBreakpointOptions(f.options);
        f.className = ClassNames::toInternal(m.className);
        f.method = m.method;
        f.parameters = m.parameters;
        f.message = f.refused;
        // The same name keeps its id (and the state known of it).
        for (const auto& old : functionBreakpoints_)
            if (old.name == f.name) {
                f.id = old.id;
                if (f.refused.empty() && old.refused.empty()) {
                    f.verified = old.verified;
                    f.message = old.message;
                }
            }
        if (f.id == 0)
            f.id = nextBreakpointId_++;
        now.push_back(std::move(f));
    }
    auto key = [](const FunctionBreakpoint& f) { return std::tie(f.className, f.method, f.parameters); };
    for (const auto& old : functionBreakpoints_) {
        if (!old.refused.empty())
            continue;
        const bool kept = std::any_of(now.begin(), now.end(), [&](const FunctionBreakpoint& f) {
            return f.refused.empty() && key(f) == key(old);
        });
        if (!kept)
            jvm.removeMethodBreakpoint(old.className, old.method, old.parameters);
    }
    for (const auto& f : now) {
        if (!f.refused.empty())
            continue;
        const auto had = std::find_if(functionBreakpoints_.begin(), functionBreakpoints_.end(),
                                      [&](const auto& old) { return old.refused.empty() && key(old) == key(f); });
        if (had == functionBreakpoints_.end() || !sameOptions(had->options, f.options))
            jvm.addMethodBreakpoint(f.className, f.method, f.parameters, f.options);
    }
    functionBreakpoints_ = std::move(now);
    refreshFunctionVerified(false);
    json list = json::array();
    for (const auto& f : functionBreakpoints_)
        list.push_back(functionBreakpointJson(f));
    body = {{"breakpoints", list}};
}

json DapAdapter::functionBreakpointJson(const FunctionBreakpoint& f) const
{
    json b = {{"id", f.id}, {"verified", f.verified}};
    if (!f.message.empty())
        b["message"] = f.message;
    return b;
}

void DapAdapter::refreshFunctionVerified(bool announce)
{
    auto& jvm = *handler_->myJVM();
    const bool alive = events_->connected() && !events_->ended();
    for (auto& f : functionBreakpoints_) {
        if (!f.refused.empty())
            continue;
        bool verified = false;
        for (const auto& bp : jvm.methodBreakpoints(f.className, f.method, f.parameters))
            verified = verified || (bp && bp->UsedByVM);
        std::string message;
        if (!verified)
            message = alive && jvm.getClassByName(f.className, false)
                          ? ClassNames::toJava(f.className) + " has no method " + f.method + f.parameters
                          : ClassNames::toJava(f.className) + " is not loaded yet";
        if (verified == f.verified && message == f.message)
            continue;
        f.verified = verified;
        f.message = message;
        if (announce)
            emit("breakpoint", {{"reason", "changed"}, {"breakpoint", functionBreakpointJson(f)}});
    }
}

bool DapAdapter::atFunctionBreakpoint(const DebuggeeStop& stop) const
{
    for (const auto& bp : handler_->myJVM()->breakpoints())
        if (bp && bp->MethodEntry && bp->UsedByVM && bp->location().MethodID == stop.methodID &&
            bp->location().Index == stop.index)
            return true;
    return false;
}

void DapAdapter::onSetExceptionBreakpoints(const json& args, json& body)
{
    bool on = false;
    for (const auto& f : words(args.value("filters", json::array()), "filters")) {
        if (f != kExceptionFilter)
            throw DapError{"unknown exception filter \"" + f + "\" (krvdbg-dap has \"" + kExceptionFilter + "\")"};
        on = true;
    }
    exceptionStops_ = on;
    body = {{"breakpoints", json::array({{{"verified", true}}})}};
    if (!on)
        body = {{"breakpoints", json::array()}};
}

// --- threads and stack -----------------------------------------------------

void DapAdapter::refreshThreads()
{
    threadsDirty_ = false;
    if (!events_->connected() || events_->ended())
        return;
    auto list = handler_->getAllThreads();
    if (!list)
        return;
    std::map<int64_t, std::string> now;
    for (int32_t i = 1; i <= list->Count(); ++i) {
        auto t = list->Item(i);
        if (!t)
            continue;
        const int64_t id = asId(t->threadID);
        auto known = threads_.find(id);
        now[id] = known != threads_.end() ? known->second : t->ThreadName();
    }
    for (const auto& [id, name] : now)
        if (!threads_.count(id))
            emit("thread", {{"reason", "started"}, {"threadId", id}});
    for (const auto& [id, name] : threads_)
        if (!now.count(id))
            emit("thread", {{"reason", "exited"}, {"threadId", id}});
    threads_ = std::move(now);
}

void DapAdapter::onThreads(const json&, json& body)
{
    refreshThreads();
    json list = json::array();
    for (const auto& [id, name] : threads_)
        list.push_back({{"id", id}, {"name", name.empty() ? "thread " + std::to_string(id) : name}});
    body = {{"threads", list}};
}

const FrameRef& DapAdapter::frameOf(const json& args, const char* key)
{
    if (!args.contains(key) || !args[key].is_number_integer())
        throw DapError{std::string("\"") + key + "\" is missing"};
    const FrameRef* f = store_.frame(args[key].get<int64_t>());
    if (!f)
        throw DapError{std::string("no frame ") + std::to_string(args[key].get<int64_t>()) +
                       " (frames are valid only until the program resumes)"};
    return *f;
}

Container DapAdapter::containerOf(int64_t reference) const
{
    const Container* c = store_.container(reference);
    if (!c)
        throw DapError{"no variables under " + std::to_string(reference) +
                       " (the numbers are valid only until the program resumes)"};
    return *c;
}

FrameRef DapAdapter::localsFrameOf(const Container& container) const
{
    const FrameRef* f = store_.frame(container.frame);
    if (!f)
        throw DapError{"the frame of these locals is gone"};
    return *f;
}

void DapAdapter::onStackTrace(const json& args, json& body)
{
    const int64_t threadId = args.at("threadId").get<int64_t>();
    const int64_t startFrame = std::max<int64_t>(0, args.value("startFrame", int64_t(0)));
    const int64_t levels = std::max<int64_t>(0, args.value("levels", int64_t(0)));
    auto& jvm = *handler_->myJVM();
    // One request at the first ask: the VM reads a length of -1 as "all the
    // rest", and the library writes -1 itself as 255, so its 32 bits are
    // given as the unsigned number they make. The count is then known for the
    // rest of the stop, and later pages ask for just what they show.
    json list = json::array();
    auto known = frameCounts_.find(threadId);
    int64_t total = known != frameCounts_.end() ? known->second : -1;
    const int64_t wanted = total < 0 ? -1 : (levels > 0 ? std::min(levels, total - startFrame) : total - startFrame);
    if (total >= 0 && wanted <= 0) {
        body = {{"stackFrames", list}, {"totalFrames", total}};
        return;
    }
    auto reply = handler_->sendSync(
        handler_->myFactory()->createGetFrameMessage(static_cast<double>(threadId), static_cast<double>(startFrame),
                                                     wanted < 0 ? kAllFramesLength : static_cast<double>(wanted)),
        kWaitMs);
    if (!reply || reply->myErrorCode != 0 || !reply->hasDataContainer())
        throw DapError{"no stack for thread " + std::to_string(threadId) + " (is it a thread of the VM, suspended?)"};
    const auto frames = reply->myDataContainer()->requestFrame();
    if (total < 0) {
        total = startFrame + static_cast<int64_t>(frames.size());
        frameCounts_[threadId] = total;
    }
    const size_t count = levels > 0 ? std::min(frames.size(), static_cast<size_t>(levels)) : frames.size();
    for (size_t i = 0; i < count; ++i) {
        const JDWPJFrame& f = frames[i];
        FrameRef ref{static_cast<double>(threadId),
                     f.FrameID,
                     static_cast<int>(startFrame + static_cast<int64_t>(i)),
                     f.FrameLocation.ClassID,
                     f.FrameLocation.MethodID,
                     f.FrameLocation.Index};
        auto cls = jvm.getClassByID(f.FrameLocation.ClassID, true);
        if (cls)
            cls->refreshSignature(true);
        const std::string className = cls ? cls->ClassName() : std::string();
        auto method = cls ? cls->JMethodID(f.FrameLocation.MethodID) : nullptr;
        double lineNr = 0;
        if (method)
            method->LocationToSrcLine(f.FrameLocation, lineNr);
        const std::string path = className.empty() ? std::string() : sources_.fileOfClass(className);
        json frame = {{"id", store_.addFrame(ref)},
                      {"name", (className.empty() ? std::string("?") : simpleName(className)) + "." +
                                   (method ? method->MethodName : std::string("?"))},
                      {"line", lineNr > 0 ? clientLine(static_cast<int64_t>(lineNr)) : 0},
                      {"column", lineNr > 0 ? 1 : 0}};
        if (!path.empty() && lineNr > 0) {
            frame["source"] = {{"name", fs::path(path).filename().string()}, {"path", path}};
        } else {
            // No file for it (library and JDK code): shown, but greyed and
            // without a place to open.
            frame["presentationHint"] = "subtle";
            if (!className.empty())
                frame["source"] = {{"name", SourceMap::fileNameOf(className)}, {"presentationHint", "deemphasize"}};
        }
        list.push_back(frame);
    }
    body = {{"stackFrames", list}, {"totalFrames", total}};
}

void DapAdapter::onScopes(const json& args, json& body)
{
    const int64_t frameId = args.at("frameId").get<int64_t>();
    const FrameRef& f = frameOf(args, "frameId");
    json scopes = json::array();
    scopes.push_back({{"name", "Locals"},
                      {"presentationHint", "locals"},
                      {"variablesReference", store_.addContainer({Container::Kind::Locals, frameId, 0, {}})},
                      {"expensive", false}});
    scopes.push_back({{"name", "Statics"},
                      {"variablesReference", store_.addContainer({Container::Kind::Statics, 0, f.classID, {}})},
                      {"expensive", false}});
    body = {{"scopes", scopes}};
}

namespace {
json variableJson(DapVariable&& v)
{
    json j = json::object();
    j["name"] = std::move(v.name);
    j["value"] = std::move(v.value);
    j["variablesReference"] = v.reference;
    if (!v.type.empty())
        j["type"] = std::move(v.type);
    if (v.indexed > 0)
        j["indexedVariables"] = v.indexed;
    return j;
}
} // namespace

void DapAdapter::onVariables(const json& args, json& body)
{
    const int64_t ref = args.at("variablesReference").get<int64_t>();
    const Container container = containerOf(ref);
    std::vector<DapVariable> vars;
    switch (container.kind) {
    case Container::Kind::Locals: {
        const FrameRef frame = localsFrameOf(container);
        std::string error;
        if (!values_.locals(frame, container.frame, vars, error) && !error.empty())
            throw DapError{error};
        break;
    }
    case Container::Kind::Statics:
        vars = values_.statics(container.id);
        break;
    case Container::Kind::Object:
        vars = values_.fields(container.id);
        break;
    case Container::Kind::Array:
        vars = values_.elements(container.id, args.value("start", int64_t(0)), args.value("count", int64_t(0)));
        break;
    }
    json list = json::array();
    list.get_ref<json::array_t&>().reserve(vars.size());
    for (auto& v : vars)
        list.push_back(variableJson(std::move(v)));
    body = json::object();
    body["variables"] = std::move(list);
}

void DapAdapter::onEvaluate(const json& args, json& body)
{
    const std::string expression = args.at("expression").get<std::string>();
    auto& jvm = *handler_->myJVM();
    FrameRef frame;
    bool top = true;
    if (args.contains("frameId") && args["frameId"].is_number_integer()) {
        frame = frameOf(args, "frameId");
        top = frame.index == 0 && asId(frame.threadID) == asId(jvm.currentThreadID());
    } else {
        // The stop's own top frame.
        auto reply =
            handler_->sendSync(handler_->myFactory()->createGetFrameMessage(jvm.currentThreadID(), 0, 1), kWaitMs);
        if (!reply || reply->myErrorCode != 0 || reply->myDataContainer()->requestFrame().empty())
            throw DapError{"no frame to evaluate in"};
        const auto& f = reply->myDataContainer()->requestFrame().front();
        frame = {jvm.currentThreadID(), f.FrameID, 0, f.FrameLocation.ClassID, f.FrameLocation.MethodID,
                 f.FrameLocation.Index};
    }
    std::string error;
    if (auto v = values_.evaluate(frame, expression, error)) {
        body = {{"result", v->value}, {"variablesReference", v->reference}};
        if (!v->type.empty())
            body["type"] = v->type;
        if (v->indexed > 0)
            body["indexedVariables"] = v->indexed;
        return;
    }
    // The library's dotted paths also run the program's getters; they read
    // the stop's own thread and top frame.
    if (top) {
        const ParsedValue parsed = ValueText::parse(jvm.getValue(expression));
        if (jvm.JVMState() == VMRunning) {
            // The getter it ran did not return: the program runs with it.
            store_.reset();
            frameCounts_.clear();
            state_ = State::Running;
            emit("continued", {{"threadId", asId(frame.threadID)}, {"allThreadsContinued", true}});
        }
        if (parsed.found) {
            body = {{"result", parsed.value}, {"variablesReference", 0}};
            return;
        }
    }
    throw DapError{error.empty() ? expression + " is not available here" : error};
}

void DapAdapter::onSetVariable(const json& args, json& body)
{
    const int64_t ref = args.at("variablesReference").get<int64_t>();
    const std::string name = args.at("name").get<std::string>();
    const std::string value = args.at("value").get<std::string>();
    const Container container = containerOf(ref);
    auto& jvm = *handler_->myJVM();
    std::string why;
    std::vector<DapVariable> now;
    switch (container.kind) {
    case Container::Kind::Locals: {
        const FrameRef frame = localsFrameOf(container);
        JDWPJFrame at;
        at.FrameID = frame.frameID;
        at.FrameLocation.ClassID = frame.classID;
        at.FrameLocation.MethodID = frame.methodID;
        at.FrameLocation.Index = frame.codeIndex;
        why = jvm.setLocalValue(frame.threadID, at, name, value);
        std::string error;
        if (why.empty())
            values_.locals(frame, container.frame, now, error);
        break;
    }
    case Container::Kind::Statics:
        why = jvm.setFieldValue(0, container.id, name, value);
        if (why.empty())
            now = values_.statics(container.id);
        break;
    case Container::Kind::Object: {
        // A field hidden by one of the same name lower down is listed as
        // "name (pkg.Owner)": it is looked for from its owner up.
        std::string field = name;
        double from = 0;
        const size_t open = name.find(" (");
        if (open != std::string::npos && name.back() == ')') {
            field = name.substr(0, open);
            auto owner =
                jvm.getClassByName(ClassNames::toInternal(name.substr(open + 2, name.size() - open - 3)), true);
            if (!owner)
                throw DapError{"the class of " + name + " is not known"};
            from = owner->ClassID;
        }
        why = jvm.setFieldValue(container.id, from, field, value);
        if (why.empty())
            now = values_.fields(container.id);
        break;
    }
    case Container::Kind::Array:
        throw DapError{"the elements of an array cannot be set here"};
    }
    if (!why.empty())
        throw DapError{why};
    // The value as the VM holds it now, as the variables view shows it.
    body = {{"value", value}, {"variablesReference", 0}};
    for (auto& v : now)
        if (v.name == name) {
            body = variableJson(std::move(v));
            body.erase("name");
        }
}

// --- running ---------------------------------------------------------------

void DapAdapter::onContinue(const json&, json& body)
{
    events_->clearStep();
    handler_->myJVM()->ResumeVM(true);
    store_.reset();
    frameCounts_.clear();
    state_ = State::Running;
    body = {{"allThreadsContinued", true}};
}

void DapAdapter::step(const json& args, int depth)
{
    auto& jvm = *handler_->myJVM();
    const double thread = static_cast<double>(args.at("threadId").get<int64_t>());
    if (asId(thread) != asId(jvm.currentThreadID())) {
        // Another thread is stepped: it becomes the library's current one.
        auto reply = handler_->sendSync(handler_->myFactory()->createGetFrameMessage(thread, 0, 1), kWaitMs);
        if (!reply || reply->myErrorCode != 0 || reply->myDataContainer()->requestFrame().empty())
            throw DapError{"thread " + std::to_string(asId(thread)) + " has no frame to step from"};
        const auto& loc = reply->myDataContainer()->requestFrame().front().FrameLocation;
        jvm.GoSilentBreak(thread, loc.ClassID, loc.MethodID);
    }
    // A line step from a native method (a pause in Thread.sleep) never
    // completes in the VM; stepping out of it lands on the caller's line.
    if (depth != SD_OUT) {
        auto cls = jvm.getClassByID(jvm.currentClassID(), false);
        auto method = cls ? cls->JMethodID(jvm.currentMethodID()) : nullptr;
        if (method && method->isNative())
            depth = SD_OUT;
    }
    events_->expectStep();
    if (!jvm.ResumeVMStepByStep(false, thread, static_cast<JDWPStepDepth>(depth))) {
        events_->clearStep();
        throw DapError{jvm.myStepInProcess ? "a step is already under way" : "no stopped thread to step"};
    }
    store_.reset();
    frameCounts_.clear();
    state_ = State::Running;
}

void DapAdapter::onNext(const json& args, json&)
{
    step(args, SD_OVER);
}
void DapAdapter::onStepIn(const json& args, json&)
{
    step(args, SD_INTO);
}
void DapAdapter::onStepOut(const json& args, json&)
{
    step(args, SD_OUT);
}

void DapAdapter::onPause(const json&, json&)
{
    if (state_ == State::Stopped)
        return; // already stopped: nothing to do
    auto& jvm = *handler_->myJVM();
    jvm.SuspendVM();
    MessagePump::instance().pumpUntil([&] { return jvm.JVMState() == VMSuspend || events_->ended(); }, kConfirmMs);
    if (events_->ended())
        return;
    if (!events_->stops().empty())
        return; // a stop came first; it is reported as such
    if (jvm.JVMState() != VMSuspend)
        throw DapError{"the VM did not confirm the pause"};
    // The thread to show: main when it has frames, else the first with frames.
    auto list = handler_->getAllThreads();
    double chosen = 0;
    JDWPJLocation where;
    for (int32_t i = 1; list && i <= list->Count(); ++i) {
        auto t = list->Item(i);
        if (!t)
            continue;
        auto reply = handler_->sendSync(handler_->myFactory()->createGetFrameMessage(t->threadID, 0, 1), kWaitMs);
        if (!reply || reply->myErrorCode != 0 || reply->myDataContainer()->requestFrame().empty())
            continue;
        const bool isMain = t->ThreadName() == "main";
        if (chosen == 0 || isMain) {
            chosen = t->threadID;
            where = reply->myDataContainer()->requestFrame().front().FrameLocation;
        }
        if (isMain)
            break;
    }
    if (chosen != 0)
        jvm.GoSilentBreak(chosen, where.ClassID, where.MethodID);
    state_ = State::Stopped;
    emit("stopped", {{"reason", "pause"}, {"threadId", asId(chosen)}, {"allThreadsStopped", true}});
}

// --- ending ----------------------------------------------------------------

void DapAdapter::onDisconnect(const json& args, json&)
{
    const bool launched = config_ && !config_->attach;
    const bool terminate = args.value("terminateDebuggee", launched);
    if (events_->connected() && !events_->ended()) {
        if (terminate && !launched)
            handler_->myJVM()->exitVM();
        handler_->Disconnect();
    }
    endReported_ = true; // the client is leaving; no more events
    finished_ = true;
}

void DapAdapter::onTerminate(const json&, json&)
{
    if (!events_->connected() || events_->ended())
        return;
    if (config_ && config_->attach)
        handler_->myJVM()->exitVM();
    else
        handler_->Disconnect();
}

void DapAdapter::finishEnd()
{
    if (endReported_)
        return;
    endReported_ = true;
    state_ = State::Ended;
    store_.reset();
    frameCounts_.clear();
    // The process's last output and exit status.
    auto transport = std::dynamic_pointer_cast<LinuxTransport>(handler_->transport());
    auto& pump = MessagePump::instance();
    if (transport && config_ && !config_->attach)
        pump.pumpUntil([&] { return !transport->ProcessRunning(); }, 3000);
    for (int pass = 0; pass < 100 && pump.pumpOnce(0) > 0; ++pass) {}
    for (auto& o : events_->output())
        emit("output", {{"category", o.category}, {"output", o.text}});
    events_->output().clear();
    for (const auto& [id, name] : threads_)
        emit("thread", {{"reason", "exited"}, {"threadId", id}});
    threads_.clear();
    int code = 0;
    if (transport && config_ && !config_->attach && transport->lastExitStatus() >= 0) {
        const int status = transport->lastExitStatus();
        code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    }
    emit("exited", {{"exitCode", code}});
    emit("terminated", nullptr);
}

void DapAdapter::inputClosed()
{
    if (events_->connected() && !events_->ended())
        handler_->Disconnect();
    finished_ = true;
}

void DapAdapter::poll()
{
    // A client that never sends configurationDone still gets its program.
    if (!pendingStart_.is_null() && !configurationDone_ && GetTickCount() - pendingSince_ >= kConfigurationWaitMs)
        startPending();
    auto& jvm = *handler_->myJVM();
    // Asking for the threads pumps, and what comes meanwhile (a failed
    // condition's text and its stop) is reported below in its own order.
    if (threadsDirty_ && state_ == State::Running)
        refreshThreads();
    for (auto& o : events_->output()) {
        json body = {{"category", o.category}, {"output", o.text}};
        // A logpoint's line, or a failed condition, points at its breakpoint.
        const std::string path = o.className.empty() ? std::string() : sources_.fileOfClass(o.className);
        if (!path.empty()) {
            body["source"] = {{"name", fs::path(path).filename().string()}, {"path", path}};
            body["line"] = clientLine(o.line);
        }
        emit("output", body);
    }
    events_->output().clear();
    while (!events_->stops().empty() && !events_->ended()) {
        DebuggeeStop stop = events_->stops().front();
        events_->stops().pop_front();
        // The stop's place is handed over once more: the library records it
        // only when the stop changes its state.
        jvm.GoSilentBreak(stop.threadID, jvm.currentClassID(), jvm.currentMethodID());
        std::string reason = "breakpoint";
        json body = {{"threadId", asId(stop.threadID)}, {"allThreadsStopped", true}};
        if (stop.exception) {
            if (!exceptionStops_) {
                jvm.ResumeVM(true);
                continue;
            }
            reason = "exception";
            // The library's text is the class name, a line break and the
            // exception's toString.
            const size_t nl = stop.exceptionText.find('\n');
            const std::string shown = nl == std::string::npos ? stop.exceptionText : stop.exceptionText.substr(nl + 1);
            body["description"] = shown;
            body["text"] = shown;
        } else if (entryArmed_ && config_ && stop.className == ClassNames::toInternal(config_->mainClass)) {
            entryArmed_ = false;
            jvm.removeStopPoint(stop.className, "main", 0);
            reason = "entry";
        } else {
            // A step may end on a breakpoint's line without reaching the
            // breakpoint (back from a call, mid-line): that is the step's stop.
            const auto bp = jvm.getBreakPoint(stop.className, stop.line);
            const bool atBreakpoint =
                bp && bp->UsedByVM && bp->location().MethodID == stop.methodID && bp->location().Index == stop.index;
            if (!atBreakpoint && atFunctionBreakpoint(stop))
                reason = "function breakpoint";
            else if (stop.stepExpected && !atBreakpoint)
                reason = "step";
        }
        body["reason"] = reason;
        state_ = State::Stopped;
        store_.reset();
        frameCounts_.clear();
        emit("stopped", body);
    }
    refreshVerified(true);
    if (events_->ended() && !endReported_)
        finishEnd();
}

} // namespace krvdbg
