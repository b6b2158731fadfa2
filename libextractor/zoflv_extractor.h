// SPDX-License-Identifier: Apache-2.0
/// @file
/// The extractor of a file, over the platform's media-extractor interface. The library exports
/// GETEXTRACTORDEF alone; everything here is reached through what that hands out.
#pragma once

#include "libextractor/zoflv_extractor_holder.h"

#include <cstddef>
#include <cstdint>
#include <media/MediaExtractorPluginApi.h>
#include <media/MediaExtractorPluginHelper.h>
#include <media/NdkMediaFormat.h>
#include <utils/RefBase.h>

namespace android {

/// One published track.
struct TrackInfo {
    TrackInfo* next;
    AMediaFormat* meta; ///< owned
    int32_t strm_indx;  ///< the demuxer's stream index
};

struct FormatRun;
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
    int publishStream(int index, FormatRun* run);
    int publishAudio(int index, FormatRun* run);
    int publishVideo(int index, FormatRun* run);
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

} // namespace android
