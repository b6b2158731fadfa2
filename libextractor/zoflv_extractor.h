// SPDX-License-Identifier: Apache-2.0
/// @file
/// The plugin's classes over the platform's media-extractor interface. The library exports
/// GETEXTRACTORDEF alone; everything here is reached through what that hands out.
///
/// Times are microseconds towards the platform and 100-ns units towards the demuxer.
#pragma once

#include "zoflv/dmx/zocmn_mfal.h"
#include "zoflv/dmx/zoflvd.h"

#include <cstddef>
#include <cstdint>
#include <media/MediaExtractorPluginApi.h>
#include <media/MediaExtractorPluginHelper.h>
#include <media/NdkMediaFormat.h>
#include <pthread.h>
#include <utils/RefBase.h>

namespace android {

/// The demuxer and what belongs to it, shared by an extractor and its track sources and released by
/// the last of them. The file-access record reads through the extractor's data source, so tracks
/// are destroyed before their extractor. All members are zero at construction.
class ZoFLVDSF : public RefBase {
public:
    /// Opens a stream into a free entry of `mStreams`.
    /// @return the stream, or null when it cannot be opened or both entries are taken
    ZOFLVDS* openStream(int index);

    /// Closes a stream that openStream() gave and clears its entry. May run on any thread.
    void closeStream(ZOFLVDS* stream);

    ZOFLVD* mHandle = nullptr;          ///< owned; null until created and after a failed creation
    ZOFLVDS* mStreams[2] = {};          ///< of the track sources; accessed atomically
    ZOFLVD_INFO mInfo = {};             ///< filled by the open
    int64_t mDurationHint = 0;          ///< 100-ns units; 0: the demuxer takes the file's duration
    ZOFLVD_INFO_VID mVideoInfo = {};    ///< the video stream's
    ZOFLVD_INFO_AUD mAudioInfo[2] = {}; ///< the n-th audio stream's
    _ZOCMN_MFAL mMfal = {};             ///< owned, over the extractor's data source
    int32_t mStreamCount = 0;           ///< entries of `mStreams` ever used; changed by opens only

protected:
    ~ZoFLVDSF() override;
};

/// One published track.
struct TrackInfo {
    TrackInfo* next;
    AMediaFormat* meta; ///< owned
    int32_t strm_indx;  ///< the demuxer's stream index
};

struct FormatWalk;
struct StreamFormat;

/// The extractor of one data source. Opens the file with the first question that needs it.
class ZoFLVExtractor : public MediaExtractorPluginHelper {
public:
    /// @param source  taken over
    explicit ZoFLVExtractor(DataSourceHelper* source);
    ~ZoFLVExtractor() override;

    size_t countTracks() override;
    MediaTrackHelper* getTrack(size_t index) override;
    media_status_t getTrackMetaData(AMediaFormat* meta, size_t index, uint32_t flags) override;
    media_status_t getMetaData(AMediaFormat* meta) override;
    uint32_t flags() const override;
    const char* name() override;

private:
    /// Runs the initialisation once. 0; -1001, -1004, -1007 from it; -1010 for an invalid
    /// extractor.
    int readMetaData();
    /// Opens the demuxer and publishes a format per stream. 0; -1001 a stream's data could not be
    /// read; -1004 the file could not be read; -1007 it is no such file or holds no stream.
    int init_zoflvff();
    int createDemuxer();
    int publishStream(int index, FormatWalk* walk);
    int publishAudio(int index, FormatWalk* walk);
    int publishVideo(int index, FormatWalk* walk);
    AMediaFormat* appendTrack(const StreamFormat& stream);
    const TrackInfo* findTrack(size_t index) const;

    DataSourceHelper* mDataSource; ///< owned
    sp<ZoFLVDSF> mDSF;             ///< created by the first initialisation
    AMediaFormat* mFileMeta;       ///< owned; the container's format
    TrackInfo* mTrackHead;         ///< owned list, in stream order
    TrackInfo* mTrackTail;
    bool mInitialized; ///< the first initialisation has started
    bool mVideoFound;  ///< a video stream was published
    bool mValid;       ///< false: the file cannot be opened or holds no stream
};

/// One track as the framework reads it. A lock serialises its calls.
class ZoFLVSource : public MediaTrackHelper {
public:
    /// @param format  the extractor's, borrowed
    /// @param source  not used: the holder's file-access record reads through it already
    ZoFLVSource(AMediaFormat* format, DataSourceHelper* source, const sp<ZoFLVDSF>& holder,
                int index);
    ~ZoFLVSource() override;

    media_status_t start() override;
    media_status_t stop() override;
    media_status_t getFormat(AMediaFormat* format) override;
    media_status_t read(MediaBufferHelper** out, const ReadOptions* options) override;

private:
    media_status_t seek(const ReadOptions& options);
    media_status_t readFrame(MediaBufferHelper** out);
    void releaseBuffer();

    pthread_mutex_t mLock;      ///< guards every member below
    AMediaFormat* mFormat;      ///< borrowed from the extractor's list
    sp<ZoFLVDSF> mDSF;          ///< null when no stream could be opened
    MediaBufferHelper* mBuffer; ///< the one being filled; the caller's once handed out
    int32_t mIndex;             ///< the demuxer's stream index
    int32_t mType;              ///< FLV tag type: 8 audio, 9 video, 0 anything else
    ZOFLVDS* mStream;           ///< opened and closed through the holder
    int64_t mCurrtime;          ///< time of the last frame delivered, microseconds
    bool mStarted;              ///< between start and stop
};

} // namespace android
