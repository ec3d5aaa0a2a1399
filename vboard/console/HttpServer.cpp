#include "console/HttpServer.h"

#include <microhttpd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <optional>
#include <string_view>
#include <thread>

#include "console/Address.h"
#include "console/Priority.h"

namespace console {
namespace {

constexpr unsigned kConnections = 32;
constexpr size_t kHeaderBytes = size_t{32} * 1024;
constexpr size_t kBodyBytes = size_t{4} * 1024;
constexpr unsigned kSilenceSeconds = 10;
/// On a busy machine a console that stands back may itself need long for the next piece of a stream.
constexpr unsigned kStreamSilenceSeconds = 60;
constexpr size_t kStreamBlock = size_t{64} * 1024;

constexpr const char* kJson = "application/json";

struct Header {
    const char* name;
    const char* value;
};
/// The page needs nothing but itself, and nobody else needs anything of it.
constexpr std::array kEveryHeader{
    Header{"Content-Security-Policy",
           "default-src 'none'; img-src 'self' data:; connect-src 'self'; style-src 'unsafe-inline'; "
           "script-src 'unsafe-inline'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    Header{"Cross-Origin-Resource-Policy", "same-origin"}, Header{"X-Content-Type-Options", "nosniff"},
    Header{"Referrer-Policy", "no-referrer"}, Header{"Cache-Control", "no-store"}};

std::string header(MHD_Connection* connection, const char* name)
{
    const char* value = ::MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value == nullptr ? std::string() : value;
}

/// Why a request is not to be heard, by who sends it; empty when it is.
std::string foreignness(MHD_Connection* connection)
{
    const std::string host = header(connection, "Host");
    const std::string origin = header(connection, "Origin");
    const std::string site = header(connection, "Sec-Fetch-Site");
    if (!isAddressOrLocalhost(host)) {
        return "call the console by its address or as localhost";
    }
    const bool ownPage = origin.empty() || origin == "http://" + host;
    const bool ownSite = site.empty() || site == "none" || site == "same-origin";
    return ownPage && ownSite ? std::string() : "requests from other sites are refused";
}

bool covers(const Route& route, std::string_view path)
{
    const std::string_view own = route.path;
    const bool below = own.size() > 1 && own.back() == '/';
    return below ? path.substr(0, own.size()) == own : path == own;
}

bool allows(const Route& route, std::string_view method)
{
    return method == route.method || (method == "HEAD" && route.method == std::string_view("GET"));
}

/// What a request's body is announced as.
std::optional<HttpResponse> wrongBody(MHD_Connection* connection)
{
    const std::string length = header(connection, "Content-Length");
    const std::string type = header(connection, "Content-Type");
    uint64_t bytes = 0;
    const auto read = std::from_chars(length.data(), length.data() + length.size(), bytes);
    if (read.ec == std::errc::result_out_of_range || bytes > kBodyBytes) {
        return refusal(MHD_HTTP_CONTENT_TOO_LARGE, "a request has at most 4096 bytes");
    }
    // A page elsewhere could send a form's types without asking first.
    const std::string_view media = std::string_view(type).substr(0, type.find(';'));
    return media == kJson ? std::nullopt
                          : std::optional(refusal(MHD_HTTP_UNSUPPORTED_MEDIA_TYPE, "send application/json"));
}

/// One request on its way, from its header to its answer.
struct Transaction {
    const Route* route = nullptr;
    HttpRequest request;
};

/// Finds the route, or what to answer instead before any body is read.
std::optional<HttpResponse> admit(MHD_Connection* connection, const std::vector<Route>& routes,
                                  std::string_view path, std::string_view method, Transaction& transaction)
{
    const std::string foreign = foreignness(connection);
    if (!foreign.empty()) {
        return refusal(MHD_HTTP_FORBIDDEN, foreign);
    }
    const auto route = std::find_if(routes.begin(), routes.end(),
                                    [&](const Route& candidate) { return covers(candidate, path); });
    if (route == routes.end()) {
        return refusal(MHD_HTTP_NOT_FOUND, "there is no such thing here");
    }
    if (!allows(*route, method)) {
        HttpResponse response = refusal(MHD_HTTP_METHOD_NOT_ALLOWED, "this takes another method");
        response.allow = route->method;
        return response;
    }
    transaction.route = &*route;
    transaction.request.rest = path.substr(std::strlen(route->path));
    return method == "POST" ? wrongBody(connection) : std::nullopt;
}

/// A stream with what of its last bytes is not sent yet.
struct Sending {
    std::unique_ptr<Stream> stream;
    std::string bytes;
    size_t sent = 0;
};

ssize_t sendMore(void* closure, uint64_t /*position*/, char* block, size_t room)
{
    auto& sending = *static_cast<Sending*>(closure);
    if (sending.sent == sending.bytes.size()) {
        sending.bytes = sending.stream->next();
        sending.sent = 0;
    }
    const size_t count = std::min(room, sending.bytes.size() - sending.sent);
    if (count == 0) {
        return MHD_CONTENT_READER_END_OF_STREAM;
    }
    sending.bytes.copy(block, count, sending.sent);
    sending.sent += count;
    return static_cast<ssize_t>(count);
}

void endSending(void* closure)
{
    delete static_cast<Sending*>(closure);
}

/// The library's record of an answer; it takes over the file or the stream.
MHD_Response* makeRecord(HttpResponse& response)
{
    if (response.stream) {
        auto* sending = new Sending{std::move(response.stream), {}, 0};
        return ::MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kStreamBlock, sendMore, sending,
                                                   endSending);
    }
    if (response.file.isOpen()) {
        return ::MHD_create_response_from_fd64(response.fileBytes, response.file.release());
    }
    return ::MHD_create_response_from_buffer(response.body.size(), response.body.data(),
                                             MHD_RESPMEM_MUST_COPY);
}

MHD_Result send(MHD_Connection* connection, HttpResponse response)
{
    if (response.stream) {
        ::MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT, kStreamSilenceSeconds);
    }
    MHD_Response* record = makeRecord(response);
    if (record == nullptr) {
        return MHD_NO;
    }
    for (const Header& each : kEveryHeader) {
        ::MHD_add_response_header(record, each.name, each.value);
    }
    ::MHD_add_response_header(record, MHD_HTTP_HEADER_CONTENT_TYPE, response.type.c_str());
    if (!response.allow.empty()) {
        ::MHD_add_response_header(record, MHD_HTTP_HEADER_ALLOW, response.allow.c_str());
    }
    const MHD_Result queued = ::MHD_queue_response(connection, response.status, record);
    ::MHD_destroy_response(record);
    return queued;
}

/// Called with the header, then with each piece of the body, then with nothing when all is there.
MHD_Result handle(void* closure, MHD_Connection* connection, const char* url, const char* method,
                  const char* /*version*/, const char* upload, size_t* uploadBytes, void** context)
{
    const auto& routes = *static_cast<const std::vector<Route>*>(closure);
    if (*context == nullptr) {
        auto* transaction = new Transaction;
        *context = transaction;
        auto wrong = admit(connection, routes, url, method, *transaction);
        return wrong ? send(connection, std::move(*wrong)) : MHD_YES;
    }
    auto& transaction = *static_cast<Transaction*>(*context);
    if (*uploadBytes != 0) {
        // One that announced less, or nothing, and goes on all the same is dropped.
        std::string& body = transaction.request.body;
        const bool fits = *uploadBytes <= kBodyBytes - body.size();
        body.append(upload, fits ? *uploadBytes : 0);
        *uploadBytes = 0;
        return fits ? MHD_YES : MHD_NO;
    }
    return send(connection, transaction.route->answer(transaction.request));
}

void forget(void* /*closure*/, MHD_Connection* /*connection*/, void** context,
            MHD_RequestTerminationCode /*how*/)
{
    delete static_cast<Transaction*>(*context);
    *context = nullptr;
}

}  // namespace

