// SPDX-License-Identifier: Apache-2.0
#include "tests/support/seek.h"

#include <cmath>
#include <optional>
#include <random>

namespace {

constexpr int64_t MS = ZOFLV_TICKS_PER_MS;
constexpr int64_t SEC = ZOFLV_TICKS_PER_SECOND;
const char* const NO_KEYTAG = "#*|zoflvds_validate_keytag() failed";

/// Random numbers below `n`.
struct Random {
    template <class T>
    T operator()(T n)
    {
        return static_cast<T>(engine() % static_cast<uint64_t>(n));
    }
    std::mt19937_64 engine{20240611}; // the seed, in every run
};

uint32_t be_at(const Bytes& bytes, int64_t pos, int n)
{
    uint32_t value = 0;
    for (int i = 0; i < n; ++i)
        value = value << 8 | bytes[static_cast<size_t>(pos + i)];
    return value;
}

struct Tag {
    Tag(const Bytes& bytes, int64_t at)
        : pos(at), size(be_at(bytes, at + 1, 3)), type(static_cast<int>(be_at(bytes, at, 1))),
          key(type == 9 && be_at(bytes, at + 11, 1) >> 4 == 1)
    {
        const uint32_t ms = be_at(bytes, at + 4, 3) | be_at(bytes, at + 7, 1) << 24;
        time = static_cast<int32_t>(ms) * MS;
    }
    int64_t pos, size, time;
    int type;
    bool key;
};
using Found = std::optional<Tag>;

/// The first plausible tag from `start` on.
Found plausible(const Bytes& bytes, int64_t start, int64_t limit)
{
    for (int64_t p = start; p + 15 < limit; ++p) {
        const uint32_t type = be_at(bytes, p, 1);
        if ((type != 8 && type != 9 && type != 18) || be_at(bytes, p + 8, 3) != 0)
            continue;
        const Tag tag(bytes, p);
        const int64_t behind = p + 11 + tag.size;
        const int64_t prev = behind + 4 < limit ? be_at(bytes, behind, 4) : 0;
        if (prev == tag.size + 11 || prev == tag.size + 15)
            return tag;
    }
    return {};
}

/// From the estimated offset back to a tag before the time; every round searches to the end, with
/// `search` from an offset.
template <class Search>
Found back_off(const ZOFLVD_SH& sh, int64_t target, Search search)
{
    for (int64_t est = sh.data_start + target / MS * sh.data_len / (sh.duration / MS);;) {
        est -= 32768;
        est = est >= sh.file_size ? sh.file_size * 9 / 10 : std::max(est, sh.data_start);
        const Found tag = search(est);
        if (!tag || tag->pos <= sh.data_start || tag->time < target || est == sh.data_start)
            return tag;
    }
}

/// What the rules give, on the list of the tags of a sound file.
struct Model {
    Model(const Bytes& bytes, const ZOFLVD_SH& header) : sh(header)
    {
        for (int64_t pos = sh.data_start; pos < sh.file_size; pos += tags.back().size + 15)
            tags.emplace_back(bytes, pos);
    }

    Found crawl(const Tag* start, int64_t target, int mode)
    {
        const Tag *cur = start, *saved = start;
        bool cur_key = false, has_saved = false, at_end = false, again = false;
        const bool video = sh.strm_type == 9;
        bool forward = start->time < target, next_key = video && mode == 1;
        const auto check = [&] {
            if (at_end)
                return forward ? 1 : 2;
            if (cur->type != sh.strm_type || (forward ? cur->time < target : cur->time > target))
                return 0;
            return !video || (forward == next_key ? cur_key : has_saved) ? 2 : 0;
        };
        int count = 0, result = check();
        for (; result == 0; result = check()) {
            if (cur->type == sh.strm_type && (cur_key || !video))
                saved = cur, has_saved = true;
            at_end = cur == (forward ? &tags.back() : &tags.front());
            if (!at_end)
                cur += forward ? 1 : -1, cur_key = cur->key, ++steps;
            if (cur->type == sh.strm_type && count++ == 30720)
                return {};
            const int64_t before = cur->time - 100 * MS;
            if (again || (mode == 0 ? cur->time <= saved->time || before <= target
                                    : cur->time >= saved->time || before >= target))
                continue;
            again = true;
            cur = saved = start;
            cur_key = has_saved = at_end = false;
            forward = mode != 0;
            next_key = forward && video;
            count = 0;
        }
        return result == 1 ? Found() : forward == next_key ? *cur : *saved;
    }

