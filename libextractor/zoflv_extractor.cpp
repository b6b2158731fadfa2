// SPDX-License-Identifier: Apache-2.0
#include "libextractor/zoflv_extractor.h"

#include "libextractor/mfal/zocmn_mfal_android_q.h"
#include "zoflv/dmx/zoflv_err.h"
#include "zoflv/dmx/zoflv_mem.h"
#include "zoflv/dmx/zoflv_num.h"
#include "zoflv/dmx/zoflvd_sh.h"
#include "zoflv/dmx/zoflvd_tag.h"

#include <algorithm>
#include <android/log.h>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <strings.h>
#include <zodevice/zo_extractor_common.h>
#include <zodevice/zo_media_formats.h>

namespace android {
namespace {

constexpr char log_tag[] = "ZoFLVExtractor";

// Results of the initialisation, and error types published with a track: two sets of names.
enum : int {
    init_no_data = -1001,       // a stream's information or data could not be read
    track_unsupported = -1002,  // the codec, by the lists below or by the device
    track_unconfigured = -1003, // no video configuration
    track_too_large = -1004,    // the picture, beyond the device's limit
    init_io = -1004,            // the file could not be read
    init_malformed = -1007,     // not a file of this kind, or without streams
    init_invalid = -1010,       // an extractor that failed before
};

// Maximum input sizes in bytes, and the picture above which the largest is published.
constexpr int32_t input_size_start = 524288;
constexpr int32_t input_size_usual = 1572864;
constexpr int32_t input_size_large = 6291456;
constexpr int64_t large_picture = 2088960; // 1920 x 1088 pixels

constexpr int64_t ticks_per_us = 10;

// What the device's extractor library is asked.
constexpr int query_support = 100;    // is the codec played?
constexpr int query_limits = 101;     // the largest pictures
constexpr int not_supported = -109;   // an answer to the first
constexpr int audio_config_kind = 28; // an AudioSpecificConfig

// What the framework is answered.
static_assert(AMEDIA_ERROR_UNSUPPORTED == -10002, "status of the platform");
static_assert(AMEDIA_ERROR_END_OF_STREAM == -10006, "status of the platform");
static_assert(AMEDIA_ERROR_IO == -10007, "status of the platform");

constexpr uint32_t video_fourccs[] = {
    zoflv_fourcc("s263"), zoflv_fourcc("S263"), zoflv_fourcc("h263"), zoflv_fourcc("H263"),
    zoflv_fourcc("h264"), zoflv_fourcc("H264"), zoflv_fourcc("x264"), zoflv_fourcc("X264"),
    zoflv_fourcc("avc1"), zoflv_fourcc("AVC1"), zoflv_fourcc("FLV1"),
};
// 0x50 is the WAVE format tag of MPEG audio of any layer.
constexpr uint32_t audio_fourccs[] = {
    zoflv_fourcc("MP4A"), zoflv_fourcc("mp4a"), ZOFLV_FOURCC_AAC, ZOFLV_FOURCC_MPEG_AUDIO, 0x50,
};

template <size_t N>
bool contains(const uint32_t (&list)[N], uint32_t fourcc)
{
    return std::find(std::begin(list), std::end(list), fourcc) != std::end(list);
}

// Stops the process when a contract of the framework is broken.
void check(bool condition, const char* text, const char* message)
{
    if (!condition)
        __android_log_assert(text, log_tag, "%s", message);
}

// A codec's MIME type, cut to what the formats take.
struct Mime {
    char text[128];

