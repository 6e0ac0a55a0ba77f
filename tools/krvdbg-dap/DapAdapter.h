// The adapter's state and its request table: each DAP command is a row
// {command, handler, when it is allowed}; a request outside its state, an
// unknown command or bad arguments get an error response in words. It owns
// the library session (one per process, as the library has it), starts or
// attaches to the VM once the client has finished its configuration, and
// turns the library's queued host events into DAP events after each
// response, so that a client always sees a request's response before the
// events it caused.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <jdwpkrvdbg/model/JXBreakpoint.h>

#include "DebuggeeEvents.h"
#include "SourceMap.h"
#include "ValueReader.h"
#include "VariableStore.h"
#include <jdwpkrvdbg/support/NonCopyable.h>

namespace jdwpkrvdbg {
class JDWPHandler;
class JXMachine;
} // namespace jdwpkrvdbg

namespace krvdbg {

using json = nlohmann::json;

// A request that cannot be done: its message goes to the client.
struct DapError {
    std::string message;
};

class DapAdapter : jdwpkrvdbg::NonCopyable {
public:
    using Sink = std::function<void(const json&)>;
    // In this order: handle() looks a state up by its number.
    enum class State { New, Initialized, Starting, Running, Stopped, Ended };
    // Which states a request is allowed in.
    enum Allowed : unsigned {
        kBeforeInit = 1u << 0,
        kConfiguring = 1u << 1, // initialized, no VM yet
        kRunning = 1u << 2,
        kStopped = 1u << 3,
        kEnded = 1u << 4,
        kAlive = kRunning | kStopped,
        kAfterInit = kConfiguring | kAlive | kEnded,
    };
    using Handler = void (DapAdapter::*)(const json& arguments, json& body);
    struct Row {
        const char* command;
        Handler handler;
        unsigned allowed;
        const char* needs; // the state the request needs, in words
    };
    static const std::vector<Row>& table();

    explicit DapAdapter(Sink sink);
    ~DapAdapter();

    // One message from the client.
    void handle(const json& message);
    // Something the channel had to drop.
    void badInput(const std::string& why);
    // After the library pumped: the queued host events become DAP events.
    void poll();
    // The client closed its input: a launched VM ends with the adapter.
    void inputClosed();
    bool finished() const { return finished_; }
    State state() const { return state_; }

private:
    struct LaunchConfig {
        bool attach = false;
        std::string mainClass, javaExec = "java", transport = "socket", cwd, hostName = "127.0.0.1";
        int port = 0;
        std::vector<std::string> classPaths, args, vmArgs, sourcePaths, targets;
        std::map<std::string, std::string> env;
        bool stopOnEntry = false;
    };
    struct SourceBreakpoints {
        std::string className; // pkg/Name of the file
        std::vector<int64_t> lines;
        std::vector<int64_t> ids;
        std::vector<bool> verified;
        std::vector<std::string> messages;
        std::vector<jdwpkrvdbg::JXBreakpointOptions> options;
        std::vector<std::string> refused; // why the options were refused, "" when they are fine
    };
    // One entry of setFunctionBreakpoints: a method's entry, every overload
    // or one; refused (with the reason as its message) when its name or
    // options do not parse.
    struct FunctionBreakpoint {
        std::string name;      // as the client gave it
        std::string className; // internal form
        std::string method, parameters;
        jdwpkrvdbg::JXBreakpointOptions options;
        int64_t id = 0;
        bool verified = false;
        std::string message;
        std::string refused;
    };

    void respond(const json& request, bool success, json body, const std::string& message);
    void emit(const std::string& event, const json& body);

    void onInitialize(const json&, json&);
    void onLaunch(const json&, json&);
    void onAttach(const json&, json&);
    void onConfigurationDone(const json&, json&);
    void onDisconnect(const json&, json&);
    void onTerminate(const json&, json&);
    void onSetBreakpoints(const json&, json&);
    void onSetExceptionBreakpoints(const json&, json&);
    void onSetFunctionBreakpoints(const json&, json&);
    void onThreads(const json&, json&);
    void onStackTrace(const json&, json&);
    void onScopes(const json&, json&);
    void onVariables(const json&, json&);
    void onEvaluate(const json&, json&);
    void onSetVariable(const json&, json&);
    void onContinue(const json&, json&);
    void onNext(const json&, json&);
    void onStepIn(const json&, json&);
    void onStepOut(const json&, json&);
    void onPause(const json&, json&);

    LaunchConfig readConfig(const json& arguments, bool attach);
    // A launch or an attach: its configuration, then the start (now or
    // after configurationDone).
    void begin(const json& args, bool attach);
    void start();
    // Starts the program of the launch or attach that waited, and answers it.
    void startPending();
    void step(const json& arguments, int depth);
    void applyBreakpoints();
    void refreshVerified(bool announce);
    // The function breakpoints' states, each changed one announced when `announce`.
    void refreshFunctionVerified(bool announce);
    // Whether a stop is at the entry of a method breakpoint's method.
    bool atFunctionBreakpoint(const DebuggeeStop& stop) const;
    json functionBreakpointJson(const FunctionBreakpoint& f) const;
    void refreshThreads();
    void finishEnd();
    const FrameRef& frameOf(const json& arguments, const char* key);
    // A variablesReference's container and a Locals container's frame, as
    // copies: the store grows while values are read.
    Container containerOf(int64_t reference) const;
    FrameRef localsFrameOf(const Container& container) const;
    int64_t line(int64_t clientLine) const { return clientLine + (linesStartAt1_ ? 0 : 1); }
    int64_t clientLine(int64_t l) const { return l - (linesStartAt1_ ? 0 : 1); }

    Sink sink_;
    int64_t seq_ = 1;
    bool inRequest_ = false;
    std::vector<json> held_; // events made while a request is answered
    State state_ = State::New;
    bool finished_ = false;
    bool configurationDone_ = false;
    bool linesStartAt1_ = true;
    std::unique_ptr<LaunchConfig> config_;
    json currentRequest_;
    json pendingStart_; // the launch or attach request waiting for configurationDone
    bool deferred_ = false;
    bool startAfterResponse_ = false;
    uint32_t pendingSince_ = 0;
    bool exceptionStops_ = true;
    bool entryArmed_ = false;
    bool endReported_ = false;
    bool threadsDirty_ = false;
    int64_t nextBreakpointId_ = 1;

    std::shared_ptr<jdwpkrvdbg::JDWPHandler> handler_;
    std::shared_ptr<DebuggeeEvents> events_;
    std::map<std::string, SourceBreakpoints> breakpoints_; // by source path
    // (class, line) entries we added, with the options they were given.
    std::map<std::pair<std::string, int64_t>, jdwpkrvdbg::JXBreakpointOptions> libraryBreakpoints_;
    std::vector<FunctionBreakpoint> functionBreakpoints_;
    std::vector<std::string> programClasses_;
    std::map<int64_t, std::string> threads_; // id -> name, as last announced
    std::map<int64_t, int64_t> frameCounts_; // per thread, until the program resumes
    SourceMap sources_;
    VariableStore store_;
    ValueReader values_{store_};
};

} // namespace krvdbg
