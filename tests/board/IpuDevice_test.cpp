#include "ipu/IpuDevice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "drivers/ipu.h"
#include "ipu/Picture.h"
#include "support/ScratchBoard.h"

namespace {

using board::kNv12;

constexpr size_t kCameraWidth = 720;
constexpr size_t kCameraHeight = 480;
constexpr size_t kOverlayWidth = 800;
constexpr size_t kOverlayHeight = 500;
constexpr size_t kCameraBytes = kCameraWidth * kCameraHeight * 3 / 2;
constexpr size_t kOverlayBytes = kOverlayWidth * kOverlayHeight * 3 / 2;
constexpr uint8_t kOldPixel = 0x11;

using Page = std::vector<uint8_t>;

struct Pane {
    uint32_t x, y, width, height;
};

constexpr Pane kWhole{0, 0, kCameraWidth, kCameraHeight};

void aimAt(ipu_task& task, uint32_t x, uint32_t y, uint32_t width, uint32_t height)
{
    task.output.crop = {{x, y}, width, height};
}

void deinterlace(ipu_task& task, uint8_t motion)
{
    task.input.deinterlace = {true, motion, 0};
}

/// A camera picture on its way into an overlay page; a test changes what it is about.
class Ipu : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(scratch_.usable());
        device_ = board::makeIpuDevice(scratch_.board());
        camera_ = allocate(kCameraBytes);
        previous_ = allocate(kCameraBytes);
        page_ = allocate(kOverlayBytes);
        std::fill_n(at(page_), kOverlayBytes, kOldPixel);
        task_.input = {kCameraWidth, kCameraHeight, kNv12, {}, static_cast<int>(camera_), {}, 0};
        task_.output = {kOverlayWidth, kOverlayHeight, kNv12, 0, {}, static_cast<int>(page_)};
    }

    uint32_t allocate(size_t bytes)
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
    Page page() { return {at(page_), at(page_) + kOverlayBytes}; }

    void paintCamera(const Pane& part, uint8_t y, uint8_t u, uint8_t v)
    {
        for (size_t line = part.y; line < part.y + part.height; ++line) {
            std::fill_n(at(camera_) + line * kCameraWidth + part.x, part.width, y);
            uint8_t* chroma = at(camera_) + (kCameraHeight + line / 2) * kCameraWidth + part.x;
            for (size_t x = 0; x < part.width; x += 2) {
                *chroma++ = u;
                *chroma++ = v;
            }
        }
    }

    /// Smooth, so that every format can hold it: brightness rises to the right, one chroma goes down the
    /// lines.
    void paintSmooth()
    {
        uint8_t* const luma = at(camera_);
        uint8_t* const chroma = luma + kCameraWidth * kCameraHeight;
        for (size_t i = 0; i < kCameraWidth * kCameraHeight; ++i) {
            luma[i] = static_cast<uint8_t>(80 + i % kCameraWidth / 8);
        }
        for (size_t i = 0; i < kCameraWidth * kCameraHeight / 2; i += 2) {
            chroma[i] = static_cast<uint8_t>(110 + i / kCameraWidth / 8);
            chroma[i + 1] = static_cast<uint8_t>(140 - i % kCameraWidth / 32);
        }
    }

    support::ScratchBoard scratch_;
    std::unique_ptr<board::Device> device_;
    uint32_t camera_ = 0, previous_ = 0, page_ = 0;
    ipu_task task_ = {};
};

