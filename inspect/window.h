// SPDX-License-Identifier: Apache-2.0
/// @file
/// A window that slides over a byte source: large reads, each byte once.
#pragma once

#include "inspect/byte_source.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zoflv_inspect {

class Window {
public:
    /// Bytes that a look outside the window can ask for.
    static constexpr size_t FAR_SIZE = 32;

    /// @param source    outlives the window
    /// @param capacity  bytes held at most; 4 times FAR_SIZE at least
    Window(ByteSource& source, size_t capacity);

    /// Where the file ends, as far as is known: the source's size, less when a read came short.
    int64_t end() const { return m_end; }
    /// Asks the source again, since a file may have grown; does nothing after a read came short.
    /// @return whether it has grown
    bool refresh_end();
    /// The file ends where it is known to, even if it grows.
    void fix_end() { m_short = true; }
    /// A read failed. What comes after is treated as past the end.
    bool failed() const { return m_failed; }

    /// The position before which nothing is asked for any more, not below the one set before.
    void set_base(int64_t base) { m_base = base; }

    /// Bytes, valid until the next call. Slides the window where that pays, else reads what is
    /// asked for alone.
    /// @param size  at most FAR_SIZE
    /// @return null when the file does not have all of them
    const uint8_t* peek(int64_t offset, size_t size)
    {
        if (offset >= m_start && offset + static_cast<int64_t>(size) <= m_filled)
            return m_buffer.data() + (offset - m_start);
        return peek_outside(offset, size);
    }
    /// The bytes from the base on that the window holds, after a slide if it held less than half of
    /// what it can; none at the end of the file.
    const uint8_t* ahead(size_t* size);
    /// Bytes that the window happens to hold, else null.
    const uint8_t* held(int64_t offset, size_t size) const
    {
        return offset >= m_start && offset + static_cast<int64_t>(size) <= m_filled
                   ? m_buffer.data() + (offset - m_start)
                   : nullptr;
    }
    /// Reads into the caller's memory, past the window.
    /// @return bytes read, fewer than `size` at the end or when the read failed
    size_t read(int64_t offset, uint8_t* buffer, size_t size);

    uint64_t reads() const { return m_reads; }           ///< calls of the source
    uint64_t bytes_read() const { return m_bytes_read; } ///< delivered by them

private:
    bool can_slide_to(int64_t offset, size_t size) const;
    const uint8_t* peek_outside(int64_t offset, size_t size);
    void slide();

    ByteSource& m_source;
    std::vector<uint8_t> m_buffer;
    int64_t m_base = 0;
    int64_t m_start = 0;  ///< position of the buffer's first byte
    int64_t m_filled = 0; ///< position after its last
    int64_t m_end = 0;
    bool m_short = false; ///< m_end is final
    bool m_failed = false;
    uint64_t m_reads = 0;
    uint64_t m_bytes_read = 0;
    uint8_t m_far[FAR_SIZE] = {}; ///< the last look outside
    int64_t m_far_start = 0;
    size_t m_far_size = 0;
};

} // namespace zoflv_inspect
