// SPDX-License-Identifier: Apache-2.0
#include "inspect/expected.h"

#include <algorithm>

namespace zoflv_inspect {

namespace {

constexpr uint8_t VIDEO_AVC = 7;
constexpr uint32_t AVC_HEADER_SIZE = 5; // frame type and codec, packet type, CompositionTime
constexpr uint32_t START_CODE_SIZE = 4;
constexpr uint32_t RECORD_HEAD_SIZE = 5; // of an AVCDecoderConfigurationRecord, before the counts

/// Reads numbers from a body by position, some of it at a time: a unit's bytes are not looked at.
class BodyReader {
public:
    BodyReader(const Tag& tag, TagWalker& walker, uint32_t from)
        : m_tag(tag), m_walker(walker), m_at(from)
    {}

    uint32_t left() const { return m_tag.stored - m_at; }
    /// Big-endian; only with as many bytes left.
    uint32_t u(uint32_t bytes)
    {
        constexpr uint32_t chunk_size = 4096;
        if (m_at < m_start || m_at + bytes > m_start + m_view.size) {
            m_start = m_at;
            m_view = m_walker.body(m_tag, m_at, std::min(left(), chunk_size));
        }
        uint32_t value = 0;
        for (uint32_t i = 0; i < bytes; ++i, ++m_at) {
            const size_t index = m_at - m_start;
            value = value << 8 | (index < m_view.size ? m_view.data[index] : 0U);
        }
        return value;
    }
    void skip(uint32_t bytes) { m_at += std::min(bytes, left()); }

private:
    const Tag& m_tag;
    TagWalker& m_walker;
    uint32_t m_at;
    uint32_t m_start = 0;
    View m_view{};
};

/// The size of NAL units with start codes in place of their lengths; a length that goes past the
/// tag is cut to it.
uint32_t size_with_start_codes(const Tag& tag, TagWalker& walker, uint32_t length_size)
{
    BodyReader body(tag, walker, AVC_HEADER_SIZE);
    uint32_t size = 0;
    while (body.left() > length_size) {
        const uint32_t length = body.u(length_size);
        const uint32_t unit = std::min(length, body.left());
        size += START_CODE_SIZE + unit;
        body.skip(unit);
    }
    return size;
}

/// The size of a configuration's parameter sets, each after a start code.
uint32_t size_of_parameter_sets(const Tag& tag, TagWalker& walker)
{
    constexpr uint32_t set_count_masks[] = {0x1F, 0xFF}; // sequence, picture parameter sets
    BodyReader body(tag, walker, AVC_HEADER_SIZE + RECORD_HEAD_SIZE);
    uint32_t size = 0;
    for (const uint32_t mask : set_count_masks) {
        if (body.left() < 1)
            break;
        for (uint32_t count = body.u(1) & mask; count > 0 && body.left() >= 2; --count) {
            const uint32_t length = body.u(2);
            size += START_CODE_SIZE + length;
            body.skip(length);
        }
    }
    return size;
}

/// The bytes of a body before the frame. VP6's adjustment byte is part of the frame.
uint32_t head_size(const Tag& tag)
{
    return tag.body.enhanced || tag.body.packet_type >= 0 ? tag.body.payload : 1;
}

} // namespace

std::optional<ExpectedFrame> FrameRules::expect(const Tag& tag, TagWalker& walker)
{
    const BodyInfo& body = tag.body;
    if (!body.known)
        return std::nullopt;
    if (m_kind == Kind::VIDEO && !body.enhanced && body.codec.number == VIDEO_AVC)
        return expect_avc(tag, walker);
    const uint32_t head = head_size(tag);
    if (tag.stored <= head || body.packet == Packet::END || body.packet == Packet::METADATA)
        return std::nullopt;
    ExpectedFrame frame;
    frame.counts = body.packet != Packet::CONFIG;
    frame.keyframe = m_kind == Kind::VIDEO && body.keyframe;
    frame.codec = body.codec;
    frame.size = tag.size - head;
    frame.dts_ms = tag.dts_ms();
    frame.offset = tag.offset;
    frame.end = tag.end();
    return frame;
}

std::optional<ExpectedFrame> FrameRules::expect_avc(const Tag& tag, TagWalker& walker)
{
    const BodyInfo& body = tag.body;
    ExpectedFrame frame;
    frame.codec = body.codec;
    frame.dts_ms = tag.dts_ms();
    frame.offset = tag.offset;
    frame.end = tag.end();
    if (body.packet == Packet::CONFIG) {
        m_configured = true;
        if (tag.stored >= AVC_HEADER_SIZE + RECORD_HEAD_SIZE)
            m_length_size =
                (BodyReader(tag, walker, AVC_HEADER_SIZE + RECORD_HEAD_SIZE - 1).u(1) & 3) + 1;
        frame.counts = false;
        frame.size = size_of_parameter_sets(tag, walker);
        return frame;
    }
    if (body.packet != Packet::FRAME || tag.stored <= AVC_HEADER_SIZE)
        return std::nullopt;
    if (!m_configured) {
        ++m_early;
        return std::nullopt;
    }
    frame.keyframe = body.keyframe;
    frame.size = size_with_start_codes(tag, walker, m_length_size);
    return frame;
}

} // namespace zoflv_inspect