    explicit Mime(uint32_t fourcc)
    {
        const char* found = FourCC2MIME(fourcc);
        std::snprintf(text, sizeof text, "%s", found ? found : MEDIA_MIMETYPE_UNKNOWN);
    }
    bool is(const char* other) const { return strcasecmp(text, other) == 0; }
};

// ISO/IEC 14496-3 samplingFrequencyIndex; -1 for a rate that has none.
int aac_rate_index(int32_t sample_rate)
{
    static constexpr int32_t rates[] = {
        96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000,
    };
    const auto* found = std::find(std::begin(rates), std::end(rates), sample_rate);
    return found == std::end(rates) ? -1 : static_cast<int>(found - rates);
}

// ------------------------------------------------------------------- Entry

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

// ----------------------------------------------------------- Track formats

// What runs across the streams while their formats are published.
struct FormatWalk {
    int32_t max_input_size = input_size_start; // also of an audio stream behind the video
    int videos = 0;
    int audios = 0;
};

// What belongs to one stream while its format is published.
struct StreamFormat {
    int index;
    uint32_t fourcc;
    int error;          // the track's error type
    bool loggable;      // with an unsupported codec
    zoflv_block config; // data in which the configuration was looked for
    int config_size;    // bytes of it
};

namespace {

StreamFormat stream_format(int index, uint32_t fourcc)
{
    return {index, fourcc, 0, false, nullptr, 0};
}

void set_unsupported(StreamFormat* stream)
{
    stream->error = track_unsupported;
    stream->loggable = true;
}

// The device may say so by its result or by the flag; other failures count as supported.
bool device_plays(uint32_t fourcc)
{
    int32_t flag = 0;
    int32_t length = sizeof flag;
    const int rc = zovid_get_mm_spec(query_support, fourcc, &flag, &length);
    return rc != not_supported && (rc < 0 || flag != 0);
}

// Hands one piece of video data to the device's parser.
int parse_video(const uint8_t* data, int length, uint32_t fourcc, ZO_VIDEO_CONFIG* config)
{
    ZO_CONFIG_INPUT input = {};
    input.data = data;
    input.length = length;
    input.fourcc = fourcc;
    return zovid_config_parser(&input, config);
}

// The three functions below return non-zero to end the initialisation. `*result` is the parser's: 0
// configuration found, positive more data needed, negative failure, as it also stays without
// memory.

int parse_held_data(ZOFLVD* h, int length, StreamFormat* stream, ZO_VIDEO_CONFIG* config,
                    int* result)
{
    zoflv_block data = zoflv_alloc_zeroed(static_cast<size_t>(length));
    if (!data)
        return 0;
    if (zoflvd_get_format(h, stream->index, data.get(), &length) != ZOFLV_OK)
        return init_no_data;
    *result = parse_video(data.get(), length, stream->fourcc, config);
    stream->config = std::move(data);
    stream->config_size = length;
    return 0;
}

int probe_frames(ZOFLVD* h, StreamFormat* stream, ZO_VIDEO_CONFIG* config, int* result)
{
    constexpr int max_frames = 100;

    struct Close {
        void operator()(ZOFLVDS* s) const { zoflvds_close(s); }
    };
    int error = 0;
    const std::unique_ptr<ZOFLVDS, Close> frames(zoflvds_open(h, stream->index, &error));
    if (!frames)
        return init_no_data;
    zoflv_block buffer = zoflv_alloc_zeroed(input_size_usual);
    if (!buffer)
        return 0;
    for (int i = 0; i < max_frames; ++i) {
        int length = 0;
        if (zoflvds_get_frm(frames.get(), buffer.get(), input_size_usual, &length, nullptr,
                            nullptr) == ZOFLV_OK) {
            *result = parse_video(buffer.get(), length, stream->fourcc, config);
            stream->config_size = length;
        }
        if (*result <= 0) // a frame that could not be read leaves the result as it was
            break;
    }
    stream->config = std::move(buffer);
    return 0;
}

// Looks for the configuration in the data that the demuxer holds, or else in the first frames; a
// size found replaces the one in `info`.
int configure_video(ZOFLVD* h, StreamFormat* stream, ZOFLVD_INFO_VID* info, bool* found)
{
    ZO_VIDEO_CONFIG config = {};
    int result = -1;
    int length = 0;
    const bool held =
        zoflvd_get_format(h, stream->index, nullptr, &length) == ZOFLV_OK && length >= 1;
    const int rc = held ? parse_held_data(h, length, stream, &config, &result)
                        : probe_frames(h, stream, &config, &result);
    if (rc != 0)
        return rc;
    *found = result == 0;
    if (*found && config.width != 0 && config.height != 0) {
        info->width = config.width;
        info->height = config.height;
    }
    return 0;
}

// Decides whether the device plays the stream, and how large its samples may be. Non-zero ends the
// initialisation.
int check_video(ZOFLVD* h, StreamFormat* stream, ZOFLVD_INFO_VID* info, FormatWalk* walk)
{
    walk->max_input_size = input_size_usual;
    if (!contains(video_fourccs, stream->fourcc) || !device_plays(stream->fourcc)) {
        set_unsupported(stream);
        return 0;
    }
    bool found = false;
    const int rc = configure_video(h, stream, info, &found);
    if (rc != 0)
        return rc;
    if (!found) {
        stream->error = track_unconfigured;
        return 0;
    }
    int32_t limits[4] = {1920, 1088, 1088, 1920}; // landscape width, height; portrait width, height
    int32_t length = sizeof limits;
    stream->error = zovid_get_mm_spec(query_limits, stream->fourcc, limits, &length);
    const int64_t pixels = int64_t{info->width} * info->height;
    const int64_t limit = info->width >= info->height ? int64_t{limits[0]} * limits[1]
                                                      : int64_t{limits[2]} * limits[3];
    if (pixels > limit)
        stream->error = track_too_large;
    else if (pixels > large_picture)
        walk->max_input_size = input_size_large;
    return stream->error == init_no_data ? init_no_data : 0;
}

// The file's duration divided by the number of keyframes; left out where there is no index.
void set_keyframe_interval(AMediaFormat* meta, const ZoFLVDSF& dsf, int index)
{
    constexpr int entry_size = sizeof(ZOFLVD_IDX_ENTRY);

    int size = 0;
    int count = 0;
    if (zoflvd_get_idx_table(dsf.mHandle, index, nullptr, 0, &size, &count) != ZOFLV_OK ||
        size < entry_size)
        return;
    const zoflv_block table = zoflv_alloc_zeroed(static_cast<size_t>(size));
    if (!table ||
        zoflvd_get_idx_table(dsf.mHandle, index, table.get(), size, &size, &count) != ZOFLV_OK)
        return;
    const uint64_t entries = static_cast<uint64_t>(size / entry_size);
    const uint64_t interval = static_cast<uint64_t>(dsf.mInfo.duration) / entries;
    AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_I_FRAME_AVG_INTERVAL,
                          static_cast<int64_t>(interval / ticks_per_us));
}

void set_video_keys(AMediaFormat* meta, const ZoFLVDSF& dsf, const StreamFormat& stream,
                    int32_t max_input_size)
{
    const Mime mime(stream.fourcc);
    const char* text = mime.text;
    if (std::strcmp(text, MEDIA_MIMETYPE_VIDEO_H263) == 0)
        text = MEDIA_MIMETYPE_VIDEO_H263_SORENSON; // the only H.263 in this container
    if (mime.is(MEDIA_MIMETYPE_UNKNOWN))
        text = MEDIA_MIMETYPE_VIDEO_UNKNOWN;
    const ZOFLVD_INFO_VID& info = dsf.mVideoInfo;
    AMediaFormat_setString(meta, AMEDIAFORMAT_KEY_MIME, text);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_FOURCC, static_cast<int32_t>(stream.fourcc));
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_WIDTH, info.width);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_HEIGHT, info.height);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, max_input_size);
    AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_DURATION, dsf.mInfo.duration / ticks_per_us);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_DISPLAY_WIDTH, info.width);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_DISPLAY_HEIGHT, info.height);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_FRAME_RATE, info.frame_rate);
    set_keyframe_interval(meta, dsf, stream.index);
    int length = 0;
    if (stream.config &&
        zoflvd_get_format(dsf.mHandle, stream.index, nullptr, &length) == ZOFLV_OK && length >= 1 &&
        length <= stream.config_size)
        AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_CSD_0, stream.config.get(),
                               static_cast<size_t>(length));
}

