// SPDX-License-Identifier: Apache-2.0
#include "inspect/finding_detectors.h"
#include "inspect/words.h"

#include <algorithm>
#include <cinttypes>

namespace zoflv_inspect {

namespace {

constexpr uint8_t FLAG_VIDEO = 1;
constexpr uint8_t FLAG_AUDIO = 4;
constexpr uint32_t HEADER_SIZE = 9;
constexpr uint8_t RESERVED_TYPE_BITS = 0xC0;
constexpr uint64_t SEARCHED_TAGS = 100;         // for a stream that the header announces
constexpr uint64_t SEARCHED_WITHOUT_FLAGS = 10; // for streams when it announces none

const char* name_of(StreamKind kind)
{
    return kind == StreamKind::AUDIO ? "audio" : "video";
}

std::string bytes_text(int64_t count)
{
    return counted(static_cast<uint64_t>(count), "byte");
}

Rule rule_of(Link link)
{
    switch (link) {
    case Link::ZERO:
        return Rule::PREV_ZERO;
    case Link::BODY:
        return Rule::PREV_BODY;
    case Link::PLUS_4:
        return Rule::PREV_PLUS4;
    case Link::PLUS_15:
        return Rule::PREV_PLUS15;
    default:
        return Rule::PREV_OTHER;
    }
}

} // namespace

void StructureCheck::see(const Item& item)
{
    const bool at_end = item.kind == ItemKind::END;
    settle_lost(at_end);
    settle_link(at_end);
    switch (item.kind) {
    case ItemKind::FILE_HEADER:
        see_header(item.header);
        break;
    case ItemKind::INNER_HEADER:
        m_sink.add(Rule::HEADER_INNER, StreamKind::FILE, item.header.offset);
        break;
    case ItemKind::TAG:
        see_tag(item.tag);
        break;
    case ItemKind::LOST:
        see_lost(item.lost);
        break;
    case ItemKind::END:
        see_end(item.end);
        break;
    }
    ++m_items;
}

void StructureCheck::see_header(const FileHeader& header)
{
    m_header = header;
    if (header.version != 1) {
        if (Finding* finding = m_sink.add(Rule::HEADER_VERSION, StreamKind::FILE, header.offset))
            finding->detail = format("version %u", unsigned{header.version});
    }
    if (header.data_offset != HEADER_SIZE) {
        const bool right = header.followed && header.data_offset > HEADER_SIZE;
        const Rule rule = right ? Rule::HEADER_LONGER : Rule::HEADER_DATA_OFFSET;
        if (Finding* finding = m_sink.add(rule, StreamKind::FILE, header.offset))
            finding->detail = format("DataOffset %" PRIu32, header.data_offset);
    }
    if (header.followed && !header.previous_tag_size) {
        if (Finding* finding = m_sink.add(Rule::PREV_MISSING, StreamKind::FILE, header.end()))
            finding->detail = "before the first tag";
    }
    if (header.previous_tag_size_0 != 0) {
        if (Finding* finding = m_sink.add(Rule::PREV_FIRST, StreamKind::FILE, header.end() - 4))
            finding->detail = format("%" PRIu32, header.previous_tag_size_0);
    }
    if (header.flags & ~(FLAG_AUDIO | FLAG_VIDEO)) {
        if (Finding* finding = m_sink.add(Rule::HEADER_RESERVED, StreamKind::FILE, header.offset))
            finding->detail = format("flags 0x%02X", unsigned{header.flags});
    }
}

void StructureCheck::see_lost(const LostRange& lost)
{
    if (lost.offset > 0)
        m_lost = lost; // else there is no header, which says it all
    else if (lost.kind == LostKind::ID3)
        m_sink.add(Rule::FILE_ID3, StreamKind::FILE, 0);
}

// Says what the last lost range is, now that it is known whether anything comes after it.
void StructureCheck::settle_lost(bool at_end)
{
    if (!m_lost)
        return;
    const bool zeros = m_lost->kind == LostKind::ZEROS;
    const Rule rule = at_end ? (zeros ? Rule::TAIL_ZEROS : Rule::TAIL_GARBAGE)
                             : (zeros ? Rule::DATA_ZEROS : Rule::DATA_DAMAGED);
    if (Finding* finding = m_sink.add(rule, StreamKind::FILE, m_lost->offset))
        finding->detail = bytes_text(m_lost->size);
    m_lost.reset();
}

void StructureCheck::settle_link(bool at_end)
{
    if (!m_unlinked)
        return;
    if (at_end)
        m_sink.add(Rule::PREV_LAST, *m_unlinked);
    else
        m_sink.add(Rule::PREV_MISSING, StreamKind::FILE, *m_unlinked);
    m_unlinked.reset();
}

void StructureCheck::see_tag(const Tag& tag)
{
    ++m_tags;
    check_kind(tag);
    if (tag.stream_id != 0) {
        if (Finding* finding = m_sink.add(Rule::TAG_STREAM_ID, StreamKind::FILE, tag))
            finding->detail = format("%" PRIu32, tag.stream_id);
    }
    if (tag.cut) {
        if (Finding* finding = m_sink.add(Rule::TAG_CUT, tag))
            finding->detail = grouped(tag.stored) + " of " + bytes_text(tag.size);
    } else if ((tag.audio() || tag.video()) && tag.size < 2) {
        m_sink.add(Rule::TAG_EMPTY, tag);
    }
    if (tag.link == Link::MISSING && !tag.cut)
        m_unlinked = tag;
    else if (tag.link != Link::RIGHT && tag.link != Link::MISSING)
        check_link(tag);
}

void StructureCheck::check_kind(const Tag& tag)
{
    if (!tag.audio() && !tag.video() && !tag.script()) {
        if (Finding* finding = m_sink.add(Rule::TAG_TYPE, StreamKind::FILE, tag))
            finding->detail = format("type %u", unsigned{tag.type()});
        return;
    }
    const bool reserved = (tag.type_byte & RESERVED_TYPE_BITS) != 0;
    if (reserved)
        m_sink.add(Rule::TAG_RESERVED, tag);
    else if (tag.filtered())
        m_sink.add(Rule::TAG_ENCRYPTED, tag);
    if (tag.script())
        return;
    Stream& stream = tag.audio() ? m_audio : m_video;
    ++stream.tags;
    if (stream.first_offset == NO_OFFSET)
        stream.first_offset = tag.offset;
    if (reserved || tag.filtered()) {
        ++stream.left_out;
    } else if (stream.first_number == 0) {
        stream.first_number = m_tags;
        stream.first_ms = tag.dts_ms();
    }
    if (m_tags <= SEARCHED_TAGS)
        m_searched_ms = std::max(m_searched_ms, tag.dts_ms());
}

void StructureCheck::check_link(const Tag& tag)
{
    if (Finding* finding = m_sink.add(rule_of(tag.link), StreamKind::FILE, tag))
        finding->detail = format("%" PRIu32 " after a tag of %" PRIu32 " bytes",
                                 tag.previous_tag_size, TAG_HEADER_SIZE + tag.size);
}

void StructureCheck::see_end(const End& end)
{
    if (end.kind == EndKind::READ_FAILED) {
        m_sink.add(Rule::FILE_READ_FAILED, StreamKind::FILE, end.offset);
        return;
    }
    if (end.offset == 0)
        m_sink.add(Rule::FILE_EMPTY, StreamKind::FILE, 0);
    else if (end.offset < HEADER_SIZE)
        m_sink.add(Rule::HEADER_CUT, StreamKind::FILE, 0);
    else if ((!m_header || m_header->offset != 0) && !m_sink.has(Rule::FILE_ID3, StreamKind::FILE))
        no_header();
}

void StructureCheck::no_header()
{
    if (Finding* finding = m_sink.add(Rule::FILE_NO_HEADER, StreamKind::FILE, 0))
        finding->curable = has_media(); // it may be any other file
}

void StructureCheck::check_announced(StreamKind kind, const Stream& stream, bool announced)
{
    if (!announced && stream.tags > stream.left_out) {
        m_sink.add(Rule::HEADER_HIDES, kind, stream.first_offset);
    } else if (announced && stream.tags == 0) {
        if (Finding* finding = m_sink.add(Rule::HEADER_ABSENT, kind, m_header->offset))
            finding->detail = name_of(kind);
    } else if (announced && stream.first_number > SEARCHED_TAGS) {
        if (Finding* finding = m_sink.add(Rule::HEADER_LATE, kind, stream.first_offset)) {
            finding->detail =
                format("%s begins with tag number %" PRIu64, name_of(kind), stream.first_number);
            finding->curable = stream.first_ms < m_searched_ms; // late in the file alone
        }
    }
}

void StructureCheck::finish()
{
    if (!m_header)
        return;
    if (!has_media()) {
        m_sink.add(Rule::FILE_NO_MEDIA, StreamKind::FILE, m_header->offset);
        return;
    }
    if ((m_header->flags & (FLAG_AUDIO | FLAG_VIDEO)) != 0) {
        check_announced(StreamKind::AUDIO, m_audio, (m_header->flags & FLAG_AUDIO) != 0);
        check_announced(StreamKind::VIDEO, m_video, (m_header->flags & FLAG_VIDEO) != 0);
        return;
    }
    if (Finding* finding = m_sink.add(Rule::HEADER_NO_FLAGS, StreamKind::FILE, m_header->offset)) {
        const uint64_t last = std::max(m_audio.first_number, m_video.first_number);
        if (last <= SEARCHED_WITHOUT_FLAGS) // found all the same
            finding->explains = SHOWN_NOTHING;
    }
}

} // namespace zoflv_inspect
