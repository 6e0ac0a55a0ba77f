// The scripted session behind the fuzz targets: an in-memory transport that
// answers the session's commands from the fuzz input, and the checks that
// every input must pass besides "no crash": no synchronous call left
// pending once the session is idle, and no pump source left behind when
// the session is gone.
#include "FuzzHarness.h"

#include <cstdio>
#include <cstdlib>

#include "EventLog.h"
#include "ScriptedTransport.h"
#include "ShmemRing.h"
#include "Wire.h"

namespace jdwpkrvdbg::fuzz {

namespace {

constexpr const char* kHandshake = "JDWP-Handshake";
// Whatever the input does, a settle ends after this many idle-free passes;
// more would mean the session spins, which the checks report.
constexpr int kMaxSettlePasses = 200000;

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
}

uint32_t gTicks = 1000;

} // namespace

// ---------------------------------------------------------------------------
// Input layout

uint8_t ByteReader::byte()
{
    return atEnd() ? 0 : data_[pos_++];
}

uint16_t ByteReader::u16()
{
    const uint16_t hi = byte();
    return static_cast<uint16_t>((hi << 8) | byte());
}

std::string ByteReader::take(size_t n)
{
    if (n > left())
        n = left();
    std::string out(reinterpret_cast<const char*>(data_ + pos_), n);
    pos_ += n;
    return out;
}

std::string ByteReader::record()
{
    return take(u16());
}

std::string ByteReader::rest()
{
    return take(left());
}

std::string u16be(uint16_t v)
{
    return testing::be16(v);
}

std::string recordOf(const std::string& bytes)
{
    const size_t n = bytes.size() > 0xffff ? 0xffff : bytes.size();
    return u16be(static_cast<uint16_t>(n)) + bytes.substr(0, n);
}

std::vector<Answer> readAnswers(ByteReader& in, size_t maxAnswers)
{
    std::vector<Answer> out;
    while (!in.atEnd() && out.size() < maxAnswers) {
        Answer a;
        a.set = in.byte();
        a.cmd = in.byte();
        a.error = in.u16();
        a.request = in.record();
        a.payload = in.record();
        out.push_back(std::move(a));
    }
    return out;
}

std::string encodeAnswer(const Answer& answer)
{
    return std::string{static_cast<char>(answer.set), static_cast<char>(answer.cmd)} + u16be(answer.error) +
           recordOf(answer.request) + recordOf(answer.payload);
}

SessionOptions optionsFromByte(uint8_t b, Framing framing)
{
    SessionOptions o;
    o.framing = framing;
    o.idWidth = (b & 0x07) == 0 ? 8 : (b & 0x07);
    o.silentWhenUnknown = (b & 0x08) != 0;
    return o;
}

const std::vector<std::pair<int, int>>& replyPairs()
{
    static const std::vector<std::pair<int, int>> pairs = [] {
        std::vector<std::pair<int, int>> out;
        for (const JDWPCommandEntry& e : commandTable())
            if (e.decode && e.commandSet != CMDSET_Event)
                out.emplace_back(e.commandSet, e.command);
        // Pairs without a reply decoder: the end of the list, after the
        // routed ones, so that a seed's index keeps its pair.
        out.insert(out.end(), {{1, 6}, {1, 15}, {1, 16}, {13, 3}, {64, 100}});
        return out;
    }();
    return pairs;
}

const std::vector<std::string>& targetClasses()
{
    static const std::vector<std::string> names{"Stepper", "Late", "Thrower", "Values", "Point", "Box", "Colors"};
    return names;
}

std::string socketReply(uint32_t id, uint16_t error, const std::string& payload)
{
    return testing::replyPacket(id, payload, error);
}

std::string socketCommand(uint32_t id, int set, int cmd, const std::string& payload)
{
    return testing::commandPacket(id, set, cmd, payload);
}

namespace {
std::string shmemPacket(const shmem::PacketHeader& header, const std::string& payload)
{
    std::string out(shmem::kPacketHeaderBytes, '\0');
    shmem::storePacketHeader(reinterpret_cast<uint8_t*>(out.data()), header);
    return out + payload;
}
} // namespace

std::string shmemReply(uint32_t id, uint16_t error, const std::string& payload)
{
    // The session reads the error code of this framing little-endian.
    return shmemPacket({id, shmem::kReplyFlag, static_cast<uint8_t>(error), static_cast<uint8_t>(error >> 8),
                        static_cast<uint32_t>(payload.size())},
                       payload);
}

