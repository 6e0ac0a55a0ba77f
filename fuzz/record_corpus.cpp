// Records the fuzz targets' seed corpus from real OpenJDK 17 sessions. The
// library runs ordinary debugging sessions (breakpoints, steps, exceptions,
// values of every kind, the stack, threads, the program's end) over the
// socket and the shared-memory transport, through a transport wrapper that
// keeps every packet sent and received. The packets are then written as
// inputs of each target, each with the replies the decoders will ask for
// (every recorded reply whose request names an identifier that the packet,
// or an answer already taken, contains).
//
// Usage: record_corpus <corpus directory>   (writes <dir>/<target>/*)
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <unistd.h>

#include "FuzzHarness.h"
#include "LiveVM.h"
#include "ShmemRing.h"

#include <jdwpkrvdbg/session/TransportFactory.h>

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::fuzz;
using namespace jdwpkrvdbg::testing;

namespace {

uint32_t beAt(const std::string& s, size_t at)
{
    return static_cast<uint32_t>(readBe(s, at, 4));
}

constexpr const char* kHandshake = "JDWP-Handshake";

// One received reply (with the request it answers) or event.
struct Recorded {
    bool reply = false;
    int set = 0;
    int cmd = 0;
    uint16_t error = 0;
    std::string request;
    std::string payload;
};

// A transport that passes everything through to the platform transport and
// keeps a copy of what crosses it.
class RecordingTransport : public JDWPCon, public JDWPConEvents {
public:
    explicit RecordingTransport(Framing framing) : inner_(createDefaultTransport()), framing_(framing)
    {
        inner_->setEvents(this);
    }
    ~RecordingTransport() override { inner_->setEvents(nullptr); }

    std::string stream;                    // socket: every received byte
    std::vector<std::string> shmemPackets; // shared memory: every receive
    std::vector<Recorded> packets;

    void ConnectShared(const std::string& name) override { inner_->ConnectShared(name); }
    bool SendData(const std::string& data) override
    {
        if (data != kHandshake) {
            sendPending_ += data;
            for (auto& c : cutCommands(sendPending_, framing_))
                sent_[c.id] = c;
        }
        return inner_->SendData(data);
    }
    bool TransportConnected() override { return inner_->TransportConnected(); }
    void CloseTransport() override { inner_->CloseTransport(); }
    std::string StatusText() override { return inner_->StatusText(); }
    bool StartProcess(const std::string& path, const std::string& commandLine, bool console, bool pipe) override
    {
        return inner_->StartProcess(path, commandLine, console, pipe);
    }
    void KillProcess() override { inner_->KillProcess(); }
    bool ProcessRunning() override { return inner_->ProcessRunning(); }
    int32_t ProcessHandle() override { return inner_->ProcessHandle(); }
    int32_t ProcessID() override { return inner_->ProcessID(); }
    void ConnectSocket(const std::string& host, int32_t port) override { inner_->ConnectSocket(host, port); }
    void EnableProcessEvent(bool enabled) override { inner_->EnableProcessEvent(enabled); }
    bool waitForData(int maxWaitMs) override { return inner_->waitForData(maxWaitMs); }

