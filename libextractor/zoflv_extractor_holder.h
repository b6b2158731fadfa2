// SPDX-License-Identifier: Apache-2.0
/// @file
/// The demuxer as the plugin's extractor and track sources share it.
///
/// Times are microseconds towards the platform and 100-ns units towards the demuxer.
#pragma once

#include "zoflv/dmx/zocmn_mfal.h"
#include "zoflv/dmx/zoflvd.h"

#include <cstdint>
#include <utils/RefBase.h>

namespace android {

constexpr char ZOFLV_PLUGIN_LOG_TAG[] = "ZoFLVExtractor";
constexpr int64_t ZOFLV_TICKS_PER_US = 10;

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

} // namespace android
