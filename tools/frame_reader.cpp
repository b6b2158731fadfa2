// SPDX-License-Identifier: Apache-2.0
#include "tools/frame_reader.h"

#include "tools/output.h"

#include <algorithm>
#include <vector>

using zoflv_inspect::Kind;

namespace {

class StreamReader : public FrameReader {
public:
    StreamReader(const FlvFile& file, int index)
        : FrameReader(file.source(),
                      file.info().strm_type[index] == ZOFLV_TAG_VIDEO ? Kind::VIDEO : Kind::AUDIO,
                      1, file.log())
    {
        m_log.reset();
        int error = ZOFLV_ERR_FAIL;
        m_stream.reset(zoflvds_open(file.handle(), index, &error));
        if (!m_stream)
            throw Failure(EXIT_BAD_FILE,
                          textf("stream %d cannot be opened: ", index) + reason(error, m_log));
    }

protected:
    int read(Frame* frame) override
    {
        m_log.step();
        int length = 0;
        int rc = zoflvds_get_frm(m_stream.get(), nullptr, 0, &length, nullptr, nullptr);
        if (rc != ZOFLV_OK)
            return rc;
        m_buffer.resize(std::max(m_buffer.size(), static_cast<size_t>(length)));
        int64_t next_time = 0;
        rc = zoflvds_get_frm(m_stream.get(), m_buffer.data(), static_cast<int>(m_buffer.size()),
                             &length, &frame->time, &next_time);
        frame->data = m_buffer.data();
        frame->size = static_cast<size_t>(length);
        frame->next = next_time;
        return rc;
    }

private:
    std::unique_ptr<ZOFLVDS, void (*)(ZOFLVDS*)> m_stream{nullptr, zoflvds_close};
    std::vector<uint8_t> m_buffer = std::vector<uint8_t>(1);
};

Kind kind_of(zoflv_host::Extractor& extractor, int track)
{
    zoflv_host::Format format;
    extractor.track_format(static_cast<size_t>(track), &format);
    const auto mime = format.string(AMEDIAFORMAT_KEY_MIME).value_or(std::string());
    return mime.compare(0, 6, "video/") == 0 ? Kind::VIDEO : Kind::AUDIO;
}

class TrackReader : public FrameReader {
public:
    TrackReader(zoflv_host::Extractor& extractor, int index, LogTap& log)
        : FrameReader(extractor.source(), kind_of(extractor, index), 10, log),
          m_track(start_track(extractor, index, log))
    {}

protected:
    int read(Frame* frame) override
    {
        m_sample.release(); // the track has one buffer
        m_log.step();
        zoflv_host::ReadResult result = m_track->read();
        if (result.status == AMEDIA_ERROR_END_OF_STREAM)
            return ZOFLV_EOF;
        if (!result.sample)
            return result.status == AMEDIA_OK ? AMEDIA_ERROR_UNKNOWN : result.status;
        m_sample = std::move(result.sample);
        frame->data = m_sample.data();
        frame->size = m_sample.size();
        frame->time = m_sample.time_us().value_or(0);
        frame->next = m_sample.duration_us();
        return ZOFLV_OK;
    }

private:
    const std::unique_ptr<zoflv_host::Track> m_track;
    zoflv_host::Sample m_sample;
};

} // namespace

FrameReader::FrameReader(zoflv_host::DataSource& source, Kind kind, int64_t ticks, LogTap& log)
    : m_log(log), m_kind(kind), m_ticks(ticks), m_source(source), m_bytes(source),
      m_trail(m_bytes, kind)
{
    take_turn();
}

FrameReader::~FrameReader()
{
    m_source.watch(nullptr);
    m_log.keep_in(nullptr);
}

/// What is read and logged from now on is this one's.
void FrameReader::take_turn()
{
    m_source.watch(m_places ? nullptr : &m_trail);
    m_log.keep_in(&m_reasons);
}

/// Goes on without the trail.
void FrameReader::walk()
{
    m_source.watch(nullptr);
    m_places.emplace(m_bytes, m_kind, m_trail.proven());
}

bool FrameReader::next(Frame* frame)
{
    take_turn();
    m_rc = read(frame);
    if (m_rc != ZOFLV_OK)
        return false;
    const int64_t time_us = frame->time * m_ticks / 10;
    if (!m_places) {
        frame->place = m_trail.deliver(time_us, frame->size);
        if (frame->place)
            return true;
        walk();
    }
    frame->place = m_places->find(time_us, frame->size);
    return true;
}

/// Why the last read ended the stream; empty at its ordinary end. That includes an AVC tag without
/// payload after the last frame: encoders write their end-of-sequence tag so.
std::string FrameReader::trouble()
{
    bool skipped = false;
    while (m_rc == ZOFLV_EOF && m_log.empty_avc_tag()) {
        skipped = true;
        m_log.reset();
        Frame frame{};
        m_rc = read(&frame);
    }
    if (skipped && m_rc == ZOFLV_OK)
        return "an AVC tag without payload, with more after it";
    return m_rc == ZOFLV_EOF ? m_log.cause() : reason(m_rc, m_log);
}

Ending FrameReader::ending()
{
    Ending end;
    take_turn();
    end.reason = trouble();
    if (!m_places && end.reason.empty() && m_trail.complete(m_bytes.size()))
        return end;
    if (!m_places)
        walk();
    end.missing = m_places->first_missing();
    if (end.missing && end.reason.empty())
        end.reason =
            textf("the frame at byte %lld was left out", static_cast<long long>(*end.missing));
    return end;
}

std::unique_ptr<FrameReader> read_stream(const FlvFile& file, int index)
{
    return std::make_unique<StreamReader>(file, index);
}

std::unique_ptr<FrameReader> read_track(zoflv_host::Extractor& extractor, int index, LogTap& log)
{
    return std::make_unique<TrackReader>(extractor, index, log);
}
