// SPDX-License-Identifier: Apache-2.0
#include "inspect/seek_meter.h"
#include "tools/commands.h"
#include "tools/file.h"
#include "tools/output_file.h"
#include "tools/seek_test.h"

#include <charconv>
#include <cinttypes>
#include <media/MediaExtractorPluginHelper.h>

namespace {

struct SeekOptions {
    std::vector<std::string> words; ///< files and times, as they were given
    int track = -1;                 ///< -1: all
    std::string mode = "previous";  ///< or "next", "closest-sync", "closest", "all"
    bool json = false;
    SeekTestOptions test; ///< without times
};

/// Microseconds of "83.5", "1:23.5" or "0:01:23.5", cut after the sixth decimal; nothing for any
/// other text and from 200,000,000 seconds on.
std::optional<int64_t> parse_time(const std::string& text)
{
    constexpr uint64_t limit = 200000000; // seconds: in 100-ns units an int64_t holds more
    const char* at = text.data();
    const char* const end = at + text.size();
    uint64_t time = 0;
    for (int colons = 0;; ++colons, ++at) {
        uint64_t field = 0;
        const auto parsed = std::from_chars(at, end, field);
        if (parsed.ec != std::errc() || field >= (colons > 0 ? 60 : limit))
            return std::nullopt;
        time = time * 60 + field;
        at = parsed.ptr;
        if (at == end || *at != ':' || colons == 2)
            break;
    }
    if (time >= limit)
        return std::nullopt;
    time *= 1000000;
    if (at != end && *at == '.') {
        uint64_t unit = 100000;
        for (++at; at != end && *at >= '0' && *at <= '9'; ++at, unit /= 10)
            time += unit * static_cast<uint64_t>(*at - '0');
    }
    return at == end ? std::optional(static_cast<int64_t>(time)) : std::nullopt;
}

using zoflv_host::Track;
using zoflv_inspect::SeekMeter;
using ReadOptions = android::MediaTrackHelper::ReadOptions;

constexpr struct Mode {
    const char* name;
    uint32_t value;
} modes[] = {
    {"previous", ReadOptions::SEEK_PREVIOUS_SYNC},
    {"next", ReadOptions::SEEK_NEXT_SYNC},
    {"closest-sync", ReadOptions::SEEK_CLOSEST_SYNC},
    {"closest", ReadOptions::SEEK_CLOSEST},
};

/// How a seek without a frame after it ended.
struct Ending {
    std::string words;
    bool failed; ///< a read did, which is more than that there is no such frame
};

Ending ending(media_status_t status, bool after_end, const LogTap& log)
{
    if (status != AMEDIA_ERROR_END_OF_STREAM)
        return {reason(status, log), true};
    const std::string text = zoflv_host::status_text(status);
    if (after_end)
        return {text + ": after the duration", false};
    const bool not_found = log.plugin_code() != 0;
    if (log.cause().empty() || log.empty_avc_tag())
        return {text + (not_found ? ": no keyframe found" : ""), false};
    return {text + (not_found ? ": no keyframe found (" : " (") + log.cause() + ")", !not_found};
}

void print_seek(const Json& row, const SeekMeter& meter)
{
    const int64_t target_us = row["target_us"];
    std::string landed = "-", off = "-";
    if (row["landed_us"].is_number()) {
        landed = seconds(row["landed_us"].get<int64_t>() * 10);
        off = seconds((row["landed_us"].get<int64_t>() - target_us) * 10);
    }
    put(textf("%5d  %-12s %12s %12s %12s %6" PRIu64 " %9" PRIu64 " %7" PRIu64 " %9" PRIu64 "  ",
              row["track"].get<int>(), row["mode"].get<std::string>().c_str(),
              seconds(target_us * 10).c_str(), landed.c_str(), off.c_str(), meter.seek().reads,
              meter.seek().bytes, meter.frame().reads, meter.frame().bytes) +
        printable(row["status"].get<std::string>()) + '\n');
}

/// One file to seek in.
struct SeekFile {
    std::string path;
    std::vector<int64_t> targets_us;
};

/// Carries out the seeks of one track.
void seek_track(zoflv_host::Extractor& extractor, int index, const SeekFile& file,
                const SeekOptions& options, LogTap& log, int* worst)
{
    const std::unique_ptr<Track> track = start_track(extractor, index, log);
    SeekMeter meter(*track, extractor.source());
    zoflv_host::Format format;
    track->format(&format);
    const int64_t duration_us = format.int64(AMEDIAFORMAT_KEY_DURATION).value_or(INT64_MAX);

    const auto seek = [&](int64_t target_us, const Mode& mode) {
        log.reset();
        meter.start();
        const zoflv_host::ReadResult result = track->seek_read(target_us, mode.value);
        meter.stop();
        const bool landed = static_cast<bool>(result.sample);
        const Ending end = landed ? Ending{zoflv_host::status_text(result.status), false}
                                  : ending(result.status, target_us > duration_us, log);
        const Json row = {
            {"schema_version", schema_version},
            {"file", file.path},
            {"track", index},
            {"mode", mode.name},
            {"target_us", target_us},
            {"landed_us", landed ? Json(result.sample.time_us().value_or(0)) : Json()},
            {"status", end.words},
            {"reads", meter.seek().reads},
            {"bytes", meter.seek().bytes}};
        if (options.json)
            put_line(row);
        else
            print_seek(row, meter);
        if (end.failed)
            throw Failure(EXIT_BAD_FILE,
                          textf("track %d: the read after a seek failed: ", index) + end.words);
    };
    for (const int64_t target_us : file.targets_us) {
        for (const Mode& mode : modes) {
            if (options.mode == "all" || options.mode == mode.name)
                attempt(worst, file.path, [&] { seek(target_us, mode); });
        }
    }
}

void seek_file(const SeekFile& file, const SeekOptions& options, Session& session, int* worst)
{
    const ExtractorPtr extractor = open_extractor(session.plugin(), file.path, session.log());
    const int count = static_cast<int>(extractor->count_tracks());
    for (const int track : select_numbers("track", options.track, count))
        attempt_file(worst, file.path, options.json,
                     [&] { seek_track(*extractor, track, file, options, session.log(), worst); });
}

/// Files and times come in any order. What looks like a time and is neither is told at once.
void sort_words(const SeekOptions& options, std::vector<std::string>* files,
                std::vector<int64_t>* targets_us)
{
    for (const std::string& word : options.words) {
        const auto time = parse_time(word);
        if (time)
            targets_us->push_back(*time);
        else if (word.find_first_of("-.0123456789") == 0 && !same_file(word, word))
            throw SetupFailure("usage", '"' + word + "\" is no time, and no file");
        else
            files->push_back(word);
    }
    if (files->empty())
        throw SetupFailure("usage", "no file named (zoflv seek --help shows the usage)");
    const bool limited = options.test.max_miss_ms >= 0 || options.test.max_reads >= 0;
    if (limited && !targets_us->empty())
        throw SetupFailure("usage", "--max-miss and --max-reads are for seeks without times");
}

/// Without times: the targets of the seek test.
int run_seek_test(const SeekOptions& options, const std::vector<std::string>& files,
                  Session& session)
{
    SeekTestOptions test = options.test;
    test.device.profile = session.device();
    test.device.all_seeks = options.mode != "previous" || options.track >= 0;
    test.track = options.track;
    test.mode = options.mode;
    test.json = options.json;
    session.plugin();
    int worst = EXIT_FINE;
    for (const std::string& path : files) {
        if (!options.json && files.size() > 1)
            put(printable(path) + ":\n");
        attempt_file(&worst, path, options.json, [&] { test_seeks(path, test, session, &worst); });
    }
    return worst;
}

int run_seek(const SeekOptions& options, Session& session)
{
    std::vector<std::string> files;
    std::vector<int64_t> targets_us;
    sort_words(options, &files, &targets_us);
    if (targets_us.empty())
        return run_seek_test(options, files, session);
    session.plugin();
    int worst = EXIT_FINE;
    for (const std::string& path : files) {
        if (!options.json && files.size() > 1)
            put(printable(path) + ":\n");
        if (!options.json)
            put(textf("%5s  %-12s %12s %12s %12s %6s %9s %7s %9s  %s\n", "track", "mode",
                      "target (s)", "landed (s)", "off by (s)", "reads", "bytes", "+reads",
                      "+bytes", "status"));
        attempt_file(&worst, path, options.json, [&] {
            seek_file({path, targets_us}, options, session, &worst);
        });
    }
    return worst;
}

} // namespace

