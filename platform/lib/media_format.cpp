// SPDX-License-Identifier: Apache-2.0
#include <media/NdkMediaFormat.h>
#include <zoflv_host/format.h>

#include <cstdio>
#include <cstring>

using zoflv_host::FormatEntry;
using zoflv_host::FormatValue;

// A sample's format is cleared and set again for every sample: what is cleared keeps its place and its
// key, so that this takes nothing from the heap.
struct AMediaFormat {
    std::vector<FormatEntry> entries; // those in use, then those that were cleared
    size_t used = 0;
    std::string text; // what AMediaFormat_toString handed out last
};

namespace {

// Most keys of a format differ in their first letter.
bool is_key(const FormatEntry& entry, const char* key)
{
    const char* const own = entry.key.c_str();
    return *own == *key && std::strcmp(own, key) == 0;
}

FormatValue* find(AMediaFormat* format, const char* key)
{
    FormatEntry* entry = format->entries.data();
    for (FormatEntry* const end = entry + format->used; entry != end; ++entry) {
        if (is_key(*entry, key))
            return &entry->value;
    }
    return nullptr;
}

FormatValue* add(AMediaFormat* format, const char* key)
{
    if (format->used == format->entries.size())
        format->entries.push_back({key, {}});
    FormatEntry& entry = format->entries[format->used++];
    if (!is_key(entry, key))
        entry.key = key;
    return &entry.value;
}

template <typename T>
T* find_as(AMediaFormat* format, const char* key)
{
    FormatValue* value = format && key ? find(format, key) : nullptr;
    return value ? std::get_if<T>(value) : nullptr;
}

// Ends the process when memory runs out, as on a device: an exception would leave a plugin's locks
// locked.
template <typename T, typename... Parts>
void set(AMediaFormat* format, const char* key, Parts... parts) noexcept
{
    if (!format || !key)
        return;
    FormatValue* place = find(format, key);
    if (!place)
        place = add(format, key);
    *place = T(parts...);
}

template <typename T>
bool get(AMediaFormat* format, const char* key, T* out)
{
    const T* value = find_as<T>(format, key);
    if (value && out)
        *out = *value;
    return value && out;
}

struct ToText {
    std::string operator()(int32_t value) const { return "int32(" + std::to_string(value) + ')'; }
    std::string operator()(int64_t value) const { return "int64(" + std::to_string(value) + ')'; }
    std::string operator()(const std::string& value) const { return "string(" + value + ')'; }
    std::string operator()(const std::vector<uint8_t>& value) const
    {
        std::string text = "buffer(";
        char digits[3];
        for (const uint8_t byte : value) {
            std::snprintf(digits, sizeof digits, "%02x", byte);
            text += digits;
        }
        return text + ')';
    }
};

} // namespace

zoflv_host::FormatEntries zoflv_host::format_entries(const AMediaFormat* format)
{
    return {format->entries.data(), format->used};
}

AMediaFormat* AMediaFormat_new()
{
    const auto make = []() noexcept { return new AMediaFormat; }; // as in set()
    return make();
}

media_status_t AMediaFormat_delete(AMediaFormat* format)
{
    delete format;
    return AMEDIA_OK;
}

media_status_t AMediaFormat_copy(AMediaFormat* to, AMediaFormat* from)
{
    if (!to || !from)
        return AMEDIA_ERROR_UNKNOWN;
    const auto copy = [&]() noexcept { // as in set()
        to->entries = from->entries;
        to->used = from->used;
    };
    if (to != from)
        copy();
    return AMEDIA_OK;
}

media_status_t AMediaFormat_clear(AMediaFormat* format)
{
    if (!format)
        return AMEDIA_ERROR_UNKNOWN;
    for (size_t i = 0; i < format->used; ++i) {
        FormatValue& value = format->entries[i].value;
        if (!std::holds_alternative<int64_t>(value))
            value = int64_t{0}; // a string's or a buffer's memory is not kept
    }
    format->used = 0;
    return AMEDIA_OK;
}

void AMediaFormat_setInt32(AMediaFormat* format, const char* key, int32_t value)
{
    set<int32_t>(format, key, value);
}

void AMediaFormat_setInt64(AMediaFormat* format, const char* key, int64_t value)
{
    set<int64_t>(format, key, value);
}

void AMediaFormat_setString(AMediaFormat* format, const char* key, const char* value)
{
    if (value)
        set<std::string>(format, key, value);
}

void AMediaFormat_setBuffer(AMediaFormat* format, const char* key, const void* data, size_t size)
{
    const auto* bytes = static_cast<const uint8_t*>(data);
    if (bytes)
        set<std::vector<uint8_t>>(format, key, bytes, bytes + size);
}

bool AMediaFormat_getInt32(AMediaFormat* format, const char* key, int32_t* out)
{
    return get(format, key, out);
}

bool AMediaFormat_getInt64(AMediaFormat* format, const char* key, int64_t* out)
{
    return get(format, key, out);
}

bool AMediaFormat_getString(AMediaFormat* format, const char* key, const char** out)
{
    const auto* value = find_as<std::string>(format, key);
    if (value && out)
        *out = value->c_str();
    return value && out;
}

bool AMediaFormat_getBuffer(AMediaFormat* format, const char* key, void** data, size_t* size)
{
    auto* value = find_as<std::vector<uint8_t>>(format, key);
    if (!value || !data || !size)
        return false;
    *data = value->data();
    *size = value->size();
    return true;
}

const char* AMediaFormat_toString(AMediaFormat* format)
{
    if (!format)
        return "";
    format->text.clear();
    for (const FormatEntry& entry : zoflv_host::format_entries(format)) {
        format->text += (format->text.empty() ? "" : ", ") + entry.key + ": ";
        format->text += std::visit(ToText{}, entry.value);
    }
    return format->text.c_str();
}

const char* AMEDIAFORMAT_KEY_AAC_PROFILE = "aac-profile";
const char* AMEDIAFORMAT_KEY_BITS_PER_SAMPLE = "bits-per-sample";
const char* AMEDIAFORMAT_KEY_CHANNEL_COUNT = "channel-count";
const char* AMEDIAFORMAT_KEY_CSD_0 = "csd-0";
const char* AMEDIAFORMAT_KEY_DISPLAY_HEIGHT = "display-height";
const char* AMEDIAFORMAT_KEY_DISPLAY_WIDTH = "display-width";
const char* AMEDIAFORMAT_KEY_DURATION = "durationUs";
const char* AMEDIAFORMAT_KEY_FRAME_RATE = "frame-rate";
const char* AMEDIAFORMAT_KEY_HEIGHT = "height";
const char* AMEDIAFORMAT_KEY_MAX_INPUT_SIZE = "max-input-size";
const char* AMEDIAFORMAT_KEY_MIME = "mime";
const char* AMEDIAFORMAT_KEY_SAMPLE_RATE = "sample-rate";
const char* AMEDIAFORMAT_KEY_TIME_US = "timeUs";
const char* AMEDIAFORMAT_KEY_WIDTH = "width";