    Found find(int64_t target, int mode)
    {
        const Tag* start = nullptr;
        const auto search = [&](int64_t est) -> Found {
            start = tags.data();
            while (start->pos < est || start->pos + start->size + 15 >= sh.file_size)
                if (++start > &tags.back())
                    return {};
            return *start;
        };
        return sh.duration >= target && back_off(sh, target, search) ? crawl(start, target, mode)
                                                                     : Found();
    }

    /// In a file in order of time, not at the time of a keyframe.
    Found by_index(int64_t time, int mode) const
    {
        Found prev, next;
        for (Tag tag : tags) {
            if (!tag.key || next)
                continue;
            const double seconds = static_cast<double>(tag.time / MS) / 1000; // in the metadata
            tag.time = static_cast<int64_t>(seconds * SEC);
            (tag.time > time ? next : prev) = tag;
        }
        const bool closer = mode == 3 && next && next->time - time < time - prev->time;
        return mode == 1 || closer ? next : prev;
    }

    Found seek(int64_t time, int mode)
    {
        if (time == 0)
            return tags[0];
        const Found prev = mode == 1 ? Found() : find(time, mode % 3);
        const Found next = mode % 2 == 0 ? Found() : find(time, 1);
        return !prev || (next && next->time - time < time - prev->time) ? next : prev;
    }

