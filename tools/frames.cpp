// SPDX-License-Identifier: Apache-2.0
#include "tools/commands.h"
#include "tools/file.h"
#include "tools/frame_reader.h"
#include "tools/progress.h"

#include <zlib.h>

#include <memory>
#include <unistd.h>

namespace {

using zoflv_inspect::Kind;

struct FramesOptions {
    std::vector<std::string> files;
    bool demuxer = false;
    int stream = -1; ///< of the demuxer; -1: all
    int track = -1;  ///< of the plugin; -1: all
    bool summary = false;
    bool json = false;
};

/// What is shown, and under which names.
struct Layout {
    const char *stream, *time, *next, *size;
    const char* next_heading;
    const char *first, *last; ///< of a summary
    int64_t ticks;            ///< 100-ns units in a unit of time
};
constexpr Layout demuxer_layout = {"stream",   "time",       "next_time", "length",
                                   "next (s)", "first_time", "last_time", 1};
constexpr Layout plugin_layout = {"track",        "time_us",  "duration_us", "size",
                                  "duration (s)", "first_us", "last_us",     10};

/// What the frames of a stream come to.
struct Totals {
    int64_t frames = 0, bytes = 0;
    std::optional<int64_t> first, last; ///< times, in the order of the file
};

/// One stream or track of a file, and how its frames are shown.
struct Listing {
    const FramesOptions& options;
    const Layout& layout;
    const std::string& path;
    std::string begin; ///< of each JSON object: schema_version, file and the stream's number
    int stream;
    bool progress;
};

// Rows are put together without the heap: a recording of a few hours has a million.

void add_member(Line* line, const char* name, std::optional<int64_t> number)
{
    line->add(",\"").add(name).add("\":");
    if (number)
        line->add(*number);
    else
        line->add("null");
}

void add_number(Line* line, size_t width, int64_t number)
{
    const size_t start = line->size();
    line->add(number).align(start, width);
}

void add_time(Line* line, size_t width, const Layout& layout, std::optional<int64_t> time)
{
    const size_t start = line->size();
    if (time)
        line->add_seconds(*time * layout.ticks);
    else
        line->add("-");
    line->align(start, width);
}

void print_frame(const Listing& listing, int64_t index, const Frame& frame, bool video)
{
    const auto& place = frame.place;
    const Layout& layout = listing.layout;
    const auto crc = static_cast<uint32_t>(crc32_z(0, frame.data, frame.size));
    const auto size = static_cast<int64_t>(frame.size);
    Line line;
    if (listing.options.json) {
        put(listing.begin);
        add_member(&line, "index", index);
        add_member(&line, layout.time, frame.time);
        add_member(&line, layout.next, frame.next);
        add_member(&line, layout.size, size);
        line.add(",\"crc32\":\"").add_hex(crc).add("\"");
        add_member(&line, "offset", place ? std::optional(place->offset) : std::nullopt);
        add_member(&line, "pts_us", place ? std::optional(place->pts_us) : std::nullopt);
        line.add(!place || !video  ? ",\"keyframe\":null}\n"
                 : place->keyframe ? ",\"keyframe\":true}\n"
                                   : ",\"keyframe\":false}\n");
        put(line.text());
        return;
    }
    add_number(&line, 6, listing.stream);
    add_number(&line, 9, index);
    add_time(&line, 17, layout, frame.time);
    add_time(&line, 17, layout, frame.next);
    add_number(&line, 11, size);
    put(line.add("  ").add_hex(crc).add("\n").text());
}

/// The member "end" of a JSON object.
void put_end(const Ending& end)
{
    const Json object = {{"complete", !end.missing},
                         {"at_byte", end.missing ? Json(*end.missing) : Json(nullptr)},
                         {"reason", end.reason.empty() ? Json(nullptr) : Json(end.reason)}};
    put(",\"end\":" + json_text(object) + "}\n");
}

void print_totals(const Listing& listing, const Totals& totals, const Ending& end)
{
    const Layout& layout = listing.layout;
    Line line;
    if (listing.options.json) {
        put(listing.begin);
        add_member(&line, "frames", totals.frames);
        add_member(&line, "bytes", totals.bytes);
        add_member(&line, layout.first, totals.first);
        add_member(&line, layout.last, totals.last);
        put(line.text());
        put_end(end);
        return;
    }
    add_number(&line, 6, listing.stream);
    add_number(&line, 9, totals.frames);
    add_number(&line, 15, totals.bytes);
    add_time(&line, 17, layout, totals.first);
    add_time(&line, 17, layout, totals.last);
    put(line.add("\n").text());
}

void print_heading(const Layout& layout, bool summary)
{
    if (summary)
        put(textf("%6s %8s %14s %16s %16s\n", layout.stream, "frames", "bytes", "first (s)",
                  "last (s)"));
    else
        put(textf("%6s %8s %16s %16s %10s  %s\n", layout.stream, "index", "time (s)",
                  layout.next_heading, layout.size, "crc32"));
}

[[noreturn]] void fail_at(const Listing& listing, int64_t frames, const Ending& end)
{
    throw Failure(EXIT_BAD_FILE,
                  textf("%s %d: reading ended after %lld frames: ", listing.layout.stream,
                        listing.stream, static_cast<long long>(frames)) +
                      end.reason);
}

/// Prints the frames of one stream. Throws Failure where reading ends before the stream does.
void list_frames(FrameReader& reader, const Listing& listing)
{
    const bool video = reader.kind() == Kind::VIDEO;
    Progress progress(listing.path, reader.file_size(), listing.progress);
    int64_t count = 0;
    for (Frame frame{}; reader.next(&frame); ++count) {
        if (frame.place)
            progress.at(frame.place->offset);
        print_frame(listing, count, frame, video);
    }
    const Ending end = reader.ending();
    progress.clear();
    if (listing.options.json) {
        put(listing.begin);
        put_end(end);
    }
    if (!end.reason.empty())
        fail_at(listing, count, end);
}

/// Opens a stream. One that cannot be opened has its end all the same.
template <typename Open>
std::unique_ptr<FrameReader> open_reader(const Listing& listing, const Open& open)
{
    try {
        return open();
    } catch (const Failure& failure) {
        if (listing.options.json)
            put(listing.begin + ",\"end\":{\"complete\":false,\"at_byte\":null,\"reason\":" +
                json_text(failure.what()) + "}}\n");
        throw;
    }
}

/// A stream of which only the sums are shown.
struct Summing {
    const Listing& listing;
    std::unique_ptr<FrameReader> reader;
    int64_t at = 0; ///< offset of the last frame's tag
    Totals totals{};
    std::optional<Ending> end{};
};

void add_frame(Summing* sum)
{
    Frame frame{};
    if (!sum->reader->next(&frame)) {
        sum->end = sum->reader->ending();
        return;
    }
    Totals& totals = sum->totals;
    ++totals.frames;
    totals.bytes += static_cast<int64_t>(frame.size);
    totals.last = frame.time;
    if (!totals.first)
        totals.first = frame.time;
    if (frame.place)
        sum->at = frame.place->offset;
}

/// The one that is furthest back in the file, null when all have ended.
Summing* furthest_back(std::vector<Summing>& sums)
{
    Summing* found = nullptr;
    for (Summing& sum : sums) {
        if (!sum.end && (!found || sum.at < found->at))
            found = &sum;
    }
    return found;
}

/// Reads streams in turn, so that all are near each other and the file is fetched once.
void sum_up(std::vector<Summing>& sums, int* worst)
{
    if (sums.empty())
        return;
    const Listing& any = sums.front().listing;
    Progress progress(any.path, sums.front().reader->file_size(), any.progress);
    while (Summing* const sum = furthest_back(sums)) {
        progress.at(sum->at);
        add_frame(sum);
    }
    progress.clear();
    for (const Summing& sum : sums) {
        attempt(worst, any.path, [&] {
            print_totals(sum.listing, sum.totals, *sum.end);
            if (!sum.end->reason.empty())
                fail_at(sum.listing, sum.totals.frames, *sum.end);
        });
    }
}

/// The frames of one track or stream of a file, or of all.
void list_file(const std::string& path, const FramesOptions& options, Session& session, int* worst)
{
    LogTap& log = session.log();
    std::unique_ptr<const FlvFile> file;
    ExtractorPtr extractor;
    if (options.demuxer)
        file = std::make_unique<FlvFile>(path, log);
    else
        extractor = open_extractor(session.plugin(), path, log);
    const Layout& layout = file ? demuxer_layout : plugin_layout;
    const int count = file ? file->info().strm_cnt : static_cast<int>(extractor->count_tracks());
    const bool progress = !session.quiet() && (options.summary || ::isatty(STDOUT_FILENO) == 0);
    const std::string begin =
        textf("{\"schema_version\":%d,\"file\":", schema_version) + json_text(path);
    if (!options.json)
        print_heading(layout, options.summary);
    std::vector<Listing> listings;
    for (const int i : select_numbers(layout.stream, file ? options.stream : options.track, count))
        listings.push_back(
            {options, layout, path, begin + textf(",\"%s\":%d", layout.stream, i), i, progress});
    std::vector<Summing> sums;
    for (const Listing& listing : listings) {
        // After one that is damaged the other may be sound.
        attempt(worst, path, [&] {
            auto reader = open_reader(listing, [&] {
                return file ? read_stream(*file, listing.stream)
                            : read_track(*extractor, listing.stream, log);
            });
            if (options.summary)
                sums.push_back({listing, std::move(reader)});
            else
                list_frames(*reader, listing);
        });
    }
    sum_up(sums, worst);
}

int run_frames(const FramesOptions& options, Session& session)
{
    if (!options.demuxer)
        session.plugin();
    buffer_output();
    int worst = EXIT_FINE;
    for (const std::string& path : options.files) {
        if (!options.json && options.files.size() > 1)
            put(printable(path) + ":\n");
        attempt_file(&worst, path, options.json,
                     [&] { list_file(path, options, session, &worst); });
    }
    return worst;
}

} // namespace

