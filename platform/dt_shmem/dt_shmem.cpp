// libdt_shmem.so: the VM side of the shared-memory JDWP transport on Linux.
// The JDK's JDWP agent loads it for -agentlib:jdwp=transport=dt_shmem,
// address=<name>,server=y. It creates the channel (ShmemRing.h), waits for
// the debugger to attach and exchange "JDWP-Handshake", then turns records
// into jdwpPacket structures and back:
// the packet record of ShmemRing.h, the error code written big-endian.
// Only server mode exists: the debugger always attaches to a listening VM.
#include <jdwpTransport.h>

#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ShmemRing.h"

namespace {

using namespace jdwpkrvdbg::shmem;

constexpr size_t kShmemHeaderSize = kPacketHeaderBytes;
// No spinning in ReadPacket: the agent's reader thread comes back here
// right after handing a command to its command thread, and on a small
// machine a spinning reader takes the very core that thread needs to answer
// (measured: a 10 us spin tripled the round trip on two cores).
constexpr int64_t kReadSpinUs = 0;

jdwpTransportCallback* gCallback = nullptr;
std::mutex gLoadMutex;
bool gLoaded = false;

thread_local std::string tLastError;

jdwpTransportError fail(jdwpTransportError code, std::string text)
{
    tLastError = std::move(text);
    return code;
}

// One channel: listening until a debugger attached and shook hands, then the connection.
struct Channel {
    Channel(Mapping&& m, std::string n) : endpoint(std::move(m), Side::Vm), name(std::move(n)) {}
    Endpoint endpoint;
    std::string name;
    std::mutex readMutex;
    std::mutex writeMutex;
    std::vector<std::string> pending; // records pulled but not yet handed out, oldest first
    size_t pendingAt = 0;

    void shutDown()
    {
        endpoint.markClosed();
        endpoint.mapping().unlinkIfStillOurs(name);
    }

