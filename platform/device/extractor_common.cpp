// SPDX-License-Identifier: Apache-2.0
#include "config_parsers.h"
#include "fourcc.h"

#include <zodevice/zo_extractor_common.h>
#include <zoflv_host/device_control.h>

#include <algorithm>
#include <cstring>
#include <mutex>

namespace {

using zoflv_host::DeviceCalls;
using zoflv_host::DeviceInput;
using zoflv_host::DeviceSettings;

constexpr int BAD_ARGUMENT = -1;
constexpr size_t HEAD_BYTES = 4096; // enough for codec data; a whole frame is not worth the copy

struct Device {
    std::mutex mutex; // guards all below
    DeviceSettings settings;
    DeviceCalls calls;
};

/// Never destroyed: a plugin may ask until the process ends.
Device& device()
{
    static auto& instance = *new Device;
    return instance;
}

/// @return whether the output was written
bool write_out(const void* value, int32_t size, void* out, const int32_t* length)
{
    if (!out || !length || *length != size)
        return false;
    std::memcpy(out, value, static_cast<size_t>(size));
    return true;
}

int answer_support(const DeviceSettings& settings, uint32_t fourcc, void* out, int32_t* length)
{
    const int32_t flag = zodevice::is_one_of(fourcc, settings.supported);
    const int result = settings.support_result.value_or(flag ? 0 : settings.refusal);
    if (result < 0)
        return result;
    return write_out(&flag, sizeof flag, out, length) ? result : BAD_ARGUMENT;
}

int answer_limits(const DeviceSettings& settings, void* out, int32_t* length)
{
    const int result = settings.limits_result.value_or(0);
    if (result < 0)
        return result;
    return write_out(&settings.limits, sizeof settings.limits, out, length) ? result : BAD_ARGUMENT;
}

bool is_valid(const ZO_CONFIG_INPUT* in)
{
    return in && in->length >= 0;
}

DeviceInput remember(const ZO_CONFIG_INPUT& in)
{
    DeviceInput input;
    input.fourcc = in.fourcc;
    input.length = in.length;
    const auto* data = static_cast<const uint8_t*>(in.data);
    if (data)
        input.head.assign(data, data + std::min(static_cast<size_t>(in.length), HEAD_BYTES));
    input.reserved_zero = std::all_of(std::begin(in.reserved), std::end(in.reserved),
                                      [](uint8_t byte) { return byte == 0; });
    return input;
}

int parse_video(const ZO_CONFIG_INPUT& in, zodevice::PictureSize* out)
{
    using namespace zodevice;
    const auto* data = static_cast<const uint8_t*>(in.data);
    const auto size = static_cast<size_t>(in.length);
    const bool sorenson = in.fourcc == FLV1;
    const bool avc = is_one_of(in.fourcc, AVC_CODES);
    if (!sorenson && !avc && !is_one_of(in.fourcc, H263_CODES))
        return BROKEN;
    if (!data || size == 0)
        return MORE_DATA;
    return sorenson ? parse_sorenson_h263(data, size, out)
           : avc    ? parse_avc(data, size, out)
                    : parse_plain_h263(data, size, out);
}

} // namespace

namespace zoflv_host {

DeviceSettings::DeviceSettings()
{
    using namespace zodevice;
    supported = {FLV1};
    for (const uint32_t code : H263_CODES)
        supported.push_back(code);
    for (const uint32_t code : AVC_CODES)
        supported.push_back(code);
}

void set_device(const DeviceSettings& settings)
{
    std::lock_guard lock(device().mutex);
    device().settings = settings;
    device().calls = {};
}

DeviceCalls device_calls()
{
    std::lock_guard lock(device().mutex);
    return device().calls;
}

} // namespace zoflv_host

int zovid_get_mm_spec(int query, uint32_t fourcc, void* out, int32_t* length)
{
    std::lock_guard lock(device().mutex);
    if (query == ZO_SPEC_SUPPORT) {
        ++device().calls.support;
        return answer_support(device().settings, fourcc, out, length);
    }
    if (query == ZO_SPEC_LIMITS) {
        ++device().calls.limits;
        return answer_limits(device().settings, out, length);
    }
    return BAD_ARGUMENT;
}

int zovid_config_parser(const ZO_CONFIG_INPUT* in, ZO_VIDEO_CONFIG* out)
{
    if (!is_valid(in) || !out)
        return BAD_ARGUMENT;
    zodevice::PictureSize size{};
    const int found = parse_video(*in, &size);
    std::lock_guard lock(device().mutex);
    ++device().calls.video;
    device().calls.last_video = remember(*in);
    const DeviceSettings& settings = device().settings;
    const int result = settings.video_result.value_or(found);
    if (result == 0 && settings.video_config) {
        *out = *settings.video_config;
    } else if (result == 0 && found == zodevice::FOUND) {
        out->width = size.width;
        out->height = size.height;
    }
    return result;
}

int zoaud_config_parser(const ZO_CONFIG_INPUT* in, ZO_AUDIO_CONFIG* out, int kind)
{
    if (!is_valid(in) || !out)
        return BAD_ARGUMENT;
    const bool readable = in->data && kind == ZO_AUDIO_CONFIG_SPECIFIC;
    const int profile =
        readable ? zodevice::parse_audio_specific_config(static_cast<const uint8_t*>(in->data),
                                                         static_cast<size_t>(in->length))
                 : zodevice::BROKEN;
    std::lock_guard lock(device().mutex);
    ++device().calls.audio;
    device().calls.last_audio = remember(*in);
    device().calls.last_audio_kind = kind;
    const int result = device().settings.audio_result.value_or(profile < 0 ? profile : 0);
    if (result == 0 && profile >= 0)
        out->profile = profile;
    return result;
}
