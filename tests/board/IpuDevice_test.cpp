#include "ipu/IpuDevice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "drivers/ipu.h"
#include "framebuffer/FramebufferDevice.h"
#include "ipu/Picture.h"
#include "support/ScratchBoard.h"

namespace {

using board::kNv12;
using board::PictureView;
using board::PixelFormat;

constexpr size_t kCameraWidth = 720;
constexpr size_t kCameraHeight = 480;
constexpr size_t kOverlayWidth = 800;
constexpr size_t kOverlayHeight = 500;
constexpr size_t kCameraBytes = kCameraWidth * kCameraHeight * 3 / 2;
constexpr size_t kOverlayBytes = kOverlayWidth * kOverlayHeight * 3 / 2;
constexpr uint8_t kOldPixel = 0x11;

struct Pane {
    uint32_t x, y, width, height;
};

/// A camera picture on its way into a pane of an overlay page; a test changes what it is about.
class Ipu : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(scratch_.usable());
        board::initFramebuffers(scratch_.board());
        device_ = board::makeIpuDevice(scratch_.board());
        camera_ = allocate(kCameraBytes);
        previous_ = allocate(kCameraBytes);
        page_ = allocate(kOverlayBytes);
        std::fill_n(at(page_), kOverlayBytes, kOldPixel);
        task_.input = {kCameraWidth, kCameraHeight, kNv12, {}, static_cast<int>(camera_), {}, 0};
        task_.output = {kOverlayWidth, kOverlayHeight, kNv12, 0, {}, static_cast<int>(page_)};
    }

    uint32_t allocate(uint32_t bytes)
    {
        int word = static_cast<int>(bytes);
        EXPECT_EQ(device_->ioctl(IPU_ALLOC, &word), 0);
        return static_cast<uint32_t>(word);
    }

    int release(uint32_t address)
    {
        int word = static_cast<int>(address);
        return device_->ioctl(IPU_FREE, &word);
    }

    uint8_t* at(uint32_t address) { return scratch_.memory().at(address, 1); }
    int run() { return device_->ioctl(IPU_QUEUE_TASK, &task_); }

    void aimAt(const Pane& pane) { task_.output.crop = {{pane.x, pane.y}, pane.width, pane.height}; }

    void paintCamera(uint8_t y, uint8_t u, uint8_t v)
    {
        uint8_t* data = at(camera_);
        std::fill_n(data, kCameraWidth * kCameraHeight, y);
        for (uint32_t i = kCameraWidth * kCameraHeight; i < kCameraBytes; i += 2) {
            data[i] = u;
            data[i + 1] = v;
        }
    }

    support::ScratchBoard scratch_;
    std::unique_ptr<board::Device> device_;
    uint32_t camera_ = 0, previous_ = 0, page_ = 0;
    ipu_task task_ = {};
};

/// The NV12 page that has the new picture inside the pane and the old one outside it. The chroma lines and
/// columns are those of the pairs that the pane's first ones belong to.
std::vector<uint8_t> expectedPage(const Pane& pane, uint8_t y, uint8_t u, uint8_t v)
{
    std::vector<uint8_t> page(kOverlayBytes, kOldPixel);
    for (size_t line = pane.y; line < pane.y + pane.height; ++line) {
        std::fill_n(page.begin() + static_cast<ptrdiff_t>(line * kOverlayWidth + pane.x), pane.width, y);
    }
    const size_t chroma = kOverlayWidth * kOverlayHeight;
    for (size_t line = pane.y / 2; line < pane.y / 2 + (pane.height + 1) / 2; ++line) {
        for (size_t pair = pane.x / 2; pair < pane.x / 2 + (pane.width + 1) / 2; ++pair) {
            page[chroma + line * kOverlayWidth + 2 * pair] = u;
            page[chroma + line * kOverlayWidth + 2 * pair + 1] = v;
        }
    }
    return page;
}

class IpuPane : public Ipu, public ::testing::WithParamInterface<Pane> {};

TEST_P(IpuPane, TouchesOnlyTheRectangleAndPutsOddOffsetsToTheChromaOfTheirPair)
{
    constexpr uint8_t kY = 200;
    constexpr uint8_t kU = 90;
    constexpr uint8_t kV = 170;
    paintCamera(kY, kU, kV);
    aimAt(GetParam());
    ASSERT_EQ(run(), 0);
    const std::vector<uint8_t> expected = expectedPage(GetParam(), kY, kU, kV);
    const auto [wanted, got] = std::mismatch(expected.begin(), expected.end(), at(page_));
    EXPECT_EQ(wanted, expected.end()) << "byte " << wanted - expected.begin();
}

