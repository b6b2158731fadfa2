// SPDX-License-Identifier: Apache-2.0
// The plugin as the framework loads it.
#include "libextractor/zoflv_extractor_source.h"
#include "tests/support/demux.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>
#include <zoflv_host/device_control.h>
#include <zoflv_host/extractor.h>
#include <zoflv_host/log.h>

using namespace zoflv_host;
using Lines = std::vector<std::string>;

namespace {

constexpr int END = -10006, IO = -10007; // statuses

/// Holds what the plugin logs while it exists.
struct Log {
    Lines lines;
    ScopedLogSink sink{[this](int priority, const std::string& tag, const std::string& text) {
        if (tag == "ZoFLVExtractor")
            lines.push_back(std::to_string(priority) + ' ' + text);
    }};
};

/// A codec code, which has its characters in memory order, as a number.
std::string code(const char* format, const char (&characters)[5])
{
    uint32_t value;
    char text[16];
    std::memcpy(&value, characters, sizeof value);
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string error; // of the loader
const auto library = ExtractorLibrary::load(ZOFLV_PLUGIN, &error);

std::shared_ptr<Extractor> open(const Bytes& file)
{
    return library->open(std::make_shared<MemoryDataSource>(file), &error);
}

/// Reads a sample and hands it back. The time in microseconds, or the status.
int64_t next(Track& track, uint32_t options = 0, int64_t seek_us = 0)
{
    const ReadResult result = track.read_with(options, seek_us);
    return result.sample ? *result.sample.time_us() : int64_t{result.status};
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

/// 7 s, an indexed H.263 keyframe every 2 s up to 6 s, pictures and PCM tags every 100 ms.
Bytes seekable()
{
    FlvBuilder b = FlvBuilder().header(5);
    for (uint32_t ms = 0; ms < 7000; ms += 100)
        b.tag(9, ms, ms % 2000 ? INTER : KEY).tag(8, ms, PCM);
    return b.indexed({amf_prop("duration", amf_num(7))}).bytes();
}

TEST(Plugin, DefinesItselfAndSniffs)
{
    ASSERT_TRUE(library) << error; // as it is with an export beside the definition
    const android::ExtractorDef& def = library->definition();
    const std::tuple<const char*, uint64_t, bool> cases[] = {{"FLV", 0, true},
                                                             {"FLV\7", 0, true},
                                                             {"FLX", 0, false},
                                                             {"FL", 0, false},
                                                             {"FLV", 1, false}};
    for (const auto& [bytes, failing_read, flv] : cases) {
        MemoryDataSource source(ascii(bytes), {0, 0, failing_read});
        float confidence = -2;
        EXPECT_EQ(def.sniff(source.record(), &confidence, nullptr, nullptr) != nullptr, flv);
        EXPECT_EQ(confidence, flv ? 0.7f : -2.0f) << bytes;
    }
}

/// The answer to one of five questions.
int ask(Extractor& e, size_t question)
{
    Format format;
    return question == 0   ? static_cast<int>(e.count_tracks())
           : question == 1 ? e.track_format(0, &format)
           : question == 2 ? e.container_format(&format)
           : question == 3 ? static_cast<int>(e.flags())
                           : e.track(0) != nullptr;
}

TEST(Extractor, InitialisesOnceAndLate)
{
    const std::string aac = "4 ZoFLVExtractor(AUDIO) mimetype : audio/mp4a-latm (0x00ff)";
    const std::string avc =
        "4 ZoFLVExtractor(VIDEO) mimetype : video/avc (" + code("0x%04x", "h264") + ")";
    const std::string failed = "4 ZoFLVExtractor::init_zoflvff() zoflvd_create() failed(-6)!";
    const std::tuple<Bytes, std::array<int, 5>, std::string, Lines> cases[] = {
        {flv_of(AAC, AVC), {2, 0, 0, 15, 1}, "mime: string(video/flv)", {aac, avc}},
        {flv_of(AAC, {}), {1, 0, 0, 15, 1}, "mime: string(audio/flv)", {aac}},
        {hex("464C5601 05 00"), {0, -10000, -10000, 4, 0}, "", {failed}}};
    for (const auto& [bytes, answers, container, lines] : cases) {
        for (size_t first = 0; first < 5; ++first) {
            SCOPED_TRACE(container + ", question " + std::to_string(first));
            const Log log;
            const auto extractor = open(bytes);
            EXPECT_EQ(extractor->source().reads(), 1u) << "the sniff's";
            for (size_t i = first; i < first + 5; ++i)
                EXPECT_EQ(ask(*extractor, i % 5), answers[i % 5]) << i;
            Format format;
            extractor->container_format(&format);
            EXPECT_EQ(format.text(), container);
            EXPECT_EQ(extractor->track_format(2, &format), -10000);
            EXPECT_FALSE(extractor->track(2));
            EXPECT_EQ(log.lines, lines);
        }
    }
    // The index begins after the end of the file: no stream to probe. The audio track stays.
    const auto cut = open(flv_of(AAC, {KEY}, false, {1e6}));
    EXPECT_EQ(cut->count_tracks(), 0u);
    EXPECT_EQ(cut->count_tracks(), 1u);
    Format format;
    cut->container_format(&format);
    EXPECT_EQ(format.text(), "");
}

/// A device whose parser finds a size, and the results of its operations; `support`: of the query
/// about a codec that it does not play.
DeviceSettings device(int width, int height, ZO_SPEC_SIZE_LIMITS limits = {1920, 1088, 1088, 1920},
                      std::optional<int> support = {}, std::optional<int> limits_result = {})
{
    DeviceSettings s;
    s.video_config = {width, height, {}};
    s.limits = limits;
    s.supported.resize(support ? 0 : s.supported.size());
    s.support_result = support;
    s.limits_result = limits_result;
    return s;
}

/// The last track's error, codec not played, input size, picture size or sound; the calls of the
/// device's video parser and what its audio parser got; codec data and MIME type.
std::string facts(const Bytes& file, const DeviceSettings& settings = {})
{
    const DeviceScope scope(settings);
    Format f;
    const auto extractor = open(file);
    EXPECT_EQ(extractor->track_format(extractor->count_tracks() - 1, &f), AMEDIA_OK);
    std::ostringstream out;
    for (const char* key :
         {"error-type", "error-loggable", "track-fourcc", "max-input-size", "width", "height",
          "channel-count", "sample-rate", "bits-per-sample", "aac-profile"})
        if (const auto value = f.int32(key))
            out << *value << ' ';
    out << '(' << device_calls().video << ' ' << to_hex(device_calls().last_audio.head) << ") "
        << to_hex(f.buffer("csd-0").value_or(Bytes())) << ' ' << *f.string("mime");
    return out.str();
}

TEST(Formats, HaveTheirKeysPerCodecAndDevice)
{
    Format format;
    EXPECT_EQ(open(flv_of({}, AVC, false, {13, 14, 15}))->track(0)->format(&format), AMEDIA_OK);
    const std::string keys =
        "durationUs: int64(3000000), allow-frame-reordering: int32(1), error-type: int32(0), mime: "
        "string(video/avc), fourcc: int32(" +
        code("%d", "h264") +
        "), width: int32(64), height: int32(48), "
        "max-input-size: int32(1572864), display-width: int32(64), display-height: int32(48), "
        "frame-rate: int32(25), i-frame-avg-interval-us: int64(1000000), csd-0: "
        "buffer(000000016742001eda11e40000000168ce)";
    EXPECT_EQ(format.text(), keys);

    const ZO_SPEC_SIZE_LIMITS large{3840, 2160, 2160, 3840}, uneven{100, 100, 200, 200};
    const Bytes avc = flv_of({}, AVC), screen = hex("14 00 00 02 1E28 1E28"), huge(1572866, 0x22);
    const std::string usual = " (1 ) 000000016742001EDA11E40000000168CE video/avc";
    const std::string unasked = "-1002 1 " + code("%d", "h264") + " 1572864 64 48 (0 )  video/avc";
    EXPECT_EQ(facts(avc, device(150, 200, uneven)), "0 1572864 150 200" + usual);
    EXPECT_EQ(facts(avc, device(101, 101, uneven)), "-1004 1572864 101 101" + usual);
    EXPECT_EQ(facts(avc, device(1920, 1088)), "0 1572864 1920 1088" + usual);
    EXPECT_EQ(facts(avc, device(2088961, 1, large)), "0 6291456 2088961 1" + usual);
    EXPECT_EQ(facts(avc, device(65536, 65536)), "-1004 1572864 65536 65536" + usual);
    EXPECT_EQ(facts(avc, device(0, 99)), "0 1572864 64 48" + usual);
    EXPECT_EQ(facts(avc, device(9, 9, uneven, 5)), unasked);
    EXPECT_EQ(facts(avc, device(9, 9, uneven, -109)), unasked);
    EXPECT_EQ(facts(avc, device(9, 9, uneven, -108)), "0 1572864 9 9" + usual);
    EXPECT_EQ(facts(avc, device(9, 9, uneven, {}, -5)), "-5 1572864 9 9" + usual);
    EXPECT_EQ(facts(flv_of({}, {screen})),
              "-1002 1 " + code("%d", "vp6 ") + " 1572864 640 480 (0 )  video/unknown");
    EXPECT_EQ(facts(flv_of({mp3_tag()}, {screen}, true)), "0 1572864 2 44100 16 (0 )  audio/mpeg");
    const DeviceScope broken(device(9, 9, uneven, {}, -1001));
    EXPECT_EQ(open(avc)->count_tracks(), 0u);

    // Frames for the parser until it is content: 100 at most, failed reads included.
    const std::string h263 = " 1572864 176 144 (", sorenson = " )  video/x-sorenson-h263";
    EXPECT_EQ(facts(flv_of({}, {hex("22 00 00"), huge, KEY, KEY})), "0" + h263 + "2" + sorenson);
    DeviceSettings parser;
    parser.video_result = -1;
    EXPECT_EQ(facts(avc, parser), "-1003 1572864 64 48" + usual);
    parser.video_result = 1;
    EXPECT_EQ(facts(flv_of({}, Tags(101, KEY)), parser), "-1003" + h263 + "100" + sorenson);

    const auto aac = [](const char* config) { return flv_of({aac_config_tag(hex(config))}, {}); };
    EXPECT_EQ(facts(flv_of({aac_tag({1, 2})}, {})), "0 524288 2 44000 16 (0 )  audio/mp4a-latm");
    EXPECT_EQ(facts(aac("17805DC008")), "0 524288 1 48000 16 2 (0 11880000) 1188 audio/mp4a-latm");
    EXPECT_EQ(facts(aac("15 B0")), "0 524288 6 8000 16 2 (0 15B00000) 15B0 audio/mp4a-latm");
    parser.audio_result = -1;
    EXPECT_EQ(facts(aac("1210"), parser), "0 524288 2 44100 16 (0 12100000) 1210 audio/mp4a-latm");
}

TEST(Source, Seeks)
{
    const struct {
        uint32_t options;
        int64_t to, landing, then; // microseconds, or a status; then: of the sample after that
        const char* failed = "";   // seek time and result in the log
    } cases[] = {
        {8, 3150000, 2000000, 2100000},    {9, 3150000, 4000000, 4100000},
        {10, 3150000, 4000000, 4100000},   {11, 3150000, 2000000, 2100000},
        {12, 3150000, -10002, 100000},     {13, 7000001, -10002, 100000},
        {15, 0, -10002, 100000},           {8, 7000000, 6000000, 6100000},
        {8, 7000001, END, 100000},         {8, INT64_MAX, END, 100000},
        {8, -1, END, 0, "-10, retval=-3"}, {9, 6600000, END, 0, "66000000, retval=1"},
    };
    const char* at = "4 ZoFLVSource::read()[1, 9] zoflvds_seek() failed! zoflv_seek_time: ";
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.options) + " to " + std::to_string(c.to));
        const auto track = open(seekable())->track(1);
        track->start();
        EXPECT_EQ(next(*track), 0);
        const Log log;
        EXPECT_EQ(next(*track, c.options, c.to), c.landing);
        EXPECT_EQ(log.lines, *c.failed ? Lines{std::string(at) + c.failed} : Lines{});
        EXPECT_TRUE(*c.failed || next(*track) == c.then);
    }
}

