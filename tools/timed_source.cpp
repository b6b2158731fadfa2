// SPDX-License-Identifier: Apache-2.0
#include "tools/timed_source.h"

#include <climits>

zoflv_host::ReadCounts TimedSource::counts() const
{
    zoflv_host::ReadCounts counts = m_source->counts();
    counts.reads += m_refused.load(std::memory_order_relaxed);
    return counts;
}

ssize_t TimedSource::read_at(int64_t offset, void* data, size_t size)
{
    // Once over it stays so; the clock is read without a system call.
    if (expired() || Clock::now() >= m_deadline) {
        m_refused.fetch_add(1, std::memory_order_relaxed);
        return -1;
    }
    android::CDataSource* const record = m_source->record();
    return record->readAt(record->handle, offset, data, size);
}

android::status_t TimedSource::get_size(int64_t* size)
{
    android::CDataSource* const record = m_source->record();
    off64_t value = 0;
    const android::status_t status = record->getSize(record->handle, &value);
    if (status == AMEDIA_OK)
        *size = value;
    return status;
}

std::string TimedSource::uri() const
{
    char uri[PATH_MAX + sizeof "file://"];
    android::CDataSource* const record = m_source->record();
    return record->getUri(record->handle, uri, sizeof uri) ? uri : std::string();
}
