#pragma once

#include <cstdint>
#include <string>

#include "board/Board.h"
#include "console/BoardFolder.h"
#include "console/HttpServer.h"
#include "console/LivePicture.h"
#include "console/StatusFeed.h"

namespace console {

/// The live panel as one picture after the other (multipart/x-mixed-replace). A viewer that is slow gets
/// fewer.
class PictureStream : public Stream {
public:
    static constexpr const char* kType = "multipart/x-mixed-replace; boundary=picture";

    explicit PictureStream(LivePicture& pictures) : pictures_(pictures) {}
    std::string next() override;

private:
    LivePicture& pictures_;
    uint64_t seen_ = 0;
};

/// What happens on the board, as server-sent events: "status" with each report of the daemon (null when none
/// comes), "log" with what the log has grown by, and, when changed, "files" with recordings, stored videos
/// and bitrate, and "board" with its counters. A listener that is slow gets the last status only, and all of
/// the log.
class EventStream : public Stream {
public:
    static constexpr const char* kType = "text/event-stream";

    EventStream(const board::Board& board, const BoardFolder& folder, StatusFeed& statuses)
        : board_(board), folder_(folder), statuses_(statuses)
    {
    }
    std::string next() override;

private:
    std::string statusNews();
    std::string logNews();
    std::string slowNews();

    const board::Board& board_;
    const BoardFolder& folder_;
    StatusFeed& statuses_;
    bool began_ = false;
    uint64_t seenStatus_ = 0;
    uint64_t logIdentity_ = 0, logOffset_ = 0;
    StatusFeed::Clock::time_point slowNewsDue_;
    std::string files_, counters_;
};

}  // namespace console
