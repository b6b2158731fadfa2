// SPDX-License-Identifier: Apache-2.0
#include "tools/commands.h"

#include <CLI/CLI.hpp>

#include <exception>
#include <string>

namespace {

int run(int argc, char** argv, std::string* subject)
{
    CLI::App app{"Shows what an FLV file holds, as the demuxer and the framework's plugin read it.",
                 "zoflv"};
    app.footer("Results go to stdout, messages to stderr. Exit codes: 0 fine; 1 a file is not\n"
               "readable as FLV, or a read failed; 2 wrong usage, a file or a plugin that cannot\n"
               "be opened, or output that failed. Times in JSON count units of 100 ns, those with\n"
               "\"us\" in their names microseconds; sizes bytes.");
    app.set_version_flag("--version", "zoflv " ZOFLV_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    bool verbose = false;
    std::string plugin_path;
    app.add_flag("-v,--verbose", verbose, "Show the log of the demuxer and the plugin on stderr");
    app.add_option("--plugin", plugin_path, "The plugin to load in place of the one found")
        ->type_name("FILE");

    const auto add_number = [](CLI::App* command, const char* name, int* number, const char* help) {
        return command->add_option(name, *number, help)
            ->check(CLI::NonNegativeNumber)
            ->type_name("N");
    };
    const auto add_file = [](CLI::App* command, auto* file) {
        command->add_option("FILE", *file, "FLV file")->required()->type_name("");
    };
    const auto add_json = [](CLI::App* command, bool* json) {
        command->add_flag("--json", *json, "One JSON object a line");
    };

    InfoOptions info;
    CLI::App* info_cmd = app.add_subcommand(
        "info", "File, streams, codec data, keyframe index, metadata, and the framework's view");
    add_file(info_cmd, &info.files);
    add_json(info_cmd, &info.json);

    FramesOptions frames;
    CLI::App* frames_cmd =
        app.add_subcommand("frames", "Every frame's time, duration, size and CRC-32");
    add_file(frames_cmd, &frames.file);
    CLI::Option* track =
        add_number(frames_cmd, "--track", &frames.track, "Only this one, counted from 0");
    CLI::Option* demuxer = frames_cmd->add_flag("--demuxer", frames.demuxer,
                                                "Without the plugin: the demuxer's streams");
    add_number(frames_cmd, "--stream", &frames.stream, "Only this one, counted from 0")
        ->needs(demuxer);
    demuxer->excludes(track);
    add_json(frames_cmd, &frames.json);

    SeekOptions seek;
    CLI::App* seek_cmd = app.add_subcommand("seek", "Where seeks land and what they cost");
    seek_cmd->footer(
        "Reads and bytes are those of the seek; +reads and +bytes those of the frame behind it,\n"
        "which the framework asks for with the seek. A seek that finds nothing is no failure.");
    add_file(seek_cmd, &seek.file);
    seek_cmd->add_option("TIME", seek.times, "Seconds, as 83.5, 1:23.5 or 0:01:23.5")
        ->required()
        ->type_name("")
        ->check([](const std::string& text) {
            return parse_time(text) ? std::string() : "\"" + text + "\" is no time";
        });
    add_number(seek_cmd, "--track", &seek.track, "Only this one, counted from 0");
    seek_cmd->add_option("--mode", seek.mode, "previous, next, closest-sync, closest or all")
        ->check(CLI::IsMember({"previous", "next", "closest-sync", "closest", "all"}))
        ->capture_default_str()
        ->type_name("MODE");
    add_json(seek_cmd, &seek.json);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) // help and version
            return app.exit(error);
        throw Failure(EXIT_USAGE, std::string(error.what()) + " (--help tells more)");
    }
    LogTap log(verbose);
    *subject = "plugin";
    const PluginPtr plugin = frames.demuxer ? nullptr : load_plugin(plugin_path);
    if (*info_cmd)
        return run_info(info, plugin, log);
    *subject = *frames_cmd ? frames.file : seek.file;
    return *frames_cmd ? run_frames(frames, plugin, log) : run_seek(seek, plugin, log);
}

} // namespace

int main(int argc, char** argv)
{
    std::string subject = "usage";
    try {
        const int code = run(argc, argv, &subject);
        flush_output();
        return code;
    } catch (const OutputFailure& failure) {
        complain("stdout", failure.what());
        return failure.code();
    } catch (const Failure& failure) {
        complain(subject, failure.what());
        return failure.code();
    } catch (const std::exception& error) {
        complain(subject, error.what());
        return EXIT_BAD_FILE;
    }
}
