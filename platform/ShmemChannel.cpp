// The debugger's end of the shared-memory JDWP channel (see ShmemChannel.h
// and the layout in ShmemRing.h). A small waker thread sleeps on the futex
// of the ring from the VM and turns every publish, and the VM's death, into
// a readable eventfd for the host's single-threaded pump; waitReadable()
// lets a synchronous caller skip that hop and wait on the ring itself.
#include "ShmemChannel.h"

#include <atomic>
#include <mutex>
#include <thread>

#include <sys/eventfd.h>

#include "ShmemRing.h"

namespace jdwpkrvdbg {

namespace {

using namespace shmem;

// Long enough to cover a typical command round trip through the VM's agent
// threads, so a synchronous call usually never sleeps.
constexpr int64_t kWaitSpinUs = 60;

void signalFd(int fd)
{
    if (fd < 0)
        return;
    uint64_t one = 1;
    ssize_t n = ::write(fd, &one, sizeof one);
    (void)n; // a full counter is still readable, which is all we need
}

void drainFd(int fd)
{
    if (fd < 0)
        return;
    uint64_t value = 0;
    ssize_t n = ::read(fd, &value, sizeof value);
    (void)n;
}

} // namespace

struct ShmemChannel::State {
    State(Mapping&& mapping, std::string channelName)
        : endpoint(std::move(mapping), Side::Debugger), name(std::move(channelName))
    {
    }
    Endpoint endpoint;
    std::string name;
    std::thread waker;
    std::atomic<bool> stopWaker{false};
    std::atomic<bool> peerGone{false}; // seen by the waker; sticky
    bool corrupt = false;
    std::mutex writeMutex;

    bool gone() { return peerGone.load() || endpoint.peerClosedFlag(); }

