// SPDX-License-Identifier: Apache-2.0
/// @file
/// A byte source with a time limit: what takes too long comes to an end, since it gets no more bytes.
#pragma once

#include <zoflv_host/data_source.h>

#include <atomic>
#include <chrono>
#include <memory>

/// Hands reads on to another source until the time is over, from then on all fail. A read that has
/// begun is waited for, however long it takes.
class TimedSource : public zoflv_host::DataSource {
public:
    /// The time limit is exact to some milliseconds.
    TimedSource(std::unique_ptr<zoflv_host::DataSource> source, std::chrono::seconds limit);

    /// Whether a read came too late: results made from the source are not of the whole file.
    bool expired() const { return m_refused.load(std::memory_order_relaxed) > 0; }
    zoflv_host::ReadCounts counts() const override;

protected:
    ssize_t read_at(int64_t offset, void* data, size_t size) override;
    android::status_t get_size(int64_t* size) override;
    std::string uri() const override;

private:
    const std::unique_ptr<zoflv_host::DataSource> m_source;
    const std::chrono::nanoseconds m_deadline;
    std::atomic<uint64_t> m_refused{0}; ///< reads that came too late
};