Command add_frames(CLI::App& app)
{
    constexpr Help help = {
        "Every frame's time, duration, size and CRC-32; or what they come to",
        "  zoflv frames recording.flv\n"
        "  zoflv frames --json --track 0 recording.flv | jq .size\n"
        "  zoflv frames --summary *.flv              one line for each track\n"
        "  zoflv frames --demuxer recording.flv      without the plugin",
        "With --json each track ends with an object that has \"end\": whether all its frames "
        "came,\n"
        "else the position of the first tag whose frame did not, and why.",
        "0 fine; 1 a file is not readable as FLV, a read failed, or a track ends before its last\n"
        "frame; 2 wrong usage, or a file, the plugin or the output cannot be opened or written",
    };
    const auto options = std::make_shared<FramesOptions>();
    CLI::App* command = add_command(app, "frames", help);
    add_files(command, &options->files);
    CLI::Option* track =
        add_number(command, "--track", &options->track, "Only this one, counted from 0");
    CLI::Option* demuxer = command->add_flag("--demuxer", options->demuxer,
                                             "Without the plugin: the demuxer's streams");
    add_number(command, "--stream", &options->stream, "Only this one, with --demuxer")
        ->needs(demuxer);
    demuxer->excludes(track);
    command->add_flag("--summary", options->summary,
                      "Read them all, show only their number, bytes and times");
    add_json(command, &options->json);
    return {command, [options](Session& session) { return run_frames(*options, session); }};
}
