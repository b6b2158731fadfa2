// SPDX-License-Identifier: Apache-2.0
/// @file
/// Byte sources of the framework side: a file, and memory with faults.
#pragma once

#include <media/MediaExtractorPluginApi.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zoflv_host {

/// What a source was asked for, and what of it reached the system.
struct ReadCounts {
    uint64_t reads = 0;        ///< calls, failed ones included
    uint64_t bytes = 0;        ///< that those calls delivered
    uint64_t system_reads = 0; ///< calls of the system
    uint64_t system_bytes = 0; ///< that those delivered, what was read ahead included
};

/// Is told of the reads that begin at a certain offset, one after the other.
class ReadWatcher {
public:
    static constexpr int64_t EVERYWHERE = -1;

    explicit ReadWatcher(int64_t awaited) : m_awaited(awaited) {}
    virtual ~ReadWatcher() = default;
    ReadWatcher(const ReadWatcher&) = delete;
    ReadWatcher& operator=(const ReadWatcher&) = delete;

    void take(int64_t offset, const void* data, ssize_t count)
    {
        if (offset == m_awaited || m_awaited == EVERYWHERE)
            on_read(offset, data, count);
    }

protected:
    /// @param offset  of the reads to be told of, or EVERYWHERE
    void await(int64_t offset) { m_awaited = offset; }
    /// May read from the source.
    /// @param data   what the reader got
    /// @param count  what it was answered
    virtual void on_read(int64_t offset, const void* data, ssize_t count) = 0;

private:
    int64_t m_awaited;
};

/// A source with its platform record. Serves any number of threads at once; outlives every user of
/// the record.
class DataSource {
public:
    DataSource();
    virtual ~DataSource() = default;
    DataSource(const DataSource&) = delete;
    DataSource& operator=(const DataSource&) = delete;

    android::CDataSource* record() { return &m_record; }

    /// Lets the watcher see each read through the record that ends from now on, or none with null.
    /// Only while all reads are one thread's.
    void watch(ReadWatcher* watcher) { m_watcher = watcher; }

    /// From now on a source that grows has the length that it has now, for every reader; a length that
    /// cannot be told is not held. Before anybody else uses the source.
    void hold_size();
    /// Whether it is shorter now than it was when its length was held.
    bool has_shrunk();

    /// Calls of `readAt` so far, failed ones included.
    uint64_t reads() const { return counts().reads; }
    /// Bytes that those calls delivered.
    uint64_t bytes() const { return counts().bytes; }
    /// Calls of `readAt` so far that failed, at a position where a file can have bytes.
    uint64_t failed_reads() const { return m_failed_reads.load(std::memory_order_relaxed); }
    /// Calls of `getSize` so far.
    uint64_t size_queries() const { return m_size_queries.load(std::memory_order_relaxed); }
    /// All that reads have cost so far.
    virtual ReadCounts counts() const = 0;

protected:
    /// Counts the call.
    /// @param data  not null unless `size` is 0
    virtual ssize_t read_at(int64_t offset, void* data, size_t size) = 0;
    virtual android::status_t get_size(int64_t* size) = 0;
    virtual std::string uri() const { return {}; }

private:
    static ssize_t record_read_at(void* handle, off64_t offset, void* data, size_t size);
    static android::status_t record_get_size(void* handle, off64_t* size);
    static bool record_get_uri(void* handle, char* uri, size_t capacity);

    android::CDataSource m_record;
    ReadWatcher* m_watcher = nullptr;
    std::optional<int64_t> m_held_size;
    std::atomic<uint64_t> m_size_queries{0};
    std::atomic<uint64_t> m_failed_reads{0};
};

class FileWindows;

/// A regular file, read by position; small reads are served from memory. It may change its length
/// meanwhile: a read finds what is there, or what was there shortly before.
class FileDataSource : public DataSource {
public:
    /// @param error  set to the reason, without the path, on failure
    /// @return the source, or null
    static std::unique_ptr<FileDataSource> open(const std::string& path, std::string* error);
    ~FileDataSource() override;

    ReadCounts counts() const override;

protected:
    ssize_t read_at(int64_t offset, void* data, size_t size) override;
    android::status_t get_size(int64_t* size) override;
    std::string uri() const override { return "file://" + m_path; }

private:
    FileDataSource(int fd, std::string path);

    const int m_fd;
    const std::string m_path;
    const std::unique_ptr<FileWindows> m_windows;
};

/// What goes wrong in a MemoryDataSource; by default nothing. Calls count from 1, 0 means never.
struct MemoryFaults {
    uint64_t short_at = 0;         ///< this call delivers at most `short_bytes`
    int64_t short_bytes = 0;       ///< below 0: so many less than asked for
    uint64_t fail_at = 0;          ///< this call fails
    bool sticky = false;           ///< every call after the faulty one has the same fault
    bool size_unknown = false;     ///< the length query fails and stores nothing
    std::optional<int64_t> size{}; ///< the length claimed instead of the true one
};

/// A block of memory. The bytes lie in a heap block of exactly their size, so that a sanitizer sees
/// any access outside.
class MemoryDataSource : public DataSource {
public:
    explicit MemoryDataSource(const std::vector<uint8_t>& bytes, MemoryFaults faults = {});

    ReadCounts counts() const override;

protected:
    ssize_t read_at(int64_t offset, void* data, size_t size) override;
    android::status_t get_size(int64_t* size) override;

private:
    const std::unique_ptr<uint8_t[]> m_data;
    const size_t m_size;
    const MemoryFaults m_faults;
    // Counters only: their use puts no thread's work in order with another's.
    std::atomic<uint64_t> m_reads{0};
    std::atomic<uint64_t> m_bytes{0};
};

} // namespace zoflv_host
