// SPDX-License-Identifier: Apache-2.0
// Repairs a file: the new one is whole by the walker, as large as planned, and stays as it is when it is
// repaired again. The plugin plays both.
#include "fuzz/fuzz.h"
#include "fuzz/walk.h"
#include "inspect/repair.h"
#include "inspect/repair_proof.h"
#include "inspect/walker.h"

#include <vector>

extern "C" android::ExtractorDef GETEXTRACTORDEF();

namespace {

using namespace zoflv_inspect;
using Bytes = std::vector<uint8_t>;

/// @return the plan; without its error `out` is the new file
RepairPlan repaired_once(const Bytes& in, const RepairOptions& options, Bytes* out)
{
    MemorySource source(in.data(), in.size());
    RepairPlan plan = plan_repair(source, options);
    WALK_CHECK(plan.end == static_cast<int64_t>(in.size()));
    const RepairError result = write_repair(source, plan, [&](const void* bytes, size_t count) {
        const auto* const p = static_cast<const uint8_t*>(bytes);
        out->insert(out->end(), p, p + count);
        return true;
    });
    WALK_CHECK(result == plan.error);
    WALK_CHECK(plan.error != RepairError::NONE || static_cast<int64_t>(out->size()) == plan.total);
    return plan;
}

/// @return whether there is a new file
bool repaired(Bytes in, const RepairOptions& options, Bytes* out)
{
    for (int round = 1;; ++round) {
        out->clear();
        const RepairPlan plan = repaired_once(in, options, out);
        if (plan.error != RepairError::NONE)
            return false;
        if (plan.settled)
            return true;
        WALK_CHECK(round < MOST_ROUNDS);
        in = *out;
    }
}

void check_whole(const Bytes& file)
{
    MemorySource source(file.data(), file.size());
    TagWalker walker(source);
    while (const Item* item = walker.next()) {
        WALK_CHECK(item->kind != ItemKind::LOST && item->kind != ItemKind::INNER_HEADER);
        if (item->kind == ItemKind::TAG) {
            WALK_CHECK(!item->tag.cut && item->tag.link == Link::RIGHT);
            WALK_CHECK(item->tag.stream_id == 0 && item->tag.dts_ms() >= 0);
        }
    }
}

Verdict played(const Bytes& file)
{
    static const auto plugin = zoflv_host::ExtractorLibrary::of(GETEXTRACTORDEF());
    DeviceOptions options;
    options.seeks = 2;
    options.all_seeks = false;
    return check(*plugin, std::make_shared<zoflv_host::MemoryDataSource>(file), options);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    constexpr size_t LARGEST_PLAYED = 8192;
    const uint32_t seed = walk_seed(data, size);
    RepairOptions options;
    options.times.keep_times = seed % 8 == 0;
    options.times.join_gaps = seed % 3 == 0;
    const Bytes in(data, data + size);
    Bytes once, twice;
    if (!repaired(in, options, &once))
        return 0;
    check_whole(once);
    WALK_CHECK(repaired(once, options, &twice));
    WALK_CHECK(once == twice);
    if (size > LARGEST_PLAYED || seed / 64 % 4 != 0)
        return 0;
    const RepairProof proof = prove_repair(played(in), played(once));
    WALK_CHECK(proof.accepted() || !proof.text.empty()); // a reason is told
    return 0;
}