    const ZOFLVD_SH& sh;
    std::vector<Tag> tags; // from `data_start` on
    int steps = 0;         // tags crawled to
};

TEST(Seek, LandsWhereTheRulesSay)
{
    Random random;
    const struct {
        uint8_t flags;      // 1 video, 4 audio
        uint32_t key_every; // frames of 40 ms
        bool indexed = false;
        uint32_t disorder = 1; // ms, of the times
    } files[] = {{5, 12, true}, {1, 50, true},      {5, 12}, {5, 160}, {1, 1},
                 {4, 1},        {5, 9, false, 9000}};
    for (const auto& f : files) {
        FlvBuilder flv = f.indexed ? FlvBuilder().header(f.flags)
                                   : ::flv(f.flags, {amf_prop("duration", amf_num(24))});
        for (uint32_t i = 0; i < 600; ++i) {
            const bool key = i % f.key_every == 0;
            Bytes screen = hex("13 30 A0 30 78");
            screen[0] = key ? 0x13 : random(2) ? 0x23 : 0x33;
            screen.resize(5 + random(key ? 6000U : 1500U), 0xAA);
            const uint32_t ms = i * 40 + random(f.disorder);
            if (f.flags & 1)
                flv.tag(9, ms, screen);
            if (f.flags & 4)
                flv.tag(8, ms + random(40U), mp3_tag(Bytes(random(500U), 0xAA)));
        }
        if (f.indexed)
            flv.indexed();
        for (int i = 0; i < (f.flags == 5 ? 2 : 1) * 4000; ++i) {
            static std::unique_ptr<Strm> t; // a stream for 4000 seeks
            static std::unique_ptr<Model> model;
            if (i % 4000 == 0) {
                t = std::make_unique<Strm>(flv.bytes(), i / 4000);
                model = std::make_unique<Model>(flv.bytes(), t->s->sh);
            }
            const int64_t exact = model->tags[random(model->tags.size())].time + f.indexed;
            const int64_t time = i % 5 ? 1 + random(25 * SEC) : exact;
            const int mode = i % 4;
            SCOPED_TRACE(::testing::Message() << "file " << &f - files << ", seek " << i);
            t->file.reset();
            model->steps = 0;
            const Found tag = f.indexed ? model->by_index(time, mode) : model->seek(time, mode);
            int64_t out = 0;
            long long pos = 0;
            ASSERT_EQ(zoflvds_seek(t->s, &time, &out, mode), tag ? 0 : f.indexed ? 1 : -3);
            t->s->mfal.getpos(t->s->fh, &pos);
            ASSERT_TRUE(!tag || (out == tag->time && pos == tag->pos)) << out << ", at " << pos;
            ASSERT_LE(t->file.calls(MemFile::Read), f.indexed ? 3 : 9999);
            const int most = (mode == 3 ? 2 : 1) * 65536 + 16 * model->steps;
            ASSERT_LE(t->file.bytes_read, f.disorder > 1 ? 999999 : most);
        }
    }
}

int64_t pos_of(const FlvBuilder& flv, size_t i)
{
    return static_cast<int64_t>(flv.tags()[i].pos);
}

/// Runs the seeks in `words`, mode@time=landing in ms, a result code in place of a landing as r-3.
void run(BareStrm& t, const Bytes& bytes, const char* words)
{
    std::istringstream in(words);
    for (std::string word; in >> word;) {
        SCOPED_TRACE(word);
        const char* to = std::strchr(word.c_str(), '=') + 1;
        const int rc = *to == 'r' ? std::stoi(to + 1) : 0;
        ASSERT_EQ(t.seek(std::llround(std::stod(word.substr(2)) * MS), word[0] - '0'), rc);
        if (rc == 0)
            EXPECT_TRUE(t.out == std::stoi(to) * MS && Tag(bytes, t.file.tell()).time == t.out);
    }
}

TEST(Seek, ThroughTheIndex)
{
    const FlvBuilder flv = short_file("S0 K0 A1000 P2500 K2000 A2000 P4000 K4000 A4000");
    const std::vector<ZOFLVD_KF> index = {
        {0, pos_of(flv, 1)}, {2 * SEC, pos_of(flv, 4)}, {4 * SEC, pos_of(flv, 7)}};
    LogCapture log;
    for (const uint8_t type : hex("09 08")) { // an audio stream too lands on the video tag
        BareStrm t(flv.bytes(), type, 0, index);
        run(t, flv.bytes(),
            "0@3000=2000 1@3000=4000 2@3000=2000 3@3100=4000 3@3000=2000 3@3000.0001=4000 "
            "0@2000=2000 1@2000=4000 3@2000=2000 0@1999.9999=0 1@0.0001=2000 3@999=0 3@1001=2000 "
            "0@4000=2000 1@4000=4000 3@4000=4000 0@4000.0001=4000 1@4000.0001=r1 3@99999=4000 "
            "1@99999=r1 0@0=0 1@0=0 3@0=0");
        EXPECT_TRUE(log.is({}));
        EXPECT_EQ(t.file.tell(), 13); // the first tag, not the index's entry
        run(t, flv.bytes(), "0@-0.0001=r-3 1@-1=r-3");
        EXPECT_TRUE(log.is(lines("zoflvd_mblk_elem_find() failed|zoflvd_mblk_elem_find() failed")));
        EXPECT_EQ(zoflvds_seek(&t.s, &index[1].time, nullptr, 0), 0);
    }
    BareStrm t(flv.bytes(), 9, 0, {{INT64_MIN, pos_of(flv, 1)}, {INT64_MAX, pos_of(flv, 4)}});
    EXPECT_TRUE(t.seek(1, 3) == 0 && t.out == INT64_MAX);
    EXPECT_TRUE(t.seek(-2, 3) == 0 && t.out == INT64_MIN);
    EXPECT_TRUE(t.seek(INT64_MIN, 1) == 0 && t.out == INT64_MAX);
}

TEST(Seek, EntriesThatMissTheirTag)
{
    const char* const lone = "K0 P40:3000 K2000:50 P2040 P2080";
    const char* const dense = "K0:900 P40:900 K2000:50 P2040 P2080";
    const struct {
        const char *file, *seek; // what fails logs NO_KEYTAG
        int64_t late = 0;        // the entry's time is 2 s and this
        int64_t duration = 0;    // seconds; 0: the seek without an index fails
        int64_t off = -5;        // the entry's distance from the tag
        size_t tag = 2;
        size_t cut = 0; // bytes cut off the file
        uint8_t type = 9;
    } cases[] = {
        {lone, "0@2040=2000 1@40=2000"},
        {lone, "1@40=2000", -MS},
        {lone, "0@2040=2000", MS},
        {lone, "0@2040=r-3", MS + 1},
        {lone, "1@40=r-3", -MS - 1},
        {lone, "0@1999.5=r-3", -MS}, // behind the time
        {dense, "0@2040=r-3"},       // other tags come first
        {dense, "0@2040=2000 1@39=0", 0, 4},
        {"K0:40 K2000:40 P2040 P2080", "0@1=0", -2 * SEC, 0, 1, 0},
        {"K0 P40:3000 A2000:2000 K2000 P2040 P2080", "0@2040=2000", 0, 0, -5, 3},
        {"K0 P40:3000 P2000:2000 K2000 P2040 P2080", "0@2040=2000", 0, 0, -5, 3},
        {"K0 P40:3000 A2000 P2040 P2080", "0@2040=2000", 0, 0, -5, 2, 0, 8},
        {"K0 P40:3000 K2000 P2040 P2080", "0@2040=r-3", 0, 0, -5, 2, 0, 8},
        {"K0 P40:3000 A2000", "0@2040=2000", 0, 0, 0}, // any audio or video tag will do
        {"K0 P40:3000 S2000 P2040", "0@2040=r-3", 0, 0, 0},
        {"K0 P40:3000 K2000", "0@2040=2000", 0, 0, 0, 2, 6}, // 11 bytes there
        {"K0 P40:3000 K2000", "0@2040=r-3", 0, 0, 0, 2, 7},
        {"K0 P40 K2000", "0@2040=r-3", 0, 9, 17}, // nothing there
        {"K0 P40 K2000", "0@2040=r-3", 0, 9, INT64_MAX - 99},
    };
    LogCapture log;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const FlvBuilder flv = short_file(c.file);
        BareStrm t(cut(flv.bytes(), flv.size() - c.cut), c.type, c.duration * SEC,
                   {{0, 13}, {2 * SEC + c.late, pos_of(flv, c.tag) + c.off}});
        run(t, flv.bytes(), c.seek);
        EXPECT_TRUE(log.is(lines(std::strchr(c.seek, 'r') ? NO_KEYTAG : "")));
    }
    // A file that takes a negative position for 0: the search still begins in it.
    BareStrm t(short_file(dense).bytes(), 9, 0, {{1, INT64_MIN}});
    static const auto to_pos = t.s.mfal.setpos;
    t.s.mfal.setpos = [](void* fh, long long* pos) {
        long long clamped = std::max(*pos, 0LL);
        return to_pos(fh, &clamped);
    };
    EXPECT_TRUE(t.seek(1, 0) == 0 && t.out == 0 && t.file.tell() == 13);
}

