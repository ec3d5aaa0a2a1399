#include "Header.h"

#include <algorithm>
#include <cstring>

#include "lib/AviWriter.h"

namespace recording {
namespace {

constexpr size_t kTagBytes = 4;

enum class Value { kFixed, kMaxBytesPerSecond, kRate, kWidth, kHeight, kImageSize };

/// Four bytes of the header that are not zero.
struct Row {
    unsigned int offset = 0;
    const char* text = nullptr;  // nullptr: a number
    uint32_t number = 0;
    Value value = Value::kFixed;
};

// The recording format's own table: this reader shall not repeat a mistake of the writer.
// NOLINTBEGIN(readability-magic-numbers): offsets and sizes of the format
constexpr std::array kRows{
    Row{0, "RIFF"},
    Row{4, nullptr, 784},
    Row{8, "AVI "},
    Row{12, "LIST"},
    Row{16, nullptr, 760},
    Row{20, "hdrl"},
    Row{24, "avih"},
    Row{28, nullptr, 56},
    Row{32, nullptr, 33333},
    Row{36, nullptr, 0, Value::kMaxBytesPerSecond},
    Row{56, nullptr, 1},
    Row{64, nullptr, 0, Value::kWidth},
    Row{68, nullptr, 0, Value::kHeight},
    Row{88, "LIST"},
    Row{92, nullptr, 660},
    Row{96, "strl"},
    Row{100, "strh"},
    Row{104, nullptr, 56},
    Row{108, "vids"},
    Row{112, "H264"},
    Row{128, nullptr, 1},
    Row{132, nullptr, 0, Value::kRate},
    Row{164, "strf"},
    Row{168, nullptr, 40},
    Row{172, nullptr, 40},
    Row{176, nullptr, 0, Value::kWidth},
    Row{180, nullptr, 0, Value::kHeight},
    Row{184, nullptr, 1 | 24 << 16},  // planes and bits a pixel, two bytes each
    Row{188, "H264"},
    Row{192, nullptr, 0, Value::kImageSize},
    Row{212, "JUNK"},
    Row{216, nullptr, 536},
    Row{220, nullptr, 4},
    Row{228, "00db"},
    Row{756, "LIST"},
    Row{760, nullptr, 16},
    Row{764, "odml"},
    Row{768, "dmlh"},
    Row{772, nullptr, 4},
    Row{780, "LIST"},
    Row{784, nullptr, 4},
    Row{788, "movi"},
};
constexpr unsigned int kMaxRateAt = 36;
constexpr unsigned int kWidthAt = 64;
constexpr unsigned int kHeightAt = 68;
constexpr unsigned int kRateAt = 132;
constexpr unsigned int kFormTypeAt = 8;
constexpr unsigned int kMovieAt = 788;
// NOLINTEND(readability-magic-numbers)

// Far above what the encoder can do; a value beyond is damage.
constexpr uint32_t kMostPixels = 8192;  // a side
constexpr uint32_t kMostRate = 1000;

uint32_t valueOf(const Row& row, const Format& format)
{
    switch (row.value) {
        case Value::kFixed:
            return row.number;
        case Value::kMaxBytesPerSecond:
            return format.maxBytesPerSecond;
        case Value::kRate:
            return format.framesPerSecond;
        case Value::kWidth:
            return format.width;
        case Value::kHeight:
            return format.height;
        case Value::kImageSize:
            return format.width * format.height;
    }
    return 0;
}

/// Whether the data hold the tag at the offset, as far as they reach.
bool mayHold(Bytes data, size_t offset, const char* tag)
{
    return offset >= data.size ||
           std::memcmp(data.data + offset, tag, std::min(kTagBytes, data.size - offset)) == 0;
}

uint32_t numberAt(Bytes data, size_t offset)
{
    uint32_t number = 0;
    for (size_t i = sizeof(number); i > 0; --i) {
        number = number << 8 | data.data[offset + i - 1];
    }
    return number;
}

}  // namespace

Format usualFormat()
{
    constexpr Format kUsual{1440, 990, 30, 10'000'000};
    return kUsual;
}

HeaderBytes buildHeader(const Format& format)
{
    std::array<char, kHeaderBytes> built{};
    for (const Row& row : kRows) {
        unsigned int position = row.offset;
        if (row.text != nullptr) {
            AviWriter::writeText(built.data(), &position, row.text);
        } else {
            AviWriter::writeDWORD(built.data(), &position, valueOf(row, format));
        }
    }
    HeaderBytes header{};
    std::memcpy(header.data(), built.data(), header.size());
    return header;
}

std::optional<size_t> findHeader(Bytes data)
{
    std::optional<size_t> first;
    for (size_t at = 0; at + kTagBytes <= data.size; ++at) {
        const Bytes rest{data.data + at, data.size - at};
        if (!mayHold(rest, 0, "RIFF") || rest.size <= kFormTypeAt || !mayHold(rest, kFormTypeAt, "AVI ")) {
            continue;
        }
        if (rest.size >= kHeaderBytes && mayHold(rest, kMovieAt, "movi")) {
            return at;
        }
        first = first ? first : at;
    }
    return first;
}

std::optional<Format> parseFormat(Bytes header)
{
    if (header.size < kRateAt + sizeof(uint32_t)) {
        return std::nullopt;
    }
    const Format format{numberAt(header, kWidthAt), numberAt(header, kHeightAt), numberAt(header, kRateAt),
                        numberAt(header, kMaxRateAt)};
    const bool possible = format.width > 0 && format.width <= kMostPixels && format.height > 0 &&
                          format.height <= kMostPixels && format.framesPerSecond > 0 &&
                          format.framesPerSecond <= kMostRate;
    return possible ? std::optional(format) : std::nullopt;
}

}  // namespace recording
