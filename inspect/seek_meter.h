// SPDX-License-Identifier: Apache-2.0
/// @file
/// What a seek costs.
#pragma once

#include <zoflv_host/extractor.h>

#include <cstdint>
#include <optional>

namespace zoflv_inspect {

/// File calls, and the bytes that they delivered.
struct ReadCost {
    uint64_t reads = 0;
    uint64_t bytes = 0;
};

/// Tells what a seek costs from what the read of the frame after it does, though the framework asks
/// for both in one call: between the two the plugin asks its buffer for the memory. One at a time,
/// for the life of its track.
class SeekMeter {
public:
    /// @param track   started; without memory for its buffer a frame's cost counts as the seek's
    /// @param source  the track's
    SeekMeter(zoflv_host::Track& track, const zoflv_host::DataSource& source)
    {
        s_source = &source;
        android::CMediaBuffer* buffer = nullptr;
        if (track.buffer_group()->acquire(&buffer, true, 0) != AMEDIA_OK)
            return;
        s_data = buffer->data;
        buffer->data = [](void* handle) {
            s_between = now();
            return s_data(handle);
        };
        buffer->release(buffer->handle);
    }

    void start()
    {
        m_start = now();
        s_between.reset();
    }
    void stop() { m_stop = now(); }
    ReadCost seek() const { return less(between(), m_start); }
    ReadCost frame() const { return less(m_stop, between()); }

private:
    static ReadCost now() { return {s_source->reads(), s_source->bytes()}; }
    static ReadCost less(ReadCost a, ReadCost b) { return {a.reads - b.reads, a.bytes - b.bytes}; }
    ReadCost between() const { return s_between.value_or(m_stop); } // not reached by a failed seek

    static inline const zoflv_host::DataSource* s_source = nullptr;
    static inline void* (*s_data)(void*) = nullptr;
    static inline std::optional<ReadCost> s_between;
    ReadCost m_start{}, m_stop{};
};

} // namespace zoflv_inspect