TEST(Seek, EstimatesAnOffset)
{
    const struct {
        int64_t time, duration, data_len, file_size, estimate;
    } cases[] = {
        {30 * SEC, 60 * SEC, 6000000, 6000013, 13 + 3000000 - 32768},
        {30 * SEC, 60 * SEC, 6000000, 1009, 908}, // 0.9 of the file
        {9999 + MS, 2 * MS, 100000, 100013, 13 + 50000 - 32768},
        {5000, 9999, 100000, 100013, 13 + 50005 - 32768},
        {INT64_MAX / 2, INT64_MAX, 6000000, 6000013, 13 + 3000000 - 32768},
        {INT64_MAX, INT64_MAX, INT64_MAX - 99, INT64_MAX, INT64_MAX - 99 + 13 - 32768},
        {SEC, 60 * SEC, 1000, 1013, 13},
        {SEC, 60 * SEC, -1000, 1013, 13},
        {-SEC, SEC, 1000000, 1000013, 13},
        {INT64_MIN, INT64_MAX, 1000000, 1000013, 13},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.estimate);
        BareStrm t(short_file("K0:40 P40 P80").bytes(), 9, c.duration);
        t.s.sh.data_len = c.data_len;
        std::swap(t.s.sh.file_size, const_cast<int64_t&>(c.file_size));
        t.file.fail(MemFile::Read, 0, true);
        EXPECT_EQ(t.seek(c.time, 0), -3);
        EXPECT_LE(std::abs(t.file.tell() - c.estimate), c.duration == INT64_MAX ? 64 : 0);
        std::swap(t.s.sh.file_size, const_cast<int64_t&>(c.file_size));
        t.file.reset();
        for (const int mode : {0, 1, 2, 3}) // before the first tag: that one
            EXPECT_TRUE(c.time > 0 || (t.seek(c.time, mode) == 0 && t.out == 0));
    }
}

