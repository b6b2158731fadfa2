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
    bool json = false;
};

struct Frame {
    const uint8_t* data; ///< until the next read
    size_t size;
    int64_t time;
    std::optional<int64_t> next; ///< as the layout says
};

/// What a listing shows, and under which names.
struct Layout {
    const char *stream, *time, *next, *size;
    const char* next_heading;
    int64_t ticks; ///< 100-ns units in a unit of time
};
constexpr Layout demuxer_layout = {"stream", "time", "next_time", "length", "next (s)", 1};
constexpr Layout plugin_layout = {"track", "time_us", "duration_us", "size", "duration (s)", 10};

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
/// tag without payload behind the last frame: encoders write their end-of-sequence tag so.
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
        return "an AVC tag without payload, with more behind it";
    return rc == ZOFLV_EOF ? log.cause() : reason(rc, log);
}

void print_frame(const Layout& layout, int stream, int64_t index, const Frame& frame, bool json)
{
    const uLong crc = crc32_z(0, frame.data, frame.size);
    const std::string crc_text = textf("%08lx", crc);
    if (json)
        put_line({{layout.stream, stream},
                  {"index", index},
                  {layout.time, frame.time},
                  {layout.next, frame.next ? Json(*frame.next) : Json(nullptr)},
                  {layout.size, frame.size},
                  {"crc32", crc_text}});
    else
        put(textf("%6d %8lld %16s %16s %10zu  %s\n", stream, static_cast<long long>(index),
                  seconds(frame.time * layout.ticks).c_str(),
                  frame.next ? seconds(*frame.next * layout.ticks).c_str() : "-", frame.size,
                  crc_text.c_str()));
}

/// Prints the frames of one stream. Throws Failure where reading ends before the stream does.
void list_frames(const ReadFrame& read, const Layout& layout, int stream, bool json, LogTap& log)
{
    int64_t count = 0;
    Frame frame{};
    int rc = ZOFLV_OK;
    for (; (rc = read(&frame)) == ZOFLV_OK; ++count)
        print_frame(layout, stream, count, frame, json);
    const std::string why = trouble(read, rc, log);
    if (!why.empty())
        throw Failure(EXIT_BAD_FILE, textf("%s %d: reading ended behind %lld frames: ",
                                           layout.stream, stream, static_cast<long long>(count)) +
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
    if (!options.json)
        put(textf("%6s %8s %16s %16s %10s  %s\n", layout.stream, "index", "time (s)",
                  layout.next_heading, layout.size, "crc32"));
    int worst = EXIT_FINE;
    for (const int i : chosen) // behind one that is damaged the other may be sound
        attempt(&worst, options.file, [&] {
            list_frames(file ? stream_reader(*file, i) : track_reader(*extractor, i, log), layout,
                        i, options.json, log);
        });
    return worst;
}

} // namespace

Command add_frames(CLI::App& app)
{
    constexpr Help help = {
        "Every frame's time, duration, size and CRC-32",
        "  zoflv frames recording.flv\n"
        "  zoflv frames --json --track 0 recording.flv | jq .size\n"
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
    add_json(command, &options->json);
    return {command, [options](Session& session) {
                const PluginPtr plugin = options->demuxer ? nullptr : session.plugin();
                int worst = EXIT_FINE;
                attempt(&worst, options->file,
                        [&] { worst = run_frames(*options, plugin, session.log()); });
                return worst;
            }};
}
