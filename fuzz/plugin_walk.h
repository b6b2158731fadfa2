// SPDX-License-Identifier: Apache-2.0
/// @file
/// The walk through the plugin's records, as the framework calls them.
#pragma once

#include "fuzz/walk.h"

#include <zoflv_host/buffer_group.h>
#include <zoflv_host/data_source.h>
#include <zoflv_host/format.h>

#include <cstring>

class PluginWalk {
public:
    /// @param entry  the plugin's definition, loaded or linked in
    PluginWalk(const android::ExtractorDef& entry, zoflv_host::DataSource* data, uint32_t seed)
        : definition(entry), source(data), choose(seed)
    {}

    WalkResult run()
    {
        float confidence = 0;
        void* meta = nullptr;
        android::FreeMetaFunc free_meta = nullptr;
        const android::CreatorFunc create =
            definition.sniff(source->record(), &confidence, &meta, &free_meta);
        if (!create)
            return result;
        extractor = create(source->record(), meta);
        if (!extractor)
            return result;
        ask();
        extractor->free(extractor->data);
        std::free(extractor);
        return result;
    }

private:
    void ask()
    {
        zoflv_host::Format format;
        const uint32_t flags = extractor->flags(extractor->data);
        const size_t tracks = extractor->countTracks(extractor->data);
        result.opened = tracks > 0;
        result.streams = static_cast<int>(tracks);
        WALK_CHECK(tracks <= 2 && (flags == 15 || flags == 4));
        WALK_CHECK(walk_is_one_of(extractor->getMetaData(extractor->data, format.get()),
                                  {AMEDIA_OK, AMEDIA_ERROR_UNKNOWN}));
        WALK_CHECK(std::strcmp(extractor->name(extractor->data), "ZoFLVExtractor") == 0);
        WALK_CHECK(!extractor->getTrack(extractor->data, tracks));
        for (size_t i = 0; i < tracks; ++i) {
            WALK_CHECK(extractor->getTrackMetaData(extractor->data, format.get(), i, 0) ==
                       AMEDIA_OK);
            read_track(i);
        }
    }

    void read_track(size_t index)
    {
        android::CMediaTrack* track = extractor->getTrack(extractor->data, index);
        if (!track)
            return;
        zoflv_host::BufferGroup group;
        zoflv_host::Format format;
        WALK_CHECK(track->getFormat(track->data, format.get()) == AMEDIA_OK);
        const media_status_t started = track->start(track->data, group.record());
        WALK_CHECK(
            walk_is_one_of(started, {AMEDIA_OK, AMEDIA_ERROR_UNSUPPORTED,
                                     AMEDIA_ERROR_UNKNOWN})); // UNKNOWN: no memory for the group
        if (started == AMEDIA_OK) {
            while (read(track, 0, 0) == AMEDIA_OK) {
            }
            for (uint32_t mode = 0; mode < 8; ++mode) {
                const int64_t times[] = {0, int64_t{choose(1 << 30)}, INT64_MAX, -1};
                const media_status_t status = read(track, android::SEEK | mode, times[choose(4)]);
                WALK_CHECK(mode < 4 || status != AMEDIA_OK);
                read(track, 0, 0);
            }
            WALK_CHECK(track->stop(track->data) == AMEDIA_OK);
        }
        track->free(track->data);
        std::free(track);
    }

    media_status_t read(android::CMediaTrack* track, uint32_t options, int64_t time_us)
    {
        android::CMediaBuffer* buffer = nullptr;
        const media_status_t status = track->read(track->data, &buffer, options, time_us);
        WALK_CHECK(
            walk_is_one_of(status, {AMEDIA_OK, AMEDIA_ERROR_UNKNOWN, AMEDIA_ERROR_UNSUPPORTED,
                                    AMEDIA_ERROR_END_OF_STREAM, AMEDIA_ERROR_IO}));
        WALK_CHECK((status == AMEDIA_OK) == (buffer != nullptr));
        if (!buffer)
            return status;
        const size_t length = buffer->range_length(buffer->handle);
        WALK_CHECK(length <= buffer->size(buffer->handle));
        ++result.frames;
        result.bytes += static_cast<int64_t>(length);
        const uint8_t* data = static_cast<const uint8_t*>(buffer->data(buffer->handle));
        for (size_t i = 0; i < length; ++i)
            result.hash = (result.hash ^ data[i]) * 16777619U;
        buffer->release(buffer->handle);
        return status;
    }

    const android::ExtractorDef definition;
    zoflv_host::DataSource* source;
    WalkChoice choose;
    android::CMediaExtractor* extractor = nullptr;
    WalkResult result;
};

inline WalkResult walk_plugin(const android::ExtractorDef& entry, zoflv_host::DataSource* source,
                              uint32_t seed)
{
    return PluginWalk(entry, source, seed).run();
}
