// Adapter benchmarks: krvdbg-dap driven over its standard streams as an
// editor drives it, at a stop reached once a round in bench/java/DapTarget.
//   dap_stop_to_variables   the `stopped` event to the top frame's variables
//                           answered (stackTrace, scopes, variables of Locals)
//   dap_expand_1000_fields  `variables` of an object with 1,000 fields
// against JDI doing the same work in the same run (bench/java/JdiDapBench),
// and the adapter's resident memory at the last stop against the JDI
// process's.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "BenchKit.h"

using nlohmann::json;

extern char** environ;

namespace {

constexpr int kRounds = 30;
constexpr int kWarmUp = 5;
constexpr int kReplyMs = 20000;
constexpr int kLaunchMs = 30000;

// krvdbg-dap as a child with its input and output on pipes.
class Adapter {
public:
    Adapter()
    {
        int in[2], out[2];
        if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0)
            return;
        const pid_t parent = ::getpid();
        pid_ = ::fork();
        if (pid_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (::getppid() != parent)
                ::_exit(127);
            ::dup2(in[0], 0);
            ::dup2(out[1], 1);
            // KRVDBG_DAP_BENCH_LOG=file keeps the adapter's error output
            // (with KRVDBG_DAP_TRACE=1: its packets) for a profile.
            const char* log = std::getenv("KRVDBG_DAP_BENCH_LOG");
            const int err = ::open(log && *log ? log : "/dev/null", O_WRONLY | O_CREAT | O_TRUNC, 0644);
            ::dup2(err, 2);
            // KRVDBG_DAP_BENCH_WRAP=/path/to/wrapper runs the adapter under
            // it (a profiler, strace), its path as the wrapper's argument.
            const char* wrap = std::getenv("KRVDBG_DAP_BENCH_WRAP");
            char* argv[] = {const_cast<char*>(KRVDBG_DAP), nullptr};
            char* wrapped[] = {const_cast<char*>(wrap), const_cast<char*>(KRVDBG_DAP), nullptr};
            ::execve(wrap && *wrap ? wrap : argv[0], wrap && *wrap ? wrapped : argv, environ);
            ::_exit(127);
        }
        ::close(in[0]);
        ::close(out[1]);
        to_ = in[1];
        from_ = out[0];
    }

    ~Adapter()
    {
        if (to_ >= 0)
            ::close(to_);
        if (pid_ > 0) {
            // Closing its input ends it; a stuck one is killed.
            for (int i = 0; i < 200 && ::waitpid(pid_, nullptr, WNOHANG) == 0; ++i)
                ::poll(nullptr, 0, 10);
            if (::waitpid(pid_, nullptr, WNOHANG) == 0) {
                ::kill(pid_, SIGKILL);
                ::waitpid(pid_, nullptr, 0);
            }
        }
        if (from_ >= 0)
            ::close(from_);
    }

    pid_t pid() const { return pid_; }
    // How long this client took to parse the last message it read.
    double lastParseUs() const { return lastParseUs_; }

    int send(const std::string& command, const json& args = json::object())
    {
        const int seq = nextSeq_++;
        const std::string body =
            json{{"seq", seq}, {"type", "request"}, {"command", command}, {"arguments", args}}.dump();
        const std::string frame = "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
        for (size_t done = 0; done < frame.size();) {
            const ssize_t n = ::write(to_, frame.data() + done, frame.size() - done);
            if (n <= 0)
                break;
            done += static_cast<size_t>(n);
        }
        return seq;
    }

    // The response to `seq` (null on time-out); events meanwhile are kept.
    json response(int seq, int timeoutMs = kReplyMs)
    {
        for (auto it = held_.begin(); it != held_.end(); ++it)
            if ((*it)["type"] == "response" && (*it)["request_seq"] == seq) {
                json r = std::move(*it);
                held_.erase(it);
                return r;
            }
        const double deadline = bench::nowUs() + timeoutMs * 1000.0;
        for (json m; read(m, deadline);) {
            if (m["type"] == "response" && m["request_seq"] == seq)
                return m;
            held_.push_back(std::move(m));
        }
        return nullptr;
    }

