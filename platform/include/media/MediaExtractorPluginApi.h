// SPDX-License-Identifier: Apache-2.0
/// @file
/// Stand-in for the records through which the media framework and an extractor plugin talk.
///
/// Every record is a table of functions with the object that they take as first argument. The order
/// of the entries is the platform's; the member names, and the arguments of entries that the plugin
/// does not serve itself, are the stand-in's.
#pragma once

#include <media/NdkMediaError.h>
#include <media/NdkMediaFormat.h>

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

namespace android {

/// 0 or a negative value.
typedef int32_t status_t;

/// What an extractor permits (`CMediaExtractor::flags`).
enum MediaExtractorFlags : uint32_t {
    CAN_SEEK_BACKWARD = 1,
    CAN_SEEK_FORWARD = 2,
    CAN_PAUSE = 4,
    CAN_SEEK = 8,
};

/// The options word of `CMediaTrack::read`: the seek mode
/// (`MediaTrackHelper::ReadOptions::SeekMode`) in the low three bits, flags above.
enum CMediaTrackReadOptions : uint32_t {
    SEEK_MODE_MASK = 7,
    SEEK = 8,
};

extern "C" {

/// A byte source with random access. `readAt` may be called from several threads at once.
struct CDataSource {
    /// @return the bytes copied, fewer than `size` only at the end of the source, or a negative
    ///         value
    ssize_t (*readAt)(void* handle, off64_t offset, void* data, size_t size);
    /// Stores the length in bytes; a source that does not know it stores nothing and fails.
    status_t (*getSize)(void* handle, off64_t* size);
    uint32_t (*flags)(void* handle);
    /// Stores the source's location as terminated text. False when there is none or it does not
    /// fit.
    bool (*getUri)(void* handle, char* uri, size_t capacity);
    void* handle;
};

/// One buffer of a group, handed out by `CMediaBufferGroup::acquire_buffer`.
struct CMediaBuffer {
    void* handle;
    /// Hands the buffer back to its group.
    void (*release)(void* handle);
    void* (*data)(void* handle);
    /// Bytes allocated.
    size_t (*size)(void* handle);
    size_t (*range_offset)(void* handle);
    size_t (*range_length)(void* handle);
    /// Says which bytes are the sample.
    void (*set_range)(void* handle, size_t offset, size_t length);
    /// The sample's format values, owned by the buffer.
    AMediaFormat* (*meta_data)(void* handle);
};

struct CMediaBufferGroup {
    void* handle;
    /// Adds `buffers` buffers of `buffer_size` bytes; with all of them out the group may grow to
    /// `growth_limit` buffers.
    bool (*init)(void* handle, size_t buffers, size_t buffer_size, size_t growth_limit);
    void (*add_buffer)(void* handle, size_t size);
    /// Takes a free buffer of at least `requested` bytes (0: any) and, unless `non_blocking`, waits
    /// for one.
    media_status_t (*acquire_buffer)(void* handle, CMediaBuffer** out, bool non_blocking,
                                     size_t requested);
    /// True when `acquire_buffer` would not wait.
    bool (*has_buffers)(void* handle);
};

struct CMediaTrack {
    void* data;
    void (*free)(void* data);
    /// The group stays the caller's and must last until the next start or the track's end.
    media_status_t (*start)(void* data, CMediaBufferGroup* group);
    media_status_t (*stop)(void* data);
    media_status_t (*getFormat)(void* data, AMediaFormat* format);
    /// @param options    `CMediaTrackReadOptions`
    /// @param seekPosUs  target of a seek, in microseconds
    media_status_t (*read)(void* data, CMediaBuffer** out, uint32_t options, int64_t seekPosUs);
    bool (*supportsNonBlockingRead)(void* data);
    media_status_t (*getSyncFrameTime)(void* data, int64_t timeUs, int64_t* syncTimeUs);
    media_status_t (*setSlowFastInfo)(void* data, int32_t info);
};

struct CMediaExtractor {
    void* data;
    void (*free)(void* data);
    size_t (*countTracks)(void* data);
    /// A new track record from malloc, or null. The caller first calls its `free` entry, then frees
    /// the record itself; before the extractor.
    CMediaTrack* (*getTrack)(void* data, size_t index);
    media_status_t (*getTrackMetaData)(void* data, AMediaFormat* meta, size_t index,
                                       uint32_t flags);
    media_status_t (*getMetaData)(void* data, AMediaFormat* meta);
    uint32_t (*flags)(void* data);
    media_status_t (*setMediaCas)(void* data, const uint8_t* casToken, size_t size);
    const char* (*name)(void* data);
};

/// Makes an extractor over a source that outlives it; null on failure. The record comes from malloc
/// and is freed as a track's.
typedef CMediaExtractor* (*CreatorFunc)(CDataSource* source, void* meta);
typedef void (*FreeMetaFunc)(void* meta);
/// Looks at a source and returns a creator, or null when it is not the plugin's.
typedef CreatorFunc (*SnifferFunc)(CDataSource* source, float* confidence, void** meta,
                                   FreeMetaFunc* freeMeta);

struct media_uuid_t {
    uint8_t b[16];
};

constexpr uint32_t EXTRACTORDEF_VERSION = 3;

/// What `GETEXTRACTORDEF` returns.
struct ExtractorDef {
    uint32_t def_version; ///< EXTRACTORDEF_VERSION
    media_uuid_t extractor_uuid;
    uint32_t extractor_version;
    const char* extractor_name;
    SnifferFunc sniff;
    const char* const* supported_types; ///< ends with a null pointer
};

/// The type of `GETEXTRACTORDEF`, the one entry that a plugin exports (C linkage, default
/// visibility).
typedef ExtractorDef (*GetExtractorDef)();

} // extern "C"

} // namespace android