// Publishes a two-byte AudioSpecificConfig (ISO/IEC 14496-3) for AAC LC and the profile that the
// device reads from it. Nothing for a rate without an index: a guess would play at the wrong speed.
void set_aac_configuration(AMediaFormat* meta, const ZOFLVD_INFO_AUD& info)
{
    constexpr int config_size = 4; // as the device's parser is given it, two bytes zero

    const int rate = aac_rate_index(info.sample_rate);
    if (rate < 0)
        return;
    const zoflv_block config = zoflv_alloc_zeroed(config_size);
    if (!config)
        return;
    config.get()[0] = static_cast<uint8_t>(0x10 + rate / 2);
    config.get()[1] = static_cast<uint8_t>(rate % 2 * 128 + info.channels * 8);
    AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_CSD_0, config.get(), 2);
    ZO_CONFIG_INPUT input = {};
    input.data = config.get();
    input.length = config_size;
    input.fourcc = info.fourcc;
    ZO_AUDIO_CONFIG output = {};
    if (zoaud_config_parser(&input, &output, audio_config_kind) == 0)
        AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_AAC_PROFILE, output.profile);
}

void set_audio_configuration(AMediaFormat* meta, ZOFLVD* h, int index, const ZOFLVD_INFO_AUD& info,
                             const Mime& mime)
{
    int length = 0;
    if (zoflvd_get_format(h, index, nullptr, &length) != ZOFLV_OK || length < 1) {
        if (mime.is(MEDIA_MIMETYPE_AUDIO_AAC))
            set_aac_configuration(meta, info);
        return;
    }
    if (mime.is(MEDIA_MIMETYPE_AUDIO_MPEG))
        return;
    const zoflv_block data = zoflv_alloc_zeroed(static_cast<size_t>(length));
    if (data && zoflvd_get_format(h, index, data.get(), &length) == ZOFLV_OK && length >= 1)
        AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_CSD_0, data.get(),
                               static_cast<size_t>(length));
}

