// SPDX-License-Identifier: Apache-2.0
#include "inspect/verdict.h"

#include "inspect/first_bytes.h"
#include "inspect/words.h"

#include <algorithm>
#include <utility>

namespace zoflv_inspect {

namespace {

StreamKind stream_of(Kind kind)
{
    return kind == Kind::AUDIO ? StreamKind::AUDIO : StreamKind::VIDEO;
}

const char* name_of(Kind kind)
{
    return kind == Kind::AUDIO ? "audio" : "video";
}

std::string with_reason(std::string text, const std::string& reason)
{
    return reason.empty() ? text : text + ": " + reason;
}

Symptom no_track(const TrackReport& track)
{
    std::string text = std::string("no ") + name_of(track.kind) + " is played";
    if (track.index < 0)
        text += ": there is no track";
    else if (!track.started())
        text = with_reason(text + ": the track does not start", track.start.text);
    else if (!track.device_plays)
        text += ": the device does not play " + track.mime + " (error type " +
                std::to_string(track.error_type) + ")";
    else
        text = with_reason(text + ": the track gives no frame", track.end.text);
    return {SHOWN_NO_TRACK, stream_of(track.kind), 0, INT64_MAX, false, text};
}

void add_frames(const TrackReport& track, std::vector<Symptom>* symptoms)
{
    const FrameCount& frames = track.frames;
    for (const auto& gap : {frames.first_gap, frames.end_gap}) {
        if (!gap)
            continue;
        const std::string text = std::string(name_of(track.kind)) + ": " +
                                 std::to_string(frames.delivered) + " of " +
                                 std::to_string(frames.expected) + " frames";
        symptoms->push_back({SHOWN_FRAMES, stream_of(track.kind), gap->from, gap->to, false,
                             with_reason(text, track.end.text)});
    }
}

void add_seeks(const TrackReport& track, std::vector<Symptom>* symptoms)
{
    const SeekTest* const test = track.seeks_in(SeekMode::PREVIOUS);
    if (!test)
        return;
    size_t misses[2] = {}; // within the duration, past it
    for (const SeekLanding& landing : test->landings)
        misses[landing.target_us > track.duration_us] += !landing.hit;
    for (const bool past : {true, false}) {
        if (misses[past] == 0)
            continue;
        const std::string text = std::to_string(misses[past]) + " of " +
                                 std::to_string(test->landings.size()) + " seeks miss" +
                                 (past ? ", to times after the duration" : "");
        symptoms->push_back({SHOWN_SEEK, stream_of(track.kind), 0, INT64_MAX, past, text});
    }
}

/// Whether a rule can be the reason that a target is after the published duration.
bool concerns_duration(Rule rule)
{
    return rule >= Rule::META_NOT_FIRST && rule <= Rule::TIME_JUMP && rule != Rule::DURATION_LONG;
}

bool lies_in(const Finding& finding, const Symptom& symptom)
{
    return finding.offset >= symptom.from && finding.offset <= symptom.to;
}

/// How well a finding explains a symptom; 0: not at all.
int fitness(const Finding& finding, const Symptom& symptom)
{
    if (!finding.can_explain(symptom.shown, symptom.kind, symptom.to))
        return 0;
    int fit = 1;
    if (symptom.past_duration && concerns_duration(finding.rule))
        fit += 4;
    if (symptom.shown == SHOWN_FRAMES && lies_in(finding, symptom))
        fit += 4;
    if (finding.level == Level::ERROR) // what explains one symptom often explains the next
        fit += 2;
    return fit;
}

/// The best of the findings, by rule; null when none explains the symptom.
Finding* explanation(const Symptom& symptom, std::vector<Finding>* findings)
{
    Finding* best = nullptr;
    int best_fit = 0;
    for (Finding& finding : *findings) {
        const int fit = fitness(finding, symptom);
        if (fit > best_fit) {
            best = &finding;
            best_fit = fit;
        }
    }
    return best;
}

/// "next: 3 of 32", of the tests that missed; empty: none did.
std::string missed_modes(const TrackReport& track)
{
    std::string text;
    for (const SeekTest& test : track.seeks) {
        const size_t misses = test.landings.size() - test.hits();
        if (test.mode != SeekMode::PREVIOUS && misses > 0)
            text += (text.empty() ? "" : ", ") + std::string(name_of(test.mode)) + ' ' +
                    std::to_string(misses) + " of " + std::to_string(test.landings.size());
    }
    return text;
}

Finding finding_of(Rule rule, StreamKind kind, const std::string& detail)
{
    Finding finding;
    finding.rule = rule;
    finding.level = rule_of(rule).level;
    finding.kind = kind;
    finding.explains = rule_of(rule).explains;
    finding.curable = rule_of(rule).curable;
    finding.count = 1;
    finding.detail = detail;
    return finding;
}

/// What only the device's side knows and the findings do not have.
void add_own_findings(const DeviceReport& report, std::vector<Finding>* findings)
{
    if (report.audio.frames.expected == 0 && report.video.frames.expected == 0 &&
        report.audio.tags + report.video.tags > 0)
        findings->push_back(finding_of(Rule::FILE_NO_FRAMES, StreamKind::FILE, {}));
    const TrackReport* const judged = report.seek_track();
    if (!judged)
        return;
    const std::string modes = missed_modes(*judged);
    if (!modes.empty())
        findings->push_back(finding_of(Rule::SEEK_MODES, stream_of(judged->kind), modes));
    const SeekTest* const audio = report.audio.seeks_in(SeekMode::PREVIOUS);
    if (judged != &report.audio && audio && audio->hits() < audio->landings.size())
        findings->push_back(finding_of(Rule::SEEK_AUDIO, StreamKind::AUDIO,
                                       std::to_string(audio->landings.size() - audio->hits()) +
                                           " of " + std::to_string(audio->landings.size())));
}

/// "half of it", of a share that is not 0.
std::string share_text(size_t part, size_t whole)
{
    const size_t percent = (part * 100 + whole / 2) / whole;
    if (percent >= 45 && percent <= 55)
        return "half of it";
    if (percent == 0)
        return "a little of it";
    return percent >= 95 ? "nearly all of it" : "about " + std::to_string(percent) + " % of it";
}

/// "3 of 40 video frames are lost", with those of the audio; empty when none is.
std::string lost_frames(const DeviceReport& report)
{
    std::string text;
    uint64_t all = 0;
    for (const TrackReport* track : {&report.video, &report.audio}) {
        const uint64_t lost = track->frames.expected - track->frames.delivered;
        if (lost == 0 || !track->usable())
            continue;
        text += (all > 0 ? " and " : "") + grouped(static_cast<int64_t>(lost)) + " of " +
                grouped(static_cast<int64_t>(track->frames.expected)) + ' ' + name_of(track->kind) +
                " frames";
        all += lost;
    }
    return all == 0 ? text : text + (all == 1 ? " is lost" : " are lost");
}

/// What is lost for who plays the file, as a clause; empty when there is no measure of it.
std::string loss_of(const DeviceReport& report, const Symptom& symptom)
{
    if (symptom.kind == StreamKind::FILE)
        return {};
    const TrackReport& track =
        report.of(symptom.kind == StreamKind::AUDIO ? Kind::AUDIO : Kind::VIDEO);
    if (symptom.shown == SHOWN_NO_TRACK)
        return std::string("no ") + name_of(track.kind) + " is played";
    if (symptom.shown == SHOWN_FRAMES)
        return lost_frames(report);
    const SeekTest* const test = track.seeks_in(SeekMode::PREVIOUS);
    if (!test)
        return {};
    const size_t misses = test->landings.size() - test->hits();
    if (symptom.past_duration)
        return share_text(misses, test->landings.size()) + " cannot be reached";
    return grouped(static_cast<int64_t>(misses)) + " of " + counted(test->landings.size(), "seek") +
           (misses == 1 ? " misses" : " miss");
}

/// Whether a finding says that the file ends too early.
bool says_cut(Rule rule)
{
    return rule == Rule::TAG_CUT || rule == Rule::PREV_LAST || rule == Rule::TAIL_GARBAGE ||
           rule == Rule::TAIL_ZEROS;
}

/// What is not in the file at all, and so in no count of frames: the figures, when the metadata claim
/// more than there is and that is not the cause; else null.
const std::string* claimed_more(const std::vector<Finding>& findings, std::optional<size_t> cause)
{
    for (size_t i = 0; i < findings.size(); ++i) {
        if (findings[i].rule == Rule::DURATION_LONG)
            return cause == i ? nullptr : &findings[i].detail;
    }
    return nullptr;
}

Status status_of(const DeviceReport& report, const std::vector<Symptom>& symptoms)
{
    if (!report.opened || (!report.audio.usable() && !report.video.usable()))
        return Status::REFUSED;
    return symptoms.empty() ? Status::SOUND : Status::PARTIAL;
}

TrackFacts facts_of(const TrackReport& track, const DeviceProfile& profile)
{
    constexpr int32_t not_supported = -1002;
    const bool refused = track.error_type == 0 && !track.device_plays;
    return {track.index >= 0,
            refused ? not_supported : track.error_type,
            track.max_input_size,
            {track.width, track.height},
            track.width >= track.height ? profile.largest_landscape : profile.largest_portrait};
}

} // namespace

const char* name_of(Status status)
{
    constexpr const char* names[] = {"sound", "partial", "refused"};
    return names[static_cast<size_t>(status)];
}

std::vector<Symptom> symptoms_of(const DeviceReport& report)
{
    if (!report.opened)
        return {{SHOWN_REFUSED, StreamKind::FILE, 0, INT64_MAX, false,
                 with_reason("the file is not opened", report.open.text)}};
    std::vector<Symptom> symptoms;
    for (const TrackReport* track : {&report.video, &report.audio}) {
        if (track->frames.expected > 0 && !track->usable())
            symptoms.push_back(no_track(*track));
    }
    if (report.audio.frames.expected == 0 && report.video.frames.expected == 0)
        symptoms.push_back(
            {SHOWN_NO_TRACK, StreamKind::FILE, 0, INT64_MAX, false, "no track gives a frame"});
    for (const TrackReport* track : {&report.video, &report.audio}) {
        if (track->usable())
            add_frames(*track, &symptoms);
    }
    if (const TrackReport* track = report.seek_track())
        add_seeks(*track, &symptoms);
    return symptoms;
}

Verdict judge(DeviceReport report, std::vector<Finding> findings)
{
    Verdict verdict;
    verdict.symptoms = symptoms_of(report);
    verdict.status = status_of(report, verdict.symptoms);
    verdict.device = std::move(report);
    add_own_findings(verdict.device, &findings);
    std::optional<std::pair<Rule, StreamKind>> cause;
    std::vector<Finding> strange;
    for (const Symptom& symptom : verdict.symptoms) {
        Finding* found = explanation(symptom, &findings);
        if (!found)
            found =
                &strange.emplace_back(finding_of(Rule::UNEXPLAINED, symptom.kind, symptom.text));
        found->level = Level::ERROR;
        if (!cause)
            cause.emplace(found->rule, found->kind);
    }
    findings.insert(findings.end(), strange.begin(), strange.end());
    std::stable_sort(findings.begin(), findings.end(), [](const Finding& a, const Finding& b) {
        return a.level != b.level ? a.level > b.level : a.rule < b.rule;
    });
    for (size_t i = 0; cause && i < findings.size() && !verdict.cause; ++i) {
        if (findings[i].rule == cause->first && findings[i].kind == cause->second)
            verdict.cause = i;
    }
    verdict.findings = std::move(findings);
    return verdict;
}

std::optional<bool> Verdict::curable() const
{
    if (status == Status::SOUND)
        return std::nullopt;
    return std::all_of(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.level != Level::ERROR || finding.curable;
    });
}

