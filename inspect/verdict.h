// SPDX-License-Identifier: Apache-2.0
/// @file
/// The verdict on a file: what a device does with it, and which findings explain it.
#pragma once

#include "inspect/device_run.h"
#include "inspect/findings.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zoflv_inspect {

enum class Status : uint8_t {
    SOUND,   ///< every kind of stream has a track that plays whole, and seeks hit
    PARTIAL, ///< a kind has no such track, or frames differ from the expected, or a seek misses
    REFUSED, ///< not opened, or no track is published without error, starts and gives a frame
};
/// "sound", "partial" or "refused".
const char* name_of(Status status);

/// Something that the plugin showed and should not have.
struct Symptom {
    Shown shown = SHOWN_NOTHING;
    StreamKind kind = StreamKind::FILE;
    int64_t from = 0;           ///< the part of the file where the reason is likely
    int64_t to = INT64_MAX;     ///< and after which it cannot be
    bool past_duration = false; ///< seeks that failed since their targets are after the duration
    std::string text;           ///< what was shown, as a clause
};

struct Verdict {
    Status status = Status::SOUND;
    std::optional<size_t> cause; ///< in `findings`; of every status but SOUND
    DeviceReport device;
    /// By level, errors first, then by rule. An error explains a symptom, and every symptom has one.
    std::vector<Finding> findings;
    std::vector<Symptom> symptoms; ///< the most serious one first; none of a sound file
    int64_t size = 0;              ///< of the file, bytes
    /// A read failed, of the walk or of the plugin, or the file has become shorter: what was seen says
    /// nothing of the file.
    bool read_failed = false;

    /// Whether `zoflv repair` can cure every error; nothing of a sound file.
    std::optional<bool> curable() const;
    /// "partial: ", what is lost, and the cause with its code; or what is sound.
    std::string sentence() const;
};

/// What was shown of a file, the most serious first.
std::vector<Symptom> symptoms_of(const DeviceReport& report);
/// Makes errors of the findings that explain a symptom, one for each; adds `unexplained` for those
/// that none explains.
Verdict judge(DeviceReport report, std::vector<Finding> findings);

/// Called now and then with the bytes walked so far.
using Progress = std::function<void(int64_t done, int64_t size)>;

/// Called with each item of the walk; the walker is the one that gave it.
using Watch = std::function<void(const Item& item, TagWalker& walker)>;

/// Walks a file, lets the plugin play it, and judges. A file that grows is judged by the length that it
/// has when this begins. The device library has to be set to the
/// profile before; the log is taken over, as in DeviceRun.
Verdict check(zoflv_host::ExtractorLibrary& plugin, std::shared_ptr<zoflv_host::DataSource> source,
              const DeviceOptions& options = {}, const Progress& progress = {},
              const Watch& watch = {});

} // namespace zoflv_inspect
