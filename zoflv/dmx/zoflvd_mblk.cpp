// SPDX-License-Identifier: Apache-2.0
#include "zoflv/dmx/zoflvd_mblk.h"

#include "zoflv/dmx/zoflv_err.h"

#include <android/log.h>
#include <cstdlib>
#include <cstring>

namespace {

// The elements start after the header: sizeof is a multiple of the pointers' alignment, so on a
// 64-bit host they start at a multiple of 8, and on a 32-bit one the block takes 4096 bytes.
constexpr size_t header_size = sizeof(ZOFLVD_MBLK_NODE);
static_assert(sizeof(void*) != 4 || header_size + ZOFLVD_MBLK_BYTES == 4096, "one page");

uint32_t capacity(const ZOFLVD_MBLK* list)
{
    return ZOFLVD_MBLK_BYTES / list->elem_size;
}

const uint8_t* element(const ZOFLVD_MBLK* list, const ZOFLVD_MBLK_NODE* node, uint32_t idx)
{
    return zoflvd_mblk_data(node) + size_t{idx} * list->elem_size;
}

ZOFLVD_MBLK_NODE* append_block(ZOFLVD_MBLK* list)
{
    auto* node = static_cast<ZOFLVD_MBLK_NODE*>(std::malloc(header_size + ZOFLVD_MBLK_BYTES));
    if (!node)
        return nullptr;
    node->next = nullptr;
    node->prev = list->last;
    node->cnt = 0;
    if (list->last)
        list->last->next = node;
    list->last = node;
    if (!list->first)
        list->first = node;
    ++list->blk_cnt;
    return node;
}

// The block in which the key lies. When the key equals a later block's first key, which of the two
// candidates is found depends on the probe order; callers rely on this one.
const ZOFLVD_MBLK_NODE* find_block(const ZOFLVD_MBLK* list, int64_t key)
{
    if (list->blk_cnt < 2 || !list->meta_array)
        return list->first;
    const ZOFLVD_MBLK_META* meta = list->meta_array;
    int64_t lo = 0;
    int64_t hi = int64_t{list->blk_cnt} - 1;
    while (lo <= hi) {
        const int64_t mid = (lo + hi) / 2;
        if (key < meta[mid].key) {
            hi = mid - 1;
        } else if (key == meta[mid].key || mid == int64_t{list->blk_cnt} - 1 ||
                   meta[mid + 1].key >= key) {
            return meta[mid].node;
        } else {
            lo = mid + 1;
        }
    }
    return nullptr;
}

} // namespace

int zoflvd_mblk_ctor(ZOFLVD_MBLK* list, uint32_t elem_size)
{
    *list = ZOFLVD_MBLK{};
    if (elem_size == 0 || elem_size > ZOFLVD_MBLK_BYTES)
        return ZOFLV_ERR_FAIL;
    list->elem_size = elem_size;
    return ZOFLV_OK;
}

void zoflvd_mblk_dtor(ZOFLVD_MBLK* list)
{
    ZOFLVD_MBLK_NODE* node = list->first;
    while (node) {
        ZOFLVD_MBLK_NODE* next = node->next;
        std::free(node);
        node = next;
    }
    std::free(list->meta_array);
    *list = ZOFLVD_MBLK{};
}

int zoflvd_mblk_elem_add(ZOFLVD_MBLK* list, const void* elem)
{
    if (list->elem_size == 0)
        return ZOFLV_ERR_FAIL;
    ZOFLVD_MBLK_NODE* node = list->last;
    if (!node || node->cnt >= capacity(list))
        node = append_block(list);
    if (!node)
        return ZOFLV_ERR_MALLOC;
    uint8_t* slot = reinterpret_cast<uint8_t*>(node) + header_size;
    std::memcpy(slot + size_t{node->cnt} * list->elem_size, elem, list->elem_size);
    ++node->cnt;
    ++list->elem_cnt;
    return ZOFLV_OK;
}

