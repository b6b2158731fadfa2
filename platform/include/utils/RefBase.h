// SPDX-License-Identifier: Apache-2.0
/// @file
/// Stand-in for the platform's reference-counted base class.
#pragma once

#include <utils/StrongPointer.h>

#include <atomic>
#include <cstdint>

namespace android {

/// Base of objects on the heap that delete themselves with their last strong reference. Counting is
/// atomic; the count starts at zero, so that the first reference is the one that `sp` takes.
class RefBase {
public:
    /// @param id  the holder of the reference, for debugging only; may be null
    void incStrong(const void* id) const;
    /// Deletes the object when this was its last reference.
    void decStrong(const void* id) const;
    int32_t getStrongCount() const;

protected:
    RefBase();
    virtual ~RefBase();

    /// Runs after the first reference was taken.
    virtual void onFirstRef();
    /// Runs before the deletion.
    virtual void onLastStrongRef(const void* id);
    /// For weak references, which the stand-in does not have. Never called.
    virtual bool onIncStrongAttempted(uint32_t flags, const void* id);
    /// For weak references, which the stand-in does not have. Never called.
    virtual void onLastWeakRef(const void* id);

private:
    RefBase(const RefBase&) = delete;
    RefBase& operator=(const RefBase&) = delete;

    mutable std::atomic<int32_t> mStrong;
};

} // namespace android
