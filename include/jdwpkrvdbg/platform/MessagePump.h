// The single-threaded message pump: the only way events enter the component.
// It owns registered file descriptors, timers and idle callbacks, and runs
// them on the calling (host) thread when asked to pump. A pass may be started
// from inside a callback (a decoder that waits for a reply pumps again);
// callbacks removed during a pass are never called afterwards.
//
// The host calls DoEvents() (or runFor) from its own idle loop so that VM
// events arrive between its calls; waits inside the component pump with a
// bounded wait for readiness so that a reply is handled when it arrives.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace jdwpkrvdbg {

class MessagePump {
public:
    using WatchCallback = std::function<void(short revents)>;
    using Callback = std::function<void()>;

    // The process-wide pump (never destroyed, so it outlives static objects).
    static MessagePump& instance();

    // Calls `callback` with poll() revents whenever `fd` is ready for
    // `events` (POLLIN, POLLOUT, ...). Returns an id > 0.
    int addWatch(int fd, short events, WatchCallback callback);
    void setWatchEvents(int id, short events);
    void removeWatch(int id);

    // Periodic callback every `intervalMs` (>= 1). Returns an id > 0.
    int addTimer(uint32_t intervalMs, Callback callback);
    void removeTimer(int id);

    // Called once on every pass while registered; while any idle callback is
    // registered a pass does not block. Returns an id > 0.
    int addIdle(Callback callback);
    void removeIdle(int id);

    // One pass: waits at most `maxWaitMs` (0: not at all) for a watched
    // descriptor or a timer, then runs what is ready, due timers and the idle
    // callbacks. Returns the number of callbacks run.
    int pumpOnce(int maxWaitMs);

    // Pumps until `done()` is true or `timeoutMs` of the tick clock passed.
    // Returns done().
    bool pumpUntil(const std::function<bool()>& done, uint32_t timeoutMs);

    // Number of registered watches, timers and idle callbacks (for tests).
    size_t sourceCount() const;

private:
    MessagePump() = default;
    struct Watch {
        int fd;
        short events;
        WatchCallback callback;
    };
    struct Timer {
        uint32_t intervalMs;
        uint32_t due;
        Callback callback;
    };
    int nextId_ = 1;
    std::map<int, Watch> watches_;
    std::map<int, Timer> timers_;
    std::map<int, Callback> idles_;

    // Per-depth scratch of a pass (poll set, id snapshots); a nested pass
    // gets its own so the outer pass's buffers stay intact.
    struct PassScratch;
    std::vector<std::unique_ptr<PassScratch>> scratch_;
    int depth_ = 0;
    // Sources removed while a pass runs: their nodes are kept (unmoved, so a
    // callback that removes itself keeps running on live captures) until the
    // outermost pass ends.
    std::vector<std::map<int, Watch>::node_type> deadWatches_;
    std::vector<std::map<int, Timer>::node_type> deadTimers_;
    std::vector<std::map<int, Callback>::node_type> deadIdles_;
    void buryDead();
};

// The host's message pump: one pass without waiting.
void DoEvents();

} // namespace jdwpkrvdbg