TEST(Source, TellsReadErrorsFromTheEnd)
{
    FlvBuilder b = FlvBuilder().header(4);
    b.tag(8, 0, PCM).tag(8, 26, PCM).tag(8, 52, Bytes(524290, 0x3E)).tag(8, 78, PCM);
    const auto track = open(cut(b.bytes(), b.size() - 4))->track(0); // no last PreviousTagSize
    for (const int64_t time : {0, 26000}) {                          // a stop keeps the place
        ASSERT_EQ(track->start(), AMEDIA_OK);
        EXPECT_EQ(next(*track), time);
        EXPECT_EQ(track->stop(), AMEDIA_OK);
    }
    track->start();
    track->buffer_group()->fail_acquires(1);
    const Log log;
    EXPECT_EQ(next(*track), -10000);
    EXPECT_EQ(next(*track), IO); // larger than the buffer
    EXPECT_EQ(next(*track), IO); // the file ends
    EXPECT_EQ(next(*track), END);
    const std::string failed = "4 zoflvds_get_frm [mCurrtime = 26000] ZOFLV_OK != retval : ";
    EXPECT_EQ(log.lines, (Lines{failed + "-4", failed + "-1"}));
}

TEST(SourceDeathTest, ChecksTheCalls)
{
    const auto track = open(flv_of(AAC, {}))->track(0);
    const std::string end = "\\) failed\\.\n";
    const std::string at = "F ZoFLVExtractor: libextractor/zoflv_extractor:";
    EXPECT_DEATH(track->stop(), at + "981 CHECK\\(mStarted" + end);
    EXPECT_DEATH(track->read(), at + "997 CHECK\\(mStarted" + end);
    ASSERT_EQ(track->start(), AMEDIA_OK);
    EXPECT_DEATH(track->start(), at + "955 CHECK\\(!mStarted" + end);

    const android::sp<android::ZoFLVDSF> holder(new android::ZoFLVDSF);
    const Format without_size;
    BufferGroup group;
    android::CMediaTrack* const record =
        wrap(new android::ZoFLVSource(without_size.get(), nullptr, holder, 0));
    const std::string size =
        "AMediaFormat_getInt32\\(mFormat, AMEDIAFORMAT_KEY_MAX_INPUT_SIZE, &max_size\\)";
    EXPECT_DEATH(record->start(record->data, group.record()), at + "963 CHECK\\(" + size + end);
    record->free(record->data);
    std::free(record);
}

