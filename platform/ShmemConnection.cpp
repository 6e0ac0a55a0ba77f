// The transport's shared-memory connection (see ShmemConnection.h).
#include "ShmemConnection.h"

#include <poll.h>

#include <vector>

namespace jdwpkrvdbg::platform_detail {

ShmemConnection::ShmemConnection(MessagePump& pump, Events events, std::string& status)
    : PumpedConnection(pump, std::move(events), status)
{
}

ShmemConnection::~ShmemConnection()
{
    close();
}

void ShmemConnection::connect(const std::string& name)
{
    if (connected_)
        return;
    std::string why;
    if (!ShmemChannel::validName(name, why)) {
        status_ = "Shared-memory name \"" + name + "\" refused: " + why;
        return;
    }
    name_ = name;
    if (!channel_)
        channel_ = std::make_unique<ShmemChannel>();
    std::string error;
    if (!channel_->attach(name, error)) {
        status_ = error;
        return;
    }
    connected_ = true;
    inbox_.clear();
    if (channel_->notifyFd() >= 0)
        watch_ = pump_.addWatch(channel_->notifyFd(), POLLIN, [this](short) { onReady(); });
    connectIdle_ = pump_.addIdle([this] {
        pump_.removeIdle(connectIdle_);
        connectIdle_ = 0;
        if (connected_)
            events_.connected();
    });
}

bool ShmemConnection::deliver()
{
    bool delivered = false;
    while (!inbox_.empty() && connected_) {
        std::string record = std::move(inbox_.front());
        inbox_.pop_front();
        delivered = true;
        events_.receive(record);
    }
    return delivered;
}

void ShmemConnection::onReady()
{
    if (!connected_ || !channel_)
        return;
    std::vector<std::string> records;
    const bool open = channel_->readRecords(records);
    for (auto& r : records)
        inbox_.push_back(std::move(r));
    deliver();
    if (!open && connected_) {
        close();
        events_.disconnected();
    }
}

bool ShmemConnection::waitAndRead(int maxWaitMs)
{
    if (!inbox_.empty())
        return deliver();
    if (!channel_->waitReadable(maxWaitMs))
        return false;
    onReady();
    return true;
}

void ShmemConnection::close()
{
    if (watch_ != 0) {
        pump_.removeWatch(watch_);
        watch_ = 0;
    }
    if (connectIdle_ != 0) {
        pump_.removeIdle(connectIdle_);
        connectIdle_ = 0;
    }
    if (channel_)
        channel_->close();
    connected_ = false;
    inbox_.clear();
}

} // namespace jdwpkrvdbg::platform_detail
