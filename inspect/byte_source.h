// SPDX-License-Identifier: Apache-2.0
/// @file
/// Where the bytes of a file come from.
#pragma once

#include <zoflv_host/data_source.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace zoflv_inspect {

/// Bytes at positions. One thread at a time.
class ByteSource {
public:
    ByteSource() = default;
    virtual ~ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;

    /// Reads at a position.
    /// @param offset  not negative
    /// @return bytes read, fewer than `size` only at the end; -1 when the read failed
    virtual int64_t read_at(int64_t offset, void* buffer, size_t size) = 0;
    /// The bytes that there are now: a file may grow while it is read. -1 when it cannot be told.
    virtual int64_t size() = 0;
};

/// A block of memory, which stays the caller's.
class MemorySource : public ByteSource {
public:
    MemorySource(const uint8_t* bytes, size_t size) : m_bytes(bytes), m_size(size) {}

    int64_t read_at(int64_t offset, void* buffer, size_t size) override
    {
        if (static_cast<uint64_t>(offset) >= m_size)
            return 0;
        const size_t count = std::min(size, m_size - static_cast<size_t>(offset));
        if (count > 0)
            std::memcpy(buffer, m_bytes + offset, count);
        return static_cast<int64_t>(count);
    }
    int64_t size() override { return static_cast<int64_t>(m_size); }

private:
    const uint8_t* const m_bytes;
    const size_t m_size;
};

/// The source that the plugin reads too. It stays the caller's.
class HostSource : public ByteSource {
public:
    explicit HostSource(zoflv_host::DataSource& source) : m_record(source.record()) {}

    int64_t read_at(int64_t offset, void* buffer, size_t size) override
    {
        size_t done = 0;
        while (done < size) { // a network source may deliver less than was asked for
            const ssize_t count =
                m_record->readAt(m_record->handle, offset + static_cast<int64_t>(done),
                                 static_cast<uint8_t*>(buffer) + done, size - done);
            if (count < 0)
                return -1;
            if (count == 0)
                break;
            done += static_cast<size_t>(count);
        }
        return static_cast<int64_t>(done);
    }
    int64_t size() override
    {
        off64_t size = 0;
        return m_record->getSize(m_record->handle, &size) == AMEDIA_OK ? size : -1;
    }

private:
    android::CDataSource* const m_record;
};

} // namespace zoflv_inspect
