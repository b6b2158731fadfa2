// SPDX-License-Identifier: Apache-2.0
// The plugin as the framework loads it, and its track sources over a holder of the test's own.
#include "libextractor/mfal/zocmn_mfal_android_q.h"
#include "libextractor/zoflv_extractor.h"
#include "platform/host/elf_symbols.h"
#include "tests/support/demux.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>
#include <unistd.h>
#include <zodevice/zo_media_formats.h>
#include <zoflv_host/device_control.h>
#include <zoflv_host/extractor.h>
#include <zoflv_host/log.h>

using namespace zoflv_host;
using Lines = std::vector<std::string>;
using ::testing::Message;

/// What the device calls every codec, where a test sets it.
static std::optional<const char*> forced_mime;

const char* FourCC2MIME(uint32_t fourcc) // serves the plugin in place of the library's
{
    static void* const device = ::dlsym(RTLD_NEXT, "FourCC2MIME");
    return forced_mime ? *forced_mime : reinterpret_cast<const char* (*)(uint32_t)>(device)(fourcc);
}

namespace {

constexpr int UNSUPPORTED = -10002, END = -10006, IO = -10007; // statuses

/// Holds what is logged while it exists.
struct Log {
    Lines plugin, others;
    ScopedLogSink sink{[this](int priority, const std::string& tag, const std::string& text) {
        (tag == "ZoFLVExtractor" ? plugin : others)
            .push_back(std::to_string(priority) + ' ' + text);
    }};
};

std::string error; // of the loader
const auto library = ExtractorLibrary::load(ZOFLV_PLUGIN, &error);

std::shared_ptr<Extractor> open(const Bytes& file)
{
    return library->open(std::make_shared<MemoryDataSource>(file), &error);
}

/// Reads a sample and hands it back. The time in microseconds, or the status.
int64_t next(android::CMediaTrack* track, uint32_t options = 0, int64_t seek_us = 0)
{
    android::CMediaBuffer* buffer = nullptr;
    int64_t time_us = track->read(track->data, &buffer, options, seek_us);
    EXPECT_EQ(buffer == nullptr, time_us != AMEDIA_OK);
    if (buffer) {
        AMediaFormat* const meta = buffer->meta_data(buffer->handle);
        EXPECT_TRUE(AMediaFormat_getInt64(meta, AMEDIAFORMAT_KEY_TIME_US, &time_us));
        buffer->release(buffer->handle);
    }
    return time_us;
}

Bytes bytes_of(const Sample& sample)
{
    return {sample.data(), sample.data() + sample.size()};
}

using Tags = std::vector<Bytes>;                                                          // bodies
const Bytes KEY = hex("12 00 00 84 01 93 00 01"), INTER = hex("22 00 00 84 01 D3 00 02"); // H.263
const Bytes PCM = hex("3E 01 02 03 04"); // "llpc", 16 bits, mono, 44 kHz
const Tags AAC = {aac_config_tag(), aac_tag({1, 2})};
const Tags AVC = {avc_config_tag(avc_record({avc_sps(4, 3)}, {hex("68 CE")})), // 64x48
                  avc_tag({fill(9)})};

/// A file of 3 s, 25 pictures a second, with a keyframe index at the positions.
Bytes flv_of(const Tags& audio, const Tags& video, bool video_first = false,
             const std::vector<double>& index = {})
{
    Tags props = {amf_prop("duration", amf_num(3)), amf_prop("framerate", amf_num(25))};
    if (!index.empty())
        props.push_back(amf_keyframes(index, index));
    FlvBuilder b = FlvBuilder().header(0).tag(18, 0, on_meta_data(props));
    for (const bool is_video : {video_first, !video_first})
        for (const Bytes& body : is_video ? video : audio)
            b.tag(is_video ? 9 : 8, 0, body);
    return b.bytes();
}

/// 7 s, H.263 keyframes every 2 s up to 6 s, pictures and PCM tags every 100 ms.
Bytes seekable(bool indexed)
{
    FlvBuilder b = FlvBuilder().header(5);
    const Tags props = {amf_prop("duration", amf_num(7))};
    if (!indexed)
        b.tag(18, 0, on_meta_data(props));
    for (uint32_t ms = 0; ms < 7000; ms += 100)
        b.tag(9, ms, ms % 2000 ? INTER : KEY).tag(8, ms, PCM);
    return indexed ? b.indexed(props).bytes() : b.bytes();
}

TEST(Plugin, DefinesItselfAndSniffs)
{
    Lines exports;
    ASSERT_TRUE(read_defined_symbols(ZOFLV_PLUGIN, &exports, &error)) << error;
    EXPECT_EQ(exports, Lines{"GETEXTRACTORDEF"});
    ASSERT_TRUE(library) << error;
    const android::ExtractorDef& def = library->definition();
    EXPECT_TRUE(def.def_version == 3 && def.extractor_version == 1);
    EXPECT_STREQ(def.extractor_name, "Vantor FLV Extractor");
    EXPECT_TRUE(std::string(def.supported_types[0]) == "flv" && !def.supported_types[1]);
    EXPECT_TRUE(def.extractor_uuid.b[6] >> 4 == 4 && def.extractor_uuid.b[8] >> 6 == 2) << "random";
    for (const bool fails : {false, true}) {
        for (const char* bytes : {"FLV", "FLV\7", "FLv", "flv", "FLX", " FL", "FL", ""}) {
            MemoryDataSource source(ascii(bytes), {0, 0, fails ? 1U : 0U});
            const bool flv = !fails && (bytes == std::string("FLV") || std::strlen(bytes) == 4);
            float confidence = -2;
            void* meta = &source;
            android::FreeMetaFunc free_meta = std::free;
            EXPECT_EQ(def.sniff(source.record(), &confidence, &meta, &free_meta) != nullptr, flv);
            EXPECT_EQ(confidence, flv ? 0.7f : -2.0f) << bytes;
            EXPECT_TRUE(meta == &source && free_meta == std::free && source.reads() == 1);
        }
    }
}

/// The answer to one of five questions.
int ask(Extractor& e, size_t question, Format* format)
{
    return question == 0   ? static_cast<int>(e.count_tracks())
           : question == 1 ? e.track_format(0, format)
           : question == 2 ? e.container_format(format)
           : question == 3 ? static_cast<int>(e.flags())
                           : e.track(0) != nullptr;
}

TEST(Extractor, InitialisesOnceAndLate)
{
    using Answers = std::array<int, 5>;
    const Answers two = {2, 0, 0, 15, 1}, one = {1, 0, 0, 15, 1}, bad = {0, -10000, -10000, 4, 0};
    const Answers cut = {0, -10000, -10000, 15, 0}; // -1001 behind the audio track, which stays
    const std::string failed = "4 ZoFLVExtractor::init_zoflvff() zoflvd_create() failed(";
    const std::string aac = "4 ZoFLVExtractor(AUDIO) mimetype : audio/mp4a-latm (0x00ff)";
    const std::string avc = "4 ZoFLVExtractor(VIDEO) mimetype : video/avc (0x34363268)";
    const std::string h263 = "4 ZoFLVExtractor(VIDEO) mimetype : video/3gpp (0x31564c46)";
    const struct {
        Bytes bytes;
        std::optional<int> limits_result; // the device's
        const Answers &first, &later;
        std::string container; // its keys
        Lines log;
    } cases[] = {{flv_of(AAC, AVC), {}, two, two, "mime: string(video/flv)", {aac, avc}},
                 {flv_of(AAC, {}), {}, one, one, "mime: string(audio/flv)", {aac}},
                 {ascii("FLV"), {}, bad, bad, "", {failed + "-1)!"}},
                 {hex("464C5602 05"), {}, bad, bad, "", {failed + "-3)!"}},
                 {hex("464C5601 05 00"), {}, bad, bad, "", {failed + "-6)!"}},
                 {flv_of(AAC, AVC), -1001, cut, one, "", {aac, avc}},
                 // The index begins behind the end of the file: no stream to probe.
                 {flv_of(AAC, {KEY}, false, {1e6}), {}, cut, one, "", {aac, h263}}};
    for (const auto& c : cases) {
        for (size_t first = 0; first < 5; ++first) {
            SCOPED_TRACE(Message() << &c - cases << ", question " << first);
            DeviceSettings settings;
            settings.limits_result = c.limits_result;
            const DeviceScope device(settings);
            Log log;
            const auto extractor = open(c.bytes);
            Format format, container;
            EXPECT_EQ(extractor->name(), "ZoFLVExtractor");
            EXPECT_EQ(extractor->source().reads(), 1u) << "the sniff's";
            EXPECT_EQ(ask(*extractor, first, &format), c.first[first]);
            const uint64_t reads = extractor->source().reads();
            EXPECT_GT(reads, 1u);
            for (size_t question = 0; question < 4; ++question)
                EXPECT_EQ(ask(*extractor, question, &container), c.later[question]);
            EXPECT_EQ(extractor->container_format(&container) ? "" : container.text(), c.container);
            EXPECT_FALSE(extractor->track(2) || extractor->track(SIZE_MAX));
            EXPECT_EQ(extractor->track_format(2, &format), -10000);
            EXPECT_EQ(extractor->source().reads(), reads);
            EXPECT_EQ(log.plugin, c.log);
            EXPECT_EQ(ask(*extractor, 4, nullptr), c.later[4]); // looks for the index
        }
    }
}

TEST(Formats, HaveTheirKeysInOrder)
{
    const Bytes indexed = flv_of({PCM}, {KEY}, false, {13, 14, 15, 16, 17, 18, 19});
    const std::tuple<Bytes, size_t, std::string> cases[] = {
        {flv_of(AAC, AVC), 0,
         "0, mime: string(audio/mp4a-latm), fourcc: 255, channel-count: 2, sample-rate: 44100, "
         "bits-per-sample: 16, max-input-size: 524288, csd-0: buffer(1210), aac-profile: 2"},
        {flv_of(AAC, AVC), 1,
         "0, mime: string(video/avc), fourcc: 875967080, width: 64, height: 48, max-input-size: "
         "1572864, display-width: 64, display-height: 48, frame-rate: 25, csd-0: "
         "buffer(000000016742001eda11e40000000168ce)"},
        {indexed, 0,
         "-1002, track-fourcc: 1668312172, error-loggable: 1, mime: string(audio/unknown), fourcc: "
         "1668312172, channel-count: 1, sample-rate: 44000, bits-per-sample: 16, max-input-size: "
         "524288, csd-0: buffer(01020304)"},
        {indexed, 1,
         "0, mime: string(video/x-sorenson-h263), fourcc: 827739206, width: 176, height: 144, "
         "max-input-size: 1572864, display-width: 176, display-height: 144, frame-rate: 25, "
         "i-frame-avg-interval-us: int64(428571)"}};
    for (const auto& [bytes, track, keys] : cases) {
        Format format;
        EXPECT_EQ(open(bytes)->track(track)->format(&format), AMEDIA_OK);
        std::string text = format.text();
        for (size_t at; (at = text.find("int32(")) != text.npos; text.erase(at, 6))
            text.erase(text.find(')', at), 1);
        EXPECT_EQ(text,
                  "durationUs: int64(3000000), allow-frame-reordering: 1, error-type: " + keys);
    }
}

/// Settings of a device whose parser finds a size, and the results of its operations.
DeviceSettings device(int width, int height, ZO_SPEC_SIZE_LIMITS limits = {1920, 1088, 1088, 1920},
                      bool supported = true, std::optional<int> support = {},
                      std::optional<int> parser = {}, std::optional<int> limits_result = {})
{
    DeviceSettings s;
    s.video_config = {width, height, {}};
    s.limits = limits;
    s.supported.resize(supported ? s.supported.size() : 0);
    s.support_result = support, s.video_result = parser, s.limits_result = limits_result;
    return s;
}

/// The last track's error, KiB of input, size or channels and rate, bytes of codec data, calls of
/// the device's parser, and MIME text.
std::string facts(const Bytes& file, const DeviceSettings& settings = {},
                  std::optional<const char*> mime = {})
{
    const Log log;
    const DeviceScope scope(settings);
    forced_mime = mime;
    Format f;
    const auto extractor = open(file);
    EXPECT_EQ(extractor->track_format(extractor->count_tracks() - 1, &f), AMEDIA_OK);
    forced_mime.reset();
    const auto csd = f.buffer(AMEDIAFORMAT_KEY_CSD_0).value_or(Bytes());
    const bool video = f.int32(AMEDIAFORMAT_KEY_WIDTH).has_value();
    std::ostringstream out;
    out << *f.int32(android::AMEDIAFORMAT_KEY_ERROR_TYPE) << ' '
        << *f.int32(AMEDIAFORMAT_KEY_MAX_INPUT_SIZE) / 1024 << ' '
        << *f.int32(video ? AMEDIAFORMAT_KEY_WIDTH : AMEDIAFORMAT_KEY_CHANNEL_COUNT) << 'x'
        << *f.int32(video ? AMEDIAFORMAT_KEY_HEIGHT : AMEDIAFORMAT_KEY_SAMPLE_RATE) << ' '
        << csd.size() << ' ' << device_calls().video << ' ' << *f.string(AMEDIAFORMAT_KEY_MIME);
    EXPECT_EQ(device_calls().last_video.reserved_zero, device_calls().video > 0);
    return out.str();
}

TEST(Formats, DecidePerCodecAndDevice)
{
    const ZO_SPEC_SIZE_LIMITS large{3840, 2160, 2160, 3840}, uneven{100, 100, 200, 200};
    const std::string video = " video/avc", other = " video/unknown", longest(1000, 'v');
    const auto none = std::nullopt;
    const Bytes avc = flv_of({}, AVC), mp3 = flv_of({mp3_tag()}, {}), aac = flv_of(AAC, {});
    EXPECT_EQ(facts(avc, device(1080, 1920)), "0 1536 1080x1920 17 1" + video);
    EXPECT_EQ(facts(avc, device(1920, 1088)), "0 1536 1920x1088 17 1" + video);
    EXPECT_EQ(facts(avc, device(2048, 1088)), "-1004 1536 2048x1088 17 1" + video);
    EXPECT_EQ(facts(avc, device(65536, 65536)), "-1004 1536 65536x65536 17 1" + video);
    EXPECT_EQ(facts(avc, device(101, 101, uneven)), "-1004 1536 101x101 17 1" + video);
    EXPECT_EQ(facts(avc, device(3840, 2160, large)), "0 6144 3840x2160 17 1" + video);
    EXPECT_EQ(facts(avc, device(2088961, 1, large)), "0 6144 2088961x1 17 1" + video);
    EXPECT_EQ(facts(avc, device(0, 99)), "0 1536 64x48 17 1" + video);
    EXPECT_EQ(facts(avc, device(9, 9, uneven, true, none, -1)), "-1003 1536 64x48 17 1" + video);
    EXPECT_EQ(facts(avc, device(9, 9, uneven, false)), "-1002 1536 64x48 0 0" + video);
    EXPECT_EQ(facts(avc, device(9, 9, uneven, false, 5)), "-1002 1536 64x48 0 0" + video);
    EXPECT_EQ(facts(avc, device(9, 9, uneven, true, -109)), "-1002 1536 64x48 0 0" + video);
    EXPECT_EQ(facts(avc, device(9, 9, uneven, false, -108)), "0 1536 9x9 17 1" + video);
    EXPECT_EQ(facts(avc, device(1920, 1088, uneven, true, none, none, -5)),
              "-5 1536 1920x1088 17 1" + video);
    EXPECT_EQ(facts(avc, device(9999, 999, large, true, none, none, -1001)),
              "-1004 1536 9999x999 17 1" + video);
    EXPECT_EQ(facts(flv_of({mp3_tag()}, AVC, true)), "0 1536 2x44100 0 1 audio/mpeg");
    EXPECT_EQ(facts(flv_of({hex("70 AA")}, {hex("13 30A03078")}, true)),
              "-1002 1536 1x5000 1 0 audio/unknown");
    EXPECT_EQ(facts(flv_of({}, {hex("14 00 00 02 1E28 1E28")})), "-1002 1536 640x480 0 0" + other);

    // Frames for the parser until it is content: 100 at most, failed reads included.
    const std::string h263 = " 1536 176x144 0 ", sorenson = " video/x-sorenson-h263";
    const Bytes more = hex("22 00 00"), huge(1572866, 0x22), pair = flv_of({}, {KEY, KEY});
    DeviceSettings parser;
    EXPECT_EQ(facts(flv_of({}, {more, more, KEY, KEY})), "0" + h263 + "3" + sorenson);
    EXPECT_EQ(facts(flv_of({}, {more, huge, KEY})), "0" + h263 + "2" + sorenson);
    EXPECT_EQ(facts(flv_of({}, {hex("22"), KEY})), "-1003" + h263 + "0" + sorenson);
    parser.video_result = -7;
    EXPECT_EQ(facts(pair, parser), "-1003" + h263 + "1" + sorenson);
    parser.video_result = 1;
    EXPECT_EQ(facts(pair, parser), "-1003" + h263 + "2" + sorenson);
    EXPECT_EQ(facts(flv_of({}, Tags(101, KEY)), parser), "-1003" + h263 + "100" + sorenson);

    EXPECT_EQ(facts(pair, {}, "VIDEO/3GPP"), "0" + h263 + "1 VIDEO/3GPP");
    EXPECT_EQ(facts(pair, {}, "UnKnown"), "0" + h263 + "1" + other);
    EXPECT_EQ(facts(pair, {}, nullptr), "0" + h263 + "1" + other);
    EXPECT_EQ(facts(pair, {}, longest.c_str()), "0" + h263 + "1 " + longest.substr(0, 127));
    EXPECT_EQ(facts(mp3, {}, "Audio/MPEG"), "0 512 2x44100 0 0 Audio/MPEG");
    EXPECT_EQ(facts(mp3, {}, "other"), "0 512 2x44100 4 0 other");
    EXPECT_EQ(facts(aac, {}, "AUDIO/MP4A-latm"), "0 512 2x44100 2 0 AUDIO/MP4A-latm");
    EXPECT_EQ(facts(aac, {}, "UNKNOWN"), "0 512 2x44100 0 0 audio/unknown");
}

TEST(Formats, SynthesiseTheAacConfiguration)
{
    std::vector<std::pair<Bytes, Bytes>> cases = {{aac_tag(hex("12 10")), {}}}; // 44000 Hz
    cases.push_back({aac_config_tag(hex("2B 92 08")), hex("13 90")});
    cases.push_back({aac_config_tag(hex("17 80 5D C0 08")), hex("11 88")}); // 48000 Hz, explicit
    cases.push_back({aac_config_tag(hex("17 80 55 F0 08")), {}});           // 44000 Hz, explicit
    for (unsigned index = 0; index < 14; ++index) {                         // 12: 7350 Hz, 13: none
        const Bytes config = be(2 << 11 | index << 7 | (1 + index % 6) << 3, 2);
        cases.push_back({aac_config_tag(config), index < 12 ? config : Bytes()});
    }
    for (const auto& [tag, config] : cases) {
        for (const int refused : {0, -1}) {
            DeviceSettings settings;
            settings.audio_result = refused;
            const DeviceScope scope(settings);
            Format format;
            open(flv_of({tag}, {}))->track_format(0, &format);
            const std::optional<int> profile = format.int32(AMEDIAFORMAT_KEY_AAC_PROFILE);
            EXPECT_EQ(profile.value_or(0), config.empty() || refused ? 0 : 2);
            EXPECT_EQ(format.buffer(AMEDIAFORMAT_KEY_CSD_0).value_or(Bytes()), config);
            EXPECT_EQ(device_calls().last_audio_kind, config.empty() ? 0 : 28);
            EXPECT_EQ(device_calls().last_audio.length, config.empty() ? 0 : 4);
        }
    }
}

TEST(Source, DeliversWhatTheDemuxerReads)
{
    int tracks = 0;
    for (const auto& entry : std::filesystem::directory_iterator(ZOFLV_SOURCE_DIR "/samples")) {
        std::ifstream in(entry.path(), std::ios::binary);
        const Bytes bytes(std::istreambuf_iterator<char>(in), {});
        const auto extractor = entry.path().extension() == ".flv" ? open(bytes) : nullptr;
        for (size_t i = 0; extractor && i < extractor->count_tracks(); ++i, ++tracks) {
            SCOPED_TRACE(entry.path().string() + ", track " + std::to_string(i));
            Strm want(bytes, static_cast<int>(i));
            Format format;
            const auto track = extractor->track(i);
            ASSERT_TRUE(!track->format(&format) && !track->start());
            Log log;
            while (want.read(1 << 17) == 0) {
                const Sample sample = track->read().sample;
                ASSERT_TRUE(sample);
                ASSERT_EQ(bytes_of(sample), want.frame);
                const auto size = sample.record()->size(sample.record()->handle);
                EXPECT_EQ(int32_t(size), format.int32(AMEDIAFORMAT_KEY_MAX_INPUT_SIZE));
                std::string text = "timeUs: int64(" + std::to_string(want.time / 10);
                if (want.next > want.time)
                    text += "), durationUs: int64(" + std::to_string((want.next - want.time) / 10);
                EXPECT_EQ(AMediaFormat_toString(sample.format()), text + ')');
            }
            EXPECT_TRUE(want.time > 0 && next(track->record()) == END);
            EXPECT_EQ(log.plugin.size() + log.others.size(), 0u);
        }
    }
    EXPECT_GE(tracks, 12);
}

TEST(Source, Seeks)
{
    // Files (i: indexed, n: not), options, target in us, where it lands and the sample after that
    // in ms or a status, the demuxer's result. At 3 s there is a tie; only 4 option bits count.
    std::istringstream cases("in 8 3150000 2000 2100 0  in 9 3150000 4000 4100 0  "
                             "in 10 3150000 4000 4100 0  in 11 3150000 2000 2100 0  "
                             "in 10 2950000 2000 2100 0  in 10 3000000 2000 2100 0  "
                             "in 4294967289 3150000 4000 4100 0  in 4294967287 3150000 100 200 0  "
                             "in 9 0 0 100 0  i 8 7000000 6000 6100 0  n 8 7000000 -10006 -1 -3  "
                             "in 8 7000001 -10006 100 0  in 9 9223372036854775807 -10006 100 0  "
                             "in 12 3150000 -10002 100 0  in 13 7000001 -10002 100 0  "
                             "in 14 9223372036854775807 -10002 100 0  in 15 0 -10002 100 0  "
                             "i 9 6600000 -10006 -1 1  n 9 6600000 -10006 -1 -3  "
                             "i 8 -1 -10006 -1 -3");
    std::string files;
    uint32_t options;
    int64_t to, landing, then, retval, count = 0;
    for (; cases >> files >> options >> to >> landing >> then >> retval; ++count) {
        for (const char file : files) {
            SCOPED_TRACE(Message() << file << ' ' << options << " to " << to);
            const auto track = open(seekable(file == 'i'))->track(1);
            track->start();
            EXPECT_EQ(next(track->record()), 0);
            Log log;
            const int64_t landed = next(track->record(), options, to);
            EXPECT_EQ(landed, landing < 0 ? landing : landing * 1000);
            std::ostringstream failed;
            failed << "4 ZoFLVSource::read()[1, 9] zoflvds_seek() failed! zoflv_seek_time: " << to
                   << "0, retval=" << retval;
            EXPECT_EQ(log.plugin, retval ? Lines{failed.str()} : Lines{});
            const int64_t after = next(track->record());
            EXPECT_TRUE(then < 0 || after == then * 1000) << after;
        }
    }
    EXPECT_EQ(count, 20);
}

TEST(Source, TellsReadErrorsFromTheEnd)
{
    FlvBuilder b = FlvBuilder().header(4);
    b.tag(8, 0, PCM).tag(8, 26, PCM).tag(8, 52, Bytes(524290, 0x3E)).tag(8, 78, PCM);
    const auto track = open(cut(b.bytes(), b.size() - 4))->track(0); // no last PreviousTagSize
    for (const int64_t time : {0, 26000}) {                          // a stop keeps the place
        ASSERT_EQ(track->start(), AMEDIA_OK);
        EXPECT_EQ(track->buffer_group()->buffers(), 1u);
        EXPECT_EQ(next(track->record()), time);
        EXPECT_EQ(track->stop(), AMEDIA_OK);
    }
    track->start();
    track->buffer_group()->fail_acquires(1);
    Log log;
    EXPECT_TRUE(next(track->record()) == -10000 && log.plugin.empty());
    EXPECT_EQ(next(track->record()), IO); // larger than the buffer
    EXPECT_EQ(next(track->record()), IO); // the file ends
    EXPECT_EQ(next(track->record()), END);
    const std::string failed = "4 zoflvds_get_frm [mCurrtime = 26000] ZOFLV_OK != retval : ";
    EXPECT_EQ(log.plugin, (Lines{failed + "-4", failed + "-1"}));
}

TEST(SourceDeathTest, CallsOutOfOrder)
{
    const auto track = open(flv_of(AAC, {}))->track(0);
    const std::string end = " failed\\.\n", at = "F ZoFLVExtractor: libextractor/zoflv_extractor:";
    EXPECT_DEATH(track->stop(), at + "981 CHECK\\(mStarted\\)" + end);
    EXPECT_DEATH(track->read(), at + "997 CHECK\\(mStarted\\)" + end);
    ASSERT_EQ(track->start(), AMEDIA_OK);
    EXPECT_DEATH(track->start(), at + "955 CHECK\\(!mStarted\\)" + end);
}

TEST(Holder, RulesItsSources)
{
    MemoryDataSource memory(seekable(true));
    android::DataSourceHelper helper(memory.record());
    const android::sp<android::ZoFLVDSF> dsf(new android::ZoFLVDSF);
    zocmn_mfal_init(&dsf->mMfal, &helper);
    dsf->mHandle = zoflvd_create(&dsf->mMfal, &dsf->mDurationHint, &dsf->mInfo, nullptr);
    dsf->mInfo.seekable = 0;
    Format format;
    AMediaFormat_setInt32(format.get(), AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, 1000);
    BufferGroup group;
    using Record = std::unique_ptr<android::CMediaTrack, void (*)(android::CMediaTrack*)>;
    const auto make = [&](int index) {
        return Record(wrap(new android::ZoFLVSource(format.get(), &helper, dsf, index)),
                      [](android::CMediaTrack* t) { t->free(t->data), std::free(t); });
    };
    const auto start = [&](const Record& r) { return r->start(r->data, group.record()); };
    Record video = make(1), audio = make(0);
    EXPECT_TRUE(start(video) == AMEDIA_OK && start(audio) == AMEDIA_OK);
    EXPECT_EQ(start(make(1)), UNSUPPORTED) << "a third source";
    for (const int64_t time : {0, 100000, 200000}) // seeks are ignored, but for time 0
        EXPECT_EQ(next(video.get(), 8, time * 30), time);
    EXPECT_EQ(next(video.get(), 8, 0), 0);
    android::MediaBufferHelper* buffer = nullptr; // without options
    ASSERT_EQ(static_cast<android::ZoFLVSource*>(video->data)->read(&buffer, nullptr), AMEDIA_OK);
    buffer->release();
    video.reset();
    EXPECT_TRUE(!dsf->mStreams[0] && dsf->mStreams[1]);
    video = make(1); // in the place that is free
    EXPECT_TRUE(start(video) == AMEDIA_OK && next(video.get()) == 0);
    audio.reset();
    EXPECT_TRUE(dsf->mStreams[0] && !dsf->mStreams[1]);
    dsf->mStreams[1] = zoflvds_open(dsf->mHandle, 1, nullptr); // the holder closes it
    dsf->mInfo.strm_type[0] = 18;
    audio = make(0);
    Log log;
    EXPECT_TRUE(start(audio) == AMEDIA_OK && next(audio.get()) == IO &&
                next(audio.get(), 8) == END);
    EXPECT_EQ(log.plugin, (Lines{"4 zoflvds_get_frm [mCurrtime = 0] ZOFLV_OK != retval : -1",
                                 "4 ZoFLVSource::read()[0, 0] zoflvds_seek() failed! "
                                 "zoflv_seek_time: 0, retval=-1"}));
    AMediaFormat_clear(format.get());
    audio = make(0);
    EXPECT_DEATH(start(audio),
                 "libextractor/zoflv_extractor:963 CHECK\\(AMediaFormat_getInt32\\("
                 "mFormat, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, &max_size\\)\\) failed\\.\n");
}

/// Starts, seeks, reads and stops by chance; says what came.
Lines play(std::unique_ptr<Track> track, unsigned seed)
{
    Lines out;
    std::minstd_rand random(seed);
    for (uint32_t round = 0; round < 25; ++round) {
        EXPECT_EQ(track->start(), AMEDIA_OK);
        for (auto i = random() % 6; i > 0; --i) {
            const auto to = static_cast<int64_t>(random() % 4000000);
            const ReadResult r = i % 3 ? track->read() : track->seek_read(to, round % 4);
            out.push_back(std::to_string(r.status));
            if (r.sample)
                out.back() += AMediaFormat_toString(r.sample.format()) +
                              ::testing::PrintToString(bytes_of(r.sample));
        }
        EXPECT_EQ(track->stop(), AMEDIA_OK);
    }
    return out;
}

TEST(Source, ThreadsDoNotDisturbEachOther)
{
    const int level = log_level();
    set_log_level(99); // the lock of a sink would put the threads in order
    for (const char* name : {"/samples/avc_aac_index.flv", "/samples/h263_mp3.flv"}) {
        static int fd;
        const std::string path = std::string(ZOFLV_SOURCE_DIR) + name;
        const std::shared_ptr<DataSource> source = FileDataSource::open(path, &error);
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC); // and so would the source's counters
        source->record()->readAt = [](void*, off64_t offset, void* data, size_t size) {
            return ::pread(fd, data, size, offset);
        };
        const auto extractor = library->open(source, &error);
        const Lines want[2] = {play(extractor->track(0), 1), play(extractor->track(1), 2)};
        for (int round = 0; round < 3; ++round) {
            std::thread threads[2];
            for (unsigned i : {0U, 1U})
                threads[i] = std::thread([&, i, track = extractor->track(i)]() mutable {
                    EXPECT_TRUE(play(std::move(track), i + 1) == want[i]);
                });
            for (int i = 0; i < 200; ++i)
                extractor->track(0); // refused, until a thread has freed its own
            for (std::thread& thread : threads)
                thread.join();
        }
        ::close(fd);
    }
    set_log_level(level);
}

