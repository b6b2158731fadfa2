// SPDX-License-Identifier: Apache-2.0
/// @file
/// Media formats for the framework side: an owner, and a look at every key.
#pragma once

#include <media/NdkMediaFormat.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace zoflv_host {

using FormatValue = std::variant<int32_t, int64_t, std::string, std::vector<uint8_t>>;

struct FormatEntry {
    std::string key;
    FormatValue value;
};

/// All keys of a format, in the order in which they were first set; until the format changes.
class FormatEntries {
public:
    FormatEntries(const FormatEntry* first, size_t count) : m_first(first), m_count(count) {}
    const FormatEntry* begin() const { return m_first; }
    const FormatEntry* end() const { return m_first + m_count; }
    size_t size() const { return m_count; }

private:
    const FormatEntry* m_first;
    size_t m_count;
};

/// Exported by the media library.
FormatEntries format_entries(const AMediaFormat* format);

/// Owns a format.
class Format {
public:
    Format() : m_format(AMediaFormat_new()) {}

    AMediaFormat* get() const { return m_format.get(); }

    /// The readers give nothing when the key is missing or of another type.
    std::optional<int32_t> int32(const char* key) const { return value<int32_t>(key); }
    std::optional<int64_t> int64(const char* key) const { return value<int64_t>(key); }
    std::optional<std::string> string(const char* key) const { return value<std::string>(key); }
    std::optional<std::vector<uint8_t>> buffer(const char* key) const
    {
        return value<std::vector<uint8_t>>(key);
    }

    FormatEntries entries() const { return format_entries(get()); }
    std::string text() const { return AMediaFormat_toString(get()); }

private:
    struct Delete {
        void operator()(AMediaFormat* format) const { AMediaFormat_delete(format); }
    };

    template <typename T>
    std::optional<T> value(const char* key) const
    {
        for (const FormatEntry& entry : entries()) {
            if (entry.key == key && std::holds_alternative<T>(entry.value))
                return std::get<T>(entry.value);
        }
        return std::nullopt;
    }

    std::unique_ptr<AMediaFormat, Delete> m_format;
};

} // namespace zoflv_host
