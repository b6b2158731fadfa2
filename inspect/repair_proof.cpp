// SPDX-License-Identifier: Apache-2.0
#include "inspect/repair_proof.h"

#include <algorithm>
#include <cinttypes>

namespace zoflv_inspect {

namespace {

bool is_curable_trouble(const Finding& finding)
{
    return finding.curable && finding.level != Level::NOTICE;
}

/// Whether a track gives a frame of the file; false ones are no gain, nor a loss.
bool gives_frames(const TrackReport& track)
{
    return track.usable() && track.frames.delivered > 0;
}

/// How far a track comes: 0 no track, 1 published, 2 without error, 3 started, 4 gives a frame.
int published(const TrackReport& track)
{
    if (track.index < 0)
        return 0;
    return 1 + track.device_plays + (track.device_plays && track.started()) + gives_frames(track);
}

size_t hits(const TrackReport& track)
{
    const SeekTest* const test = track.seeks_in(SeekMode::PREVIOUS);
    return test && gives_frames(track) ? test->hits() : 0;
}

/// Adds what of one kind of stream is worse or better.
template <typename Number>
void compare(RepairProof* proof, const char* kind, const char* what, Number before, Number after)
{
    if (after < before && !proof->worse) {
        proof->worse = true;
        proof->text = std::string("the new file would be worse: ") + kind + ", " +
                      std::to_string(after) + " in place of " + std::to_string(before) + ' ' + what;
    }
    proof->better = proof->better || after > before;
}

void compare_tracks(RepairProof* proof, const TrackReport& before, const TrackReport& after)
{
    const char* const kind = before.kind == Kind::AUDIO ? "audio" : "video";
    compare(proof, kind, "steps to a playable track", published(before), published(after));
    compare(proof, kind, "frames delivered", before.frames.delivered, after.frames.delivered);
    compare(proof, kind, "seeks that hit", hits(before), hits(after));
}

bool has(const Verdict& verdict, const Finding& wanted)
{
    return std::any_of(verdict.findings.begin(), verdict.findings.end(), [&](const Finding& found) {
        return found.rule == wanted.rule && found.level != Level::NOTICE;
    });
}

} // namespace

bool wants_repair(const Verdict& verdict)
{
    return verdict.status != Status::SOUND ||
           std::any_of(verdict.findings.begin(), verdict.findings.end(), is_curable_trouble);
}

RepairProof prove_repair(const Verdict& before, const Verdict& after)
{
    RepairProof proof;
    compare_tracks(&proof, before.device.video, after.device.video);
    compare_tracks(&proof, before.device.audio, after.device.audio);
    if (!proof.worse && after.status > before.status) {
        proof.worse = true;
        proof.text = std::string("the new file would be ") + name_of(after.status) +
                     ", the old one is " + name_of(before.status);
    }
    if (after.status != Status::REFUSED) { // else it plays no better for that
        for (const Finding& finding : before.findings)
            proof.better = proof.better || (is_curable_trouble(finding) && !has(after, finding));
    }
    if (proof.accepted())
        return proof;
    if (after.cause)
        proof.code = after.findings[*after.cause].code();
    if (proof.worse)
        return proof;
    proof.text = after.cause ? after.findings[*after.cause].text()
                             : "what is wrong with it would stay as it is";
    return proof;
}

} // namespace zoflv_inspect
