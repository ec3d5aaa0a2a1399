#include "medium/Journal.h"

#include <fcntl.h>

#include <vector>

#include "board/Real.h"

namespace board::journal {

void Writer::add(Record record, const void* data) const
{
    record.timeUs = real::monotonicUs();
    record.thread = static_cast<uint32_t>(real::threadId());
    const auto* const head = reinterpret_cast<const uint8_t*>(&record);
    const auto* const body = static_cast<const uint8_t*>(data);
    std::vector<uint8_t> bytes(head, head + sizeof(record));
    bytes.insert(bytes.end(), body, body + record.bytes);
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