TEST(Seek, BackOffEqualsTheFullSearch)
{
    Random random;
    uint8_t buf[2048];
    for (int i = 0; i < 150; ++i) {
        SCOPED_TRACE(i);
        // A filler, bytes that often look like a header, or any; and tags over one another.
        Bytes bytes(40000 + random(160000U));
        for (uint8_t& byte : bytes)
            byte = i % 3 == 0   ? 0x55
                   : i % 3 == 1 ? hex("000000000000 08 09 12 0B")[random(10U)]
                                : random(uint8_t{255});
        for (uint32_t n = random(i % 2 ? 8U : 3000U); n > 0; --n) {
            const Bytes body(random(n % 7 ? 200U : 70000U), 0xAA);
            const Bytes tag =
                FlvBuilder().tag(n % 3 ? 9 : 18, random(UINT32_MAX) >> random(9U), body).bytes();
            const auto at = static_cast<ptrdiff_t>(random(bytes.size()));
            if (bytes.size() - static_cast<size_t>(at) < tag.size())
                continue;
            std::copy_n(tag.begin(), 11, bytes.begin() + at);
            std::copy_n(tag.end() - 4, 4,
                        bytes.begin() + at + static_cast<ptrdiff_t>(tag.size()) - 4);
        }
        BareStrm t(bytes, 18, 1000 * SEC);
        t.s.sh.data_start = random(int64_t{1000});
        t.s.sh.data_len = t.s.sh.file_size - t.s.sh.data_start;
        const int64_t target = random(int64_t{1000}) * SEC;
        const Found tag = back_off(t.s.sh, target, [&](int64_t est) {
            ZOFLVD_TAG found = {};
            const Found naive = plausible(bytes, est, t.s.sh.file_size);
            EXPECT_EQ(zoflvds_seek_bytestream_tag(&t.s.mfal, t.file.seek(est).fh(), buf, est,
                                                  t.s.sh.file_size, &found),
                      naive ? 0 : 1);
            if (naive) {
                EXPECT_TRUE(found.pos == naive->pos && found.timestamp == naive->time &&
                            found.data_size == naive->size && found.type == naive->type);
                EXPECT_EQ(t.file.tell(), naive->pos + naive->size + 15);
            }
            return naive;
        });
        // The stream's type stops the crawler at once: the file stays on the tag found.
        LogCapture log;
        EXPECT_EQ(zoflvds_seek_bytestream(&t.s, &target, nullptr, 0), -1);
        EXPECT_EQ(log.has("E zoflvd_crawl: #*"), tag.has_value());
        EXPECT_EQ(tag ? t.file.tell() : 0, tag ? tag->pos : 0);
    }
}

TEST(Seek, CostStaysLinear)
{
    // Nothing like a tag; headers whose PreviousTagSize lies near; and far.
    for (const char* filler : {"55", "08 000010 000000 00 000000", "12 002000 000000 00 000000"}) {
        for (const size_t size : {8U << 20, 16U << 20}) {
            Bytes body = hex(filler);
            while (body.size() < size - 100)
                body.push_back(body[body.size() - (std::strlen(filler) > 2 ? 11 : 1)]);
            const FlvBuilder flv = FlvBuilder()
                                       .header()
                                       .tag(9, 0, body)
                                       .tag(9, 1000000, {0x17})
                                       .tag(9, 1000000, {0x17});
            BareStrm t(flv.bytes(), 9, 900 * SEC);
            EXPECT_TRUE(t.seek(900 * SEC, 0) == 0 && t.out == 0);
            EXPECT_LT(t.file.bytes_read, size * 3 / 2);
            EXPECT_LT(t.file.calls(), size / 2);
            t.s.sh.file_size -= 32; // no tag behind it: ends in the first round
            EXPECT_EQ(t.seek(900 * SEC, 0), -3);
            EXPECT_LT(t.file.bytes_read, size * 3 / 2 + 65536);
            const ZOFLVD_KF kf = {SEC, 99};
            zoflvd_mblk_elem_add(&t.s.idx, &kf);
            EXPECT_EQ(t.seek(900 * SEC, 0), -3);
            EXPECT_LT(t.file.bytes_read, size * 3);
        }
    }
}

