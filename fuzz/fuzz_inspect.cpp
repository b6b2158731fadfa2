// SPDX-License-Identifier: Apache-2.0
// A whole file through the tag walker, the script tree, the totals and the findings.
#include "fuzz/fuzz.h"
#include "fuzz/trail_check.h"
#include "fuzz/walk.h"
#include "inspect/codec_names.h"
#include "inspect/findings.h"
#include "inspect/scan.h"
#include "inspect/script.h"
#include "inspect/walker.h"

#include <string_view>

namespace {

using namespace zoflv_inspect;

void check_tree(const View& body)
{
    const ScriptTree tree(body.data, body.size);
    const std::vector<ScriptNode>& nodes = tree.nodes();
    WALK_CHECK(tree.error_offset() <= body.size);
    WALK_CHECK(nodes.size() <= 16384 + body.size / 16);
    uint64_t values = 0;
    for (size_t i = 0; i < nodes.size(); ++i) {
        const ScriptNode& n = nodes[i];
        WALK_CHECK(n.offset < n.end && n.end <= body.size && n.depth <= ScriptTree::MAX_DEPTH);
        WALK_CHECK(n.next > i && n.next <= nodes.size());
        WALK_CHECK(i == 0 || n.depth <= nodes[i - 1].depth + 1);
        WALK_CHECK(tree.offset(n, n.repeat - 1) < n.end);
        tree.number(n, n.repeat - 1);
        WALK_CHECK(tree.name(n).size() <= body.size && tree.text(n).size() <= body.size);
        values += n.repeat;
    }
    WALK_CHECK(values <= body.size); // each has a marker of its own
    if (const ScriptNode* top = tree.top(1)) {
        tree.numbers(*top);
        tree.property(*top, "keyframes");
    }
}

int64_t check_tag(const Tag& tag, TagWalker& walker, int64_t size)
{
    WALK_CHECK(tag.stored <= tag.size && (tag.cut || tag.stored == tag.size));
    WALK_CHECK(tag.body.payload <= tag.stored);
    WALK_CHECK(!tag.cut || tag.end() == size);
    const View body = walker.body(tag);
    WALK_CHECK(body.size == tag.stored);
    if (tag.body.known)
        codec_name(tag.video(), tag.body.codec);
    if (tag.script())
        check_tree(body);
    return tag.end();
}

TrackFacts any_track(WalkChoice& choose)
{
    constexpr int32_t errors[] = {0, -1002, -1003, -1004};
    constexpr int32_t sizes[] = {0, 1, 524288, 1572864};
    TrackFacts facts;
    facts.published = choose(4) != 0;
    facts.error_type = errors[choose(4)];
    facts.max_input_size = sizes[choose(4)];
    return facts;
}

void check_finding(const Finding& finding, int64_t size)
{
    const FindingRule& rule = finding.info();
    WALK_CHECK(finding.rule < Rule::UNEXPLAINED && finding.count > 0);
    WALK_CHECK(finding.level == rule.level || finding.level == Level::NOTICE);
    WALK_CHECK((finding.explains & ~rule.explains) == 0);
    const std::string text = finding.text();
    WALK_CHECK(text.size() < 600);
    for (const char c : text) // names come from the file
        WALK_CHECK(c >= ' ' && c <= '~');
    // An index may point anywhere, all else lies in the file.
    const bool indexed = std::string_view(rule.code).substr(0, 6) == "index.";
    WALK_CHECK(indexed || (finding.offset >= NO_OFFSET && finding.offset <= size));
}

void check_findings(MemorySource& source, size_t window, uint32_t seed)
{
    WalkChoice choose(seed);
    TagWalker walker(source, window);
    Findings findings;
    while (const Item* item = walker.next())
        findings.see(*item, walker);
    const std::vector<Finding> all = findings.finish({any_track(choose), any_track(choose)});
    for (size_t i = 0; i < all.size(); ++i) {
        check_finding(all[i], source.size());
        // In the order of the rules, each once for a kind of stream.
        WALK_CHECK(i == 0 || all[i - 1].rule < all[i].rule ||
                   (all[i - 1].rule == all[i].rule && all[i - 1].kind < all[i].kind));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    constexpr size_t windows[] = {128, 1000, TagWalker::DEFAULT_WINDOW};
    const uint32_t seed = walk_seed(data, size);
    const size_t window = windows[seed % 3];
    MemorySource source(data, size);
    TagWalker walker(source, window);
    TagWalker bare_walker(source, window); // what the walk alone costs
    Scanner scanner;
    int64_t at = 0;
    uint64_t tags = 0;
    int64_t lost = 0;
    bool ended = false;
    while (const Item* item = walker.next()) {
        WALK_CHECK(!ended && bare_walker.next()->kind == item->kind);
        scanner.see(*item, walker);
        const int64_t start = at;
        switch (item->kind) {
        case ItemKind::FILE_HEADER:
        case ItemKind::INNER_HEADER:
            WALK_CHECK(item->header.offset == at);
            at = item->header.end();
            break;
        case ItemKind::TAG:
            WALK_CHECK(item->tag.offset == at);
            at = check_tag(item->tag, walker, static_cast<int64_t>(size));
            ++tags;
            break;
        case ItemKind::LOST:
            WALK_CHECK(item->lost.offset == at);
            at = item->lost.end();
            lost += item->lost.size;
            break;
        case ItemKind::END:
            WALK_CHECK(item->end.offset == at && at == static_cast<int64_t>(size));
            ended = true;
            break;
        }
        WALK_CHECK(ended || at > start);
    }
    WALK_CHECK(ended);
    const WalkCost cost = bare_walker.cost();
    WALK_CHECK(cost.bytes_read <= 3 * size + 64 * 1024);
    WALK_CHECK(cost.reads <= 2 * size / 64 + 2 * tags + 4096);
    WALK_CHECK(cost.candidates <= static_cast<uint64_t>(lost) + size);
    const Scan& scan = scanner.scan();
    WALK_CHECK(scan.lost_bytes == lost);
    WALK_CHECK(scan.video.tags + scan.audio.tags + scan.script.tags + scan.other_tags == tags);
    WALK_CHECK(scan.duration_ms() >= 0);
    check_findings(source, window, seed);
    check_trails(data, size);
    return 0;
}