TEST(Source, StopsAndGoesAfterItsExtractor)
{
    auto source = std::make_unique<MemoryDataSource>(seekable());
    float confidence = 0;
    const auto create =
        library->definition().sniff(source->record(), &confidence, nullptr, nullptr);
    android::CMediaExtractor* const extractor = create(source->record(), nullptr);
    BufferGroup group;
    std::array<android::CMediaTrack*, 2> tracks = {};
    android::CMediaBuffer* sample = nullptr;
    for (android::CMediaTrack*& track : tracks) {
        track = extractor->getTrack(extractor->data, 0);
        ASSERT_EQ(track->start(track->data, group.record()), AMEDIA_OK);
    }
    ASSERT_EQ(tracks[0]->read(tracks[0]->data, &sample, 0, 0), AMEDIA_OK);
    extractor->free(extractor->data);
    std::free(extractor);
    source.reset();
    EXPECT_EQ(tracks[0]->stop(tracks[0]->data), AMEDIA_OK); // the other one is freed while started
    for (android::CMediaTrack* const track : tracks) {
        track->free(track->data);
        std::free(track);
    }
    EXPECT_GT(sample->range_length(sample->handle), 0u);
    sample->release(sample->handle);
}

/// Starts, reads, seeks half of the time, stops; says what came.
std::vector<int64_t> play(std::unique_ptr<Track> track, unsigned seed)
{
    std::vector<int64_t> out;
    std::mt19937 random(seed);
    for (uint32_t round = 0; round < 60; ++round) {
        EXPECT_EQ(track->start(), AMEDIA_OK);
        out.push_back(next(*track, round % 2 * 8 + round / 2 % 4, int64_t(random() % 4000000)));
        out.push_back(next(*track));
        EXPECT_EQ(track->stop(), AMEDIA_OK);
    }
    return out;
}

