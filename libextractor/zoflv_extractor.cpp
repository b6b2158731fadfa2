// SPDX-License-Identifier: Apache-2.0
#include "libextractor/zoflv_extractor.h"

#include "libextractor/mfal/zocmn_mfal_android_q.h"
#include "libextractor/zoflv_extractor_formats.h"
#include "libextractor/zoflv_extractor_source.h"

#include <algorithm>
#include <android/log.h>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <zodevice/zo_media_formats.h>

namespace android {
namespace {

CMediaExtractor* CreateExtractor(CDataSource* source, void*)
{
    std::unique_ptr<DataSourceHelper> helper(new (std::nothrow) DataSourceHelper(source));
    if (!helper)
        return nullptr;
    auto* extractor = new (std::nothrow) ZoFLVExtractor(helper.get());
    if (!extractor)
        return nullptr;
    helper.release();
    return wrap(extractor);
}

CreatorFunc Sniff(CDataSource* source, float* confidence, void**, FreeMetaFunc*)
{
    uint8_t signature[3] = {};
    if (source->readAt(source->handle, 0, signature, sizeof signature) != sizeof signature)
        return nullptr;
    if (std::memcmp(signature, "FLV", sizeof signature) != 0)
        return nullptr;
    *confidence = 0.7f;
    return CreateExtractor;
}

constexpr const char* supported_types[] = {"flv", nullptr};

} // namespace

extern "C" __attribute__((visibility("default"))) ExtractorDef GETEXTRACTORDEF()
{
    return {
        EXTRACTORDEF_VERSION,
        {{0xc6, 0x46, 0x84, 0x13, 0xdc, 0x0d, 0x44, 0x92, 0xb5, 0xde, 0xec, 0x5f, 0x5c, 0x1e, 0xff,
          0x82}},
        1, // extractor version
        "Vantor FLV Extractor",
        Sniff,
        supported_types,
    };
}

// ------------------------------------------------------------------ Holder

ZoFLVDSF::~ZoFLVDSF()
{
    if (mHandle) {
        for (int32_t i = 0; i < mStreamCount; ++i) {
            zoflvds_close(mStreams[i]);
            mStreams[i] = nullptr;
        }
        zoflvd_delete(mHandle);
        mHandle = nullptr;
    }
    zocmn_mfal_deinit(&mMfal);
}

ZOFLVDS* ZoFLVDSF::openStream(int index)
{
    constexpr int32_t capacity = static_cast<int32_t>(std::size(decltype(mStreams){}));

    int32_t slot = mStreamCount;
    if (slot >= capacity) {
        for (slot = 0; slot < capacity; ++slot) {
            if (!__atomic_load_n(&mStreams[slot], __ATOMIC_ACQUIRE))
                break;
        }
    }
    if (slot == capacity)
        return nullptr;
    int error = 0;
    ZOFLVDS* stream = zoflvds_open(mHandle, index, &error);
    if (!stream)
        return nullptr;
    __atomic_store_n(&mStreams[slot], stream, __ATOMIC_RELEASE);
    mStreamCount = std::max(mStreamCount, slot + 1);
    return stream;
}

void ZoFLVDSF::closeStream(ZOFLVDS* stream)
{
    // Before the close: the address may be another stream's as soon as it is free.
    for (ZOFLVDS*& entry : mStreams) {
        ZOFLVDS* expected = stream;
        if (__atomic_compare_exchange_n(&entry, &expected, nullptr, false, __ATOMIC_RELEASE,
                                        __ATOMIC_RELAXED))
            break;
    }
    zoflvds_close(stream);
}

// --------------------------------------------------------------- Extractor

ZoFLVExtractor::ZoFLVExtractor(DataSourceHelper* source)
    : mDataSource(source), mFileMeta(AMediaFormat_new()), mTrackHead(nullptr), mTrackTail(nullptr),
      mInitialized(false), mVideoFound(false), mValid(true)
{}

ZoFLVExtractor::~ZoFLVExtractor()
{
    AMediaFormat_delete(mFileMeta);
    while (mTrackHead) {
        TrackInfo* track = mTrackHead;
        mTrackHead = track->next;
        AMediaFormat_delete(track->meta);
        delete track;
    }
    mTrackTail = nullptr;
    mDSF.clear();
    delete mDataSource;
}

size_t ZoFLVExtractor::countTracks()
{
    if (readMetaData() != 0)
        return 0;
    size_t count = 0;
    for (const TrackInfo* track = mTrackHead; track; track = track->next)
        ++count;
    return count;
}

MediaTrackHelper* ZoFLVExtractor::getTrack(size_t index)
{
    if (readMetaData() != 0)
        return nullptr;
    const TrackInfo* track = findTrack(index);
    if (!track)
        return nullptr;
    return new (std::nothrow) ZoFLVSource(track->meta, mDataSource, mDSF, track->strm_indx);
}

media_status_t ZoFLVExtractor::getTrackMetaData(AMediaFormat* meta, size_t index, uint32_t)
{
    if (readMetaData() != 0)
        return AMEDIA_ERROR_UNKNOWN;
    const TrackInfo* track = findTrack(index);
    if (!track)
        return AMEDIA_ERROR_UNKNOWN;
    AMediaFormat_copy(meta, track->meta);
    return AMEDIA_OK;
}

media_status_t ZoFLVExtractor::getMetaData(AMediaFormat* meta)
{
    if (readMetaData() != 0)
        return AMEDIA_ERROR_UNKNOWN;
    AMediaFormat_copy(meta, mFileMeta);
    return AMEDIA_OK;
}

uint32_t ZoFLVExtractor::flags() const
{
    // A seekable file must not look unseekable because this question comes first.
    const_cast<ZoFLVExtractor*>(this)->readMetaData();
    if (mDSF.get() && mDSF->mInfo.seekable)
        return CAN_SEEK_BACKWARD | CAN_SEEK_FORWARD | CAN_PAUSE | CAN_SEEK;
    return CAN_PAUSE;
}

const char* ZoFLVExtractor::name()
{
    return "ZoFLVExtractor";
}

const TrackInfo* ZoFLVExtractor::findTrack(size_t index) const
{
    const TrackInfo* track = mTrackHead;
    for (; track && index > 0; --index)
        track = track->next;
    return track;
}

int ZoFLVExtractor::readMetaData()
{
    if (!mValid)
        return init_invalid;
    if (mInitialized)
        return 0;
    const int rc = init_zoflvff();
    if (rc != 0)
        return rc;
    AMediaFormat_setString(mFileMeta, AMEDIAFORMAT_KEY_MIME,
                           mVideoFound ? "video/flv" : "audio/flv");
    return 0;
}

int ZoFLVExtractor::createDemuxer()
{
    if (zocmn_mfal_init(&mDSF->mMfal, mDataSource) != ZOFLV_OK) {
        mValid = false;
        return init_malformed;
    }
    int error = 0;
    mDSF->mHandle = zoflvd_create(&mDSF->mMfal, &mDSF->mDurationHint, &mDSF->mInfo, &error);
    if (!mDSF->mHandle) {
        __android_log_print(ANDROID_LOG_INFO, ZOFLV_PLUGIN_LOG_TAG,
                            "ZoFLVExtractor::init_zoflvff() zoflvd_create() failed(%d)!", error);
        zocmn_mfal_deinit(&mDSF->mMfal);
        mValid = false;
        return error == ZOFLV_ERR_FILEIO ? init_io : init_malformed;
    }
    if (mDSF->mInfo.vid_cnt == 0 && mDSF->mInfo.aud_cnt == 0) {
        mValid = false;
        return init_malformed;
    }
    return 0;
}

int ZoFLVExtractor::init_zoflvff()
{
    if (mDSF.get())
        return 0;
    mDSF = new (std::nothrow) ZoFLVDSF;
    if (!mDSF.get())
        return init_no_data;
    mInitialized = true;
    const int created = createDemuxer();
    if (created != 0)
        return created;

    FormatRun run;
    for (int i = 0; i < mDSF->mInfo.strm_cnt; ++i) {
        const int rc = publishStream(i, &run);
        if (rc != 0)
            return rc;
    }
    return 0;
}

int ZoFLVExtractor::publishStream(int index, FormatRun* run)
{
    const int type = mDSF->mInfo.strm_type[index];
    if (type == ZOFLV_TAG_AUDIO)
        return publishAudio(index, run);
    if (type == ZOFLV_TAG_VIDEO)
        return publishVideo(index, run);
    AMediaFormat* meta = appendTrack(StreamFormat(index, 0));
    if (!meta)
        return init_no_data;
    AMediaFormat_setString(meta, AMEDIAFORMAT_KEY_MIME, MEDIA_MIMETYPE_UNKNOWN);
    return 0;
}

int ZoFLVExtractor::publishAudio(int index, FormatRun* run)
{
    if (run->audios >= static_cast<int>(std::size(mDSF->mAudioInfo)))
        return 0;
    ZOFLVD_INFO_AUD* info = &mDSF->mAudioInfo[run->audios];
    if (zoflvd_get_info_aud(mDSF->mHandle, index, info) != ZOFLV_OK)
        return init_no_data;
    __android_log_print(ANDROID_LOG_INFO, ZOFLV_PLUGIN_LOG_TAG,
                        "ZoFLVExtractor(AUDIO) mimetype : %s (0x%04x)", Mime(info->fourcc).text,
                        info->fourcc);
    StreamFormat stream(index, info->fourcc);
    if (!plays_audio(info->fourcc))
        set_unsupported(&stream);
    ++run->audios;
    AMediaFormat* meta = appendTrack(stream);
    if (!meta)
        return init_no_data;
    set_audio_keys(meta, *mDSF, index, info, run->max_input_size);
    return 0;
}

int ZoFLVExtractor::publishVideo(int index, FormatRun* run)
{
    if (run->videos >= 1)
        return 0;
    ZOFLVD_INFO_VID* info = &mDSF->mVideoInfo;
    if (zoflvd_get_info_vid(mDSF->mHandle, index, info) != ZOFLV_OK)
        return init_no_data;
    __android_log_print(ANDROID_LOG_INFO, ZOFLV_PLUGIN_LOG_TAG,
                        "ZoFLVExtractor(VIDEO) mimetype : %s (0x%04x)", Mime(info->fourcc).text,
                        info->fourcc);
    mVideoFound = true;
    ++run->videos;
    StreamFormat stream(index, info->fourcc);
    const int rc = check_video(mDSF->mHandle, &stream, info, run);
    if (rc != 0)
        return rc;
    AMediaFormat* meta = appendTrack(stream);
    if (!meta)
        return init_no_data;
    set_video_keys(meta, *mDSF, stream, run->max_input_size);
    return 0;
}

// Appends a track with the keys that all have. Null when there is no memory.
AMediaFormat* ZoFLVExtractor::appendTrack(const StreamFormat& stream)
{
    TrackInfo* track = new (std::nothrow) TrackInfo{nullptr, AMediaFormat_new(), stream.index};
    if (!track)
        return nullptr;
    if (!track->meta) {
        delete track;
        return nullptr;
    }
    (mTrackTail ? mTrackTail->next : mTrackHead) = track;
    mTrackTail = track;
    AMediaFormat* meta = track->meta;
    AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_DURATION,
                          mDSF->mInfo.duration / ZOFLV_TICKS_PER_US);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_ALLOW_FRAME_REORDERING, 1);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_ERROR_TYPE, stream.error);
    if (stream.error == track_unsupported && stream.loggable) {
        AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_TRACK_FOURCC,
                              static_cast<int32_t>(stream.fourcc));
        AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_ERROR_LOGGABLE, 1);
    }
    return meta;
}

} // namespace android
