// The shared-memory JDWP channel as both ends see it: the layout of the POSIX
// shared-memory object, one single-producer/single-consumer byte ring per
// direction carrying length-prefixed records, futex wake-ups on the shared
// mapping, and the liveness watch on the other process.
//
// Header-only because two binaries use it: the VM-side transport library
// libdt_shmem.so (loaded by the JDWP agent) and the debugger-side
// ShmemChannel in the main library. Both must agree on every byte here, so
// any change to the layout bumps kLayoutVersion.
//
// Object: "/krvdbg-<name>", created by the VM side with mode 0600, size
// kChannelBytes = one page of header + the ring to the debugger + the ring
// to the VM. A record is LE32 length + that many bytes; a record may be
// larger than a ring, the writer then streams it through in chunks as the
// reader frees space.
#pragma once

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include "jdwpkrvdbg/support/NonCopyable.h"
#include <fcntl.h>
#include <linux/futex.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

namespace jdwpkrvdbg::shmem {

constexpr uint32_t kMagic = 0x4B524D53u; // "SMRK" in memory
constexpr uint32_t kLayoutVersion = 1;
constexpr uint32_t kRingBytes = 1u << 20; // power of two: positions are masked, never bounds-checked
constexpr size_t kHeaderBytes = 4096;
constexpr size_t kChannelBytes = kHeaderBytes + 2 * size_t(kRingBytes);
constexpr size_t kMaxNameLength = 200;
// Longer records than this mean a corrupt stream, not a big packet.
constexpr uint32_t kMaxRecordBytes = 1u << 30;
// A sleeper wakes up this often to look whether the other process still lives.
constexpr int kLivenessSliceMs = 100;
// An object without a valid header older than this was left by a creator
// that died while setting it up.
constexpr int kHalfBuiltGraceSeconds = 2;
constexpr std::string_view kHandshake = "JDWP-Handshake";
constexpr const char* kObjectPrefix = "/krvdbg-";

// A JDWP packet travels as one record: id LE32, flags, then (command set,
// command) of a command or the error code of a reply, payload length LE32,
// payload. Only id and length are little-endian; the two middle bytes are
// whatever the sender put there (the JDK writes the error code big-endian).
constexpr size_t kPacketHeaderBytes = 11;
constexpr uint8_t kReplyFlag = 0x80;

struct PacketHeader {
    uint32_t id = 0;
    uint8_t flags = 0;
    uint8_t first = 0;  // command set, or the error code's first byte
    uint8_t second = 0; // command, or the error code's second byte
    uint32_t payloadBytes = 0;
};

inline void storeLe32(uint8_t* p, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        p[i] = uint8_t(v >> (8 * i));
}

inline uint32_t loadLe32(const uint8_t* p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

inline void storePacketHeader(uint8_t* out, const PacketHeader& h)
{
    storeLe32(out, h.id);
    out[4] = h.flags;
    out[5] = h.first;
    out[6] = h.second;
    storeLe32(out + 7, h.payloadBytes);
}

// `in` holds at least kPacketHeaderBytes.
inline PacketHeader loadPacketHeader(const uint8_t* in)
{
    return {loadLe32(in), in[4], in[5], in[6], loadLe32(in + 7)};
}

enum StateFlag : uint32_t {
    kVmListening = 1u << 0,
    kDebuggerAttached = 1u << 1,
    kVmClosed = 1u << 2,
    kDebuggerClosed = 1u << 3,
};

static_assert(std::atomic<uint64_t>::is_always_lock_free && std::atomic<uint32_t>::is_always_lock_free &&
                  std::atomic<int32_t>::is_always_lock_free,
              "cross-process atomics must be lock-free");

// Positions count bytes ever written/consumed, so head - tail is the fill
// level without a full/empty ambiguity. The writer's and the reader's words
// sit on separate cache lines so the two sides do not bounce one line.
struct alignas(64) RingControl {
    std::atomic<uint64_t> head;
    std::atomic<uint32_t> dataSeq; // futex word: bumped after every publish
    std::atomic<uint32_t> readersWaiting;
    alignas(64) std::atomic<uint64_t> tail;
    std::atomic<uint32_t> spaceSeq; // futex word: bumped after every consume
    std::atomic<uint32_t> writersWaiting;
};

struct SharedHeader {
    std::atomic<uint32_t> magic; // stored last by the creator: a valid magic means a complete header
    uint32_t layoutVersion;
    uint32_t ringBytes;
    uint32_t headerBytes;
    std::atomic<uint32_t> state;     // StateFlag bits
    std::atomic<uint32_t> attachSeq; // futex word: bumped when a debugger attaches
    std::atomic<uint32_t> attachWaiters;
    std::atomic<int32_t> vmPid;
    std::atomic<int32_t> debuggerPid;
    RingControl toDebugger;
    RingControl toVm;
};
static_assert(sizeof(SharedHeader) <= kHeaderBytes);

enum class Side { Vm, Debugger };

// ---------------------------------------------------------------------------
// Small system helpers

inline int64_t nowUs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

inline void cpuRelax()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#endif
}

// Shared (not FUTEX_PRIVATE) operations: the word lives in a mapping of two processes.
inline void futexWait(std::atomic<uint32_t>& word, uint32_t expected, int timeoutMs)
{
    timespec ts{timeoutMs / 1000, long(timeoutMs % 1000) * 1000000L};
    syscall(SYS_futex, reinterpret_cast<uint32_t*>(&word), FUTEX_WAIT, expected, &ts, nullptr, 0);
}

inline void futexWakeAll(std::atomic<uint32_t>& word)
{
    syscall(SYS_futex, reinterpret_cast<uint32_t*>(&word), FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

inline void bumpAndWake(std::atomic<uint32_t>& word)
{
    word.fetch_add(1, std::memory_order_seq_cst);
    futexWakeAll(word);
}

inline int openPidFd(pid_t pid)
{
#ifdef SYS_pidfd_open
    return int(syscall(SYS_pidfd_open, pid, 0));
#else
    errno = ENOSYS;
    return -1;
#endif
}

// A pidfd also turns readable for a zombie, which kill(pid, 0) still finds:
// the debugger is usually the VM's parent and may not have reaped it yet.
inline bool processGone(pid_t pid)
{
    if (pid <= 0)
        return true;
    int fd = openPidFd(pid);
    if (fd >= 0) {
        pollfd p{fd, POLLIN, 0};
        bool gone = poll(&p, 1, 0) > 0;
        ::close(fd);
        return gone;
    }
    if (errno == ESRCH)
        return true;
    return kill(pid, 0) != 0 && errno == ESRCH;
}

// Watches one process; gone() may be called from several threads.
class PeerWatch : NonCopyable {
public:
    PeerWatch() = default;
    ~PeerWatch() { reset(); }

    void watch(pid_t pid)
    {
        reset();
        pid_ = pid;
        if (pid <= 0) {
            gone_ = true;
            return;
        }
        pidfd_ = openPidFd(pid);
        if (pidfd_ < 0 && errno == ESRCH)
            gone_ = true;
    }

    bool gone()
    {
        if (gone_.load(std::memory_order_relaxed))
            return true;
        bool dead = false;
        if (pidfd_ >= 0) {
            pollfd p{pidfd_, POLLIN, 0};
            dead = poll(&p, 1, 0) > 0;
        } else if (pid_ > 0) {
            dead = kill(pid_, 0) != 0 && errno == ESRCH;
        }
        if (dead)
            gone_ = true;
        return dead;
    }

    // What an earlier gone() found, without a system call.
    bool knownGone() const { return gone_.load(std::memory_order_relaxed); }

    void reset()
    {
        if (pidfd_ >= 0)
            ::close(pidfd_);
        pidfd_ = -1;
        pid_ = 0;
        gone_ = false;
    }

private:
    pid_t pid_ = 0;
    int pidfd_ = -1;
    std::atomic<bool> gone_{false};
};

// ---------------------------------------------------------------------------
// Names

inline bool validName(const std::string& name, std::string& why)
{
    if (name.empty()) {
        why = "the shared-memory name is empty";
        return false;
    }
    if (name.size() > kMaxNameLength) {
        why = "the shared-memory name is " + std::to_string(name.size()) + " characters long; at most " +
              std::to_string(kMaxNameLength) + " are allowed";
        return false;
    }
    for (unsigned char c : name) {
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
                  c == '-';
        if (!ok) {
            why = "the shared-memory name \"" + name + "\" contains the character ";
            if (c >= 0x20 && c < 0x7F)
                why += std::string("'") + char(c) + "'";
            else
                why += "with code " + std::to_string(unsigned(c));
            why += "; only letters, digits, '.', '_' and '-' are allowed";
            return false;
        }
    }
    why.clear();
    return true;
}

inline std::string objectName(const std::string& name)
{
    return kObjectPrefix + name;
}

// The object for a channel name; false, with why in error, when the name cannot be one.
inline bool checkedObjectName(const std::string& name, std::string& obj, std::string& error)
{
    std::string why;
    if (!validName(name, why)) {
        error = why;
        return false;
    }
    obj = objectName(name);
    return true;
}

// ---------------------------------------------------------------------------
// Ring ends. Positions are masked with kRingBytes - 1, so no value a broken
// peer leaves in the control words can make us touch memory outside the ring.

// What both ends share. Each end owns one position (the writer the head,
// the reader the tail): only it stores it, so it loads it relaxed, and it
// acquires the other's, so the bytes behind that position are visible.
template <bool kOwnsHead>
class RingEnd {
public:
    RingEnd() = default;
    RingEnd(RingControl* control, uint8_t* data) : c_(control), data_(data) {}

    // True when the peer left positions that cannot be (more unread bytes than the ring holds).
    bool broken() const { return unread() > kRingBytes; }
    RingControl& control() const { return *c_; }

protected:
    // Bytes this end can move now: free space for the writer, unread bytes for the reader.
    size_t movable() const
    {
        uint64_t u = unread();
        if (u > kRingBytes)
            return 0;
        return size_t(kOwnsHead ? kRingBytes - u : u);
    }

    // Moves what fits of n bytes and advances this end's position.
    // copy(at, first, n) copies n bytes at ring offset at, the first of them before the wrap.
    template <typename Copy>
    size_t advance(size_t n, Copy copy)
    {
        n = std::min(n, movable());
        if (n == 0)
            return 0;
        std::atomic<uint64_t>& own = kOwnsHead ? c_->head : c_->tail;
        uint64_t pos = own.load(std::memory_order_relaxed);
        size_t at = size_t(pos & (kRingBytes - 1));
        copy(at, std::min(n, kRingBytes - at), n);
        own.store(pos + n, std::memory_order_release);
        return n;
    }

    // Counts one more change on a futex word and wakes its waiters, if any wait.
    static void announce(std::atomic<uint32_t>& seq, const std::atomic<uint32_t>& waiting)
    {
        seq.fetch_add(1, std::memory_order_seq_cst);
        if (waiting.load(std::memory_order_seq_cst) != 0)
            futexWakeAll(seq);
    }

    RingControl* c_ = nullptr;
    uint8_t* data_ = nullptr;

private:
    uint64_t unread() const
    {
        constexpr auto head = kOwnsHead ? std::memory_order_relaxed : std::memory_order_acquire;
        constexpr auto tail = kOwnsHead ? std::memory_order_acquire : std::memory_order_relaxed;
        return c_->head.load(head) - c_->tail.load(tail);
    }
};

class RingWriter : public RingEnd<true> {
public:
    using RingEnd::RingEnd;

    size_t freeSpace() const { return movable(); }

    // Copies what fits now; the reader sees it after publish().
    size_t writeSome(const void* src, size_t n)
    {
        const auto* bytes = static_cast<const uint8_t*>(src);
        return advance(n, [&](size_t at, size_t first, size_t all) {
            std::memcpy(data_ + at, bytes, first);
            std::memcpy(data_, bytes + first, all - first);
        });
    }

    void publish() { announce(c_->dataSeq, c_->readersWaiting); }
};

class RingReader : public RingEnd<false> {
public:
    using RingEnd::RingEnd;

    size_t available() const { return movable(); }

    size_t readSome(void* dst, size_t n)
    {
        auto* bytes = static_cast<uint8_t*>(dst);
        return advance(n, [&](size_t at, size_t first, size_t all) {
            std::memcpy(bytes, data_ + at, first);
            std::memcpy(bytes + first, data_, all - first);
        });
    }

    // Tells a writer blocked on a full ring that space was freed.
    void release() { announce(c_->spaceSeq, c_->writersWaiting); }
};

// Cuts the byte stream of one ring back into records. Keeps a partly
// received record between calls, so a record larger than the ring is
// assembled while the writer streams the rest in.
class RecordAssembler {
public:
    // Appends every record completed by the bytes available now. False when
    // the stream is corrupt (a length beyond kMaxRecordBytes, or broken positions).
    bool pull(RingReader& reader, std::vector<std::string>& out)
    {
        if (reader.broken())
            return false;
        bool consumed = false;
        bool ok = true;
        for (;;) {
            if (!inBody_) {
                size_t got = reader.readSome(prefix_ + prefixHave_, 4 - prefixHave_);
                if (got == 0)
                    break;
                consumed = true;
                prefixHave_ += got;
                if (prefixHave_ < 4)
                    continue;
                prefixHave_ = 0;
                bodyLen_ = uint32_t(prefix_[0]) | uint32_t(prefix_[1]) << 8 | uint32_t(prefix_[2]) << 16 |
                           uint32_t(prefix_[3]) << 24;
                if (bodyLen_ > kMaxRecordBytes) {
                    ok = false;
                    break;
                }
                body_.clear();
                body_.reserve(bodyLen_ < kRingBytes ? bodyLen_ : kRingBytes);
                inBody_ = true;
            }
            size_t want = bodyLen_ - body_.size();
            size_t have = reader.available();
            size_t take = want < have ? want : have;
            if (take > 0) {
                size_t old = body_.size();
                body_.resize(old + take);
                size_t got = reader.readSome(body_.data() + old, take);
                body_.resize(old + got);
                consumed = consumed || got > 0;
            }
            if (body_.size() == bodyLen_) {
                out.push_back(std::move(body_));
                body_ = std::string();
                inBody_ = false;
                continue;
            }
            break;
        }
        if (consumed)
            reader.release();
        return ok;
    }

    bool midRecord() const { return inBody_ || prefixHave_ > 0; }

private:
    uint8_t prefix_[4] = {};
    size_t prefixHave_ = 0;
    bool inBody_ = false;
    uint32_t bodyLen_ = 0;
    std::string body_;
};

// ---------------------------------------------------------------------------
// Waiting

enum class WaitResult { Ready, TimedOut, Stopped };

// Waits until ready(): spins for spinUs first (a round trip is often shorter
// than two scheduler wake-ups), then sleeps on the futex word in slices of
// kLivenessSliceMs, asking stop() after every wake-up so a dead or closing
// peer never leaves us asleep. deadlineUs 0 waits without limit.
template <class Ready, class Stop>
WaitResult waitFor(std::atomic<uint32_t>& word, std::atomic<uint32_t>& waiters, Ready ready, Stop stop, int64_t spinUs,
                   int64_t deadlineUs)
{
    if (ready())
        return WaitResult::Ready;
    if (spinUs > 0) {
        int64_t end = nowUs() + spinUs;
        if (deadlineUs != 0 && end > deadlineUs)
            end = deadlineUs;
        for (int i = 0;; ++i) {
            cpuRelax();
            if (ready())
                return WaitResult::Ready;
            if ((i & 15) == 15 && nowUs() >= end)
                break;
        }
    }
    for (;;) {
        if (stop())
            return WaitResult::Stopped;
        int slice = kLivenessSliceMs;
        if (deadlineUs != 0) {
            int64_t left = deadlineUs - nowUs();
            if (left <= 0)
                return WaitResult::TimedOut;
            if (left < int64_t(slice) * 1000)
                slice = int((left + 999) / 1000);
        }
        waiters.fetch_add(1, std::memory_order_seq_cst);
        uint32_t seq = word.load(std::memory_order_seq_cst);
        if (ready()) {
            waiters.fetch_sub(1, std::memory_order_seq_cst);
            return WaitResult::Ready;
        }
        futexWait(word, seq, slice);
        waiters.fetch_sub(1, std::memory_order_seq_cst);
        if (ready())
            return WaitResult::Ready;
    }
}

// One piece of a record written without first gluing the pieces together.
struct Piece {
    const void* data;
    size_t size;
};

// Writes LE32(total) followed by the pieces, waiting for space as needed.
// False when stop() said to give up, or the ring is broken; a record cut
// off that way is never completed, so the peer must treat the channel as dead.
template <class Stop>
bool writeRecord(RingWriter& writer, const Piece* pieces, size_t count, Stop stop)
{
    uint64_t total = 0;
    for (size_t i = 0; i < count; ++i)
        total += pieces[i].size;
    if (total > kMaxRecordBytes)
        return false;
    uint8_t prefix[4] = {uint8_t(total), uint8_t(total >> 8), uint8_t(total >> 16), uint8_t(total >> 24)};
    Piece prefixPiece{prefix, 4};
    size_t index = 0;
    size_t offset = 0;
    auto current = [&](size_t i) -> const Piece& { return i == 0 ? prefixPiece : pieces[i - 1]; };
    RingControl& c = writer.control();
    while (index <= count) {
        bool wrote = false;
        while (index <= count) {
            const Piece& p = current(index);
            size_t n = writer.writeSome(static_cast<const uint8_t*>(p.data) + offset, p.size - offset);
            offset += n;
            wrote = wrote || n > 0;
            if (offset < p.size)
                break;
            ++index;
            offset = 0;
        }
        if (wrote)
            writer.publish();
        if (index > count)
            return true;
        if (writer.broken())
            return false;
        WaitResult r = waitFor(
            c.spaceSeq, c.writersWaiting, [&] { return writer.freeSpace() > 0 || writer.broken(); }, stop, 0, 0);
        if (r != WaitResult::Ready)
            return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// The mapped object

class Mapping : NonCopyable {
public:
    Mapping() = default;
    Mapping(Mapping&& o) noexcept { *this = std::move(o); }
    Mapping& operator=(Mapping&& o) noexcept
    {
        if (this != &o) {
            unmap();
            fd_ = o.fd_;
            base_ = o.base_;
            dev_ = o.dev_;
            ino_ = o.ino_;
            o.fd_ = -1;
            o.base_ = nullptr;
        }
        return *this;
    }
    ~Mapping() { unmap(); }

    bool valid() const { return base_ != nullptr; }
    SharedHeader& header() const { return *reinterpret_cast<SharedHeader*>(base_); }
    uint8_t* ringData(Side toward) const
    {
        return base_ + kHeaderBytes + (toward == Side::Debugger ? 0 : size_t(kRingBytes));
    }
    RingControl& ring(Side toward) const { return toward == Side::Debugger ? header().toDebugger : header().toVm; }

    // Removes the name only while it still names this very object: once the
    // debugger has unlinked it, a new VM may have taken the same name.
    void unlinkIfStillOurs(const std::string& name) const
    {
        if (fd_ < 0)
            return;
        std::string obj = objectName(name);
        int fd = shm_open(obj.c_str(), O_RDONLY | O_CLOEXEC, 0);
        if (fd < 0)
            return;
        struct stat st {};
        bool same = fstat(fd, &st) == 0 && st.st_dev == dev_ && st.st_ino == ino_;
        ::close(fd);
        if (same)
            shm_unlink(obj.c_str());
    }

    void unmap()
    {
        if (base_)
            munmap(base_, kChannelBytes);
        if (fd_ >= 0)
            ::close(fd_);
        base_ = nullptr;
        fd_ = -1;
    }

    // Takes over an open descriptor of the object and maps it.
    bool adopt(int fd, std::string& error)
    {
        unmap();
        struct stat st {};
        if (fstat(fd, &st) != 0) {
            error = std::string("cannot inspect the shared-memory object: ") + std::strerror(errno);
            ::close(fd);
            return false;
        }
        void* p = mmap(nullptr, kChannelBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (p == MAP_FAILED) {
            error = std::string("cannot map the shared-memory object: ") + std::strerror(errno);
            ::close(fd);
            return false;
        }
        fd_ = fd;
        base_ = static_cast<uint8_t*>(p);
        dev_ = st.st_dev;
        ino_ = st.st_ino;
        return true;
    }

private:
    int fd_ = -1;
    uint8_t* base_ = nullptr;
    dev_t dev_ = 0;
    ino_t ino_ = 0;
};

// Looks at an existing object of that name without changing it. Stale:
// its creator is gone, or it never got a header and is older than the grace time.
// halfBuiltIsStale: the caller knows that the only process that could be
// building this object has ended, so one without its header is a leftover
// however young it is.
inline bool objectIsStale(const std::string& obj, pid_t& creator, bool halfBuiltIsStale = false)
{
    creator = 0;
    int fd = shm_open(obj.c_str(), O_RDONLY | O_CLOEXEC, 0);
    if (fd < 0)
        return errno == ENOENT; // vanished meanwhile: nothing in the way
    struct stat st {};
    bool stale = false;
    if (fstat(fd, &st) == 0) {
        bool young = !halfBuiltIsStale && time(nullptr) - st.st_ctime < kHalfBuiltGraceSeconds;
        if (size_t(st.st_size) < sizeof(SharedHeader)) {
            stale = !young;
        } else if (void* p = mmap(nullptr, sizeof(SharedHeader), PROT_READ, MAP_SHARED, fd, 0); p != MAP_FAILED) {
            const auto* h = static_cast<const SharedHeader*>(p);
            if (h->magic.load(std::memory_order_acquire) != kMagic) {
                stale = !young;
            } else {
                creator = h->vmPid.load();
                stale = creator != getpid() && processGone(creator);
            }
            munmap(p, sizeof(SharedHeader));
        }
    }
    ::close(fd);
    return stale;
}

// VM side: creates the object for a new listening channel, replacing a
// stale one left by a VM that died.
inline bool createChannel(const std::string& name, Mapping& out, std::string& error)
{
    std::string obj;
    if (!checkedObjectName(name, obj, error))
        return false;
    int fd = -1;
    for (int attempt = 0; attempt < 3 && fd < 0; ++attempt) {
        fd = shm_open(obj.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd >= 0)
            break;
        if (errno != EEXIST) {
            error = "cannot create the shared-memory object " + obj + ": " + std::strerror(errno);
            return false;
        }
        pid_t creator = 0;
        if (!objectIsStale(obj, creator)) {
            error = "the shared-memory name \"" + name + "\" is in use" +
                    (creator > 0 ? " by the running process " + std::to_string(creator) : std::string()) +
                    "; choose another name";
            return false;
        }
        shm_unlink(obj.c_str());
    }
    if (fd < 0) {
        error = "cannot create the shared-memory object " + obj + ": " + std::strerror(EEXIST);
        return false;
    }
    fchmod(fd, 0600);
    if (ftruncate(fd, off_t(kChannelBytes)) != 0) {
        error = "cannot size the shared-memory object " + obj + ": " + std::strerror(errno);
        ::close(fd);
        shm_unlink(obj.c_str());
        return false;
    }
    if (!out.adopt(fd, error)) {
        shm_unlink(obj.c_str());
        return false;
    }
    SharedHeader& h = out.header();
    h.layoutVersion = kLayoutVersion;
    h.ringBytes = kRingBytes;
    h.headerBytes = uint32_t(kHeaderBytes);
    h.vmPid.store(getpid());
    h.debuggerPid.store(0);
    h.state.store(kVmListening);
    h.magic.store(kMagic, std::memory_order_release);
    return true;
}

// Debugger side: opens and maps an existing channel and checks its header.
inline bool openChannel(const std::string& name, Mapping& out, std::string& error)
{
    std::string obj;
    if (!checkedObjectName(name, obj, error))
        return false;
    int fd = shm_open(obj.c_str(), O_RDWR | O_CLOEXEC, 0);
    if (fd < 0) {
        int e = errno;
        if (e == ENOENT)
            error = "no VM is listening on the shared-memory name \"" + name + "\" (yet)";
        else if (e == EACCES)
            error = "the shared-memory channel \"" + name + "\" belongs to another user";
        else
            error = "cannot open the shared-memory channel \"" + name + "\": " + std::strerror(e);
        return false;
    }
    struct stat st {};
    if (fstat(fd, &st) != 0 || size_t(st.st_size) != kChannelBytes) {
        error = st.st_size == 0 ? "the shared-memory channel \"" + name + "\" is still being set up"
                                : "\"" + obj + "\" is not a channel of this debugger (unexpected size " +
                                      std::to_string(st.st_size) + ")";
        ::close(fd);
        return false;
    }
    if (!out.adopt(fd, error))
        return false;
    const SharedHeader& h = out.header();
    if (h.magic.load(std::memory_order_acquire) != kMagic) {
        error = "the shared-memory channel \"" + name + "\" is still being set up";
        out.unmap();
        return false;
    }
    if (h.layoutVersion != kLayoutVersion || h.ringBytes != kRingBytes || h.headerBytes != kHeaderBytes) {
        error = "the shared-memory channel \"" + name + "\" has layout version " + std::to_string(h.layoutVersion) +
                "; this debugger speaks version " + std::to_string(kLayoutVersion);
        out.unmap();
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// One side's view of a mapped channel.

class Endpoint : NonCopyable {
public:
    Endpoint(Mapping&& mapping, Side self)
        : map_(std::move(mapping)),
          self_(self),
          peer_(self == Side::Vm ? Side::Debugger : Side::Vm),
          writer_(&map_.ring(peer_), map_.ringData(peer_)),
          reader_(&map_.ring(self_), map_.ringData(self_))
    {
    }

    SharedHeader& header() const { return map_.header(); }
    Mapping& mapping() { return map_; }
    RingReader& reader() { return reader_; }
    RingWriter& writer() { return writer_; }
    RingControl& inRing() const { return map_.ring(self_); }

    void watchPeer(pid_t pid) { watch_.watch(pid); }

    uint32_t selfClosedBit() const { return self_ == Side::Vm ? kVmClosed : kDebuggerClosed; }
    uint32_t peerClosedBit() const { return self_ == Side::Vm ? kDebuggerClosed : kVmClosed; }
    bool selfClosed() const { return (header().state.load() & selfClosedBit()) != 0; }
    bool peerClosedFlag() const { return (header().state.load() & peerClosedBit()) != 0; }
    // Said goodbye, or the process is gone. The pidfd poll is a syscall, so
    // the flag is looked at first.
    bool peerGone() { return peerClosedFlag() || watch_.gone(); }
    bool stopped() { return selfClosed() || peerGone(); }

    bool pull(std::vector<std::string>& out) { return assembler_.pull(reader_, out); }

    bool write(const Piece* pieces, size_t count)
    {
        // No pidfd poll on this path: a dead peer is caught while waiting for space.
        if (selfClosed() || peerClosedFlag() || watch_.knownGone())
            return false;
        return writeRecord(writer_, pieces, count, [this] { return stopped(); });
    }
    bool write(std::string_view record)
    {
        Piece p{record.data(), record.size()};
        return write(&p, 1);
    }

    // Says goodbye and wakes every sleeper on the channel, in both processes.
    void markClosed()
    {
        header().state.fetch_or(selfClosedBit());
        bumpAndWake(header().toDebugger.dataSeq);
        bumpAndWake(header().toDebugger.spaceSeq);
        bumpAndWake(header().toVm.dataSeq);
        bumpAndWake(header().toVm.spaceSeq);
        bumpAndWake(header().attachSeq);
    }

private:
    Mapping map_;
    Side self_;
    Side peer_;
    RingWriter writer_;
    RingReader reader_;
    RecordAssembler assembler_;
    PeerWatch watch_;
};

} // namespace jdwpkrvdbg::shmem