TEST(Source, TwoThreadsInTwoPlaces)
{
    const int level = log_level();
    set_log_level(99); // the lock of a sink would put the threads in order
    const auto extractor = library->open(
        FileDataSource::open(ZOFLV_SOURCE_DIR "/samples/avc_aac_index.flv", &error), &error);
    const auto want = {play(extractor->track(0), 0), play(extractor->track(1), 1)};
    for (unsigned round = 0; round < 4; ++round) {
        std::unique_ptr<Track> tracks[] = {extractor->track(0), extractor->track(1)};
        EXPECT_EQ(extractor->track(0)->start(), AMEDIA_ERROR_UNSUPPORTED) << "a third source";
        tracks[round % 2].reset();
        tracks[round % 2] = extractor->track(round % 2); // in the place that is free
        std::thread threads[2];
        for (unsigned i : {0U, 1U})
            threads[i] = std::thread([&want, i, track = std::move(tracks[i])]() mutable {
                EXPECT_EQ(play(std::move(track), i), want.begin()[i]);
            });
        for (int i = 0; i < 200; ++i)
            extractor->track(0); // refused, until a thread has freed its own
        for (std::thread& thread : threads)
            thread.join();
    }
    set_log_level(level);
}

/// Pictures a second apart, other data between them; the one at 256 s lies across the border.
TEST(Source, ReadsAndSeeksBeyond4GiB)
{
    constexpr int64_t PICTURES = 264, START = 8150, STEP = (1 << 24) - 32; // bytes
    const std::string path = ::testing::TempDir() + "zoflv_sparse.flv";
    std::ofstream out(path, std::ios::binary);
    const auto put = [&](int64_t position, const Bytes& bytes) {
        out.seekp(position);
        out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    };
    const Bytes picture = cat({KEY, fill(60)});
    std::vector<double> times, positions;
    for (int64_t i = 0; i < PICTURES; ++i) {
        const int64_t position = START + i * STEP;
        const Bytes tag = FlvBuilder().tag(9, static_cast<uint32_t>(i * 1000), picture).bytes();
        const uint64_t size = STEP - tag.size() - 15;
        put(position, cat({tag, {18}, be(size, 3), Bytes(7)}));
        put(position + STEP - 4, be(size + 11, 4));
        times.push_back(static_cast<double>(i));
        positions.push_back(static_cast<double>(position));
    }
    FlvBuilder head = FlvBuilder().header(1);
    const Bytes index = amf_keyframes(times, positions);
    head.tag(18, 0, on_meta_data({amf_prop("duration", amf_num(PICTURES)), index}));
    put(0, head.tag(18, 0, Bytes(START - 15 - head.size())).bytes());
    out.close();
    const auto track = library->open(FileDataSource::open(path, &error), &error)->track(0);
    ASSERT_EQ(track->start(), AMEDIA_OK);
    for (int64_t i = 0; i < PICTURES; ++i)
        EXPECT_EQ(next(*track), i * 1000000);
    for (const int64_t i : {252, 256, 260}) { // below, across, above
        const Sample sample = track->seek_read(i * 1000000 + 950000, 0).sample;
        ASSERT_TRUE(sample && sample.time_us() == i * 1000000) << i;
        EXPECT_TRUE(std::equal(picture.begin() + 1, picture.end(), sample.data()));
    }
    std::filesystem::remove(path);
}

} // namespace
