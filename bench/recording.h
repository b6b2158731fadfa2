// SPDX-License-Identifier: Apache-2.0
/// @file
/// Recordings for the benchmarks: AVC and AAC, 25 video frames a second, a keyframe every two seconds.
#pragma once

#include "tests/support/flv_builder.h"

#include <functional>

/// What a recording is made of; sizes are those of the tags' data.
struct Shape {
    const char* name;
    size_t video_size;
    size_t audio_size;
    int audio_per_video;
    int64_t size; ///< of the file that peers are compared on, bytes
};

constexpr Shape shapes[] = {
    {"hi", 85000, 400, 2, 309000000},  // few large frames
    {"typ", 3060, 400, 2, 320000000},  // what cameras and services send
    {"lo", 50, 50, 1, 32000000},       // the tags' overhead is a quarter of the file
    {"far", 1000, 200, 100, 32000000}, // the other stream's tags between two frames
};

constexpr int frame_ms = 40;
constexpr int keyframe_distance = 50; // video frames

/// Takes the file's next bytes.
using ByteSink = std::function<void(const Bytes&)>;

// What decoders accept, before bytes that make the frame as large as it should be: a black picture of
// 16 x 16 pixels, the same again, and silence in AAC.
constexpr std::string_view picture_sps =
    "67 42 C0 0A D9 1E C0 44 00 00 03 00 04 00 00 03 00 C8 3C 48 99 20";
constexpr std::string_view picture_pps = "68 CB 83 CB 20";
constexpr std::string_view picture_key = "65 88 84 0B F2 62 80 00 AB CE";
constexpr std::string_view picture_same = "41 9A 38 17 EA";
constexpr std::string_view silence = "21 10 04 60 8C 1C";

inline Bytes padded(std::string_view digits, size_t size)
{
    Bytes bytes = hex(digits);
    bytes.resize(size);
    return bytes;
}

/// One video frame and the audio frames after it.
inline void add_group(FlvBuilder* out, const Shape& shape, int64_t number)
{
    constexpr size_t avc_overhead = 5 + 4; // the tag's header, the NAL unit's length
    constexpr size_t aac_overhead = 2;
    const bool key = number % keyframe_distance == 0;
    // From 3/4 to 5/4 of the shape's size, but for frames so small that all are alike.
    const size_t video = shape.video_size < 100
                             ? shape.video_size
                             : shape.video_size / 8 * (6 + static_cast<size_t>(number * 3 % 5));
    const Bytes unit = padded(key ? picture_key : picture_same, video - avc_overhead);
    const uint32_t time_ms = static_cast<uint32_t>(number * frame_ms);
    out->tag(9, time_ms, avc_tag({unit}, key));
    for (int i = 0; i < shape.audio_per_video; ++i)
        out->tag(8, time_ms + static_cast<uint32_t>(i * frame_ms / shape.audio_per_video),
                 aac_tag(padded(silence, shape.audio_size - aac_overhead)));
}

/// Writes a recording of about `size` bytes.
/// @param indexed  with a keyframe index
/// @return its number of tags
inline int64_t write_recording(const Shape& shape, int64_t size, bool indexed, const ByteSink& sink)
{
    constexpr size_t piece = 1 << 20;
    FlvBuilder body;
    body.tag(9, 0, avc_config_tag(avc_record({hex(picture_sps)}, {hex(picture_pps)})));
    body.tag(8, 0, aac_config_tag());
    const size_t head = body.size();

    // The group sizes repeat: 5 of them are a period.
    std::vector<int64_t> sizes;
    for (int i = 0; i < 5; ++i) {
        FlvBuilder group;
        add_group(&group, shape, i);
        sizes.push_back(static_cast<int64_t>(group.size()));
    }
    int64_t groups = 0;
    std::vector<double> times, positions;
    int64_t end = static_cast<int64_t>(head);
    for (; end < size; end += sizes[static_cast<size_t>(groups++ % 5)]) {
        if (groups % keyframe_distance != 0)
            continue;
        times.push_back(static_cast<double>(groups * frame_ms) / 1000);
        positions.push_back(static_cast<double>(end));
    }
    const auto meta = [&] {
        std::vector<Bytes> props = {
            amf_prop("duration", amf_num(static_cast<double>(groups * frame_ms) / 1000))};
        if (indexed)
            props.push_back(amf_keyframes(times, positions));
        return FlvBuilder().header().tag(18, 0, on_meta_data(props)).bytes();
    };
    const double shift = static_cast<double>(meta().size());
    for (double& position : positions)
        position += shift;
    sink(meta());

    for (int64_t i = 0; i < groups; ++i) {
        add_group(&body, shape, i);
        if (body.size() >= piece) {
            sink(body.bytes());
            body = FlvBuilder();
        }
    }
    sink(body.bytes());
    return 3 + groups * (1 + shape.audio_per_video);
}