    // The body of a successful response (null otherwise).
    json request(const std::string& command, const json& args = json::object(), int timeoutMs = kReplyMs)
    {
        json r = response(send(command, args), timeoutMs);
        if (r.is_null() || !r.value("success", false)) {
            std::fprintf(stderr, "%s failed: %s\n", command.c_str(), r.dump().c_str());
            return nullptr;
        }
        return r.contains("body") ? r["body"] : json::object();
    }

    // The next event named `name`, and when it was read (0 on time-out).
    double event(const std::string& name, json& out, int timeoutMs = kLaunchMs)
    {
        for (auto it = held_.begin(); it != held_.end(); ++it)
            if ((*it)["type"] == "event" && (*it)["event"] == name) {
                out = std::move(*it);
                held_.erase(it);
                return bench::nowUs();
            }
        const double deadline = bench::nowUs() + timeoutMs * 1000.0;
        for (json m; read(m, deadline);) {
            if (m["type"] == "event" && m["event"] == name) {
                out = std::move(m);
                return bench::nowUs();
            }
            held_.push_back(std::move(m));
        }
        return 0;
    }

private:
    bool read(json& out, double deadlineUs)
    {
        for (;;) {
            const size_t head = buffer_.find("\r\n\r\n");
            if (head != std::string::npos) {
                const size_t at = buffer_.find("Content-Length:");
                const size_t length = at < head ? std::strtoul(buffer_.c_str() + at + 15, nullptr, 10) : 0;
                if (buffer_.size() >= head + 4 + length) {
                    const double t0 = bench::nowUs();
                    out = json::parse(buffer_.substr(head + 4, length), nullptr, false);
                    lastParseUs_ = bench::nowUs() - t0;
                    buffer_.erase(0, head + 4 + length);
                    return true;
                }
            }
            const double left = deadlineUs - bench::nowUs();
            pollfd p{from_, POLLIN, 0};
            if (left <= 0 || ::poll(&p, 1, static_cast<int>(left / 1000) + 1) <= 0)
                return false;
            char chunk[65536];
            const ssize_t n = ::read(from_, chunk, sizeof chunk);
            if (n <= 0)
                return false;
            buffer_.append(chunk, static_cast<size_t>(n));
        }
    }

    pid_t pid_ = -1;
    int to_ = -1;
    int from_ = -1;
    int nextSeq_ = 1;
    std::string buffer_;
    std::deque<json> held_;
    double lastParseUs_ = 0;
};

long residentKb(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("VmRSS:", 0) == 0)
            return std::atol(line.c_str() + 6);
    return 0;
}

struct Ours {
    std::vector<double> variables, fields;
    // The parts of `variables`: stopped to stackTrace answered, then scopes, then variables.
    std::vector<double> frames, scopes, locals;
    // Of `fields`: this client's own parsing of the answer.
    std::vector<double> fieldsParse;
    long rssKb = 0;
};

