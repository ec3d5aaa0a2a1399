#pragma once

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <string>

/// What the tools' command lines have in common: a program with one verb a call, as a table.
namespace command_line {

inline constexpr int kBadUsage = 2;

/// One verb of a program whose verbs all fill the same Arguments.
template <typename Arguments>
struct Verb {
    const char* name;
    const char* description;
    void (*addOptions)(CLI::App& verb, Arguments& arguments);
    int (*run)(const Arguments& arguments);  ///< returns the exit status
};

/// A parser's message as one line on standard error, with what to do. Returns the exit status.
inline int refuse(const std::string& program, const std::string& verb, const CLI::ParseError& error)
{
    std::string text = error.what();
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::fprintf(stderr, "%s: %s; see %s%s --help\n", program.c_str(), text.c_str(), program.c_str(),
                 verb.empty() ? "" : (" " + verb).c_str());
    return kBadUsage;
}

/// Reads the arguments into `arguments`. The verb to run, or null with the exit status in `status`: help or
/// the version was asked for, or the usage was bad, which has been said then. Throws what CLI11 throws at a
/// wrong table.
template <typename Arguments, size_t count>
const Verb<Arguments>* parse(CLI::App& app, const std::array<Verb<Arguments>, count>& verbs,
                             Arguments& arguments, int argc, char** argv, int& status)
{
    app.set_version_flag("--version", app.get_name() + " " + VELCAM_VERSION);
    app.require_subcommand(1);
    for (const auto& verb : verbs) {
        verb.addOptions(*app.add_subcommand(verb.name, verb.description), arguments);
    }
    const auto chosen = [&]() -> const Verb<Arguments>* {
        const auto found = std::find_if(verbs.begin(), verbs.end(),
                                        [&](const auto& verb) { return app.got_subcommand(verb.name); });
        return found == verbs.end() ? nullptr : &*found;
    };
    try {
        app.parse(argc, argv);
        return chosen();
    } catch (const CLI::Success& helpOrVersion) {
        status = app.exit(helpOrVersion);
    } catch (const CLI::ParseError& error) {
        const auto* verb = chosen();
        status = refuse(app.get_name(), verb == nullptr ? "" : verb->name, error);
    }
    return nullptr;
}

}  // namespace command_line
