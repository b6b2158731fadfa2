// SPDX-License-Identifier: Apache-2.0
#include "tools/commands.h"
#include "zoflv/dmx/zoflvd.h"

#include <CLI/CLI.hpp>

#include <exception>
#include <string>

namespace {

int run(int argc, char** argv, std::string* subject)
{
    CLI::App app{"Shows what an FLV file holds, as the demuxer reads it.", "zoflv"};
    app.footer(
        "Results go to stdout, messages to stderr. Exit codes: 0 fine; 1 a file is not\n"
        "readable as FLV, or a read failed; 2 wrong usage, a file that cannot be opened, or\n"
        "output that failed. Times in JSON count units of 100 ns, sizes bytes.");
    app.set_version_flag("--version", "zoflv " ZOFLV_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    bool verbose = false;
    app.add_flag("-v,--verbose", verbose, "Show the demuxer's log on stderr");

    InfoOptions info;
    CLI::App* info_cmd =
        app.add_subcommand("info", "File, streams, codec data, keyframe index and metadata values");
    info_cmd->add_option("FILE", info.files, "FLV files")->required()->type_name("");
    info_cmd->add_flag("--json", info.json, "One JSON object for each file, on a line of its own");

    FramesOptions frames;
    CLI::App* frames_cmd =
        app.add_subcommand("frames", "Every frame's time, next frame's time, length and CRC-32");
    frames_cmd->add_option("FILE", frames.file, "FLV file")->required()->type_name("");
    frames_cmd->add_option("--stream", frames.stream, "Only this stream, counted from 0")
        ->check(CLI::Range(0, ZOFLV_MAX_STREAMS - 1))
        ->type_name("N");
    frames_cmd->add_flag("--json", frames.json, "One JSON object for each frame, on its own line");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) // help and version
            return app.exit(error);
        throw Failure(EXIT_USAGE, std::string(error.what()) + " (--help tells more)");
    }
    LogTap log(verbose);
    if (*info_cmd)
        return run_info(info, log);
    *subject = frames.file;
    return run_frames(frames, log);
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