void set_audio_keys(AMediaFormat* meta, const ZoFLVDSF& dsf, int index, ZOFLVD_INFO_AUD* info,
                    int32_t max_input_size)
{
    const Mime mime(info->fourcc);
    if (info->bits_per_sample == 0)
        info->bits_per_sample = 16;
    AMediaFormat_setString(meta, AMEDIAFORMAT_KEY_MIME,
                           mime.is(MEDIA_MIMETYPE_UNKNOWN) ? MEDIA_MIMETYPE_AUDIO_UNKNOWN
                                                           : mime.text);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_FOURCC, static_cast<int32_t>(info->fourcc));
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_CHANNEL_COUNT, info->channels);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_SAMPLE_RATE, info->sample_rate);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_BITS_PER_SAMPLE, info->bits_per_sample);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, max_input_size);
    AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_DURATION, dsf.mInfo.duration / ticks_per_us);
    set_audio_configuration(meta, dsf.mHandle, index, *info, mime);
}

} // namespace

int ZoFLVExtractor::createDemuxer()
{
    if (zocmn_mfal_init(&mDSF->mMfal, mDataSource) != ZOFLV_OK) {
        mValid = false;
        return init_malformed;
    }
    int error = 0;
    mDSF->mHandle = zoflvd_create(&mDSF->mMfal, &mDSF->mDurationHint, &mDSF->mInfo, &error);
    if (!mDSF->mHandle) {
        __android_log_print(ANDROID_LOG_INFO, log_tag,
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

    FormatWalk walk;
    for (int i = 0; i < mDSF->mInfo.strm_cnt; ++i) {
        const int rc = publishStream(i, &walk);
        if (rc != 0)
            return rc;
    }
    return 0;
}

int ZoFLVExtractor::publishStream(int index, FormatWalk* walk)
{
    const int type = mDSF->mInfo.strm_type[index];
    if (type == ZOFLV_TAG_AUDIO)
        return publishAudio(index, walk);
    if (type == ZOFLV_TAG_VIDEO)
        return publishVideo(index, walk);
    AMediaFormat* meta = appendTrack(stream_format(index, 0));
    if (!meta)
        return init_no_data;
    AMediaFormat_setString(meta, AMEDIAFORMAT_KEY_MIME, MEDIA_MIMETYPE_UNKNOWN);
    return 0;
}

int ZoFLVExtractor::publishAudio(int index, FormatWalk* walk)
{
    if (walk->audios >= static_cast<int>(std::size(mDSF->mAudioInfo)))
        return 0;
    ZOFLVD_INFO_AUD* info = &mDSF->mAudioInfo[walk->audios];
    if (zoflvd_get_info_aud(mDSF->mHandle, index, info) != ZOFLV_OK)
        return init_no_data;
    __android_log_print(ANDROID_LOG_INFO, log_tag, "ZoFLVExtractor(AUDIO) mimetype : %s (0x%04x)",
                        Mime(info->fourcc).text, info->fourcc);
    StreamFormat stream = stream_format(index, info->fourcc);
    if (!contains(audio_fourccs, info->fourcc))
        set_unsupported(&stream);
    ++walk->audios;
    AMediaFormat* meta = appendTrack(stream);
    if (!meta)
        return init_no_data;
    set_audio_keys(meta, *mDSF, index, info, walk->max_input_size);
    return 0;
}

int ZoFLVExtractor::publishVideo(int index, FormatWalk* walk)
{
    if (walk->videos >= 1)
        return 0;
    ZOFLVD_INFO_VID* info = &mDSF->mVideoInfo;
    if (zoflvd_get_info_vid(mDSF->mHandle, index, info) != ZOFLV_OK)
        return init_no_data;
    __android_log_print(ANDROID_LOG_INFO, log_tag, "ZoFLVExtractor(VIDEO) mimetype : %s (0x%04x)",
                        Mime(info->fourcc).text, info->fourcc);
    mVideoFound = true;
    ++walk->videos;
    StreamFormat stream = stream_format(index, info->fourcc);
    const int rc = check_video(mDSF->mHandle, &stream, info, walk);
    if (rc != 0)
        return rc;
    AMediaFormat* meta = appendTrack(stream);
    if (!meta)
        return init_no_data;
    set_video_keys(meta, *mDSF, stream, walk->max_input_size);
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
    AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_DURATION, mDSF->mInfo.duration / ticks_per_us);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_ALLOW_FRAME_REORDERING, 1);
    AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_ERROR_TYPE, stream.error);
    if (stream.error == track_unsupported && stream.loggable) {
        AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_TRACK_FOURCC,
                              static_cast<int32_t>(stream.fourcc));
        AMediaFormat_setInt32(meta, AMEDIAFORMAT_KEY_ERROR_LOGGABLE, 1);
    }
    return meta;
}

