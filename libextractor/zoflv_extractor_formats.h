// SPDX-License-Identifier: Apache-2.0
/// @file
/// What is published of a track: whether the device plays it, and the keys of its format.
#pragma once

#include "libextractor/zoflv_extractor_holder.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <media/NdkMediaFormat.h>
#include <memory>

namespace android {

/// Results of the initialisation, and error types published with a track: two sets of names.
enum : int {
    init_no_data = -1001,       // a stream's information or data could not be read
    track_unsupported = -1002,  // the codec, by the lists below or by the device
    track_unconfigured = -1003, // no video configuration
    track_too_large = -1004,    // the picture, beyond the device's limit
    init_io = -1004,            // the file could not be read
    init_malformed = -1007,     // not a file of this kind, or without streams
    init_invalid = -1010,       // an extractor that failed before
};

/// Maximum input size in bytes, where no video stream asks for more.
constexpr int32_t input_size_start = 524288;

/// A block from the plain heap, null when there is no memory.
struct FreeBlock {
    void operator()(void* p) const { std::free(p); }
};
using Block = std::unique_ptr<uint8_t, FreeBlock>;

/// A codec's MIME type, cut to what the formats take.
struct Mime {
    char text[128];

    explicit Mime(uint32_t fourcc);
    bool is(const char* other) const;
};

/// What runs across the streams while their formats are published.
struct FormatRun {
    int32_t max_input_size = input_size_start; ///< also of an audio stream after the video
    int videos = 0;
    int audios = 0;
};

/// What belongs to one stream while its format is published.
struct StreamFormat {
    StreamFormat(int stream, uint32_t code) : index(stream), fourcc(code) {}

    int index;
    uint32_t fourcc;
    int error = 0;         ///< the track's error type
    bool loggable = false; ///< with an unsupported codec
    Block config;          ///< data in which the configuration was looked for
    int config_size = 0;   ///< bytes of it
};

/// Marks a codec that is not played.
void set_unsupported(StreamFormat* stream);

/// Whether the plugin publishes the audio codec as playable.
bool plays_audio(uint32_t fourcc);

/// Decides whether the device plays the stream, and how large its samples may be; takes the size
/// that its configuration tells over into `info`.
/// @return 0; non-zero ends the initialisation
int check_video(ZOFLVD* h, StreamFormat* stream, ZOFLVD_INFO_VID* info, FormatRun* run);

/// Fill a track's format beyond the keys that all tracks have.
void set_video_keys(AMediaFormat* meta, const ZoFLVDSF& dsf, const StreamFormat& stream,
                    int32_t max_input_size);
void set_audio_keys(AMediaFormat* meta, const ZoFLVDSF& dsf, int index, ZOFLVD_INFO_AUD* info,
                    int32_t max_input_size);

} // namespace android