INSTANTIATE_TEST_SUITE_P(Panes, IpuPane,
                         ::testing::Values(Pane{0, 0, 800, 500}, Pane{0, 117, 400, 266},
                                           Pane{400, 117, 400, 266}, Pane{33, 21, 601, 333},
                                           Pane{79, 19, 720, 480}));

TEST_F(Ipu, CopiesAPictureOfTheSameSizeBitForBit)
{
    constexpr uint32_t kWidth = 1440;
    constexpr uint32_t kHeight = 990;
    const uint32_t grid = allocate(kWidth * kHeight * 3 / 2);
    std::generate_n(at(camera_), kCameraBytes, [seed = 1U]() mutable {
        seed = seed * 1664525U + 1013904223U;
        return static_cast<uint8_t>(seed >> 24);
    });
    task_.output = {
        kWidth, kHeight, kNv12, 0, {{kCameraWidth, 30}, kCameraWidth, kCameraHeight}, static_cast<int>(grid)};
    ASSERT_EQ(run(), 0);

    const uint8_t* const from = at(camera_);
    const uint8_t* const to = at(grid);
    for (uint32_t line = 0; line < kCameraHeight; ++line) {
        const uint8_t* const copied = to + (line + 30) * kWidth + kCameraWidth;
        ASSERT_TRUE(std::equal(copied, copied + kCameraWidth, from + line * kCameraWidth)) << "luma " << line;
    }
    for (uint32_t line = 0; line < kCameraHeight / 2; ++line) {
        const uint8_t* const copied = to + kWidth * kHeight + (line + 15) * kWidth + kCameraWidth;
        ASSERT_TRUE(std::equal(copied, copied + kCameraWidth, from + (kCameraHeight + line) * kCameraWidth))
            << "chroma " << line;
    }
}

TEST_F(Ipu, TakesOnlyTheInputsRectangle)
{
    paintCamera(40, 128, 128);
    uint8_t* const data = at(camera_);
    for (uint32_t line = 100; line < 200; ++line) {
        std::fill_n(data + line * kCameraWidth + 300, 200, uint8_t{180});
    }
    task_.input.crop = {{300, 100}, 200, 100};
    ASSERT_EQ(run(), 0);
    const uint8_t* const page = at(page_);
    EXPECT_TRUE(
        std::all_of(page, page + kOverlayWidth * kOverlayHeight, [](uint8_t luma) { return luma == 180; }));
}

/// The same smooth picture for every format: brightness rises to the right, one chroma goes down the lines.
void paintSmooth(uint8_t* nv12)
{
    for (uint32_t line = 0; line < kCameraHeight; ++line) {
        for (uint32_t x = 0; x < kCameraWidth; ++x) {
            nv12[line * kCameraWidth + x] = static_cast<uint8_t>(80 + x / 8);
        }
    }
    uint8_t* const chroma = nv12 + kCameraWidth * kCameraHeight;
    for (uint32_t line = 0; line < kCameraHeight / 2; ++line) {
        for (uint32_t x = 0; x < kCameraWidth; x += 2) {
            chroma[line * kCameraWidth + x] = static_cast<uint8_t>(110 + line / 8);
            chroma[line * kCameraWidth + x + 1] = static_cast<uint8_t>(140 - x / 32);
        }
    }
}

class IpuFormat : public Ipu, public ::testing::WithParamInterface<uint32_t> {
protected:
    /// There and back again: camera picture, the format at another size, NV12 in the camera's size.
    int throughFormat(uint32_t width, uint32_t height)
    {
        const PixelFormat* const format = board::findPixelFormat(GetParam());
        const auto bytes = static_cast<uint32_t>(board::pictureBytes(*format, {width, height}));
        const auto between = static_cast<int>(allocate(bytes));
        task_.output = {width, height, GetParam(), 0, {}, between};
        const int there = run();
        task_.input = {width, height, GetParam(), {}, between, {}, 0};
        task_.output = {kCameraWidth, kCameraHeight, kNv12, 0, {}, static_cast<int>(previous_)};
        return there != 0 ? there : run();
    }

    int largestError()
    {
        int largest = 0;
        for (uint32_t i = 0; i < kCameraBytes; ++i) {
            largest = std::max(largest, std::abs(at(camera_)[i] - at(previous_)[i]));
        }
        return largest;
    }
};

TEST_P(IpuFormat, ComesBackFromTheFormat)
{
    // Five or six bits a colour leave an error of a few steps.
    constexpr int kRgbError = 12;
    paintSmooth(at(camera_));
    ASSERT_EQ(throughFormat(kCameraWidth, kCameraHeight), 0);
    EXPECT_LE(largestError(), GetParam() == board::kRgbp ? kRgbError : 1);
}

