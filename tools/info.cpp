// SPDX-License-Identifier: Apache-2.0
#include "tools/commands.h"
#include "tools/info_data.h"
#include "tools/info_text.h"
#include "tools/scan.h"

#include <algorithm>

namespace {

struct InfoOptions {
    std::vector<std::string> files;
    bool all = false;
    bool index = false;
    bool scan = false;
    bool json = false;
};

void print(const InfoOptions& options, const Json& record)
{
    if (options.json)
        put_line(record);
    else if (record["container"].is_null())
        return; // the message tells all
    else if (options.index)
        print_entries(record);
    else if (options.all)
        print_all(record);
    else
        print_brief(record);
}

int run_info(const InfoOptions& options, Session& session)
{
    session.plugin();
    int worst = EXIT_FINE;
    for (const std::string& path : options.files) {
        InfoRecord record = read_info(path, options.index, session);
        if (options.scan && options.json)
            attempt(&worst, path,
                    [&] { record.object["scan"] = scan_json(scan_file(path, !session.quiet())); });
        print(options, record.object);
        if (record.code != EXIT_FINE)
            complain(path, record.object["reason"].get<std::string>());
        worst = std::max(worst, record.code);
        if (options.scan && !options.json && record.code != EXIT_USAGE) // a refused file too
            attempt(&worst, path, [&] {
                const zoflv_inspect::Scan scan = scan_file(path, !session.quiet());
                if (record.object["container"].is_null())
                    put(printable(path) + '\n');
                print_scan(scan);
            });
    }
    return worst;
}

} // namespace

Command add_info(CLI::App& app)
{
    constexpr Help help = {
        "What a file holds, at a glance, from its headers alone",
        "  zoflv info recording.flv\n"
        "  zoflv info --all recording.flv        everything that the headers tell\n"
        "  zoflv info --index recording.flv      the entries of the keyframe index\n"
        "  zoflv info --json *.flv | jq -r 'select(.status != \"ok\") | [.file, .reason] | @tsv'",
        "Without --scan nothing is counted: the duration and the frame rate are what the metadata "
        "claims.\n"
        "With --json each file has its object, whatever becomes of it; \"status\" is ok, "
        "incomplete\n"
        "(open, but something could not be told), refused (no FLV) or failed (not opened).",
    };
    const auto options = std::make_shared<InfoOptions>();
    CLI::App* command = add_command(app, "info", help);
    add_files(command, &options->files);
    command->add_flag("--all", options->all, "Every value, with whose word it is");
    command->add_flag("--index", options->index, "The entries of the keyframe index");
    command->add_flag("--scan", options->scan,
                      "Count over the whole file too: duration, frames, rates, keyframes, damage");
    add_json(command, &options->json);
    return {command, [options](Session& session) { return run_info(*options, session); }};
}