/// The NV12 page that has the new picture inside the pane and the old one outside it. The chroma lines and
/// columns are those of the pairs that the pane's first ones belong to.
Page expectedPage(const Pane& pane, uint8_t y, uint8_t u, uint8_t v)
{
    Page page(kOverlayBytes, kOldPixel);
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

TEST_F(Ipu, TakesOrTouchesMoreThanTheRectangleOrPutsAnOddOffsetsChromaIntoAnotherPair)
{
    constexpr Pane kTaken{300, 100, 360, 240};
    constexpr uint8_t kY = 200;
    constexpr uint8_t kU = 90;
    constexpr uint8_t kV = 170;
    paintCamera(kWhole, 40, 128, 128);
    paintCamera(kTaken, kY, kU, kV);
    task_.input.crop = {{kTaken.x, kTaken.y}, kTaken.width, kTaken.height};
    for (const Pane& pane : {Pane{0, 0, 800, 500}, Pane{0, 117, 400, 266}, Pane{400, 117, 400, 266},
                             Pane{33, 21, 601, 333}, Pane{79, 19, 360, 240}}) {
        std::fill_n(at(page_), kOverlayBytes, kOldPixel);
        aimAt(task_, pane.x, pane.y, pane.width, pane.height);
        ASSERT_EQ(run(), 0);
        const Page expected = expectedPage(pane, kY, kU, kV);
        const auto [wanted, got] = std::mismatch(expected.begin(), expected.end(), at(page_));
        EXPECT_EQ(wanted, expected.end()) << "pane at " << pane.x << ", byte " << wanted - expected.begin();
    }
}

TEST_F(Ipu, ChangesAPictureThatItCopiesInItsSize)
{
    constexpr uint32_t kWidth = 1440;
    constexpr uint32_t kHeight = 990;
    const uint32_t grid = allocate(kWidth * kHeight * 3 / 2);
    std::generate_n(at(camera_), kCameraBytes, std::mt19937(1));
    task_.output = {kWidth, kHeight, kNv12, 0, {}, static_cast<int>(grid)};
    aimAt(task_, kCameraWidth, 30, kCameraWidth, kCameraHeight);
    ASSERT_EQ(run(), 0);

    const uint8_t* from = at(camera_);
    for (const size_t firstLine : {size_t{30}, kHeight + size_t{15}}) {  // luma, and chroma behind it
        const size_t lines = firstLine < kHeight ? kCameraHeight : kCameraHeight / 2;
        for (size_t line = firstLine; line < firstLine + lines; ++line, from += kCameraWidth) {
            const uint8_t* const copied = at(grid) + line * kWidth + kCameraWidth;
            ASSERT_TRUE(std::equal(copied, copied + kCameraWidth, from)) << line;
        }
    }
}

TEST_F(Ipu, AFormatChangesThePictureThatGoesThroughIt)
{
    struct Row {
        uint32_t format;
        int largestError, largestErrorScaled;
    };
    paintSmooth();
    const int camera = task_.input.paddr;
    for (const Row& row : {Row{kNv12, 1, 2}, Row{board::kYu12, 1, 2}, Row{board::kYuyv, 1, 2},
                           Row{board::kUyvy, 1, 2}, Row{board::kRgbp, 12, 14}}) {  // 5 or 6 bits a colour
        for (const bool scaled : {false, true}) {
            const board::Size size = scaled ? board::Size{kOverlayWidth, kOverlayHeight}
                                            : board::Size{kCameraWidth, kCameraHeight};
            const auto between =
                static_cast<int>(allocate(board::pictureBytes(*board::findPixelFormat(row.format), size)));
            task_.input = {kCameraWidth, kCameraHeight, kNv12, {}, camera, {}, 0};
            task_.output = {size.width, size.height, row.format, 0, {}, between};
            ASSERT_EQ(run(), 0);
            task_.input = {size.width, size.height, row.format, {}, between, {}, 0};
            task_.output = {kCameraWidth, kCameraHeight, kNv12, 0, {}, static_cast<int>(previous_)};
            ASSERT_EQ(run(), 0);
            int largest = 0;
            for (size_t i = 0; i < kCameraBytes; ++i) {
                largest = std::max(largest, std::abs(at(camera_)[i] - at(previous_)[i]));
            }
            EXPECT_LE(largest, scaled ? row.largestErrorScaled : row.largestError) << row.format;
        }
    }
}

TEST_F(Ipu, PacksYuyvOrUyvyInAnotherOrder)
{
    paintCamera(kWhole, 100, 60, 200);
    const uint32_t packed = allocate(kCameraWidth * kCameraHeight * 2);
    task_.output = {kCameraWidth, kCameraHeight, board::kYuyv, 0, {}, static_cast<int>(packed)};
    ASSERT_EQ(run(), 0);
    EXPECT_EQ(Page(at(packed), at(packed) + 4), (Page{100, 60, 100, 200}));
    task_.output.format = board::kUyvy;
    ASSERT_EQ(run(), 0);
    EXPECT_EQ(Page(at(packed), at(packed) + 4), (Page{60, 100, 200, 100}));
}

void wantsHalfAPair(ipu_task& task)
{
    task.output.format = board::kYuyv;
    aimAt(task, 1, 0, 400, 266);
}

void wantsFieldsOfRgb(ipu_task& task)
{
    task.input.format = board::kRgbp;
    deinterlace(task, 2);
}

/// One thing that is wrong with a task.
struct WrongTask {
    int error;
    const char* reason;  ///< words of what the report says
    void (*spoil)(ipu_task&);
};

constexpr WrongTask kWrongTasks[] = {
    {-EINVAL, "input format", [](ipu_task& t) { t.input.format = 1; }},
    {-EINVAL, "output format", [](ipu_task& t) { t.output.format = 0; }},
    {-EINVAL, "input picture", [](ipu_task& t) { t.input.width = 0; }},
    {-EINVAL, "output picture", [](ipu_task& t) { t.output.height = 0; }},
    {-EINVAL, "odd size", [](ipu_task& t) { t.input.height = 479; }},
    {-EINVAL, "leaves", [](ipu_task& t) { aimAt(t, 401, 0, 400, 266); }},
    {-EINVAL, "leaves", [](ipu_task& t) { aimAt(t, 0xFFFFFFF0U, 0, 32, 266); }},  // beyond 32 bits
    {-EINVAL, "pair", wantsHalfAPair},
    {-EINVAL, "eighth", [](ipu_task& t) { aimAt(t, 0, 0, 80, 60); }},
    {-EINVAL, "rotation", [](ipu_task& t) { t.output.rotate = 4; }},
    {-EINVAL, "overlay", [](ipu_task& t) { t.overlay_en = true; }},
    {-EINVAL, "motion", [](ipu_task& t) { deinterlace(t, 3); }},
    {-EINVAL, "RGB", wantsFieldsOfRgb},
    {-EFAULT, "previous frame at 0x00000000", [](ipu_task& t) { deinterlace(t, 0); }},
    {-EFAULT, "input at 0x00000000", [](ipu_task& t) { t.input.paddr = 0; }},
    {-EFAULT, "input at", [](ipu_task& t) { t.input.height = 800; }},          // ends outside its memory
    {-EFAULT, "output at", [](ipu_task& t) { t.output.paddr = 0x0FFFF000; }},  // below the memory
};

TEST_F(Ipu, RunsAWrongTaskOrDoesNotSayWhatIsWrong)
{
    const ipu_task right = task_;
    for (const WrongTask& wrong : kWrongTasks) {
        SCOPED_TRACE(wrong.reason);
        task_ = right;
        wrong.spoil(task_);
        const uint32_t before = scratch_.refusals();
        EXPECT_EQ(run(), wrong.error);
        EXPECT_EQ(scratch_.refusals(), before + 1);
        EXPECT_NE(scratch_.lastRefusal().find(wrong.reason), std::string::npos) << scratch_.lastRefusal();
    }
    EXPECT_EQ(page(), Page(kOverlayBytes, kOldPixel));
}

TEST_F(Ipu, IdleItTouchesThePageOrTakesAnyTask)
{
    scratch_.state().devices = board::Devices::kIdle;
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(page(), Page(kOverlayBytes, kOldPixel));
    EXPECT_EQ(release(camera_), 0);
    EXPECT_EQ(run(), -EFAULT);
}

TEST_F(Ipu, TheDeinterlacerChangesAPictureThatStandsStillOrFieldsThatAreToBeKept)
{
    paintSmooth();
    std::copy_n(at(camera_), kCameraBytes, at(previous_));
    ASSERT_EQ(run(), 0);
    const Page plain = page();
    std::fill_n(at(page_), kOverlayBytes, kOldPixel);
    deinterlace(task_, 0);
    task_.input.paddr_n = static_cast<int>(previous_);
    ASSERT_EQ(run(), 0);
    EXPECT_EQ(page(), plain);

    task_.input.paddr_n = 0;
    deinterlace(task_, 2);
    EXPECT_EQ(run(), 0) << "high motion needs no previous frame";
    std::fill_n(at(page_), kOverlayBytes, kOldPixel);
    scratch_.state().keepsFields = 1;
    deinterlace(task_, 0);  // the previous frame is not looked for
    ASSERT_EQ(run(), 0);
    EXPECT_EQ(page(), plain);
}

TEST_F(Ipu, GivesOrTakesMemoryThatItShouldNot)
{
    ASSERT_EQ(release(camera_), 0);
    EXPECT_EQ(run(), -EFAULT) << "freed";
    EXPECT_EQ(release(camera_), -EINVAL);
    EXPECT_NE(scratch_.lastRefusal().find("no allocation"), std::string::npos);
    const uint32_t foreign = scratch_.memory().allocate(4096, "vpu");
    EXPECT_EQ(release(foreign), -EINVAL);
    EXPECT_NE(scratch_.memory().at(foreign, 4096), nullptr);

    constexpr auto kTooMuch = static_cast<int>(board::kMemoryBytes);
    for (const auto& [size, error] : {std::pair{0, -EINVAL}, {-4096, -EINVAL}, {kTooMuch, -ENOMEM}}) {
        int word = size;
        EXPECT_EQ(device_->ioctl(IPU_ALLOC, &word), error);
        EXPECT_EQ(word, size) << "the word of a failed request stays";
    }
}

}  // namespace
