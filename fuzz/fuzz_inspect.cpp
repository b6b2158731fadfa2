// SPDX-License-Identifier: Apache-2.0
// A whole file through the tag walker, the script tree and the totals.
#include "fuzz/fuzz.h"
#include "fuzz/walk.h"
#include "inspect/codec_names.h"
#include "inspect/scan.h"
#include "inspect/script.h"
#include "inspect/walker.h"

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

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    constexpr size_t windows[] = {128, 1000, TagWalker::DEFAULT_WINDOW};
    const size_t window = windows[walk_seed(data, size) % 3];
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
    return 0;
}
