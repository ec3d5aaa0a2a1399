#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cli/Descriptor.h"

struct MHD_Daemon;

namespace console {

/// A body that is made while it is sent.
class Stream {
public:
    Stream() = default;
    virtual ~Stream() = default;
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// The next bytes, at least one of them; may wait up to a second for them. Empty: the end.
    virtual std::string next() = 0;
};

struct HttpRequest {
    std::string rest;  ///< of the path, behind the route's, with its escapes resolved
    std::string body;
};

/// What is answered: a text, or a file, or a stream.
struct HttpResponse {
    unsigned status = 200;
    std::string type = "text/plain; charset=utf-8";
    std::string body;
    cli::Descriptor file;  ///< open: its first `fileBytes` instead of the body
    uint64_t fileBytes = 0;
    std::unique_ptr<Stream> stream;  ///< instead of either
    std::string allow;               ///< the method that would do, after a wrong one
};
/// An error as a line of text.
HttpResponse refusal(unsigned status, const std::string& text);

/// One thing that is served.
struct Route {
    const char* method;  ///< "GET" (HEAD is answered too) or "POST", with a JSON body
    const char* path;    ///< one that ends in '/' stands for all below it, except for "/" itself
    std::function<HttpResponse(const HttpRequest&)> answer;
};

/// Serves a table of routes over HTTP/1.1.
///
/// Foreign pages are kept out: a request must name this machine by address or as localhost, so that no name
/// server can lead a page here, and must come from no page or from the console's own.
///
/// Bounds: 32 connections, each with 32 kB for its header, 4 kB of body and ten seconds of silence; what is
/// beyond is answered with an error or dropped.
///
/// Threads:  one for each connection, all of low priority; answers and streams must be made for that.
/// Lifetime: serves from its making; the destructor waits for the streams, which must have been told to end.
/// Errors:   serving() is false when it could not start.
class HttpServer {
public:
    HttpServer(cli::Descriptor listening, std::vector<Route> routes);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    bool serving() const { return daemon_ != nullptr; }

private:
    const std::vector<Route> routes_;
    MHD_Daemon* daemon_ = nullptr;
};

}  // namespace console
