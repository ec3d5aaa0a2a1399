#include "lib/AviWriter.h"

#include <array>
#include <cstring>

namespace {

constexpr unsigned int kTagBytes = 4;
constexpr unsigned int kDwordBytes = 4;
constexpr unsigned int kWordBytes = 2;
constexpr unsigned int kChunkHeadBytes = kTagBytes + kDwordBytes;  // tag and size
constexpr unsigned int kHeaderBuffer = 1024;
constexpr const char* kFrameTag = "00db";

enum class Kind { Text, Dword, Word, Zeros, Format };
enum class Source { Fixed, MaxBps, Fps, Width, Height, ImageSize };

/// One field of a header chunk.
struct Field {
    const char* name = "";  // as the published format calls it
    Kind kind = Kind::Dword;
    u_int32_t value = 0;  // of a Fixed field; of Zeros, how many DWORDs
    Source source = Source::Fixed;
    const char* text = "";
};

constexpr std::array kMainHeader{
    Field{"dwMicroSecPerFrame", Kind::Dword, 33333},  // fixed: players of these recordings go by dwRate
    Field{"dwMaxBytesPerSec", Kind::Dword, 0, Source::MaxBps},
    Field{"dwPaddingGranularity", Kind::Dword},
    Field{"dwFlags", Kind::Dword},
    Field{"dwTotalFrames", Kind::Dword},
    Field{"dwInitialFrames", Kind::Dword},
    Field{"dwStreams", Kind::Dword, 1},
    Field{"dwSuggestedBufferSize", Kind::Dword},
    Field{"dwWidth", Kind::Dword, 0, Source::Width},
    Field{"dwHeight", Kind::Dword, 0, Source::Height},
    Field{"dwReserved", Kind::Zeros, 4},
};

constexpr std::array kStreamHeader{
    Field{"fccType", Kind::Text, 0, Source::Fixed, "vids"},
    Field{"fccHandler", Kind::Format},
    Field{"dwFlags", Kind::Dword},
    Field{"wPriority", Kind::Word},
    Field{"wLanguage", Kind::Word},
    Field{"dwInitialFrames", Kind::Dword},
    Field{"dwScale", Kind::Dword, 1},
    Field{"dwRate", Kind::Dword, 0, Source::Fps},
    Field{"dwStart", Kind::Dword},
    Field{"dwLength", Kind::Dword},
    Field{"dwSuggestedBufferSize", Kind::Dword},
    Field{"dwQuality", Kind::Dword},
    Field{"dwSampleSize", Kind::Dword},
    Field{"rcFrame", Kind::Zeros, 2},
};

constexpr std::array kBitmapHeader{
    Field{"biSize", Kind::Dword, 40},
    Field{"biWidth", Kind::Dword, 0, Source::Width},
    Field{"biHeight", Kind::Dword, 0, Source::Height},
    Field{"biPlanes", Kind::Word, 1},
    Field{"biBitCount", Kind::Word, 24},
    Field{"biCompression", Kind::Format},
    Field{"biSizeImage", Kind::Dword, 0, Source::ImageSize},
    Field{"biXPelsPerMeter", Kind::Dword},
    Field{"biYPelsPerMeter", Kind::Dword},
    Field{"biClrUsed", Kind::Dword},
    Field{"biClrImportant", Kind::Dword},
};

// Room where a super-index of the stream would go; its first words are there already.
constexpr std::array kIndexSpace{
    Field{"wLongsPerEntry, bIndexSubType, bIndexType", Kind::Dword, 4},
    Field{"nEntriesInUse", Kind::Dword},
    Field{"dwChunkId", Kind::Text, 0, Source::Fixed, kFrameTag},
    Field{"dwReserved, aIndex", Kind::Zeros, 131},
};

constexpr std::array kExtendedHeader{
    Field{"dwTotalFrames", Kind::Dword},
};

constexpr unsigned int bytesOf(const Field& field)
{
    switch (field.kind) {
        case Kind::Word:
            return kWordBytes;
        case Kind::Zeros:
            return field.value * kDwordBytes;
        case Kind::Text:
        case Kind::Dword:
        case Kind::Format:  // as long as the format has a code, which is what the sizes in the file promise
            return kDwordBytes;
    }
    return 0;
}

template <size_t count>
constexpr unsigned int bytesOf(const std::array<Field, count>& fields)
{
    unsigned int bytes = 0;
    for (const Field& field : fields) {
        bytes += bytesOf(field);
    }
    return bytes;
}

template <size_t count>
constexpr unsigned int chunkBytes(const std::array<Field, count>& fields)
{
    return kChunkHeadBytes + bytesOf(fields);
}

// What a list's size counts: its type and the whole of what it holds.
constexpr unsigned int kStreamListBytes =
    kTagBytes + chunkBytes(kStreamHeader) + chunkBytes(kBitmapHeader) + chunkBytes(kIndexSpace);
constexpr unsigned int kExtendedListBytes = kTagBytes + chunkBytes(kExtendedHeader);
constexpr unsigned int kHeaderListBytes = kTagBytes + chunkBytes(kMainHeader) + kChunkHeadBytes +
                                          kStreamListBytes + kChunkHeadBytes + kExtendedListBytes;
constexpr unsigned int kMovieListBytes = kTagBytes;  // its frames are never counted
constexpr unsigned int kRiffBytes =
    kTagBytes + kChunkHeadBytes + kHeaderListBytes + kChunkHeadBytes + kMovieListBytes;

// The figures of the recording format.
// NOLINTBEGIN(readability-magic-numbers): they have no other name
static_assert(bytesOf(kMainHeader) == 56 && bytesOf(kStreamHeader) == 56 && bytesOf(kBitmapHeader) == 40);
static_assert(bytesOf(kIndexSpace) == 536);
static_assert(kStreamListBytes == 660);
static_assert(kHeaderListBytes == 760);
static_assert(kRiffBytes == 784);
static_assert(kChunkHeadBytes + kRiffBytes == 792, "the whole header");

// A format without a code takes 16 bytes instead of 4 in each of its two fields.
static_assert(kChunkHeadBytes + kRiffBytes + 2 * 12 <= kHeaderBuffer, "the longest header fits its buffer");
// NOLINTEND(readability-magic-numbers)

u_int32_t valueOf(const Field& field, const VideoWriter::VIDEO_FORMAT& format)
{
    switch (field.source) {
        case Source::Fixed:
            return field.value;
        case Source::MaxBps:
            return format.maxBps;
        case Source::Fps:
            return format.fps;
        case Source::Width:
            return format.width;
        case Source::Height:
            return format.height;
        case Source::ImageSize:
            return format.width * format.height;
    }
    return 0;
}

/// Places the parts of the header one after the other.
class HeaderBuilder {
public:
    HeaderBuilder(char* buffer, const VideoWriter::VIDEO_FORMAT& format) : buffer_(buffer), format_(format) {}

