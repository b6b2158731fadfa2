// SPDX-License-Identifier: Apache-2.0
/// @file
/// Stand-in for the platform's header-only classes over the plugin records: a plugin derives from
/// MediaExtractorPluginHelper and MediaTrackHelper and wraps its objects into records.
#pragma once

#include <media/MediaExtractorPluginApi.h>

#include <cstdlib>
#include <new>

namespace android {

/// The framework's data source. Does not own the record.
class DataSourceHelper {
public:
    explicit DataSourceHelper(CDataSource* source) : mSource(source) {}
    virtual ~DataSourceHelper() {}

    virtual ssize_t readAt(off64_t offset, void* data, size_t size)
    {
        return mSource->readAt(mSource->handle, offset, data, size);
    }
    virtual status_t getSize(off64_t* size) { return mSource->getSize(mSource->handle, size); }
    virtual uint32_t flags() { return mSource->flags(mSource->handle); }
    virtual bool getUri(char* uri, size_t capacity)
    {
        return mSource->getUri(mSource->handle, uri, capacity);
    }

protected:
    CDataSource* mSource;

private:
    DataSourceHelper(const DataSourceHelper&) = delete;
    DataSourceHelper& operator=(const DataSourceHelper&) = delete;
};

/// A framework buffer. Neither owns the record nor releases it by itself.
class MediaBufferHelper {
public:
    explicit MediaBufferHelper(CMediaBuffer* buffer) : mBuffer(buffer) {}
    virtual ~MediaBufferHelper() {}

    virtual void release() { mBuffer->release(mBuffer->handle); }
    virtual void* data() { return mBuffer->data(mBuffer->handle); }
    virtual size_t size() { return mBuffer->size(mBuffer->handle); }
    virtual size_t range_offset() { return mBuffer->range_offset(mBuffer->handle); }
    virtual size_t range_length() { return mBuffer->range_length(mBuffer->handle); }
    virtual void set_range(size_t offset, size_t length)
    {
        mBuffer->set_range(mBuffer->handle, offset, length);
    }
    virtual AMediaFormat* meta_data() { return mBuffer->meta_data(mBuffer->handle); }

    CMediaBuffer* const mBuffer;

private:
    MediaBufferHelper(const MediaBufferHelper&) = delete;
    MediaBufferHelper& operator=(const MediaBufferHelper&) = delete;
};

/// The framework's buffer group. Keeps one wrapper for each buffer it has seen. Not thread-safe.
class MediaBufferGroupHelper {
public:
    explicit MediaBufferGroupHelper(CMediaBufferGroup* group) : mGroup(group) {}
    ~MediaBufferGroupHelper()
    {
        while (mEntries) {
            Entry* const entry = mEntries;
            mEntries = entry->next;
            delete entry;
        }
    }

    bool init(size_t buffers, size_t buffer_size, size_t growth_limit = 0)
    {
        return mGroup->init(mGroup->handle, buffers, buffer_size, growth_limit);
    }
    void add_buffer(size_t size) { mGroup->add_buffer(mGroup->handle, size); }
    media_status_t acquire_buffer(MediaBufferHelper** out, bool nonBlocking = false,
                                  size_t requestedSize = 0)
    {
        *out = nullptr;
        CMediaBuffer* buffer = nullptr;
        const media_status_t status =
            mGroup->acquire_buffer(mGroup->handle, &buffer, nonBlocking, requestedSize);
        if (status != AMEDIA_OK)
            return status;
        *out = wrapper_of(buffer);
        if (*out)
            return AMEDIA_OK;
        buffer->release(buffer->handle);
        return AMEDIA_ERROR_UNKNOWN;
    }
    bool has_buffers() { return mGroup->has_buffers(mGroup->handle); }

private:
    MediaBufferGroupHelper(const MediaBufferGroupHelper&) = delete;
    MediaBufferGroupHelper& operator=(const MediaBufferGroupHelper&) = delete;

    struct Entry {
        Entry(CMediaBuffer* buffer, Entry* after) : wrapper(buffer), next(after) {}
        MediaBufferHelper wrapper;
        Entry* next;
    };

    /// Null when memory runs out: an exception would leave a plugin's locks locked.
    MediaBufferHelper* wrapper_of(CMediaBuffer* buffer)
    {
        for (Entry* entry = mEntries; entry; entry = entry->next) {
            if (entry->wrapper.mBuffer == buffer)
                return &entry->wrapper;
        }
        auto* const entry = new (std::nothrow) Entry(buffer, mEntries);
        if (!entry)
            return nullptr;
        mEntries = entry;
        return &entry->wrapper;
    }

    CMediaBufferGroup* mGroup;
    Entry* mEntries = nullptr; // few: a track has one buffer, or a handful
};

/// Base of a plugin's tracks.
class MediaTrackHelper {
public:
    /// How to read: where to seek first, if at all.
    class ReadOptions {
    public:
        /// Values above SEEK_CLOSEST are possible: the mode is the low three bits of the word.
        enum SeekMode : int32_t {
            SEEK_PREVIOUS_SYNC = 0, ///< the sync frame at or before the time
            SEEK_NEXT_SYNC = 1,     ///< the sync frame at or after it
            SEEK_CLOSEST_SYNC = 2,
            SEEK_CLOSEST = 3, ///< the closest frame
        };

        ReadOptions(uint32_t options, int64_t seekPosUs) : mOptions(options), mSeekPosUs(seekPosUs)
        {}

        /// @return whether a seek is requested; the two are stored in either case
        bool getSeekTo(int64_t* timeUs, SeekMode* mode) const
        {
            *timeUs = mSeekPosUs;
            *mode = static_cast<SeekMode>(mOptions & SEEK_MODE_MASK);
            return (mOptions & SEEK) != 0;
        }

