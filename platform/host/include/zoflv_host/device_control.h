// SPDX-License-Identifier: Apache-2.0
/// @file
/// What tests set and read of the device stand-in. Thread-safe.
#pragma once

#include <zodevice/zo_extractor_common.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace zoflv_host {

/// How the device behaves; the defaults are an ordinary device's.
struct DeviceSettings {
    DeviceSettings();

    std::vector<uint32_t> supported; ///< AVC and all H.263 codes
    /// What the support query answers for any other codec: ZO_SPEC_UNSUPPORTED, or 0 and a zero
    /// flag.
    int refusal = 0;
    ZO_SPEC_SIZE_LIMITS limits{1920, 1088, 1088, 1920};

    // These replace an operation's result. A result of 0 or more writes the usual output (of a
    // parser: when there is one), a negative one writes nothing.
    std::optional<int> support_result;
    std::optional<int> limits_result;
    std::optional<int> video_result;
    std::optional<int> audio_result;
    /// The size reported with each video result of 0.
    std::optional<ZO_VIDEO_CONFIG> video_config;
};

/// The input of a parser call.
struct DeviceInput {
    uint32_t fourcc = 0;
    int32_t length = 0;
    std::vector<uint8_t> head; ///< the first bytes of the data, at most 4096
    bool reserved_zero = false;
};

/// The calls since the settings were last set.
struct DeviceCalls {
    int support = 0; ///< queries
    int limits = 0;  ///< queries
    int video = 0;   ///< parser calls
    int audio = 0;   ///< parser calls
    DeviceInput last_video;
    DeviceInput last_audio;
    int last_audio_kind = 0;
};

/// Exported by the device library.
void set_device(const DeviceSettings& settings);
DeviceCalls device_calls();

/// Settings for the length of a scope; the defaults return at its end.
class DeviceScope {
public:
    explicit DeviceScope(const DeviceSettings& settings = {}) { set_device(settings); }
    ~DeviceScope() { set_device({}); }
    DeviceScope(const DeviceScope&) = delete;
    DeviceScope& operator=(const DeviceScope&) = delete;
};

} // namespace zoflv_host
