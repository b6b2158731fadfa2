// SPDX-License-Identifier: Apache-2.0
#include <zoflv_host/buffer_group.h>

#include <android/log.h>

#include <algorithm>
#include <new>

namespace zoflv_host {

using android::CMediaBuffer;

struct BufferGroup::Buffer {
    CMediaBuffer record{};
    BufferGroup* group = nullptr;
    std::unique_ptr<uint8_t[]> data;
    size_t size = 0;
    size_t range_offset = 0;
    size_t range_length = 0;
    AMediaFormat* meta = AMediaFormat_new();
    bool out = false;

    ~Buffer() { AMediaFormat_delete(meta); }

    static Buffer* of(void* handle) { return static_cast<Buffer*>(handle); }
};

namespace {

BufferGroup* group_of(void* handle)
{
    return static_cast<BufferGroup*>(handle);
}

} // namespace

BufferGroup::BufferGroup() : m_record{}
{
    m_record.handle = this;
    m_record.init = [](void* handle, size_t buffers, size_t buffer_size, size_t growth_limit) {
        BufferGroup* self = group_of(handle);
        std::lock_guard lock(self->m_mutex);
        self->m_growth_limit = growth_limit;
        while (buffers > 0 && self->add_locked(buffer_size))
            --buffers;
        return buffers == 0;
    };
    m_record.add_buffer = [](void* handle, size_t size) { group_of(handle)->add_buffer(size); };
    m_record.acquire_buffer = [](void* handle, CMediaBuffer** out, bool non_blocking,
                                 size_t requested) {
        return group_of(handle)->acquire(out, non_blocking, requested);
    };
    m_record.has_buffers = [](void* handle) {
        BufferGroup* self = group_of(handle);
        std::lock_guard lock(self->m_mutex);
        return self->find_free(0) || self->m_buffers.size() < self->m_growth_limit;
    };
}

BufferGroup::~BufferGroup()
{
    if (buffers_out() != 0)
        __android_log_assert("buffers_out() == 0", "BufferGroup", "destroyed with %zu buffers out",
                             buffers_out());
}

void BufferGroup::add_buffer(size_t size)
{
    std::lock_guard lock(m_mutex);
    if (add_locked(size))
        m_returned.notify_all();
}

bool BufferGroup::add_locked(size_t size)
{
    auto buffer = std::make_unique<Buffer>();
    buffer->data.reset(new (std::nothrow) uint8_t[size]);
    if (!buffer->data)
        return false;
    buffer->group = this;
    buffer->size = size;
    CMediaBuffer& record = buffer->record;
    record.handle = buffer.get();
    record.release = [](void* handle) { release(Buffer::of(handle)); };
    record.data = [](void* handle) { return static_cast<void*>(Buffer::of(handle)->data.get()); };
    record.size = [](void* handle) { return Buffer::of(handle)->size; };
    record.range_offset = [](void* handle) { return Buffer::of(handle)->range_offset; };
    record.range_length = [](void* handle) { return Buffer::of(handle)->range_length; };
    record.set_range = [](void* handle, size_t offset, size_t length) {
        Buffer* self = Buffer::of(handle);
        if (offset > self->size || length > self->size - offset)
            __android_log_assert("offset + length <= size", "BufferGroup",
                                 "range %zu+%zu outside of a buffer of %zu bytes", offset, length,
                                 self->size);
        self->range_offset = offset;
        self->range_length = length;
    };
    record.meta_data = [](void* handle) { return Buffer::of(handle)->meta; };
    m_buffers.push_back(std::move(buffer));
    return true;
}

BufferGroup::Buffer* BufferGroup::find_free(size_t requested) const
{
    for (const auto& buffer : m_buffers) {
        if (!buffer->out && buffer->size >= requested)
            return buffer.get();
    }
    return nullptr;
}

BufferGroup::Buffer* BufferGroup::grow(size_t requested)
{
    if (m_buffers.size() >= m_growth_limit)
        return nullptr;
    const size_t size = m_buffers.empty() ? 0 : m_buffers.back()->size;
    return add_locked(std::max(size, requested)) ? m_buffers.back().get() : nullptr;
}

media_status_t BufferGroup::acquire(CMediaBuffer** out, bool non_blocking, size_t requested)
{
    *out = nullptr;
    std::unique_lock lock(m_mutex);
    if (m_failures > 0) {
        --m_failures;
        return AMEDIA_ERROR_UNKNOWN;
    }
    const auto fits = [&](const auto& buffer) { return buffer->size >= requested; };
    Buffer* buffer = find_free(requested);
    if (!buffer)
        buffer = grow(requested);
    while (!buffer) {
        if (non_blocking || std::none_of(m_buffers.begin(), m_buffers.end(), fits))
            return AMEDIA_ERROR_UNKNOWN;
        ++m_waiting;
        m_returned.wait(lock);
        --m_waiting;
        buffer = find_free(requested);
    }
    buffer->out = true;
    buffer->range_offset = 0;
    buffer->range_length = buffer->size;
    *out = &buffer->record;
    return AMEDIA_OK;
}

void BufferGroup::release(Buffer* buffer)
{
    BufferGroup* const group = buffer->group;
    std::lock_guard lock(group->m_mutex);
    if (!buffer->out)
        __android_log_assert("out", "BufferGroup", "buffer released twice");
    buffer->out = false;
    // Under the lock: the group may be destroyed as soon as it is released.
    if (group->m_waiting > 0)
        group->m_returned.notify_all();
}

void BufferGroup::fail_acquires(int count)
{
    std::lock_guard lock(m_mutex);
    m_failures = count;
}

size_t BufferGroup::buffers() const
{
    std::lock_guard lock(m_mutex);
    return m_buffers.size();
}

size_t BufferGroup::buffers_out() const
{
    std::lock_guard lock(m_mutex);
    const auto is_out = [](const auto& buffer) { return buffer->out; };
    return static_cast<size_t>(std::count_if(m_buffers.begin(), m_buffers.end(), is_out));
}

} // namespace zoflv_host
