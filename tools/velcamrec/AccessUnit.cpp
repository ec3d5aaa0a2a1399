#include "AccessUnit.h"

#include <algorithm>
#include <cstring>

namespace recording {
namespace {

enum UnitType : unsigned {
    kSlice = 1,
    kKeySlice = 5,
    kExtraInformation = 6,
    kSequenceParameters = 7,
    kPictureParameters = 8,
    kDelimiter = 9,
    kFiller = 12
};

constexpr unsigned kTypeMask = 0x1F;
constexpr unsigned kForbiddenBit = 0x80;

// Padding, and the zeros that an encoder may put before a start code, are fewer; a hole in a file is a disk
// block.
constexpr size_t kMostZeros = 32;

bool knownType(uint8_t head)
{
    const unsigned type = head & kTypeMask;
    return (head & kForbiddenBit) == 0 && ((type >= kSlice && type <= kDelimiter) || type == kFiller);
}

/// Goes from start code to start code and keeps account.
class Examiner {
public:
    Examiner(Bytes data, Extent extent) : data_(data), extent_(extent) {}

    AccessUnit examine()
    {
        if (!beginsFrame(data_)) {
            return fault(AccessUnit::Fault::kNoStartCode, 0);
        }
        result_.bytes = data_.size;
        while (position_ < data_.size && !done_) {
            findZero();
            if (position_ < data_.size) {
                takeZeros();
            }
        }
        if (result_.fault == AccessUnit::Fault::kNone && !result_.picture) {
            judgeWithoutPicture();
        }
        return result_;
    }

private:
    void judgeWithoutPicture()
    {
        if (inCodecHeader_ && result_.parameterSets && data_.size <= kMostCodecBytes) {
            result_.codecBytes = data_.size;
        } else if (extent_ == Extent::kAll) {
            fault(AccessUnit::Fault::kNoPicture, 0);
        }
    }

    const AccessUnit& fault(AccessUnit::Fault kind, size_t at)
    {
        result_.fault = kind;
        result_.faultAt = at;
        done_ = true;
        return result_;
    }

    void findZero()
    {
        const void* zero = std::memchr(data_.data + position_, 0, data_.size - position_);
        position_ = zero == nullptr ? data_.size
                                    : static_cast<size_t>(static_cast<const uint8_t*>(zero) - data_.data);
    }

    void takeZeros()
    {
        const size_t first = position_;
        while (position_ < data_.size && data_.data[position_] == 0) {
            ++position_;
        }
        const size_t zeros = position_ - first;
        if (zeros > kMostZeros) {
            fault(AccessUnit::Fault::kZeros, first);
        } else if (position_ == data_.size) {
            result_.bytes = first;
        } else if (zeros >= 2) {
            takeMark(first, zeros);
        }
    }

    /// At a byte behind two zeros or more.
    void takeMark(size_t first, size_t zeros)
    {
        const uint8_t mark = data_.data[position_];
        if (mark == 1) {
            takeUnit(first);
        } else if (zeros > 2) {
            fault(AccessUnit::Fault::kZeros, first);
        } else if (mark == 2 || (mark == 3 && !validEscape())) {
            fault(AccessUnit::Fault::kPattern, first);
        }
    }

    bool validEscape() const { return position_ + 1 == data_.size || data_.data[position_ + 1] <= 3; }

    /// At the last byte of a start code whose zeros begin at `first`.
    void takeUnit(size_t first)
    {
        const size_t head = position_ + 1;
        if (head == data_.size || !knownType(data_.data[head])) {
            fault(AccessUnit::Fault::kPattern, first);
            return;
        }
        position_ = head + 1;
        const unsigned type = data_.data[head] & kTypeMask;
        if (type <= kKeySlice) {
            takeSlice(first, type);
        } else if (type == kSequenceParameters || type == kPictureParameters) {
            result_.parameterSets = result_.parameterSets || type == kSequenceParameters;
            inCodecHeader_ = !result_.picture;
        } else {
            endCodecHeader(first);
        }
    }

    void takeSlice(size_t first, unsigned type)
    {
        endCodecHeader(first);
        result_.picture = true;
        result_.keyFrame = result_.keyFrame || type == kKeySlice;
        done_ = extent_ == Extent::kFront;
    }

    void endCodecHeader(size_t first)
    {
        if (inCodecHeader_) {
            result_.codecBytes = first;
            inCodecHeader_ = false;
        }
    }

    Bytes data_;
    Extent extent_;
    AccessUnit result_;
    size_t position_ = 0;
    bool inCodecHeader_ = false;
    bool done_ = false;
};

}  // namespace

AccessUnit examine(Bytes data, Extent extent)
{
    return Examiner(data, extent).examine();
}

bool beginsFrame(Bytes data)
{
    size_t zeros = 0;
    while (zeros < data.size && zeros < 3 && data.data[zeros] == 0) {
        ++zeros;
    }
    return zeros >= 2 && zeros + 1 < data.size && data.data[zeros] == 1 && knownType(data.data[zeros + 1]);
}

}  // namespace recording
