#include "ipu/IpuDevice.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#include "drivers/ipu.h"
#include "ipu/Convert.h"
#include "ipu/Deinterlace.h"
#include "ipu/Picture.h"
#include "memory/PhysicalMemory.h"

namespace board {
namespace {

constexpr const char* kOwner = "ipu";
constexpr uint32_t kLargestSide = 4096;  // pixels
constexpr uint32_t kLargestReduction = 8;

/// What the task's `motion` may be, and what difference to the previous frame then counts as noise.
constexpr uint8_t kHighMotion = 2;  // looks at the current frame only
constexpr std::array<uint8_t, kHighMotion> kTolerances{8, 16};

std::string hexText(uint32_t value)
{
    std::array<char, sizeof("0x12345678")> digits{};
    std::snprintf(digits.data(), digits.size(), "0x%08X", value);
    return digits.data();
}

std::string sizeText(Size size)
{
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

/// One side of a task: a rectangle of a picture at a physical address.
struct Side {
    const char* name;
    uint32_t formatCode;
    Size whole;
    Rectangle crop;
    const PixelFormat* format;

    size_t bytes() const { return pictureBytes(*format, whole); }
    PictureView view(uint8_t* data) const { return viewPicture(data, *format, whole, crop); }
};

/// In the kernel's record a rectangle without width or height has that of the whole picture.
template <typename Record>
Side sideOf(const char* name, const Record& record)
{
    const Rectangle crop{record.crop.pos.x, record.crop.pos.y,
                         record.crop.w != 0 ? record.crop.w : record.width,
                         record.crop.h != 0 ? record.crop.h : record.height};
    return {name, record.format, {record.width, record.height}, crop, findPixelFormat(record.format)};
}

bool oddSize(const Side& side)
{
    const bool subsampled = side.format->planeCount > 1;
    return ((subsampled || side.format->pairs) && side.whole.width % 2 != 0) ||
           (subsampled && side.whole.height % 2 != 0);
}

/// Why the unit takes no such picture of a known format; empty when it does.
std::string faultOf(const Side& side)
{
    const auto& [x, y, width, height] = side.crop;
    const std::string name = side.name;
    if (side.whole.width == 0 || side.whole.height == 0 || side.whole.width > kLargestSide ||
        side.whole.height > kLargestSide) {
        return name + " picture of " + sizeText(side.whole);
    }
    if (oddSize(side)) {
        return name + " picture of odd size " + sizeText(side.whole);
    }
    if (uint64_t{x} + width > side.whole.width || uint64_t{y} + height > side.whole.height) {
        return name + " rectangle " + sizeText({width, height}) + " at " + std::to_string(x) + "," +
               std::to_string(y) + " leaves its picture of " + sizeText(side.whole);
    }
    if (side.format->pairs && (x % 2 != 0 || width % 2 != 0)) {
        return name + " rectangle cuts a pair of pixels: x " + std::to_string(x) + ", width " +
               std::to_string(width);
    }
    return {};
}

std::string faultOfFields(const ipu_deinterlace& fields, const PixelFormat& format)
{
    if (!fields.enable) {
        return {};
    }
    if (fields.motion > kHighMotion) {
        return "motion " + std::to_string(fields.motion);
    }
    return format.yuv ? std::string() : "de-interlacing of RGB";
}

std::string faultOfScale(const Rectangle& from, const Rectangle& to)
{
    if (uint64_t{to.width} * kLargestReduction < from.width ||
        uint64_t{to.height} * kLargestReduction < from.height) {
        return sizeText({from.width, from.height}) + " to " + sizeText({to.width, to.height}) +
               " is less than an eighth";
    }
    return {};
}

/// Why the unit does not take the task, formats and addresses aside; empty when it does.
std::string faultOf(const ipu_task& task, const Side& input, const Side& output)
{
    std::string fault = faultOf(input);
    if (fault.empty()) {
        fault = faultOf(output);
    }
    if (!fault.empty()) {
        return fault;
    }
    if (task.overlay_en) {
        return "overlay picture in a task";
    }
    if (task.output.rotate != 0) {
        return "rotation " + std::to_string(task.output.rotate);
    }
    fault = faultOfScale(input.crop, output.crop);
    if (fault.empty()) {
        fault = faultOfFields(task.input.deinterlace, *input.format);
    }
    return fault;
}

class IpuDevice : public Device {
public:
    explicit IpuDevice(Board& board) : Device(board, "ipu", "/dev/mxc_ipu") {}

    const char* backingFile() const override { return "memory"; }

    int queueTask(ipu_task& task);
    int allocate(int& word);
    int release(int& word);

protected:
    Table requests() const override;

private:
    uint8_t* picture(const Side& side, const char* name, int address) const;
    int copy(const ipu_task& task, const Side& input, const Side& output);
    bool deinterlaces(const ipu_task& task) const
    {
        return task.input.deinterlace.enable && board().state().keepsFields == 0;
    }
    bool process(const ipu_task& task, const PictureView& from, const PictureView* previous,
                 const PictureView& to);

    std::mutex busy_;  ///< one task at a time; guards what follows
    Deinterlacer deinterlacer_;
    Converter converter_;
    ScratchPicture progressive_;
};

Device::Table IpuDevice::requests() const
{
    static constexpr std::array kRequests{
        request<IPU_QUEUE_TASK, &IpuDevice::queueTask>("IPU_QUEUE_TASK"),
        request<IPU_ALLOC, &IpuDevice::allocate>("IPU_ALLOC"),
        request<IPU_FREE, &IpuDevice::release>("IPU_FREE"),
    };
    return {kRequests.data(), kRequests.size()};
}

int IpuDevice::allocate(int& word)
{
    if (word <= 0) {
        return refuse("IPU_ALLOC", -EINVAL, "size " + std::to_string(word));
    }
    const uint32_t address = PhysicalMemory(board()).allocate(static_cast<uint32_t>(word), kOwner);
    if (address == 0) {
        return refuse("IPU_ALLOC", -ENOMEM, "no room for " + std::to_string(word) + " bytes");
    }
    word = static_cast<int>(address);
    return 0;
}

int IpuDevice::release(int& word)
{
    const auto address = static_cast<uint32_t>(word);
    const auto isOurs = [&] {
        const BoardLock lock(board());
        const auto& held = board().state().allocations;
        return std::any_of(held.begin(), held.end(), [&](const Allocation& entry) {
            return entry.bytes != 0 && entry.base == address && std::strcmp(entry.owner, kOwner) == 0;
        });
    };
    if (!isOurs() || !PhysicalMemory(board()).release(address)) {
        return refuse("IPU_FREE", -EINVAL, hexText(address) + " is no allocation of the ipu");
    }
    return 0;
}

int IpuDevice::queueTask(ipu_task& task)
{
    const Side input = sideOf("input", task.input);
    const Side output = sideOf("output", task.output);
    if (input.format == nullptr || output.format == nullptr) {
        const Side& unknown = input.format == nullptr ? input : output;
        return refuse("IPU_QUEUE_TASK", -EINVAL,
                      std::string(unknown.name) + " format " + hexText(unknown.formatCode) + " unknown");
    }
    const std::string fault = faultOf(task, input, output);
    return fault.empty() ? copy(task, input, output) : refuse("IPU_QUEUE_TASK", -EINVAL, fault);
}

/// Where a picture lies in this process; null (and noted) when it leaves what the unit may touch.
uint8_t* IpuDevice::picture(const Side& side, const char* name, int address) const
{
    const auto physical = static_cast<uint32_t>(address);
    uint8_t* data = PhysicalMemory(board()).at(physical, side.bytes());
    if (data == nullptr) {
        refuse("IPU_QUEUE_TASK", -EFAULT,
               std::string(name) + " at " + hexText(physical) + " (" + std::to_string(side.bytes()) +
                   " bytes) lies in no live memory");
    }
    return data;
}

int IpuDevice::copy(const ipu_task& task, const Side& input, const Side& output)
{
    uint8_t* from = picture(input, input.name, task.input.paddr);
    uint8_t* to = picture(output, output.name, task.output.paddr);
    if (from == nullptr || to == nullptr) {
        return -EFAULT;
    }
    const bool comparesFrames = deinterlaces(task) && task.input.deinterlace.motion != kHighMotion;
    PictureView previous{};
    if (comparesFrames) {
        uint8_t* before = picture(input, "previous frame", task.input.paddr_n);
        if (before == nullptr) {
            return -EFAULT;
        }
        previous = input.view(before);
    }
    if (board().state().devices == Devices::kIdle) {
        return 0;
    }
    const std::lock_guard<std::mutex> lock(busy_);
    const bool done = process(task, input.view(from), comparesFrames ? &previous : nullptr, output.view(to));
    return done ? 0 : refuse("IPU_QUEUE_TASK", -ENOMEM, "no memory for the conversion");
}

bool IpuDevice::process(const ipu_task& task, const PictureView& from, const PictureView* previous,
                        const PictureView& to)
{
    if (!deinterlaces(task)) {
        return converter_.run(from, to);
    }
    const ipu_deinterlace& fields = task.input.deinterlace;
    const FieldOrder order = fields.field_fmt == 0 ? FieldOrder::kTopFirst : FieldOrder::kBottomFirst;
    const uint8_t tolerance = previous == nullptr ? uint8_t{0} : kTolerances[fields.motion];
    if (from.format == to.format && from.sameSize(to)) {
        deinterlacer_.run(from, previous, order, tolerance, to);
        return true;
    }
    const PictureView whole = progressive_.fit(*from.format, from.size);
    deinterlacer_.run(from, previous, order, tolerance, whole);
    return converter_.run(whole, to);
}

}  // namespace

std::unique_ptr<Device> makeIpuDevice(Board& board)
{
    return std::make_unique<IpuDevice>(board);
}

}  // namespace board
