#include "Ledger.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "RecordingReader.h"
#include "Verbs.h"
#include "support/Folder.h"
#include "support/Pictures.h"

namespace survival {
namespace {

constexpr size_t kHeaderBytes = 792;
constexpr size_t kFragmentBytes = 200;  // up to here a file is begun anew, behind what it has
constexpr size_t kTagBytes = 4;
constexpr size_t kHeadBytes = 8;
constexpr support::Rectangle kFirstTile{0, 30, 720, 480};

uint32_t sizeAt(const std::string& data, size_t at)
{
    uint32_t size = 0;
    for (size_t i = kHeadBytes; i > kTagBytes; --i) {
        size = size << 8 | static_cast<uint8_t>(data[at + i - 1]);
    }
    return size;
}

}  // namespace

void Ledger::closeRun()
{
    const std::string data = support::readFile(file_);
    size_t at = end_;
    if (data.size() > at && at <= kFragmentBytes) {
        at = std::min(at + kHeaderBytes, data.size());
    }
    while (at + kHeadBytes <= data.size() && data.compare(at, kTagBytes, "00db") == 0) {
        const uint32_t size = sizeAt(data, at);
        if (at + kHeadBytes + size > data.size()) {
            break;
        }
        add({static_cast<off_t>(at), size});
        at += kHeadBytes + size;
    }
    if (at != data.size()) {
        tear(data, at);
    }
    end_ = data.size();
}

void Ledger::add(const Place& chunk)
{
    swallowed_ += static_cast<size_t>(chunk.offset) < claimed_ ? 1U : 0U;
    chunks_.push_back(chunk);
}

/// Takes note of a run's end within a chunk, or within the header.
void Ledger::tear(const std::string& data, size_t at)
{
    ++tears_;
    if (at + kHeadBytes > data.size()) {
        return;
    }
    claimed_ = std::max(claimed_, at + kHeadBytes + sizeAt(data, at));
    unpadded_ += at + kHeadBytes + sizeAt(data, at) <= data.size() + recording::RecordingReader::kMostPadding
                     ? 1U
                     : 0U;
}

std::vector<Place> missingIn(const std::vector<Place>& found, const std::vector<Place>& wanted, off_t upTo)
{
    std::vector<Place> missing;
    std::copy_if(wanted.begin(), wanted.end(), std::back_inserter(missing), [&](const Place& place) {
        return place.offset + static_cast<off_t>(kHeadBytes + place.size) <= upTo &&
               std::find(found.begin(), found.end(), place) == found.end();
    });
    return missing;
}

std::vector<Place> chunksFound(const std::string& file)
{
    std::vector<Place> found;
    recording::RecordingReader reader;
    if (!reader.open(file, recording::Depth::kBytes)) {
        return found;
    }
    while (const auto event = reader.next()) {
        if (const auto* chunk = std::get_if<recording::Chunk>(&*event)) {
            found.push_back({chunk->offset, chunk->size});
        }
    }
    return found;
}

Playing play(const std::string& file)
{
    const support::Recording header = support::readRecording(file);
    support::FrameReader reader(file, header.width, header.height);
    support::Frame frame;
    Playing playing;
    for (; header.width > 0 && reader.next(frame); ++playing.frames) {
        const bool readable = support::shownIn(frame.luma, kFirstTile).has_value();
        playing.unreadable += readable ? 0U : 1U;
        playing.readableAtEnd = readable ? playing.readableAtEnd + 1 : 0;
    }
    playing.complaints = reader.complaints();
    return playing;
}

size_t packetsSeen(const std::string& file)
{
    const auto outcome =
        support::runToEnd({"/usr/bin/ffprobe", "-v", "quiet", "-count_packets", "-show_entries",
                           "stream=nb_read_packets", "-of", "csv=p=0", file});
    return std::strtoul(outcome.output.c_str(), nullptr, 10);
}

Playing playRepaired(const std::string& file)
{
    const support::Folder folder;
    const std::string repaired = folder.file("repaired.avi");
    return recording::runRepair({file, repaired, false}) == 0 ? play(repaired) : Playing();
}

std::string judgeRepaired(const std::string& file, size_t frames)
{
    const Playing playing = playRepaired(file);
    if (playing.frames != frames || playing.unreadable != 0 || !playing.complaints.empty()) {
        return "repaired, plays " + std::to_string(playing.frames) + " of " + std::to_string(frames) +
               " frames, " + std::to_string(playing.unreadable) + " unreadable: " + playing.complaints;
    }
    return {};
}

void report(const std::string& what, const std::vector<std::pair<std::string, size_t>>& figures)
{
    nlohmann::ordered_json line;
    line["survival"] = what;
    for (const auto& [name, value] : figures) {
        line[name] = value;
    }
    std::printf("%s\n", line.dump().c_str());
}

}  // namespace survival