    void wakerLoop(int fd)
    {
        RingControl& in = endpoint.inRing();
        uint32_t seen = in.dataSeq.load();
        if (endpoint.reader().available() > 0)
            signalFd(fd);
        while (!stopWaker.load()) {
            in.readersWaiting.fetch_add(1);
            uint32_t current = in.dataSeq.load();
            if (current == seen && !stopWaker.load())
                futexWait(in.dataSeq, current, kLivenessSliceMs);
            in.readersWaiting.fetch_sub(1);
            if (stopWaker.load())
                break;
            current = in.dataSeq.load();
            if (current != seen) {
                seen = current;
                signalFd(fd);
            }
            if (endpoint.peerGone()) {
                peerGone = true;
                signalFd(fd);
                break;
            }
        }
    }
};

ShmemChannel::ShmemChannel() : eventFd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

ShmemChannel::~ShmemChannel()
{
    close();
    if (eventFd_ >= 0)
        ::close(eventFd_);
}

bool ShmemChannel::validName(const std::string& name, std::string& why)
{
    try {
        return shmem::validName(name, why);
    } catch (...) {
        why = "out of memory";
        return false;
    }
}

bool ShmemChannel::removeStale(const std::string& name)
{
    try {
        std::string why;
        if (!shmem::validName(name, why))
            return false;
        std::string obj = objectName(name);
        pid_t creator = 0;
        // Called once the launched VM is gone: it may have died halfway
        // through creating the object (killed as it listened again).
        return objectIsStale(obj, creator, true) && shm_unlink(obj.c_str()) == 0;
    } catch (...) {
        return false;
    }
}

bool ShmemChannel::attach(const std::string& name, std::string& error)
{
    try {
        if (s_) {
            if (s_->name == name && !s_->gone())
                return true;
            error = "already attached to the shared-memory channel \"" + s_->name + "\"";
            return false;
        }
        if (eventFd_ < 0) {
            error = "cannot create the notification descriptor for the shared-memory channel";
            return false;
        }
        Mapping mapping;
        if (!openChannel(name, mapping, error))
            return false;
        auto state = std::make_unique<State>(std::move(mapping), name);
        SharedHeader& h = state->endpoint.header();
        pid_t vm = h.vmPid.load();
        state->endpoint.watchPeer(vm);
        if (state->endpoint.peerGone()) {
            if (!state->endpoint.peerClosedFlag()) // a crashed VM's leftover: tidy up for it
                state->endpoint.mapping().unlinkIfStillOurs(name);
            error = "the VM (process " + std::to_string(vm) + ") behind the shared-memory channel \"" + name +
                    "\" has ended";
            return false;
        }
        if ((h.state.load() & kVmListening) == 0) {
            error = "the VM behind the shared-memory channel \"" + name + "\" is not accepting a debugger";
            return false;
        }
        int32_t expected = 0;
        bool claimed = h.debuggerPid.compare_exchange_strong(expected, int32_t(getpid()));
        // A debugger that died between claiming and announcing itself would
        // block the name for good: the VM is still waiting, so take over.
        if (!claimed && (h.state.load() & kDebuggerAttached) == 0 && processGone(expected))
            claimed = h.debuggerPid.compare_exchange_strong(expected, int32_t(getpid()));
        if (!claimed) {
            error = "the shared-memory channel \"" + name + "\" is already in use by debugger process " +
                    std::to_string(expected);
            return false;
        }
        // From here both ends hold the mapping, so the name is no longer needed;
        // dropping it now leaves nothing in /dev/shm whichever side crashes later.
        state->endpoint.mapping().unlinkIfStillOurs(name);
        h.state.fetch_or(kDebuggerAttached);
        bumpAndWake(h.attachSeq);
        drainFd(eventFd_);
        State* raw = state.get();
        int fd = eventFd_;
        try {
            state->waker = std::thread([raw, fd] { raw->wakerLoop(fd); });
        } catch (...) {
            state->endpoint.markClosed();
            error = "cannot start the shared-memory notification thread";
            return false;
        }
        s_ = std::move(state);
        return true;
    } catch (...) {
        error = "out of memory while attaching to the shared-memory channel";
        return false;
    }
}

int ShmemChannel::notifyFd() const
{
    return eventFd_;
}

bool ShmemChannel::readRecords(std::vector<std::string>& out)
{
    if (!s_)
        return false;
    drainFd(eventFd_);
    // Looked at before pulling: whatever the VM wrote before it went away is
    // then certainly in the ring and is delivered first.
    bool gone = s_->gone() || s_->corrupt;
    size_t before = out.size();
    try {
        if (!s_->corrupt && !s_->endpoint.pull(out))
            s_->corrupt = true;
    } catch (...) {
        s_->corrupt = true; // out of memory mid-record: the stream cannot be resumed
    }
    if (gone || s_->corrupt) {
        if (out.size() > before) {
            signalFd(eventFd_); // come back for the verdict
            return true;
        }
        return false;
    }
    return true;
}

bool ShmemChannel::writeRecord(const std::string& record)
{
    if (!s_ || s_->gone() || s_->corrupt)
        return false;
    std::lock_guard<std::mutex> lock(s_->writeMutex);
    return s_->endpoint.write(record);
}

bool ShmemChannel::waitReadable(int maxWaitMs)
{
    if (!s_)
        return true;
    State& s = *s_;
    RingReader& reader = s.endpoint.reader();
    auto ready = [&] { return reader.available() > 0 || s.gone() || s.corrupt; };
    if (ready())
        return true;
    if (maxWaitMs <= 0)
        return false;
    RingControl& in = s.endpoint.inRing();
    WaitResult r = waitFor(
        in.dataSeq, in.readersWaiting, ready, [&] { return s.endpoint.peerGone(); }, kWaitSpinUs,
        nowUs() + int64_t(maxWaitMs) * 1000);
    return r != WaitResult::TimedOut;
}

void ShmemChannel::close()
{
    if (!s_)
        return;
    s_->stopWaker = true;
    bumpAndWake(s_->endpoint.inRing().dataSeq);
    if (s_->waker.joinable())
        s_->waker.join();
    s_->endpoint.markClosed();
    s_.reset();
    drainFd(eventFd_);
}

bool ShmemChannel::isOpen() const
{
    return s_ && !s_->gone() && !s_->corrupt;
}

} // namespace jdwpkrvdbg