Command add_seek(CLI::App& app)
{
    constexpr Help help = {
        "Where seeks land and what they cost",
        "  zoflv seek recording.flv 83.5\n"
        "  zoflv seek recording.flv 1:23.5 0:10:00 --mode all --track 1\n"
        "  zoflv seek --json *.flv 60 | jq -r '[.file, .landed_us] | @tsv'\n"
        "  zoflv seek --max-miss 5000 --max-reads 40 recording.flv",
        "Without times the targets are even ones in the first 95 % of the video, else of the "
        "audio,\n"
        "and it is a failure when one misses: when it lands neither on the last keyframe before\n"
        "the target nor on one of the two before that, nor at most 100 ms late (audio: 1 s early\n"
        "to 100 ms late).\n"
        "A time is in seconds: 83.5, 1:23.5 or 0:01:23.5; a file of such a name is ./83.5.\n"
        "Reads and bytes are those of the seek; +reads and +bytes those of the frame after it,\n"
        "which the framework asks for with the seek. A seek to a time of yours that finds nothing\n"
        "is no failure.",
        "0 fine; 1 a file is not readable as FLV, a read failed, or without times a seek misses;\n"
        "2 wrong usage, or a file, the plugin or the output cannot be opened or written",
    };
    const auto options = std::make_shared<SeekOptions>();
    CLI::App* command = add_command(app, "seek", help);
    command->add_option("FILE_OR_TIME", options->words, "FLV files, and times to seek to")
        ->required()
        ->type_name("");
    add_number(command, "--track", &options->track, "Only this one, counted from 0");
    add_choice(command, "--mode", &options->mode, "What the seek looks for",
               {"previous", "next", "closest-sync", "closest", "all"});
    add_number(command, "--seeks", &options->test.device.seeks, "Without times: targets (32)");
    add_number(command, "--max-miss", &options->test.max_miss_ms,
               "Without times: fail when one lands more milliseconds from where it should");
    add_number(command, "--max-reads", &options->test.max_reads,
               "Without times: fail when one needs more file calls, with its frame");
    add_json(command, &options->json);
    return {command, [options](Session& session) { return run_seek(*options, session); }};
}