int zoflvd_mblk_upd_meta(ZOFLVD_MBLK* list, ZOFLVD_MBLK_KEY key_of)
{
    if (list->meta_array) {
        __android_log_print(ANDROID_LOG_ERROR, "zoflvd_mblk",
                            "[index] err: meta_array index already built!");
        return ZOFLV_ERR_FORMAT;
    }
    if (list->blk_cnt < 2)
        return ZOFLV_OK;
    ZOFLVD_MBLK_META* meta =
        static_cast<ZOFLVD_MBLK_META*>(std::calloc(list->blk_cnt, sizeof(ZOFLVD_MBLK_META)));
    if (!meta)
        return ZOFLV_ERR_MALLOC;
    uint32_t i = 0;
    for (ZOFLVD_MBLK_NODE* node = list->first; node; node = node->next)
        meta[i++] = {node, key_of(zoflvd_mblk_data(node))};
    list->meta_array = meta;
    return ZOFLV_OK;
}

const void* zoflvd_mblk_elem_find(const ZOFLVD_MBLK* list, const int64_t* key, ZOFLVD_MBLK_CMP cmp,
                                  ZOFLVD_MBLK_POS* pos)
{
    const ZOFLVD_MBLK_NODE* node = find_block(list, *key);
    if (!node)
        return nullptr;
    const uint8_t* first = zoflvd_mblk_data(node);
    const void* elem = zoflvd_bsearch(first, node->cnt, list->elem_size, key, cmp, node);
    if (elem && pos) {
        const size_t at = static_cast<size_t>(static_cast<const uint8_t*>(elem) - first);
        *pos = {node, static_cast<uint32_t>(at / list->elem_size)};
    }
    return elem;
}

const void* zoflvd_bsearch(const void* base, uint32_t cnt, uint32_t size, const void* key,
                           ZOFLVD_MBLK_CMP cmp, const void* ctx)
{
    int64_t lo = 0;
    int64_t hi = int64_t{cnt} - 1;
    while (lo <= hi) {
        const int64_t mid = (lo + hi) / 2;
        const uint8_t* elem = static_cast<const uint8_t*>(base) + static_cast<size_t>(mid) * size;
        const int order = cmp(key, elem, ctx);
        if (order == 0)
            return elem;
        if (order > 0)
            lo = mid + 1;
        else
            hi = mid - 1;
    }
    return nullptr;
}

const void* zoflvd_mblk_elem_first(const ZOFLVD_MBLK* list, ZOFLVD_MBLK_POS* pos)
{
    if (list->blk_cnt == 0 || list->elem_cnt == 0 || list->first->cnt == 0)
        return nullptr;
    *pos = {list->first, 0};
    return zoflvd_mblk_data(list->first);
}

const void* zoflvd_mblk_elem_next(const ZOFLVD_MBLK* list, ZOFLVD_MBLK_POS* pos)
{
    if (!pos->node)
        return nullptr;
    ++pos->idx;
    if (pos->idx < pos->node->cnt)
        return element(list, pos->node, pos->idx);
    *pos = {pos->node->next, 0};
    return pos->node ? zoflvd_mblk_data(pos->node) : nullptr;
}

const void* zoflvd_mblk_elem_nth(const ZOFLVD_MBLK* list, uint32_t n)
{
    if (n >= list->elem_cnt)
        return nullptr;
    const ZOFLVD_MBLK_NODE* node = list->first;
    for (uint32_t blocks = n / capacity(list); node && blocks > 0; --blocks)
        node = node->next;
    const uint32_t idx = n % capacity(list);
    if (!node || idx >= node->cnt)
        return nullptr;
    return element(list, node, idx);
}

const uint8_t* zoflvd_mblk_data(const ZOFLVD_MBLK_NODE* node)
{
    return reinterpret_cast<const uint8_t*>(node) + header_size;
}

const uint8_t* zoflvd_mblk_data_end(const ZOFLVD_MBLK_NODE* node, uint32_t elem_size)
{
    return zoflvd_mblk_data(node) + size_t{node->cnt} * elem_size;
}

uint32_t zoflvd_mblk_elem_cnt(const ZOFLVD_MBLK* list)
{
    return list->elem_cnt;
}
