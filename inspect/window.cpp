// SPDX-License-Identifier: Apache-2.0
#include "inspect/window.h"

#include <algorithm>
#include <cstring>

namespace zoflv_inspect {

Window::Window(ByteSource& source, size_t capacity) : m_source(source)
{
    m_end = source.size();
    if (m_end < 0) {
        m_failed = m_short = true;
        m_end = 0;
    }
    // A small file needs little more than its size, but may grow.
    const uint64_t needed = std::max<uint64_t>(static_cast<uint64_t>(m_end), 4096);
    m_buffer.resize(
        static_cast<size_t>(std::min<uint64_t>(std::max<size_t>(capacity, 4 * FAR_SIZE), needed)));
}

bool Window::refresh_end()
{
    const int64_t size = m_short ? m_end : m_source.size();
    const bool grown = size > m_end;
    m_end = grown ? size : m_end;
    return grown;
}

bool Window::can_slide_to(int64_t offset, size_t size) const
{
    // Moving less than half a window would copy the same bytes again and again.
    const auto capacity = static_cast<int64_t>(m_buffer.size());
    return (m_base - m_start >= capacity / 2 || m_filled == m_start) && offset >= m_base &&
           offset + static_cast<int64_t>(size) <= m_base + capacity;
}

const uint8_t* Window::peek_outside(int64_t offset, size_t size)
{
    if (offset > m_end || static_cast<int64_t>(size) > m_end - offset)
        return nullptr;
    if (can_slide_to(offset, size)) {
        slide();
        return held(offset, size);
    }
    if (offset < m_far_start ||
        offset + static_cast<int64_t>(size) > m_far_start + static_cast<int64_t>(m_far_size)) {
        const int64_t left = m_end - offset;
        m_far_start = offset;
        m_far_size = read(offset, m_far, static_cast<size_t>(std::min<int64_t>(left, FAR_SIZE)));
    }
    const auto skipped = static_cast<size_t>(offset - m_far_start);
    return skipped + size <= m_far_size ? m_far + skipped : nullptr;
}

const uint8_t* Window::ahead(size_t* size)
{
    const auto capacity = static_cast<int64_t>(m_buffer.size());
    if (m_base - m_start >= capacity / 2 || m_filled <= m_base)
        slide();
    *size = static_cast<size_t>(std::max<int64_t>(m_filled - m_base, 0));
    return *size > 0 ? m_buffer.data() + (m_base - m_start) : nullptr;
}

void Window::slide()
{
    const int64_t kept = m_base < m_filled ? m_filled - m_base : 0;
    if (kept > 0 && m_base > m_start)
        std::memmove(m_buffer.data(), m_buffer.data() + (m_base - m_start),
                     static_cast<size_t>(kept));
    m_start = m_base;
    m_filled = m_base + kept;
    const int64_t room = std::min(static_cast<int64_t>(m_buffer.size()) - kept, m_end - m_filled);
    if (room > 0)
        m_filled +=
            static_cast<int64_t>(read(m_filled, m_buffer.data() + kept, static_cast<size_t>(room)));
}

size_t Window::read(int64_t offset, uint8_t* buffer, size_t size)
{
    if (m_failed)
        return 0;
    ++m_reads;
    const int64_t count = m_source.read_at(offset, buffer, size);
    m_failed = count < 0;
    const size_t got =
        static_cast<size_t>(std::clamp<int64_t>(count, 0, static_cast<int64_t>(size)));
    m_bytes_read += got;
    if (got < size) { // the file has shrunk, or cannot be read on
        m_short = true;
        m_end = std::min(m_end, offset + static_cast<int64_t>(got));
        m_filled = std::min(m_filled, m_end);
    }
    return got;
}

} // namespace zoflv_inspect
