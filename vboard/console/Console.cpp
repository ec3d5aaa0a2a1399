#include "console/Console.h"

#include <microhttpd.h>

#include "console/BoardFolder.h"
#include "console/HttpServer.h"
#include "console/LivePicture.h"
#include "console/Page.h"
#include "console/Requests.h"
#include "console/StatusFeed.h"
#include "console/Streams.h"
#include "paths/Paths.h"

namespace console {
namespace {

std::string queueName(const board::Board& board, const char* name)
{
    return board::paths::queue(board.folder(), name).value_or("");
}

}  // namespace

/// In the order of their use: the server goes first and needs all others until then.
struct Console::Parts {
    Parts(const board::Board& onBoard, cli::Descriptor listening)
        : board(onBoard),
          folder(board.folder()),
          statuses(queueName(board, control::kStatusQueue)),
          requests(queueName(board, control::kRequestQueue)),
          pictures(board),
          server(std::move(listening), routes())
    {
    }

    std::vector<Route> routes();
    HttpResponse page() const;
    HttpResponse still();
    HttpResponse download(const std::string& name) const;
    template <typename Kind, typename... Sources>
    HttpResponse stream(Sources&... sources);

    const board::Board& board;
    const BoardFolder folder;
    StatusFeed statuses;
    Requests requests;
    LivePicture pictures;
    HttpServer server;
};

std::vector<Route> Console::Parts::routes()
{
    std::vector<Route> routes = requests.routes();
    routes.push_back({"GET", "/", [this](const HttpRequest&) { return page(); }});
    routes.push_back(
        {"GET", "/live", [this](const HttpRequest&) { return stream<PictureStream>(pictures); }});
    routes.push_back({"GET", "/events",
                      [this](const HttpRequest&) { return stream<EventStream>(board, folder, statuses); }});
    routes.push_back({"GET", "/panel.jpg", [this](const HttpRequest&) { return still(); }});
    routes.push_back(
        {"GET", "/recordings/", [this](const HttpRequest& request) { return download(request.rest); }});
    return routes;
}

HttpResponse Console::Parts::page() const
{
    HttpResponse response;
    response.type = "text/html; charset=utf-8";
    response.body = kPage;
    return response;
}

HttpResponse Console::Parts::still()
{
    const auto picture = pictures.await(0);
    if (picture == nullptr) {
        return refusal(MHD_HTTP_SERVICE_UNAVAILABLE, "the board goes down");
    }
    HttpResponse response;
    response.type = "image/jpeg";
    response.body = picture->jpeg;
    return response;
}

HttpResponse Console::Parts::download(const std::string& name) const
{
    auto file = folder.open(BoardFolder::kRecordings, name);
    if (!file) {
        return refusal(MHD_HTTP_NOT_FOUND, "there is no such recording");
    }
    HttpResponse response;
    response.type = "video/x-msvideo";
    response.file = std::move(file->descriptor);
    response.fileBytes = file->bytes;  // what a running recording has grown to by now
    return response;
}

template <typename Kind, typename... Sources>
HttpResponse Console::Parts::stream(Sources&... sources)
{
    HttpResponse response;
    response.type = Kind::kType;
    response.stream = std::make_unique<Kind>(sources...);
    return response;
}

Console::Console(const board::Board& board, Listener listener)
    : parts_(std::make_unique<Parts>(board, std::move(listener.socket)))
{
}

Console::~Console()
{
    parts_->statuses.stop();
    parts_->pictures.stop();
}

bool Console::serving() const
{
    return parts_->server.serving();
}

}  // namespace console
