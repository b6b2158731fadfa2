// SPDX-License-Identifier: Apache-2.0
/// @file
/// An append-only list of fixed-size elements in equal blocks, with a two-level binary search.
///
/// Elements are copied in and never move: a pointer to one stays valid until the destructor.
#pragma once

#include <cstddef>
#include <cstdint>

/// Element bytes in a block; with a 32-bit host's 12-byte header one 4096-byte allocation.
constexpr uint32_t ZOFLVD_MBLK_BYTES = 4084;

/// One block. The elements follow, packed, at zoflvd_mblk_data().
struct ZOFLVD_MBLK_NODE {
    ZOFLVD_MBLK_NODE* next; ///< null at the end
    ZOFLVD_MBLK_NODE* prev; ///< null at the start
    uint32_t cnt;           ///< elements used
};

/// One entry of the block table.
struct ZOFLVD_MBLK_META {
    ZOFLVD_MBLK_NODE* node;
    int64_t key; ///< key of the block's first element when the table was built
};

/// The list; all zero when empty. It owns its blocks and the table.
struct ZOFLVD_MBLK {
    uint32_t blk_cnt;   ///< blocks in the chain
    uint32_t elem_cnt;  ///< elements in all blocks
    uint32_t elem_size; ///< bytes per element
    ZOFLVD_MBLK_NODE* first;
    ZOFLVD_MBLK_NODE* last;       ///< the block appended to
    ZOFLVD_MBLK_META* meta_array; ///< one entry per block; null until built
};

/// An iteration cursor.
struct ZOFLVD_MBLK_POS {
    const ZOFLVD_MBLK_NODE* node;
    uint32_t idx; ///< element in the block
};

/// Negative when `key` lies before the element, 0 when the element matches, positive when the key
/// lies after it. `ctx` is the block that holds the element, or the context of zoflvd_bsearch().
using ZOFLVD_MBLK_CMP = int (*)(const void* key, const void* elem, const void* ctx);
using ZOFLVD_MBLK_KEY = int64_t (*)(const void* elem);

/// Sets the list to empty, without releasing anything.
/// @return 0, or -1 with the list all zero for an element size of 0 or above ZOFLVD_MBLK_BYTES
int zoflvd_mblk_ctor(ZOFLVD_MBLK* list, uint32_t elem_size);

/// Releases everything and sets the list to all zero.
void zoflvd_mblk_dtor(ZOFLVD_MBLK* list);

/// Appends a copy of the element.
/// @return 0; -5 when no block can be allocated (the list is unchanged); -1 without element size
int zoflvd_mblk_elem_add(ZOFLVD_MBLK* list, const void* elem);

/// Builds the block table, after the last append; a list of fewer than 2 blocks needs none.
/// @return 0; -3 when it is built already; -5 when memory runs out (the list is unchanged)
int zoflvd_mblk_upd_meta(ZOFLVD_MBLK* list, ZOFLVD_MBLK_KEY key_of);

/// Searches the sorted list for the element that matches `*key`. Null when there is none.
/// @param pos  receives the cursor on the element found; may be null
const void* zoflvd_mblk_elem_find(const ZOFLVD_MBLK* list, const int64_t* key, ZOFLVD_MBLK_CMP cmp,
                                  ZOFLVD_MBLK_POS* pos = nullptr);

/// Binary search over `cnt` elements of `size` bytes at `base`. Null when nothing matches.
const void* zoflvd_bsearch(const void* base, uint32_t cnt, uint32_t size, const void* key,
                           ZOFLVD_MBLK_CMP cmp, const void* ctx);

/// The first element, with the cursor on it; null on an empty list.
const void* zoflvd_mblk_elem_first(const ZOFLVD_MBLK* list, ZOFLVD_MBLK_POS* pos);

/// The element after the cursor, which moves there; null, clearing the cursor, at the end.
const void* zoflvd_mblk_elem_next(const ZOFLVD_MBLK* list, ZOFLVD_MBLK_POS* pos);

/// Element `n`, from 0; null when there are not that many. Completes the list: only tests call it.
const void* zoflvd_mblk_elem_nth(const ZOFLVD_MBLK* list, uint32_t n);

/// The block's first element.
const uint8_t* zoflvd_mblk_data(const ZOFLVD_MBLK_NODE* node);

/// The address after the block's last used element.
const uint8_t* zoflvd_mblk_data_end(const ZOFLVD_MBLK_NODE* node, uint32_t elem_size);

uint32_t zoflvd_mblk_elem_cnt(const ZOFLVD_MBLK* list);
