#include "Http.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <utility>

#include "Scenes.h"
#include "Wait.h"

namespace http {
namespace {

constexpr support::Duration kPatience = support::kGenerous * scenes::kSlowness;

}  // namespace

Connection::Connection(uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval patience{kPatience.count() / 1000, 0};
    ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    ::setsockopt(socket_.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    if (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == -1) {
        socket_ = cli::Descriptor();
    }
}

bool Connection::send(const std::string& bytes)
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t got = ::send(socket_.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (got <= 0) {
            return false;
        }
        sent += static_cast<size_t>(got);
    }
    return true;
}

std::string Connection::readUntil(const std::string& text)
{
    std::string all = std::move(surplus_);
    surplus_.clear();
    std::array<char, 65536> block{};
    const auto deadline = support::Clock::now() + kPatience;
    while ((text.empty() || all.find(text) == std::string::npos) && support::Clock::now() < deadline) {
        const ssize_t got = ::recv(socket_.get(), block.data(), block.size(), 0);
        if (got <= 0) {
            break;
        }
        all.append(block.data(), static_cast<size_t>(got));
    }
    const size_t found = text.empty() ? std::string::npos : all.find(text);
    if (found != std::string::npos) {
        surplus_ = all.substr(found + text.size());
        all.resize(found + text.size());
    }
    return all;
}

bool Connection::awaitEnd()
{
    std::array<char, 4096> block{};
    const auto deadline = support::Clock::now() + kPatience;
    ssize_t got = 1;
    while (got > 0 && support::Clock::now() < deadline) {
        got = ::recv(socket_.get(), block.data(), block.size(), 0);
    }
    return got == 0 || (got < 0 && errno == ECONNRESET);
}

std::string get(uint16_t port, const std::string& path)
{
    Connection connection(port);
    connection.send("GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
    return connection.readAll();
}

std::string post(uint16_t port, const std::string& path, const std::string& json)
{
    Connection connection(port);
    connection.send("POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                    "\r\nConnection: close\r\nContent-Type: application/json\r\nContent-Length: " +
                    std::to_string(json.size()) + "\r\n\r\n" + json);
    return connection.readAll();
}

int statusOf(const std::string& answer)
{
    constexpr size_t kAt = 9;  // behind "HTTP/1.1 "
    int status = 0;
    if (answer.compare(0, 7, "HTTP/1.") == 0 && answer.size() > kAt) {
        std::from_chars(answer.data() + kAt, answer.data() + answer.size(), status);
    }
    return status;
}

std::string bodyOf(const std::string& answer)
{
    const size_t end = answer.find("\r\n\r\n");
    return end == std::string::npos ? std::string() : answer.substr(end + 4);
}

}  // namespace http
