// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd_metadata.h"

#include "zoflv/dmx/zoflv_conv.h"
#include "zoflv/dmx/zoflv_err.h"
#include "zoflv/dmx/zoflv_log.h"
#include "zoflv/dmx/zoflv_mem.h"
#include "zoflv/dmx/zoflv_num.h"
#include "zoflv/dmx/zoflvd_rdbuf.h"
#include "zoflv/dmx/zoflvd_tag.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace {

constexpr char tag[] = "zoflvd_metadata";
constexpr char source[] = "zoflv/dmx/zoflvd_metadata";

constexpr int name_capacity = 32;
constexpr int32_t max_array_count = 0x0FFFFFFF; // 268,435,455 elements
constexpr uint32_t bytes_per_element = 9;       // a type marker and a double

// Objects and arrays met as values may be nested this deep. Each level is a recursion;
// real files use two, and a body of a million openings must not exhaust a thread's stack.
constexpr int max_depth = 64;

// AMF0 type markers.
enum : uint8_t {
    amf_number = 0,
    amf_boolean = 1,
    amf_string = 2,
    amf_object = 3,
    amf_ecma_array = 8,
    amf_strict_array = 10,
    amf_date = 11,
    amf_marker_end = 14, // no property carries this marker or a higher one
};

struct ZOFLVD_PROPERTY;
using Handler = int (*)(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA* md);

// Where in ZOFLVD_METADATA a value goes. `room` 0: nowhere.
struct FieldRef {
    size_t at;    // offset of the value; for an array, of its count
    size_t array; // offset of the array's pointer
    uint32_t room;
};

constexpr uint32_t no_size = 0xFFFFFFFF; // of objects and arrays

// One property: a row of metadata_props, or what is being read from the file.
struct ZOFLVD_PROPERTY {
    uint8_t type;                 // type marker
    char name[name_capacity + 1]; // terminated
    int16_t name_len;             // row: length plus one; being read: length as read
    FieldRef field;
    uint32_t size; // value bytes of a fixed-size value; of a string being read its length
    Handler handlr;
    int depth; // being read: objects and arrays around it
};

int handlr_simpl_value(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA* md);
int handlr_number(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA* md);
int handlr_string(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA* md);
int handlr_object(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA* md);
int handlr_mixed_array(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA* md);
int handlr_num_array(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA* md);
int handlr_unknown_array(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA* md);

// clang-format off
#define PLACE(field) {offsetof(ZOFLVD_METADATA, field), 0, sizeof(ZOFLVD_METADATA::field)}
#define BOOLEAN(name, field) {amf_boolean, name, sizeof(name), PLACE(field), 1, handlr_simpl_value, 0}
#define NUMBER(name, field) {amf_number, name, sizeof(name), PLACE(field), 8, handlr_number, 0}
#define OBJECT(name, field) {amf_object, name, sizeof(name), PLACE(field), no_size, handlr_object, 0}
#define ARRAY(name, count, array) {amf_strict_array, name, sizeof(name), \
    {offsetof(ZOFLVD_METADATA, count), offsetof(ZOFLVD_METADATA, array), sizeof(ZOFLVD_METADATA::count)}, \
    no_size, handlr_num_array, 0}
// clang-format on

// The known properties, searched in this order at whatever depth a property is.
constexpr ZOFLVD_PROPERTY metadata_props[] = {
    BOOLEAN("hasKeyframes", has_keyframes),
    BOOLEAN("hasVideo", has_video),
    BOOLEAN("hasMetadata", has_metadata),
    BOOLEAN("hasCuePoints", has_cue_points),
    BOOLEAN("canSeekToEnd", can_seek_to_end),
    NUMBER("duration", duration),
    NUMBER("lasttimestamp", last_timestamp),
    NUMBER("lastkeyframetimestamp", last_keyframe_timestamp),
    NUMBER("filesize", file_size),
    NUMBER("datasize", data_size),
    NUMBER("videocodecid", video_codec_id),
    NUMBER("width", width),
    NUMBER("height", height),
    NUMBER("framerate", frame_rate),
    NUMBER("videodatarate", video_data_rate),
    NUMBER("videosize", video_size),
    NUMBER("audiocodecid", audio_codec_id),
    NUMBER("audiosize", audio_size),
    NUMBER("audiodatarate", audio_data_rate),
    NUMBER("audiodelay", audio_delay),
    OBJECT("keyframes", keyframe_cnt),
    ARRAY("filepositions", filepositions_cnt, filepositions),
    ARRAY("times", times_cnt, times),
};

