#pragma once

#include <cstdint>
#include <string>

#include "cli/Descriptor.h"

namespace http {

/// A connection to a server of this machine that says what the test wants said, well-formed or not.
///
/// Errors: a connection that could not be made is not open; what is read of it is empty.
class Connection {
public:
    explicit Connection(uint16_t port);

    bool isOpen() const { return socket_.isOpen(); }
    /// Sends as much as the other side takes; false when it did not take all of it.
    bool send(const std::string& bytes);
    /// Reads until the text has come, or the other side has closed, or nothing comes for a generous time.
    std::string readUntil(const std::string& text);
    /// Reads until the other side has closed.
    std::string readAll() { return readUntil(""); }
    /// Waits until the other side has closed, reading nothing that matters; false when it does not.
    bool awaitEnd();

private:
    cli::Descriptor socket_;
    std::string surplus_;  ///< read, and behind what was asked for
};

/// A request as a browser's own page would make it, and its whole answer.
std::string get(uint16_t port, const std::string& path);
std::string post(uint16_t port, const std::string& path, const std::string& json);
/// The status of an answer, 0 for none.
int statusOf(const std::string& answer);
std::string bodyOf(const std::string& answer);

}  // namespace http
