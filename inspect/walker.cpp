// SPDX-License-Identifier: Apache-2.0
#include "inspect/walker.h"

#include "inspect/tag_body.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace zoflv_inspect {

namespace {

constexpr uint32_t FILE_HEADER_SIZE = 9;
constexpr uint8_t RESERVED_BITS = 0xC0; // of TagType
constexpr int HEADERS_TO_GO_ON = 3;
constexpr uint64_t FREE_LOOKS = 1024; // outside the window while searching, and one more for
constexpr uint64_t LOOK_EVERY = 64;   // so many bytes searched

uint32_t be24(const uint8_t* p)
{
    return uint32_t{p[0]} << 16 | uint32_t{p[1]} << 8 | p[2];
}

uint32_t be32(const uint8_t* p)
{
    return uint32_t{p[0]} << 24 | be24(p + 1);
}

bool known_type(uint8_t type_byte)
{
    const uint8_t type = type_byte & 0x1F;
    return (type_byte & RESERVED_BITS) == 0 &&
           (type == TAG_AUDIO || type == TAG_VIDEO || type == TAG_SCRIPT);
}

// The bytes that a header to go on from can begin with.
constexpr std::array<bool, 256> make_beginnings()
{
    std::array<bool, 256> table{};
    for (const uint8_t type : {TAG_AUDIO, TAG_VIDEO, TAG_SCRIPT})
        table[type] = table[type | 0x20] = true;
    table['F'] = true;
    return table;
}
constexpr std::array<bool, 256> BEGINNINGS = make_beginnings();

Link link_of(uint32_t previous, uint32_t body_size)
{
    switch (const uint32_t right = TAG_HEADER_SIZE + body_size; previous - right) {
    case 0:
        return Link::RIGHT;
    case 4:
        return Link::PLUS_4;
    case 15:
        return Link::PLUS_15;
    default:
        if (previous == 0)
            return Link::ZERO;
        return previous == body_size ? Link::BODY : Link::OTHER_WRONG;
    }
}

// Zeros at the beginning of a block, which are many where a disk was full or a recorder reserved space.
size_t zeros_at(const uint8_t* p, size_t size)
{
    size_t count = 0;
    for (uint64_t word = 0; size - count >= sizeof word; count += sizeof word) {
        std::memcpy(&word, p + count, sizeof word);
        if (word != 0)
            break;
    }
    while (count < size && p[count] == 0)
        ++count;
    return count;
}

} // namespace

struct TagWalker::Header {
    uint8_t type_byte;
    uint32_t size;
    uint32_t time;
    uint32_t stream_id;
};

TagWalker::TagWalker(ByteSource& source, size_t window) : m_window(source, window) {}

// The 11 bytes at a position; false when the file does not have them.
bool TagWalker::header_at(int64_t offset, Header* header)
{
    const uint8_t* p = m_window.peek(offset, TAG_HEADER_SIZE);
    if (!p)
        return false;
    *header = {p[0], be24(p + 1), be24(p + 4) | uint32_t{p[7]} << 24, be24(p + 8)};
    return true;
}

// A header that can be told from other bytes: its type has six values, its stream id mostly one.
bool TagWalker::plausible(const Header& header) const
{
    return known_type(header.type_byte) &&
           (header.stream_id == 0 || header.stream_id == m_stream_id);
}

// A tag that is followed by something at `offset` is so by a header, an FLV header or the end.
bool TagWalker::leads_on(int64_t offset)
{
    Header next;
    if (header_at(offset, &next)) {
        const uint8_t* p = m_window.peek(offset, 4);
        return plausible(next) || (p && std::memcmp(p, "FLV\1", 4) == 0);
    }
    if (offset >= m_window.end())
        return offset == m_window.end();
    const uint8_t* p = m_window.peek(offset, 1); // a header that is cut
    return p && known_type(*p);
}