    void connected() override
    {
        forward([](JDWPConEvents& e) { e.connected(); });
    }
    void disconnected() override
    {
        forward([](JDWPConEvents& e) { e.disconnected(); });
    }
    void pipestream(const std::string& text) override
    {
        forward([&](JDWPConEvents& e) { e.pipestream(text); });
    }
    void processevent() override
    {
        forward([](JDWPConEvents& e) { e.processevent(); });
    }
    void terminated() override
    {
        forward([](JDWPConEvents& e) { e.terminated(); });
    }
    void receive(const std::string& data) override
    {
        if (framing_ == Framing::Socket)
            noteSocket(data);
        else
            noteShmem(data);
        forward([&](JDWPConEvents& e) { e.receive(data); });
    }

private:
    template <typename F>
    void forward(F f)
    {
        if (events_)
            f(*events_);
    }
    void addPacket(uint32_t id, bool reply, int set, int cmd, uint16_t error, std::string payload)
    {
        Recorded p;
        p.reply = reply;
        p.error = error;
        p.payload = std::move(payload);
        if (reply) {
            auto it = sent_.find(id);
            if (it == sent_.end())
                return;
            p.set = it->second.set;
            p.cmd = it->second.cmd;
            p.request = it->second.payload;
        } else {
            p.set = set;
            p.cmd = cmd;
        }
        packets.push_back(std::move(p));
    }
    void noteSocket(const std::string& data)
    {
        stream += data;
        recvPending_ += data;
        if (!handshakeSeen_) {
            if (recvPending_.size() < 14)
                return;
            recvPending_.erase(0, 14);
            handshakeSeen_ = true;
        }
        while (auto p = cutPacket(recvPending_))
            addPacket(p->id, p->reply, p->set, p->cmd, p->error, std::move(p->payload));
    }
    void noteShmem(const std::string& data)
    {
        shmemPackets.push_back(data);
        if (data == kHandshake || data.size() < shmem::kPacketHeaderBytes)
            return;
        const auto h = shmem::loadPacketHeader(reinterpret_cast<const uint8_t*>(data.data()));
        addPacket(h.id, h.flags == shmem::kReplyFlag, h.first, h.second,
                  static_cast<uint16_t>(h.first | (h.second << 8)),
                  data.substr(shmem::kPacketHeaderBytes, h.payloadBytes));
    }