TEST(Seek, TagSearch)
{
    const auto find = [](MemFile& file, int64_t start, int64_t limit, ZOFLVD_TAG* tag) {
        uint8_t buf[2048];
        return zoflvds_seek_bytestream_tag(file.mfal(), file.seek(start).fh(), buf, start, limit,
                                           tag);
    };
    ZOFLVD_TAG tag = {77, 0, 0, 0, 0, 0, 0};
    for (const size_t before : {0, 3, 2030, 2031, 2037, 2038, 2047, 2048, 4076}) {
        MemFile file(cat({Bytes(before, 0x55), FlvBuilder().tag(9, 40, {1, 2}).bytes(), {1}}));
        const auto size = static_cast<int64_t>(before) + 17;
        EXPECT_EQ(find(file, 0, size, &tag), 1); // has to end before the limit
        EXPECT_TRUE(tag.type == 77 && find(file, size, size, &tag) == 1);
        EXPECT_TRUE(find(file, 0, size + 1, &tag) == 0 && tag.pos == size - 17);
        tag.type = 77;
    }
    // First, a header whose PreviousTagSize lies outside the window.
    const Bytes far = cat({hex("08 001000 00000000 000000"), Bytes(9000, 0x55)});
    const struct {
        MemFile::Kind fault;
        int nth, result;
        int64_t start;
        const char* log = "#*|frm search: 0 bytes checked|zoflvds_seek_bytestream_tag() failed";
    } faults[] = {
        {MemFile::GetPos, 0, 0, 0},
        {MemFile::Read, 0, 2047, 0},
        {MemFile::Read, 0, -1, 0},
        {MemFile::SetPos, 0, 0, 0},
        {MemFile::Read, 1, 3, 0},
        {MemFile::SetPos, 1, 0, 0},
        {MemFile::Read, 1, 0, 9, "#*|frm search: 2038 bytes checked|*tag() failed"},
    };
    LogCapture log;
    for (const auto& f : faults) {
        MemFile file(far);
        file.fail(f.fault, f.nth, false, f.result);
        EXPECT_EQ(find(file, f.start, 8000, &tag), -1);
        EXPECT_TRUE(log.is(lines(f.log)));
    }
}

const char* const TEN = "K0 A0 P40 K80 A80 P120 K160 P200 A200";

TEST(Seek, WithoutATime)
{
    // Words: r a read, q a length query, n a seek to the next keyframe, b back to the one before,
    // each with its time; E: the result is 1; Z: and no file call is needed for it.
    const char* const words[] = {
        "nZ bZ r0 bE n80 n80 r80 b0 r0 n80 r80 q120 n160 r160 nE b80 r80 r120 r160 r200 rE nZ "
        "b160 r160 r200 rE rE nZ b160 r160 nE rE nZ bZ",
        "nZ bZ r0 bE n80 r80 n200 r200 nE b80 r80 r200 rE nZ b80 r80"};
    for (const uint8_t type : hex("09 08")) {
        BareStrm t(short_file(TEN).bytes(), type);
        std::istringstream in(words[9 - type]);
        for (std::string word; in >> word;) {
            SCOPED_TRACE(word + ", up to " + std::to_string(in.tellg()));
            t.file.reset();
            t.time = t.out = -77;
            const bool reads = word[0] == 'r' || word[0] == 'q';
            const int rc = reads ? t.read(word[0] == 'q') : t.seek(word[0] == 'n' ? 1 : 2);
            const bool none = word[1] > '9';
            ASSERT_EQ(rc, none ? 1 : 0);
            EXPECT_EQ(reads ? t.time : t.out, none ? -77 : std::stoi(word.substr(1)) * MS);
            EXPECT_TRUE(word[1] != 'Z' || t.file.calls() == 0);
        }
    }
}

