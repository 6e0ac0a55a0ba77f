// The debugger end of the shared-memory channel against a fake VM end built
// from ShmemRing.h in this process (a crashed VM is played by naming a process
// that has ended): record framing both ways, records larger than a ring, name
// checks, claims, a closing or crashed VM, and that nothing is left in /dev/shm.
// How the real agent's reader notices a debugger that leaves is checked
// against a real VM (shmem_vm_test).
// The tables of byte literals keep their hand layout:
// clang-format off
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>
#include <utility>

#include "../../platform/ShmemChannel.h"
#include "../../platform/ShmemRing.h"

namespace {

using namespace jdwpkrvdbg;
using namespace jdwpkrvdbg::shmem;

std::string uniqueName(const std::string& tag) { return "unit-" + std::to_string(getpid()) + "-" + tag; }

bool objectExists(const std::string& name) { return access(("/dev/shm" + objectName(name)).c_str(), F_OK) == 0; }

// Waits for the channel's descriptor; the limit only keeps a broken build from hanging.
bool pollReadable(int fd, int failsafeMs = 5000)
{
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, failsafeMs) == 1;
}

// Reads records until `count` arrived or the channel reports the VM gone.
std::vector<std::string> receive(ShmemChannel& channel, size_t count)
{
    std::vector<std::string> got;
    while (got.size() < count && pollReadable(channel.notifyFd()))
        if (!channel.readRecords(got))
            break;
    return got;
}

struct FakeVm {
    explicit FakeVm(const std::string& channelName) : name(channelName)
    {
        Mapping m;
        std::string error;
        created = createChannel(name, m, error);
        EXPECT_TRUE(created) << error;
        if (created)
            end = std::make_unique<Endpoint>(std::move(m), Side::Vm);
    }
    ~FakeVm()
    {
        if (end) {
            end->markClosed();
            end->mapping().unlinkIfStillOurs(name);
        }
    }
    // One record, as the VM's reader would wait for it.
    bool read(std::string& record)
    {
        RingReader& r = end->reader();
        while (pending.empty()) {
            if (!end->pull(pending) ||
                (pending.empty() && waitFor(end->inRing().dataSeq, end->inRing().readersWaiting,
                                            [&] { return r.available() > 0; }, [&] { return end->stopped(); }, 0,
                                            nowUs() + 5000000) != WaitResult::Ready))
                return false;
        }
        record = pending.front();
        pending.erase(pending.begin());
        return true;
    }
    std::string name;
    bool created = false;
    std::unique_ptr<Endpoint> end;
    std::vector<std::string> pending;
};

TEST(ShmemChannel, NamesAreCheckedWithAClearReason)
{
    struct Case {
        std::string name;
        bool valid;
        const char* reason;
    };
    const Case cases[] = {
        {"krv.session_1-A", true, ""},
        {std::string(200, 'n'), true, ""},
        {"", false, "empty"},
        {std::string(201, 'n'), false, "201 characters long; at most 200"},
        {"a/b", false, "character '/'"},
        {"a b", false, "character ' '"},
        {std::string("a\x01", 2), false, "code 1"},
        {"..%", false, "character '%'"},
    };
    for (const Case& c : cases) {
        std::string why;
        EXPECT_EQ(ShmemChannel::validName(c.name, why), c.valid) << c.name;
        EXPECT_NE(why.find(c.reason), std::string::npos) << c.name << ": " << why;
        if (!c.valid) {
            ShmemChannel channel;
            std::string error;
            EXPECT_FALSE(channel.attach(c.name, error));
            EXPECT_EQ(error, why);
            Mapping m;
            EXPECT_FALSE(createChannel(c.name, m, error));
            EXPECT_EQ(error, why);
        }
    }
}

