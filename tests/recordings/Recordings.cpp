#include "Recordings.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>

#include "lib/AviWriter.h"

namespace recordings {

std::string frame(bool key, unsigned seed, size_t bytes)
{
    constexpr unsigned kMultiplier = 1103515245;
    constexpr unsigned kIncrement = 12345;
    std::string data("\0\0\0\1", 4);
    data += key ? '\x65' : '\x41';
    while (data.size() < bytes) {
        seed = seed * kMultiplier + kIncrement;
        data += static_cast<char>(1 + (seed >> 16) % 255);  // no zeros, so nothing has to be escaped
    }
    return data;
}

std::string littleEndian(size_t size)
{
    std::string bytes;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(size >> shift);
    }
    return bytes;
}

const std::string& codecHeader()
{
    static const std::string header("\0\0\0\1\x67\x42\xc0\x28\xda\x01\x68\x1f\0\0\0\1\x68\xce\x30\xa4", 20);
    return header;
}

Tape::Tape(const std::string& content)
{
    replace(content);
}

void Tape::session(unsigned count)
{
    constexpr size_t kSmallest = 61;
    constexpr size_t kStep = 37;
    AviWriter writer;
    writer.writeToHeader(codecHeader().data(), static_cast<unsigned int>(codecHeader().size()));
    const auto format = recording::usualFormat();
    writer.start(path(), {format.framesPerSecond, format.maxBytesPerSecond, format.width, format.height,
                          VideoWriter::H264});
    if (!chunks.empty()) {
        chunks.pop_back();
    }
    for (unsigned i = 0; i < count; ++i) {
        const auto number = static_cast<unsigned>(frames.size());
        std::string data = frame(i == 0, number, kSmallest + kStep * (number % 7) + number % 4);
        chunks.push_back(std::filesystem::file_size(path()));
        writer.writeChunk(data.data(), static_cast<unsigned int>(data.size()));
        frames.push_back((i == 0 ? codecHeader() : "") + data);
    }
    chunks.push_back(std::filesystem::file_size(path()));
}

namespace {

struct Collector {
    Walk result;
    off_t covered = 0;

    // Each byte belongs to one event, in order.
    void cover(off_t offset, off_t length)
    {
        if (offset < covered || length < 0) {
            result.fault = "events overlap at " + std::to_string(offset);
        }
        covered = offset + length;
    }

    void operator()(const recording::HeaderEvent& event) const { (void)event; }
    void operator()(const recording::Damage& damage)
    {
        cover(damage.offset, damage.length);
        result.damages.push_back(damage);
    }
    void operator()(const recording::Chunk& chunk)
    {
        cover(chunk.offset,
              static_cast<off_t>(recording::RecordingReader::kChunkHeadBytes + chunk.size - chunk.missing));
        const auto* data = reinterpret_cast<const char*>(chunk.data.data);
        result.frames.emplace_back(data, chunk.data.data == nullptr ? 0 : chunk.unit.bytes);
    }
};

}  // namespace

Walk walk(const std::string& path, recording::Depth depth)
{
    recording::RecordingReader reader;
    Collector collector;
    if (!reader.open(path, depth)) {
        collector.result.fault = reader.error();
        return collector.result;
    }
    while (const auto event = reader.next()) {
        std::visit(collector, *event);
        if (++collector.result.events > static_cast<size_t>(reader.size()) + 4) {
            collector.result.fault = "no end";
            break;
        }
    }
    if (collector.covered > reader.size() || reader.position() != reader.size()) {
        collector.result.fault = "ends at " + std::to_string(reader.position());
    }
    return collector.result;
}

std::vector<recording::Finding> findings(const std::string& path)
{
    std::vector<recording::Finding> found;
    recording::RecordingReader reader;
    if (reader.open(path, recording::Depth::kBytes)) {
        recording::Progress progress("", reader.size());
        recording::Survey survey(reader, progress,
                                 [&](const recording::Finding& finding) { found.push_back(finding); });
        survey.walk();
    }
    return found;
}

void writeOld(const std::string& path, const std::string& content, std::time_t lastChange)
{
    support::writeFile(path, content);
    const std::array<timespec, 2> times{timespec{lastChange, 0}, timespec{lastChange, 0}};
    ::utimensat(AT_FDCWD, path.c_str(), times.data(), 0);
}

}  // namespace recordings
