// SPDX-License-Identifier: Apache-2.0
#include "inspect/device_run.h"

#include <zoflv_host/format.h>
#include <zoflv_host/log.h>

#include <algorithm>
#include <android/log.h>
#include <cmath>
#include <utility>
#include <zodevice/zo_media_formats.h>

namespace zoflv_inspect {

namespace {

using zoflv_host::Format;
using zoflv_host::ReadResult;
using zoflv_host::Track;

// What the modes that do not make the verdict may read in all: a search through a long tail without
// a tag reads all of it, each time.
constexpr uint64_t MOST_SEEK_BYTES = 64 << 20;

/// Takes the log over for a scope, and passes every line on.
class LogScope {
public:
    explicit LogScope(ReasonLog& log)
        : m_before(zoflv_host::set_log_sink(
              [this, &log](int priority, const std::string& tag, const std::string& text) {
                  const bool error = priority >= ANDROID_LOG_ERROR;
                  if (error || tag == "ZoFLVExtractor")
                      log.take(error, tag, text);
                  if (m_before)
                      m_before(priority, tag, text);
              }))
    {}
    ~LogScope() { zoflv_host::set_log_sink(m_before); }
    LogScope(const LogScope&) = delete;
    LogScope& operator=(const LogScope&) = delete;

private:
    const zoflv_host::LogSink m_before;
};

RunEnd end_of(media_status_t status, const ReasonLog& log)
{
    return {status, log.cause(), log.cause_text()};
}

void take_format(const Format& format, const DeviceProfile& profile, TrackReport* report)
{
    const auto number = [&](const char* key) { return format.int32(key).value_or(0); };
    report->mime = format.string(AMEDIAFORMAT_KEY_MIME).value_or("");
    report->error_type = number(android::AMEDIAFORMAT_KEY_ERROR_TYPE);
    report->device_plays = report->error_type == 0 && profile.plays(report->mime);
    report->width = number(AMEDIAFORMAT_KEY_WIDTH);
    report->height = number(AMEDIAFORMAT_KEY_HEIGHT);
    report->sample_rate = number(AMEDIAFORMAT_KEY_SAMPLE_RATE);
    report->channels = number(AMEDIAFORMAT_KEY_CHANNEL_COUNT);
    report->max_input_size = number(AMEDIAFORMAT_KEY_MAX_INPUT_SIZE);
    report->duration_us = format.int64(AMEDIAFORMAT_KEY_DURATION).value_or(0);
}

} // namespace

/// A kind of stream while the file is walked.
struct DeviceRun::Stream {
    Stream(Kind kind, TrackReport& of) : rules(kind), points(kind), report(of) { of.kind = kind; }

