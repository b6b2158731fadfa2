// SPDX-License-Identifier: Apache-2.0
#include <zoflv_host/data_source.h>

#include "file_windows.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zoflv_host {

using android::status_t;

namespace {

constexpr ssize_t READ_FAILED = -1;
constexpr status_t SIZE_UNKNOWN = AMEDIA_ERROR_UNSUPPORTED;

} // namespace

DataSource::DataSource()
    : m_record{record_read_at, record_get_size, [](void*) { return uint32_t{0}; }, record_get_uri,
               this}
{}

ssize_t DataSource::record_read_at(void* handle, off64_t offset, void* data, size_t size)
{
    // A larger count could not be told from a failure.
    auto* self = static_cast<DataSource*>(handle);
    if (self->m_held_size && offset >= 0) {
        const int64_t left = std::max<int64_t>(*self->m_held_size - offset, 0);
        size = static_cast<size_t>(std::min<uint64_t>(size, static_cast<uint64_t>(left)));
    }
    const ssize_t count =
        self->read_at(offset, data, std::min(size, static_cast<size_t>(SSIZE_MAX)));
    if (count < 0 && offset >= 0)
        self->m_failed_reads.fetch_add(1, std::memory_order_relaxed);
    if (self->m_watcher)
        self->m_watcher->take(offset, data, count);
    return count;
}

status_t DataSource::record_get_size(void* handle, off64_t* size)
{
    auto* self = static_cast<DataSource*>(handle);
    self->m_size_queries.fetch_add(1, std::memory_order_relaxed);
    int64_t value = 0;
    const status_t status = self->get_size(&value);
    if (status == AMEDIA_OK)
        *size = std::min(value, self->m_held_size.value_or(value));
    return status;
}

void DataSource::hold_size()
{
    int64_t size = 0;
    if (get_size(&size) == AMEDIA_OK)
        m_held_size = size;
}

bool DataSource::has_shrunk()
{
    int64_t size = 0;
    return m_held_size && get_size(&size) == AMEDIA_OK && size < *m_held_size;
}

bool DataSource::record_get_uri(void* handle, char* uri, size_t capacity)
{
    const std::string text = static_cast<DataSource*>(handle)->uri();
    if (text.empty() || text.size() >= capacity)
        return false;
    std::memcpy(uri, text.c_str(), text.size() + 1);
    return true;
}

std::unique_ptr<FileDataSource> FileDataSource::open(const std::string& path, std::string* error)
{
    // Non-blocking, or the open of a pipe without a writer would wait for ever.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_LARGEFILE);
    if (fd < 0) {
        *error = std::strerror(errno);
        return nullptr;
    }
    std::unique_ptr<FileDataSource> source(new FileDataSource(fd, path));
    struct stat64 info;
    if (::fstat64(fd, &info) != 0) {
        *error = std::strerror(errno);
        return nullptr;
    }
    if (!S_ISREG(info.st_mode)) {
        *error = S_ISDIR(info.st_mode) ? "is a directory"
                                       : "not a regular file, which is what seeks need";
        return nullptr;
    }
    return source;
}

FileDataSource::FileDataSource(int fd, std::string path)
    : m_fd(fd), m_path(std::move(path)), m_windows(std::make_unique<FileWindows>(fd))
{}

FileDataSource::~FileDataSource()
{
    ::close(m_fd);
}

ReadCounts FileDataSource::counts() const
{
    return m_windows->counts();
}

ssize_t FileDataSource::read_at(int64_t offset, void* data, size_t size)
{
    return m_windows->read(offset, static_cast<uint8_t*>(data), size);
}

status_t FileDataSource::get_size(int64_t* size)
{
    struct stat64 info;
    if (::fstat64(m_fd, &info) != 0)
        return AMEDIA_ERROR_IO;
    *size = info.st_size;
    return AMEDIA_OK;
}

MemoryDataSource::MemoryDataSource(const std::vector<uint8_t>& bytes, MemoryFaults faults)
    : m_data(new uint8_t[bytes.size()]), m_size(bytes.size()), m_faults(faults)
{
    std::copy(bytes.begin(), bytes.end(), m_data.get());
}

ReadCounts MemoryDataSource::counts() const
{
    return {m_reads.load(std::memory_order_relaxed), m_bytes.load(std::memory_order_relaxed), 0, 0};
}

ssize_t MemoryDataSource::read_at(int64_t offset, void* data, size_t size)
{
    const uint64_t call = m_reads.fetch_add(1, std::memory_order_relaxed) + 1;
    if (offset < 0 || (!data && size > 0))
        return READ_FAILED;
    const auto hits = [&](uint64_t at) {
        return at != 0 && (m_faults.sticky ? call >= at : call == at);
    };
    if (hits(m_faults.fail_at))
        return READ_FAILED;
    if (static_cast<uint64_t>(offset) >= m_size)
        return 0;
    if (hits(m_faults.short_at)) {
        const int64_t asked = static_cast<int64_t>(size);
        const int64_t left =
            m_faults.short_bytes < 0 ? asked + m_faults.short_bytes : m_faults.short_bytes;
        size = static_cast<size_t>(std::clamp<int64_t>(left, 0, asked));
    }
    size = std::min(size, m_size - static_cast<size_t>(offset));
    if (size > 0)
        std::memcpy(data, m_data.get() + offset, size);
    m_bytes.fetch_add(size, std::memory_order_relaxed);
    return static_cast<ssize_t>(size);
}

status_t MemoryDataSource::get_size(int64_t* size)
{
    if (m_faults.size_unknown)
        return SIZE_UNKNOWN;
    *size = m_faults.size.value_or(static_cast<int64_t>(m_size));
    return AMEDIA_OK;
}

} // namespace zoflv_host
