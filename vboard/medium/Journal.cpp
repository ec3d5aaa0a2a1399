#include "medium/Journal.h"

#include <fcntl.h>

#include <cstring>
#include <vector>

#include "board/Real.h"

namespace board::journal {

void Writer::add(Record record, const void* data) const
{
    record.timeUs = real::monotonicUs();
    record.thread = static_cast<uint32_t>(real::threadId());
    std::vector<uint8_t> bytes(sizeof(record) + record.bytes);
    std::memcpy(bytes.data(), &record, sizeof(record));
    if (record.bytes > 0) {
        std::memcpy(bytes.data() + sizeof(record), data, record.bytes);
    }
    const int file = real::open(board_.file(kFile).c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    const ssize_t written = file < 0 ? -1 : real::write(file, bytes.data(), bytes.size());
    if (file >= 0) {
        real::close(file);
    }
    if (written != static_cast<ssize_t>(bytes.size())) {
        board_.state().journal = 0;
    }
}

void Writer::addText(Kind kind, uint64_t inode, std::string_view text) const
{
    Record record{};
    record.kind = kind;
    record.inode = inode;
    record.bytes = static_cast<uint32_t>(text.size());
    add(record, text.data());
}

}  // namespace board::journal