TEST_P(IpuFormat, ComesBackFromTheFormatScaled)
{
    constexpr int kRgbError = 14;
    constexpr int kScalingError = 2;
    paintSmooth(at(camera_));
    ASSERT_EQ(throughFormat(kOverlayWidth, kOverlayHeight), 0);
    EXPECT_LE(largestError(), GetParam() == board::kRgbp ? kRgbError : kScalingError);
}

INSTANTIATE_TEST_SUITE_P(Formats, IpuFormat,
                         ::testing::Values(board::kNv12, board::kYu12, board::kYuyv, board::kUyvy,
                                           board::kRgbp));

TEST_F(Ipu, PacksYuyvAndUyvyInTheirOwnOrder)
{
    paintCamera(100, 60, 200);
    const uint32_t packed = allocate(kCameraWidth * kCameraHeight * 2);
    task_.output = {kCameraWidth, kCameraHeight, board::kYuyv, 0, {}, static_cast<int>(packed)};
    ASSERT_EQ(run(), 0);
    EXPECT_EQ(std::vector<uint8_t>(at(packed), at(packed) + 4), (std::vector<uint8_t>{100, 60, 100, 200}));
    task_.output.format = board::kUyvy;
    ASSERT_EQ(run(), 0);
    EXPECT_EQ(std::vector<uint8_t>(at(packed), at(packed) + 4), (std::vector<uint8_t>{60, 100, 200, 100}));
}

/// One thing that is wrong with a task.
struct WrongTask {
    const char* name;
    int error;
    const char* reason;  ///< a word of what the report says
    void (*spoil)(ipu_task&);
};

void PrintTo(const WrongTask& wrong, std::ostream* out)
{
    *out << wrong.name;
}

const std::vector<WrongTask> kWrongTasks{
    {"InputFormat", -EINVAL, "input format", [](ipu_task& t) { t.input.format = 1; }},
    {"OutputFormat", -EINVAL, "output format", [](ipu_task& t) { t.output.format = 0; }},
    {"NoWidth", -EINVAL, "input picture", [](ipu_task& t) { t.input.width = 0; }},
    {"NoHeight", -EINVAL, "output picture", [](ipu_task& t) { t.output.height = 0; }},
    {"OddPicture", -EINVAL, "odd size", [](ipu_task& t) { t.input.height = 479; }},
    {"PaneLeavesThePage", -EINVAL, "leaves",
     [](ipu_task& t) {
         t.output.crop = {{401, 0}, 400, 266};
     }},
    {"PaneBeyond32Bits", -EINVAL, "leaves",
     [](ipu_task& t) {
         t.output.crop = {{0xFFFFFFF0U, 0}, 32, 266};
     }},
    {"HalfAPairOfPixels", -EINVAL, "pair",
     [](ipu_task& t) {
         t.output.format = board::kYuyv;
         t.output.crop = {{1, 0}, 400, 266};
     }},
    {"TooSmall", -EINVAL, "eighth",
     [](ipu_task& t) {
         t.output.crop = {{0, 0}, 80, 60};
     }},
    {"Rotation", -EINVAL, "rotation", [](ipu_task& t) { t.output.rotate = 4; }},
    {"OverlayPicture", -EINVAL, "overlay", [](ipu_task& t) { t.overlay_en = true; }},
    {"MotionMode", -EINVAL, "motion",
     [](ipu_task& t) {
         t.input.deinterlace = {true, 3, 0};
     }},
    {"FieldsOfRgb", -EINVAL, "RGB",
     [](ipu_task& t) {
         t.input.format = board::kRgbp;
         t.input.deinterlace = {true, 2, 0};
     }},
    {"NoPreviousFrame", -EFAULT, "previous frame at 0x00000000",
     [](ipu_task& t) {
         t.input.deinterlace = {true, 0, 0};
     }},
    {"NoInput", -EFAULT, "input at 0x00000000", [](ipu_task& t) { t.input.paddr = 0; }},
    {"InputEndsOutsideItsMemory", -EFAULT, "input at", [](ipu_task& t) { t.input.height = 800; }},
    {"OutputBelowTheMemory", -EFAULT, "output at", [](ipu_task& t) { t.output.paddr = 0x0FFFF000; }},
};

std::string nameOf(const ::testing::TestParamInfo<WrongTask>& test)
{
    return test.param.name;
}

class IpuRefusal : public Ipu, public ::testing::WithParamInterface<WrongTask> {};

TEST_P(IpuRefusal, SaysWhyAndTouchesNothing)
{
    GetParam().spoil(task_);
    EXPECT_EQ(run(), GetParam().error);
    EXPECT_NE(scratch_.lastRefusal().find(GetParam().reason), std::string::npos) << scratch_.lastRefusal();
    const uint8_t* const page = at(page_);
    EXPECT_TRUE(std::all_of(page, page + kOverlayBytes, [](uint8_t byte) { return byte == kOldPixel; }));
}