/// Pictures a second apart, 16 MiB of other data behind each; one picture lies across the border.
TEST(Source, ReadsAndSeeksBeyond4GiB)
{
    constexpr uint32_t PICTURES = 264;
    const std::string path = ::testing::TempDir() + "zoflv_sparse_" + std::to_string(::getpid());
    std::ofstream out(path, std::ios::binary);
    const auto put = [&](const Bytes& bytes) {
        out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    };
    const auto picture = [](uint32_t i) { return cat({i % 4 ? INTER : KEY, fill(60)}); };
    std::vector<double> times(PICTURES / 4), positions = times;
    const auto head = [&] {
        const Tags props = {amf_prop("duration", amf_num(PICTURES)),
                            amf_keyframes(times, positions)};
        return FlvBuilder().header(1).tag(18, 0, on_meta_data(props)).bytes();
    };
    put(head());
    for (uint32_t i = 0; i < PICTURES; ++i) {
        times[i / 4] = i / 4 * 4;
        if (i % 4 == 0)
            positions[i / 4] = static_cast<double>(out.tellp());
        put(FlvBuilder().tag(9, i * 1000, picture(i)).bytes());
        const int64_t size = i == 255 ? (int64_t{1} << 32) - 50 - out.tellp() - 15 : 0xFFFFF0;
        put(cat({{18}, be(static_cast<uint64_t>(size), 3), Bytes(7)}));
        out.seekp(size, std::ios::cur);
        put(be(static_cast<uint64_t>(size) + 11, 4));
    }
    out.seekp(0);
    put(head());
    for (const char* letter : {"k", "x"}) { // "keyframes", then a name that says nothing
        out.seekp(63).write(letter, 1).flush();
        const std::shared_ptr<DataSource> source = FileDataSource::open(path, &error);
        const auto track = library->open(source, &error)->track(0);
        ASSERT_EQ(track->start(), AMEDIA_OK);
        for (const int64_t i : {252, 256, 260}) // below, across, above
            EXPECT_EQ(next(track->record(), 8, i * 1000000 + 1950000), i * 1000000);
        EXPECT_EQ(next(track->record(), 9, 256500000), 260000000);
        EXPECT_EQ(next(track->record(), 8, 0), 0);
        for (uint32_t i = 1; i < PICTURES; ++i) {
            const Sample sample = track->read().sample;
            ASSERT_TRUE(sample && sample.time_us() == int64_t{i} * 1000000) << i;
            EXPECT_EQ(cat({{picture(i)[0]}, bytes_of(sample)}), picture(i));
        }
    }
    std::filesystem::remove(path);
}

} // namespace
