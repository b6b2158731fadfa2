// SPDX-License-Identifier: Apache-2.0
#include "tools/commands.h"
#include "tools/file.h"

#include <zlib.h>

#include <algorithm>
#include <functional>
#include <memory>

namespace {

struct FramesOptions {
    std::string file;
    bool demuxer = false;
    int stream = -1; ///< of the demuxer; -1: all
    int track = -1;  ///< of the plugin; -1: all
    bool summary = false;
    bool json = false;
};

struct Frame {
    const uint8_t* data; ///< until the next read
    size_t size;
    int64_t time;
    std::optional<int64_t> next; ///< as the layout says
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

/// Reads the next frame of a stream or track. Returns ZOFLV_OK, ZOFLV_EOF at the end of the stream,
/// or what reason() explains.
using ReadFrame = std::function<int(Frame* frame)>;

/// A stream, as the demuxer reads it.
ReadFrame stream_reader(const FlvFile& file, int index)
{
    LogTap& log = file.log();
    log.reset();
    int error = ZOFLV_ERR_FAIL;
    const std::shared_ptr<ZOFLVDS> stream(zoflvds_open(file.handle(), index, &error),
                                          zoflvds_close);
    if (!stream)
        throw Failure(EXIT_BAD_FILE,
                      textf("stream %d cannot be opened: ", index) + reason(error, log));
    return [&log, stream, buffer = std::vector<uint8_t>(1)](Frame* frame) mutable {
        log.step();
        int length = 0;
        int rc = zoflvds_get_frm(stream.get(), nullptr, 0, &length, nullptr, nullptr);
        if (rc != ZOFLV_OK)
            return rc;
        buffer.resize(std::max(buffer.size(), static_cast<size_t>(length)));
        int64_t next_time = 0;
        rc = zoflvds_get_frm(stream.get(), buffer.data(), static_cast<int>(buffer.size()), &length,
                             &frame->time, &next_time);
        frame->data = buffer.data();
        frame->size = static_cast<size_t>(length);
        frame->next = next_time;
        return rc;
    };
}

/// A track, as the framework reads it.
ReadFrame track_reader(zoflv_host::Extractor& extractor, int index, LogTap& log)
{
    const std::shared_ptr<zoflv_host::Track> track = start_track(extractor, index, log);
    const auto sample = std::make_shared<zoflv_host::Sample>();
    return [&log, track, sample](Frame* frame) -> int {
        sample->release(); // the track has one buffer
        log.step();
        zoflv_host::ReadResult result = track->read();
        if (result.status == AMEDIA_ERROR_END_OF_STREAM)
            return ZOFLV_EOF;
        if (!result.sample)
            return result.status == AMEDIA_OK ? AMEDIA_ERROR_UNKNOWN : result.status;
        *sample = std::move(result.sample);
        *frame = {sample->data(), sample->size(), sample->time_us().value_or(0),
                  sample->duration_us()};
        return ZOFLV_OK;
    };
}

/// Why the read that gave `rc` ended the stream; empty at its ordinary end. That includes an AVC
/// tag without payload after the last frame: encoders write their end-of-sequence tag so.
std::string trouble(const ReadFrame& read, int rc, LogTap& log)
{
    bool passed = false;
    while (rc == ZOFLV_EOF && log.empty_avc_tag()) {
        passed = true;
        log.reset();
        Frame frame{};
        rc = read(&frame);
    }
    if (passed && rc == ZOFLV_OK)
        return "an AVC tag without payload, with more after it";
    return rc == ZOFLV_EOF ? log.cause() : reason(rc, log);
}

// Rows are put together without the heap: a recording of a few hours has a million.

void add_member(Line* line, const char* name, std::optional<int64_t> number)
{
    line->add(line->size() == 0 ? "{\"" : ",\"").add(name).add("\":");
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

void print_frame(const Layout& layout, int stream, int64_t index, const Frame& frame, bool json)
{
    const auto crc = static_cast<uint32_t>(crc32_z(0, frame.data, frame.size));
    const auto size = static_cast<int64_t>(frame.size);
    Line line;
    if (json) {
        add_member(&line, layout.stream, stream);
        add_member(&line, "index", index);
        add_member(&line, layout.time, frame.time);
        add_member(&line, layout.next, frame.next);
        add_member(&line, layout.size, size);
        put(line.add(",\"crc32\":\"").add_hex(crc).add("\"}\n").text());
        return;
    }
    add_number(&line, 6, stream);
    add_number(&line, 9, index);
    add_time(&line, 17, layout, frame.time);
    add_time(&line, 17, layout, frame.next);
    add_number(&line, 11, size);
    put(line.add("  ").add_hex(crc).add("\n").text());
}

void print_totals(const Layout& layout, int stream, const Totals& totals, bool json)
{
    Line line;
    if (json) {
        add_member(&line, layout.stream, stream);
        add_member(&line, "frames", totals.frames);
        add_member(&line, "bytes", totals.bytes);
        add_member(&line, layout.first, totals.first);
        add_member(&line, layout.last, totals.last);
        put(line.add("}\n").text());
        return;
    }
    add_number(&line, 6, stream);
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

/// Prints the frames of one stream. Throws Failure where reading ends before the stream does.
void list_frames(const ReadFrame& read, const Layout& layout, int stream,
                 const FramesOptions& options, LogTap& log)
{
    Totals totals;
    Frame frame{};
    int rc = ZOFLV_OK;
    for (; (rc = read(&frame)) == ZOFLV_OK; ++totals.frames) {
        if (!options.summary)
            print_frame(layout, stream, totals.frames, frame, options.json);
        totals.bytes += static_cast<int64_t>(frame.size);
        totals.last = frame.time;
        if (!totals.first)
            totals.first = frame.time;
    }
    if (options.summary)
        print_totals(layout, stream, totals, options.json);
    const std::string why = trouble(read, rc, log);
    if (!why.empty())
        throw Failure(EXIT_BAD_FILE,
                      textf("%s %d: reading ended after %lld frames: ", layout.stream, stream,
                            static_cast<long long>(totals.frames)) +
                          why);
}

/// The frames of one track or stream, or of all one after the other.
/// @param plugin  not used with `options.demuxer`
int run_frames(const FramesOptions& options, const PluginPtr& plugin, LogTap& log)
{
    std::unique_ptr<const FlvFile> file;
    ExtractorPtr extractor;
    if (options.demuxer)
        file = std::make_unique<FlvFile>(options.file, log);
    else
        extractor = open_extractor(plugin, options.file, log);
    const Layout& layout = file ? demuxer_layout : plugin_layout;
    const int count = file ? file->info().strm_cnt : static_cast<int>(extractor->count_tracks());
    const auto chosen = select_numbers(layout.stream, file ? options.stream : options.track, count);
    buffer_output();
    if (!options.json)
        print_heading(layout, options.summary);
    int worst = EXIT_FINE;
    for (const int i : chosen) // after one that is damaged the other may be sound
        attempt(&worst, options.file, [&] {
            list_frames(file ? stream_reader(*file, i) : track_reader(*extractor, i, log), layout,
                        i, options, log);
        });
    return worst;
}

} // namespace

Command add_frames(CLI::App& app)
{
    constexpr Help help = {
        "Every frame's time, duration, size and CRC-32; or what they come to",
        "  zoflv frames recording.flv\n"
        "  zoflv frames --json --track 0 recording.flv | jq .size\n"
        "  zoflv frames --summary recording.flv      one line for each track\n"
        "  zoflv frames --demuxer recording.flv      without the plugin",
        "",
    };
    const auto options = std::make_shared<FramesOptions>();
    CLI::App* command = add_command(app, "frames", help);
    add_file(command, &options->file);
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
    return {command, [options](Session& session) {
                const PluginPtr plugin = options->demuxer ? nullptr : session.plugin();
                int worst = EXIT_FINE;
                attempt(&worst, options->file,
                        [&] { worst = run_frames(*options, plugin, session.log()); });
                return worst;
            }};
}