// Whether a tag is at a position, and all of it but `body`.
TagWalker::Verdict TagWalker::judge(int64_t offset, Tag* tag)
{
    Header header;
    if (!header_at(offset, &header))
        return Verdict::LOST;
    *tag = {};
    tag->offset = offset;
    tag->type_byte = header.type_byte;
    tag->size = tag->stored = header.size;
    tag->time = header.time;
    tag->stream_id = header.stream_id;
    const bool known = known_type(header.type_byte);
    const int64_t body_end = tag->body_offset() + header.size;
    const int64_t left = m_window.end() - body_end;
    if (left < PREVIOUS_TAG_SIZE_SIZE) {
        tag->link = Link::MISSING;
        tag->cut = left < 0;
        tag->tail = static_cast<uint8_t>(std::max<int64_t>(left, 0));
        if (tag->cut)
            tag->stored = static_cast<uint32_t>(m_window.end() - tag->body_offset());
        return !known ? Verdict::LOST : tag->cut ? Verdict::CUT : Verdict::STANDS;
    }
    const uint8_t* p =
        may_look(body_end) ? m_window.peek(body_end, PREVIOUS_TAG_SIZE_SIZE) : nullptr;
    if (!p)
        return Verdict::LOST;
    tag->previous_tag_size = be32(p);
    tag->link = link_of(tag->previous_tag_size, header.size);
    tag->tail = PREVIOUS_TAG_SIZE_SIZE;
    if (tag->link == Link::RIGHT)
        return Verdict::STANDS;
    if (!known)
        return Verdict::LOST;
    if (leads_on(body_end + PREVIOUS_TAG_SIZE_SIZE))
        return Verdict::STANDS;
    if (leads_on(body_end)) {
        tag->link = Link::MISSING;
        tag->previous_tag_size = tag->tail = 0;
        return Verdict::STANDS;
    }
    // Wrong in the way of the tag before: what follows is damaged, not this one.
    const bool usual = m_any_tag && tag->link == m_usual && tag->link != Link::OTHER_WRONG;
    return usual ? Verdict::STANDS : Verdict::LOST;
}

bool TagWalker::file_header_at(int64_t offset, FileHeader* header)
{
    const uint8_t* p = m_window.peek(offset, FILE_HEADER_SIZE);
    if (!p || std::memcmp(p, "FLV", 3) != 0)
        return false;
    *header = {};
    header->offset = offset;
    header->version = p[3];
    header->flags = p[4];
    header->data_offset = be32(p + 5);
    return true;
}

// Finds where the tags begin after a file header: where its DataOffset says, else after the 9 bytes
// that it has always had, and in both places also without a PreviousTagSize0.
void TagWalker::place_first_tag(FileHeader* header)
{
    const uint32_t told = std::max(header->data_offset, FILE_HEADER_SIZE);
    const struct {
        uint32_t size;
        uint32_t link;
    } places[] = {{told, 4}, {FILE_HEADER_SIZE, 4}, {told, 0}, {FILE_HEADER_SIZE, 0}};

    for (const auto& place : places) {
        const int64_t first = header->offset + place.size + place.link;
        Tag tag;
        if (place.size > UINT32_MAX - 4 || first > m_window.end() ||
            (first < m_window.end() && judge(first, &tag) == Verdict::LOST))
            continue;
        header->stored = place.size + place.link;
        header->followed = place.size == header->data_offset;
        header->previous_tag_size = place.link != 0;
        break;
    }
    if (header->stored == 0) { // damage comes next
        const uint8_t* p = m_window.peek(header->offset + FILE_HEADER_SIZE, 4);
        header->previous_tag_size = p && be32(p) == 0;
        header->stored = FILE_HEADER_SIZE + (header->previous_tag_size ? 4U : 0U);
    }
    if (header->previous_tag_size) {
        const uint8_t* p = m_window.peek(header->end() - PREVIOUS_TAG_SIZE_SIZE, 4);
        header->previous_tag_size_0 = p ? be32(p) : 0;
    }
}