std::string shmemCommand(uint32_t id, int set, int cmd, const std::string& payload)
{
    return shmemPacket(
        {id, 0, static_cast<uint8_t>(set), static_cast<uint8_t>(cmd), static_cast<uint32_t>(payload.size())}, payload);
}

std::vector<SentCommand> cutCommands(std::string& pending, Framing framing)
{
    std::vector<SentCommand> out;
    if (framing == Framing::Socket) {
        bool broken = false;
        while (auto p = testing::cutPacket(pending, &broken))
            out.push_back({p->id, p->set, p->cmd, std::move(p->payload)});
        if (broken)
            pending.clear();
        return out;
    }
    while (pending.size() >= shmem::kPacketHeaderBytes) {
        const auto h = shmem::loadPacketHeader(reinterpret_cast<const uint8_t*>(pending.data()));
        if (h.payloadBytes > (1u << 26)) {
            pending.clear();
            break;
        }
        const size_t total = shmem::kPacketHeaderBytes + h.payloadBytes;
        if (pending.size() < total)
            break;
        out.push_back({h.id, h.first, h.second, pending.substr(shmem::kPacketHeaderBytes, h.payloadBytes)});
        pending.erase(0, total);
    }
    return out;
}

// ---------------------------------------------------------------------------
// The in-memory transport

class FuzzTransport : public JDWPCon {
public:
    FuzzTransport(FuzzSession& session, Framing framing, bool echoHandshake)
        : session_(session), framing_(framing), echoHandshake_(echoHandshake)
    {
    }
    ~FuzzTransport() override
    {
        auto& pump = MessagePump::instance();
        if (processIdle_)
            pump.removeIdle(processIdle_);
    }

    void post(std::string bytes) { outbox_.post(std::move(bytes)); }
    void raiseReceive(const std::string& bytes)
    {
        if (connected_ && events_)
            events_->receive(bytes);
    }
    bool quiet() const { return outbox_.empty() && !processIdle_; }

    void ConnectShared(const std::string&) override { connect(); }
    void ConnectSocket(const std::string&, int32_t) override { connect(); }
    bool SendData(const std::string& data) override
    {
        if (!connected_)
            return false;
        if (data == kHandshake) {
            if (echoHandshake_)
                post(data);
            return true;
        }
        pending_ += data;
        for (const auto& c : cutCommands(pending_, framing_))
            session_.onCommand(c);
        return true;
    }
    bool TransportConnected() override { return connected_; }
    void CloseTransport() override
    {
        connected_ = false;
        outbox_.clear();
    }
    std::string StatusText() override { return "fuzz"; }
    bool StartProcess(const std::string&, const std::string&, bool, bool) override { return false; }
    void KillProcess() override {}
    bool ProcessRunning() override { return false; }
    int32_t ProcessHandle() override { return 0; }
    int32_t ProcessID() override { return 0; }
    void EnableProcessEvent(bool enabled) override
    {
        auto& pump = MessagePump::instance();
        if (enabled && !processIdle_) {
            processIdle_ = pump.addIdle([this] {
                if (events_)
                    events_->processevent();
            });
        } else if (!enabled && processIdle_) {
            pump.removeIdle(processIdle_);
            processIdle_ = 0;
        }
    }

private:
    void connect()
    {
        if (connected_)
            return;
        connected_ = true;
        if (events_)
            events_->connected();
    }

    FuzzSession& session_;
    Framing framing_;
    bool echoHandshake_;
    bool connected_ = false;
    std::string pending_;
    testing::Outbox outbox_{[this](const std::string& bytes) { raiseReceive(bytes); }};
    int processIdle_ = 0;
};

// ---------------------------------------------------------------------------
// The session