std::string Verdict::sentence() const
{
    std::string text = std::string(name_of(status)) + ": ";
    const std::string* const claim = claimed_more(findings, cause);
    if (!cause) {
        const bool sought = device.seek_track() && !device.seek_track()->seeks.empty();
        return text + "every frame is delivered" +
               (sought ? ", and seeks land where they should" : "") +
               (claim ? "; but an end may be missing: " + *claim : "");
    }
    const Finding& finding = findings[*cause];
    const std::string loss = status == Status::PARTIAL ? loss_of(device, symptoms.front()) : "";
    if (claim && says_cut(finding.rule))
        text += "the end is missing: " + *claim + "; ";
    if (!loss.empty())
        text += loss + ": ";
    const bool told =
        finding.rule == Rule::DURATION_SHORT && !loss.empty(); // that was its first half
    text += told ? finding.detail : finding.first();
    return text + " (" + finding.code() + ")";
}

Verdict check(zoflv_host::ExtractorLibrary& plugin, std::shared_ptr<zoflv_host::DataSource> source,
              const DeviceOptions& options, const Progress& progress, const Watch& watch)
{
    source->hold_size(); // or the walk would see more of a file that grows than the plugin has read
    HostSource bytes(*source);
    TagWalker walker(bytes);
    DeviceRun run(plugin, source, options);
    Findings findings;
    int64_t done = 0;
    while (const Item* item = walker.next()) {
        run.see(*item, walker);
        findings.see(*item, walker);
        if (watch)
            watch(*item, walker);
        if (item->kind == ItemKind::END)
            done = item->end.offset;
        else if (progress && item->kind == ItemKind::TAG)
            progress(item->tag.offset, walker.file_size());
    }
    const DeviceReport& report = run.finish();
    std::vector<Finding> found = findings.finish(
        {facts_of(report.audio, options.profile), facts_of(report.video, options.profile)});
    for (Finding& finding : found) {
        if (finding.rule == Rule::FILE_NO_HEADER)
            finding.detail = read_first_bytes(bytes).text;
    }
    Verdict verdict = judge(report, std::move(found));
    verdict.size = done;
    verdict.read_failed = source->failed_reads() > 0 || source->has_shrunk();
    return verdict;
}

} // namespace zoflv_inspect