    // Next record, waiting up to deadlineUs (0: no limit). Called with readMutex held.
    WaitResult nextRecord(std::string& record, int64_t deadlineUs, bool& corrupt)
    {
        corrupt = false;
        for (;;) {
            if (pendingAt < pending.size()) {
                record = std::move(pending[pendingAt++]);
                if (pendingAt == pending.size()) {
                    pending.clear();
                    pendingAt = 0;
                }
                return WaitResult::Ready;
            }
            if (!endpoint.pull(pending)) {
                corrupt = true;
                return WaitResult::Stopped;
            }
            if (!pending.empty())
                continue;
            RingReader& reader = endpoint.reader();
            WaitResult r = waitFor(
                endpoint.inRing().dataSeq, endpoint.inRing().readersWaiting, [&] { return reader.available() > 0; },
                [&] { return endpoint.stopped(); }, kReadSpinUs, deadlineUs);
            if (r == WaitResult::Ready)
                continue;
            // Whatever the peer wrote before it went away is still delivered.
            if (!endpoint.pull(pending))
                corrupt = true;
            if (!pending.empty())
                continue;
            return r;
        }
    }
};

std::mutex gStateMutex;
std::shared_ptr<Channel> gListening;
std::shared_ptr<Channel> gOpen;
// Set by the exit handler before it tidies up. A channel published after
// that (the agent listens again as the VM goes down) removes its own name.
bool gExiting = false; // guarded by gStateMutex

std::shared_ptr<Channel> openChannelRef()
{
    std::lock_guard<std::mutex> lock(gStateMutex);
    return gOpen;
}

int64_t deadlineFrom(jlong timeoutMs)
{
    return timeoutMs > 0 ? nowUs() + int64_t(timeoutMs) * 1000 : 0;
}

char* allocText(const std::string& text)
{
    if (!gCallback)
        return nullptr;
    char* p = static_cast<char*>(gCallback->alloc(jint(text.size() + 1)));
    if (p)
        std::memcpy(p, text.c_str(), text.size() + 1);
    return p;
}

// ---------------------------------------------------------------------------

jdwpTransportError JNICALL getCapabilities(jdwpTransportEnv*, JDWPTransportCapabilities* caps)
{
    if (!caps)
        return fail(JDWPTRANSPORT_ERROR_ILLEGAL_ARGUMENT, "capabilities pointer is NULL");
    std::memset(caps, 0, sizeof(*caps));
    caps->can_timeout_attach = 0;
    caps->can_timeout_accept = 1;
    caps->can_timeout_handshake = 1;
    return JDWPTRANSPORT_ERROR_NONE;
}

jdwpTransportError JNICALL attach(jdwpTransportEnv*, const char*, jlong, jlong)
{
    return fail(JDWPTRANSPORT_ERROR_ILLEGAL_ARGUMENT,
                "dt_shmem only listens (server=y): the debugger attaches to the VM");
}

jdwpTransportError JNICALL startListening(jdwpTransportEnv*, const char* address, char** actual)
try {
    if (!address || !*address)
        return fail(JDWPTRANSPORT_ERROR_ILLEGAL_ARGUMENT,
                    "dt_shmem needs a shared-memory name: address=<name> (letters, digits, '.', '_', '-')");
    std::string name(address);
    {
        std::lock_guard<std::mutex> lock(gStateMutex);
        if (gListening)
            return fail(JDWPTRANSPORT_ERROR_ILLEGAL_STATE, "already listening on \"" + gListening->name + "\"");
    }
    Mapping mapping;
    std::string error;
    if (!createChannel(name, mapping, error))
        return fail(JDWPTRANSPORT_ERROR_ILLEGAL_ARGUMENT, error);
    auto channel = std::make_shared<Channel>(std::move(mapping), name);
    if (actual) {
        *actual = allocText(name);
        if (!*actual) {
            channel->shutDown();
            return fail(JDWPTRANSPORT_ERROR_OUT_OF_MEMORY, "out of memory for the listening address");
        }
    }
    {
        std::lock_guard<std::mutex> lock(gStateMutex);
        if (!gExiting) {
            gListening = std::move(channel);
            return JDWPTRANSPORT_ERROR_NONE;
        }
    }
    channel->shutDown();
    return fail(JDWPTRANSPORT_ERROR_IO_ERROR, "the VM is exiting");
} catch (...) {
    return fail(JDWPTRANSPORT_ERROR_OUT_OF_MEMORY, "out of memory while creating the channel");
}

jdwpTransportError JNICALL stopListening(jdwpTransportEnv*)
{
    std::shared_ptr<Channel> channel;
    {
        std::lock_guard<std::mutex> lock(gStateMutex);
        channel = std::move(gListening);
        gListening.reset();
    }
    if (channel)
        channel->shutDown();
    return JDWPTRANSPORT_ERROR_NONE;
}

// Replaces a channel whose would-be debugger failed the handshake or died,
// so the next debugger finds the name again.
bool renewListening(std::shared_ptr<Channel>& channel, std::string& error)
{
    std::string name = channel->name;
    channel->shutDown();
    {
        std::lock_guard<std::mutex> lock(gStateMutex);
        if (gListening != channel) // StopListening came in between
            return false;
    }
    Mapping mapping;
    if (!createChannel(name, mapping, error))
        return false;
    auto fresh = std::make_shared<Channel>(std::move(mapping), name);
    {
        std::lock_guard<std::mutex> lock(gStateMutex);
        if (gListening == channel && !gExiting) {
            gListening = fresh;
            channel = std::move(fresh);
            return true;
        }
    }
    fresh->shutDown();
    return false;
}

jdwpTransportError JNICALL accept(jdwpTransportEnv*, jlong acceptTimeout, jlong handshakeTimeout)
try {
    std::shared_ptr<Channel> channel;
    {
        std::lock_guard<std::mutex> lock(gStateMutex);
        channel = gListening;
    }
    if (!channel)
        return fail(JDWPTRANSPORT_ERROR_ILLEGAL_STATE, "not listening");
    int64_t acceptDeadline = deadlineFrom(acceptTimeout);
    for (;;) {
        SharedHeader& h = channel->endpoint.header();
        WaitResult r = waitFor(
            h.attachSeq, h.attachWaiters, [&] { return (h.state.load() & kDebuggerAttached) != 0; },
            [&] { return channel->endpoint.selfClosed(); }, 0, acceptDeadline);
        if (r == WaitResult::TimedOut) {
            return fail(JDWPTRANSPORT_ERROR_TIMEOUT, "no debugger attached to \"" + channel->name + "\" in time");
        }
        if (r == WaitResult::Stopped)
            return fail(JDWPTRANSPORT_ERROR_IO_ERROR, "stopped listening on \"" + channel->name + "\"");
        pid_t debugger = h.debuggerPid.load();
        channel->endpoint.watchPeer(debugger);
        // The debugger unlinks the name as it attaches; this covers one that died first.
        channel->endpoint.mapping().unlinkIfStillOurs(channel->name);

        int64_t handshakeDeadline = deadlineFrom(handshakeTimeout);
        std::string record;
        bool corrupt = false;
        WaitResult hr;
        {
            std::lock_guard<std::mutex> lock(channel->readMutex);
            hr = channel->nextRecord(record, handshakeDeadline, corrupt);
        }
        std::string problem;
        if (hr == WaitResult::Ready && record == kHandshake) {
            if (channel->endpoint.write(kHandshake)) {
                std::lock_guard<std::mutex> lock(gStateMutex);
                if (gListening == channel) {
                    gListening.reset();
                    gOpen = channel;
                    channel->endpoint.header().state.fetch_and(~uint32_t(kVmListening));
                    return JDWPTRANSPORT_ERROR_NONE;
                }
                problem = "stopped listening during the handshake";
            } else {
                problem = "the debugger went away during the handshake";
            }
        } else if (hr == WaitResult::Ready) {
            problem = "handshake failed: the debugger sent " + std::to_string(record.size()) +
                      " bytes that are not \"JDWP-Handshake\"";
        } else if (hr == WaitResult::TimedOut) {
            problem = "handshake timed out";
        } else {
            problem = corrupt ? "handshake failed: corrupt data on the channel"
                              : "the debugger went away before the handshake";
        }
        // Like the socket transport: a failed handshake costs that debugger
        // its connection, and we go on listening for the next one.
        std::string error;
        if (!renewListening(channel, error))
            return fail(JDWPTRANSPORT_ERROR_IO_ERROR, problem + (error.empty() ? "" : "; " + error));
        tLastError = problem;
    }
} catch (...) {
    return fail(JDWPTRANSPORT_ERROR_OUT_OF_MEMORY, "out of memory while accepting");
}

jboolean JNICALL isOpen(jdwpTransportEnv*)
{
    std::shared_ptr<Channel> channel = openChannelRef();
    if (!channel)
        return JNI_FALSE;
    return channel->endpoint.selfClosed() || channel->endpoint.peerGone() ? JNI_FALSE : JNI_TRUE;
}

jdwpTransportError JNICALL closeTransport(jdwpTransportEnv*)
{
    std::shared_ptr<Channel> open;
    std::shared_ptr<Channel> listening;
    {
        std::lock_guard<std::mutex> lock(gStateMutex);
        open = std::move(gOpen);
        gOpen.reset();
        listening = std::move(gListening);
        gListening.reset();
    }
    // A ReadPacket blocked on the channel holds its own reference; the
    // mapping goes when that call has seen the closed flag and returned.
    if (open)
        open->shutDown();
    if (listening)
        listening->shutDown();
    return JDWPTRANSPORT_ERROR_NONE;
}

jdwpTransportError JNICALL readPacket(jdwpTransportEnv*, jdwpPacket* packet)
try {
    if (!packet)
        return fail(JDWPTRANSPORT_ERROR_ILLEGAL_ARGUMENT, "packet pointer is NULL");
    std::memset(packet, 0, sizeof(*packet));
    std::shared_ptr<Channel> channel = openChannelRef();
    if (!channel)
        return JDWPTRANSPORT_ERROR_NONE; // len 0: the connection is closed
    std::string record;
    bool corrupt = false;
    WaitResult r;
    {
        std::lock_guard<std::mutex> lock(channel->readMutex);
        r = channel->nextRecord(record, 0, corrupt);
    }
    if (r != WaitResult::Ready) {
        if (corrupt)
            return fail(JDWPTRANSPORT_ERROR_IO_ERROR, "corrupt data on the shared-memory channel");
        return JDWPTRANSPORT_ERROR_NONE;
    }
    const auto* bytes = reinterpret_cast<const uint8_t*>(record.data());
    if (record.size() < kShmemHeaderSize)
        return fail(JDWPTRANSPORT_ERROR_IO_ERROR,
                    "malformed packet: " + std::to_string(record.size()) + " bytes, fewer than the 11 of a header");
    const PacketHeader header = loadPacketHeader(bytes);
    const uint32_t payload = header.payloadBytes;
    if (payload != record.size() - kShmemHeaderSize || payload > uint32_t(INT32_MAX) - kShmemHeaderSize)
        return fail(JDWPTRANSPORT_ERROR_IO_ERROR, "malformed packet: payload length " + std::to_string(payload) +
                                                      " but " + std::to_string(record.size() - kShmemHeaderSize) +
                                                      " bytes follow the header");
    jbyte* data = nullptr;
    if (payload > 0) {
        data = static_cast<jbyte*>(gCallback->alloc(jint(payload)));
        if (!data)
            return fail(JDWPTRANSPORT_ERROR_OUT_OF_MEMORY,
                        "out of memory for a packet of " + std::to_string(payload) + " bytes");
        std::memcpy(data, bytes + kShmemHeaderSize, payload);
    }
    jint len = jint(kShmemHeaderSize + payload);
    jint id = jint(header.id);
    jbyte flags = jbyte(header.flags);
    if (uint8_t(flags) & JDWPTRANSPORT_FLAGS_REPLY) {
        packet->type.reply.len = len;
        packet->type.reply.id = id;
        packet->type.reply.flags = flags;
        packet->type.reply.errorCode = jshort(uint16_t(header.first) << 8 | header.second);
        packet->type.reply.data = data;
    } else {
        packet->type.cmd.len = len;
        packet->type.cmd.id = id;
        packet->type.cmd.flags = flags;
        packet->type.cmd.cmdSet = jbyte(header.first);
        packet->type.cmd.cmd = jbyte(header.second);
        packet->type.cmd.data = data;
    }
    return JDWPTRANSPORT_ERROR_NONE;
} catch (...) {
    return fail(JDWPTRANSPORT_ERROR_OUT_OF_MEMORY, "out of memory while reading a packet");
}

jdwpTransportError JNICALL writePacket(jdwpTransportEnv*, const jdwpPacket* packet)
{
    if (!packet)
        return fail(JDWPTRANSPORT_ERROR_ILLEGAL_ARGUMENT, "packet pointer is NULL");
    jint len = packet->type.cmd.len;
    if (len < jint(kShmemHeaderSize))
        return fail(JDWPTRANSPORT_ERROR_ILLEGAL_ARGUMENT, "packet length " + std::to_string(len) + " is below 11");
    uint32_t payload = uint32_t(len) - kShmemHeaderSize;
    const jbyte* data = packet->type.cmd.data;
    if (payload > 0 && !data)
        return fail(JDWPTRANSPORT_ERROR_ILLEGAL_ARGUMENT, "packet has a payload length but no data");
    uint32_t id = uint32_t(packet->type.cmd.id);
    uint8_t flags = uint8_t(packet->type.cmd.flags);
    PacketHeader fields{id, flags, uint8_t(packet->type.cmd.cmdSet), uint8_t(packet->type.cmd.cmd), payload};
    if (flags & JDWPTRANSPORT_FLAGS_REPLY) {
        uint16_t code = uint16_t(packet->type.reply.errorCode);
        fields.first = uint8_t(code >> 8);
        fields.second = uint8_t(code);
    }
    uint8_t header[kShmemHeaderSize];
    storePacketHeader(header, fields);

    std::shared_ptr<Channel> channel = openChannelRef();
    if (!channel)
        return fail(JDWPTRANSPORT_ERROR_IO_ERROR, "the connection is closed");
    Piece pieces[2] = {{header, sizeof(header)}, {data, payload}};
    bool ok;
    {
        std::lock_guard<std::mutex> lock(channel->writeMutex);
        ok = channel->endpoint.write(pieces, 2);
    }
    if (!ok)
        return fail(JDWPTRANSPORT_ERROR_IO_ERROR, "the debugger has closed the connection");
    return JDWPTRANSPORT_ERROR_NONE;
}

jdwpTransportError JNICALL getLastError(jdwpTransportEnv*, char** error)
try {
    if (!error)
        return JDWPTRANSPORT_ERROR_ILLEGAL_ARGUMENT;
    *error = nullptr;
    if (tLastError.empty())
        return JDWPTRANSPORT_ERROR_MSG_NOT_AVAILABLE;
    *error = allocText(tLastError);
    return *error ? JDWPTRANSPORT_ERROR_NONE : JDWPTRANSPORT_ERROR_OUT_OF_MEMORY;
} catch (...) {
    return JDWPTRANSPORT_ERROR_OUT_OF_MEMORY;
}

jdwpTransportError JNICALL setTransportConfiguration(jdwpTransportEnv*, jdwpTransportConfiguration*)
{
    // allowed_peers names network peers; a shared-memory object is guarded by its 0600 mode instead.
    return JDWPTRANSPORT_ERROR_NONE;
}

const jdwpTransportNativeInterface_ kInterface = {
    nullptr, getCapabilities, attach,     startListening, stopListening, accept,
    isOpen,  closeTransport,  readPacket, writePacket,    getLastError,  setTransportConfiguration,
};

jdwpTransportEnv gEnv{&kInterface};

// A VM that ends while listening (server=y listens again after every
// session) would otherwise leave its name behind in /dev/shm. The lock is
// only ever held for a few assignments, so waiting for it here is safe.
void unlinkAtExit()
{
    std::lock_guard<std::mutex> lock(gStateMutex);
    gExiting = true;
    if (gListening)
        gListening->endpoint.mapping().unlinkIfStillOurs(gListening->name);
    if (gOpen)
        gOpen->endpoint.mapping().unlinkIfStillOurs(gOpen->name);
}

} // namespace

extern "C" JNIEXPORT jint JNICALL jdwpTransport_OnLoad(JavaVM*, jdwpTransportCallback* callback, jint version,
                                                       jdwpTransportEnv** env)
{
    if (version != JDWPTRANSPORT_VERSION_1_0 && version != JDWPTRANSPORT_VERSION_1_1)
        return JNI_EVERSION;
    if (!callback || !env)
        return JNI_ERR;
    std::lock_guard<std::mutex> lock(gLoadMutex);
    if (gLoaded)
        return JNI_EEXIST;
    gLoaded = true;
    gCallback = callback;
    std::atexit(unlinkAtExit);
    *env = &gEnv;
    return JNI_OK;
}