FuzzSession::FuzzSession(const SessionOptions& options) : options_(options)
{
    baselineSources_ = MessagePump::instance().sourceCount();
    // Every reading of the clock moves it 50 ms on: a wait that nobody ends
    // gives up after a few dozen passes instead of seconds.
    gTicks = 1000;
    setTickSource([] { return gTicks += 50; });
    // A pass with an idle callback never blocks, so a wait that pumps costs
    // no real time either.
    keepBusy_ = MessagePump::instance().addIdle([] {});
    handler_ = JDWPHandler::create();
    jvm_ = handler_->myJVM();
    if (std::getenv("JDWPKRVDBG_FUZZ_TRACE")) {
        auto trace = std::make_shared<testing::EventLog>();
        trace->echo = true;
        jvm_->setEvents(trace);
    }
    transport_ = std::make_shared<FuzzTransport>(*this, options_.framing, options_.openSession);
    handler_->setTransportFactory([t = transport_] { return std::static_pointer_cast<JDWPCon>(t); });
    const bool socket = options_.framing == Framing::Socket;
    handler_->bRemoteConnection = socket;
    handler_->startVM("", "", socket ? "" : "fuzz", false, false, 0, "127.0.0.1", "8000", socket);
    settle();
    opened_ = true;
}

FuzzSession::~FuzzSession()
{
    jvm_->setEvents(nullptr);
    handler_->attachTransport(nullptr);
    handler_->setTransportFactory(nullptr);
    setCurrentHandler(nullptr);
    jvm_.reset();
    handler_.reset();
    transport_.reset();
    MessagePump::instance().removeIdle(keepBusy_);
    setTickSource(nullptr);
    if (MessagePump::instance().sourceCount() != baselineSources_)
        fail("a pump source outlived the session");
}

void FuzzSession::settle()
{
    auto& pump = MessagePump::instance();
    int idle = 0;
    for (int i = 0; i < kMaxSettlePasses && idle < 2; ++i) {
        // The session's own callbacks, not counting the keep-busy idle.
        const int ran = pump.pumpOnce(0) - 1;
        idle = (ran <= 0 && transport_->quiet()) ? idle + 1 : 0;
    }
    if (idle < 2)
        fail("the session never became idle");
    if (handler_->pendingSyncCount() != 0)
        fail("a synchronous call is still pending on an idle session");
}

void FuzzSession::deliver(const std::string& bytes)
{
    transport_->raiseReceive(bytes);
    settle();
}

void FuzzSession::sendUnanswered(const std::shared_ptr<JDWPMessage>& request)
{
    unansweredId_ = static_cast<uint32_t>(request->myID);
    handler_->sendAsync(request);
}

std::string FuzzSession::frameReply(uint32_t id, uint16_t error, const std::string& payload) const
{
    return options_.framing == Framing::Socket ? socketReply(id, error, payload) : shmemReply(id, error, payload);
}

std::string FuzzSession::frameCommand(uint32_t id, int set, int cmd, const std::string& payload) const
{
    return options_.framing == Framing::Socket ? socketCommand(id, set, cmd, payload)
                                               : shmemCommand(id, set, cmd, payload);
}

void FuzzSession::openingAnswer(const SentCommand& command, std::string& payload, uint16_t& error)
{
    error = 0;
    payload = testing::openingAnswer(command.set, command.cmd, nextRequestId_, options_.idWidth);
}

bool FuzzSession::answerFromInput(const SentCommand& command, std::string& payload, uint16_t& error)
{
    Answer* loose = nullptr;
    for (auto& a : answers_) {
        if (a.set != command.set || a.cmd != command.cmd)
            continue;
        if (a.request == command.payload) {
            // The same question gets the same answer again.
            a.used = true;
            payload = a.payload;
            error = a.error;
            return true;
        }
        if (!loose && !a.used)
            loose = &a;
    }
    if (loose) {
        loose->used = true;
        payload = loose->payload;
        error = loose->error;
        return true;
    }
    if (options_.silentWhenUnknown)
        return false;
    openingAnswer(command, payload, error);
    return true;
}

void FuzzSession::onCommand(const SentCommand& command)
{
    std::string payload;
    uint16_t error = 0;
    if (std::getenv("JDWPKRVDBG_FUZZ_TRACE"))
        std::fprintf(stderr, "  -> %d/%d id %u, %zu bytes\n", command.set, command.cmd, command.id,
                     command.payload.size());
    if (!opened_ && options_.openSession) {
        openingAnswer(command, payload, error);
    } else if (command.id == unansweredId_) {
        return;
    } else if (!options_.openSession && handler_->pendingSyncCount() == 0) {
        // The input itself carries the replies to the session's own commands.
        return;
    } else if (!answerFromInput(command, payload, error)) {
        return;
    }
    transport_->post(frameReply(command.id, error, payload));
}

} // namespace jdwpkrvdbg::fuzz