#undef PLACE
#undef BOOLEAN
#undef NUMBER
#undef OBJECT
#undef ARRAY

constexpr bool rows_fit_their_fields()
{
    for (const ZOFLVD_PROPERTY& row : metadata_props) {
        if (row.size != no_size && row.size != row.field.room)
            return false;
    }
    return true;
}

static_assert(std::size(metadata_props) == 23, "one row per known property");
static_assert(rows_fit_their_fields(), "a value is copied by the row's size");

// Handlers by type marker for values that are dropped; null: nothing follows the marker, or nothing
// that could be skipped.
constexpr Handler ecma_type_handlr[] = {
    handlr_simpl_value,   // number
    handlr_simpl_value,   // boolean
    handlr_string,        // string
    handlr_object,        // object
    nullptr,              // movie clip
    nullptr,              // null
    nullptr,              // undefined
    nullptr,              // reference
    handlr_mixed_array,   // ECMA array
    nullptr,              // object end
    handlr_unknown_array, // strict array
    handlr_simpl_value,   // date
    nullptr,              // long string
};
static_assert(std::size(ecma_type_handlr) == 13, "markers 0 to 12");

Handler type_handlr(uint8_t type)
{
    return type < std::size(ecma_type_handlr) ? ecma_type_handlr[type] : nullptr;
}

uint32_t type_size(uint8_t type)
{
    switch (type) {
    case amf_number:
        return 8;
    case amf_boolean:
        return 1;
    case amf_date:
        return 10; // a number and a 16-bit time zone
    default:
        return 0;
    }
}

template <typename T>
T* field_at(ZOFLVD_METADATA* md, size_t offset)
{
    return reinterpret_cast<T*>(reinterpret_cast<uint8_t*>(md) + offset);
}

int fail(int check)
{
    zoflv_log_assert(tag, source, check);
    return ZOFLV_ERR_FAIL;
}

void skip_rest(ZOFLVD_RDBUF* rb)
{
    zoflvd_rdbuf_read(rb, nullptr, static_cast<int>(zoflvd_rdbuf_remained(rb)));
}

// Refuses a value that is nested too deep, and the rest of the body with it.
bool too_deep(ZOFLVD_RDBUF* rb, const ZOFLVD_PROPERTY* prop)
{
    if (prop->depth < max_depth)
        return false;
    fail(3001);
    skip_rest(rb);
    return true;
}

// Name and type marker of a property.
int read_property_header(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop)
{
    uint16_t length = 0;
    if (zoflvd_rdbuf_ecma_str(rb, prop->name, &length, name_capacity) != ZOFLV_OK ||
        zoflvd_rdbuf_byte(rb, &prop->type) != ZOFLV_OK || prop->type >= amf_marker_end) {
        prop->name_len = static_cast<int16_t>(length);
        __android_log_print(ANDROID_LOG_ERROR, tag, "read_property_header() failed");
        return ZOFLV_ERR_FAIL;
    }
    prop->name_len = static_cast<int16_t>(length);
    return ZOFLV_OK;
}

// The comparison goes over the length read only: leading characters of a known name match it, and
// an empty name matches the first row.
const ZOFLVD_PROPERTY* find_known(const ZOFLVD_PROPERTY* prop)
{
    for (const ZOFLVD_PROPERTY& row : metadata_props) {
        if (std::strncmp(row.name, prop->name, static_cast<size_t>(prop->name_len)) == 0)
            return &row;
    }
    return nullptr;
}

