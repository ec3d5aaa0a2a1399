#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "cli/Descriptor.h"

namespace console {

/// Where the console listens.
struct Address {
    std::string host = "127.0.0.1";  ///< an address as numbers, IPv6 without brackets
    uint16_t port = 0;               ///< 0: any that is free
};

/// Understands "[ADDR:]PORT"; IPv6 addresses stand in brackets, "localhost" is 127.0.0.1. Nothing for
/// anything else: names are not looked up.
std::optional<Address> parseAddress(const std::string& text);

/// A listening TCP socket.
struct Listener {
    cli::Descriptor socket;
    std::string url;  ///< how a browser reaches it, with the port that was found
};

/// Errors: a socket that is not open, with `errno`.
Listener listenAt(const Address& address);

/// Whether a Host header names an address or this machine itself, rather than a name that somebody's name
/// server may lead here.
bool isAddressOrLocalhost(const std::string& hostHeader);

}  // namespace console