INSTANTIATE_TEST_SUITE_P(Tasks, IpuRefusal, ::testing::ValuesIn(kWrongTasks), nameOf);

TEST_F(Ipu, IdleItTouchesNothingAndStillRefuses)
{
    scratch_.state().devices = board::Devices::kIdle;
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(std::vector<uint8_t>(at(page_), at(page_) + kOverlayBytes),
              std::vector<uint8_t>(kOverlayBytes, kOldPixel));
    EXPECT_EQ(release(camera_), 0);
    EXPECT_EQ(run(), -EFAULT);
}

TEST_F(Ipu, HighMotionNeedsNoPreviousFrame)
{
    task_.input.deinterlace = {true, 2, 0};
    EXPECT_EQ(run(), 0);
}

TEST_F(Ipu, StillPictureIsScaledThroughTheDeinterlacerAsWithoutIt)
{
    paintSmooth(at(camera_));
    std::copy_n(at(camera_), kCameraBytes, at(previous_));
    ASSERT_EQ(run(), 0);
    const std::vector<uint8_t> plain(at(page_), at(page_) + kOverlayBytes);
    std::fill_n(at(page_), kOverlayBytes, kOldPixel);
    task_.input.deinterlace = {true, 0, 0};
    task_.input.paddr_n = static_cast<int>(previous_);
    ASSERT_EQ(run(), 0);
    EXPECT_TRUE(std::equal(plain.begin(), plain.end(), at(page_)));
}

TEST_F(Ipu, FieldsThatAreToBeKeptAreDeinterlacedAllTheSame)
{
    paintSmooth(at(camera_));
    scratch_.state().keepsFields = 1;
    ASSERT_EQ(run(), 0);
    const std::vector<uint8_t> plain(at(page_), at(page_) + kOverlayBytes);
    task_.input.deinterlace = {true, 0, 0};  // and no previous frame, which is then not looked for
    ASSERT_EQ(run(), 0);
    EXPECT_TRUE(std::equal(plain.begin(), plain.end(), at(page_)));
}

TEST_F(Ipu, WritesIntoTheOverlaysMemoryAndNoLongerAtItsOldAddress)
{
    const auto overlay = board::makeFramebufferDevice(scratch_.board(), 1);
    fb_var_screeninfo mode{};
    ASSERT_EQ(overlay->ioctl(FBIOGET_VSCREENINFO, &mode), 0);
    const uint32_t old = scratch_.state().framebuffers[1].physicalBase;
    mode.xres = mode.xres_virtual = kOverlayWidth;
    mode.yres = kOverlayHeight;
    mode.yres_virtual = kOverlayHeight * 4;
    mode.nonstd = kNv12;
    ASSERT_EQ(overlay->ioctl(FBIOPUT_VSCREENINFO, &mode), 0);

    paintCamera(99, 128, 128);
    task_.output.paddr = static_cast<int>(scratch_.state().framebuffers[1].physicalBase + 3 * kOverlayBytes);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(scratch_.board().framebuffer(1)[3 * kOverlayBytes], 99);
    task_.output.paddr = static_cast<int>(old);
    EXPECT_EQ(run(), -EFAULT);
}

TEST_F(Ipu, FreedMemoryIsNoLongerAnAddress)
{
    ASSERT_EQ(release(camera_), 0);
    EXPECT_EQ(run(), -EFAULT);
    EXPECT_EQ(release(camera_), -EINVAL);
    EXPECT_NE(scratch_.lastRefusal().find("no allocation"), std::string::npos);
}

TEST_F(Ipu, LeavesTheCodecsMemoryAlone)
{
    const uint32_t foreign = scratch_.memory().allocate(4096, "vpu");
    EXPECT_EQ(release(foreign), -EINVAL);
    EXPECT_NE(scratch_.memory().at(foreign, 4096), nullptr);
}

TEST_F(Ipu, RefusesSizesThatItCannotGive)
{
    int word = 0;
    EXPECT_EQ(device_->ioctl(IPU_ALLOC, &word), -EINVAL);
    word = -4096;
    EXPECT_EQ(device_->ioctl(IPU_ALLOC, &word), -EINVAL);
    word = static_cast<int>(board::kMemoryBytes);
    EXPECT_EQ(device_->ioctl(IPU_ALLOC, &word), -ENOMEM);
    EXPECT_EQ(word, static_cast<int>(board::kMemoryBytes)) << "the word of a failed request stays";
}

}  // namespace
