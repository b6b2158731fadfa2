// SPDX-License-Identifier: Apache-2.0
/// @file
/// What a second repair would do to a repaired file: as a rule nothing. Once joined recordings are one,
/// steps in the times that were apart may come to be together.
#pragma once

#include "inspect/repair_merge.h"
#include "inspect/repair_times.h"

#include <cstdint>

namespace zoflv_inspect {

class RepairAgain {
public:
    explicit RepairAgain(const TimeRules& rules);

    void see(const OutTag& tag); ///< the new file's, in its order
    void finish();

    /// Whether all times and the order would stay.
    bool settled() const;
    /// After all frames, with the last one's own duration: the file's duration.
    int64_t end_ms() const { return m_times.end_ms(); }

private:
    const TimeRules m_rules;
    RepairTimes m_times;
    OrderKeys m_keys;
    RepairMerge m_merge;
    uint8_t m_queue = 1;
    uint64_t m_count = 0;
};

} // namespace zoflv_inspect