TEST(Seek, Failures)
{
    const std::string search =
        "#*|frm search: 0 bytes checked|zoflvds_seek_bytestream_tag() failed|#*";
    const FlvBuilder flv = short_file(TEN);
    using File = MemFile;
    const struct {
        bool indexed;
        int mode;
        int64_t ms; // -1: without a time
        std::string log;
        int rc;
        File::Kind fault = File::Any;
        int nth = -99; // negative: counted from the last call of a run without faults
    } cases[] = {
        {true, 0, 0, "#*", -6, File::SetPos, 0},
        {true, 1, 1, "fsetpos() failed", -3, File::SetPos, 0},
        {true, 1, 1, NO_KEYTAG, -3, File::Read, 0},
        {true, 1, 1, NO_KEYTAG, -3, File::SetPos, 1},
        {true, 1, 201, "", 1},
        {false, 0, 201, "#*", -3}, // beyond the duration
        {false, 0, 100, "#*", -3, File::GetPos, 0},
        {false, 0, 100, "#*", -3, File::SetPos, 0},
        {false, 0, 100, search, -3, File::Read, 0},
        {false, 0, 100, search, -3, File::SetPos, 1},
        {false, 0, 100, "#*", -3, File::SetPos, 2}, // to the tag found
        {false, 0, 100, "C|#*", -3, File::SetPos, 3},
        {false, 0, 100, "C|#*", -3, File::SetPos, -1},
        {false, 1, 170, "", -3},
        {false, 3, 100, "#*", -6, File::SetPos, -1}, // back to the first answer
        {false, 3, 170, "#*", -6, File::SetPos, -1},
        {false, 1, -1, "C|#*", 1, File::SetPos, 0},
        {false, 1, -1, "C|#*", 1, File::SetPos, -1},
        {false, 2, -1, "#*", 1, File::SetPos, 0},
        {false, 0, -1, "zoflvds_seek(): invalid mode arg", -1},
        {false, 3, -1, "zoflvds_seek(): invalid mode arg", -1},
        {false, 4, 100, "#*", -1},
        {true, -1, 0, "#*", -1},
    };
    LogCapture log;
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "mode " << c.mode << ", " << c.ms << " ms, " << c.log);
        const ZOFLVD_KF kf = {0, 13}, last = {160 * MS, pos_of(flv, 6)};
        BareStrm t(flv.bytes(), 9, 200 * MS,
                   c.indexed ? std::vector{kf, last} : std::vector<ZOFLVD_KF>());
        const auto seek = [&] { return c.ms < 0 ? t.seek(c.mode) : t.seek(c.ms * MS, c.mode); };
        const auto read = [&] {
            return t.seek(0, 0) == 0 && t.read() == 0 && t.time == 0 && t.read() == 0;
        };
        EXPECT_TRUE(read());
        t.file.reset();
        seek();
        const int nth = c.nth < 0 ? t.file.calls(c.fault) + c.nth : c.nth;
        EXPECT_TRUE(read() && (log.is({}), true));
        t.file.reset().fail(c.fault, nth);
        EXPECT_EQ(seek(), c.rc);
        EXPECT_TRUE(log.is(logged(c.log)));
        const bool bad_mode = c.mode < 0 || c.mode > 3; // leaves the stream alone
        EXPECT_TRUE(t.s.cur_tag.found == bad_mode && t.s.next_tag.found == bad_mode &&
                    t.s.fetch_tag == 1);
        t.file.reset();
        EXPECT_TRUE(read());
    }
    BareStrm t(flv.bytes(), 9, SEC);
    EXPECT_EQ(t.seek(100 * MS, 0), 0);
    t.file.fail(MemFile::GetPos,
                2 * t.file.calls(MemFile::GetPos)); // behind the first of two searches
    EXPECT_EQ(t.seek(100 * MS, 3), -6);
    {
        HeapFaults heap;
        heap.fail(0);
        EXPECT_TRUE(t.seek(1, 0) == -3 && heap.live() == 0);
    }
    t.s.sh.strm_type = 18;
    EXPECT_EQ(t.seek(1, 0), -3);
    t.s.sh.duration = 0;
    EXPECT_EQ(t.seek(-1, 0), -3);
    EXPECT_TRUE(log.is(logged("#*|malloc failed!, [zoflv/dmx/zoflvd: *]|C|#*|#*")));
    t.s.magic = ZOFLVD_MAGIC;
    EXPECT_TRUE(t.seek(0, 0) == -1 && zoflvds_seek(nullptr, nullptr, nullptr, 1) == -1);
}

TEST(Seek, CrawlsOverSoManyTags)
{
    for (const int inter : {30719, 30720}) {
        FlvBuilder flv = short_file("K0 A0");
        for (int i = 0; i < inter; ++i)
            flv.tag(9, 5, {0x27});
        BareStrm t(flv.tag(8, 6, {0x2F}).tag(9, 6, {0x17}).tag(9, 7, {0x27}).bytes(), 9,
                   9999 * SEC);
        EXPECT_EQ(t.seek(MS, 1), inter == 30719 ? 0 : -3);
        EXPECT_EQ(t.out, inter == 30719 ? 6 * MS : -77);
    }
}

} // namespace
