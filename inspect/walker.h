// SPDX-License-Identifier: Apache-2.0
/// @file
/// The tag walker: reads any file as FLV from its first byte to its last, past whatever is damaged.
#pragma once

#include "inspect/byte_source.h"
#include "inspect/tag.h"
#include "inspect/window.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zoflv_inspect {

/// What a walk has cost so far.
struct WalkCost {
    uint64_t reads = 0;      ///< calls of the source
    uint64_t bytes_read = 0; ///< delivered by them
    uint64_t candidates = 0; ///< positions in lost ranges where a header was looked for
};

/// Bytes of a file, valid until the next call of the walker that gave them.
struct View {
    const uint8_t* data = nullptr;
    size_t size = 0;
};

/// A tag stands when its header is plausible and leads on: to its own PreviousTagSize, to the next
/// header, or to the end of the file. Where none stands, bytes are lost up to the first position
/// from which three linked headers stand (fewer when they end exactly at the end of the file), or an
/// FLV header.
///
/// Bytes are read once, in large pieces, and a few again to look ahead; each is looked at a fixed
/// number of times, whatever the bytes are. Throws std::bad_alloc only.
class TagWalker {
public:
    static constexpr size_t DEFAULT_WINDOW = 512 * 1024;

    /// @param source  outlives the walker
    /// @param window  bytes read at a time and held
    explicit TagWalker(ByteSource& source, size_t window = DEFAULT_WINDOW);

    /// The next item in the order of the file, valid until the next call; null after the END item.
    const Item* next();

    /// Bytes of the current tag's body; what a small request costs is mostly nothing, since the
    /// window has the body of most tags. Memory grows to the largest request.
    /// @param from  position in the body
    /// @param size  bytes wanted; fewer are given at the end of what is stored
    View body(const Tag& tag, uint32_t from, uint32_t size);
    /// The whole body, as far as it is stored.
    View body(const Tag& tag) { return body(tag, 0, tag.stored); }

    /// The file's size, as far as is known so far.
    int64_t file_size() const { return m_window.end(); }
    WalkCost cost() const { return {m_window.reads(), m_window.bytes_read(), m_candidates}; }

private:
    struct Header;
    enum class Verdict : uint8_t { STANDS, CUT, LOST };

    bool header_at(int64_t offset, Header* header);
    bool file_header_at(int64_t offset, FileHeader* header);
    bool plausible(const Header& header) const;
    bool leads_on(int64_t offset);
    Verdict judge(int64_t offset, Tag* tag);
    void place_first_tag(FileHeader* header);
    bool linked(int64_t offset);
    bool stands_at(int64_t offset);
    bool inner_header_stands(int64_t offset, FileHeader* header);
    int64_t find_next(int64_t from, bool* zeros);
    bool may_look(int64_t offset);
    const Item* give_lost(const Tag& tag, bool cut);

    const Item* give_header(const FileHeader& header);
    const Item* give_tag(const Tag& tag);
    const Item* give_end();

    Window m_window;
    Item m_item;
    int64_t m_at = 0; ///< all before it was given
    EndKind m_end_kind = EndKind::AFTER_TAG;
    bool m_begun = false;
    bool m_ended = false;
    bool m_any_tag = false;
    bool m_searching = false;
    Link m_usual = Link::RIGHT; ///< of the last tag
    uint32_t m_stream_id = 0;   ///< of the last tag
    uint64_t m_searched = 0;    ///< bytes of lost ranges looked at
    uint64_t m_candidates = 0;
    uint64_t m_far_looks = 0;
    std::vector<uint8_t> m_scratch;
};

} // namespace zoflv_inspect