    std::shared_ptr<JDWPCon> inner_;
    Framing framing_;
    std::map<uint32_t, SentCommand> sent_;
    std::string sendPending_;
    std::string recvPending_;
    bool handshakeSeen_ = false;
};

struct Recording {
    std::string name;
    std::shared_ptr<RecordingTransport> transport;
};

// One debugging session: `driver` is called at every stop and returns false
// to let the program run to its end without further stops being handled.
Recording runSession(const std::string& name, Framing framing, const std::string& mainClass,
                     const std::vector<std::string>& targets,
                     const std::vector<std::pair<std::string, std::string>>& breakpoints,
                     const std::function<void(JXMachine&, JDWPHandler&, int)>& atStop)
{
    Recording rec{name, std::make_shared<RecordingTransport>(framing)};
    auto handler = JDWPHandler::create();
    auto log = std::make_shared<EventLog>();
    auto jvm = handler->myJVM();
    jvm->setEvents(log);
    jvm->setTargetClassName(targets);
    handler->setTransportFactory([t = rec.transport] { return std::static_pointer_cast<JDWPCon>(t); });
    const std::string source = "tests/java/" + mainClass + ".java";
    for (const auto& [cls, marker] : breakpoints)
        jvm->addBreakpoint(cls, lineOf(source, "// " + marker));
    bool started = false;
    if (framing == Framing::Socket) {
        handler->bRemoteConnection = true;
        const int port = freeTcpPort();
        started = handler->startVM(javaPath(), socketAgent(port) + " -cp " + testsClassPath() + " " + mainClass, "",
                                   false, true, 0, "127.0.0.1", std::to_string(port), true);
    } else {
        handler->bRemoteConnection = false;
        const std::string shared = "krvrec-" + std::to_string(::getpid());
        started = handler->startVM(javaPath(),
                                   "-agentlib:jdwp=transport=dt_shmem,address=%SharedName%,server=y,suspend=y -cp " +
                                       testsClassPath() + " " + mainClass,
                                   shared, false, true);
    }
    if (!started) {
        std::fprintf(stderr, "%s: the VM did not start\n", name.c_str());
        std::exit(1);
    }
    pumpUntil([&] { return !jvm->VMName.empty(); }, 20000);
    jvm->registerThreadStartAndThreadEnd();
    TickShift clock;
    int stops = 0;
    for (int guard = 0; guard < 60 && jvm->JVMState() != VMDead; ++guard) {
        const size_t seen = log->stops.size();
        if (!pumpUntil([&] { return jvm->JVMState() == VMDead || log->stops.size() > seen; }, 20000))
            break;
        if (jvm->JVMState() == VMDead)
            break;
        atStop(*jvm, *handler, stops++);
        if (jvm->JVMState() == VMSuspend && !jvm->myStepInProcess) {
            // Past the window in which events of the evaluation's own calls
            // are not reported.
            clock.advance(2000);
            jvm->ResumeVM(true);
        }
    }
    pumpUntil([&] { return jvm->JVMState() == VMDead; }, 20000);
    handler->Disconnect();
    handler->setTransportFactory(nullptr);
    handler->attachTransport(nullptr);
    jvm->setEvents(nullptr);
    setCurrentHandler(nullptr);
    std::printf("%s: %zu packets, %zu stops\n", name.c_str(), rec.transport->packets.size(), log->stops.size());
    return rec;
}

void stepperStops(JXMachine& jvm, JDWPHandler& handler, int stop)
{
    jvm.getValue("x");
    jvm.getValue("r");
    jvm.getValue("a");
    jvm.getValue("total");
    jvm.getStackTrace();
    if (stop == 0)
        handler.getAllThreads();
    if (stop < 6) {
        // Into, over and out, so step events of every depth are recorded.
        const JDWPStepDepth depth = stop % 3 == 0 ? SD_INTO : (stop % 3 == 1 ? SD_OVER : SD_OUT);
        jvm.ResumeVMStepByStep(false, 0, depth);
    }
}

void valuesStops(JXMachine& jvm, JDWPHandler&, int)
{
    for (const char* name :
         {"i",        "l", "d",  "f",   "c",       "z",     "by",  "sh",     "str",     "p", "arr", "nothing", "hashes",
          "longText", "v", "va", "col", "counter", "label", "p.x", "p.name", "p.title", "x", "y",   "r",       "this"})
        jvm.getValue(name);
    jvm.getStackTrace();
    jvm.getStackCount();
}

// ---------------------------------------------------------------------------
// Writing the corpus

std::set<std::string> idWindows(const std::string& bytes)
{
    std::set<std::string> out;
    for (size_t i = 0; i + 8 <= bytes.size(); ++i) {
        std::string w = bytes.substr(i, 8);
        if (w != std::string(8, '\0'))
            out.insert(std::move(w));
    }
    return out;
}

// What the session learnt from class-prepare events (a class's signature
// comes with the event, never asked for) as the Signature replies that a
// fresh session asks for instead. OpenJDK 17 uses 8-byte identifiers.
void addPreparedSignatures(std::vector<Recorded>& packets)
{
    std::vector<Recorded> learnt;
    for (const auto& p : packets) {
        if (p.reply || p.set != 64 || p.cmd != 100 || p.payload.size() < 5)
            continue;
        const std::string& s = p.payload;
        const uint32_t count = beAt(s, 1);
        size_t at = 5;
        for (uint32_t i = 0; i < count && at < s.size(); ++i) {
            const int kind = static_cast<unsigned char>(s[at]);
            // kind, request id, thread, type tag, type id, signature, status
            if (kind != 8 || at + 1 + 4 + 8 + 1 + 8 + 4 > s.size())
                break;
            const std::string typeID = s.substr(at + 14, 8);
            const uint32_t length = beAt(s, at + 22);
            if (at + 26 + length + 4 > s.size())
                break;
            Recorded sig;
            sig.reply = true;
            sig.set = 2;
            sig.cmd = 1;
            sig.request = typeID;
            sig.payload = s.substr(at + 22, 4 + length);
            learnt.push_back(std::move(sig));
            at += 26 + length + 4;
        }
    }
    packets.insert(packets.end(), learnt.begin(), learnt.end());
}

// The recorded replies a decoder of `primary` will ask for, followed
// transitively through the answers, breadth first; within a round what
// identifies a class and its code comes first, as the decoders ask for it
// first.
int answerPriority(const Recorded& p)
{
    static const std::vector<std::pair<int, int>> order{{2, 1}, {2, 5}, {6, 1}, {3, 1}, {9, 1}, {6, 2}, {2, 4}};
    for (size_t i = 0; i < order.size(); ++i)
        if (order[i].first == p.set && order[i].second == p.cmd)
            return static_cast<int>(i);
    return static_cast<int>(order.size());
}

std::string knowledge(const std::vector<Recorded>& packets, const std::string& primary, size_t maxAnswers = 40)
{
    std::set<std::string> ids = idWindows(primary);
    std::set<std::pair<std::pair<int, int>, std::string>> taken;
    std::string out;
    size_t count = 0;
    while (count < maxAnswers) {
        std::vector<const Recorded*> round;
        for (const auto& p : packets) {
            if (!p.reply || p.request.size() < 8 || !ids.count(p.request.substr(0, 8)))
                continue;
            if (taken.insert({{p.set, p.cmd}, p.request}).second)
                round.push_back(&p);
        }
        if (round.empty())
            break;
        std::stable_sort(round.begin(), round.end(),
                         [](const Recorded* a, const Recorded* b) { return answerPriority(*a) < answerPriority(*b); });
        for (const Recorded* p : round) {
            if (count >= maxAnswers)
                break;
            out += encodeAnswer(Answer{p->set, p->cmd, p->error, p->request, p->payload});
            ++count;
            for (auto& w : idWindows(p->payload))
                ids.insert(w);
        }
    }
    return out;
}

class CorpusWriter {
public:
    explicit CorpusWriter(std::filesystem::path root) : root_(std::move(root)) {}
    void write(const std::string& target, const std::string& name, const std::string& bytes)
    {
        if (!seen_.insert(target + '\0' + bytes).second)
            return;
        const auto dir = root_ / target;
        std::filesystem::create_directories(dir);
        std::ofstream(dir / name, std::ios::binary) << bytes;
        ++counts_[target];
    }
    void summary() const
    {
        for (const auto& [target, n] : counts_)
            std::printf("%-16s %d seeds\n", target.c_str(), n);
    }

private:
    std::filesystem::path root_;
    std::set<std::string> seen_;
    std::map<std::string, int> counts_;
};

int replyIndex(int set, int cmd)
{
    const auto& pairs = replyPairs();
    for (size_t i = 0; i < pairs.size(); ++i)
        if (pairs[i].first == set && pairs[i].second == cmd)
            return static_cast<int>(i);
    return -1;
}

std::string eventKinds(const std::string& payload)
{
    // The kind of the first event of a composite (policy 1, count 4, kind 1).
    return payload.size() > 5 ? std::to_string(static_cast<unsigned char>(payload[5])) : "x";
}

void writeSeeds(CorpusWriter& out, const Recording& rec)
{
    std::vector<Recorded> packets = rec.transport->packets;
    addPreparedSignatures(packets);
    std::map<std::string, int> perKind;
    int n = 0;
    for (const auto& p : packets) {
        ++n;
        const std::string tag = rec.name + "-" + std::to_string(n);
        if (!p.reply) {
            if (p.set != 64 || p.cmd != 100)
                continue;
            const std::string kind = eventKinds(p.payload);
            if (perKind["event" + kind]++ >= 4)
                continue;
            const std::string name = rec.name.find("values") != std::string::npos ? "p" : "x";
            out.write("events", tag + "-kind" + kind,
                      std::string(1, '\0') + recordOf(p.payload) + recordOf(name) + knowledge(packets, p.payload));
            continue;
        }
        const int index = replyIndex(p.set, p.cmd);
        const std::string pair = std::to_string(p.set) + "_" + std::to_string(p.cmd);
        if (index >= 0 && perKind["reply" + pair]++ < 4) {
            const std::string body =
                recordOf(p.request) + u16be(p.error) + recordOf(p.payload) + knowledge(packets, p.request + p.payload);
            // Asynchronously, and (every other seed) through a waiting call.
            const char option = perKind["reply" + pair] % 2 == 0 ? '\x10' : '\0';
            out.write("replies", tag + "-" + pair, std::string(1, static_cast<char>(index)) + option + body);
        }
        std::string values;
        if ((p.set == 16 && p.cmd == 1) || (p.set == 9 && p.cmd == 2) || (p.set == 2 && p.cmd == 6))
            values = p.payload.size() > 4 ? p.payload.substr(4) : std::string();
        else if ((p.set == 9 && p.cmd == 6) || (p.set == 3 && p.cmd == 3) || (p.set == 16 && p.cmd == 3))
            values = p.payload;
        if (!values.empty() && perKind["value" + std::string(1, values[0])]++ < 6)
            out.write("values", tag + "-tag" + std::to_string(static_cast<unsigned char>(values[0])),
                      std::string(1, '\0') + recordOf(values) + knowledge(packets, values));
    }
}

// Prefixes of the socket stream that end on a packet boundary.
std::vector<std::string> streamPrefixes(const std::string& stream, const std::vector<size_t>& packetCounts)
{
    std::vector<size_t> ends;
    size_t at = 14;
    while (at + 11 <= stream.size()) {
        const uint32_t len = beAt(stream, at);
        if (len < 11 || at + len > stream.size())
            break;
        at += len;
        ends.push_back(at);
    }
    std::vector<std::string> out;
    for (size_t count : packetCounts) {
        if (ends.empty())
            break;
        const size_t end = ends[std::min(count, ends.size()) - 1];
        out.push_back(stream.substr(0, end));
    }
    return out;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: record_corpus <corpus directory>\n");
        return 2;
    }
    std::vector<Recording> recordings;
    const std::vector<std::pair<std::string, std::string>> stepperBreakpoints{
        {"Late", "@twice-body"}, {"Stepper", "@main-deep"}, {"Stepper", "@main-end"}};
    recordings.push_back(runSession("stepper-socket", Framing::Socket, "Stepper", {"Stepper", "Late", "Thrower"},
                                    stepperBreakpoints, stepperStops));
    recordings.push_back(runSession("values-socket", Framing::Socket, "Values", {"Values", "Point"},
                                    {{"Values", "@values-stop"}, {"Values", "@level3"}, {"Point", "@getter"}},
                                    valuesStops));
    recordings.push_back(runSession("stepper-shmem", Framing::SharedMemory, "Stepper", {"Stepper", "Late", "Thrower"},
                                    stepperBreakpoints, stepperStops));

    CorpusWriter out(argv[1]);
    for (const auto& rec : recordings) {
        // The decoders see the same packets on either transport; the
        // shared-memory session seeds its framing target only.
        if (!rec.transport->stream.empty())
            writeSeeds(out, rec);
        if (!rec.transport->stream.empty()) {
            const auto prefixes = streamPrefixes(rec.transport->stream, {3, 12, 40, 100000});
            const char cuts[] = {'\xff', '\0', '\x07', '\x3f'};
            for (size_t i = 0; i < prefixes.size(); ++i)
                out.write("socket_framing", rec.name + "-prefix" + std::to_string(i),
                          std::string(1, cuts[i % 4]) + prefixes[i]);
        }
        const auto& shm = rec.transport->shmemPackets;
        for (size_t count : {3, 12, 40, 100000}) {
            if (shm.empty())
                break;
            std::string input(1, '\0');
            for (size_t i = 0; i < shm.size() && i < count; ++i)
                input += recordOf(shm[i]);
            out.write("shmem_framing", rec.name + "-first" + std::to_string(std::min(count, shm.size())), input);
        }
    }
    out.summary();
    return 0;
}
