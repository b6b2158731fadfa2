// SPDX-License-Identifier: Apache-2.0
// Repair of made files: which tags stay, with which times, in which order, and that a repaired file is
// left as it is.
#include "inspect/repair.h"
#include "inspect/repair_proof.h"
#include "inspect/script.h"
#include "inspect/walker.h"
#include "tests/support/flv_builder.h"

#include <gtest/gtest.h>

#include <zoflv_host/log.h>

using namespace zoflv_inspect;

namespace {

std::string error; // of the loader
const auto plugin = zoflv_host::ExtractorLibrary::load(ZOFLV_PLUGIN, &error);

/// The new file; empty when there is none.
Bytes repaired(const Bytes& file, const RepairOptions& options = {}, RepairReport* report = nullptr,
               int round = 1)
{
    MemorySource source(file.data(), file.size());
    const RepairPlan plan = plan_repair(source, options);
    Bytes out;
    const RepairError done = write_repair(source, plan, [&](const void* bytes, size_t size) {
        const auto* const p = static_cast<const uint8_t*>(bytes);
        out.insert(out.end(), p, p + size);
        return true;
    });
    EXPECT_EQ(done, plan.error);
    if (report)
        *report = plan.report;
    if (!plan.settled)
        return round < MOST_ROUNDS ? repaired(out, options, nullptr, round + 1) : Bytes();
    return plan.error == RepairError::NONE ? out : Bytes();
}

/// The tags after the metadata, "v0 a23 s40": type, time, and "c" for a configuration. Also what must
/// hold for every new file.
std::string tags_of(const Bytes& file)
{
    std::string text;
    MemorySource source(file.data(), file.size());
    TagWalker walker(source);
    while (const Item* item = walker.next()) {
        EXPECT_NE(item->kind, ItemKind::LOST);
        EXPECT_NE(item->kind, ItemKind::INNER_HEADER);
        if (item->kind != ItemKind::TAG || item->tag.offset == 13)
            continue;
        const Tag& tag = item->tag;
        EXPECT_TRUE(tag.link == Link::RIGHT && !tag.cut && tag.stream_id == 0);
        text += text.empty() ? "" : " ";
        text += tag.audio() ? "a" : tag.video() ? "v" : "s";
        text += tag.body.packet == Packet::CONFIG ? "c" : "";
        text += std::to_string(tag.dts_ms());
    }
    return text;
}

const Bytes key = avc_tag({hex("65 11 22")}), inter = avc_tag({hex("41 33")}, false);
const Bytes video_config = avc_config_tag(avc_record({avc_sps(20, 15)}, {hex("68 CE 3C 80")}));
const Bytes sound = aac_tag(fill(8));

/// From a text as tags_of() gives, with "k" for a keyframe, "h" for a file header and a time in ms.
FlvBuilder built(const std::string& text)
{
    FlvBuilder builder = FlvBuilder().header();
    for (size_t at = 0; at < text.size();) {
        const size_t digits = text.find_first_of("0123456789-", at);
        const size_t end = std::min(text.find(' ', at), text.size());
        const std::string kind = text.substr(at, std::min(digits, end) - at);
        const auto time =
            static_cast<uint32_t>(digits < end ? std::stoll(text.substr(digits, end - digits)) : 0);
        if (kind == "h")
            builder.header();
        else if (kind == "s")
            builder.tag(18, time, amf_str("onCuePoint"));
        else if (kind == "vc" || kind == "ac")
            builder.tag(kind == "vc" ? 9 : 8, time, kind == "vc" ? video_config : aac_config_tag());
        else
            builder.tag(kind == "a" ? 8 : 9, time, kind == "a" ? sound : kind == "k" ? key : inter);
        at = end + 1;
    }
    return builder;
}

Verdict verdict_of(const Bytes& file, int seeks = 4)
{
    const zoflv_host::ScopedLogSink silent([](int, const std::string&, const std::string&) {});
    DeviceOptions options;
    options.seeks = seeks;
    options.all_seeks = false;
    return check(*plugin, std::make_shared<zoflv_host::MemoryDataSource>(file), options);
}

Bytes recording(uint32_t frames = 12)
{
    std::string text = "vc0 ac0";
    for (uint32_t i = 0; i < frames; ++i)
        text += (i % 4 ? " v" : " k") + std::to_string(40 * i) + " a" + std::to_string(40 * i);
    return built(text).bytes();
}

} // namespace

