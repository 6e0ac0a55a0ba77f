// The shared-memory side of the Linux transport: attaching to the channel a
// VM created (ShmemChannel), watching it from the MessagePump, and handing
// on the records in the order they were read. Events come from pump
// callbacks, never from inside the call that caused them.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "ShmemChannel.h"
#include "TransportParts.h"

namespace jdwpkrvdbg::platform_detail {

class ShmemConnection : public PumpedConnection {
public:
    // A failure's text goes to `status`, which the transport reports.
    ShmemConnection(MessagePump& pump, Events events, std::string& status);
    ~ShmemConnection();

    void connect(const std::string& name);
    bool connected() const { return connected_; }
    // One record per call.
    bool send(const std::string& record) { return channel_->writeRecord(record); }
    void close();
    // The name last connected to ("" before any): the channel a killed VM
    // may leave behind.
    const std::string& name() const { return name_; }
    // Hands on records already read, else waits up to maxWaitMs for more;
    // false when none came.
    bool waitAndRead(int maxWaitMs);

private:
    void onReady();
    bool deliver();

    std::unique_ptr<ShmemChannel> channel_;
    int connectIdle_ = 0;
    bool connected_ = false;
    std::string name_;
    // Records read and not yet delivered: a receive handler may pump again,
    // and nested reads must not overtake records read before them.
    std::deque<std::string> inbox_;
};

} // namespace jdwpkrvdbg::platform_detail
