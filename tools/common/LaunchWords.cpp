// Launch helpers shared by krvdbg and krvdbg-dap (see LaunchWords.h).
#include "LaunchWords.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <string_view>

namespace krvdbg {

int freeLocalPort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return 0;
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;
    socklen_t len = sizeof addr;
    int port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0)
        port = ntohs(addr.sin_port);
    ::close(fd);
    return port;
}

std::string quoteWord(const std::string& word)
{
    if (word.empty())
        return "''";
    bool plain = true;
    for (unsigned char c : word)
        if (!(std::isalnum(c) || std::string_view("-_./:=,+@%").find(static_cast<char>(c)) != std::string_view::npos))
            plain = false;
    if (plain)
        return word;
    std::string out = "'";
    for (char c : word)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

} // namespace krvdbg