bool adapter(int line, Ours& out)
{
    Adapter dap;
    if (dap.request("initialize", {{"clientID", "bench"},
                                   {"adapterID", "krvdbg"},
                                   {"linesStartAt1", true},
                                   {"columnsStartAt1", true},
                                   {"pathFormat", "path"}})
            .is_null())
        return false;
    const int launch = dap.send("launch", {{"mainClass", "DapTarget"},
                                           {"args", {std::to_string(kWarmUp + kRounds + 1)}},
                                           {"classPaths", {bench::benchClassPath()}},
                                           {"sourcePaths", {bench::benchSourceDir()}},
                                           {"javaExec", bench::javaPath()}});
    json e;
    if (!dap.event("initialized", e) ||
        dap.request("setBreakpoints", {{"source", {{"path", bench::benchSourceDir() + "/DapTarget.java"}}},
                                       {"breakpoints", {{{"line", line}}}}})
            .is_null() ||
        dap.request("configurationDone").is_null())
        return false;
    const json launched = dap.response(launch, kLaunchMs);
    if (launched.is_null() || !launched.value("success", false))
        return bench::fail("launch failed: %s\n", launched.dump().c_str());
    for (int round = 0; round < kWarmUp + kRounds; ++round) {
        const double t0 = dap.event("stopped", e);
        if (t0 == 0)
            return bench::fail("no stop in round %d\n", round);
        const int thread = e["body"].value("threadId", 0);
        // What an editor asks for at a stop: the frames, the top frame's
        // scopes, its locals.
        const json frames = dap.request("stackTrace", {{"threadId", thread}, {"startFrame", 0}, {"levels", 20}});
        if (frames.is_null() || frames["stackFrames"].empty())
            return false;
        const double tFrames = bench::nowUs();
        const json scopes = dap.request("scopes", {{"frameId", frames["stackFrames"][0]["id"]}});
        const double tScopes = bench::nowUs();
        if (scopes.is_null())
            return false;
        int localsRef = 0;
        for (const auto& s : scopes["scopes"])
            if (s.value("name", "").find("ocal") != std::string::npos)
                localsRef = s.value("variablesReference", 0);
        const json locals = dap.request("variables", {{"variablesReference", localsRef}});
        const double t1 = bench::nowUs();
        if (locals.is_null())
            return false;
        int wideRef = 0;
        std::string s;
        for (const auto& v : locals["variables"]) {
            if (v.value("name", "") == "wide")
                wideRef = v.value("variablesReference", 0);
            if (v.value("name", "") == "s")
                s = v.value("value", "");
        }
        if (locals["variables"].size() != 10 || s.find("round ") == std::string::npos || wideRef == 0)
            return bench::fail("unexpected locals: %s\n", locals.dump().c_str());
        const double t2 = bench::nowUs();
        const json fields = dap.request("variables", {{"variablesReference", wideRef}});
        const double t3 = bench::nowUs();
        if (fields.is_null() || fields["variables"].size() < 1000)
            return bench::fail("the object's fields: %s\n", fields.dump().substr(0, 2000).c_str());
        if (round >= kWarmUp) {
            out.variables.push_back(t1 - t0);
            out.frames.push_back(tFrames - t0);
            out.scopes.push_back(tScopes - tFrames);
            out.locals.push_back(t1 - tScopes);
            out.fields.push_back(t3 - t2);
            out.fieldsParse.push_back(dap.lastParseUs());
        }
        if (round + 1 == kWarmUp + kRounds)
            out.rssKb = residentKb(dap.pid());
        if (dap.request("continue", {{"threadId", thread}}).is_null())
            return false;
    }
    dap.request("disconnect", {{"terminateDebuggee", true}});
    return true;
}

} // namespace

int main()
{
    const int line = bench::lineOf(bench::benchSourceDir() + "/DapTarget.java", "// @dap-stop");
    Ours ours;
    if (!adapter(line, ours))
        return 1;
    const auto jdi = bench::runJdiAtLine("dap", line, kRounds, kWarmUp);
    if (!bench::anchorOk(jdi, "dap") || !jdi.values.count("rss_kb"))
        return 1;
    bench::report("dap_stop_to_variables", bench::summarize(ours.variables),
                  bench::summarize(jdi.samples.at("dap_stop_to_variables")));
    std::printf("dap_stop_to_variables parts (medians): stackTrace %.1f us, scopes %.1f us, variables %.1f us\n",
                bench::summarize(ours.frames).median, bench::summarize(ours.scopes).median,
                bench::summarize(ours.locals).median);
    const bench::Stats fields = bench::summarize(ours.fields);
    bench::report("dap_expand_1000_fields", fields, bench::summarize(jdi.samples.at("dap_expand_1000_fields")));
    std::printf("dap_expand_1000_fields median %.1f ms (under 200 ms: %s), of which this client's JSON parsing "
                "%.1f ms\n",
                fields.median / 1000, fields.median < 200000 ? "yes" : "no",
                bench::summarize(ours.fieldsParse).median / 1000);
    const double anchorKb = jdi.values.at("rss_kb");
    std::printf("dap_rss          ours: %ld KiB (krvdbg-dap at the last stop) | anchor: %.0f KiB (the JDI process)\n",
                ours.rssKb, anchorKb);
    std::printf("BENCH dap_rss ours_kb=%ld anchor_kb=%.0f ratio=%.3f\n", ours.rssKb, anchorKb,
                anchorKb > 0 ? ours.rssKb / anchorKb : 0);
    return 0;
}