// An FLV header inside the file: as a writer would begin one, and followed by a tag or the end.
bool TagWalker::inner_header_stands(int64_t offset, FileHeader* header)
{
    if (!file_header_at(offset, header) || header->version != 1 || (header->flags & ~5U) != 0 ||
        header->data_offset != FILE_HEADER_SIZE)
        return false;
    place_first_tag(header);
    return header->followed;
}

// While searching, looks outside the window are rationed: bytes made for it could ask for one each.
bool TagWalker::may_look(int64_t offset)
{
    if (!m_searching || m_window.held(offset, PREVIOUS_TAG_SIZE_SIZE + TAG_HEADER_SIZE))
        return true;
    return ++m_far_looks <= FREE_LOOKS + m_searched / LOOK_EVERY;
}

// Whether headers from a position on lead from one to the next, so many that it is no chance.
bool TagWalker::linked(int64_t offset)
{
    Header header;
    Link link = Link::RIGHT;
    for (int found = 0;;) {
        if (!header_at(offset, &header)) {
            // The chain ends at the end of the file, at best exactly.
            const int64_t left = m_window.end() - offset;
            return left >= 0 && link == Link::RIGHT && found >= (left == 0 ? 1 : 2);
        }
        if (!plausible(header)) {
            FileHeader inner;
            return found > 0 && link == Link::RIGHT && file_header_at(offset, &inner);
        }
        if (++found == HEADERS_TO_GO_ON)
            return true;
        offset += TAG_HEADER_SIZE + int64_t{header.size};
        const int64_t left = m_window.end() - offset;
        if (left < PREVIOUS_TAG_SIZE_SIZE)
            return found >= 2 && link == Link::RIGHT;
        if (!may_look(offset))
            return false;
        const uint8_t* p = m_window.peek(offset, PREVIOUS_TAG_SIZE_SIZE);
        if (!p)
            return false;
        link = link_of(be32(p), header.size);
        if (link == Link::RIGHT) {
            offset += PREVIOUS_TAG_SIZE_SIZE;
            continue;
        }
        // Else all must be wrong in the way of the tags before, if there were any.
        if (header.size == 0 || (m_any_tag && m_usual == Link::RIGHT))
            return false;
        if (m_usual == Link::MISSING)
            link = Link::MISSING;
        else if (m_any_tag && link != m_usual)
            return false;
        else
            offset += PREVIOUS_TAG_SIZE_SIZE;
    }
}

// Whether the walk can go on at a position whose first byte does not speak against it.
bool TagWalker::stands_at(int64_t offset)
{
    FileHeader header;
    ++m_candidates;
    const uint8_t* p = m_window.peek(offset, 1);
    return p && (*p == 'F' ? inner_header_stands(offset, &header) : linked(offset));
}

// The first position from `from` on where the walk can go on; -1 when there is none.
// @param zeros  cleared when a byte before it is not 0
int64_t TagWalker::find_next(int64_t from, bool* zeros)
{
    m_searching = true;
    for (int64_t at = from;;) {
        size_t count = 0;
        m_window.set_base(at);
        const uint8_t* p = m_window.ahead(&count);
        if (!p) {
            m_searching = false;
            return -1;
        }
        // In the first half of what is held, so that most links lie in it too.
        if (at + static_cast<int64_t>(count) < m_window.end())
            count = (count + 1) / 2;
        for (size_t i = 0; i < count; ++i) {
            if (p[i] == 0) {
                i += zeros_at(p + i, count - i) - 1;
                continue;
            }
            if (BEGINNINGS[p[i]] && stands_at(at + static_cast<int64_t>(i))) {
                m_searching = false;
                return at + static_cast<int64_t>(i);
            }
            *zeros = false;
        }
        m_searched += count;
        at += static_cast<int64_t>(count);
    }
}

