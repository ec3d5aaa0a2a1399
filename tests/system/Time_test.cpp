#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <ctime>

#include "Scenes.h"
#include "SteppedClock.h"

namespace {

using support::Clock;
using support::Panel;

constexpr int64_t kDay = 86400;
constexpr int64_t kYearsEnd = 1798761598;  // 2026-12-31 23:59:58 UTC

int64_t machineTime()
{
    return ::time(nullptr);
}

/// What is done to the wall clock.
struct Step {
    const char* name;
    int64_t offsetS;
    int64_t extraRate;
};

/// What the wall clock showed while a step was in force, and the frame of the recording that was written last
/// in it.
struct Span {
    std::string name;
    int64_t from = 0, to = 0;
    size_t frame = 0;
};

int64_t parseTime(const std::string& text, const char* format)
{
    std::tm parts = {};
    return ::strptime(text.c_str(), format, &parts) == nullptr ? -1 : ::timegm(&parts);
}

class WallClock : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(panel_.layOut()) << panel_.errors();
        const std::string name = panel_.board() + "/clock";
        const int file = ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_EQ(::ftruncate(file, sizeof(SteppedClock)), 0);
        clock_ = SteppedClock::map(file);
        ::close(file);
        ASSERT_NE(clock_, nullptr);
        began_ = Clock::now();
        panel_.start({"--cpu", layout_.cpu, "--fps", std::to_string(kRate)},
                     {"/bin/sh", "-c",
                      std::string("TZ=UTC ") + SteppedClock::kVariable + "='" + name +
                          "' LD_PRELOAD=\"$LD_PRELOAD:" STEPPED_CLOCK "\" exec '" +
                          support::program("velcamd") + "'"});
        ASSERT_TRUE(panel_.awaitUp()) << panel_.output() << panel_.errors();
    }
    void TearDown() override { ::munmap(clock_, sizeof(SteppedClock)); }

    size_t recorded() const { return support::readRecording(panel_.recording()).chunks.size(); }

    /// Sets the clock and waits until the recorded one has been drawn again and the control loop has gone on.
    Span apply(const Step& step)
    {
        constexpr size_t kTwoDrawings = 61;  // frames
        clock_->sinceS = machineTime();
        clock_->extraRate = step.extraRate;
        clock_->offsetS = step.offsetS;
        Span span{step.name, clock_->shownAt(machineTime()), 0, 0};
        const size_t before = recorded();
        EXPECT_TRUE(support::waitUntil([&] { return recorded() >= before + kTwoDrawings; })) << step.name;
        span.frame = recorded() - 1;
        EXPECT_TRUE(panel_.awaitReports(3)) << step.name;
        span.to = clock_->shownAt(machineTime());
        return span;
    }

    /// The recorded clock of each span's frame lies in the span.
    void expectRecorded(const std::vector<Span>& spans)
    {
        support::FrameReader reader(panel_.recording(), layout_.width, layout_.height);
        support::Frame frame;
        size_t read = 0;
        for (const Span& span : spans) {
            while (read <= span.frame && reader.next(frame)) {
                ++read;
            }
            ASSERT_EQ(read, span.frame + 1) << span.name;
            const std::string text =
                scenes::readClock(frame.luma, panel_.file("/usr/share/fonts/Ubuntu-C.ttf"));
            const int64_t shown = parseTime(text, "%m/%d/%y %H:%M:%S");
            EXPECT_TRUE(shown >= span.from && shown <= span.to)
                << span.name << ": " << text << " is not between " << span.from << " and " << span.to;
        }
    }

    static constexpr int kRate = 30;  // frames per second
    const scenes::Layout& layout_ = scenes::dualLite();
    Panel panel_;
    SteppedClock* clock_ = nullptr;
    Clock::time_point began_;
};

TEST_F(WallClock, AJumpStopsOrHurriesTheDaemonOrIsShownWrong)
{
    const Step steps[] = {{"a year forward", 365 * kDay, 0},
                          {"ten years back", -3652 * kDay, 0},
                          {"the year's end", kYearsEnd - machineTime(), 0},
                          {"a fast clock", 0, 600},
                          {"before the epoch's first day is over", 7 - machineTime(), 0}};
    std::vector<Span> spans;
    for (const Step& step : steps) {
        spans.push_back(apply(step));
    }
    const int64_t ending = clock_->shownAt(machineTime());
    ASSERT_EQ(panel_.end(), 0) << panel_.output() << panel_.errors();
    const int64_t ended = clock_->shownAt(machineTime());
    const auto ran = std::chrono::duration<double>(Clock::now() - began_).count();

    EXPECT_TRUE(support::readRecording(panel_.recording()).wellFormed);
    expectRecorded(spans);

    const std::string log = support::readFile(panel_.file("/velmarine/f/logs/VelCam.log"));
    const size_t last = log.rfind(" [Notice]: (main): Shutting down application\r\n");
    ASSERT_NE(last, std::string::npos) << log;
    constexpr size_t kStamp = 25;  // characters
    ASSERT_GE(last, kStamp);
    const int64_t logged = parseTime(log.substr(last - kStamp, kStamp), "%m-%d-%Y %H:%M:%S +0000");
    EXPECT_TRUE(logged >= ending && logged <= ended) << log;

    // The instants of the cameras, seen or dropped, are those of the time that really went by.
    const auto report = panel_.report();
    EXPECT_LE(static_cast<double>(report.framesDelivered(1) + report.framesDropped(1)), ran * kRate + 1);
}

}  // namespace