    void list(const char* tag, u_int32_t bytes, const char* type)
    {
        head(tag, bytes);
        AviWriter::writeText(buffer_, &position_, type);
    }

    template <size_t count>
    void chunk(const char* tag, const std::array<Field, count>& fields)
    {
        head(tag, bytesOf(fields));
        for (const Field& field : fields) {
            place(field);
        }
    }

    unsigned int length() const { return position_; }

private:
    void head(const char* tag, u_int32_t bytes)
    {
        AviWriter::writeText(buffer_, &position_, tag);
        AviWriter::writeDWORD(buffer_, &position_, bytes);
    }

    void place(const Field& field)
    {
        switch (field.kind) {
            case Kind::Text:
                return AviWriter::writeText(buffer_, &position_, field.text);
            case Kind::Dword:
                return AviWriter::writeDWORD(buffer_, &position_, valueOf(field, format_));
            case Kind::Word:
                return AviWriter::writeWORD(buffer_, &position_, valueOf(field, format_));
            case Kind::Zeros:
                return AviWriter::writePadding(buffer_, &position_, static_cast<u_int8_t>(field.value));
            case Kind::Format:
                return AviWriter::writeFormat(buffer_, &position_, format_.fmt);
        }
    }

    char* buffer_;
    unsigned int position_ = 0;
    const VideoWriter::VIDEO_FORMAT& format_;
};

void placeBytes(char* buffer, unsigned int* position, u_int32_t value, unsigned int bytes)
{
    constexpr unsigned int bitsPerByte = 8;
    constexpr unsigned int lowByte = 0xFF;
    for (unsigned int i = 0; i < bytes; ++i) {
        buffer[(*position)++] = static_cast<char>((value >> (i * bitsPerByte)) & lowByte);
    }
}

}  // namespace

