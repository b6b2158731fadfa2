// SPDX-License-Identifier: Apache-2.0
#include "tools/timed_source.h"

#include <climits>
#include <ctime>

namespace {

// The clock of the last tick: most reads are copies from memory, and a finer clock takes as long.
std::chrono::nanoseconds now()
{
    struct timespec time = {};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

} // namespace

TimedSource::TimedSource(std::unique_ptr<zoflv_host::DataSource> source, std::chrono::seconds limit)
    : m_source(std::move(source)), m_deadline(now() + limit)
{}

zoflv_host::ReadCounts TimedSource::counts() const
{
    zoflv_host::ReadCounts counts = m_source->counts();
    counts.reads += m_refused.load(std::memory_order_relaxed);
    return counts;
}

ssize_t TimedSource::read_at(int64_t offset, void* data, size_t size)
{
    if (expired() || now() >= m_deadline) {
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
