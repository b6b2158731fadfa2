// SPDX-License-Identifier: Apache-2.0
// Verdicts: their status, and that errors explain them.
#include "inspect/verdict.h"
#include "tests/support/flv_builder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <zoflv_host/device_control.h>
#include <zoflv_host/log.h>

using namespace zoflv_inspect;

namespace {

std::string error; // of the loader
const auto plugin = zoflv_host::ExtractorLibrary::load(ZOFLV_PLUGIN, &error);

Verdict verdict_of(const Bytes& file, const DeviceOptions& options = {})
{
    const zoflv_host::ScopedLogSink silent([](int, const std::string&, const std::string&) {});
    return check(*plugin, std::make_shared<zoflv_host::MemoryDataSource>(file), options);
}

/// The status, and the codes of the errors.
std::string text_of(const Verdict& verdict)
{
    std::string text = name_of(verdict.status);
    for (const Finding& finding : verdict.findings)
        text += finding.level == Level::ERROR ? std::string(" ") + finding.code() : "";
    return text;
}

// What holds for every file.
void expect_consistent(const Verdict& verdict, const std::string& name)
{
    const std::string text = text_of(verdict);
    EXPECT_EQ(text.find("unexplained"), std::string::npos) << name << ": " << text;
    EXPECT_EQ(verdict.status == Status::SOUND, text == "sound") << name << ": " << text;
    EXPECT_EQ(verdict.cause.has_value(), verdict.status != Status::SOUND) << name;
    if (verdict.cause) {
        EXPECT_EQ(verdict.findings[*verdict.cause].level, Level::ERROR) << name;
    }
}

/// Changes its length with each read.
class ChangingSource : public zoflv_host::MemoryDataSource {
public:
    ChangingSource(const Bytes& bytes, int64_t length, int64_t step)
        : MemoryDataSource(bytes), m_length(length), m_step(step)
    {}

protected:
    ssize_t read_at(int64_t offset, void* data, size_t size) override
    {
        m_length += m_step;
        const int64_t left = std::max<int64_t>(m_length - offset, 0);
        return MemoryDataSource::read_at(offset, data, std::min(size, static_cast<size_t>(left)));
    }
    android::status_t get_size(int64_t* size) override
    {
        *size = m_length;
        return AMEDIA_OK;
    }

private:
    int64_t m_length;
    const int64_t m_step;
};

Bytes sample(const std::string& name)
{
    std::ifstream in(ZOFLV_SOURCE_DIR "/samples/" + name + ".flv", std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

} // namespace

TEST(InspectVerdict, OfSamples)
{
    DeviceProfile silent_device = default_device_profile();
    silent_device.mime_types.pop_back(); // MPEG audio
    DeviceProfile small_device = default_device_profile();
    small_device.largest_landscape = {16, 16};
    const struct {
        const char* name;
        DeviceProfile device;
        std::string text;
    } cases[] = {
        {"audio_aac", default_device_profile(), "sound"},
        {"audio_speex", default_device_profile(), "refused codec.unplayable"},
        {"avc_aac_index", default_device_profile(), "sound"},
        {"h263_mp3", default_device_profile(), "sound"},
        {"screen_pcm", default_device_profile(), "refused codec.unplayable codec.unplayable"},
        {"h263_mp3", silent_device, "partial codec.unplayable"},
        {"audio_mp3", silent_device, "refused codec.unplayable"},
        {"avc_bframes_mp3", small_device, "partial video.too_large"},
        {"video_only", small_device, "refused video.too_large"},
    };
    for (const auto& c : cases) {
        const zoflv_host::DeviceScope device(device_settings(c.device));
        DeviceOptions options;
        options.profile = c.device;
        const Verdict verdict = verdict_of(sample(c.name), options);
        EXPECT_EQ(text_of(verdict), c.text) << c.name;
        expect_consistent(verdict, c.name);
    }
}

TEST(InspectVerdict, SaysWhatIsLostAndWhy)
{
    const Bytes whole = sample("avc_aac_index");
    Bytes hidden = whole;
    hidden[4] = 4; // flags: audio alone
    Bytes shortened = whole;
    const Bytes duration = amf_prop("duration", amf_num(8.023));
    const Bytes half = amf_prop("duration", amf_num(4.0115));
    const auto at =
        std::search(shortened.begin(), shortened.end(), duration.begin(), duration.end());
    ASSERT_NE(at, shortened.end());
    std::copy(half.begin(), half.end(), at);
    const struct {
        Bytes file;
        const char* text;
    } cases[] = {
        {whole, "sound: every frame is delivered, and seeks land where they should"},
        {hidden, "partial: no video is played: the header does not announce a stream that the file "
                 "has, and it is not played (header.hides)"},
        {shortened, "partial: half of it cannot be reached: the file says 4.011 s and has 8.011 s "
                    "(duration.short)"},
        {cut(whole, whole.size() * 6 / 10),
         "partial: the end is missing: the file says 8.023 s and has 4.800 s; 1 of 121 video "
         "frames "
         "is lost: the file ends inside its last tag, which is lost: 125 of 292 bytes (tag.cut)"},
        {cut(whole, whole.size() * 6 / 10 - 11 - 125),
         "sound: every frame is delivered, and seeks land where they should; but an end may be "
         "missing: the file says 8.023 s and has 4.783 s"},
        {{}, "refused: the file has no bytes (file.empty)"},
        {cat({{'R', 'I', 'F', 'F'}, fill(99)}),
         "refused: the file does not begin with an FLV header, and is not taken for FLV: it begins "
         "as an AVI or WAV file does (file.no_header)"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(verdict_of(c.file).sentence(), c.text);
}

// A read that fails, of the walk or of the plugin: nothing is the file's fault then.
TEST(InspectVerdict, SaysThatReadsFailed)
{
    const zoflv_host::ScopedLogSink silent([](int, const std::string&, const std::string&) {});
    const Bytes file = sample("audio_aac");
    for (const uint64_t fail_at : {0U, 1U, 2U, 20U, 500U, 100000U}) {
        for (const bool sticky : {false, true}) {
            zoflv_host::MemoryFaults faults;
            faults.fail_at = fail_at;
            faults.sticky = sticky;
            const auto source = std::make_shared<zoflv_host::MemoryDataSource>(file, faults);
            const Verdict verdict = check(*plugin, source);
            EXPECT_EQ(verdict.read_failed, fail_at > 0 && source->reads() >= fail_at) << fail_at;
        }
    }
}

TEST(InspectVerdict, OfFilesThatGrowOrShrink)
{
    const zoflv_host::ScopedLogSink silent([](int, const std::string&, const std::string&) {});
    const Bytes file = sample("avc_aac_index");
    const auto length = static_cast<int64_t>(file.size()) / 2;
    const auto growing = std::make_shared<ChangingSource>(file, length, 16);
    const Verdict verdict = check(*plugin, growing);
    expect_consistent(verdict, "growing");
    EXPECT_EQ(verdict.size, length);
    EXPECT_FALSE(verdict.read_failed);
    EXPECT_TRUE(check(*plugin, std::make_shared<ChangingSource>(file, length, -1)).read_failed);
}

TEST(InspectVerdict, OfCutFiles)
{
    FlvBuilder builder = FlvBuilder().header(5);
    builder.tag(9, 0, avc_config_tag(avc_record({avc_sps(20, 15)}, {hex("68 CE 3C 80")})));
    builder.tag(8, 0, aac_config_tag());
    for (uint32_t i = 0; i < 12; ++i) {
        builder.tag(9, 40 * i, avc_tag({hex(i % 4 ? "41 33" : "65 11 22")}, i % 4 == 0));
        builder.tag(8, 40 * i, aac_tag(fill(8)));
    }
    const Bytes whole = builder.indexed({amf_prop("duration", amf_num(0.48))}).bytes();
    DeviceOptions options;
    options.seeks = 4;
    for (size_t length = 0; length <= whole.size(); ++length)
        expect_consistent(verdict_of(cut(whole, length), options), std::to_string(length));
}

class InspectVerdictOf : public testing::TestWithParam<const char*> {};

// Each sample cut after every byte with ZOFLV_EXHAUSTIVE, which takes long; else after some.
TEST_P(InspectVerdictOf, CutSample)
{
    const Bytes whole = sample(GetParam());
    ASSERT_GT(whole.size(), 4000U);
    const size_t step = std::getenv("ZOFLV_EXHAUSTIVE") ? 1 : whole.size() / 7;
    DeviceOptions options;
    options.seeks = 4;
    for (size_t length = 0; length < whole.size(); length += step)
        expect_consistent(verdict_of(cut(whole, length), options), std::to_string(length));
}

INSTANTIATE_TEST_SUITE_P(Samples, InspectVerdictOf,
                         testing::Values("audio_aac", "audio_alaw", "audio_mp3", "audio_speex",
                                         "avc_aac_index", "avc_bframes_mp3", "avc_slices",
                                         "h263_mp3", "screen2_nellymoser", "screen_pcm",
                                         "video_only"),
                         [](const auto& one) { return std::string(one.param); });