bool AviWriter::start(std::string path, const VIDEO_FORMAT& format)
{
    return open_file(path.c_str()) && (append || writeHeader(format));
}

bool AviWriter::writeChunk(void* data, unsigned int length)
{
    const unsigned int padding = (kDwordBytes - length % kDwordBytes) % kDwordBytes;
    const unsigned int codecBytes = firstFrame ? headerLength : 0;

    char head[kChunkHeadBytes + kHeaderCapacity];
    unsigned int position = 0;
    writeText(head, &position, kFrameTag);
    writeDWORD(head, &position, length + padding + codecBytes);
    std::memcpy(head + position, header, codecBytes);
    const bool written =
        outputChunk(head, position + codecBytes, static_cast<const char*>(data), length, padding);
    // Parameter sets that did not reach the file whole are the next chunk's to bring: without them nothing in
    // it can be decoded.
    firstFrame = firstFrame && !written;
    return written;
}

bool AviWriter::writeHeader(const VIDEO_FORMAT& format)
{
    char buffer[kHeaderBuffer];
    HeaderBuilder out(buffer, format);
    out.list("RIFF", kRiffBytes, "AVI ");
    out.list("LIST", kHeaderListBytes, "hdrl");
    out.chunk("avih", kMainHeader);
    out.list("LIST", kStreamListBytes, "strl");
    out.chunk("strh", kStreamHeader);
    out.chunk("strf", kBitmapHeader);
    out.chunk("JUNK", kIndexSpace);
    out.list("LIST", kExtendedListBytes, "odml");
    out.chunk("dmlh", kExtendedHeader);
    out.list("LIST", kMovieListBytes, "movi");
    return outputBuffer(buffer, out.length(), 0);
}

void AviWriter::writeText(char* buffer, unsigned int* position, const char* text)
{
    while (*text != '\0') {
        buffer[(*position)++] = *text++;
    }
}

void AviWriter::writeDWORD(char* buffer, unsigned int* position, u_int32_t value)
{
    placeBytes(buffer, position, value, kDwordBytes);
}

void AviWriter::writeWORD(char* buffer, unsigned int* position, u_int32_t value)
{
    placeBytes(buffer, position, value, kWordBytes);
}

void AviWriter::writeLONG(char* buffer, unsigned int* position, u_int32_t value)
{
    writeDWORD(buffer, position, value);
    writeDWORD(buffer, position, 0);
}

void AviWriter::writePadding(char* buffer, unsigned int* position, u_int8_t count)
{
    for (unsigned int i = 0; i < count; ++i) {
        writeDWORD(buffer, position, 0);
    }
}

// A format without a code takes four DWORDs, not one: readers of such files expect it so, and only H264 is
// recorded here.
void AviWriter::writeFormat(char* buffer, unsigned int* position, VID_FORMAT format)
{
    if (format == H264) {
        writeText(buffer, position, "H264");
    } else {
        writePadding(buffer, position, 4);
    }
}