TEST(Repair, TimesAndOrder)
{
    const TimeRules keep{true, false}, join{false, true};
    const struct {
        const char* name;
        std::string in, out;
        TimeRules rules{};
    } cases[] = {
        {"start", "vc0 ac0 k5000 a5010", "vc0 ac0 v0 a10"},
        {"start, kept", "vc0 ac0 k5000 a5010", "vc0 ac0 v5000 a5010", keep},
        {"one frame of each stream at the end", "vc0 k0 a0 v10 a10 h k0 a20",
         "vc0 v0 a0 v10 a10 v20 a40"},
        {"an inner header without frames", "vc0 k0 v40 h vc0 s0", "vc0 v0 v40 vc40 s40"},
        {"inner header, kept", "vc0 k0 a0 v80 a40 h vc0 k40 a40", "vc0 v0 a0 v80 a40 vc0 v40 a40",
         keep},
        {"inner header that goes on, kept", "vc0 a0 k0 v80 h a40 v120", "vc0 a0 v0 a40 v80 v120",
         keep},
        {"glued, kept", "vc0 k0 v9000 a0 a9000 k0 v40 a0 a40",
         "vc0 v0 v9000 a0 a9000 v0 v40 a0 a40", keep},
        {"negative", "vc0 k-40 v0", "vc40 v0 v40"},
        {"glued, inner header", "vc0 k0 a0 v40 a40 h vc0 k0 a0", "vc0 v0 a0 v40 a40 vc80 v80 a80"},
        {"glued", "vc0 k0 a0 v9000 a9000 k0 a0 v40 a40",
         "vc0 v0 a0 v9000 a9000 v9040 a9040 v9080 a9080"},
        {"glued, each drifts", "vc0 k0 a0 v40 a45 v80 a90 h k0 a0 v40 a45",
         "vc0 v0 a0 v40 a45 v80 a90 v135 a135 v175 a180"},
        {"glued, the first goes over 24 bits", "vc0 k16777190 a16777200 v14 a24 h k0 a0 v40 a40",
         "vc0 v0 a10 v40 a50 v90 a90 v130 a130"},
        {"glued, a gap in the second", "vc0 k0 a0 v40 a40 k-9000 a-9000 v8000 a8000",
         "vc0 v0 a0 v40 a40 v80 a80 v17080 a17080"},
        {"glued, a straggler", "vc0 k0 a0 v1960 a1970 v2000 k0 a2010 a0",
         "vc0 v0 a0 v1960 a1970 v2000 a2010 v2050 a2050"},
        {"one stream alone goes back", "vc0 k0 a0 v5000 a5000 k0 a5040 v40 a5080",
         "vc0 v0 a0 v5000 a5000 v0 a5040 v40 a5080"},
        {"steps back that meet once the parts are one", "k0 a0 v2000 a2000 v0 h v2000 a2000 a0",
         "v0 a0 v2000 a2000 a4040 v4080 a6120 v8120"},
        {"the only stream goes back", "vc0 k0 v40 v5000 k0 v40", "vc0 v0 v40 v5000 v5040 v5080"},
        {"the only stream so far", "vc0 k0 v40 v5000 k0 v40 a40 v80",
         "vc0 v0 v40 v5000 v0 v40 a40 v80"},
        {"goes back by less", "vc0 k1000 a1000 v400 a400", "vc0 v600 a600 v0 a0"},
        {"24 bits", "vc0 k16777000 a16777010 v16777040 a16777050 v0 a10",
         "vc0 v0 a10 v40 a50 v216 a226"},
        {"gap", "vc0 k0 a0 v40 a40 k20000 a20000", "vc0 v0 a0 v40 a40 v20000 a20000"},
        {"gap, joined", "vc0 k0 a0 v40 a40 k20000 a20000", "vc0 v0 a0 v40 a40 v80 a80", join},
        {"drift", "vc0 k0 a0 v40 a45 v80 a90", "vc0 v0 a0 v40 a45 v80 a90"},
        {"one after the other", "vc0 ac0 k0 v40 v80 a0 a40 a80", "vc0 ac0 v0 a0 v40 a40 v80 a80"},
        {"a late configuration", "k0 a0 v40 a40 vc80 ac80 v80", "vc0 v0 ac0 a0 v40 a40 v80"},
        {"script tags", "s7 vc0 k0 v40 s3 a0 a40", "s7 vc0 v0 a0 v40 s3 a40"},
        {"a configuration in the middle", "vc0 k500 a500 vc0 k540 a540", "vc0 v0 a0 vc0 v40 a40"},
        {"a time that cannot be", "vc0 k-2000000000 a-2000000000 v2000000000 a2000000000", ""},
    };
    for (const auto& c : cases) {
        RepairOptions options;
        options.times = c.rules;
        const Bytes out = repaired(built(c.in).bytes(), options);
        EXPECT_EQ(tags_of(out), c.out) << c.name;
        EXPECT_EQ(repaired(out, options), out) << c.name;
    }
}

