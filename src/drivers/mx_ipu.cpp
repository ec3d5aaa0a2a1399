#include "drivers/mx_ipu.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

#include "lib/interrupted.h"

namespace {

constexpr u_int8_t kHighMotion = 2;

/// The kernel's record and request words hold an address as 32 bits of which the sign means nothing.
int32_t addressWord(size_t physical)
{
    return static_cast<int32_t>(static_cast<uint32_t>(physical));
}

size_t wholePages(int size)
{
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return (static_cast<size_t>(size) + page - 1) / page * page;
}

ipu_crop rectangle(int x, int y, int width, int height)
{
    ipu_crop crop = {};
    crop.pos.x = static_cast<uint32_t>(x);
    crop.pos.y = static_cast<uint32_t>(y);
    crop.w = static_cast<uint32_t>(width);
    crop.h = static_cast<uint32_t>(height);
    return crop;
}

}  // namespace

mx_ipu::~mx_ipu()
{
    if (fd != -1) {
        close(fd);
    }
}

bool mx_ipu::setup(const char* path, bool en, u_int8_t level, bool tb)
{
    vdi.en = en;
    vdi.tb = tb;
    vdi.level = level < kHighMotion ? level : kHighMotion;
    fd = retryInterrupted([&] { return open(path, O_RDWR | O_CLOEXEC); });
    return fd >= 0;
}

void mx_ipu::setup_copy(ipu_task& task, const IPU_COPY& copy, size_t inPaddr, size_t inPaddrN,
                        size_t outPaddr) const
{
    task = {};
    task.input.width = static_cast<uint32_t>(copy.src.width);
    task.input.height = static_cast<uint32_t>(copy.src.height);
    task.input.format = static_cast<uint32_t>(copy.src.format);
    task.input.crop = rectangle(0, 0, copy.src.width, copy.src.height);
    task.input.deinterlace.enable = vdi.en;
    task.input.deinterlace.motion = vdi.level;
    task.input.deinterlace.field_fmt = vdi.tb ? 1 : 0;
    task.output.width = static_cast<uint32_t>(copy.dest.maxWidth);
    task.output.height = static_cast<uint32_t>(copy.dest.maxHeight);
    task.output.format = static_cast<uint32_t>(copy.dest.format);
    change_copy(task, copy);
    change_buffers(task, inPaddr, inPaddrN, outPaddr);
}

void mx_ipu::change_copy(ipu_task& task, const IPU_COPY& copy) const
{
    task.output.crop = rectangle(copy.dest.x, copy.dest.y, copy.dest.width, copy.dest.height);
}

void mx_ipu::change_buffers(ipu_task& task, size_t inPaddr, size_t inPaddrN, size_t outPaddr) const
{
    task.input.paddr = addressWord(inPaddr);
    if (vdi.level != kHighMotion) {
        task.input.paddr_n = addressWord(inPaddrN);
    }
    task.output.paddr = addressWord(outPaddr);
}

bool mx_ipu::run(ipu_task& task)
{
    return call(IPU_QUEUE_TASK, &task);
}

bool mx_ipu::alloc(buffer& b, int size)
{
    if (fd == -1 || size < 0) {
        return false;
    }
    b.start = nullptr;
    b.length = wholePages(size);
    b.offset = b.length;
    return allocatePhysical(b) && map(b);
}

bool mx_ipu::allocatePhysical(buffer& b)
{
    auto word = static_cast<uint32_t>(b.offset);  // the size goes in, the address comes out
    if (!call(IPU_ALLOC, &word)) {
        return false;
    }
    b.offset = word;
    return true;
}

bool mx_ipu::map(buffer& b)
{
    void* start =
        mmap(nullptr, b.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, static_cast<off_t>(b.offset));
    if (start == MAP_FAILED || start == nullptr) {
        free(b);  // nobody has a use for memory that cannot be reached
        b.offset = b.length;
        return false;
    }
    b.start = start;
    ++buffAllocNum;
    return true;
}

bool mx_ipu::free(buffer& b)
{
    if (b.start != nullptr) {
        munmap(b.start, b.length);
        b.start = nullptr;  // a second free must not unmap what may be mapped there by then
    }
    auto word = static_cast<uint32_t>(b.offset);
    return call(IPU_FREE, &word);
}

bool mx_ipu::call(unsigned long request, void* argument)
{
    return retryInterrupted([&] { return ioctl(fd, request, argument); }) != -1;
}
