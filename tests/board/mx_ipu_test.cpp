#include "drivers/mx_ipu.h"

#include <gtest/gtest.h>

#include <cstring>

#include "Driver.h"

namespace {

using driver::fourcc;
using support::Command;
using support::Leaves;

constexpr const char* kNode = "/dev/mxc_ipu";

TEST(mx_ipu, CapsTheMotionLevelAndFillsATaskWholly)
{
    support::runOnBoard({}, [] {
        constexpr size_t kIn = 0x10001000;
        constexpr size_t kBefore = 0x10002000;
        constexpr size_t kOut = 0x10003000;
        const mx_ipu::IPU_COPY copy{{720, 480, fourcc("NV12")},
                                    {1440, 990, 720, 480, fourcc("NV12"), 720, 30}};
        for (const int level : {0, 2, 3}) {
            mx_ipu ipu;
            ASSERT_TRUE(ipu.setup(kNode, true, static_cast<u_int8_t>(level), true));
            ipu_task task;
            std::memset(&task, 0xEE, sizeof task);
            ipu.setup_copy(task, copy, kIn, kBefore, kOut);
            EXPECT_EQ(task.input.deinterlace.motion, std::min(level, 2));
            EXPECT_EQ(task.input.deinterlace.field_fmt, 1);
            EXPECT_EQ(task.input.paddr_n, level == 0 ? static_cast<int>(kBefore) : 0);
            EXPECT_EQ(task.input.crop.w, 720U);
            EXPECT_EQ(task.output.width, 1440U);
            EXPECT_EQ(task.output.crop.pos.x, 720U);
            EXPECT_EQ(task.output.crop.pos.y, 30U);
            EXPECT_EQ(task.output.paddr, static_cast<int>(kOut));
            EXPECT_EQ(task.output.rotate, 0);
            EXPECT_FALSE(task.overlay_en);
            EXPECT_EQ(task.timeout, 0);
        }
    });
}

BOARD_TEST(mx_ipu, AllocatesWholePagesThatEveryDeviceSees, Command())
{
    mx_ipu ipu;
    buffer unopened;
    EXPECT_FALSE(ipu.alloc(unopened, 1));
    ASSERT_TRUE(ipu.setup(kNode, true, 0, false));
    buffer small;
    ASSERT_TRUE(ipu.alloc(small, 1));
    EXPECT_EQ(small.length, 4096U);
    ASSERT_NE(small.start, nullptr);
    std::memset(small.start, 0x5A, small.length);
    EXPECT_EQ(driver::memoryAt(small.offset)[small.length - 1], 0x5A);
    EXPECT_TRUE(ipu.free(small));
}

BOARD_TEST(mx_ipu, CopiesIntoItsRectangleOnly, Command())
{
    constexpr int kWidth = 64;
    constexpr int kHeight = 32;
    constexpr size_t kPixels = size_t{kWidth} * kHeight;
    mx_ipu ipu;
    ASSERT_TRUE(ipu.setup(kNode, false, 0, false));
    buffer source, target;
    ASSERT_TRUE(ipu.alloc(source, kPixels * 3 / 2));
    ASSERT_TRUE(ipu.alloc(target, 4 * kPixels * 3 / 2));
    std::memset(source.start, 200, source.length);
    std::memset(target.start, 10, target.length);

    const mx_ipu::IPU_COPY copy{{kWidth, kHeight, fourcc("NV12")},
                                {2 * kWidth, 2 * kHeight, kWidth, kHeight, fourcc("NV12"), kWidth, kHeight}};
    ipu_task task = {};
    ipu.setup_copy(task, copy, source.offset, source.offset, target.offset);
    EXPECT_TRUE(ipu.run(task));
    const uint8_t* luma = driver::memoryAt(target.offset);
    const auto at = [&](int x, int y) { return luma[y * 2 * kWidth + x]; };
    EXPECT_EQ(at(kWidth, kHeight), 200);
    EXPECT_EQ(at(2 * kWidth - 1, 2 * kHeight - 1), 200);
    EXPECT_EQ(at(kWidth - 1, kHeight), 10);
    EXPECT_EQ(at(kWidth, kHeight - 1), 10);
    EXPECT_TRUE(ipu.free(source));
    EXPECT_TRUE(ipu.free(target));
}

TEST(mx_ipu, ReportsWhatTheDeviceRefuses)
{
    support::runOnBoard(
        {"--fault", "IPU_ALLOC@*#1=ENOMEM", "--fault", "IPU_FREE@*#1=EINVAL"},
        [] {
            mx_ipu ipu;
            EXPECT_FALSE(mx_ipu().setup("/dev/none", true, 0, false));
            ASSERT_TRUE(ipu.setup(kNode, false, 0, false));
            buffer memory;
            EXPECT_FALSE(ipu.alloc(memory, 5000));
            EXPECT_EQ(memory.length, 8192U);
            EXPECT_EQ(memory.start, nullptr);
            ASSERT_TRUE(ipu.alloc(memory, 5000));
            EXPECT_FALSE(ipu.free(memory));
            EXPECT_TRUE(ipu.free(memory));

            // A task that reads memory which nobody has allocated.
            const mx_ipu::IPU_COPY copy{{64, 32, fourcc("NV12")}, {64, 32, 64, 32, fourcc("NV12"), 0, 0}};
            ipu_task task = {};
            ipu.setup_copy(task, copy, memory.offset, memory.offset, memory.offset);
            EXPECT_FALSE(ipu.run(task));
        },
        Leaves::kSomething);
}

}  // namespace
