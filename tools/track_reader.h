// SPDX-License-Identifier: Apache-2.0
/// @file
/// The frames of a track, one after the other, as a decoder would get them.
#pragma once

#include "tools/framework.h"
#include "tools/log.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

struct TrackFrame {
    const uint8_t* data; ///< until the next read
    size_t size;
    int64_t time_us;
    std::optional<int64_t> duration_us; ///< none with the last frame
};

class TrackReader {
public:
    /// Starts the track. Throws Failure.
    /// @param log  outlives the reader
    TrackReader(zoflv_host::Extractor& extractor, int index, LogTap& log);

    zoflv_host::Track& track() { return *m_track; }
    /// The next frame; nothing at the track's end.
    std::optional<TrackFrame> next();
    /// Once there is no next frame: why reading ended, empty at an ordinary end. That includes an
    /// AVC tag without payload after the last frame: encoders write their end-of-sequence tag so.
    std::string trouble();

private:
    LogTap& m_log;
    std::unique_ptr<zoflv_host::Track> m_track;
    zoflv_host::Sample m_sample;
    media_status_t m_status = AMEDIA_OK;
};
