// SPDX-License-Identifier: Apache-2.0
/// @file
/// A track as the framework reads it.
#pragma once

#include "libextractor/zoflv_extractor_holder.h"

#include <cstdint>
#include <media/MediaExtractorPluginApi.h>
#include <media/MediaExtractorPluginHelper.h>
#include <media/NdkMediaFormat.h>
#include <pthread.h>
#include <utils/RefBase.h>

namespace android {

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
