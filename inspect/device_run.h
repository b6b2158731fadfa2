// SPDX-License-Identifier: Apache-2.0
/// @file
/// What a device does with a file, by letting the plugin do it: opens the file, reads every track in
/// step with a walk over the same file, and seeks.
#pragma once

#include "inspect/device_profile.h"
#include "inspect/frame_matcher.h"
#include "inspect/reasons.h"
#include "inspect/seek_test.h"

#include <zoflv_host/extractor.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zoflv_inspect {

/// How a piece of the plugin's work ended.
struct RunEnd {
    media_status_t status = AMEDIA_OK;
    const Reason* reason =
        nullptr;      ///< of what went wrong; null: nothing did, or `text` alone tells
    std::string text; ///< what went wrong, in words; empty: nothing
};

/// A kind of stream: of its tags, and of the track that the plugin publishes for it.
struct TrackReport {
    Kind kind = Kind::AUDIO;
    uint64_t tags = 0;     ///< in the file
    int64_t extent_us = 0; ///< from the first expected frame to the last, by time

    // As published; with `index` -1 there is no track.
    int index = -1;
    std::string mime;
    int32_t error_type = 0;                ///< 0: playable
    bool device_plays = false;             ///< no error type, and the profile has the MIME type
    int32_t width = 0, height = 0;         ///< of video, pixels
    int32_t sample_rate = 0, channels = 0; ///< of audio, Hz
    int32_t max_input_size = 0;            ///< bytes
    int64_t duration_us = 0;

    RunEnd start; ///< its status is OK when the track was started
    FrameCount frames;
    RunEnd end; ///< how reading ended; its status is OK when it was not read to the end
    /// In the order of SeekMode; empty: not tried.
    std::vector<SeekTest> seeks;
    bool seeks_cut = false; ///< not all was tried, since the tests before read too much

    const SeekTest* seeks_in(SeekMode mode) const;
    /// How much of the extent is not played: an estimate, by the share of frames that did not come.
    int64_t lost_us() const;
    bool started() const { return index >= 0 && start.status == AMEDIA_OK; }
    /// Published without error, starts, and gives a frame.
    bool usable() const
    {
        return started() && device_plays && (frames.delivered > 0 || frames.foreign > 0);
    }
};

struct DeviceReport {
    bool opened = false; ///< claimed, and with a track
    std::string name;    ///< of the device profile
    RunEnd open;         ///< why it was not opened
    TrackReport audio, video;

    const TrackReport& of(Kind kind) const { return kind == Kind::AUDIO ? audio : video; }
    /// The track whose seeks make the verdict: video, else audio; null when neither is usable.
    const TrackReport* seek_track() const;
};

struct DeviceOptions {
    DeviceProfile profile = default_device_profile();
    int seeks = 32;        ///< targets of the seek test, at most MOST_SEEKS; 0: no seek test
    uint64_t seed = 1;     ///< of the targets
    bool all_seeks = true; ///< the modes that do not make the verdict too, and audio beside video
    static constexpr int MOST_SEEKS = 100000;
};

/// One file. Takes the log over during its calls, and passes it on to who had it.
/// Memory: the tracks' buffers, and 8 bytes for a keyframe.
///
///     DeviceRun run(plugin, source, options);
///     while (const Item* item = walker.next())
///         run.see(*item, walker);
///     const DeviceReport& report = run.finish();
class DeviceRun {
public:
    /// Opens the file. The device library has to be set to the profile before.
    /// @param source  the file that is walked too
    DeviceRun(zoflv_host::ExtractorLibrary& plugin, std::shared_ptr<zoflv_host::DataSource> source,
              const DeviceOptions& options);
    ~DeviceRun();
    DeviceRun(const DeviceRun&) = delete;
    DeviceRun& operator=(const DeviceRun&) = delete;

    /// Takes the walk's next item: the track reads on to its frame.
    void see(const Item& item, TagWalker& walker);
    /// After the walk: the rest of the tracks, and the seek tests.
    const DeviceReport& finish();

private:
    struct Stream;

    void open(zoflv_host::ExtractorLibrary& plugin);
    void start(int index);
    void read(Stream& stream);
    void seek(Stream& stream);
    bool seek_in(Stream& stream, SeekMode mode, const std::vector<int64_t>& targets,
                 const SeekTest* beside = nullptr);
    bool reopen(Stream& stream);

    const DeviceOptions m_options;
    const std::shared_ptr<zoflv_host::DataSource> m_source;
    std::shared_ptr<zoflv_host::Extractor> m_extractor;
    DeviceReport m_report;
    std::unique_ptr<Stream> m_audio, m_video; // each fills its part of the report
    uint64_t m_seek_bytes = 0;                ///< read by the seek tests
};

} // namespace zoflv_inspect
