// Framing benchmark: a peer that sends 8 MiB of the smallest packets (11
// bytes each, of a command set nobody decodes), delivered as the socket
// transport delivers what is waiting (batches of up to 8 MiB; here also in
// 64 KiB reads, with packets straddling the cuts); timed from the first read
// to the last packet dispatched. The anchor is the floor of any framing: a loop that only walks
// the same reads packet by packet (length and id of each) from an offset.
// No VM is involved; the session talks to the scripted transport.
#include <jdwpkrvdbg/jdwpkrvdbg.h>

#include <climits>
#include <cstdio>

#include "BenchKit.h"

using namespace jdwpkrvdbg;

namespace {

constexpr size_t kTotal = 8u << 20;
constexpr int kRounds = 5;

// The reads of one run: 11-byte command packets, cut every `read` bytes.
std::vector<std::string> makeReads(size_t read)
{
    std::string all;
    all.reserve(kTotal);
    for (uint32_t id = 1; all.size() + 11 <= kTotal; ++id)
        all += bench::commandPacket(id, 0x63, 1, "");
    std::vector<std::string> reads;
    for (size_t at = 0; at < all.size(); at += read)
        reads.push_back(all.substr(at, read));
    return reads;
}

double ours(const std::vector<std::string>& reads, uint64_t& moved)
{
    auto handler = JDWPHandler::create();
    auto transport = std::make_shared<bench::ScriptedTransport>();
    handler->setTransportFactory([transport] { return std::static_pointer_cast<JDWPCon>(transport); });
    handler->bRemoteConnection = true;
    if (!handler->startVM("", "", "", false, false, 0, "127.0.0.1", "1", true))
        return -1;
    transport->raiseReceive("JDWP-Handshake");
    const double t0 = bench::nowUs();
    for (const auto& read : reads) {
        transport->raiseReceive(read);
        transport->pumpProcessEvents(INT_MAX);
    }
    const double took = bench::nowUs() - t0;
    moved = handler->receiveBytesMoved();
    handler->attachTransport(nullptr);
    setCurrentHandler(nullptr);
    return took;
}

double floorLoop(const std::vector<std::string>& reads, uint64_t& checksum)
{
    const double t0 = bench::nowUs();
    std::string buffer;
    for (const auto& read : reads) {
        buffer += read;
        size_t at = 0;
        while (buffer.size() - at >= 11) {
            const auto* p = reinterpret_cast<const unsigned char*>(buffer.data() + at);
            const uint32_t length = (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
            if (buffer.size() - at < length)
                break;
            checksum += (uint32_t{p[4]} << 24) | (uint32_t{p[5]} << 16) | (uint32_t{p[6]} << 8) | p[7];
            at += length;
        }
        buffer.erase(0, at);
    }
    return bench::nowUs() - t0;
}

} // namespace

int main()
{
    int status = 0;
    for (const auto& [row, read] :
         {std::pair{"framing_8mib", kTotal}, std::pair{"framing_8mib_64k", size_t{64} << 10}}) {
        const auto reads = makeReads(read);
        std::vector<double> oursUs, floorUs;
        uint64_t moved = 0, checksum = 0;
        for (int round = 0; round < kRounds; ++round) {
            const double t = ours(reads, moved);
            if (t < 0) {
                std::fprintf(stderr, "the in-memory session did not open\n");
                return 1;
            }
            oursUs.push_back(t);
            floorUs.push_back(floorLoop(reads, checksum));
        }
        std::printf("%s: %zu reads, %llu bytes moved inside the receive buffer per run\n", row, reads.size(),
                    static_cast<unsigned long long>(moved));
        bench::report(row, bench::summarize(oursUs), bench::summarize(floorUs));
        status |= checksum == 0;
    }
    return status;
}
