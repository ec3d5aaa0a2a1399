#include "OnBoard.h"

#include <cstdlib>

#include "Folder.h"
#include "Report.h"
#include "board/Board.h"

namespace support {
namespace {

std::string thisTest()
{
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    return std::string(info->test_suite_name()) + "." + info->name();
}

void expectLeft(const Report& report, Leaves leaves, const std::string& told)
{
    EXPECT_TRUE(report.complete()) << told;
    if (leaves == Leaves::kNothing) {
        EXPECT_EQ(report.refused(), std::vector<std::string>()) << told;
    }
    if (leaves != Leaves::kSomething) {
        EXPECT_EQ(report.live(), std::vector<std::string>()) << told;
    }
}

}  // namespace

bool onBoard()
{
    return std::getenv(board::kFolderVariable) != nullptr;  // NOLINT(concurrency-mt-unsafe): nobody sets it
}

void repeatOnBoard(const Command& options, Leaves leaves)
{
    const Folder folder;
    const Command command{program("vboard"),    "run",      "--board",
                          folder.file("board"), "--report", folder.file("report")};
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    const Outcome outcome = runToEnd(command + options + Command{"--", self, "--gtest_filter=" + thisTest()});
    const std::string told = outcome.output + outcome.error;
    ASSERT_TRUE(outcome.status.has_value()) << "hung on the board:\n" << told;
    ASSERT_EQ(*outcome.status, 0) << told;
    // A filter that finds nothing passes too.
    ASSERT_NE(outcome.output.find("[  PASSED  ] 1 test."), std::string::npos) << told;
    expectLeft(Report::read(folder.file("report")), leaves, told);
}

void runOnBoard(const Command& options, const std::function<void()>& body, Leaves leaves)
{
    if (onBoard()) {
        body();
    } else {
        repeatOnBoard(options, leaves);
    }
}

}  // namespace support