// ------------------------------------------------------------ Track source

namespace {

class Lock {
public:
    explicit Lock(pthread_mutex_t* mutex) : mMutex(mutex) { pthread_mutex_lock(mMutex); }
    ~Lock() { pthread_mutex_unlock(mMutex); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    pthread_mutex_t* mMutex;
};

// By the platform's mode: previous, next, closest sync, closest.
constexpr int seek_modes[] = {ZOFLV_SEEK_PREVIOUS, ZOFLV_SEEK_NEXT, ZOFLV_SEEK_CLOSEST,
                              ZOFLV_SEEK_PREVIOUS};

int64_t to_ticks(int64_t time_us)
{
    int64_t ticks = 0;
    if (!__builtin_mul_overflow(time_us, ticks_per_us, &ticks))
        return ticks;
    return time_us < 0 ? INT64_MIN : INT64_MAX;
}

} // namespace

ZoFLVSource::ZoFLVSource(AMediaFormat* format, DataSourceHelper*, const sp<ZoFLVDSF>& holder,
                         int index)
    : mFormat(format), mDSF(holder), mBuffer(nullptr), mIndex(index), mType(0), mStream(nullptr),
      mCurrtime(0), mStarted(false)
{
    pthread_mutex_init(&mLock, nullptr);
    const int type = mDSF->mInfo.strm_type[mIndex];
    if (type != ZOFLV_TAG_AUDIO && type != ZOFLV_TAG_VIDEO)
        return;
    mType = type;
    mStream = mDSF->openStream(mIndex);
    if (!mStream)
        mDSF.clear();
}

ZoFLVSource::~ZoFLVSource()
{
    if (mStarted)
        ZoFLVSource::stop();
    if (mStream) {
        mDSF->closeStream(mStream);
        mStream = nullptr;
    }
    mDSF.clear();
    pthread_mutex_destroy(&mLock);
}

media_status_t ZoFLVSource::start()
{
    const Lock lock(&mLock);
    check(!mStarted, "!(!mStarted)", "libextractor/zoflv_extractor:955 CHECK(!mStarted) failed.");
    if (!mDSF.get())
        return AMEDIA_ERROR_UNSUPPORTED;
    int32_t max_size = 0;
    check(AMediaFormat_getInt32(mFormat, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, &max_size),
          "!(AMediaFormat_getInt32(mFormat, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, &max_size))",
          "libextractor/zoflv_extractor:963 CHECK(AMediaFormat_getInt32(mFormat, "
          "AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, &max_size)) failed.");
    mBufferGroup->add_buffer(static_cast<size_t>(max_size));
    mStarted = true;
    return AMEDIA_OK;
}

media_status_t ZoFLVSource::stop()
{
    const Lock lock(&mLock);
    check(mStarted, "!(mStarted)", "libextractor/zoflv_extractor:981 CHECK(mStarted) failed.");
    mStarted = false;
    return AMEDIA_OK;
}

media_status_t ZoFLVSource::getFormat(AMediaFormat* format)
{
    const Lock lock(&mLock);
    AMediaFormat_copy(format, mFormat);
    return AMEDIA_OK;
}

media_status_t ZoFLVSource::read(MediaBufferHelper** out, const ReadOptions* options)
{
    const Lock lock(&mLock);
    check(mStarted, "!(mStarted)", "libextractor/zoflv_extractor:997 CHECK(mStarted) failed.");
    *out = nullptr;
    mBuffer = nullptr; // an earlier one is the caller's
    if (mBufferGroup->acquire_buffer(&mBuffer, false, 0) != AMEDIA_OK) {
        mBuffer = nullptr;
        return AMEDIA_ERROR_UNKNOWN;
    }
    check(mBuffer != nullptr, "!(mBuffer != NULL)",
          "libextractor/zoflv_extractor:1079 CHECK(mBuffer != NULL) failed.");
    if (options) {
        const media_status_t status = seek(*options);
        if (status != AMEDIA_OK) {
            releaseBuffer();
            return status;
        }
    }
    return readFrame(out);
}

void ZoFLVSource::releaseBuffer()
{
    mBuffer->release();
    mBuffer = nullptr;
}

// Carries out the seek that the options ask for, if any.
media_status_t ZoFLVSource::seek(const ReadOptions& options)
{
    int64_t time_us = 0;
    ReadOptions::SeekMode mode = ReadOptions::SEEK_PREVIOUS_SYNC;
    if (!options.getSeekTo(&time_us, &mode))
        return AMEDIA_OK;
    if (mDSF->mInfo.seekable != 1 && time_us != 0)
        return AMEDIA_OK;
    const unsigned platform_mode = static_cast<unsigned>(mode);
    if (platform_mode >= std::size(seek_modes)) // a seek to a frame's index
        return AMEDIA_ERROR_UNSUPPORTED;
    const int64_t time = to_ticks(time_us);
    if (mDSF->mInfo.duration < time)
        return AMEDIA_ERROR_END_OF_STREAM;
    int64_t landed = 0; // not used: the next frame's own time tells where the stream stands
    const int rc = zoflvds_seek(mStream, &time, &landed, seek_modes[platform_mode]);
    if (rc != ZOFLV_OK) {
        __android_log_print(ANDROID_LOG_INFO, log_tag,
                            "ZoFLVSource::read()[%d, %d] zoflvds_seek() failed! zoflv_seek_time: "
                            "%lld, retval=%d",
                            mIndex, mType, static_cast<long long>(time), rc);
        return AMEDIA_ERROR_END_OF_STREAM;
    }
    return AMEDIA_OK;
}

// Reads the next frame into the buffer, labels it and hands it out.
media_status_t ZoFLVSource::readFrame(MediaBufferHelper** out)
{
    int frm_len = 0;
    int64_t time = 0;
    int64_t next_time = 0;
    const int capacity = static_cast<int>(std::min(mBuffer->size(), size_t{INT_MAX}));
    const int rc = zoflvds_get_frm(mStream, static_cast<uint8_t*>(mBuffer->data()), capacity,
                                   &frm_len, &time, &next_time);
    if (rc != ZOFLV_OK) {
        releaseBuffer();
        if (rc == ZOFLV_EOF)
            return AMEDIA_ERROR_END_OF_STREAM;
        __android_log_print(ANDROID_LOG_INFO, log_tag,
                            "zoflvds_get_frm [mCurrtime = %lld] ZOFLV_OK != retval : %d",
                            static_cast<long long>(mCurrtime), rc);
        return AMEDIA_ERROR_IO;
    }
    mBuffer->set_range(0, static_cast<size_t>(frm_len));
    mCurrtime = time / ticks_per_us;
    AMediaFormat* meta = mBuffer->meta_data();
    AMediaFormat_clear(meta);
    AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_TIME_US, mCurrtime);
    if (next_time > time)
        AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_DURATION, (next_time - time) / ticks_per_us);
    *out = mBuffer;
    return AMEDIA_OK;
}

} // namespace android
