// The pieces of the daemon that a pass or a tick is made of, one by one.

#include <benchmark/benchmark.h>
#include <linux/videodev2.h>

#include <cstdio>
#include <string>
#include <vector>

#include "drivers/IPCQ_PACKET.h"
#include "drivers/mx_ipu.h"
#include "lib/SharedQueue.h"
#include "lib/YuvText.h"
#include "lib/logger.h"

namespace {

constexpr unsigned kWidth = 1440, kHeight = 990;

/// Once in 30 frames.
void clockRedraw(benchmark::State& state)
{
    std::vector<unsigned char> picture(size_t{kWidth} * kHeight * 3 / 2);
    YuvText text;
    if (!text.setup(25, "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf")) {
        state.SkipWithError("no font: install fonts-dejavu-core");
        return;
    }
    YuvText::YUV_TEXT clock;
    clock.characters = 20;
    clock.dest.buffer = picture.data();
    clock.dest.width = kWidth;
    clock.dest.height = kHeight;
    clock.type = YuvText::CLOCKOVERLAY;
    text.init(clock);
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(text.draw(clock));
    }
}
BENCHMARK(clockRedraw);

/// For each copy of each pass.
void changeOfAnIpuTask(benchmark::State& state)
{
    mx_ipu ipu;
    ipu_task task = {};
    mx_ipu::IPU_COPY copy = {};
    size_t address = 0x10000000;
    for ([[maybe_unused]] auto _ : state) {
        ipu.change_copy(task, copy);
        ipu.change_buffers(task, address, address, address);
        benchmark::DoNotOptimize(task);
        ++address;
    }
}
BENCHMARK(changeOfAnIpuTask);

/// For each message that comes.
void packetThroughTheQueue(benchmark::State& state)
{
    SharedQueue<IPCQ_PACKET> queue;
    IPCQ_PACKET packet = {};
    for ([[maybe_unused]] auto _ : state) {
        queue.push(packet);
        benchmark::DoNotOptimize(queue.pop(packet));
    }
}
BENCHMARK(packetThroughTheQueue);

}  // namespace

BENCHMARK_MAIN();