    private:
        uint32_t mOptions;
        int64_t mSeekPosUs;
    };

    MediaTrackHelper() : mBufferGroup(nullptr) {}
    virtual ~MediaTrackHelper() { delete mBufferGroup; }

    virtual media_status_t start() = 0;
    virtual media_status_t stop() = 0;
    virtual media_status_t getFormat(AMediaFormat* format) = 0;
    /// On success stores a buffer that the caller releases, else null.
    virtual media_status_t read(MediaBufferHelper** buffer, const ReadOptions* options) = 0;
    virtual bool supportsNonBlockingRead() { return false; }
    virtual media_status_t getSyncFrameTime(int64_t /*timeUs*/, int64_t* /*syncTimeUs*/)
    {
        return AMEDIA_ERROR_UNSUPPORTED;
    }
    virtual media_status_t setSlowFastInfo(int32_t /*info*/) { return AMEDIA_OK; }

protected:
    friend CMediaTrack* wrap(MediaTrackHelper* track);

    /// Owned; null before the first start.
    MediaBufferGroupHelper* mBufferGroup;

private:
    MediaTrackHelper(const MediaTrackHelper&) = delete;
    MediaTrackHelper& operator=(const MediaTrackHelper&) = delete;
};

/// Makes the record of a track, which then owns it. Null for null.
inline CMediaTrack* wrap(MediaTrackHelper* track)
{
    if (!track)
        return nullptr;
    auto* record = static_cast<CMediaTrack*>(std::malloc(sizeof(CMediaTrack)));
    if (!record) {
        delete track;
        return nullptr;
    }
    using Track = MediaTrackHelper;
    record->data = track;
    record->free = [](void* data) { delete static_cast<Track*>(data); };
    record->start = [](void* data, CMediaBufferGroup* group) {
        auto* self = static_cast<Track*>(data);
        delete self->mBufferGroup;
        self->mBufferGroup = new (std::nothrow) MediaBufferGroupHelper(group);
        return self->mBufferGroup ? self->start() : AMEDIA_ERROR_UNKNOWN;
    };
    record->stop = [](void* data) { return static_cast<Track*>(data)->stop(); };
    record->getFormat = [](void* data, AMediaFormat* format) {
        return static_cast<Track*>(data)->getFormat(format);
    };
    record->read = [](void* data, CMediaBuffer** out, uint32_t options, int64_t seekPosUs) {
        MediaBufferHelper* buffer = nullptr;
        const Track::ReadOptions read_options(options, seekPosUs);
        const media_status_t status = static_cast<Track*>(data)->read(&buffer, &read_options);
        *out = status == AMEDIA_OK && buffer ? buffer->mBuffer : nullptr;
        return status;
    };
    record->supportsNonBlockingRead = [](void* data) {
        return static_cast<Track*>(data)->supportsNonBlockingRead();
    };
    record->getSyncFrameTime = [](void* data, int64_t timeUs, int64_t* syncTimeUs) {
        return static_cast<Track*>(data)->getSyncFrameTime(timeUs, syncTimeUs);
    };
    record->setSlowFastInfo = [](void* data, int32_t info) {
        return static_cast<Track*>(data)->setSlowFastInfo(info);
    };
    return record;
}

/// Base of a plugin's extractor.
class MediaExtractorPluginHelper {
public:
    MediaExtractorPluginHelper() {}
    virtual ~MediaExtractorPluginHelper() {}

    virtual size_t countTracks() = 0;
    virtual MediaTrackHelper* getTrack(size_t index) = 0;
    virtual media_status_t getTrackMetaData(AMediaFormat* meta, size_t index, uint32_t flags) = 0;
    virtual media_status_t getMetaData(AMediaFormat* meta) = 0;
    virtual uint32_t flags() const = 0;
    virtual media_status_t setMediaCas(const uint8_t* /*casToken*/, size_t /*size*/)
    {
        return AMEDIA_ERROR_INVALID_OPERATION;
    }
    virtual const char* name() = 0;

private:
    MediaExtractorPluginHelper(const MediaExtractorPluginHelper&) = delete;
    MediaExtractorPluginHelper& operator=(const MediaExtractorPluginHelper&) = delete;
};

/// Makes the record of an extractor, which then owns it. Null for null.
inline CMediaExtractor* wrap(MediaExtractorPluginHelper* extractor)
{
    if (!extractor)
        return nullptr;
    auto* record = static_cast<CMediaExtractor*>(std::malloc(sizeof(CMediaExtractor)));
    if (!record) {
        delete extractor;
        return nullptr;
    }
    using Extractor = MediaExtractorPluginHelper;
    record->data = extractor;
    record->free = [](void* data) { delete static_cast<Extractor*>(data); };
    record->countTracks = [](void* data) { return static_cast<Extractor*>(data)->countTracks(); };
    record->getTrack = [](void* data, size_t index) {
        return wrap(static_cast<Extractor*>(data)->getTrack(index));
    };
    record->getTrackMetaData = [](void* data, AMediaFormat* meta, size_t index, uint32_t flags) {
        return static_cast<Extractor*>(data)->getTrackMetaData(meta, index, flags);
    };
    record->getMetaData = [](void* data, AMediaFormat* meta) {
        return static_cast<Extractor*>(data)->getMetaData(meta);
    };
    record->flags = [](void* data) { return static_cast<Extractor*>(data)->flags(); };
    record->setMediaCas = [](void* data, const uint8_t* casToken, size_t size) {
        return static_cast<Extractor*>(data)->setMediaCas(casToken, size);
    };
    record->name = [](void* data) { return static_cast<Extractor*>(data)->name(); };
    return record;
}

} // namespace android
