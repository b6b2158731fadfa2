// SPDX-License-Identifier: Apache-2.0
#include "fourcc.h"

#include <zodevice/zo_media_formats.h>

namespace android {

const char* AMEDIAFORMAT_KEY_ALLOW_FRAME_REORDERING = "allow-frame-reordering";
const char* AMEDIAFORMAT_KEY_ERROR_LOGGABLE = "error-loggable";
const char* AMEDIAFORMAT_KEY_ERROR_TYPE = "error-type";
const char* AMEDIAFORMAT_KEY_FOURCC = "fourcc";
const char* AMEDIAFORMAT_KEY_I_FRAME_AVG_INTERVAL = "i-frame-avg-interval-us";
const char* AMEDIAFORMAT_KEY_TRACK_FOURCC = "track-fourcc";

const char* MEDIA_MIMETYPE_UNKNOWN = "unknown";
const char* MEDIA_MIMETYPE_AUDIO_AAC = "audio/mp4a-latm";
const char* MEDIA_MIMETYPE_AUDIO_MPEG = "audio/mpeg";
const char* MEDIA_MIMETYPE_AUDIO_UNKNOWN = "audio/unknown";
const char* MEDIA_MIMETYPE_VIDEO_H263 = "video/3gpp";
const char* MEDIA_MIMETYPE_VIDEO_H263_SORENSON = "video/x-sorenson-h263";
const char* MEDIA_MIMETYPE_VIDEO_UNKNOWN = "video/unknown";

} // namespace android

const char* FourCC2MIME(uint32_t fourcc)
{
    using namespace zodevice;
    if (fourcc == FLV1 || is_one_of(fourcc, H263_CODES))
        return android::MEDIA_MIMETYPE_VIDEO_H263;
    if (is_one_of(fourcc, AVC_CODES))
        return "video/avc";
    if (is_one_of(fourcc, AAC_CODES))
        return android::MEDIA_MIMETYPE_AUDIO_AAC;
    if (is_one_of(fourcc, MPEG_AUDIO_CODES))
        return android::MEDIA_MIMETYPE_AUDIO_MPEG;
    return android::MEDIA_MIMETYPE_UNKNOWN;
}
