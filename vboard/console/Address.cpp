#include "console/Address.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

namespace console {
namespace {

constexpr const char* kLocalhost = "localhost";
constexpr const char* kLoopback = "127.0.0.1";

/// An address of either family as the socket calls take it.
struct SocketAddress {
    sockaddr_storage storage = {};
    socklen_t bytes = 0;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
};

std::optional<SocketAddress> numericAddress(const std::string& host, uint16_t port)
{
    SocketAddress address;
    sockaddr_in ip4 = {};
    sockaddr_in6 ip6 = {};
    if (::inet_pton(AF_INET, host.c_str(), &ip4.sin_addr) == 1) {
        ip4.sin_family = AF_INET;
        ip4.sin_port = htons(port);
        address.bytes = sizeof(ip4);
        std::memcpy(&address.storage, &ip4, sizeof(ip4));
        return address;
    }
    if (::inet_pton(AF_INET6, host.c_str(), &ip6.sin6_addr) == 1) {
        ip6.sin6_family = AF_INET6;
        ip6.sin6_port = htons(port);
        address.bytes = sizeof(ip6);
        std::memcpy(&address.storage, &ip6, sizeof(ip6));
        return address;
    }
    return std::nullopt;
}

uint16_t portOf(int socket)
{
    SocketAddress bound;
    bound.bytes = sizeof(bound.storage);
    if (::getsockname(socket, bound.get(), &bound.bytes) == -1) {
        return 0;
    }
    // Both families have the port in the same place.
    sockaddr_in record = {};
    std::memcpy(&record, &bound.storage, sizeof(record));
    return ntohs(record.sin_port);
}

/// What a browser on this machine takes for an address that stands for all.
std::string reachable(const std::string& host)
{
    if (host == "0.0.0.0") {
        return kLoopback;
    }
    if (host == "::") {
        return "[::1]";
    }
    return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

std::optional<uint16_t> parsePort(const std::string& text)
{
    uint16_t port = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool whole = result.ec == std::errc() && result.ptr == text.data() + text.size();
    return whole ? std::optional(port) : std::nullopt;
}

/// Takes the brackets off an IPv6 address; without them it is none.
std::string bareHost(const std::string& text)
{
    const bool bracketed = text.size() > 2 && text.front() == '[' && text.back() == ']';
    if (bracketed) {
        return text.substr(1, text.size() - 2);
    }
    return text.find(':') == std::string::npos ? text : std::string();
}

}  // namespace

std::optional<Address> parseAddress(const std::string& text)
{
    const size_t colon = text.rfind(':');
    const auto port = parsePort(colon == std::string::npos ? text : text.substr(colon + 1));
    if (!port) {
        return std::nullopt;
    }
    Address address;
    address.port = *port;
    if (colon != std::string::npos) {
        const std::string host = bareHost(text.substr(0, colon));
        address.host = host == kLocalhost ? kLoopback : host;
    }
    return numericAddress(address.host, *port) ? std::optional(address) : std::nullopt;
}

Listener listenAt(const Address& address)
{
    constexpr int kBacklog = 64;
    const auto bound = numericAddress(address.host, address.port);
    if (!bound) {
        errno = EINVAL;
        return {};
    }
    Listener listener;
    listener.socket = cli::Descriptor(::socket(bound->storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int socket = listener.socket.get();
    const int yes = 1;
    const bool listening = listener.socket.isOpen() &&
                           ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes)) == 0 &&
                           ::bind(socket, bound->get(), bound->bytes) == 0 && ::listen(socket, kBacklog) == 0;
    if (!listening) {
        const int error = errno;
        listener.socket = cli::Descriptor();
        errno = error;
        return listener;
    }
    listener.url = "http://" + reachable(address.host) + ":" + std::to_string(portOf(socket)) + "/";
    return listener;
}

bool isAddressOrLocalhost(const std::string& hostHeader)
{
    const size_t bracket = hostHeader.rfind(']');
    const size_t colon = hostHeader.rfind(':');
    const bool hasPort = colon != std::string::npos && (bracket == std::string::npos || colon > bracket);
    const std::string host = bareHost(hasPort ? hostHeader.substr(0, colon) : hostHeader);
    const bool portIsOne = !hasPort || parsePort(hostHeader.substr(colon + 1));
    return portIsOne && (host == kLocalhost || numericAddress(host, 0));
}

}  // namespace console