TEST(Repair, WhatIsDroppedAndKept)
{
    const FlvBuilder start = built("vc0 k0");
    const auto with = [&](const Bytes& bytes) { return FlvBuilder(start).raw(bytes); };
    const auto tag = [](uint8_t type, const Bytes& body, uint32_t stream_id = 0) {
        return FlvBuilder().tag(type, 40, body, stream_id).bytes();
    };
    const Bytes more = FlvBuilder().tag(9, 80, key).tag(9, 120, inter).tag(9, 160, inter).bytes();
    const Bytes config2 = avc_config_tag(avc_record({avc_sps(10, 10)}, {hex("68 CE 3C 80")}));
    const struct {
        const char* name;
        Bytes in;
        std::string out;
        uint64_t RepairReport::*counted = nullptr; ///< becomes 1
    } cases[] = {
        {"empty tag", with(tag(9, {})).raw(more).bytes(), "vc0 v0 v80 v120 v160",
         &RepairReport::empty_tags},
        {"no payload", with(tag(9, hex("27 01 00 00 00"))).raw(more).bytes(),
         "vc0 v0 v80 v120 v160", &RepairReport::empty_tags},
        {"early end", with(tag(9, hex("17 02 00 00 00"))).raw(more).bytes(), "vc0 v0 v80 v120 v160",
         &RepairReport::early_ends},
        {"early end of 6 bytes", with(tag(9, hex("17 02 00 00 00 00"))).raw(more).bytes(),
         "vc0 v0 v40 v80 v120 v160"},
        {"end", with(more).raw(FlvBuilder().tag(9, 160, hex("17 02 00 00 00")).bytes()).bytes(),
         "vc0 v0 v80 v120 v160 v160"},
        {"cut tag", with(cut(tag(9, fill(50)), 40)).bytes(), "vc0 v0", &RepairReport::cut_tags},
        {"lost bytes", with(fill(300, 200)).raw(more).bytes(), "vc0 v0 v80 v120 v160",
         &RepairReport::lost_ranges},
        {"zeros after all", with(more).raw(Bytes(100)).bytes(), "vc0 v0 v80 v120 v160",
         &RepairReport::lost_ranges},
        {"metadata again",
         with(tag(18, on_meta_data({}))).raw(tag(18, on_meta_data({}))).raw(more).bytes(),
         "vc0 v0 v80 v120 v160", &RepairReport::more_metadata},
        {"stream id", with(tag(9, key, 1)).bytes(), "vc0 v0 v40", &RepairReport::stream_ids},
        {"configurations that differ",
         FlvBuilder()
             .header()
             .tag(9, 0, key)
             .tag(9, 40, video_config)
             .tag(9, 80, config2)
             .tag(9, 80, key)
             .bytes(),
         "v0 vc40 vc80 v80"},
        {"no frame", FlvBuilder().header().tag(9, 0, video_config).bytes(), ""},
        {"no tag", FlvBuilder().header().bytes(), ""},
        {"no file", {}, ""},
    };
    for (const auto& c : cases) {
        RepairReport report;
        const Bytes out = repaired(c.in, {}, &report);
        EXPECT_EQ(tags_of(out), c.out) << c.name;
        EXPECT_EQ(repaired(out), out) << c.name;
        if (c.counted) {
            EXPECT_EQ(report.*c.counted, 1U) << c.name;
        }
    }
}

