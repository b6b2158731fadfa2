// SPDX-License-Identifier: Apache-2.0
/// @file
/// Counts the allocations of the code under test and makes them fail.
#pragma once

#include <atomic>

/// Watches malloc, calloc, free and, without its bytes, `new (std::nothrow)` as called by the
/// objects linked into the program, while one exists; one at a time. Allocations inside shared
/// libraries, thus those of the standard containers, are not seen.
struct HeapFaults {
    HeapFaults();
    ~HeapFaults() { active = false; }
    HeapFaults(const HeapFaults&) = delete;
    HeapFaults& operator=(const HeapFaults&) = delete;

    /// Makes the `n`-th allocation from now, from 0, fail, and when `sticky` every later one; below
    /// 0 none. Sets count() to 0 and peak() to live().
    void fail(int n, bool sticky = false);

    int count() const { return allocations; }  ///< allocations, those that failed included
    long long live() const { return held; }    ///< bytes allocated and not freed
    long long peak() const { return highest; } ///< the highest live()

    static inline std::atomic<bool> active{false};
    static inline std::atomic<int> allocations{0};
    static inline std::atomic<long long> held{0};
    static inline std::atomic<long long> highest{0};
    static inline std::atomic<int> fail_from{-1};
    static inline std::atomic<bool> fail_on{false};
};