    FrameRules rules;
    FrameMatcher matcher;
    SyncPoints points;
    ReasonLog log;
    std::unique_ptr<Track> track; ///< started, or null
    TrackReport& report;
    bool ended = false;
};

const SeekTest* TrackReport::seeks_in(SeekMode mode) const
{
    const auto found = std::find_if(seeks.begin(), seeks.end(),
                                    [mode](const SeekTest& test) { return test.mode == mode; });
    return found == seeks.end() ? nullptr : &*found;
}

int64_t TrackReport::lost_us() const
{
    if (!usable() || frames.expected == 0)
        return extent_us;
    const uint64_t lost = frames.expected - std::min(frames.expected, frames.delivered);
    return std::llround(static_cast<double>(extent_us) * static_cast<double>(lost) /
                        static_cast<double>(frames.expected));
}

const TrackReport* DeviceReport::seek_track() const
{
    return video.usable() ? &video : audio.usable() ? &audio : nullptr;
}

DeviceRun::DeviceRun(zoflv_host::ExtractorLibrary& plugin,
                     std::shared_ptr<zoflv_host::DataSource> source, const DeviceOptions& options)
    : m_options(options), m_source(std::move(source)),
      m_audio(std::make_unique<Stream>(Kind::AUDIO, m_report.audio)),
      m_video(std::make_unique<Stream>(Kind::VIDEO, m_report.video))
{
    m_report.name = options.profile.name;
    open(plugin);
}

DeviceRun::~DeviceRun() = default;

void DeviceRun::open(zoflv_host::ExtractorLibrary& plugin)
{
    ReasonLog log;
    const LogScope scope(log);
    std::string why;
    m_extractor = plugin.open(m_source, &why);
    if (!m_extractor) {
        m_report.open = {AMEDIA_ERROR_UNSUPPORTED, nullptr, why};
        return;
    }
    const size_t count = m_extractor->count_tracks();
    m_report.opened = count > 0;
    if (!m_report.opened)
        m_report.open = end_of(AMEDIA_ERROR_UNKNOWN, log);
    for (size_t i = 0; i < count; ++i)
        start(static_cast<int>(i));
}

void DeviceRun::start(int index)
{
    Format format;
    if (m_extractor->track_format(static_cast<size_t>(index), &format) != AMEDIA_OK)
        return;
    const std::string mime = format.string(AMEDIAFORMAT_KEY_MIME).value_or("");
    Stream& stream = mime.compare(0, 6, "video/") == 0 ? *m_video : *m_audio;
    stream.report.index = index;
    take_format(format, m_options.profile, &stream.report);
    reopen(stream);
}

// Makes the track anew, and starts it.
bool DeviceRun::reopen(Stream& stream)
{
    const LogScope scope(stream.log);
    stream.log.reset();
    stream.track.reset(); // before the next: the extractor has room for few
    stream.track = m_extractor->track(static_cast<size_t>(stream.report.index));
    const media_status_t status = stream.track ? stream.track->start() : AMEDIA_ERROR_UNKNOWN;
    if (status == AMEDIA_OK)
        return true;
    stream.track.reset();
    stream.report.start = end_of(status, stream.log);
    return false;
}

void DeviceRun::see(const Item& item, TagWalker& walker)
{
    if (item.kind != ItemKind::TAG || !(item.tag.audio() || item.tag.video()))
        return;
    Stream& stream = item.tag.audio() ? *m_audio : *m_video;
    ++stream.report.tags;
    const std::optional<ExpectedFrame> frame = stream.rules.expect(item.tag, walker);
    if (!frame)
        return;
    stream.points.add(*frame);
    if (!stream.track)
        stream.matcher.end_of_frames(); // nothing will come: frames would wait for it in vain
    stream.matcher.expect(*frame);
    const LogScope scope(stream.log);
    while (stream.track && !stream.ended && stream.matcher.wants())
        read(stream);
}

// Reads the next frame.
void DeviceRun::read(Stream& stream)
{
    stream.log.step();
    const ReadResult result = stream.track->read();
    if (result.sample) {
        stream.matcher.deliver({result.sample.time_us().value_or(0), result.sample.size()});
        stream.ended = stream.matcher.count().gave_up;
        return;
    }
    stream.ended = true;
    stream.report.end = end_of(result.status, stream.log);
    stream.matcher.end_of_frames();
}

const DeviceReport& DeviceRun::finish()
{
    for (Stream* stream : {m_audio.get(), m_video.get()}) {
        const LogScope scope(stream->log);
        while (stream->track && !stream->ended)
            read(*stream);
        stream->matcher.finish(stream->rules.unconfigured());
        stream->report.frames = stream->matcher.count();
        stream->points.finish();
        stream->report.extent_us = stream->points.extent_us();
    }
    const TrackReport* const judged = m_report.seek_track();
    if (!judged || m_options.seeks <= 0)
        return m_report;
    seek(judged == &m_report.video ? *m_video : *m_audio);
    return m_report;
}

// The seek tests of the track that is judged, and of audio beside it.
void DeviceRun::seek(Stream& stream)
{
    const auto targets =
        stream.points.targets(std::min(m_options.seeks, DeviceOptions::MOST_SEEKS), m_options.seed);
    bool going = seek_in(stream, SeekMode::PREVIOUS, targets);
    if (!m_options.all_seeks)
        return;
    if (going && &stream == m_video.get() && m_report.audio.usable())
        going = seek_in(*m_audio, SeekMode::PREVIOUS, targets, &stream.report.seeks.front());
    for (const SeekMode mode : {SeekMode::NEXT, SeekMode::CLOSEST_SYNC, SeekMode::CLOSEST})
        going = going && seek_in(stream, mode, targets);
    stream.report.seeks_cut = !going;
}

// Returns whether more may be tried.
bool DeviceRun::seek_in(Stream& stream, SeekMode mode, const std::vector<int64_t>& targets,
                        const SeekTest* beside)
{
    if (!reopen(stream))
        return false;
    const LogScope scope(stream.log);
    const uint64_t before = m_source->bytes();
    stream.report.seeks.push_back(
        run_seeks(*stream.track, *m_source, stream.points, mode, targets, beside));
    m_seek_bytes += m_source->bytes() - before;
    return m_seek_bytes < MOST_SEEK_BYTES;
}

} // namespace zoflv_inspect