// Reads one property, `depth` levels deep; with a record, a known one is stored there.
int read_property(ZOFLVD_RDBUF* rb, ZOFLVD_METADATA* md, int depth)
{
    ZOFLVD_PROPERTY prop = {};
    prop.depth = depth;
    if (read_property_header(rb, &prop) != ZOFLV_OK)
        return ZOFLV_ERR_FAIL;
    if (const ZOFLVD_PROPERTY* row = find_known(&prop)) {
        prop.field = row->field;
        prop.size = row->size;
        return row->handlr(rb, &prop, md);
    }
    prop.size = type_size(prop.type);
    const Handler handlr = type_handlr(prop.type);
    return handlr ? handlr(rb, &prop, nullptr) : ZOFLV_OK;
}

int handlr_simpl_value(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA* md)
{
    const bool store = md && prop->size <= prop->field.room;
    uint8_t* dst = store ? field_at<uint8_t>(md, prop->field.at) : nullptr;
    return zoflvd_rdbuf_read(rb, dst, static_cast<int>(prop->size));
}

// Eight bytes as an IEEE 754 binary64, the same on any host.
bool read_double(ZOFLVD_RDBUF* rb, double* out)
{
    uint8_t raw[8];
    if (zoflvd_rdbuf_read(rb, raw, sizeof raw) != ZOFLV_OK)
        return false;
    const uint64_t bits = zoflv_be(raw, sizeof raw);
    static_assert(sizeof bits == sizeof *out, "binary64");
    std::memcpy(out, &bits, sizeof bits);
    return true;
}

int handlr_number(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA* md)
{
    prop->size = 8;
    double value = 0;
    if (!read_double(rb, &value))
        return fail(3002);
    if (value != value)
        value = 0;
    if (md && prop->field.room == sizeof value)
        *field_at<double>(md, prop->field.at) = value;
    return ZOFLV_OK;
}

// Strings are always skipped: no known property takes one.
int handlr_string(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA*)
{
    uint16_t raw = 0;
    if (zoflvd_rdbuf_int16(rb, &raw) != ZOFLV_OK)
        return ZOFLV_ERR_FAIL;
    const int16_t length = static_cast<int16_t>(raw);
    prop->size = static_cast<uint32_t>(length);
    return zoflvd_rdbuf_read(rb, nullptr, length);
}

// Consumes an object-end marker, 00 00 09, or else nothing.
bool take_object_end(ZOFLVD_RDBUF* rb)
{
    const uint8_t* end = zoflvd_rdbuf_cur(rb);
    if (zoflvd_rdbuf_remained(rb) < 3 || end[0] != 0 || end[1] != 0 || end[2] != 9)
        return false;
    return zoflvd_rdbuf_read(rb, nullptr, 3) == ZOFLV_OK;
}

int handlr_object(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA* md)
{
    if (too_deep(rb, prop))
        return ZOFLV_ERR_FAIL;
    while (!zoflvd_rdbuf_eob(rb) && !take_object_end(rb)) {
        // Too short for an end marker: read it all the same, for the bound check's line.
        if (zoflvd_rdbuf_remained(rb) < 3) {
            zoflvd_rdbuf_read(rb, nullptr, 3);
            break;
        }
        if (read_property(rb, md, prop->depth + 1) != ZOFLV_OK)
            break;
    }
    return ZOFLV_OK; // a failure inside ends the object silently
}

// Up to `count` properties; a failing one ends them, and so does the end of the body.
void read_properties(ZOFLVD_RDBUF* rb, ZOFLVD_METADATA* md, uint32_t count, int depth)
{
    for (uint32_t i = 0; i < count && !zoflvd_rdbuf_eob(rb); ++i) {
        if (read_property(rb, md, depth) != ZOFLV_OK)
            break;
    }
}

int handlr_mixed_array(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA* md)
{
    if (too_deep(rb, prop))
        return ZOFLV_ERR_FAIL;
    uint32_t count = 0;
    if (zoflvd_rdbuf_int32(rb, &count) != ZOFLV_OK)
        return ZOFLV_ERR_FAIL;
    if (count < 1 || zoflvd_rdbuf_eob(rb))
        return ZOFLV_OK; // an end marker, if one follows, is not this array's
    read_properties(rb, md, count, prop->depth + 1);
    take_object_end(rb);
    return ZOFLV_OK;
}

