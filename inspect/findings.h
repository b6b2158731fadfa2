// SPDX-License-Identifier: Apache-2.0
/// @file
/// Findings: what is wrong or odd in a file, told from its tags, with what it means.
///
///     Findings findings;
///     while (const Item* item = walker.next())
///         findings.see(*item, walker);
///     for (const Finding& finding : findings.finish(facts)) ...
#pragma once

#include "inspect/device_profile.h"
#include "inspect/finding_rules.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace zoflv_inspect {

class ByteSource;
class TagWalker;
struct Item;

/// Which stream a finding is about.
enum class StreamKind : uint8_t { FILE, AUDIO, VIDEO }; ///< FILE: the file, and so both streams

constexpr int64_t NO_OFFSET = -1;
constexpr int64_t NO_TIME = std::numeric_limits<int64_t>::min();

/// One finding. What occurs again in the same kind of stream is counted, not listed.
struct Finding {
    Rule rule = Rule::UNEXPLAINED;
    Level level = Level::NOTICE;
    StreamKind kind = StreamKind::FILE;
    uint8_t explains = SHOWN_NOTHING; ///< the rule's, less what cannot be so in this file
    bool curable = false;             ///< the rule's, or by what is in this file
    int64_t offset = NO_OFFSET;       ///< of the first occurrence, bytes
    int64_t time_us = NO_TIME;        ///< decoding time there
    uint64_t count = 0;               ///< occurrences
    std::string detail;               ///< figures of the first occurrence; may be empty

    const FindingRule& info() const { return rule_of(rule); }
    const char* code() const { return info().code; }
    /// Whether it can be the reason of something that was shown.
    /// @param shown    one bit
    /// @param of_kind  the stream that showed it; FILE: the whole file did, for a reason of either
    /// @param before   offset at which it was shown; a finding after it is not the reason
    bool can_explain(Shown shown, StreamKind of_kind,
                     int64_t before = std::numeric_limits<int64_t>::max()) const;
    /// The consequence with the figures. A sentence without its full stop.
    std::string first() const;
    /// The same, of which stream and how often.
    std::string text() const;
};

/// What was seen of a track when the plugin was asked.
struct TrackFacts {
    bool published = false;
    /// As published: 0 playable, -1002 codec, -1003 configuration, -1004 picture size. Also -1002 when
    /// the device's profile does not have the track's MIME type.
    int32_t error_type = 0;
    int32_t max_input_size = 0; ///< bytes; 0: not known
    PictureSize picture{};      ///< as published
    PictureSize largest{};      ///< that the device plays, of such a shape
};

/// What a device says of the file, as far as findings need it; with nothing set they go without.
struct DeviceFacts {
    TrackFacts audio{};
    TrackFacts video{};
};

/// Collects findings from a walk. Memory: the largest tag, and per entry of the keyframe index.
class Findings {
public:
    Findings();
    ~Findings();
    Findings(const Findings&) = delete;
    Findings& operator=(const Findings&) = delete;

    /// Takes the walk's next item, the END item too; `walker` is the one that gave it.
    void see(const Item& item, TagWalker& walker);
    /// All findings, by rule. Called once, after the END item.
    std::vector<Finding> finish(const DeviceFacts& facts = {});

private:
    struct Detectors;
    std::unique_ptr<Detectors> m;
};

/// The findings of a whole file.
std::vector<Finding> find_all(ByteSource& source, const DeviceFacts& facts = {});

} // namespace zoflv_inspect
