#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <ostream>

#include "Targets.h"
#include "support/Folder.h"

namespace fuzz {

static void PrintTo(const Target& target, std::ostream* stream)
{
    *stream << target.name;
}

}  // namespace fuzz

namespace {

class Corpus : public testing::TestWithParam<fuzz::Target> {};

// Each input whole, and cut at up to so many places.
constexpr size_t kCuts = 40;

TEST_P(Corpus, AnInputThatOnceWasWorthKeepingBreaksItAgain)
{
    const std::filesystem::path folder = std::filesystem::path(FUZZ_CORPUS) / GetParam().name;
    size_t inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        SCOPED_TRACE(entry.path().filename().string());
        const std::string input = support::readFile(entry.path().string());
        EXPECT_EQ(GetParam().run(input), "");
        const size_t step = input.size() / kCuts + 1;
        for (size_t length = 0; length < input.size(); length += step) {
            EXPECT_EQ(GetParam().run(std::string_view(input).substr(0, length)), "") << "cut at " << length;
        }
        ++inputs;
    }
    EXPECT_GT(inputs, 0U) << "no corpus in " << folder;
}

INSTANTIATE_TEST_SUITE_P(Of, Corpus, testing::ValuesIn(fuzz::kTargets),
                         [](const auto& chosen) { return std::string(chosen.param.name); });

}  // namespace
