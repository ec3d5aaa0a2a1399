// Judges, mends and searches recordings: what their format leaves out for the sake of surviving anything.

#include <CLI/CLI.hpp>
#include <array>
#include <cstdio>
#include <exception>
#include <string>

#include "../CommandLine.h"
#include "Codec.h"
#include "Console.h"
#include "Verbs.h"

namespace {

using recording::fail;
using recording::kBadUsage;
using recording::kFailed;

struct Arguments {
    std::string directory;
    std::vector<std::string> files;
    recording::MakeRequest make;
    bool json = false;
    std::string from, to, at;
    unsigned camera = 0;
};

using Verb = command_line::Verb<Arguments>;

void addJson(CLI::App& verb, Arguments& arguments)
{
    verb.add_flag("--json", arguments.json, "for programs");
}

void addList(CLI::App& verb, Arguments& arguments)
{
    verb.add_option("DIR", arguments.directory, "the recording directory")->required();
    addJson(verb, arguments);
    verb.footer(
        "First and last are taken from the files' own times, where these can tell. Damage inside a frame is "
        "seen by check only.");
}

void addCheck(CLI::App& verb, Arguments& arguments)
{
    verb.add_option("FILE", arguments.files, "recordings")->required()->expected(-1);
    addJson(verb, arguments);
    verb.footer("Exit status: 0 all sound, 1 damage, 2 a file cannot be read or bad usage.");
}

void addMake(CLI::App& verb, Arguments& arguments)
{
    verb.add_option("FILE", arguments.make.input, "the recording, which is never changed")->required();
    verb.add_option("-o,--output", arguments.make.output, "the file to make")->required();
    verb.add_flag("--force", arguments.make.force, "replace the output if it exists");
}

std::string checkTime(const std::string& text)
{
    return recording::parseTime(text) ? std::string()
                                      : "'" + text + "' is no time: seconds, mm:ss or h:mm:ss, with decimals";
}

void addIndex(CLI::App& verb, Arguments& arguments)
{
    addMake(verb, arguments);
    verb.footer("The output's name ends in .avi, .mp4 or .mkv. Nothing is encoded anew.");
}

void addCut(CLI::App& verb, Arguments& arguments)
{
    addMake(verb, arguments);
    verb.add_option("--from", arguments.from, "time from the beginning")->required()->check(checkTime);
    verb.add_option("--to", arguments.to, "time from the beginning")->required()->check(checkTime);
    verb.footer("The output's name ends in .avi, .mp4 or .mkv. The cut is widened to key frames.");
}

int runCut(const Arguments& given)
{
    const double from = recording::parseTime(given.from).value_or(0);
    const double to = recording::parseTime(given.to).value_or(0);
    if (to <= from) {
        return fail(kBadUsage, "--to has to be later than --from");
    }
    return recording::runCut({given.make, from, to});
}

void addGrab(CLI::App& verb, Arguments& arguments)
{
    constexpr unsigned kLastCamera = 4;
    addMake(verb, arguments);
    verb.add_option("--at", arguments.at, "time from the beginning")->required()->check(checkTime);
    verb.add_option("--camera", arguments.camera, "only this camera's tile, 1 to 4")
        ->check(CLI::Range(1U, kLastCamera));
}

int runGrab(const Arguments& given)
{
    return recording::runGrab({given.make, recording::parseTime(given.at).value_or(0), given.camera});
}

constexpr std::array kVerbs{
    Verb{"list", "Show what a recording directory holds, the oldest first", addList,
         [](const Arguments& given) {
             return recording::runList({given.directory, given.json});
         }},
    Verb{"check", "Look at every byte of recordings, and say what is damaged and what that costs", addCheck,
         [](const Arguments& given) {
             return recording::runCheck({given.files, given.json});
         }},
    Verb{"repair", "Make a recording of the same kind with every whole frame and nothing else", addMake,
         [](const Arguments& given) { return recording::runRepair(given.make); }},
    Verb{"index", "Make a file that players can search: AVI, MP4 or Matroska", addIndex,
         [](const Arguments& given) { return recording::runIndex(given.make); }},
    Verb{"cut", "Make such a file of a part of the recording", addCut, runCut},
    Verb{"grab", "Make a PNG of one picture", addGrab, runGrab},
};

int parseAndRun(int argc, char** argv)
{
    Arguments arguments;
    CLI::App app{"Judges, mends and searches the recordings of velcamd, also while it writes them.",
                 "velcamrec"};
    int status = 0;
    const Verb* verb = command_line::parse(app, kVerbs, arguments, argc, argv, status);
    if (verb == nullptr) {
        return status;
    }
    recording::catchInterrupt();
    recording::silenceLibrary();
    return verb->run(arguments);
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return parseAndRun(argc, argv);
    } catch (const std::exception& error) {
        return fail(kFailed, error.what());
    }
}
