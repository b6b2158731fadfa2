// SPDX-License-Identifier: Apache-2.0
/// @file
/// The framework side of a plugin: load it, let it sniff a source, ask its extractor, read its
/// tracks.
///
/// Every object keeps what it depends on alive, so that they may be dropped in any order and are
/// freed in the right one: tracks, extractor, sniff data, source, library.
#pragma once

#include <media/MediaExtractorPluginApi.h>
#include <zoflv_host/buffer_group.h>
#include <zoflv_host/data_source.h>
#include <zoflv_host/format.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace zoflv_host {

class Extractor;
class Track;

/// The meaning of a status, such as "end of stream".
std::string status_text(media_status_t status);

/// A plugin's library, loaded.
class ExtractorLibrary : public std::enable_shared_from_this<ExtractorLibrary> {
public:
    /// Loads a library that defines `GETEXTRACTORDEF` as its only dynamic symbol, with a definition
    /// of version 3. Symbols are looked for before any of its code runs.
    /// @param path   a path with or without a folder; no search
    /// @param error  set to the reason, without the path, on failure
    /// @return the library, or null
    static std::shared_ptr<ExtractorLibrary> load(const std::string& path, std::string* error);
    /// A plugin that is part of the program.
    /// @param definition  what its entry returns
    static std::shared_ptr<ExtractorLibrary> of(const android::ExtractorDef& definition);
    ~ExtractorLibrary();
    ExtractorLibrary(const ExtractorLibrary&) = delete;
    ExtractorLibrary& operator=(const ExtractorLibrary&) = delete;

    const android::ExtractorDef& definition() const { return m_definition; }

    /// Lets the plugin look at the source and, when it claims it, make an extractor.
    /// @param error  set to the reason on failure
    /// @return the extractor, or null
    std::shared_ptr<Extractor> open(std::shared_ptr<DataSource> source, std::string* error);

private:
    ExtractorLibrary(void* library, const android::ExtractorDef& definition)
        : m_library(library), m_definition(definition)
    {}

    void* const m_library; // from dlopen; null: part of the program
    const android::ExtractorDef m_definition;
};

/// An extractor over a source. Used by one thread at a time.
class Extractor : public std::enable_shared_from_this<Extractor> {
public:
    ~Extractor();
    Extractor(const Extractor&) = delete;
    Extractor& operator=(const Extractor&) = delete;

    /// The plugin's confidence that the source is its own, 0 to 1.
    float confidence() const { return m_confidence; }
    const DataSource& source() const { return *m_source; }
    DataSource& source() { return *m_source; }
    android::CMediaExtractor* record() { return m_record; }

    std::string name() { return m_record->name(m_record->data); }
    uint32_t flags() { return m_record->flags(m_record->data); }
    size_t count_tracks() { return m_record->countTracks(m_record->data); }
    media_status_t container_format(Format* out)
    {
        return m_record->getMetaData(m_record->data, out->get());
    }
    media_status_t track_format(size_t index, Format* out)
    {
        return m_record->getTrackMetaData(m_record->data, out->get(), index, 0);
    }
    /// @return a new track, or null when the plugin gives none
    std::unique_ptr<Track> track(size_t index);

private:
    friend class ExtractorLibrary;
    Extractor() = default;

    // Destroyed from the last to the first, after the record and the sniff data.
    std::shared_ptr<ExtractorLibrary> m_library;
    std::shared_ptr<DataSource> m_source;
    float m_confidence = 0;
    void* m_meta = nullptr;
    android::FreeMetaFunc m_free_meta = nullptr;
    android::CMediaExtractor* m_record = nullptr;
};

/// A buffer that a track has filled; hands it back at its end. May outlive its track.
class Sample {
public:
    Sample() = default;
    Sample(android::CMediaBuffer* buffer, std::shared_ptr<BufferGroup> group)
        : m_buffer(buffer), m_group(std::move(group))
    {}
    Sample(Sample&& other) noexcept
        : m_buffer(std::exchange(other.m_buffer, nullptr)), m_group(std::move(other.m_group))
    {}
    Sample& operator=(Sample&& other) noexcept
    {
        std::swap(m_buffer, other.m_buffer);
        std::swap(m_group, other.m_group);
        other.release();
        return *this;
    }
    ~Sample() { release(); }

    explicit operator bool() const { return m_buffer != nullptr; }
    android::CMediaBuffer* record() const { return m_buffer; }

    // Only for a sample that holds a buffer.
    const uint8_t* data() const;
    size_t size() const { return m_buffer->range_length(m_buffer->handle); }
    AMediaFormat* format() const { return m_buffer->meta_data(m_buffer->handle); }
    std::optional<int64_t> time_us() const { return int64(AMEDIAFORMAT_KEY_TIME_US); }
    std::optional<int64_t> duration_us() const { return int64(AMEDIAFORMAT_KEY_DURATION); }

    /// Hands the buffer back now.
    void release();

private:
    std::optional<int64_t> int64(const char* key) const;

    android::CMediaBuffer* m_buffer = nullptr;
    std::shared_ptr<BufferGroup> m_group;
};

struct ReadResult {
    media_status_t status = AMEDIA_OK;
    Sample sample; ///< holds a buffer only with AMEDIA_OK
};

/// One track. Used by one thread at a time; several tracks by as many threads.
class Track {
public:
    ~Track();
    Track(const Track&) = delete;
    Track& operator=(const Track&) = delete;

    /// Gives the track a new buffer group. Samples of earlier groups stay good.
    media_status_t start();
    media_status_t stop() { return m_record->stop(m_record->data); }
    media_status_t format(Format* out) { return m_record->getFormat(m_record->data, out->get()); }

    /// Waits for ever while the caller keeps all of the track's buffers: release samples first.
    ReadResult read() { return read_with(0, 0); }
    /// @param mode  MediaTrackHelper::ReadOptions::SeekMode
    ReadResult seek_read(int64_t time_us, uint32_t mode)
    {
        return read_with(android::SEEK | (mode & android::SEEK_MODE_MASK), time_us);
    }
    /// @param options  the options word as it is
    ReadResult read_with(uint32_t options, int64_t time_us);

    android::CMediaTrack* record() { return m_record; }
    /// Null before the first start.
    BufferGroup* buffer_group() { return m_group.get(); }

private:
    friend class Extractor;
    Track(std::shared_ptr<Extractor> extractor, android::CMediaTrack* record)
        : m_extractor(std::move(extractor)), m_record(record)
    {}

    std::shared_ptr<Extractor> m_extractor;
    android::CMediaTrack* const m_record;
    std::shared_ptr<BufferGroup> m_group;
};

} // namespace zoflv_host