// Puts an array into the property's fields, in place of an earlier one; without a record it goes.
void store_array(ZOFLVD_METADATA* md, const FieldRef& field, int32_t count, double* array)
{
    if (!md) {
        std::free(array);
        return;
    }
    double** slot = field_at<double*>(md, field.array);
    std::free(*slot);
    *slot = array;
    *field_at<int32_t>(md, field.at) = count;
}

// Numbers that follow, up to `most`. A few bytes may claim 2 GiB, and a body a million such arrays:
// what is allocated is what will be kept.
size_t count_numbers(const ZOFLVD_RDBUF* rb, uint32_t most)
{
    const uint8_t* p = zoflvd_rdbuf_cur(rb);
    const uint32_t held = zoflvd_rdbuf_remained(rb) / bytes_per_element;
    size_t count = 0;
    while (count < most && count < held && p[count * bytes_per_element] == amf_number)
        ++count;
    return count;
}

int handlr_num_array(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA* md)
{
    uint32_t raw = 0;
    if (zoflvd_rdbuf_int32(rb, &raw) != ZOFLV_OK)
        return ZOFLV_ERR_FAIL;
    const int32_t count = static_cast<int32_t>(raw);
    if (count < 0 || count > max_array_count) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "array count is too large. malloc() failed");
        store_array(md, prop->field, 0, nullptr);
        return ZOFLV_ERR_FAIL;
    }
    if (count == 0) {
        store_array(md, prop->field, 0, nullptr);
        return ZOFLV_OK;
    }
    const size_t room = count_numbers(rb, raw);
    double* array = static_cast<double*>(std::malloc((room ? room : 1) * sizeof(double)));
    if (!array) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "malloc() failed");
        store_array(md, prop->field, 0, nullptr);
        return ZOFLV_ERR_FAIL;
    }
    int32_t stored = 0;
    while (stored < count && !zoflvd_rdbuf_eob(rb)) {
        uint8_t type = 0;
        double value = 0;
        if (zoflvd_rdbuf_byte(rb, &type) != ZOFLV_OK || type != amf_number ||
            !read_double(rb, &value))
            break;
        array[stored++] = value;
    }
    store_array(md, prop->field, stored, array);
    return ZOFLV_OK;
}

int handlr_unknown_array(ZOFLVD_RDBUF* rb, ZOFLVD_PROPERTY* prop, ZOFLVD_METADATA*)
{
    if (too_deep(rb, prop))
        return ZOFLV_ERR_FAIL;
    uint32_t count = 0;
    if (zoflvd_rdbuf_int32(rb, &count) != ZOFLV_OK)
        return ZOFLV_ERR_FAIL;
    for (uint32_t i = 0; i < count && !zoflvd_rdbuf_eob(rb); ++i) {
        ZOFLVD_PROPERTY elem = {};
        elem.depth = prop->depth + 1;
        if (zoflvd_rdbuf_byte(rb, &elem.type) != ZOFLV_OK)
            return ZOFLV_ERR_FAIL;
        const Handler handlr = type_handlr(elem.type);
        if (!handlr) {
            __android_log_print(ANDROID_LOG_ERROR, tag, "invalid ecma type %d", elem.type);
            return ZOFLV_ERR_FAIL;
        }
        elem.size = type_size(elem.type);
        if (handlr(rb, &elem, nullptr) != ZOFLV_OK)
            return ZOFLV_ERR_FAIL;
    }
    return ZOFLV_OK;
}

void log_error(const char* text)
{
    __android_log_print(ANDROID_LOG_ERROR, tag, "%s", text);
}

void log_warning(const char* text)
{
    __android_log_print(ANDROID_LOG_WARN, tag, "%s", text);
}

