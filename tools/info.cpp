// SPDX-License-Identifier: Apache-2.0
#include "tools/commands.h"
#include "tools/file.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <new>
#include <utility>

namespace {

/// One value, for programs and for people.
struct Field {
    const char* key;
    Json json;
    std::string text; ///< empty: not worth showing
};
using Fields = std::vector<Field>;

Json to_json(const Fields& fields)
{
    Json object = Json::object();
    for (const Field& field : fields)
        object[field.key] = field.json;
    return object;
}

void print_fields(const std::string& title, const Fields& fields)
{
    put("  " + title + '\n');
    bool any = false;
    for (const Field& field : fields) {
        if (field.text.empty())
            continue;
        std::string label = field.key;
        std::replace(label.begin(), label.end(), '_', ' ');
        put(textf("    %-24s", label.c_str()) + field.text + '\n');
        any = true;
    }
    if (!any)
        put("    none\n");
}

Field number(const char* key, int64_t value, const char* unit)
{
    const auto printed = static_cast<long long>(value);
    return {key, value, textf("%lld%s%s", printed, *unit ? " " : "", unit)};
}

Field time_if(bool known, const char* key, int64_t ticks)
{
    return {key, known ? Json(ticks) : Json(nullptr), known ? seconds(ticks) + " s" : ""};
}

std::string codec_name(uint32_t code)
{
    switch (code) {
    case 0:
        return "unknown";
    case 0x55:
        return "MPEG audio";
    case 0xFF:
        return "AAC";
    default:
        char name[sizeof code];
        std::memcpy(name, &code, sizeof code); // the four characters, in memory order
        return printable({name, sizeof name}, true);
    }
}

Fields file_fields(const FlvFile& file)
{
    const ZOFLVD_INFO& info = file.info();
    Fields fields = {number("size", file.size(), "bytes"),
                     time_if(true, "duration", info.duration)};
    if (info.duration == 0)
        fields.back().text = "unknown";
    fields.push_back({"seekable", info.seekable != 0, info.seekable != 0 ? "yes" : "no"});
    Field regions{"regions", Json::array(), ""};
    for (int i = 0; i < info.region_cnt; ++i) {
        const ZOFLVD_REGION& r = info.region[i];
        regions.json.push_back({{"type", r.type}, {"pos", r.pos}, {"size", r.size}});
        regions.text += textf("%s%lld bytes at %lld", i > 0 ? ", " : "",
                              static_cast<long long>(r.size), static_cast<long long>(r.pos));
    }
    fields.push_back(std::move(regions));
    return fields;
}

/// The codec data whole for programs; for people in lines, and not without end: with MPEG audio it
/// is a whole frame, with an unknown codec perhaps megabytes.
Field codec_data(const FlvFile& file, int stream)
{
    constexpr size_t per_line = 24, shown = 10 * per_line;
    int size = 0;
    int rc = zoflvd_get_format(file.handle(), stream, nullptr, &size);
    std::vector<uint8_t> data(rc == ZOFLV_OK ? static_cast<size_t>(std::max(size, 0)) : 0);
    if (!data.empty())
        rc = zoflvd_get_format(file.handle(), stream, data.data(), &size);
    if (rc != ZOFLV_OK)
        return {"codec_data", nullptr, textf("not available (code %d)", rc)};

    std::string text = data.empty() ? "none" : textf("%zu bytes", data.size());
    for (size_t at = 0; at < std::min(data.size(), shown); at += per_line)
        text += "\n      " + hex(&data[at], std::min(per_line, data.size() - at));
    if (data.size() > shown)
        text += "\n      ...";
    return {"codec_data", hex(data.data(), data.size()), text};
}

Fields stream_fields(const FlvFile& file, int stream)
{
    const ZOFLVD_INFO& info = file.info();
    const bool video = info.strm_type[stream] == FLV_TYPE_VIDEO;
    const uint32_t code = info.codec[stream];
    const std::string name = codec_name(code);
    Fields fields = {{"index", stream, ""},
                     {"type", video ? "video" : "audio", ""},
                     {"codec", name, textf("%s (0x%x)", name.c_str(), code)},
                     {"codec_code", code, ""}};
    const auto append = [&](int32_t valid, std::initializer_list<Field> more) {
        fields.push_back({"recognised", valid != 0, valid != 0 ? "yes" : "no"});
        fields.insert(fields.end(), more);
    };
    if (video) {
        ZOFLVD_INFO_VID v{};
        zoflvd_get_info_vid(file.handle(), stream, &v);
        append(v.valid, {number("width", v.width, "pixels"), number("height", v.height, "pixels"),
                         number("frame_rate", v.frame_rate, "frames/s"),
                         number("frame_count", v.frm_cnt, "by the metadata"),
                         number("byte_rate", v.byte_rate, "bytes/s"),
                         number("max_frame_size", v.max_frm_size, "bytes")});
    } else {
        ZOFLVD_INFO_AUD a{};
        zoflvd_get_info_aud(file.handle(), stream, &a);
        append(a.valid,
               {number("sample_rate", a.sample_rate, "Hz"), number("channels", a.channels, ""),
                number("bits_per_sample", a.bits_per_sample, "bits"),
                number("bit_rate", a.bit_rate, "bits/s"),
                number("byte_rate", a.byte_rate, "bytes/s"),
                number("max_frame_size", a.max_frm_size, "bytes")});
    }
    fields.push_back(codec_data(file, stream));
    return fields;
}

constexpr struct {
    const char* key;
    uint8_t ZOFLVD_METADATA::*value;
} metadata_flags[] = {
    {"has_keyframes", &ZOFLVD_METADATA::has_keyframes},
    {"has_video", &ZOFLVD_METADATA::has_video},
    {"has_metadata", &ZOFLVD_METADATA::has_metadata},
    {"has_cue_points", &ZOFLVD_METADATA::has_cue_points},
    {"can_seek_to_end", &ZOFLVD_METADATA::can_seek_to_end},
};

constexpr struct {
    const char* key;
    double ZOFLVD_METADATA::*value;
    const char* unit;
} metadata_numbers[] = {
    {"duration", &ZOFLVD_METADATA::duration, " s"},
    {"last_timestamp", &ZOFLVD_METADATA::last_timestamp, " s"},
    {"last_keyframe_timestamp", &ZOFLVD_METADATA::last_keyframe_timestamp, " s"},
    {"file_size", &ZOFLVD_METADATA::file_size, " bytes"},
    {"data_size", &ZOFLVD_METADATA::data_size, " bytes"},
    {"video_codec_id", &ZOFLVD_METADATA::video_codec_id, ""},
    {"width", &ZOFLVD_METADATA::width, " pixels"},
    {"height", &ZOFLVD_METADATA::height, " pixels"},
    {"frame_rate", &ZOFLVD_METADATA::frame_rate, " frames/s"},
    {"video_data_rate", &ZOFLVD_METADATA::video_data_rate, " kbit/s"},
    {"video_size", &ZOFLVD_METADATA::video_size, " bytes"},
    {"audio_codec_id", &ZOFLVD_METADATA::audio_codec_id, ""},
    {"audio_size", &ZOFLVD_METADATA::audio_size, " bytes"},
    {"audio_data_rate", &ZOFLVD_METADATA::audio_data_rate, " kbit/s"},
    {"audio_delay", &ZOFLVD_METADATA::audio_delay, " s"},
};

/// People see the values that are not zero: zero is also what an absent one decodes to.
Fields metadata_fields(const FlvFile& file)
{
    const Metadata md(file);
    Fields fields;
    for (const auto& row : metadata_flags) {
        const bool set = md.record().*row.value != 0;
        fields.push_back({row.key, set, set ? "yes" : ""});
    }
    for (const auto& row : metadata_numbers) {
        const double value = md.record().*row.value;
        // JSON has no infinity and no NaN: they become null.
        fields.push_back({row.key, value, value != 0 ? textf("%.15g%s", value, row.unit) : ""});
    }
    for (const auto& [key, count] :
         {std::pair{"keyframe_count", md.record().keyframe_cnt},
          std::pair{"filepositions_count", md.record().filepositions_cnt},
          std::pair{"times_count", md.record().times_cnt}})
        fields.push_back({key, count, count != 0 ? textf("%d", count) : ""});
    return fields;
}

/// @param trouble  receives the reason when the video stream could not be opened for its index
Fields keyframe_fields(const FlvFile& file, std::string* trouble)
{
    struct Entry { // as zoflvd_get_idx_table() lays them out
        uint32_t zero, unused;
        int64_t time;
    };
    static_assert(sizeof(Entry) == 16, "the table's entry size");
    std::vector<Entry> table;
    for (int i = 0; i < file.info().strm_cnt; ++i) {
        if (file.info().strm_type[i] != FLV_TYPE_VIDEO)
            continue;
        int size = 0, count = 0;
        file.log().reset();
        int rc = zoflvd_get_idx_table(file.handle(), i, nullptr, 0, &size, &count);
        if (rc == ZOFLV_OK) {
            table.resize(static_cast<size_t>(count));
            rc = zoflvd_get_idx_table(file.handle(), i, table.data(), size, nullptr, nullptr);
        }
        if (rc != ZOFLV_OK && rc != ZOFLV_ERR_UNSUPPORTED) // that: the index is empty
            *trouble = textf("stream %d: no keyframe index: ", i) + reason(rc, file.log());
        if (rc != ZOFLV_OK)
            table.clear();
    }

    const int64_t first = table.empty() ? 0 : table.front().time;
    const int64_t last = table.empty() ? 0 : table.back().time;
    int64_t span = 0;
    const bool has_span = table.size() > 1 && !__builtin_sub_overflow(last, first, &span);
    if (has_span)
        span /= static_cast<int64_t>(table.size() - 1);
    return {{"count", table.size(), table.empty() ? "" : textf("%zu", table.size())},
            time_if(!table.empty(), "first_time", first),
            time_if(!table.empty(), "last_time", last),
            time_if(has_span, "average_interval", span)};
}

void print_info(const std::string& path, bool json, LogTap& log)
{
    const FlvFile file(path, log);
    std::string trouble;
    std::vector<Fields> streams;
    streams.reserve(ZOFLV_MAX_STREAMS);
    for (int i = 0; i < file.info().strm_cnt; ++i)
        streams.push_back(stream_fields(file, i));
    const Fields general = file_fields(file);
    const Fields keyframes = keyframe_fields(file, &trouble);
    const Fields metadata = metadata_fields(file);

    if (json) {
        Json object = {{"file", path}, {"container", to_json(general)}, {"streams", Json::array()}};
        for (const Fields& fields : streams)
            object["streams"].push_back(to_json(fields));
        object["keyframes"] = to_json(keyframes);
        object["metadata"] = to_json(metadata);
        put_line(object);
    } else {
        put(printable(path) + '\n');
        print_fields("container", general);
        for (const Fields& fields : streams)
            print_fields("stream " + fields[0].json.dump() + ": " +
                             fields[1].json.get<std::string>(),
                         fields);
        print_fields("keyframe index", keyframes);
        print_fields("metadata", metadata);
    }
    if (!trouble.empty())
        throw Failure(EXIT_BAD_FILE, trouble);
}

} // namespace

int run_info(const InfoOptions& options, LogTap& log)
{
    int worst = EXIT_FINE;
    for (const std::string& path : options.files) {
        try {
            print_info(path, options.json, log);
        } catch (const OutputFailure&) {
            throw;
        } catch (const Failure& failure) {
            complain(path, failure.what());
            worst = std::max<int>(worst, failure.code());
        } catch (const std::bad_alloc&) {
            complain(path, "out of memory");
            worst = std::max<int>(worst, EXIT_BAD_FILE);
        }
    }
    return worst;
}
