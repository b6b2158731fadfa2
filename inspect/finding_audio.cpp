// SPDX-License-Identifier: Apache-2.0
#include "inspect/codec_names.h"
#include "inspect/finding_detectors.h"

#include <algorithm>
#include <cstring>

namespace zoflv_inspect {

namespace {

constexpr uint8_t MP3 = 2;
constexpr uint8_t AAC = 10;
constexpr uint8_t MPEG_RESERVED = 12; // read as MPEG audio all the same
constexpr uint8_t MP3_8K = 14;
constexpr uint8_t DEVICE_SPECIFIC = 15;
constexpr int32_t AAC_RATES[] = {96000, 88200, 64000, 48000, 44100, 32000,
                                 24000, 22050, 16000, 12000, 11025, 8000}; // with codec data

bool has_frame_sync(const View& body)
{
    for (size_t i = 1; i + 1 < body.size; ++i) {
        if (body.data[i] == 0xFF && body.data[i + 1] >= 0xE0)
            return true;
    }
    return false;
}

} // namespace

void AudioCheck::see(const Tag& tag, TagWalker& walker)
{
    if (!tag.body.known || tag.size < 2 || tag.type_byte != TAG_AUDIO)
        return;
    if (!m_first) {
        m_first = tag;
        see_first(tag, walker);
    } else if (tag.body.codec != m_first->body.codec) {
        if (Finding* finding = m_sink.add(Rule::CODEC_CHANGE, tag))
            finding->detail = "from " + codec_name(false, m_first->body.codec) + " to " +
                              codec_name(false, tag.body.codec);
    }
    if (!is_flv_10_1(false, tag.body.codec)) {
        if (Finding* finding = m_sink.add(Rule::CODEC_NEWER, tag))
            finding->detail = codec_name(false, tag.body.codec);
    }
    const bool aac = tag.body.codec.fourcc == 0 && tag.body.codec.number == AAC;
    if (aac)
        see_aac(tag, walker);
    if (tag.body.packet == Packet::FRAME && !tag.cut)
        m_sizes.see(tag, tag.payload_size());
}

// The first tag decides whether the file is opened at all.
void AudioCheck::see_first(const Tag& tag, TagWalker& walker)
{
    const uint8_t format_number = tag.body.codec.number;
    if (format_number == MP3_8K)
        m_sink.add(Rule::AUDIO_FORMAT14, tag);
    else if (format_number == DEVICE_SPECIFIC)
        m_sink.add(Rule::AUDIO_FORMAT15, tag);
    if (format_number != MP3 && format_number != MPEG_RESERVED)
        return;
    const View body = walker.body(tag);
    if (body.size >= 4 && std::memcmp(body.data + 1, "ID3", 3) == 0)
        m_sink.add(Rule::MP3_ID3, tag);
    if (!has_frame_sync(body))
        m_sink.add(Rule::MP3_NO_SYNC, tag);
    else if (!tag.cut && !ask_stream(TAG_AUDIO, body).opened)
        m_sink.add(Rule::MP3_BAD_HEADER, tag);
}

void AudioCheck::see_aac(const Tag& tag, TagWalker& walker)
{
    const bool first = tag.offset == m_first->offset;
    if (tag.body.packet == Packet::FRAME) {
        if (first)
            m_sink.add(Rule::AAC_RAW_FIRST, tag);
        if (tag.payload_size() == 0 && !tag.cut) {
            if (Finding* finding = m_sink.add(Rule::TAG_NO_PAYLOAD, tag))
                finding->explains = SHOWN_NOTHING; // an empty frame is delivered
        }
        m_any_frame = true;
        return;
    }
    const View body = walker.body(tag);
    if (tag.body.packet != Packet::CONFIG) {
        if (first)
            m_sink.add(Rule::AAC_CONFIG_BAD, tag);
    } else if (m_configured) {
        const bool same =
            m_config.size() == body.size && std::equal(m_config.begin(), m_config.end(), body.data);
        m_sink.add(same ? Rule::AAC_CONFIG_AGAIN : Rule::AAC_CONFIG_CHANGED, tag);
        m_config.assign(body.data, body.data + body.size);
    } else {
        if (m_any_frame)
            m_sink.add(Rule::AAC_LATE_CONFIG, tag);
        m_configured = true;
        m_config.assign(body.data, body.data + body.size);
        judge_aac_config(tag, body);
    }
}

void AudioCheck::judge_aac_config(const Tag& tag, const View& body)
{
    const ReadStream stream = ask_stream(TAG_AUDIO, body);
    if (!stream.opened) {
        Finding* finding = tag.cut ? nullptr : m_sink.add(Rule::AAC_CONFIG_BAD, tag);
        if (finding && m_any_frame) // only the first audio tag keeps the file closed
            finding->explains = SHOWN_NOTHING;
        return;
    }
    if (std::find(std::begin(AAC_RATES), std::end(AAC_RATES), stream.sample_rate) ==
        std::end(AAC_RATES)) {
        if (Finding* finding = m_sink.add(Rule::AAC_RATE_0, tag))
            finding->detail = format("%d Hz", int{stream.sample_rate});
    }
    if (stream.channels == 0)
        m_sink.add(Rule::AAC_CHANNELS_0, tag);
    else if (stream.channels == 8)
        m_sink.add(Rule::AAC_CHANNELS_7, tag);
}

void AudioCheck::finish()
{
    if (m_first && m_any_frame && !m_configured && m_first->body.codec.fourcc == 0 &&
        m_first->body.codec.number == AAC)
        m_sink.add(Rule::AAC_NO_CONFIG, *m_first);
}

} // namespace zoflv_inspect