// The string "onMetaData" and the marker of an ECMA array, after the string's own marker.
bool read_object_name(ZOFLVD_RDBUF* rb)
{
    static constexpr char wanted[] = "onMetaData";
    constexpr int wanted_len = sizeof wanted - 1;

    ZOFLVD_PROPERTY prop = {};
    if (read_property_header(rb, &prop) != ZOFLV_OK) {
        log_warning("read_property_header() failed");
        return false;
    }
    if (prop.name_len != wanted_len) {
        __android_log_print(ANDROID_LOG_WARN, tag, "wrong \"onMetaData\" string length: %d bytes",
                            prop.name_len);
        return false;
    }
    if (std::memcmp(prop.name, wanted, wanted_len) != 0) {
        log_warning("wrong \"onMetaData\" string");
        return false;
    }
    if (prop.type != amf_ecma_array) {
        __android_log_print(ANDROID_LOG_WARN, tag,
                            "metadata type should be mixed array (%d), not %d", amf_ecma_array,
                            prop.type);
        return false;
    }
    return true;
}

// Decodes the body, which the file is at. False: the record is to be released. `block` holds
// `size` bytes.
bool read_body(const _ZOCMN_MFAL* mfal, void* file, void* block, uint32_t size, ZOFLVD_METADATA* md)
{
    ZOFLVD_RDBUF rb = {};
    if (zoflvd_rdbuf_init(&rb, block, static_cast<int>(size), mfal, file, 1) != ZOFLV_OK) {
        log_warning("can't read metadata into memory");
        return false;
    }
    uint8_t marker = 0;
    if (zoflvd_rdbuf_byte(&rb, &marker) != ZOFLV_OK)
        return false;
    if (marker != amf_string) {
        log_error("first byte of \"onMetaData\" should be 2: script data object)");
        return true;
    }
    if (!read_object_name(&rb))
        return false;
    zoflvd_metadata_deinit(md);
    uint32_t count = 0;
    if (zoflvd_rdbuf_int32(&rb, &count) != ZOFLV_OK) {
        log_warning("handlr_mixed_array() failed");
        return false;
    }
    read_properties(&rb, md, count, 0);
    md->keyframe_cnt =
        md->filepositions_cnt < md->times_cnt ? md->filepositions_cnt : md->times_cnt;
    return true;
}

} // namespace

int zoflvd_metadata_init(const _ZOCMN_MFAL* mfal, void* file, const int64_t* first_tag_pos,
                         ZOFLVD_METADATA* md, int64_t* next_pos)
{
    if (zoflv_file_setpos(mfal, file, *first_tag_pos) != 0) {
        log_error("fsetpos() failed");
        zoflvd_metadata_deinit(md);
        return ZOFLV_ERR_FILEIO;
    }
    ZOFLVD_TAG first = {};
    if (zoflvd_tag_read(mfal, file, &first) != ZOFLV_OK) {
        log_error("zoflvd_tag_read() failed");
        zoflvd_metadata_deinit(md);
        return ZOFLV_ERR_FORMAT;
    }
    if (first.type != ZOFLV_TAG_SCRIPT) {
        log_warning("flv file doesn't have metadata as first tag");
        log_error("read_metadata() failed");
        return ZOFLV_OK;
    }
    if (first.data_size < 1) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "metadata tag has invalid data_size %d",
                            static_cast<int>(first.data_size));
        return ZOFLV_ERR_FORMAT;
    }
    if (!zoflv_pos_add(*first_tag_pos, int64_t{first.data_size} + ZOFLV_TAG_OVERHEAD, next_pos))
        return ZOFLV_ERR_FORMAT;
    const zoflv_block block = zoflv_alloc(first.data_size);
    if (!block) {
        __android_log_print(ANDROID_LOG_ERROR, tag, "malloc failed!, [%s: %d]", source, 3003);
        return ZOFLV_ERR_MALLOC;
    }
    if (!read_body(mfal, file, block.get(), first.data_size, md)) {
        log_error("read_metadata() failed");
        zoflvd_metadata_deinit(md);
        return ZOFLV_ERR_FORMAT;
    }
    return ZOFLV_OK;
}

void zoflvd_metadata_deinit(ZOFLVD_METADATA* md)
{
    std::free(md->filepositions);
    std::free(md->times);
    *md = ZOFLVD_METADATA{};
}