const Item* TagWalker::next()
{
    if (m_ended)
        return nullptr;
    m_window.set_base(m_at);
    FileHeader header;
    if (m_at == 0 && !m_begun && file_header_at(0, &header)) {
        place_first_tag(&header);
        return give_header(header);
    }
    if (m_at >= m_window.end()) {
        m_window.refresh_end();
        if (m_at >= m_window.end())
            return give_end();
    }
    Tag tag;
    Verdict verdict = judge(m_at, &tag);
    while ((verdict != Verdict::STANDS || tag.link == Link::MISSING) && m_window.refresh_end())
        verdict = judge(m_at, &tag);
    if (tag.end() >= m_window.end() && tag.link == Link::MISSING)
        m_window.fix_end(); // what is written from now on would be taken for the next tag
    if (verdict == Verdict::STANDS)
        return give_tag(tag);
    if (inner_header_stands(m_at, &header))
        return give_header(header);
    return give_lost(tag, verdict == Verdict::CUT);
}

const Item* TagWalker::give_header(const FileHeader& header)
{
    m_item.kind = m_begun ? ItemKind::INNER_HEADER : ItemKind::FILE_HEADER;
    m_item.header = header;
    m_begun = true;
    m_at = header.end();
    m_end_kind = EndKind::AFTER_TAG;
    return &m_item;
}

const Item* TagWalker::give_tag(const Tag& tag)
{
    m_item.kind = ItemKind::TAG;
    m_item.tag = tag;
    const size_t head = std::min<size_t>(tag.stored, BODY_HEAD_SIZE);
    const uint8_t* p = m_window.peek(tag.body_offset(), head);
    if (p)
        m_item.tag.body = read_body_info(tag.type(), p, head);
    m_usual = tag.link;
    m_stream_id = tag.stream_id;
    m_any_tag = true;
    m_at = tag.end();
    m_end_kind = tag.cut                     ? EndKind::CUT_TAG
                 : tag.link == Link::MISSING ? EndKind::NO_LINK
                                             : EndKind::AFTER_TAG;
    return &m_item;
}

// Gives what is lost from here on, unless the tag here is only cut.
const Item* TagWalker::give_lost(const Tag& tag, bool cut)
{
    const uint8_t* p = m_window.peek(m_at, 1);
    bool zeros = p && *p == 0;
    p = m_window.peek(m_at, 3);
    const bool id3 = p && std::memcmp(p, "ID3", 3) == 0;
    const int64_t start = m_at;
    int64_t end = find_next(start + 1, &zeros);
    if (end < 0) {
        m_window.fix_end();
        if (cut) // its size is not damaged, or it would have ended before another tag
            return give_tag(tag);
        end = m_window.end();
    }
    if (end <= start) // the file has shrunk
        return give_end();
    m_item.kind = ItemKind::LOST;
    m_item.lost = {start, end - start,
                   zeros ? LostKind::ZEROS
                   : id3 ? LostKind::ID3
                         : LostKind::DAMAGE,
                   known_type(tag.type_byte)};
    m_at = end;
    m_end_kind = EndKind::LOST;
    return &m_item;
}

const Item* TagWalker::give_end()
{
    m_ended = true;
    m_item.kind = ItemKind::END;
    m_item.end = {m_at, m_window.failed() ? EndKind::READ_FAILED : m_end_kind};
    return &m_item;
}

View TagWalker::body(const Tag& tag, uint32_t from, uint32_t size)
{
    if (from >= tag.stored)
        return {};
    size = std::min(size, tag.stored - from);
    const int64_t offset = tag.body_offset() + from;
    if (const uint8_t* p = m_window.held(offset, size))
        return {p, size};
    if (m_scratch.size() < size)
        m_scratch.resize(size);
    return {m_scratch.data(), m_window.read(offset, m_scratch.data(), size)};
}

} // namespace zoflv_inspect