// The record layer on a ring in plain memory: byte streams published in
// pieces, and the records that must come out after each piece.
TEST(ShmemRing, StreamsAreCutIntoRecords)
{
    struct Case {
        const char* what;
        std::vector<std::string> pieces;
        std::vector<std::vector<std::string>> after; // records completed after each piece
        bool corrupt;
    };
    const Case cases[] = {
        {"length prefix split", {std::string("\x03\x00", 2), std::string("\x00\x00" "ab", 4), "c"},
         {{}, {}, {"abc"}}, false},
        {"two records and an empty one in one piece",
         {std::string("\x01\x00\x00\x00" "x" "\x00\x00\x00\x00" "\x02\x00\x00\x00" "yz", 15)},
         {{"x", "", "yz"}}, false},
        {"body split twice", {std::string("\x04\x00\x00\x00" "J", 5), "DW", "P"}, {{}, {}, {"JDWP"}}, false},
        {"length beyond the limit", {std::string("\x01\x00\x00\x41" "z", 5)}, {{}}, true},
    };
    for (const Case& c : cases) {
        RingControl control{};
        std::vector<uint8_t> data(kRingBytes);
        RingWriter writer(&control, data.data());
        RingReader reader(&control, data.data());
        RecordAssembler assembler;
        for (size_t i = 0; i < c.pieces.size(); ++i) {
            ASSERT_EQ(writer.writeSome(c.pieces[i].data(), c.pieces[i].size()), c.pieces[i].size());
            std::vector<std::string> got;
            bool ok = assembler.pull(reader, got);
            EXPECT_EQ(ok, !(c.corrupt && i + 1 == c.pieces.size())) << c.what;
            EXPECT_EQ(got, c.after[i]) << c.what << ", piece " << i;
        }
    }

    // Positions that claim more unread bytes than the ring holds are refused, not followed.
    RingControl control{};
    std::vector<uint8_t> data(kRingBytes);
    control.head = uint64_t(kRingBytes) * 3;
    RingReader reader(&control, data.data());
    RingWriter writer(&control, data.data());
    std::vector<std::string> got;
    RecordAssembler assembler;
    EXPECT_FALSE(assembler.pull(reader, got));
    EXPECT_EQ(reader.available(), 0u);
    EXPECT_EQ(writer.freeSpace(), 0u);
    EXPECT_TRUE(writer.broken());
}

// One channel's life: attached to a fake VM, records both ways, and the VM
// closing right after a last record.
TEST(ShmemChannel, RecordsKeepTheirBoundariesBothWaysUntilTheVmCloses)
{
    const std::string name = uniqueName("life");
    auto vm = std::make_unique<FakeVm>(name);
    ASSERT_TRUE(vm->created);
    ShmemChannel channel;
    std::string error;
    ASSERT_TRUE(channel.attach(name, error)) << error;
    EXPECT_TRUE(channel.isOpen());
    EXPECT_TRUE(channel.attach(name, error)) << "attaching again to the same name is harmless";
    EXPECT_FALSE(objectExists(name)) << "the debugger drops the name once both ends hold the mapping";

    // Several records published before the debugger looks, an empty one
    // among them; positions wrap around the ring end several times.
    std::string odd(kRingBytes / 3 + 7, 'x');
    for (int round = 0; round < 8; ++round) {
        odd[0] = char('a' + round);
        ASSERT_TRUE(vm->end->write(odd));
        ASSERT_TRUE(vm->end->write(""));
        EXPECT_TRUE(channel.waitReadable(5000));
        EXPECT_EQ(receive(channel, 2), (std::vector<std::string>{odd, ""}));
    }
    EXPECT_FALSE(channel.waitReadable(1)) << "nothing is waiting";

    // Records larger than a ring arrive whole, both ways.
    std::string big(3 * kRingBytes, '\0');
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = char(i * 131 + (i >> 16));
    std::thread vmWriter([&] { EXPECT_TRUE(vm->end->write(big)); });
    auto got = receive(channel, 1);
    vmWriter.join();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_TRUE(got[0] == big);
    std::thread debuggerWriter([&] { EXPECT_TRUE(channel.writeRecord(big)); });
    std::string atVm;
    EXPECT_TRUE(vm->read(atVm));
    debuggerWriter.join();
    EXPECT_TRUE(atVm == big);

    // The VM closes right after a last record: it still arrives, then the
    // channel reports the VM gone.
    const std::string death("\x07\x00\x00\x00" "\x00" "\x40\x64" "\x00\x00\x00\x00", 11);
    ASSERT_TRUE(vm->end->write(death));
    vm.reset(); // says goodbye and unmaps
    std::vector<std::string> last;
    ASSERT_TRUE(pollReadable(channel.notifyFd()));
    ASSERT_TRUE(channel.readRecords(last));
    EXPECT_EQ(last, std::vector<std::string>{death});
    EXPECT_TRUE(pollReadable(channel.notifyFd(), 0)) << "the verdict is still to be fetched";
    EXPECT_FALSE(channel.readRecords(last));
    EXPECT_FALSE(channel.isOpen());
    EXPECT_FALSE(channel.writeRecord("x"));
    EXPECT_TRUE(channel.waitReadable(1000));
}

