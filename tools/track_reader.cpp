// SPDX-License-Identifier: Apache-2.0
#include "tools/track_reader.h"

#include "tools/file.h"

TrackReader::TrackReader(zoflv_host::Extractor& extractor, int index, LogTap& log)
    : m_log(log), m_track(start_track(extractor, index, log))
{}

std::optional<TrackFrame> TrackReader::next()
{
    m_sample.release(); // the track has one buffer
    m_log.step();
    zoflv_host::ReadResult result = m_track->read();
    m_status = result.status;
    if (!result.sample)
        return std::nullopt;
    m_sample = std::move(result.sample);
    return TrackFrame{m_sample.data(), m_sample.size(), m_sample.time_us().value_or(0),
                      m_sample.duration_us()};
}

std::string TrackReader::trouble()
{
    bool skipped = false, more = false;
    while (!more && m_status == AMEDIA_ERROR_END_OF_STREAM && m_log.empty_avc_tag()) {
        skipped = true;
        m_log.reset();
        more = next().has_value();
    }
    if (skipped && more)
        return "an AVC tag without payload, with more after it";
    if (m_status == AMEDIA_ERROR_END_OF_STREAM)
        return m_log.cause();
    return reason(m_status == AMEDIA_OK ? AMEDIA_ERROR_UNKNOWN : m_status, m_log);
}
