#include "capture/ClipSource.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

#include "board/Real.h"

namespace board {

ClipSource::~ClipSource()
{
    if (pictures_ != nullptr) {
        real::unmap(pictures_, count_ * kPictureBytes);
    }
}

bool ClipSource::draw(uint64_t frameNumber, uint8_t* nv12)
{
    if (pictures_ == nullptr && !map()) {
        return false;
    }
    std::memcpy(nv12, pictures_ + static_cast<size_t>(frameNumber % count_) * kPictureBytes, kPictureBytes);
    return true;
}

bool ClipSource::map()
{
    const std::string path = board_.file("camera") + std::to_string(camera_ + 1) + ".nv12";
    const auto pictures =
        static_cast<uint64_t>(std::max<off_t>(real::fileSize(path.c_str()), 0)) / kPictureBytes;
    const int fd = real::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    if (pictures > 0 && pictures <= std::numeric_limits<size_t>::max() / kPictureBytes) {
        count_ = static_cast<size_t>(pictures);
        pictures_ = static_cast<const uint8_t*>(real::mapReadOnly(fd, count_ * kPictureBytes));
    }
    real::close(fd);
    return pictures_ != nullptr;
}

}  // namespace board
