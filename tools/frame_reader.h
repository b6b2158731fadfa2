// SPDX-License-Identifier: Apache-2.0
/// @file
/// The frames of a stream or track, one after the other, each with its tag.
#pragma once

#include "inspect/frame_places.h"
#include "inspect/tag_trail.h"
#include "tools/file.h"
#include "tools/framework.h"
#include "tools/log.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

struct Frame {
    const uint8_t* data; ///< until the next one
    size_t size;
    int64_t time;                ///< in units of the reader
    std::optional<int64_t> next; ///< the demuxer's next time; the plugin's duration
    std::optional<zoflv_inspect::FramePlace> place; ///< nothing when no tag fits
};

/// How reading ended.
struct Ending {
    std::optional<int64_t> missing; ///< offset of the first tag whose frame was not read
    std::string reason;             ///< empty: at the ordinary end, with nothing missing
};

/// Several may read the same file in turn.
class FrameReader {
public:
    virtual ~FrameReader();
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    zoflv_inspect::Kind kind() const { return m_kind; }
    int64_t file_size() { return m_bytes.size(); }
    /// False when reading has ended.
    bool next(Frame* frame);
    /// Once, when next() has given no frame.
    Ending ending();

protected:
    /// @param source  what the frames are read from
    /// @param ticks   100-ns units in a unit of time
    FrameReader(zoflv_host::DataSource& source, zoflv_inspect::Kind kind, int64_t ticks,
                LogTap& log);

    /// Reads the next frame but for its place. Returns ZOFLV_OK, ZOFLV_EOF at the end of the stream,
    /// or what reason() explains.
    virtual int read(Frame* frame) = 0;

    LogTap& m_log;

private:
    void take_turn();
    void walk();
    std::string trouble();

    const zoflv_inspect::Kind m_kind;
    const int64_t m_ticks;
    zoflv_host::DataSource& m_source;
    zoflv_inspect::ReasonLog m_reasons;
    zoflv_inspect::HostSource m_bytes;
    zoflv_inspect::TagTrail m_trail;
    std::optional<zoflv_inspect::FramePlaces> m_places; ///< when the trail is lost
    int m_rc = 0;                                       ///< of the last read
};

/// A stream, as the demuxer reads it, times in 100-ns units. Throws Failure.
/// @param file  outlives the reader
std::unique_ptr<FrameReader> read_stream(const FlvFile& file, int index);

/// A track, as the framework reads it, times in microseconds. Throws Failure.
/// @param extractor  outlives the reader, as does the log
std::unique_ptr<FrameReader> read_track(zoflv_host::Extractor& extractor, int index, LogTap& log);
