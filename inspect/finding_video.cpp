// SPDX-License-Identifier: Apache-2.0
#include "inspect/avc_sps.h"
#include "inspect/avc_units.h"
#include "inspect/codec_names.h"
#include "inspect/finding_detectors.h"

#include <algorithm>
#include <cinttypes>

namespace zoflv_inspect {

namespace {

constexpr uint8_t AVC = 7;
constexpr uint32_t AVC_HEADER = 5;      // bytes before the record or the NAL units
constexpr uint64_t SEARCHED_TAGS = 100; // for the picture size, from the first video tag on
constexpr uint8_t READABLE_SPS = 0x67;  // nal_ref_idc 3, nal_unit_type 7
constexpr uint32_t START_CODE = 4;

bool is_avc(const Tag& tag)
{
    return tag.body.codec.fourcc == 0 && tag.body.codec.number == AVC;
}

std::string size_text(const AvcSize& size)
{
    return format("%" PRId64 " x %" PRId64, size.width, size.height);
}

/// @param sps  with its first byte at least
std::string profile_text(const View& sps)
{
    const char* const name = sps.size > 2 ? avc_profile_name(sps.data[1], sps.data[2]) : nullptr;
    return sps.size < 2 ? "a cut set"
                        : format("profile %u", unsigned{sps.data[1]}) +
                              (name ? std::string(", ") + name : std::string());
}

/// Why the demuxer does not read a sequence parameter set.
std::string unread_text(const View& sps)
{
    const uint8_t first = sps.size > 0 ? sps.data[0] : uint8_t{0};
    if (first != READABLE_SPS)
        return format("its first byte is 0x%02X in place of 0x%02X", unsigned{first},
                      unsigned{READABLE_SPS});
    const std::optional<AvcSize> size = read_avc_size(sps);
    return size ? "its picture size, " + size_text(*size) + ", is misread, in " + profile_text(sps)
                : "it gives no picture size";
}

} // namespace

void VideoCheck::see(const Tag& tag, TagWalker& walker, uint64_t tag_number)
{
    if (!tag.body.known || tag.size < 2 || tag.type_byte != TAG_VIDEO)
        return;
    if (!m_first) {
        m_first = tag;
        m_search_from = tag_number;
    } else if (tag.body.codec != m_first->body.codec) {
        if (Finding* finding = m_sink.add(Rule::CODEC_CHANGE, tag))
            finding->detail = "from " + codec_name(true, m_first->body.codec) + " to " +
                              codec_name(true, tag.body.codec);
    }
    if (!is_flv_10_1(true, tag.body.codec)) {
        if (Finding* finding = m_sink.add(Rule::CODEC_NEWER, tag))
            finding->detail = codec_name(true, tag.body.codec);
    }
    search_size(tag, walker, tag_number);
    if (is_avc(tag))
        see_avc(tag, walker);
    const bool can_be_decoded = !is_avc(tag) || m_configured;
    if (tag.body.packet != Packet::FRAME || !can_be_decoded || m_delivered)
        return;
    m_delivered = true;
    if (!tag.body.keyframe)
        m_sink.add(Rule::VIDEO_FIRST_NOT_KEY, tag);
}

// Where the demuxer looks for the picture size: in each frame of the older codecs, as far as the
// search goes. AVC has it in the configuration.
void VideoCheck::search_size(const Tag& tag, TagWalker& walker, uint64_t tag_number)
{
    if (m_size_known || is_avc(tag) || tag_number - m_search_from >= SEARCHED_TAGS)
        return;
    const ReadStream stream = ask_stream(TAG_VIDEO, walker.body(tag));
    m_size_known = stream.opened && stream.width > 0 && stream.height > 0;
}

void VideoCheck::see_avc(const Tag& tag, TagWalker& walker)
{
    if (tag.body.packet == Packet::CONFIG) {
        see_config(tag, walker);
        return;
    }
    const bool empty = tag.size <= AVC_HEADER;
    if (tag.body.packet == Packet::END) {
        if (empty && !m_end)
            m_end = tag; // with more bytes than that it harms nothing
        return;
    }
    if (empty) {
        m_sink.add(Rule::TAG_NO_PAYLOAD, tag);
        return;
    }
    if (tag.body.packet != Packet::FRAME)
        return;
    if (m_end) {
        m_sink.add(Rule::AVC_END_MIDDLE, *m_end);
        m_end.reset();
    }
    if (!m_first_frame)
        m_first_frame = tag;
    if (m_configured)
        see_units(tag, walker);
}

void VideoCheck::see_config(const Tag& tag, TagWalker& walker)
{
    const View body = walker.body(tag);
    const size_t head = std::min<size_t>(body.size, AVC_HEADER);
    const View record{body.data + head, body.size - head};
    if (m_configured && m_config.size() == record.size &&
        std::equal(m_config.begin(), m_config.end(), record.data)) {
        m_sink.add(Rule::AVC_CONFIG_AGAIN, tag);
        return;
    }
    if (m_configured)
        m_sink.add(Rule::AVC_CONFIG_CHANGED, tag);
    else if (m_first_frame)
        m_sink.add(Rule::AVC_LATE_CONFIG, tag);
    const AvcRecord facts = read_avc_record(record);
    const bool first = !m_configured; // the track's format
    m_config.assign(record.data, record.data + record.size);
    m_configured = true;
    m_length_size = facts.length_size;
    if (!facts.whole) {
        m_sink.add(Rule::AVC_CONFIG_BAD, tag);
        return;
    }
    const ReadStream stream = ask_stream(TAG_VIDEO, body);
    if (stream.opened && stream.codec_data_size > 0) {
        if (first)
            check_size(tag, facts.sps, stream);
        return;
    }
    if (Finding* finding = m_sink.add(Rule::AVC_SPS_UNREAD, tag))
        finding->detail = unread_text(facts.sps);
}

// A profile whose fields the demuxer does not know, or emulation prevention, shifts what it reads.
void VideoCheck::check_size(const Tag& tag, const View& sps, const ReadStream& stream)
{
    const std::optional<AvcSize> size = read_avc_size(sps);
    if (!size || (size->width == stream.width && size->height == stream.height))
        return;
    if (Finding* finding = m_sink.add(Rule::AVC_SIZE_MISREAD, tag)) {
        finding->detail = size_text(*size) + " is read as " +
                          size_text({stream.width, stream.height}) + ", in " + profile_text(sps);
        finding->explains = SHOWN_NOTHING; // unless the device says that it is too large
    }
}

void VideoCheck::see_units(const Tag& tag, TagWalker& walker)
{
    if (tag.cut)
        return;
    const View payload = walker.body(tag, AVC_HEADER, tag.stored - AVC_HEADER);
    const UnitFacts units = read_units(payload, m_length_size);
    // As delivered: start codes in place of lengths.
    const uint64_t grown = payload.size + units.units * (START_CODE - m_length_size);
    m_sizes.see(tag, static_cast<uint32_t>(std::min<uint64_t>(grown, INT32_MAX)));
    if (units.start_codes)
        m_sink.add(Rule::AVC_START_CODES, tag);
    else if (!units.fit)
        m_sink.add(Rule::AVC_NAL_LENGTH, tag);
    else if (units.slices)
        check_key_flag(tag, units.idr, units.recovery);
}

void VideoCheck::check_key_flag(const Tag& tag, bool idr, bool recovery)
{
    if (tag.body.keyframe && !idr && !recovery)
        m_sink.add(Rule::AVC_KEY_FLAG, tag, "flagged, and has no instantaneous refresh");
    else if (!tag.body.keyframe && idr)
        m_sink.add(Rule::AVC_KEY_FLAG, tag, "not flagged, and has an instantaneous refresh");
}

void VideoCheck::finish(const KnownMetadata& metadata)
{
    if (!m_first)
        return;
    if (m_first_frame && !m_configured)
        m_sink.add(Rule::AVC_NO_CONFIG, *m_first_frame);
    const bool sized = metadata.read.width >= 1 && metadata.read.height >= 1;
    if (!m_size_known && !sized && !is_avc(*m_first) &&
        !m_sink.has(Rule::CODEC_NEWER, StreamKind::VIDEO))
        m_sink.add(Rule::VIDEO_NO_SIZE, *m_first);
}

} // namespace zoflv_inspect
