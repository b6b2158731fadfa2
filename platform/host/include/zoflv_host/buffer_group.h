// SPDX-License-Identifier: Apache-2.0
/// @file
/// The framework's buffer group: a fixed set of buffers that go round between reader and plugin.
#pragma once

#include <media/MediaExtractorPluginApi.h>

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace zoflv_host {

/// Thread-safe. Every buffer must be back when the group is destroyed; else the process ends, since
/// a later release would write to freed memory.
///
/// A buffer's memory is a heap block of exactly its size. It keeps its media format, contents
/// included, from one use to the next; its range is the whole buffer again when it is acquired.
class BufferGroup {
public:
    BufferGroup();
    ~BufferGroup();
    BufferGroup(const BufferGroup&) = delete;
    BufferGroup& operator=(const BufferGroup&) = delete;

    android::CMediaBufferGroup* record() { return &m_record; }

    /// A buffer that cannot be allocated is not added.
    void add_buffer(size_t size);
    /// Waits while all buffers that are large enough are out. Fails with AMEDIA_ERROR_UNKNOWN when
    /// it would have to wait but must not, and when no buffer is large enough, so that waiting is
    /// vain.
    media_status_t acquire(android::CMediaBuffer** out, bool non_blocking, size_t requested);
    /// Lets the next `count` acquires fail with AMEDIA_ERROR_UNKNOWN.
    void fail_acquires(int count);

    size_t buffers() const;
    size_t buffers_out() const;

private:
    struct Buffer;

    static void release(Buffer* buffer);
    /// @return a free buffer, or null; both with the lock held
    Buffer* find_free(size_t requested) const;
    Buffer* grow(size_t requested);
    bool add_locked(size_t size);

    android::CMediaBufferGroup m_record;
    mutable std::mutex m_mutex; // guards all below
    std::condition_variable m_returned;
    int m_waiting = 0; // acquires that wait for it
    std::vector<std::unique_ptr<Buffer>> m_buffers;
    size_t m_growth_limit = 0; // buffers
    int m_failures = 0;
};

} // namespace zoflv_host
