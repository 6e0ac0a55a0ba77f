// krvdbg-dap: a Debug Adapter Protocol adapter for Java programs, built on the
// JDWPKrvDbg library. It speaks DAP on stdin/stdout, or with --port N serves
// one client over TCP. Everything runs on one thread: the client's bytes and
// the VM's packets both arrive through the library's message pump; requests
// are taken one at a time outside the pump's nested passes, so a request is
// never started while another one waits for the VM.
#include <arpa/inet.h>
#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>

#include <jdwpkrvdbg/platform/MessagePump.h>
#include <jdwpkrvdbg/version.h>

#include "DapAdapter.h"
#include "DapChannel.h"

using namespace krvdbg;

namespace {

void usage(FILE* to)
{
    std::fputs("usage: krvdbg-dap [--port N]\n"
               "  Speaks the Debug Adapter Protocol on stdin/stdout; with --port N it waits on\n"
               "  127.0.0.1:N for one client and speaks it there.\n",
               to);
}

bool writeAll(int fd, const std::string& bytes)
{
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno == EAGAIN) {
            pollfd p{fd, POLLOUT, 0};
            ::poll(&p, 1, 1000);
            continue;
        }
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

int acceptOne(int port)
{
    const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (server < 0)
        return -1;
    const int yes = 1;
    ::setsockopt(server, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = htons(static_cast<uint16_t>(port));
    if (::bind(server, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || ::listen(server, 1) != 0) {
        std::fprintf(stderr, "krvdbg-dap: cannot listen on 127.0.0.1:%d: %s\n", port, std::strerror(errno));
        ::close(server);
        return -1;
    }
    std::fprintf(stderr, "krvdbg-dap: waiting for a client on 127.0.0.1:%d\n", port);
    int client = -1;
    do {
        client = ::accept4(server, nullptr, nullptr, SOCK_CLOEXEC);
    } while (client < 0 && errno == EINTR);
    ::close(server);
    return client;
}

} // namespace

int main(int argc, char** argv)
{
    int port = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--port" && i + 1 < argc) {
            char* end = nullptr;
            const long p = std::strtol(argv[++i], &end, 10);
            if (!end || *end || p <= 0 || p > 65535) {
                std::fprintf(stderr, "krvdbg-dap: --port takes a port number (1..65535)\n");
                return 1;
            }
            port = static_cast<int>(p);
        } else if (a == "--help" || a == "-h") {
            usage(stdout);
            return 0;
        } else if (a == "--version") {
            std::printf("krvdbg-dap %s\n", JDWPKRVDBG_VERSION);
            return 0;
        } else {
            usage(stderr);
            return 1;
        }
    }
    // A client that goes away must not kill the adapter before it ends the VM.
    ::signal(SIGPIPE, SIG_IGN);
    // Each stop builds and frees the same few hundred KiB (an object's
    // thousand fields as JSON); handing them back to the system after every
    // answer only to fault them in again at the next costs more than it saves.
    ::mallopt(M_TRIM_THRESHOLD, 8 * 1024 * 1024);
    ::mallopt(M_MMAP_THRESHOLD, 8 * 1024 * 1024);

    int in = STDIN_FILENO, out = STDOUT_FILENO;
    if (port != 0) {
        in = out = acceptOne(port);
        if (in < 0)
            return 2;
    }
    ::fcntl(in, F_SETFL, ::fcntl(in, F_GETFL) | O_NONBLOCK);

    bool outputBroken = false;
    DapAdapter adapter([&](const json& message) {
        if (!outputBroken && !writeAll(out, DapChannel::encode(message)))
            outputBroken = true;
    });
    DapChannel channel;
    std::deque<DapChannel::Item> inbox;
    bool inputEnded = false;
    auto& pump = jdwpkrvdbg::MessagePump::instance();
    // Reading only queues: requests run from the loop below, never from a
    // pass that the library started while waiting for a reply.
    const int watch = pump.addWatch(in, POLLIN, [&](short) {
        char buf[64 * 1024];
        for (;;) {
            const ssize_t n = ::read(in, buf, sizeof buf);
            if (n > 0) {
                channel.feed(buf, static_cast<size_t>(n));
                continue;
            }
            if (n < 0 && errno == EINTR)
                continue;
            if (n == 0 || (n < 0 && errno != EAGAIN)) {
                inputEnded = true;
                pump.removeWatch(watch);
            }
            break;
        }
        while (auto item = channel.next())
            inbox.push_back(std::move(*item));
    });

    while (!adapter.finished()) {
        while (!inbox.empty() && !adapter.finished()) {
            DapChannel::Item item = std::move(inbox.front());
            inbox.pop_front();
            if (item.ok)
                adapter.handle(item.message);
            else
                adapter.badInput(item.error);
            adapter.poll();
        }
        if (adapter.finished())
            break;
        if (inputEnded || outputBroken) {
            adapter.inputClosed();
            break;
        }
        pump.pumpOnce(inbox.empty() ? 50 : 0);
        adapter.poll();
    }
    if (!inputEnded)
        pump.removeWatch(watch);
    return 0;
}