TEST(Repair, Metadata)
{
    const Bytes meta = on_meta_data({
        amf_prop("creator", amf_str("x")),
        amf_prop("width", amf_num(320)),
        amf_prop("height", amf_str("not a number")),
        amf_prop("dur", amf_num(7)),
        amf_prop("duration", amf_num(1e9)),
        amf_prop("long", cat({hex("0C 00 00 00 02"), ascii("ab")})),
        amf_prop("long 2", cat({hex("0C 00 00 00 02"), ascii("ab")})),
        amf_prop("list", amf_array({1, 2})),
        amf_keyframes({0}, {5}),
    });
    const Bytes tags = recording();
    const Bytes in =
        FlvBuilder().header(0).tag(18, 0, meta).raw({tags.begin() + 13, tags.end()}).bytes();
    RepairReport report;
    const Bytes out = repaired(in, {}, &report);
    EXPECT_EQ(report.properties.size(), 3U); // height, dur, "long 2"
    EXPECT_EQ(out[4], 5);

    MemorySource source(out.data(), out.size());
    TagWalker walker(source);
    walker.next();
    const View body = walker.body(walker.next()->tag);
    const ScriptTree tree(body.data, body.size);
    const ScriptNode* root = tree.top(1);
    ASSERT_TRUE(root && root->closed && root->count == root->found);
    const auto number = [&](const char* name) {
        const ScriptNode* node = tree.property(*root, name);
        return node ? node->number : -1;
    };
    EXPECT_EQ(number("width"), 320);
    EXPECT_EQ(number("duration"), 0.48);
    EXPECT_EQ(number("filesize"), static_cast<double>(out.size()));
    EXPECT_EQ(number("hasVideo"), 1);
    EXPECT_EQ(number("dur"), -1);
    EXPECT_EQ(tree.text(*tree.property(*root, "creator")), "x");
    EXPECT_TRUE(tree.property(*root, "list") && tree.property(*root, "long"));
    const ScriptNode* index = tree.property(*root, "keyframes");
    ASSERT_TRUE(index);
    const std::vector<double> positions = tree.numbers(*tree.property(*index, "filepositions"));
    ASSERT_EQ(positions.size(), 3U);
    for (const double position : positions)
        EXPECT_EQ(out[static_cast<size_t>(position) + 11], 0x17);
}

TEST(Repair, AnIndexIsThinned)
{
    IndexCollector index(4);
    for (int32_t time = 0; time < 9; ++time)
        index.add({time, time});
    std::vector<int32_t> times;
    for (const IndexEntry& entry : index.entries())
        times.push_back(entry.time);
    EXPECT_EQ(times, (std::vector<int32_t>{0, 4, 8}));
    EXPECT_GT(RepairMetadata().most_entries(), 900000U);
    EXPECT_LE(RepairMetadata().body_size(RepairMetadata().most_entries(), true),
              RepairMetadata::LARGEST_BODY);
}