// The id of a process that has ended and been reaped.
pid_t deadPid()
{
    pid_t pid = fork();
    if (pid == 0)
        _exit(0);
    waitpid(pid, nullptr, 0);
    return pid;
}

TEST(ShmemChannel, RefusesWithClearErrors)
{
    const std::string name = uniqueName("refuse");
    ShmemChannel first;
    std::string error;
    FakeVm vm(name);
    ASSERT_TRUE(vm.created);
    Mapping second;
    EXPECT_FALSE(createChannel(name, second, error)) << "a live VM keeps its name";
    EXPECT_NE(error.find("is in use by the running process " + std::to_string(getpid())), std::string::npos)
        << error;
    EXPECT_FALSE(ShmemChannel::removeStale(name)) << "nor is it taken away as stale";

    // A claim by a live debugger holds (even one that never announced itself).
    std::atomic<int32_t>& claimer = vm.end->header().debuggerPid;
    claimer = int32_t(getppid());
    EXPECT_FALSE(first.attach(name, error));
    EXPECT_NE(error.find("already in use by debugger process " + std::to_string(getppid())), std::string::npos)
        << error;
    EXPECT_TRUE(objectExists(name));

    // A dead one's is taken over.
    claimer = int32_t(deadPid());
    ASSERT_TRUE(first.attach(name, error)) << error;
    EXPECT_EQ(claimer.load(), getpid());
    EXPECT_FALSE(first.attach(uniqueName("other"), error));
    EXPECT_NE(error.find("already attached"), std::string::npos) << error;
    // A second debugger: the name is gone already, and the channel is taken anyway.
    ShmemChannel another;
    EXPECT_FALSE(another.attach(name, error));
    EXPECT_NE(error.find("no VM is listening on the shared-memory name \"" + name + "\""), std::string::npos)
        << error;
    EXPECT_FALSE(another.isOpen());
    std::vector<std::string> none;
    EXPECT_FALSE(another.readRecords(none));
    EXPECT_FALSE(another.writeRecord("JDWP-Handshake"));
}

TEST(ShmemChannel, LeftoversOfACrashedVmAreRemoved)
{
    const std::string name = uniqueName("stale");
    // What a crashed VM leaves: its channel, never closed, naming a process that is gone.
    auto leaveStale = [&] {
        FakeVm crashed(name);
        ASSERT_TRUE(crashed.created);
        crashed.end->header().vmPid = deadPid();
        crashed.end.reset();
        ASSERT_TRUE(objectExists(name));
    };
    // Found by a debugger: refused clearly, and the object is removed.
    leaveStale();
    ShmemChannel channel;
    std::string error;
    EXPECT_FALSE(channel.attach(name, error));
    EXPECT_NE(error.find("has ended"), std::string::npos) << error;
    EXPECT_FALSE(objectExists(name));

    // Removed on request by whoever killed the VM.
    leaveStale();
    EXPECT_TRUE(ShmemChannel::removeStale(name));
    EXPECT_FALSE(objectExists(name));
    EXPECT_FALSE(ShmemChannel::removeStale(name));

    // A VM killed while it built the object leaves it without a header: a VM
    // creating that name meanwhile must not take it while it may still be
    // built, but whoever killed the VM removes it at once.
    const int fd = shm_open(objectName(name).c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    ASSERT_GE(fd, 0);
    ::close(fd);
    Mapping unused;
    EXPECT_FALSE(createChannel(name, unused, error));
    EXPECT_NE(error.find("is in use"), std::string::npos) << error;
    EXPECT_TRUE(ShmemChannel::removeStale(name));
    EXPECT_FALSE(objectExists(name));

    // Found by the next VM: it takes the name over.
    leaveStale();
    {
        FakeVm next(name);
        EXPECT_TRUE(next.created);
        EXPECT_EQ(next.end->header().vmPid.load(), getpid());
    }
    EXPECT_FALSE(objectExists(name));
}

} // namespace