HttpResponse refusal(unsigned status, const std::string& text)
{
    HttpResponse response;
    response.status = status;
    response.body = text + "\n";
    return response;
}

HttpServer::HttpServer(cli::Descriptor listening, std::vector<Route> routes) : routes_(std::move(routes))
{
    // The library's threads inherit the priority of the one that starts it.
    std::thread([&] {
        stepBack();
        auto* ownRoutes = const_cast<std::vector<Route>*>(&routes_);  // the library's way to pass it on
        daemon_ = ::MHD_start_daemon(
            MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_POLL | MHD_USE_ITC, 0,
            nullptr, nullptr, handle, ownRoutes, MHD_OPTION_LISTEN_SOCKET, listening.get(),
            MHD_OPTION_CONNECTION_LIMIT, kConnections, MHD_OPTION_CONNECTION_MEMORY_LIMIT, kHeaderBytes,
            MHD_OPTION_CONNECTION_TIMEOUT, kSilenceSeconds, MHD_OPTION_STRICT_FOR_CLIENT, 1,
            MHD_OPTION_NOTIFY_COMPLETED, forget, nullptr, MHD_OPTION_END);
    }).join();
    if (daemon_ != nullptr) {
        listening.release();  // the library closes it
    }
}

HttpServer::~HttpServer()
{
    if (daemon_ != nullptr) {
        ::MHD_stop_daemon(daemon_);
    }
}

}  // namespace console
