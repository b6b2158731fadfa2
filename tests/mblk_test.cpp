// SPDX-License-Identifier: Apache-2.0
#include "tests/support/heap_faults.h"
#include "tests/support/log_capture.h"
#include "zoflv/dmx/zoflvd_mblk.h"

#include <algorithm>
#include <cstring>

namespace {

int64_t key_of(const void* elem)
{
    return *static_cast<const int64_t*>(elem);
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
};

bool same(const ZOFLVD_MBLK& a, const ZOFLVD_MBLK& b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

} // namespace

TEST(Mblk, FillsBlocksInOrder)
{
    const struct {
        int elements;
        uint32_t bytes, blocks;
    } cases[] = {{0, 16, 0}, {255, 16, 1}, {256, 16, 2}, {511, 16, 3}, {171, 24, 2}, {3, 4084, 3}};
    for (const auto& c : cases) {
        List list(c.elements, c.bytes);
        EXPECT_EQ(list.blk_cnt, c.blocks);
        EXPECT_EQ(zoflvd_mblk_elem_cnt(&list), static_cast<uint32_t>(c.elements));
        ZOFLVD_MBLK_POS pos = {};
        const void* elem = zoflvd_mblk_elem_first(&list, &pos);
        for (int i = 0; i < c.elements; ++i) {
            ASSERT_TRUE(elem);
            ASSERT_EQ(key_of(elem), i * 10);
            ASSERT_EQ(zoflvd_mblk_elem_nth(&list, static_cast<uint32_t>(i)), elem);
            elem = zoflvd_mblk_elem_next(&list, &pos);
        }
        EXPECT_EQ(elem, nullptr);
        EXPECT_TRUE(!pos.node && !pos.idx);
        EXPECT_EQ(zoflvd_mblk_elem_nth(&list, list.elem_cnt), nullptr);
        zoflvd_mblk_dtor(&list);
        EXPECT_TRUE(same(list, {}));
    }
}

TEST(Mblk, FindsTheSpanOfEveryKey)
{
    for (const int elements : {0, 1, 2, 255, 256, 1275, 1300}) {
        List list(elements);
        for (int reach = std::min(elements, 255);; reach = elements) { // unindexed: the first block
            for (int64_t key = -5; key < elements * 10 + 10; key += 5) {
                const void* elem = zoflvd_mblk_elem_find(&list, &key, compare);
                ASSERT_EQ(elem != nullptr, elements > 0 && key >= 0) << elements << " " << key;
                if (elem) {
                    ASSERT_LE(key_of(elem), key);
                    ASSERT_TRUE(key <= key_of(elem) + 10 || key_of(elem) == reach * 10 - 10) << key;
                }
            }
            if (list.meta_array || elements < 256)
                break;
            ASSERT_EQ(list.index(), 0);
        }
    }
}

TEST(Mblk, ProbeOrderDecidesAtBlockBorders)
{
    const struct {
        int blocks, border, chosen;
    } cases[] = {{2, 1, 0}, {3, 1, 1}, {3, 2, 1}, {4, 2, 1}, {4, 3, 2}, {5, 1, 0}, {5, 2, 2}};
    for (const auto& c : cases) {
        List list(c.blocks * 255);
        ASSERT_EQ(list.index(), 0);
        const int64_t key = c.border * 2550; // the border block's first key
        const void* elem = zoflvd_mblk_elem_find(&list, &key, compare);
        ASSERT_TRUE(elem);
        EXPECT_EQ(key_of(elem), c.chosen == c.border ? key : key - 10) << c.blocks << c.border;
    }
    List unsorted(0);
    for (int64_t i = 0; i < 2000; ++i)
        ASSERT_EQ(unsorted.add(i * 7919 % 2003 - 1000), 0);
    ASSERT_EQ(unsorted.index(), 0);
    for (int64_t key = -1100; key < 1100; ++key)
        zoflvd_mblk_elem_find(&unsorted, &key, compare); // ends
}

TEST(Mblk, Failures)
{
    LogCapture log;
    HeapFaults heap;
    List list(255);
    EXPECT_EQ(list.index(), 0);
    EXPECT_EQ(list.meta_array, nullptr); // one block needs none
    ZOFLVD_MBLK before = list;
    heap.fail(0, true);
    EXPECT_EQ(list.add(7777), -5);
    EXPECT_TRUE(same(before, list) && !list.last->next);
    heap.fail(-1);
    EXPECT_EQ(list.add(9999), 0);
    EXPECT_EQ(list.last->prev, list.first);
    before = list;
    heap.fail(0);
    EXPECT_EQ(list.index(), -5);
    EXPECT_TRUE(same(before, list));
    EXPECT_EQ(list.index(), 0);
    EXPECT_EQ(list.meta_array[1].key, 9999);
    EXPECT_TRUE(log.is({}));
    EXPECT_EQ(list.index(), -3);
    EXPECT_TRUE(log.is({"E zoflvd_mblk: [index] err: meta_array index already built!"}));

    for (const uint32_t bytes : {0U, 4085U, UINT32_MAX}) {
        before.elem_size = bytes;
        EXPECT_EQ(zoflvd_mblk_ctor(&before, bytes), -1);
        EXPECT_TRUE(same(before, {}));
        EXPECT_EQ(zoflvd_mblk_elem_add(&before, &before), -1);
    }
}
