// SPDX-License-Identifier: Apache-2.0
#include "tests/support/heap_faults.h"

#include <cstddef>
#include <malloc.h>
#include <new>

using Heap = HeapFaults;

// `new (std::nothrow)`, in whose name m stands for unsigned long, j for unsigned int.
#if __SIZE_WIDTH__ == 64
#define REAL_NEW __real__ZnwmRKSt9nothrow_t
#define WRAP_NEW __wrap__ZnwmRKSt9nothrow_t
#else
#define REAL_NEW __real__ZnwjRKSt9nothrow_t
#define WRAP_NEW __wrap__ZnwjRKSt9nothrow_t
#endif

// The linker sends the program's calls to __wrap_... and gives it the true ones as __real_...
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void __real_free(void* block);
void* REAL_NEW(size_t size, const std::nothrow_t& tag);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void __wrap_free(void* block);
void* WRAP_NEW(size_t size, const std::nothrow_t& tag);
}

static bool refused()
{
    const int n = Heap::active ? Heap::allocations++ : 0;
    return Heap::active && Heap::fail_from >= 0 &&
           (Heap::fail_on ? n >= Heap::fail_from : n == Heap::fail_from);
}

static void* taken(void* block)
{
    const long long size =
        block && Heap::active ? static_cast<long long>(malloc_usable_size(block)) : 0;
    const long long now = Heap::held += size;
    for (long long peak = Heap::highest; peak < now;)
        Heap::highest.compare_exchange_weak(peak, now);
    return block;
}

void* __wrap_malloc(size_t size)
{
    return refused() ? nullptr : taken(__real_malloc(size));
}

void* __wrap_calloc(size_t count, size_t size)
{
    return refused() ? nullptr : taken(__real_calloc(count, size));
}

void __wrap_free(void* block)
{
    if (block && Heap::active)
        Heap::held -= static_cast<long long>(malloc_usable_size(block));
    __real_free(block);
}

void* WRAP_NEW(size_t size, const std::nothrow_t& tag)
{
    return refused() ? nullptr : REAL_NEW(size, tag);
}

HeapFaults::HeapFaults()
{
    held = 0;
    fail(-1);
    active = true;
}

void HeapFaults::fail(int n, bool sticky)
{
    allocations = 0;
    highest = held.load();
    fail_from = n;
    fail_on = sticky;
}
