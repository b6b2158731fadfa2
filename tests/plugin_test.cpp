// SPDX-License-Identifier: Apache-2.0
// The plugin as the framework loads it, and its track sources over a holder of the test's own.
#include "libextractor/mfal/zocmn_mfal_android_q.h"
#include "libextractor/zoflv_extractor.h"
#include "platform/host/elf_symbols.h"
#include "tests/support/demux.h"

#include <android/log.h>
#include <cstdarg>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <thread>
#include <unistd.h>
#include <zodevice/zo_media_formats.h>
#include <zoflv_host/device_control.h>
#include <zoflv_host/extractor.h>
#include <zoflv_host/log.h>

using namespace zoflv_host;
using Lines = std::vector<std::string>;

/// What the device calls a codec, where a test sets it; may hold null.
static std::optional<const char*> forced_mime;

// The program's functions serve the plugin in place of the libraries'.
const char* FourCC2MIME(uint32_t fourcc)
{
    static const auto device =
        reinterpret_cast<const char* (*)(uint32_t)>(::dlsym(RTLD_NEXT, "FourCC2MIME"));
    return forced_mime ? *forced_mime : device(fourcc);
}

void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    std::fprintf(stderr, "<%s|%s|", cond, tag);
    std::vfprintf(stderr, fmt, args);
    std::fputs(">\n", stderr);
    va_end(args);
    std::abort();
}

namespace {

constexpr int UNKNOWN = -10000, UNSUPPORTED = -10002, END = -10006, IO = -10007;
constexpr size_t NO_TRACK = SIZE_MAX;

/// Holds what is logged while it exists.
struct Log {
    Lines all;
    ScopedLogSink sink{[this](int priority, const std::string& tag, const std::string& text) {
        all.push_back(std::to_string(priority) + ' ' + tag + ": " + text);
    }};

