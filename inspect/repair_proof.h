// SPDX-License-Identifier: Apache-2.0
/// @file
/// Whether a repaired file is better than the damaged one, by what a device does with both.
#pragma once

#include "inspect/verdict.h"

#include <string>

namespace zoflv_inspect {

/// Whether there is something to mend: the file is not sound, or has a curable warning.
bool wants_repair(const Verdict& verdict);

struct RepairProof {
    bool worse = false;  ///< in its status, what a track publishes, its frames or seeks that hit
    bool better = false; ///< in one of these, or it is not refused and a curable warning is gone
    std::string text;    ///< what is worse, or what stays wrong, as a sentence without full stop
    std::string code;    ///< of the finding that is the reason; empty: none

    bool accepted() const { return better && !worse; }
};

RepairProof prove_repair(const Verdict& before, const Verdict& after);

} // namespace zoflv_inspect
