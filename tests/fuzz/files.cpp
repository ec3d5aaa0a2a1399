// Files that the daemon or its owner goes on with: recordings and archives.
#include <algorithm>
#include <array>

#include "Console.h"
#include "Input.h"
#include "MemoryFile.h"
#include "Targets.h"
#include "Verbs.h"
#include "lib/AviWriter.h"
#include "lib/diskfnts.h"
#include "recordings/Recordings.h"
#include "support/Folder.h"

namespace {

constexpr size_t kSmallestContinued = 201;  // bytes: a shorter file is not taken for a recording
constexpr size_t kFrameMax = 300;           // bytes

constexpr VideoWriter::VIDEO_FORMAT kFormat{30, 10000000, 1440, 990, VideoWriter::H264};

std::string chunk(const std::string& data)
{
    const std::string padding((4 - data.size() % 4) % 4, '\0');
    return "00db" + recordings::littleEndian(data.size() + padding.size()) + data + padding;
}

/// The first session's header, as one writer left it; the others are compared with it.
const std::string& header()
{
    static const std::string bytes = [] {
        const fuzz::MemoryFile file("");
        AviWriter writer;
        writer.start(file.path(), kFormat);
        return file.content();
    }();
    return bytes;
}

/// A first byte of 1 stands for a recording's header, so that short inputs get behind it.
std::string recordingFrom(fuzz::Input& bytes)
{
    const std::string begin = bytes.byte() == 1 ? header() : "";
    return begin + std::string(bytes.rest());
}

/// What a repaired recording lacks, or has too much.
std::string compareRepaired(const std::string& before, const std::string& after)
{
    const auto repaired = recordings::walk(after);
    if (!repaired.damages.empty()) {
        return "a repaired recording that is damaged";
    }
    return repaired.frames == recordings::walk(before).frames ? "" : "a repaired recording with other frames";
}

}  // namespace

// The first bytes say which frames are written, the rest is in the file already.
std::string fuzz::aviContinuation(std::string_view input)
{
    Input bytes(input);
    std::array<std::string, 3> frames;
    for (std::string& frame : frames) {
        frame.assign(std::min<size_t>(bytes.byte() + size_t{1}, kFrameMax), 'f');
    }
    const std::string before(bytes.rest());
    const MemoryFile file(before);

    std::string expected = before + (before.size() < kSmallestContinued ? header() : "");
    const std::string codecHeader = recordings::codecHeader();
    AviWriter writer;
    writer.writeToHeader(codecHeader.data(), static_cast<unsigned int>(codecHeader.size()));
    if (!writer.start(file.path(), kFormat)) {
        return "could not go on";
    }
    for (std::string& frame : frames) {
        if (!writer.writeChunk(frame.data(), static_cast<unsigned int>(frame.size()))) {
            return "could not write";
        }
        expected += chunk(&frame == &frames.front() ? codecHeader + frame : frame);
    }
    writer.stop();
    if (file.content() != expected) {
        return "the file is not what it was and the frames";
    }
    return recordings::walk(file.path()).fault;
}

std::string fuzz::recording(std::string_view input)
{
    Input bytes(input);
    const MemoryFile file(recordingFrom(bytes));
    const auto whole = recordings::walk(file.path());
    const auto heads = recordings::walk(file.path(), ::recording::Depth::kHeads);
    return whole.fault.empty() ? heads.fault : whole.fault;
}

// The first byte says which verb, the next two when.
std::string fuzz::recordingVerbs(std::string_view input)
{
    static const support::Folder folder;
    enum Verb : size_t { kIndexAvi, kIndexMp4, kIndexMkv, kGrab, kCut, kRepair };
    constexpr std::array kOutputs{"out.avi", "out.mp4", "out.mkv", "out.png", "cut.mkv", "repaired.avi"};
    Input bytes(input);
    const size_t verb = bytes.byte() % kOutputs.size();
    const double from = bytes.byte() / 30.0;
    const unsigned more = bytes.byte();
    const MemoryFile file(recordingFrom(bytes));
    const ::recording::MakeRequest make{file.path(), folder.file(kOutputs[verb]), true};

    static_cast<void>(recordings::findings(file.path()));
    int status = 0;
    if (verb == kGrab) {
        status = ::recording::runGrab({make, from, more % 5});
    } else if (verb == kCut) {
        status = ::recording::runCut({make, from, from + more / 30.0});
    } else if (verb != kRepair) {
        status = ::recording::runIndex(make);
    } else if (::recording::runRepair(make) == ::recording::kDone) {
        return compareRepaired(file.path(), make.output);
    }
    return status == ::recording::kBadUsage ? "a file taken for bad usage" : "";
}

std::string fuzz::checksumTrailer(std::string_view input)
{
    constexpr size_t kTrailer = 40;
    static const support::Folder folder;
    const std::string archive = folder.file("a.tgz");
    const std::string made = archive + "s";
    const std::string split = made + ".tgz";
    diskfnts files;
    std::string checksum(input.substr(0, std::min(input.size(), kTrailer)));
    const std::string payload(input.substr(checksum.size()));
    files.removeFile(made);
    support::writeFile(archive, payload);

    const bool added = files.addTGZChecksum(archive, checksum);
    if (added != (checksum.size() == kTrailer) || files.isFile(made) != added) {
        return "a trailer of another length";
    }
    if (added) {
        std::string found;
        if (!files.splitTGZChecksum(made, found) || found != checksum ||
            support::readFile(split) != payload) {
            return "split is not what was added";
        }
    }

    std::string last;
    files.removeFile(archive + ".tgz");
    const bool parted = files.splitTGZChecksum(archive, last);
    if (parted != (payload.size() >= kTrailer) || files.isFile(archive + ".tgz") != parted) {
        return "a file too short for a trailer was split, or one with room for it was not";
    }
    return parted && support::readFile(archive + ".tgz") + last != payload ? "a split that lost bytes" : "";
}
