// SPDX-License-Identifier: Apache-2.0
// The verdict on a whole file: what the plugin does with it, and the findings that explain it. The
// plugin is linked in, not loaded, so that its coverage guides the fuzzer.
#include "fuzz/fuzz.h"
#include "fuzz/walk.h"
#include "inspect/verdict.h"

#include <zoflv_host/log.h>

extern "C" android::ExtractorDef GETEXTRACTORDEF();

namespace {

using namespace zoflv_inspect;

void check_track(const TrackReport& track)
{
    const FrameCount& frames = track.frames;
    WALK_CHECK(frames.delivered + frames.missing + frames.unread == frames.expected);
    WALK_CHECK(track.lost_us() >= 0 && track.lost_us() <= track.extent_us);
    WALK_CHECK(!track.usable() || (track.index >= 0 && track.error_type == 0));
    for (const SeekTest& test : track.seeks)
        WALK_CHECK(test.hits() <= test.landings.size());
}

void check_verdict(const Verdict& verdict)
{
    bool error = false;
    for (const Finding& finding : verdict.findings) {
        error = error || finding.level == Level::ERROR;
        WALK_CHECK(finding.rule != Rule::UNEXPLAINED);
    }
    const bool sound = verdict.status == Status::SOUND;
    WALK_CHECK(error == !sound && verdict.cause.has_value() == !sound);
    WALK_CHECK(verdict.curable().has_value() == !sound);
    WALK_CHECK(sound || verdict.findings.at(*verdict.cause).level == Level::ERROR);
    const std::string sentence = verdict.sentence();
    WALK_CHECK(sentence.size() < 1000);
    for (const char c : sentence) // names come from the file
        WALK_CHECK(c >= ' ' && c <= '~');
    check_track(verdict.device.audio);
    check_track(verdict.device.video);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const auto plugin = zoflv_host::ExtractorLibrary::of(GETEXTRACTORDEF());
    const zoflv_host::ScopedLogSink silent([](int, const std::string&, const std::string&) {});
    DeviceOptions options;
    options.seed = walk_seed(data, size);
    options.seeks = 3;
    const auto source =
        std::make_shared<zoflv_host::MemoryDataSource>(std::vector<uint8_t>(data, data + size));
    const Verdict verdict = check(*plugin, source, options);
    WALK_CHECK(!verdict.read_failed && verdict.size == static_cast<int64_t>(size));
    check_verdict(verdict);
    return 0;
}
