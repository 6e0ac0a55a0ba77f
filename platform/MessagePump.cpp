// The single-threaded, poll()-based message pump of the Linux platform layer.
//
// Every event of the component (socket and pipe readiness, process exit,
// timers, the transport's processevent) is delivered from pumpOnce on the
// host's thread. Passes nest: a callback may wait for a reply and pump again,
// and it may add or remove any source, itself included. Therefore a pass
// never holds an iterator across a callback: it snapshots the ids it intends
// to run and looks each one up again just before calling it, and removed
// sources are parked (see deadWatches_) rather than destroyed while any pass
// is running.
#include "jdwpkrvdbg/platform/MessagePump.h"

#include <poll.h>

#include <cerrno>
#include <climits>

#include "jdwpkrvdbg/platform/Clock.h"

namespace jdwpkrvdbg {

struct MessagePump::PassScratch {
    std::vector<pollfd> fds;
    std::vector<int> watchIds; // parallel to fds
    std::vector<int> ids;      // timers and idles due in this pass
};

namespace {

// Ticks wrap at 2^32; a due time is "reached" when it is not in the future.
inline int32_t ticksUntil(uint32_t due, uint32_t now)
{
    return static_cast<int32_t>(due - now);
}

// Readiness bits that poll reports whether or not they were asked for.
constexpr short kAlwaysReported = POLLERR | POLLHUP | POLLNVAL;

} // namespace

MessagePump& MessagePump::instance()
{
    // Never destroyed, so it outlives every static object that unregisters.
    static MessagePump* pump = new MessagePump();
    return *pump;
}

int MessagePump::addWatch(int fd, short events, WatchCallback callback)
{
    int id = nextId_++;
    watches_.emplace(id, Watch{fd, events, std::move(callback)});
    return id;
}

void MessagePump::setWatchEvents(int id, short events)
{
    auto it = watches_.find(id);
    if (it != watches_.end())
        it->second.events = events;
}

void MessagePump::removeWatch(int id)
{
    auto node = watches_.extract(id);
    if (!node.empty() && depth_ > 0)
        deadWatches_.push_back(std::move(node));
}

int MessagePump::addTimer(uint32_t intervalMs, Callback callback)
{
    if (intervalMs < 1)
        intervalMs = 1;
    int id = nextId_++;
    timers_.emplace(id, Timer{intervalMs, GetTickCount() + intervalMs, std::move(callback)});
    return id;
}

void MessagePump::removeTimer(int id)
{
    auto node = timers_.extract(id);
    if (!node.empty() && depth_ > 0)
        deadTimers_.push_back(std::move(node));
}

int MessagePump::addIdle(Callback callback)
{
    int id = nextId_++;
    idles_.emplace(id, std::move(callback));
    return id;
}

void MessagePump::removeIdle(int id)
{
    auto node = idles_.extract(id);
    if (!node.empty() && depth_ > 0)
        deadIdles_.push_back(std::move(node));
}

void MessagePump::buryDead()
{
    // Destroying a callback may run destructors that touch the pump again
    // (removing other sources), so the lists are emptied before anything dies.
    while (!deadWatches_.empty() || !deadTimers_.empty() || !deadIdles_.empty()) {
        auto watches = std::move(deadWatches_);
        auto timers = std::move(deadTimers_);
        auto idles = std::move(deadIdles_);
        deadWatches_.clear();
        deadTimers_.clear();
        deadIdles_.clear();
    }
}

int MessagePump::pumpOnce(int maxWaitMs)
{
    if (static_cast<size_t>(depth_) >= scratch_.size())
        scratch_.push_back(std::make_unique<PassScratch>());
    PassScratch& s = *scratch_[static_cast<size_t>(depth_)];
    ++depth_;

    s.fds.clear();
    s.watchIds.clear();
    for (const auto& [id, w] : watches_) {
        s.fds.push_back(pollfd{w.fd, w.events, 0});
        s.watchIds.push_back(id);
    }

    int waitMs = maxWaitMs;
    if (!idles_.empty()) {
        waitMs = 0;
    } else if (!timers_.empty()) {
        uint32_t now = GetTickCount();
        for (const auto& [id, t] : timers_) {
            int32_t left = ticksUntil(t.due, now);
            if (left < 0)
                left = 0;
            if (waitMs < 0 || left < waitMs)
                waitMs = left;
        }
    }
    // Nothing could ever wake an unbounded wait with no sources.
    if (waitMs < 0 && s.fds.empty())
        waitMs = 0;

    int ready = 0;
    if (!s.fds.empty() || waitMs > 0) {
        ready = ::poll(s.fds.empty() ? nullptr : s.fds.data(), static_cast<nfds_t>(s.fds.size()), waitMs);
        if (ready < 0)
            ready = 0; // EINTR: treat as an empty pass, the caller pumps again
    }

    int ran = 0;
    if (ready > 0) {
        for (size_t i = 0; i < s.fds.size(); ++i) {
            if (s.fds[i].revents == 0)
                continue;
            auto it = watches_.find(s.watchIds[i]);
            if (it == watches_.end())
                continue;
            // A callback earlier in this pass may have narrowed the events
            // (e.g. dropped POLLOUT); do not report what is no longer wanted.
            short revents = static_cast<short>(s.fds[i].revents & (it->second.events | kAlwaysReported));
            if (revents == 0)
                continue;
            it->second.callback(revents);
            ++ran;
        }
    }

    if (!timers_.empty()) {
        uint32_t now = GetTickCount();
        s.ids.clear();
        for (const auto& [id, t] : timers_) {
            if (ticksUntil(t.due, now) <= 0)
                s.ids.push_back(id);
        }
        for (int id : s.ids) {
            auto it = timers_.find(id);
            if (it == timers_.end())
                continue;
            now = GetTickCount();
            if (ticksUntil(it->second.due, now) > 0)
                continue; // re-armed by a nested pass
            // Re-armed from now: a late pass does not fire a burst of ticks.
            it->second.due = now + it->second.intervalMs;
            it->second.callback();
            ++ran;
        }
    }

    if (!idles_.empty()) {
        s.ids.clear();
        for (const auto& [id, cb] : idles_)
            s.ids.push_back(id);
        for (int id : s.ids) {
            auto it = idles_.find(id);
            if (it == idles_.end())
                continue;
            it->second();
            ++ran;
        }
    }

    --depth_;
    if (depth_ == 0)
        buryDead();
    return ran;
}

bool MessagePump::pumpUntil(const std::function<bool()>& done, uint32_t timeoutMs)
{
    uint32_t start = GetTickCount();
    while (!done()) {
        if (GetTickCount() - start >= timeoutMs)
            break;
        pumpOnce(1);
    }
    return done();
}

size_t MessagePump::sourceCount() const
{
    return watches_.size() + timers_.size() + idles_.size();
}

void DoEvents()
{
    MessagePump::instance().pumpOnce(0);
}

} // namespace jdwpkrvdbg