// A stream that comes more than the window too late stays where it is, also the second time.
TEST(Repair, TooFarToMerge)
{
    FlvBuilder builder = built("vc0 ac0");
    const Bytes large = avc_tag({cat({hex("65"), Bytes(1 << 20)})});
    for (uint32_t i = 0; i < 12; ++i)
        builder.tag(9, 40 * i, large);
    for (uint32_t i = 0; i < 12; ++i)
        builder.tag(8, 40 * i, sound);
    RepairReport report;
    const Bytes out = repaired(builder.bytes(), {}, &report);
    EXPECT_EQ(report.not_merged, 1U);
    EXPECT_EQ(tags_of(out).find("vc0 ac0 v0 v40 v80"), 0U);
    EXPECT_EQ(repaired(out), out);
}

// Only what is in the file tells whether there is a cure.
TEST(Repair, CurableByWhatIsThere)
{
    const auto late_audio = [](uint32_t time) {
        FlvBuilder builder = built("vc0");
        for (uint32_t i = 0; i < 110; ++i)
            builder.tag(9, 40 * i, i % 10 ? inter : key);
        return builder.tag(8, time, aac_config_tag())
            .tag(8, time, sound)
            .tag(8, time, sound)
            .bytes();
    };
    const Bytes whole = recording();
    const struct {
        const char* code;
        Bytes in;
        bool curable;
    } cases[] = {
        {"file.no_header", ascii("Dear Sir or Madam, this is a letter and no recording."), false},
        {"file.no_header", {whole.begin() + 13, whole.end()}, true},
        {"header.late", late_audio(0), true},
        {"header.late", late_audio(4400), false},
        {"aac.raw_first", FlvBuilder().header(4).tag(8, 0, sound).bytes(), false},
    };
    for (const auto& c : cases) {
        const Verdict before = verdict_of(c.in);
        ASSERT_TRUE(before.cause);
        EXPECT_STREQ(before.findings[*before.cause].code(), c.code);
        EXPECT_EQ(before.curable(), std::optional(c.curable)) << c.code;
        const Bytes out = repaired(c.in);
        EXPECT_EQ(!out.empty() && prove_repair(before, verdict_of(out)).accepted(), c.curable);
    }
}

TEST(Repair, IsNoWorseWhereverAFileIsCut)
{
    const Bytes whole = recording(6);
    for (size_t length = 0; length <= whole.size(); ++length) {
        const Bytes in = cut(whole, length);
        const Bytes out = repaired(in);
        if (out.empty())
            continue;
        const RepairProof proof = prove_repair(verdict_of(in), verdict_of(out));
        EXPECT_FALSE(proof.worse) << length << ": " << proof.text;
        EXPECT_EQ(repaired(out), out) << length;
    }
}

// Reads and the sink fail in turn.
TEST(Repair, FailuresAreTold)
{
    struct Failing : ByteSource {
        const Bytes& bytes;
        int left;
        Failing(const Bytes& all, int calls) : bytes(all), left(calls) {}
        int64_t read_at(int64_t offset, void* buffer, size_t size) override
        {
            MemorySource memory(bytes.data(), bytes.size());
            return left-- > 0 ? memory.read_at(offset, buffer, size) : -1;
        }
        int64_t size() override { return static_cast<int64_t>(bytes.size()); }
    };
    const Bytes file = recording();
    const Bytes right = repaired(file);
    for (int calls = 0;; ++calls) {
        Failing source(file, calls);
        const RepairPlan plan = plan_repair(source);
        Bytes out;
        const RepairError result = write_repair(source, plan, [&](const void* bytes, size_t size) {
            const auto* const p = static_cast<const uint8_t*>(bytes);
            out.insert(out.end(), p, p + size);
            return true;
        });
        if (result == RepairError::NONE) {
            EXPECT_EQ(out, right);
            EXPECT_GT(calls, 3);
            break;
        }
    }
    MemorySource source(file.data(), file.size());
    const RepairPlan plan = plan_repair(source);
    EXPECT_EQ(write_repair(source, plan, [](const void*, size_t) { return false; }),
              RepairError::WRITE_FAILED);
    Bytes other = file;
    other[other.size() - 21] ^= 1; // a time
    MemorySource changed(other.data(), other.size() - 23);
    EXPECT_EQ(write_repair(changed, plan, [](const void*, size_t) { return true; }),
              RepairError::CHANGED);
}
