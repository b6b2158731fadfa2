// SPDX-License-Identifier: Apache-2.0
#include "inspect/tag_trail.h"

#include "inspect/tag_body.h"
#include "inspect/walker.h"

namespace zoflv_inspect {

namespace {

constexpr uint8_t VIDEO_AVC = 7;
constexpr uint8_t PACKET_FRAME = 1; // AVCPacketType, AACPacketType
constexpr uint32_t AVC_HEADER_SIZE = 5;
constexpr uint32_t TAG_OVERHEAD = TAG_HEADER_SIZE + PREVIOUS_TAG_SIZE_SIZE;
constexpr size_t SMALL_WINDOW = 4096; // for the few tags before the first one that is read
constexpr int64_t US_PER_MS = 1000;
constexpr int64_t NOWHERE = INT64_MAX;

uint32_t be24(const uint8_t* p)
{
    return uint32_t{p[0]} << 16 | uint32_t{p[1]} << 8 | p[2];
}

} // namespace

TagTrail::TagTrail(ByteSource& bytes, Kind kind)
    : zoflv_host::ReadWatcher(EVERYWHERE), m_bytes(bytes), m_kind(kind)
{}

// Which tags are plain frames of the codec. False when there are none.
bool TagTrail::learn(const Codec& codec)
{
    const uint8_t type = m_kind == Kind::VIDEO ? TAG_VIDEO : TAG_AUDIO;
    for (size_t first = 0; first < m_plain.size(); ++first) {
        const uint8_t head[AVC_HEADER_SIZE] = {static_cast<uint8_t>(first), PACKET_FRAME};
        const BodyInfo info = read_body_info(type, head, sizeof head);
        m_plain[first] = info.packet == Packet::FRAME && !info.enhanced && info.codec == codec;
        if (m_plain[first])
            m_head_size = info.packet_type >= 0 ? info.payload : 1;
    }
    m_avc = m_kind == Kind::VIDEO && codec.number == VIDEO_AVC;
    m_codec = codec;
    return m_head_size > 0;
}

// Whether the first tag that the reader looks at is one of the file's, all tags before it lead there,
// and no frame is among them.
bool TagTrail::begin(int64_t first)
{
    TagWalker walker(m_bytes, SMALL_WINDOW);
    FrameRules rules(m_kind);
    std::optional<Codec> codec;
    for (;;) {
        const Item* const item = walker.next();
        if (item->kind == ItemKind::FILE_HEADER)
            continue;
        if (item->kind != ItemKind::TAG || item->tag.offset > first)
            return false;
        const Tag& tag = item->tag;
        if (tag.offset == first)
            break;
        if (m_kind == Kind::VIDEO ? !tag.video() : !tag.audio())
            continue;
        const auto frame = rules.expect(tag, walker);
        if ((frame && frame->counts) || (codec && tag.body.codec != *codec))
            return false;
        codec = tag.body.codec;
    }
    m_length_size = rules.avc_length_size();
    return !codec || learn(*codec);
}

void TagTrail::await_after(Step step, int64_t offset)
{
    m_step = step;
    await(offset);
}

void TagTrail::on_read(int64_t offset, const void* data, ssize_t count)
{
    const auto* const bytes = static_cast<const uint8_t*>(data);
    bool good = false;
    switch (m_step) {
    case Step::FIRST:
        if (count != TAG_HEADER_SIZE)
            return;
        await(NOWHERE); // not for reads of its own
        good = begin(offset) && take_header(offset, bytes);
        break;
    case Step::HEADER:
        good = count == TAG_HEADER_SIZE && take_header(offset, bytes);
        break;
    case Step::PACKET_TYPE:
        good = count == 1 && *bytes == PACKET_FRAME;
        await_after(Step::COMPOSITION, offset + 1);
        break;
    case Step::COMPOSITION:
        good = count == 3;
        if (good)
            m_ahead[m_seen % 2].place.pts_us +=
                (static_cast<int64_t>(be24(bytes) ^ 0x800000) - 0x800000) * US_PER_MS;
        await_after(Step::UNIT_LENGTH, offset + 3);
        break;
    case Step::UNIT_LENGTH:
        good = take_unit_length(count);
        break;
    }
    if (good)
        return;
    m_lost = true;
    await(NOWHERE);
}

bool TagTrail::take_header(int64_t offset, const uint8_t* header)
{
    const uint8_t type = header[0];
    const uint32_t size = be24(header + 1);
    // What a walk would take for a tag, whatever follows.
    if ((type != TAG_AUDIO && type != TAG_VIDEO && type != TAG_SCRIPT) || be24(header + 8) != 0)
        return false;
    m_next = offset + TAG_OVERHEAD + size;
    if (type == (m_kind == Kind::VIDEO ? TAG_VIDEO : TAG_AUDIO))
        return take_own(offset, header, size);
    await_after(Step::HEADER, m_next);
    return true;
}

bool TagTrail::take_own(int64_t offset, const uint8_t* header, uint32_t size)
{
    if (m_seen - m_delivered == m_ahead.size())
        return false;
    // The reader does not look at a body's first byte: still each is read once.
    uint8_t first = 0;
    const int64_t body = offset + TAG_HEADER_SIZE;
    if (m_bytes.read_at(body, &first, 1) != 1)
        return false;
    // Of AVC and AAC, whose heads are longer, a configuration comes first.
    if (!m_codec && (!learn(read_body_info(header[0], &first, 1).codec) || m_head_size > 1))
        return false;
    if (!m_plain[first] || (m_avc ? size < 2 : size <= m_head_size))
        return false;
    Ahead& ahead = m_ahead[m_seen % 2];
    ahead.dts_ms = static_cast<int32_t>(be24(header + 4) | uint32_t{header[7]} << 24);
    ahead.place = {offset, ahead.dts_ms * US_PER_MS, m_kind == Kind::VIDEO && first >> 4 == 1};
    ahead.frame_size = m_avc ? 0 : size - m_head_size;
    if (m_avc && size > AVC_HEADER_SIZE) {
        await_after(Step::PACKET_TYPE, body + 1);
        return true;
    }
    if (!m_avc)
        ++m_seen; // else there is no frame in it, only its header
    await_after(Step::HEADER, m_next);
    return true;
}

// The units are as long as expected when so are their length fields: those of the reader do not change.
bool TagTrail::take_unit_length(ssize_t count)
{
    ++m_seen;
    await_after(Step::HEADER, m_next);
    return count == static_cast<ssize_t>(m_length_size);
}

std::optional<FramePlace> TagTrail::deliver(int64_t time_us, uint64_t size)
{
    if (m_lost || m_seen == m_delivered)
        return std::nullopt;
    const Ahead& ahead = m_ahead[m_delivered % 2];
    if (ahead.dts_ms * US_PER_MS != time_us || (ahead.frame_size != 0 && ahead.frame_size != size))
        return std::nullopt;
    ++m_delivered;
    m_proven = ahead.place.offset + 1;
    return ahead.place;
}

bool TagTrail::complete(int64_t file_size) const
{
    return !m_lost && m_step == Step::HEADER && m_next == file_size && m_seen == m_delivered;
}

} // namespace zoflv_inspect
