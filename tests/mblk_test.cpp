// SPDX-License-Identifier: Apache-2.0
#include "tests/support/flv_builder.h"
#include "tests/support/heap_faults.h"
#include "tests/support/log_capture.h"
#include "zoflv/dmx/zoflvd_mblk.h"

#include <cstring>

namespace {

int64_t key_of(const void* elem)
{
    int64_t key;
    std::memcpy(&key, elem, sizeof key); // aligned to 4 bytes only on a 32-bit host
    return key;
}

/// An element matches from its key to the next one's in the block, both included; the last element
/// matches every later key.
int compare(const void* key, const void* elem, const void* block)
{
    const auto* node = static_cast<const ZOFLVD_MBLK_NODE*>(block);
    const uint8_t* next = static_cast<const uint8_t*>(elem) + 16;
    if (key_of(key) < key_of(elem))
        return -1;
    return next == zoflvd_mblk_data_end(node, 16) || key_of(key) <= key_of(next) ? 0 : 1;
}

/// The keys 0, 10, 20, ...
struct List : ZOFLVD_MBLK {
    explicit List(int elements, uint32_t bytes = 16)
    {
        EXPECT_EQ(zoflvd_mblk_ctor(this, bytes), 0);
        for (int i = 0; i < elements; ++i)
            EXPECT_EQ(add(i * 10), 0);
    }
    ~List() { zoflvd_mblk_dtor(this); }
    int add(int64_t key)
    {
        const int64_t elem[512] = {key};
        return zoflvd_mblk_elem_add(this, elem);
    }
    int index() { return zoflvd_mblk_upd_meta(this, key_of); }
    int64_t find(int64_t key) const ///< the key of the element found, or -1
    {
        const void* elem = zoflvd_mblk_elem_find(this, &key, compare);
        return elem ? key_of(elem) : -1;
    }
};

} // namespace

TEST(Mblk, FillsBlocksInOrder)
{
    const struct {
        int elements;
        uint32_t bytes, blocks;
    } cases[] = {{0, 16, 0}, {255, 16, 1}, {511, 16, 3}, {171, 24, 2}, {3, 4084, 3}};
    for (const auto& c : cases) {
        List list(c.elements, c.bytes);
        EXPECT_EQ(list.blk_cnt, c.blocks);
        ZOFLVD_MBLK_POS pos = {};
        const void* elem = zoflvd_mblk_elem_first(&list, &pos);
        for (int i = 0; i < c.elements; ++i) {
            ASSERT_EQ(zoflvd_mblk_elem_nth(&list, static_cast<uint32_t>(i)), elem);
            ASSERT_EQ(elem ? key_of(elem) : -1, i * 10);
            elem = zoflvd_mblk_elem_next(&list, &pos);
        }
        EXPECT_TRUE(!elem && !pos.node && !pos.idx);
        EXPECT_EQ(zoflvd_mblk_elem_nth(&list, zoflvd_mblk_elem_cnt(&list)), nullptr);
        zoflvd_mblk_dtor(&list); // and again at the end
    }
}

TEST(Mblk, Finds)
{
    EXPECT_EQ(List(256).find(2550), 2540); // without an index the first block alone
    for (const int elements : {0, 1, 255, 256, 1300}) {
        List list(elements);
        ASSERT_EQ(list.index(), 0);
        for (int64_t key = -5; key <= elements * 10; key += 5) {
            const int64_t found = list.find(key);
            ASSERT_EQ(found >= 0, elements > 0 && key >= 0) << elements << " " << key;
            ASSERT_TRUE(found < 0 || (found <= key && key <= found + 10)) << key;
        }
    }
    const struct {
        int blocks, key, found; // the key is the first of a block
    } cases[] = {{2, 2550, 2540}, {3, 2550, 2550}, {3, 5100, 5090}, {4, 5100, 5090},
                 {4, 7650, 7640}, {5, 2550, 2540}, {5, 5100, 5100}};
    for (const auto& c : cases) {
        List list(c.blocks * 255);
        ASSERT_EQ(list.index(), 0);
        EXPECT_EQ(list.find(c.key), c.found) << c.blocks;
    }
}

TEST(Mblk, Failures)
{
    LogCapture log;
    HeapFaults heap;
    List list(255);
    heap.fail(0, true);
    EXPECT_EQ(list.index(), 0); // one block needs none
    EXPECT_EQ(list.add(7777), -5);
    EXPECT_EQ(values(list.elem_cnt, list.blk_cnt, list.last->next != nullptr), values(255, 1, 0));
    heap.fail(-1);
    EXPECT_EQ(list.add(9999), 0);
    heap.fail(0);
    EXPECT_EQ(list.index(), -5);
    EXPECT_EQ(list.index(), 0);
    EXPECT_EQ(list.index(), -3);
    EXPECT_TRUE(log.is({"E zoflvd_mblk: [index] err: meta_array index already built!"}));
    for (const uint32_t bytes : {0U, 4085U}) {
        ZOFLVD_MBLK bad;
        EXPECT_EQ(zoflvd_mblk_ctor(&bad, bytes), -1);
        EXPECT_EQ(zoflvd_mblk_elem_add(&bad, &bad), -1);
        EXPECT_EQ(zoflvd_mblk_elem_nth(&bad, 0), nullptr);
    }
}
