// SPDX-License-Identifier: Apache-2.0
#include "tools/commands.h"

#include <exception>
#include <string>
#include <vector>

namespace {

/// In the order of `--help`.
constexpr AddCommand add_commands[] = {add_info,     add_check,  add_report,  add_repair,
                                       add_frames,   add_seek,   add_extract, add_tags,
                                       add_findings, add_reasons};

constexpr Help help = {
    "Shows what an FLV file holds, and what a device will do with it: the demuxer reads it here,\n"
    "and the framework's plugin, loaded as the device loads it.",
    "  zoflv info recording.flv              what is in it\n"
    "  zoflv check recording.flv             what a device does with it, and why\n"
    "  zoflv frames recording.flv            each frame that a decoder would get\n"
    "  zoflv seek recording.flv 1:23.5       where a seek lands and what it costs\n"
    "  zoflv COMMAND --help                  more examples, the options, the exit codes",
    "Results go to stdout, messages to stderr. Times in JSON count units of 100 ns, those with\n"
    "\"us\" in their names microseconds; sizes bytes.",
};

int run(int argc, char** argv)
{
    CLI::App app{"", "zoflv"};
    app.formatter(help_formatter());
    set_help(app, help);
    app.set_version_flag("--version", "zoflv " ZOFLV_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    SharedOptions shared;
    app.add_flag("-v,--verbose", shared.verbose,
                 "Show the log of the demuxer and the plugin on stderr");
    app.add_flag("-q,--quiet", shared.quiet, "Show no progress and no summary");
    app.add_option("--plugin", shared.plugin, "The plugin to load in place of the one found")
        ->type_name("FILE");
    app.add_option("--device", shared.device,
                   "What the device plays, in place of the default (docs/device.md)")
        ->type_name("PROFILE.json");
    std::vector<Command> commands;
    for (const AddCommand add : add_commands)
        commands.push_back(add(app));

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) // help and version
            return app.exit(error);
        throw SetupFailure("usage", usage_message(app, argc, argv, error));
    }
    Session session(shared);
    for (const Command& command : commands) {
        if (*command.app)
            return command.run(session);
    }
    return EXIT_USAGE; // not reached: one is required
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const int code = run(argc, argv);
        flush_output();
        return code;
    } catch (const OutputFailure& failure) {
        complain("stdout", failure.what());
        return failure.code();
    } catch (const SetupFailure& failure) {
        complain(failure.subject(), failure.what());
        return failure.code();
    } catch (const std::exception& error) {
        complain("internal", error.what());
        return EXIT_BAD_FILE;
    }
}
