#include "ipu/Bilinear.h"

#include <algorithm>
#include <cstring>

#include "ipu/Vector.h"

#if VBOARD_HAS_WIDE
#include <immintrin.h>
#endif

namespace board {
namespace {

constexpr uint32_t kOne = 1U << 16;  // a sample, in the units of a position
constexpr int kLineShareBits = 8;
constexpr uint32_t kLineShares = 1U << kLineShareBits;  // that two lines have together
constexpr uint32_t kColumnShares = 128;                 // that two columns have together

/// Where a sample of the target lies in the source: end on end when enlarged, centre on centre when reduced.
size_t positionOf(size_t index, size_t from, size_t to)
{
    const uint64_t position = to > from ? uint64_t{index} * (from - 1) * kOne / (to - 1)
                                        : ((2 * uint64_t{index} + 1) * from * kOne / to - kOne) / 2;
    return static_cast<size_t>(std::min<uint64_t>(position, uint64_t{from - 1} * kOne));
}

/// The nearest of so many shares.
constexpr size_t shareOf(size_t part, size_t shares)
{
    return (part * shares + kOne / 2) / kOne;
}

bool reducedByHalfAtMost(const Plane& from, const Plane& to)
{
    const size_t fromSamples = from.lineBytes / from.sampleBytes;
    const size_t toSamples = to.lineBytes / to.sampleBytes;
    return toSamples * 2 >= fromSamples && to.lines * 2 >= from.lines && from.lines > 1 && fromSamples > 1;
}

VBOARD_KERNEL void blendLinesBody(const uint8_t* __restrict upper, const uint8_t* __restrict lower,
                                  uint32_t lowerShare, uint8_t* __restrict to, size_t bytes)
{
    constexpr uint16_t kRound = kLineShares / 2;
    const auto below = static_cast<uint16_t>(lowerShare);
    const auto above = static_cast<uint16_t>(kLineShares - lowerShare);
    for (size_t i = 0; i < bytes; ++i) {
        const auto sum = static_cast<uint16_t>(upper[i] * above + lower[i] * below + kRound);
        to[i] = static_cast<uint8_t>(sum >> kLineShareBits);
    }
}

VBOARD_WIDE void blendLines(const uint8_t* upper, const uint8_t* lower, uint32_t lowerShare, uint8_t* to,
                            size_t bytes)
{
    blendLinesBody(upper, lower, lowerShare, to, bytes);
}

}  // namespace

bool BilinearScaler::takes(const PictureView& from, const PictureView& to)
{
    if (!wideVectors() || from.format != to.format || from.format->planeCount < 2) {
        return false;
    }
    for (size_t index = 0; index < from.format->planeCount; ++index) {
        const Plane& source = from.planes[index];
        if (source.lineBytes < kWindowBytes || !reducedByHalfAtMost(source, to.planes[index])) {
            return false;
        }
    }
    return true;
}

void BilinearScaler::run(const PictureView& from, const PictureView& to)
{
    for (size_t index = 0; index < from.format->planeCount; ++index) {
        const Plane& source = from.planes[index];
        const Plane& target = to.planes[index];
        runPlane(source, target, columnsFor(index, source, target));
    }
}

const BilinearScaler::Columns& BilinearScaler::columnsFor(size_t index, const Plane& from, const Plane& to)
{
    Columns& columns = columns_[index];
    const size_t fromSamples = from.lineBytes / from.sampleBytes;
    const size_t toSamples = to.lineBytes / to.sampleBytes;
    if (columns.fromSamples != fromSamples || columns.toSamples != toSamples ||
        columns.sampleBytes != from.sampleBytes) {
        columns = {fromSamples, toSamples, from.sampleBytes, {}};
        fill(columns, from, to);
    }
    return columns;
}

void BilinearScaler::fill(Columns& columns, const Plane& from, const Plane& to)
{
    const size_t sampleBytes = columns.sampleBytes;
    columns.groups.resize((to.lineBytes + kGroupBytes - 1) / kGroupBytes);
    for (size_t byte = 0; byte < columns.groups.size() * kGroupBytes; ++byte) {
        // What lies beyond the target's end repeats its last sample; it is not written.
        const size_t sample = std::min(byte / sampleBytes, columns.toSamples - 1);
        const size_t position = positionOf(sample, columns.fromSamples, columns.toSamples);
        // The last sample has no right neighbour: it stands at the right end of a pair, with all of the
        // share.
        const size_t left = std::min(position / kOne, columns.fromSamples - 2);
        const size_t rightShare = shareOf(position - left * kOne, kColumnShares);

        Group& group = columns.groups[byte / kGroupBytes];
        // Two slots share a register, and registers are packed half by half.
        constexpr std::array<size_t, kLanes> kSlots{0, 2, 1, 3};
        const size_t slot = kSlots[byte % kGroupBytes / kLaneBytes];
        const size_t leftByte = left * sampleBytes + byte % sampleBytes;
        if (byte % kLaneBytes == 0) {
            group.windows[slot] = static_cast<uint32_t>(std::min(leftByte, from.lineBytes - kWindowBytes));
        }
        const size_t place = byte % kLaneBytes * 2;
        group.picks[slot][place] = static_cast<uint8_t>(leftByte - group.windows[slot]);
        group.picks[slot][place + 1] = static_cast<uint8_t>(leftByte + sampleBytes - group.windows[slot]);
        group.shares[slot][place] = static_cast<uint8_t>(kColumnShares - rightShare);
        group.shares[slot][place + 1] = static_cast<uint8_t>(rightShare);
    }
}

#if VBOARD_HAS_WIDE

/// Samples are made signed on the way, because the multiplication takes one signed and one unsigned factor.
VBOARD_WIDE void BilinearScaler::filterLine(const Columns& columns, const uint8_t* from, uint8_t* to,
                                            size_t bytes)
{
    constexpr int kSignBit = 0x80;
    constexpr int kShareBits = 7;
    const __m256i sign = _mm256_set1_epi8(static_cast<char>(kSignBit));
    const __m256i back = _mm256_set1_epi16(static_cast<short>(kSignBit * kColumnShares + kColumnShares / 2));
    for (size_t at = 0; at < bytes; at += kGroupBytes) {
        const Group& group = columns.groups[at / kGroupBytes];
        __m256i halves[2];
        for (size_t half = 0; half < 2; ++half) {
            const size_t slot = 2 * half;
            const __m256i source =
                _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(from + group.windows[slot + 1]),
                                    reinterpret_cast<const __m128i*>(from + group.windows[slot]));
            const __m256i picks = _mm256_load_si256(reinterpret_cast<const __m256i*>(&group.picks[slot]));
            const __m256i shares = _mm256_load_si256(reinterpret_cast<const __m256i*>(&group.shares[slot]));
            const __m256i pairs = _mm256_shuffle_epi8(_mm256_xor_si256(source, sign), picks);
            halves[half] =
                _mm256_srli_epi16(_mm256_add_epi16(_mm256_maddubs_epi16(shares, pairs), back), kShareBits);
        }
        const __m256i made = _mm256_packus_epi16(halves[0], halves[1]);
        if (bytes - at >= kGroupBytes) {
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + at), made);
        } else {
            alignas(kGroupBytes) std::array<uint8_t, kGroupBytes> last{};
            _mm256_store_si256(reinterpret_cast<__m256i*>(last.data()), made);
            std::memcpy(to + at, last.data(), bytes - at);
        }
    }
}

#else

void BilinearScaler::filterLine(const Columns& /*columns*/, const uint8_t* /*from*/, uint8_t* /*to*/,
                                size_t /*bytes*/)
{
    // takes() is never true here.
}

#endif

void BilinearScaler::runPlane(const Plane& from, const Plane& to, const Columns& columns)
{
    blended_.resize(std::max(blended_.size(), from.lineBytes));
    for (size_t line = 0; line < to.lines; ++line) {
        const size_t position = positionOf(line, from.lines, to.lines);
        const size_t upper = position / kOne;
        const auto lowerShare = static_cast<uint32_t>(shareOf(position % kOne, kLineShares));
        const uint8_t* source = from.line(upper);
        if (lowerShare != 0) {
            blendLines(source, from.line(upper + 1), lowerShare, blended_.data(), from.lineBytes);
            source = blended_.data();
        }
        filterLine(columns, source, to.line(line), to.lineBytes);
    }
}

}  // namespace board
