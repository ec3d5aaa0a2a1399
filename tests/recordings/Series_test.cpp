#include "Series.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Recordings.h"
#include "Verbs.h"

namespace {

using recordings::Tape;
using support::Folder;

nlohmann::json listed(const Folder& folder)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(recording::runList({folder.path(), true}), 0);
    return nlohmann::json::parse(testing::internal::GetCapturedStdout());
}

TEST(List, PutsTheSeriesInTheOrderOfTimeAndNamesItsGaps)
{
    const Folder folder;
    Tape tape;
    tape.session(3);
    for (const char* name : {"cam.avi", "cam.avi.00.avi", "cam.avi.03.avi", "cam.avi.10.avi", "cam.avi.1.avi",
                             "cam.avi.0x.avi", "other.avi", "cam.avi.00.avi.bak"}) {
        support::writeFile(folder.file(name), tape.content());
    }
    const auto json = listed(folder);
    std::vector<std::string> names;
    for (const auto& file : json["files"]) {
        names.push_back(file["name"]);
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{"cam.avi.10.avi", "cam.avi.03.avi", "cam.avi.00.avi", "cam.avi"}));
    EXPECT_EQ(json["missing"], nlohmann::json({1, 2, 4, 5, 6, 7, 8, 9}));
}

TEST(List, CountsWhatEachFileHoldsAndAllTogether)
{
    const Folder folder;
    Tape tape;
    tape.session(30);
    support::writeFile(folder.file("cam.avi.00.avi"), tape.content());
    tape.session(15);
    std::string content = tape.content();
    content[tape.chunks[10]] = 'x';
    support::writeFile(folder.file("cam.avi"), content);

    const auto json = listed(folder);
    EXPECT_EQ(json["files"][0]["frames"], 30);
    EXPECT_EQ(json["files"][0]["seconds"], 1.0);
    EXPECT_EQ(json["files"][0]["damagedPlaces"], 0);
    EXPECT_EQ(json["files"][1]["frames"], 44);
    EXPECT_EQ(json["files"][1]["sessions"], 2);
    EXPECT_EQ(json["files"][1]["keyFrames"], 2);
    EXPECT_EQ(json["files"][1]["damagedPlaces"], 1);
    EXPECT_EQ(json["frames"], 74);
    EXPECT_EQ(json["sessions"], 3);
    EXPECT_EQ(json["bytes"],
              json["files"][0]["bytes"].get<uint64_t>() + json["files"][1]["bytes"].get<uint64_t>());

    testing::internal::CaptureStdout();
    EXPECT_EQ(recording::runList({folder.path(), false}), 0);
    const std::string table = testing::internal::GetCapturedStdout();
    EXPECT_NE(table.find("  sound\n"), std::string::npos) << table;
    EXPECT_NE(table.find("  damaged at 1 place\n"), std::string::npos) << table;
}

TEST(List, SaysWhenARecordingBeganOnlyWhenThatCanBeKnown)
{
    constexpr std::time_t kLast = recordings::kLongAgo;  // before any file of today was made
    const Folder folder;
    Tape tape;
    tape.session(60);
    recordings::writeOld(folder.file("cam.avi.00.avi"), tape.content(), kLast);
    tape.session(30);
    recordings::writeOld(folder.file("cam.avi"), tape.content(), kLast + 100);

    const auto json = listed(folder);
    EXPECT_EQ(json["files"][0]["last"], kLast);
    EXPECT_EQ(json["files"][0]["first"], kLast - 2) << "one session lasts as long as its frames";
    EXPECT_TRUE(json["files"][1]["first"].is_null()) << "nobody knows how long the break was";
    EXPECT_EQ(json["reachesBackTo"], kLast - 2);
}

TEST(List, AcceptsADirectoryWithoutRecordingsAndNoOther)
{
    const Folder folder;
    EXPECT_EQ(recording::runList({folder.path(), false}), 0);
    EXPECT_EQ(recording::runList({folder.file("none"), false}), 1);
}

}  // namespace
