// SPDX-License-Identifier: Apache-2.0
/// @file
/// What a device plays, as a verdict on a file presumes it: MIME types and the largest pictures.
///
/// The plugin asks its device library about video only. What the profile says of audio has to be
/// judged by whoever holds the published formats against it, with plays().
#pragma once

#include <zoflv_host/device_control.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zoflv_inspect {

/// A picture size in pixels. Only the number of pixels, width times height, is a limit.
struct PictureSize {
    int32_t width;
    int32_t height;
};

struct DeviceProfile {
    std::string name;
    std::vector<std::string> mime_types; ///< as the plugin publishes them
    PictureSize largest_landscape;       ///< for pictures at least as wide as high
    PictureSize largest_portrait;        ///< for all others

    /// Whether the device plays the type; letter case does not matter.
    bool plays(std::string_view mime) const;
};

/// The profile where none is named: AVC and Sorenson H.263 to 1920 x 1088 pixels, AAC, MPEG audio.
DeviceProfile default_device_profile();

/// Reads a profile, one JSON object:
///
///     {"name": "kitchen display",
///      "mime_types": ["video/avc", "audio/mp4a-latm"],
///      "largest_landscape": {"width": 1280, "height": 720},
///      "largest_portrait": {"width": 720, "height": 1280}}
///
/// The sizes may be missing: the default's hold then. A key that is not known is refused, since a
/// misspelt one would otherwise say nothing.
/// @param error  receives what is wrong, in a sentence without the file's name
/// @return the profile, or nothing
std::optional<DeviceProfile> parse_device_profile(std::string_view json, std::string* error);

/// The device library's answers for that device; set with zoflv_host::set_device().
zoflv_host::DeviceSettings device_settings(const DeviceProfile& profile);

} // namespace zoflv_inspect
