#include "drivers/mx_ipu.h"

#include <gtest/gtest.h>

#include <cstring>

#include "Driver.h"

namespace {

using driver::fourcc;
using support::Command;
using support::Leaves;

constexpr const char* kNode = "/dev/mxc_ipu";

constexpr mx_ipu::IPU_COPY kToTheGrid{{720, 480, fourcc("NV12")},
                                      {1440, 990, 720, 480, fourcc("NV12"), 720, 30}};

BOARD_TEST(mx_ipu, LetsAMotionLevelPassOrLeavesPartsOfATask, Command())
{
    constexpr size_t kIn = 0x10001000;
    constexpr size_t kBefore = 0x10002000;
    constexpr size_t kOut = 0x10003000;
    for (const int level : {0, 2, 3}) {
        mx_ipu ipu;
        ASSERT_TRUE(ipu.setup(kNode, true, static_cast<u_int8_t>(level), true));
        ipu_task task;
        std::memset(&task, 0xEE, sizeof task);
        ipu.setup_copy(task, kToTheGrid, kIn, kBefore, kOut);
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
}

BOARD_TEST_LEAVING(mx_ipu, AllocatesLessThanWholePagesOrHidesWhatTheDeviceRefuses,
                   (Command{"--fault", "IPU_ALLOC@*#1=ENOMEM", "--fault", "IPU_FREE@*#1=EINVAL"}),
                   Leaves::kSomething)
{
    mx_ipu ipu;
    buffer memory;
    EXPECT_FALSE(ipu.alloc(memory, 1)) << "before the setup";
    EXPECT_FALSE(mx_ipu().setup("/dev/none", true, 0, false));
    ASSERT_TRUE(ipu.setup(kNode, false, 0, false));
    EXPECT_FALSE(ipu.alloc(memory, 5000));
    EXPECT_EQ(memory.length, 8192U);
    EXPECT_EQ(memory.start, nullptr);
    ASSERT_TRUE(ipu.alloc(memory, 5000));
    ASSERT_NE(memory.start, nullptr);
    std::memset(memory.start, 0x5A, memory.length);
    EXPECT_EQ(driver::memoryAt(memory.offset)[memory.length - 1], 0x5A) << "seen by every device";
    EXPECT_FALSE(ipu.free(memory));
    EXPECT_TRUE(ipu.free(memory));

    ipu_task task = {};
    ipu.setup_copy(task, kToTheGrid, memory.offset, memory.offset, memory.offset);
    EXPECT_FALSE(ipu.run(task)) << "nobody has allocated that memory";
}

}  // namespace
