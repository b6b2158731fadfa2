// SPDX-License-Identifier: Apache-2.0
#include "inspect/device_profile.h"

#include <nlohmann/json.hpp>
#include <zodevice/zo_media_formats.h>

#include <algorithm>
#include <cstring>
#include <strings.h>

namespace zoflv_inspect {

namespace {

using Json = nlohmann::json;

/// Ends the parse; its text is the sentence.
struct Malformed {
    std::string text;
};

std::string text_of(const Json& value, const char* key)
{
    if (!value.is_string() || value.get_ref<const std::string&>().empty())
        throw Malformed{std::string("\"") + key + "\" is no text, or an empty one"};
    return value.get<std::string>();
}

std::vector<std::string> mime_types_of(const Json& value)
{
    if (!value.is_array())
        throw Malformed{"\"mime_types\" is no array"};
    std::vector<std::string> types;
    for (const Json& one : value) {
        types.push_back(text_of(one, "mime_types"));
        const std::string& type = types.back();
        if (type.compare(0, 6, "video/") != 0 && type.compare(0, 6, "audio/") != 0)
            throw Malformed{"\"" + type + "\" begins with neither \"video/\" nor \"audio/\""};
    }
    return types;
}

int32_t length_of(const Json& size, const char* key, const char* side)
{
    const auto found = size.find(side);
    const bool good = found != size.end() && found->is_number_unsigned() &&
                      found->get<uint64_t>() >= 1 && found->get<uint64_t>() <= INT32_MAX;
    if (!good)
        throw Malformed{std::string("\"") + key + "\" needs a \"" + side + "\" of 1 pixel or more"};
    return found->get<int32_t>();
}

PictureSize size_of(const Json& value, const char* key)
{
    if (!value.is_object() || value.size() != 2)
        throw Malformed{std::string("\"") + key + "\" needs \"width\" and \"height\" alone"};
    return {length_of(value, key, "width"), length_of(value, key, "height")};
}

DeviceProfile profile_of(const Json& object)
{
    if (!object.is_object())
        throw Malformed{"it is no JSON object"};
    DeviceProfile profile = default_device_profile();
    for (const auto& [key, value] : object.items()) {
        if (key == "name")
            profile.name = text_of(value, "name");
        else if (key == "mime_types")
            profile.mime_types = mime_types_of(value);
        else if (key == "largest_landscape")
            profile.largest_landscape = size_of(value, "largest_landscape");
        else if (key == "largest_portrait")
            profile.largest_portrait = size_of(value, "largest_portrait");
        else
            throw Malformed{"the key \"" + key + "\" is not known"};
    }
    for (const char* const key : {"name", "mime_types"}) {
        if (!object.contains(key))
            throw Malformed{std::string("it has no \"") + key + "\""};
    }
    return profile;
}

/// The MIME type under which the plugin publishes a video codec: the H.263 of this container is
/// Sorenson's.
const char* published_type(uint32_t fourcc)
{
    const char* const type = FourCC2MIME(fourcc);
    return std::strcmp(type, android::MEDIA_MIMETYPE_VIDEO_H263) == 0
               ? android::MEDIA_MIMETYPE_VIDEO_H263_SORENSON
               : type;
}

} // namespace

bool DeviceProfile::plays(std::string_view mime) const
{
    return std::any_of(mime_types.begin(), mime_types.end(), [mime](const std::string& type) {
        return type.size() == mime.size() &&
               strncasecmp(type.data(), mime.data(), mime.size()) == 0;
    });
}

DeviceProfile default_device_profile()
{
    const zoflv_host::DeviceSettings device;
    return {"default",
            {"video/avc", android::MEDIA_MIMETYPE_VIDEO_H263_SORENSON,
             android::MEDIA_MIMETYPE_AUDIO_AAC, android::MEDIA_MIMETYPE_AUDIO_MPEG},
            {device.limits.landscape_width, device.limits.landscape_height},
            {device.limits.portrait_width, device.limits.portrait_height}};
}

std::optional<DeviceProfile> parse_device_profile(std::string_view json, std::string* error)
{
    try {
        return profile_of(Json::parse(json));
    } catch (const Malformed& malformed) {
        *error = malformed.text;
    } catch (const Json::parse_error& broken) {
        *error = "it is no JSON: the error is at byte " + std::to_string(broken.byte);
    }
    return std::nullopt;
}

zoflv_host::DeviceSettings device_settings(const DeviceProfile& profile)
{
    zoflv_host::DeviceSettings settings;
    auto& codes = settings.supported;
    const auto refused = [&](uint32_t code) { return !profile.plays(published_type(code)); };
    codes.erase(std::remove_if(codes.begin(), codes.end(), refused), codes.end());
    settings.limits = {profile.largest_landscape.width, profile.largest_landscape.height,
                       profile.largest_portrait.width, profile.largest_portrait.height};
    return settings;
}

} // namespace zoflv_inspect
