// Records as the daemon does, faster than it does, with or without the write-back beside it, and says how
// long the writer was kept: for write_back.py.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "lib/AviWriter.h"
#include "lib/WriteBack.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kBadUsage = 2;
constexpr size_t kFrameBytes = 8333;  // 2000 kbit/s at 30 frames a second
constexpr size_t kMegabyte = 1'000'000;
constexpr int kPassUs = 33'333;

/// Kilobytes in the kernel's cache that are not on their medium yet.
long dirtyKilobytes()
{
    std::ifstream memory("/proc/meminfo");
    std::string name;
    long value = 0;
    while (memory >> name >> value) {
        if (name == "Dirty:") {
            return value;
        }
        memory.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return 0;
}

struct Measured {
    std::vector<long> microseconds;  ///< of each frame's write
    long mostDirty = 0;              ///< kilobytes, of the whole machine
};

Measured record(const std::string& file, size_t frames, double framesPerSecond)
{
    Measured measured;
    measured.microseconds.reserve(frames);
    AviWriter writer;
    std::string frame(kFrameBytes, '\0');
    for (size_t i = 0; i < frame.size(); ++i) {
        frame[i] = static_cast<char>(std::rand());  // NOLINT: any bytes that do not compress
    }
    if (!writer.start(file, {30, 10'000'000, 1440, 990, VideoWriter::H264})) {
        return measured;
    }
    const auto begun = Clock::now();
    for (size_t i = 0; i < frames; ++i) {
        std::this_thread::sleep_until(
            begun + std::chrono::duration_cast<Clock::duration>(
                        std::chrono::duration<double>(static_cast<double>(i) / framesPerSecond)));
        const auto before = Clock::now();
        if (!writer.writeChunk(frame.data(), static_cast<unsigned>(frame.size()))) {
            break;
        }
        const auto took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - before);
        measured.microseconds.push_back(took.count());
        if (i % static_cast<size_t>(framesPerSecond) == 0) {
            measured.mostDirty = std::max(measured.mostDirty, dirtyKilobytes());
        }
    }
    return measured;
}

void print(Measured measured, bool withWriteBack)
{
    auto& times = measured.microseconds;
    std::sort(times.begin(), times.end());
    const auto share = [&](size_t perMille) { return times[(times.size() - 1) * perMille / 1000]; };
    nlohmann::ordered_json line;
    line["writeBack"] = withWriteBack;
    line["frames"] = times.size();
    line["medianUs"] = share(500);
    line["p99Us"] = share(990);
    line["p999Us"] = share(999);
    line["longestUs"] = times.back();
    line["longerThanAPass"] =
        std::count_if(times.begin(), times.end(), [](long time) { return time > kPassUs; });
    line["mostDirtyKb"] = measured.mostDirty;
    std::printf("%s\n", line.dump().c_str());
}

}  // namespace

int main(int count, char** arguments)
{
    if (count != 5) {
        std::fputs("usage: bench_write_times FOLDER/ MEGABYTES FRAMES-PER-SECOND with|without\n", stderr);
        return kBadUsage;
    }
    const std::string folder = arguments[1];
    const size_t frames = std::strtoul(arguments[2], nullptr, 10) * kMegabyte / kFrameBytes;
    const bool withWriteBack = std::string(arguments[4]) == "with";
    auto writeBack = std::make_unique<WriteBack>(folder, "cam.avi");
    if (withWriteBack) {
        writeBack->start();
    }
    Measured measured = record(folder + "cam.avi", frames, std::strtod(arguments[3], nullptr));
    WriteBack::retire(std::move(writeBack));
    if (measured.microseconds.empty()) {
        std::fprintf(stderr, "bench_write_times: cannot write in %s\n", folder.c_str());
        return EXIT_FAILURE;
    }
    print(std::move(measured), withWriteBack);
    return EXIT_SUCCESS;
}
