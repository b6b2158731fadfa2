// SPDX-License-Identifier: Apache-2.0
#include "libextractor/zoflv_extractor_formats.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <strings.h>
#include <utility>
#include <zodevice/zo_extractor_common.h>
#include <zodevice/zo_media_formats.h>

namespace android {
namespace {

// Maximum input sizes in bytes with a video stream, and the picture above which the larger one is
// published.
constexpr int32_t input_size_usual = 1572864;
constexpr int32_t input_size_large = 6291456;
constexpr int64_t large_picture = 2088960; // 1920 x 1088 pixels

// What the device's extractor library is asked.
constexpr int query_support = 100;    // is the codec played?
constexpr int query_limits = 101;     // the largest pictures
constexpr int not_supported = -109;   // an answer to the first
constexpr int audio_config_kind = 28; // an AudioSpecificConfig

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

Block alloc_zeroed(size_t size)
{
    return Block(static_cast<uint8_t*>(std::calloc(size, 1)));
}

// ISO/IEC 14496-3 samplingFrequencyIndex; -1 for a rate that has none.
int aac_rate_index(int32_t sample_rate)
{
    static constexpr int32_t rates[] = {
        96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000,
    };
    const auto* found = std::find(std::begin(rates), std::end(rates), sample_rate);
    return found == std::end(rates) ? -1 : static_cast<int>(found - rates);
}

} // namespace

Mime::Mime(uint32_t fourcc)
{
    const char* found = FourCC2MIME(fourcc);
    std::snprintf(text, sizeof text, "%s", found ? found : MEDIA_MIMETYPE_UNKNOWN);
}

bool Mime::is(const char* other) const
{
    return strcasecmp(text, other) == 0;
}

void set_unsupported(StreamFormat* stream)
{
    stream->error = track_unsupported;
    stream->loggable = true;
}

bool plays_audio(uint32_t fourcc)
{
    return contains(audio_fourccs, fourcc);
}

namespace {

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
    Block data = alloc_zeroed(static_cast<size_t>(length));
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
    Block buffer = alloc_zeroed(input_size_usual);
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

} // namespace

int check_video(ZOFLVD* h, StreamFormat* stream, ZOFLVD_INFO_VID* info, FormatRun* run)
{
    run->max_input_size = input_size_usual;
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
        run->max_input_size = input_size_large;
    return stream->error == init_no_data ? init_no_data : 0;
}

namespace {

// The file's duration divided by the number of keyframes; left out where there is no index.
void set_keyframe_interval(AMediaFormat* meta, const ZoFLVDSF& dsf, int index)
{
    constexpr int entry_size = sizeof(ZOFLVD_IDX_ENTRY);

    int size = 0;
    int count = 0;
    if (zoflvd_get_idx_table(dsf.mHandle, index, nullptr, 0, &size, &count) != ZOFLV_OK ||
        size < entry_size)
        return;
    const Block table = alloc_zeroed(static_cast<size_t>(size));
    if (!table ||
        zoflvd_get_idx_table(dsf.mHandle, index, table.get(), size, &size, &count) != ZOFLV_OK)
        return;
    const uint64_t entries = static_cast<uint64_t>(size / entry_size);
    const uint64_t interval = static_cast<uint64_t>(dsf.mInfo.duration) / entries;
    AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_I_FRAME_AVG_INTERVAL,
                          static_cast<int64_t>(interval / ZOFLV_TICKS_PER_US));
}

} // namespace

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
    AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_DURATION, dsf.mInfo.duration / ZOFLV_TICKS_PER_US);
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

namespace {

// Publishes a two-byte AudioSpecificConfig (ISO/IEC 14496-3) for AAC LC and the profile that the
// device reads from it. Nothing for a rate without an index: a guess would play at the wrong speed.
void set_aac_configuration(AMediaFormat* meta, const ZOFLVD_INFO_AUD& info)
{
    constexpr int config_size = 4; // as the device's parser is given it, two bytes zero

    const int rate = aac_rate_index(info.sample_rate);
    if (rate < 0)
        return;
    const Block config = alloc_zeroed(config_size);
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
    const Block data = alloc_zeroed(static_cast<size_t>(length));
    if (data && zoflvd_get_format(h, index, data.get(), &length) == ZOFLV_OK && length >= 1)
        AMediaFormat_setBuffer(meta, AMEDIAFORMAT_KEY_CSD_0, data.get(),
                               static_cast<size_t>(length));
}

} // namespace

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
    AMediaFormat_setInt64(meta, AMEDIAFORMAT_KEY_DURATION, dsf.mInfo.duration / ZOFLV_TICKS_PER_US);
    set_audio_configuration(meta, dsf.mHandle, index, *info, mime);
}

} // namespace android
