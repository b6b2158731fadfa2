// SPDX-License-Identifier: Apache-2.0
/// @file
/// Stand-in for the device's extractor common library: which video codecs and sizes the device
/// plays, and the configuration found in a piece of codec data.
///
/// All functions may be called from several threads at once.
#pragma once

#include <stdint.h>

/// Queries of zovid_get_mm_spec.
enum {
    ZO_SPEC_SUPPORT = 100, ///< out: int32, not 0 when the codec is supported; length 4
    ZO_SPEC_LIMITS = 101,  ///< out: ZO_SPEC_SIZE_LIMITS; length 16
};

/// Result of a query about a codec that is not supported; a device may also say so by the flag.
constexpr int ZO_SPEC_UNSUPPORTED = -109;

/// Third argument of zoaud_config_parser.
constexpr int ZO_AUDIO_CONFIG_SPECIFIC = 28;

/// The largest pictures, in pixels. Landscape: width at least height.
struct ZO_SPEC_SIZE_LIMITS {
    int32_t landscape_width;
    int32_t landscape_height;
    int32_t portrait_width;
    int32_t portrait_height;
};

/// One piece of codec data. The data stays the caller's and is not kept.
struct ZO_CONFIG_INPUT {
    const void* data;
    int32_t length; ///< bytes
    uint32_t fourcc;
    uint8_t reserved[32]; ///< zero
};

struct ZO_VIDEO_CONFIG {
    int32_t width;  ///< pixels
    int32_t height; ///< pixels
    uint8_t reserved[44];
};

struct ZO_AUDIO_CONFIG {
    int32_t profile; ///< audio object type, 2 for AAC LC
    uint8_t reserved[40];
};

static_assert(sizeof(ZO_SPEC_SIZE_LIMITS) == 16, "layout of the device library");
static_assert(sizeof(void*) != 4 || sizeof(ZO_CONFIG_INPUT) == 44, "layout of the device library");
static_assert(sizeof(ZO_VIDEO_CONFIG) == 52, "layout of the device library");
static_assert(sizeof(ZO_AUDIO_CONFIG) == 44, "layout of the device library");

extern "C" {

/// @param length  bytes of `out`, as the query asks for
/// @return 0, or negative with nothing written: unknown query, wrong length, missing argument, or
///         ZO_SPEC_UNSUPPORTED
int zovid_get_mm_spec(int query, uint32_t fourcc, void* out, int32_t* length);

/// Looks for the picture size: in start-code form AVC, a Sorenson or plain H.263 picture.
/// @return 0 with width and height set; positive when `in` holds no configuration yet; negative
///         when what it holds is broken or the codec unknown. Only 0 writes to `out`.
int zovid_config_parser(const ZO_CONFIG_INPUT* in, ZO_VIDEO_CONFIG* out);

/// Reads an AudioSpecificConfig.
/// @param kind  ZO_AUDIO_CONFIG_SPECIFIC, the one kind that is known
/// @return 0 with the profile set, or negative with nothing written
int zoaud_config_parser(const ZO_CONFIG_INPUT* in, ZO_AUDIO_CONFIG* out, int kind);

} // extern "C"
