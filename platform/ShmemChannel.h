// The debugger's end of the shared-memory JDWP channel: attaches to the
// channel that a VM running with transport=dt_shmem created, and moves
// whole records (the handshake, then one JDWP packet each in the
// shared-memory framing) both ways. Built for a single-threaded message
// pump: notifyFd() is a descriptor to poll, readRecords() never blocks.
#pragma once

#include "jdwpkrvdbg/support/NonCopyable.h"
#include <memory>
#include <string>
#include <vector>

namespace jdwpkrvdbg {

class ShmemChannel : NonCopyable {
public:
    ShmemChannel();
    ~ShmemChannel();

    // Letters, digits, '.', '_', '-'; 1 to 200 characters. why says what is wrong.
    static bool validName(const std::string& name, std::string& why);

    // Removes the channel object of that name if the VM that created it has
    // ended (a VM killed while still waiting for a debugger leaves it behind).
    // For the side that launched and killed the VM: call it once the process
    // is gone (an object it left half-built is then removed too). True when
    // something was removed.
    static bool removeStale(const std::string& name);

    // False with a clear error when the VM's channel is not there (yet), is
    // taken by another debugger, or its VM has ended. Calling it again while
    // attached to the same name is a no-op that returns true.
    bool attach(const std::string& name, std::string& error);

    // Readable when records may be waiting or the peer went away; stays the
    // same descriptor for the object's life (-1 only if it could not be made).
    int notifyFd() const;

    // Appends every whole record available now. False when the channel is
    // not open or the VM is gone and everything it sent has been delivered.
    bool readRecords(std::vector<std::string>& out);

    // Queues one record; blocks only while the ring is full. False when not
    // open or the VM is gone.
    bool writeRecord(const std::string& record);

    // For a synchronous wait: spins briefly, then sleeps until data may be
    // there, the VM went away (both true) or maxWaitMs passed (false).
    bool waitReadable(int maxWaitMs);

    void close();
    bool isOpen() const;

private:
    struct State;
    std::unique_ptr<State> s_;
    int eventFd_ = -1;
};

} // namespace jdwpkrvdbg