    /// The texts of the plugin's information lines since the last call.
    Lines plugin()
    {
        const std::string prefix = "4 ZoFLVExtractor: ";
        Lines out;
        for (const std::string& line : std::exchange(all, {}))
            if (line.rfind(prefix, 0) == 0)
                out.push_back(line.substr(prefix.size()));
        return out;
    }
};

const std::shared_ptr<ExtractorLibrary>& library()
{
    static std::string error;
    // Never unloaded: a leak's report would lose the names of its functions.
    static auto& loaded = *new auto(ExtractorLibrary::load(ZOFLV_PLUGIN, &error));
    if (!loaded)
        ADD_FAILURE() << error;
    return loaded;
}

std::shared_ptr<Extractor> open(std::shared_ptr<DataSource> source)
{
    std::string error;
    auto opened = library()->open(std::move(source), &error);
    EXPECT_TRUE(opened) << error;
    return opened;
}

std::shared_ptr<Extractor> open(const Bytes& file, MemoryFaults faults = {})
{
    return open(std::make_shared<MemoryDataSource>(file, faults));
}

std::string track_text(Extractor& extractor, size_t track)
{
    Format format;
    const media_status_t status = extractor.track_format(track, &format);
    return status == AMEDIA_OK ? format.text() : std::to_string(status);
}

/// Reads a sample and hands it back. The time in microseconds, or the status.
int64_t next(android::CMediaTrack* track, uint32_t options = 0, int64_t seek_us = 0)
{
    android::CMediaBuffer* buffer = nullptr;
    const media_status_t status = track->read(track->data, &buffer, options, seek_us);
    int64_t time_us = status;
    EXPECT_EQ(buffer == nullptr, status != AMEDIA_OK);
    if (buffer) {
        EXPECT_TRUE(AMediaFormat_getInt64(buffer->meta_data(buffer->handle),
                                          AMEDIAFORMAT_KEY_TIME_US, &time_us));
        buffer->release(buffer->handle);
    }
    return time_us;
}

int64_t next(const std::unique_ptr<Track>& track, uint32_t options = 0, int64_t seek_us = 0)
{
    return next(track->record(), options, seek_us);
}

Bytes read_file(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

// Files. Pictures of 176x144 and 64x48; 3 s and 25 pictures a second where metadata says so.

const Bytes H263_KEY = hex("12 00 00 84 01 93 00 01");
const Bytes H263_INTER = hex("22 00 00 84 01 D3 00 02");
const Bytes PCM = hex("3E 01 02 03 04"); // 16 bits, mono, 44 kHz

Bytes avc_config()
{
    return avc_config_tag(avc_record({avc_sps(4, 3)}, {hex("68 CE 38 80")}));
}

std::vector<Bytes> three_seconds()
{
    return {amf_prop("duration", amf_num(3)), amf_prop("framerate", amf_num(25)),
            amf_prop("width", amf_num(320)), amf_prop("height", amf_num(240))};
}

/// Tags of the bodies, two streams in turn or one alone, under that header.
Bytes flv_of(uint8_t flags, const std::vector<std::pair<uint8_t, Bytes>>& tags)
{
    FlvBuilder b = FlvBuilder().header(flags).tag(18, 0, on_meta_data(three_seconds()));
    uint32_t time_ms = 0;
    for (const auto& [type, body] : tags)
        b.tag(type, time_ms++, body);
    return b.bytes();
}

Bytes avc_aac()
{
    return flv_of(
        5,
        {{8, aac_config_tag()}, {9, avc_config()}, {8, aac_tag({1, 2})}, {9, avc_tag({fill(9)})}});
}

/// H.263 keyframes every 2 s up to 6 s, pictures and PCM tags every 500 ms, 7 s.
Bytes seekable(bool indexed)
{
    FlvBuilder b = FlvBuilder().header(5);
    const std::vector<Bytes> props = {amf_prop("duration", amf_num(7))};
    if (!indexed)
        b.tag(18, 0, on_meta_data(props));
    for (uint32_t ms = 0; ms < 7000; ms += 500)
        b.tag(9, ms, ms % 2000 ? H263_INTER : H263_KEY).tag(8, ms, PCM);
    return indexed ? b.indexed(props).bytes() : b.bytes();
}

/// Its index begins behind the end of the file: no stream can be opened, for the probe or to read.
Bytes unopenable()
{
    return FlvBuilder()
        .header(5)
        .tag(18, 0, on_meta_data({amf_keyframes({0, 1}, {1e6, 2e6})}))
        .tag(8, 0, PCM)
        .tag(9, 0, H263_KEY)
        .bytes();
}

TEST(Plugin, DefinesItself)
{
    std::vector<std::string> exports;
    std::string error;
    ASSERT_TRUE(read_defined_symbols(ZOFLV_PLUGIN, &exports, &error)) << error;
    EXPECT_EQ(exports, Lines{"GETEXTRACTORDEF"});
    const android::ExtractorDef& def = library()->definition();
    EXPECT_EQ(def.def_version, 3u);
    EXPECT_EQ(def.extractor_version, 1u);
    EXPECT_STREQ(def.extractor_name, "Vantor FLV Extractor");
    EXPECT_STREQ(def.supported_types[0], "flv");
    EXPECT_EQ(def.supported_types[1], nullptr);
    EXPECT_EQ(def.extractor_uuid.b[6] >> 4, 4) << "a random UUID";
    EXPECT_EQ(def.extractor_uuid.b[8] >> 6, 2) << "a random UUID";
}

TEST(Plugin, SniffsThreeBytes)
{
    const struct {
        const char* bytes;
        MemoryFaults faults;
        bool claimed;
    } cases[] = {{"FLV", {}, true},        {"FLV\x09garbage", {}, true},
                 {"FLv", {}, false},       {"flv", {}, false},
                 {"FLX", {}, false},       {" FLV", {}, false},
                 {"FL", {}, false},        {"", {}, false},
                 {"FLV\1", {1, 2}, false}, {"FLV", {0, 0, 1}, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes);
        MemoryDataSource source(ascii(c.bytes), c.faults);
        float confidence = -2;
        int here = 0;
        void* meta = &here;
        android::FreeMetaFunc free_meta = [](void*) {};
        const auto free_before = free_meta;
        const auto creator =
            library()->definition().sniff(source.record(), &confidence, &meta, &free_meta);
        EXPECT_EQ(creator != nullptr, c.claimed);
        EXPECT_EQ(confidence, c.claimed ? 0.7f : -2.0f);
        EXPECT_TRUE(meta == &here && free_meta == free_before);
        EXPECT_EQ(source.reads(), 1u);
        EXPECT_EQ(source.size_queries(), 0u);
    }
}

/// Each question, as text; also as an extractor's first one.
struct Question {
    const char* name;
    std::string (*ask)(Extractor&);
};
const Question questions[] = {
    {"tracks", [](Extractor& e) { return std::to_string(e.count_tracks()); }},
    {"track", [](Extractor& e) { return std::string(e.track(0) ? "track" : "null"); }},
    {"beyond",
     [](Extractor& e) { return std::string(e.track(2) || e.track(NO_TRACK) ? "" : "no"); }},
    {"format", [](Extractor& e) { return track_text(e, 0).substr(0, 10); }},
    {"format beyond", [](Extractor& e) { return track_text(e, 2) + track_text(e, NO_TRACK); }},
    {"container",
     [](Extractor& e) {
         Format format;
         const int status = e.container_format(&format);
         return std::to_string(status) + ' ' + format.text();
     }},
    {"flags", [](Extractor& e) { return std::to_string(e.flags()); }},
};

TEST(Extractor, InitialisesOnceAndLate)
{
    const char* const failed[] = {"0", "null", "no", "-10000", "-10000-10000", "-10000 ", "4"};
    const std::string init = "ZoFLVExtractor::init_zoflvff() zoflvd_create() failed(";
    DeviceSettings broken;
    broken.limits_result = -1001; // met behind the audio track
    const struct {
        const char* name;
        Bytes bytes;
        DeviceSettings device;
        std::vector<const char*> first, later; // answers
        Lines log;
    } cases[] = {
        {"both",
         avc_aac(),
         {},
         {"2", "track", "no", "durationUs", "-10000-10000", "0 mime: string(video/flv)", "15"},
         {},
         {"ZoFLVExtractor(AUDIO) mimetype : audio/mp4a-latm (0x00ff)",
          "ZoFLVExtractor(VIDEO) mimetype : video/avc (0x34363268)"}},
        {"audio",
         flv_of(4, {{8, PCM}}),
         {},
         {"1", "track", "no", "durationUs", "-10000-10000", "0 mime: string(audio/flv)", "15"},
         {},
         {"ZoFLVExtractor(AUDIO) mimetype : unknown (0x6d63706c)"}},
        {"signature alone",
         ascii("FLV"),
         {},
         {std::begin(failed), std::end(failed)},
         {},
         {init + "-1)!"}},
        {"version 2",
         FlvBuilder().header(5, 9, 2).bytes(),
         {},
         {std::begin(failed), std::end(failed)},
         {},
         {init + "-3)!"}},
        {"cut header",
         hex("464C56 01 05 00"),
         {},
         {std::begin(failed), std::end(failed)},
         {},
         {init + "-6)!"}},
        {"no probe",
         unopenable(),
         {},
         {"0", "null", "no", "-10000", "-10000-10000", "-10000 ", "15"},
         {"1", "track", "no", "durationUs", "-10000-10000", "0 ", "15"},
         {"ZoFLVExtractor(AUDIO) mimetype : unknown (0x6d63706c)",
          "ZoFLVExtractor(VIDEO) mimetype : video/3gpp (0x31564c46)"}},
        {"device -1001",
         avc_aac(),
         broken,
         {"0", "null", "no", "-10000", "-10000-10000", "-10000 ", "15"},
         {"1", "track", "no", "durationUs", "-10000-10000", "0 ", "15"},
         {"ZoFLVExtractor(AUDIO) mimetype : audio/mp4a-latm (0x00ff)",
          "ZoFLVExtractor(VIDEO) mimetype : video/avc (0x34363268)"}},
    };
    for (const auto& c : cases) {
        for (size_t first = 0; first < std::size(questions); ++first) {
            SCOPED_TRACE(std::string(c.name) + ", first " + questions[first].name);
            DeviceScope device(c.device);
            Log log;
            const auto extractor = open(c.bytes);
            EXPECT_EQ(extractor->name(), "ZoFLVExtractor");
            android::CMediaExtractor* const record = extractor->record();
            EXPECT_EQ(record->setMediaCas(record->data, nullptr, 0), -10005);
            EXPECT_EQ(extractor->source().reads(), 1u) << "the sniff's";
            EXPECT_EQ(extractor->source().size_queries(), 0u);
            EXPECT_EQ(questions[first].ask(*extractor), c.first[first]);
            const uint64_t reads = extractor->source().reads();
            EXPECT_GT(reads, 1u);
            for (size_t i = 0; i < std::size(questions); ++i)
                EXPECT_EQ(questions[i].ask(*extractor), (c.later.empty() ? c.first : c.later)[i]);
            if (std::string(c.name) != "no probe") // there the track looks for its index
                EXPECT_EQ(extractor->source().reads(), reads);
            EXPECT_EQ(log.plugin(), c.log);
        }
    }
}

std::string number(const char* key, int64_t value, const char* type = "int32")
{
    return std::string(", ") + key + ": " + type + '(' + std::to_string(value) + ')';
}

/// The keys of a track of 3 s, as text.
std::string keys(int error, const char* mime, const char* code, const std::string& rest)
{
    uint32_t fourcc = 0;
    std::memcpy(&fourcc, code, std::strlen(code));
    std::string out = "durationUs: int64(3000000), allow-frame-reordering: int32(1)" +
                      number("error-type", error);
    if (error == -1002)
        out += number("track-fourcc", fourcc) + number("error-loggable", 1);
    return out + ", mime: string(" + mime + ')' + number("fourcc", static_cast<int32_t>(fourcc)) +
           rest;
}

std::string video_keys(int width, int height, int max_size)
{
    return number("width", width) + number("height", height) + number("max-input-size", max_size) +
           number("display-width", width) + number("display-height", height) +
           number("frame-rate", 25);
}

std::string audio_keys(int channels, int rate, int bits, int max_size = 524288)
{
    return number("channel-count", channels) + number("sample-rate", rate) +
           number("bits-per-sample", bits) + number("max-input-size", max_size);
}

TEST(Formats, HaveTheirKeysInOrder)
{
    constexpr int SMALL = 1572864;
    const std::string aac = ", csd-0: buffer(1210), aac-profile: int32(2)";
    const std::string avc = ", csd-0: buffer(000000016742001ef00c8f200000000168ce3880)";
    FlvBuilder three_keys = FlvBuilder().header(1);
    for (uint32_t ms = 0; ms < 3000; ms += 500)
        three_keys.tag(9, ms, ms % 1000 ? H263_INTER : H263_KEY);
    const auto video = [](const char* body) { return flv_of(1, {{9, hex(body)}}); };
    const struct {
        const char* name;
        Bytes bytes;
        Lines tracks;
    } cases[] = {
        {"AAC, AVC",
         avc_aac(),
         {keys(0, "audio/mp4a-latm", "\xFF", audio_keys(2, 44100, 16) + aac),
          keys(0, "video/avc", "h264", video_keys(64, 48, SMALL) + avc)}},
        {"video first",
         flv_of(0, {{9, avc_config()}, {8, mp3_tag()}, {9, avc_tag({fill(9)})}}),
         {keys(0, "video/avc", "h264", video_keys(64, 48, SMALL) + avc),
          keys(0, "audio/mpeg", "U", audio_keys(2, 44100, 16, SMALL))}},
        {"unsupported video first",
         flv_of(0, {{9, hex("13 30A03078")}, {8, hex("70 AA")}}),
         {keys(-1002, "video/unknown", "scrn", video_keys(224, 184, SMALL)),
          keys(-1002, "audio/unknown", "alaw",
               audio_keys(1, 5000, 8, SMALL) + ", csd-0: buffer(aa)")}},
        {"indexed H.263",
         three_keys.indexed(three_seconds()).bytes(),
         {keys(0, "video/x-sorenson-h263", "FLV1",
               video_keys(176, 144, SMALL) + number("i-frame-avg-interval-us", 1000000, "int64"))}},
        {"VP6",
         video("14 00 00 02 1E28 1E28"),
         {keys(-1002, "video/unknown", "vp6 ", video_keys(640, 480, SMALL))}},
        {"data of an unsupported codec",
         video("11 AB CD"),
         {keys(-1002, "video/unknown", "jpeg", video_keys(320, 240, SMALL))}},
        {"PCM",
         flv_of(4, {{8, PCM}}),
         {keys(-1002, "audio/unknown", "lpcm",
               audio_keys(1, 44000, 16) + ", csd-0: buffer(01020304)")}},
        {"MP3",
         flv_of(4, {{8, mp3_tag({1})}}),
         {keys(0, "audio/mpeg", "U", audio_keys(2, 44100, 16))}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Log log;
        const auto extractor = open(c.bytes);
        ASSERT_EQ(extractor->count_tracks(), c.tracks.size());
        for (size_t i = 0; i < c.tracks.size(); ++i) {
            EXPECT_EQ(track_text(*extractor, i), c.tracks[i]);
            Format own;
            const auto track = extractor->track(i);
            EXPECT_EQ(track->format(&own), AMEDIA_OK);
            EXPECT_EQ(own.text(), c.tracks[i]);
        }
    }
}

/// The number of 3,000,003.3 us in an uneven division, and the order of its two divisions.
TEST(Formats, KeyframeIntervalIsTruncatedTwice)
{
    const struct {
        double duration;
        int entries;
        int64_t interval_us;
    } cases[] = {{10, 10, 1000000}, {10, 3, 3333333}, {0.0000059, 3, 1}, {0.0000029, 3, 0}};
    for (const auto& c : cases) {
        FlvBuilder b = FlvBuilder().header(1);
        for (int i = 0; i < c.entries; ++i)
            b.tag(9, static_cast<uint32_t>(i), H263_KEY);
        Format format;
        const auto extractor = open(b.indexed({amf_prop("duration", amf_num(c.duration))}).bytes());
        EXPECT_EQ(extractor->track_format(0, &format), AMEDIA_OK);
        EXPECT_EQ(format.int64(android::AMEDIAFORMAT_KEY_I_FRAME_AVG_INTERVAL), c.interval_us);
    }
}

TEST(Formats, AskTheDevice)
{
    using Set = void (*)(DeviceSettings&);
    const auto size = [](DeviceSettings& s, int w, int h) { s.video_config = {w, h, {}}; };
    static const auto set = size;
    constexpr int SMALL = 1572864, LARGE = 6291456;
    const struct {
        const char* name;
        Set change;
        int error, max_size, width, height;
        int limits_asked, parsed;
    } cases[] = {
        {"landscape", [](auto& s) { set(s, 1920, 1080); }, 0, SMALL, 1920, 1080, 1, 1},
        {"portrait", [](auto& s) { set(s, 1080, 1920); }, 0, SMALL, 1080, 1920, 1, 1},
        {"the most", [](auto& s) { set(s, 1920, 1088); }, 0, SMALL, 1920, 1088, 1, 1},
        {"too wide", [](auto& s) { set(s, 2048, 1088); }, -1004, SMALL, 2048, 1088, 1, 1},
        {"area counts", [](auto& s) { set(s, 8704, 240); }, 0, SMALL, 8704, 240, 1, 1},
        {"a pixel less than a square's limit",
         [](auto& s) {
             s.limits = {100, 100, 200, 200};
             set(s, 101, 101);
         },
         -1004, SMALL, 101, 101, 1, 1},
        {"its own portrait limit",
         [](auto& s) {
             s.limits = {9, 9, 200, 200};
             set(s, 199, 201);
         },
         0, SMALL, 199, 201, 1, 1},
        {"raised",
         [](auto& s) {
             s.limits = {3840, 2160, 2160, 3840};
             set(s, 3840, 2160);
         },
         0, LARGE, 3840, 2160, 1, 1},
        {"just large",
         [](auto& s) {
             s.limits = {3840, 2160, 0, 0};
             set(s, 2088961, 1);
         },
         0, LARGE, 2088961, 1, 1, 1},
        {"overflow", [](auto& s) { set(s, 65536, 65536); }, -1004, SMALL, 65536, 65536, 1, 1},
        {"height alone", [](auto& s) { set(s, 0, 99); }, 0, SMALL, 64, 48, 1, 1},
        {"limits fail",
         [](auto& s) {
             s.limits = {1, 1, 1, 1};
             s.limits_result = -5;
         },
         -5, SMALL, 64, 48, 1, 1},
        {"limits odd", [](auto& s) { s.limits_result = 7; }, 7, SMALL, 64, 48, 1, 1},
        {"limits odd, too large",
         [](auto& s) {
             s.limits_result = 7;
             set(s, 2048, 1088);
         },
         -1004, SMALL, 2048, 1088, 1, 1},
        {"limits -1001, too large",
         [](auto& s) {
             s.limits_result = -1001;
             set(s, 2048, 1088);
         },
         -1004, SMALL, 2048, 1088, 1, 1},
        {"parser fails", [](auto& s) { s.video_result = -1; }, -1003, SMALL, 64, 48, 0, 1},
        {"parser wants more", [](auto& s) { s.video_result = 1; }, -1003, SMALL, 64, 48, 0, 1},
        {"flag 0", [](auto& s) { s.supported = {}; }, -1002, SMALL, 64, 48, 0, 0},
        {"flag 0, result 5",
         [](auto& s) {
             s.supported = {};
             s.support_result = 5;
         },
         -1002, SMALL, 64, 48, 0, 0},
        {"refused", [](auto& s) { s.support_result = -109; }, -1002, SMALL, 64, 48, 0, 0},
        {"query fails",
         [](auto& s) {
             s.supported = {};
             s.support_result = -108;
         },
         0, SMALL, 64, 48, 1, 1},
        {"result 5", [](auto& s) { s.support_result = 5; }, 0, SMALL, 64, 48, 1, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DeviceSettings settings;
        c.change(settings);
        DeviceScope device(settings);
        const auto extractor = open(avc_aac());
        const std::string csd =
            c.parsed ? ", csd-0: buffer(000000016742001ef00c8f200000000168ce3880)" : "";
        EXPECT_EQ(track_text(*extractor, 1), keys(c.error, "video/avc", "h264",
                                                  video_keys(c.width, c.height, c.max_size) + csd));
        Format audio;
        EXPECT_EQ(extractor->track_format(0, &audio), AMEDIA_OK);
        EXPECT_EQ(audio.int32(AMEDIAFORMAT_KEY_MAX_INPUT_SIZE), 524288) << "published before";
        const DeviceCalls calls = device_calls();
        EXPECT_EQ(calls.support, 1);
        EXPECT_EQ(calls.limits, c.limits_asked);
        EXPECT_EQ(calls.video, c.parsed);
        EXPECT_TRUE(!c.parsed || (calls.last_video.length == 20 && calls.last_video.reserved_zero));
    }
}

TEST(Formats, ProbeFramesForTheConfiguration)
{
    const Bytes more = hex("22 00 00"), good = H263_KEY, huge(1572866, 0x22);
    const struct {
        const char* name;
        std::vector<Bytes> bodies;
        std::optional<int> result; // the parser's
        int error, parsed;
    } cases[] = {
        {"first", {good, good}, {}, 0, 1},
        {"third", {more, more, good, good}, {}, 0, 3},
        {"100 frames", std::vector<Bytes>(101, good), 1, -1003, 100},
        {"end", {good, good, good}, 1, -1003, 3},
        {"broken", {good, good}, -7, -1003, 1},
        {"unread", {hex("22"), good}, {}, -1003, 0},
        {"dropped first", {huge, good}, {}, -1003, 0},
        {"dropped later", {more, huge, good}, {}, 0, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Log log;
        std::vector<std::pair<uint8_t, Bytes>> tags;
        for (const Bytes& body : c.bodies)
            tags.emplace_back(9, body);
        DeviceSettings settings;
        settings.video_result = c.result;
        DeviceScope device(settings);
        const auto extractor = open(flv_of(1, tags));
        EXPECT_EQ(track_text(*extractor, 0),
                  keys(c.error, "video/x-sorenson-h263", "FLV1", video_keys(176, 144, 1572864)));
        const DeviceCalls calls = device_calls();
        EXPECT_EQ(calls.video, c.parsed);
        if (c.parsed) {
            EXPECT_EQ(calls.last_video.head, Bytes(good.begin() + 1, good.end()));
            EXPECT_TRUE(calls.last_video.reserved_zero);
        }
    }
}

TEST(Formats, SynthesiseTheAacConfiguration)
{
    struct Case {
        Bytes config; // with type and packet type
        std::string keys;
    };
    std::vector<Case> cases = {
        {aac_tag(hex("12 10")), ""}, // no configuration: 44000 Hz
        {aac_config_tag(hex("2B 92 08")), "csd-0: buffer(1390), aac-profile: int32(2)"},
    };
    const auto explicit_rate = [](uint32_t rate) {
        return aac_config_tag(Bits().u(5, 2).u(4, 15).u(24, rate).u(4, 1).u(3, 0).bytes());
    };
    cases.push_back({explicit_rate(48000), "csd-0: buffer(1188), aac-profile: int32(2)"});
    cases.push_back({explicit_rate(44000), ""});
    for (unsigned index = 0; index < 14; ++index) { // 12: 7350 Hz, 13: none
        for (const unsigned channels : {1U, 2U, 6U}) {
            const Bytes config = be(2 << 11 | index << 7 | channels << 3, 2);
            char text[50];
            std::snprintf(text, sizeof text, "csd-0: buffer(%02x%02x), aac-profile: int32(2)",
                          config[0], config[1]);
            cases.push_back({aac_config_tag(config), index < 12 ? text : ""});
        }
    }
    for (const Case& c : cases) {
        DeviceScope device;
        const auto extractor = open(flv_of(4, {{8, c.config}, {8, aac_tag({1})}}));
        const std::string text = track_text(*extractor, 0);
        EXPECT_EQ(text.substr(text.find("(524288)")),
                  "(524288)" + (c.keys.empty() ? "" : ", " + c.keys));
        const DeviceCalls calls = device_calls();
        EXPECT_EQ(calls.audio, c.keys.empty() ? 0 : 1);
        if (calls.audio) {
            EXPECT_EQ(calls.last_audio_kind, 28);
            EXPECT_EQ(calls.last_audio.fourcc, 0xFFu);
            EXPECT_EQ(calls.last_audio.length, 4);
            EXPECT_EQ(Bytes(calls.last_audio.head.begin() + 2, calls.last_audio.head.end()),
                      Bytes(2));
            EXPECT_TRUE(calls.last_audio.reserved_zero);
        }
    }
    DeviceSettings refusing;
    refusing.audio_result = -1;
    DeviceScope device(refusing);
    Format format;
    open(avc_aac())->track_format(0, &format);
    EXPECT_EQ(format.buffer(AMEDIAFORMAT_KEY_CSD_0), hex("12 10"));
    EXPECT_FALSE(format.int32(AMEDIAFORMAT_KEY_AAC_PROFILE));
}

TEST(Formats, CompareMimeTexts)
{
    const Bytes h263 = flv_of(1, {{9, H263_KEY}}), mp3 = flv_of(4, {{8, mp3_tag()}});
    const Bytes aac = flv_of(4, {{8, aac_config_tag()}});
    const std::string fits(127, 'x'), longer(128, 'x'), longest(1000, 'x');
    const struct {
        const Bytes& bytes;
        const char* device;
        std::string mime;
        bool csd;
    } cases[] = {
        {h263, "video/3gpp", "video/x-sorenson-h263", false},
        {h263, "VIDEO/3GPP", "VIDEO/3GPP", false},
        {h263, "UnKnown", "video/unknown", false},
        {h263, nullptr, "video/unknown", false},
        {h263, fits.c_str(), fits, false},
        {h263, longer.c_str(), fits, false},
        {h263, longest.c_str(), fits, false},
        {mp3, "Audio/MPEG", "Audio/MPEG", false},
        {mp3, "audio/other", "audio/other", true},
        {mp3, "UNKNOWN", "audio/unknown", true},
        {aac, "AUDIO/MP4A-latm", "AUDIO/MP4A-latm", true},
        {aac, "audio/other", "audio/other", false},
        {aac, nullptr, "audio/unknown", false},
    };
    for (const auto& c : cases) {
        Format format;
        forced_mime = c.device;
        EXPECT_EQ(open(c.bytes)->track_format(0, &format), AMEDIA_OK);
        EXPECT_EQ(format.string(AMEDIAFORMAT_KEY_MIME), c.mime);
        EXPECT_EQ(format.buffer(AMEDIAFORMAT_KEY_CSD_0).has_value(), c.csd) << c.mime;
        forced_mime.reset();
    }
}

TEST(Source, DeliversWhatTheDemuxerReads)
{
    int tracks = 0;
    for (const auto& entry : std::filesystem::directory_iterator(ZOFLV_SOURCE_DIR "/samples")) {
        if (entry.path().extension() != ".flv")
            continue;
        const Bytes bytes = read_file(entry.path());
        const auto extractor = open(bytes);
        for (size_t i = 0; i < extractor->count_tracks(); ++i, ++tracks) {
            SCOPED_TRACE(entry.path().string() + ", track " + std::to_string(i));
            Strm want(bytes, static_cast<int>(i));
            Format format;
            extractor->track_format(i, &format);
            const auto track = extractor->track(i);
            ASSERT_EQ(track->start(), AMEDIA_OK);
            ASSERT_EQ(track->buffer_group()->buffers(), 1u);
            Log log;
            int frames = 0;
            for (; want.read(1 << 17) == 0; ++frames) {
                log.all.clear();
                const ReadResult got = track->read();
                ASSERT_EQ(got.status, AMEDIA_OK);
                ASSERT_EQ(Bytes(got.sample.data(), got.sample.data() + got.sample.size()),
                          want.frame);
                android::CMediaBuffer* const buffer = got.sample.record();
                EXPECT_EQ(static_cast<int32_t>(buffer->size(buffer->handle)),
                          format.int32(AMEDIAFORMAT_KEY_MAX_INPUT_SIZE));
                std::string text = "timeUs: int64(" + std::to_string(want.time / 10) + ')';
                if (want.next > want.time)
                    text += number("durationUs", (want.next - want.time) / 10, "int64");
                EXPECT_EQ(AMediaFormat_toString(got.sample.format()), text);
                EXPECT_EQ(log.all, Lines{});
            }
            EXPECT_GT(frames, 5);
            log.all.clear();
            EXPECT_EQ(next(track), END);
            EXPECT_EQ(next(track), END);
            EXPECT_EQ(log.all, Lines{});
        }
    }
    EXPECT_GE(tracks, 12);
}

TEST(Source, Seeks)
{
    constexpr int64_t S = 1000000, AFTER_FIRST = S / 2;
    const std::string failed = "ZoFLVSource::read()[1, 9] zoflvds_seek() failed! zoflv_seek_time: ";
    const struct {
        const char* files; // i: indexed, n: not
        uint32_t options;
        int64_t to;
        int64_t landing, then;
        std::string log;
    } cases[] = {
        {"in", 8, 31 * S / 10, 2 * S, 25 * S / 10, ""},
        {"in", 9, 31 * S / 10, 4 * S, 45 * S / 10, ""},
        {"in", 10, 31 * S / 10, 4 * S, 45 * S / 10, ""},
        {"in", 10, 29 * S / 10, 2 * S, 25 * S / 10, ""},
        {"in", 10, 3 * S, 2 * S, 25 * S / 10, ""}, // a tie
        {"in", 11, 31 * S / 10, 2 * S, 25 * S / 10, ""},
        {"in", 9, 0, 0, AFTER_FIRST, ""},
        {"in", 0xFFFFFFF9, 31 * S / 10, 4 * S, 45 * S / 10, ""}, // only 4 bits count
        {"in", 0xFFFFFFF1, 31 * S / 10, AFTER_FIRST, S, ""},     // no seek asked for
        {"in", 8, 7 * S, 6 * S, 65 * S / 10, ""},                // exactly the duration
        {"in", 8, 7 * S + 1, END, AFTER_FIRST, ""},
        {"in", 9, INT64_MAX, END, AFTER_FIRST, ""},
        {"in", 12, 31 * S / 10, UNSUPPORTED, AFTER_FIRST, ""},
        {"in", 15, 0, UNSUPPORTED, AFTER_FIRST, ""},
        {"in", 13, 7 * S + 1, UNSUPPORTED, AFTER_FIRST, ""},
        {"in", 14, INT64_MAX, UNSUPPORTED, AFTER_FIRST, ""},
        {"i", 9, 66 * S / 10, END, AFTER_FIRST, failed + "66000000, retval=1"},
        {"i", 8, -1, END, AFTER_FIRST, failed + "-10, retval=-3"},
        {"i", 8, INT64_MIN, END, AFTER_FIRST, failed + std::to_string(INT64_MIN) + ", retval=-3"},
        {"n", 9, 66 * S / 10, END, -1, failed + "66000000, retval=-3"},
    };
    for (const auto& c : cases) {
        for (const char* file = c.files; *file; ++file) {
            SCOPED_TRACE(::testing::Message() << *file << ' ' << c.options << " to " << c.to);
            Log log;
            const auto extractor = open(seekable(*file == 'i'));
            const auto track = extractor->track(1);
            ASSERT_EQ(track->start(), AMEDIA_OK);
            EXPECT_EQ(next(track), 0);
            log.all.clear();
            EXPECT_EQ(next(track, c.options, c.to), c.landing);
            const Lines lines = log.plugin();
            EXPECT_EQ(lines, c.log.empty() ? Lines{} : Lines{c.log});
            const int64_t then = next(track);
            EXPECT_TRUE(c.then < 0 || then == c.then) << then;
        }
    }
    const auto audio = open(seekable(true))->track(0);
    audio->start();
    EXPECT_EQ(next(audio, 9, 31 * S / 10), 4 * S) << "by the video's index";
}

TEST(Source, TellsReadErrorsFromTheEnd)
{
    FlvBuilder b = FlvBuilder().header(4);
    b.tag(8, 0, PCM).tag(8, 26, PCM).tag(8, 52, Bytes(524290, 0x3E)).tag(8, 78, PCM);
    Bytes bytes = b.bytes();
    bytes.resize(bytes.size() - 4); // PreviousTagSize of the last tag
    const auto track = open(bytes)->track(0);
    ASSERT_EQ(track->start(), AMEDIA_OK);
    Log log;
    const std::string failed = "zoflvds_get_frm [mCurrtime = 26000] ZOFLV_OK != retval : ";
    EXPECT_EQ(next(track), 0);
    EXPECT_EQ(next(track), 26000);
    track->buffer_group()->fail_acquires(1);
    EXPECT_EQ(next(track), UNKNOWN);
    EXPECT_EQ(log.all, Lines{});
    EXPECT_EQ(next(track), IO);
    EXPECT_EQ(log.plugin(), Lines{failed + "-4"}) << "larger than the buffer";
    EXPECT_EQ(next(track), IO);
    EXPECT_EQ(log.plugin(), Lines{failed + "-1"}) << "the file ends";
    EXPECT_EQ(next(track), END);
    EXPECT_EQ(log.plugin(), Lines{});
}

TEST(Source, KeepsItsPlaceOverStopAndStart)
{
    const auto track = open(seekable(false))->track(1);
    for (const int64_t time : {0, 500000, 1000000}) {
        ASSERT_EQ(track->start(), AMEDIA_OK);
        EXPECT_EQ(track->buffer_group()->buffers(), 1u);
        EXPECT_EQ(next(track), time);
        EXPECT_EQ(track->stop(), AMEDIA_OK);
    }
    android::CMediaTrack* const record = track->record();
    int64_t time = 0;
    EXPECT_FALSE(record->supportsNonBlockingRead(record->data));
    EXPECT_EQ(record->getSyncFrameTime(record->data, 0, &time), UNSUPPORTED);
    EXPECT_EQ(record->setSlowFastInfo(record->data, 0), AMEDIA_OK);
}

TEST(Source, TwoAtATime)
{
    const auto extractor = open(seekable(true));
    std::unique_ptr<Track> tracks[3];
    for (int round = 0; round < 6; ++round) { // frees 0, 1, 0, ... while another plays on
        for (auto& track : tracks)
            if (!track)
                track = extractor->track(1);
        Format format;
        EXPECT_EQ(tracks[2]->format(&format), AMEDIA_OK);
        EXPECT_EQ(tracks[2]->start(), UNSUPPORTED);
        auto& fresh = tracks[round == 0 ? 1 : 1 - round % 2];
        EXPECT_TRUE(fresh->start() == AMEDIA_OK && next(fresh) == 0);
        tracks[2].reset();
        tracks[round % 2].reset();
    }
    const auto none = open(unopenable());
    EXPECT_EQ(none->count_tracks(), 0u);
    EXPECT_EQ(none->track(0)->start(), UNSUPPORTED);
}

TEST(SourceDeathTest, CallsOutOfOrder)
{
    const auto track = open(avc_aac())->track(0);
    const std::string end = " failed\\.>",
                      tag = "\\|ZoFLVExtractor\\|libextractor/zoflv_extractor:";
    EXPECT_DEATH(track->stop(), tag + "981 CHECK\\(mStarted\\)" + end);
    EXPECT_DEATH(track->read(), tag + "997 CHECK\\(mStarted\\)" + end);
    ASSERT_EQ(track->start(), AMEDIA_OK);
    EXPECT_DEATH(track->start(), "<!\\(!mStarted\\)" + tag + "955 CHECK\\(!mStarted\\)" + end);
    ASSERT_EQ(track->stop(), AMEDIA_OK);
    EXPECT_DEATH(track->stop(), tag + "981 CHECK\\(mStarted\\)" + end);
}

/// A holder whose open file handles are counted, and a format with a maximum input size.
struct Holder {
    explicit Holder(const Bytes& bytes) : source(bytes), dsf(new android::ZoFLVDSF)
    {
        EXPECT_EQ(zocmn_mfal_init(&dsf->mMfal, &helper), 0);
        real = dsf->mMfal;
        dsf->mMfal.open = [](_ZOCMN_MFAL* mfal, unsigned long mode) {
            ++handles;
            return real.open(mfal, mode);
        };
        dsf->mMfal.close = [](void* fh) {
            --handles;
            real.close(fh);
        };
        int err = 0;
        dsf->mHandle = zoflvd_create(&dsf->mMfal, &dsf->mDurationHint, &dsf->mInfo, &err);
        EXPECT_EQ(err, 0);
        AMediaFormat_setInt32(format.get(), AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, 1000);
    }
    android::ZoFLVSource* track(int index)
    {
        return new android::ZoFLVSource(format.get(), &helper, dsf, index);
    }

    static inline _ZOCMN_MFAL real;
    static inline int handles = 0;
    MemoryDataSource source;
    android::DataSourceHelper helper{source.record()};
    Format format;
    android::sp<android::ZoFLVDSF> dsf;
};

struct FreeTrack {
    void operator()(android::CMediaTrack* track) const
    {
        track->free(track->data);
        std::free(track);
    }
};
using Record = std::unique_ptr<android::CMediaTrack, FreeTrack>;

TEST(Holder, EndsWithItsLastUser)
{
    Holder h(seekable(true));
    EXPECT_EQ(Holder::handles, 0);
    BufferGroup group;
    Record tracks[] = {Record(wrap(h.track(0))), Record(wrap(h.track(1))),
                       Record(wrap(h.track(7)))};
    EXPECT_EQ(tracks[2]->start(tracks[2]->data, group.record()), UNSUPPORTED);
    EXPECT_EQ(h.dsf->mStreamCount, 2);
    EXPECT_EQ(Holder::handles, 2);
    EXPECT_EQ(tracks[1]->start(tracks[1]->data, group.record()), AMEDIA_OK);
    tracks[0].reset();
    EXPECT_EQ(h.dsf->mStreams[0], nullptr);
    EXPECT_NE(h.dsf->mStreams[1], nullptr);
    EXPECT_EQ(Holder::handles, 1);
    h.dsf.clear();
    EXPECT_EQ(next(tracks[1].get(), 8, 2100000), 2000000);
    tracks[1].reset(); // started
    EXPECT_EQ(Holder::handles, 0);

    Holder left(seekable(true)); // with a stream that no source closes
    left.dsf->mStreams[0] = zoflvds_open(left.dsf->mHandle, 0, nullptr);
    left.dsf->mStreamCount = 1;
    left.dsf.clear();
    EXPECT_EQ(Holder::handles, 0);
}

TEST(Holder, DecidesAboutSeeks)
{
    Holder h(seekable(true));
    BufferGroup group;
    h.dsf->mInfo.seekable = 0;
    const Record track(wrap(h.track(1)));
    ASSERT_EQ(track->start(track->data, group.record()), AMEDIA_OK);
    EXPECT_EQ(next(track.get()), 0);
    EXPECT_EQ(next(track.get(), 8, 4000000), 500000) << "ignored";
    EXPECT_EQ(next(track.get(), 8, 99000000), 1000000) << "ignored";
    EXPECT_EQ(next(track.get(), 8, 0), 0);
    android::MediaBufferHelper* buffer = nullptr; // read without options
    EXPECT_EQ(static_cast<android::ZoFLVSource*>(track->data)->read(&buffer, nullptr), AMEDIA_OK);
    ASSERT_NE(buffer, nullptr);
    buffer->release();
}

TEST(Holder, MayKnowOtherStreamTypes)
{
    Holder h(seekable(true));
    BufferGroup group;
    Log log;
    h.dsf->mInfo.strm_type[1] = 18;
    const Record track(wrap(h.track(1)));
    EXPECT_EQ(Holder::handles, 0);
    EXPECT_EQ(track->start(track->data, group.record()), AMEDIA_OK);
    EXPECT_EQ(next(track.get()), IO);
    EXPECT_EQ(next(track.get(), 9, 5), END);
    EXPECT_EQ(log.plugin(),
              (Lines{"zoflvds_get_frm [mCurrtime = 0] ZOFLV_OK != retval : -1",
                     "ZoFLVSource::read()[1, 0] zoflvds_seek() failed! zoflv_seek_time: 50, "
                     "retval=-1"}));
}

TEST(HolderDeathTest, FormatWithoutSize)
{
    Holder h(seekable(true));
    BufferGroup group;
    AMediaFormat_clear(h.format.get());
    const Record track(wrap(h.track(1)));
    EXPECT_DEATH(track->start(track->data, group.record()),
                 "\\|ZoFLVExtractor\\|libextractor/zoflv_extractor:963 "
                 "CHECK\\(AMediaFormat_getInt32\\(mFormat, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, "
                 "&max_size\\)\\) failed\\.>");
}

/// Starts, seeks, reads and stops by chance; says what came.
Lines play(std::unique_ptr<Track> track, unsigned seed)
{
    Lines out;
    std::mt19937 random(seed);
    for (int round = 0; round < 25; ++round) {
        EXPECT_EQ(track->start(), AMEDIA_OK);
        for (uint32_t n = 1 + random() % 6, i = 0; i < n; ++i) {
            const uint32_t mode = random() % 4;
            const ReadResult r = i ? track->read() : track->seek_read(random() % 4000000, mode);
            out.push_back(std::to_string(r.status));
            if (r.sample)
                out.back() += AMediaFormat_toString(r.sample.format()) +
                              std::string(r.sample.data(), r.sample.data() + r.sample.size());
        }
        EXPECT_EQ(track->stop(), AMEDIA_OK);
    }
    return out;
}

TEST(Source, ThreadsDoNotDisturbEachOther)
{
    for (const char* name : {"avc_aac_index.flv", "h263_mp3.flv"}) {
        SCOPED_TRACE(name);
        static Bytes bytes;
        bytes = read_file(std::string(ZOFLV_SOURCE_DIR "/samples/") + name);
        const auto source = std::make_shared<MemoryDataSource>(Bytes{});
        // Its own reads are counted, which would order the threads.
        source->record()->readAt = [](void*, off64_t offset, void* data, size_t size) {
            const size_t from = std::min(static_cast<size_t>(offset), bytes.size());
            const size_t n = std::min(size, bytes.size() - from);
            std::copy_n(bytes.data() + from, n, static_cast<uint8_t*>(data));
            return static_cast<ssize_t>(n);
        };
        source->record()->getSize = [](void*, off64_t* size) {
            *size = static_cast<off64_t>(bytes.size());
            return 0;
        };
        const LogSink before = set_log_sink({});
        set_log_level(ANDROID_LOG_ERROR + 1); // a sink's lock would order them too
        const auto extractor = open(source);
        const Lines want[2] = {play(extractor->track(0), 1), play(extractor->track(1), 2)};
        for (int round = 0; round < 3; ++round) {
            Lines got[2];
            std::thread threads[2];
            for (unsigned i = 0; i < 2; ++i)
                threads[i] = std::thread([&, i, track = extractor->track(i)]() mutable {
                    got[i] = play(std::move(track), i + 1);
                });
            for (int i = 0; i < 100; ++i)
                extractor->track(0); // refused, until a thread has freed its own
            for (std::thread& thread : threads)
                thread.join();
            EXPECT_TRUE(got[0] == want[0] && got[1] == want[1]);
        }
        set_log_level(ANDROID_LOG_WARN);
        set_log_sink(before);
    }
}

/// Pictures a second apart, 16 MiB of other data behind each; one picture lies across the border.
TEST(Source, ReadsAndSeeksBeyond4GiB)
{
    constexpr uint64_t BORDER = uint64_t{1} << 32;
    constexpr uint32_t FILLER = 0xFFFFFF, PICTURES = 262;
    const std::string path = ::testing::TempDir() + "zoflv_sparse_" + std::to_string(::getpid());
    const auto picture = [](uint32_t i) { return cat({i % 4 ? H263_INTER : H263_KEY, fill(60)}); };
    for (const bool indexed : {true, false}) {
        std::vector<double> times, positions;
        const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        ASSERT_GE(fd, 0);
        uint64_t pos = 0;
        const auto put = [&](const Bytes& b) {
            EXPECT_EQ(::pwrite(fd, b.data(), b.size(), static_cast<off_t>(pos)), ssize_t(b.size()));
            pos += b.size();
        };
        const auto meta = [&] {
            std::vector<Bytes> props = {amf_prop("duration", amf_num(PICTURES))};
            if (indexed)
                props.push_back(amf_keyframes(times, positions));
            return FlvBuilder().header(1).tag(18, 0, on_meta_data(props)).bytes();
        };
        times.assign((PICTURES + 3) / 4, 0);
        positions = times;
        pos = meta().size();
        uint32_t across = 0;
        for (uint32_t i = 0; i < PICTURES; ++i) {
            if (i % 4 == 0) {
                times[i / 4] = i;
                positions[i / 4] = static_cast<double>(pos);
            }
            const Bytes tag = FlvBuilder().tag(9, i * 1000, picture(i)).bytes();
            across = pos < BORDER && pos + tag.size() > BORDER ? i : across;
            put(tag);
            uint64_t size = FILLER;
            if (pos < BORDER - 50 && BORDER - 50 - pos < size + 15)
                size = BORDER - 50 - pos - 15;
            put(cat({{18}, be(size, 3), Bytes(7)}));
            pos += size;
            put(be(size + 11, 4));
        }
        pos = 0;
        put(meta());
        ::close(fd);
        std::string error;
        const auto extractor = open(FileDataSource::open(path, &error));
        const auto track = extractor->track(0);
        ASSERT_EQ(track->start(), AMEDIA_OK) << error;
        ASSERT_EQ(across, 256u);
        for (const uint32_t i : {252U, 256U, 260U}) // below, across, above
            EXPECT_EQ(next(track, 8, int64_t{i} * 1000000 + 500000), int64_t{i} * 1000000);
        EXPECT_EQ(next(track, 9, 256500000), 260000000);
        EXPECT_EQ(next(track, 8, 0), 0);
        for (uint32_t i = 1; i < PICTURES; ++i) {
            const ReadResult r = track->read();
            ASSERT_EQ(r.status, AMEDIA_OK) << i;
            const Bytes want = picture(i);
            EXPECT_EQ(Bytes(r.sample.data(), r.sample.data() + r.sample.size()),
                      Bytes(want.begin() + 1, want.end()));
            EXPECT_EQ(r.sample.time_us(), int64_t{i} * 1000000);
        }
        EXPECT_EQ(next(track), END);
        std::filesystem::remove(path);
    }
}

} // namespace
