// SPDX-License-Identifier: Apache-2.0
/// @file
/// Stand-in for the platform's strong pointer to a RefBase.
#pragma once

#include <utility>

namespace android {

/// Holds one reference of the object it points to, or none when null. One `sp` belongs to one
/// thread at a time; the object's count is shared by all.
template <typename T>
class sp {
public:
    sp() : mPtr(nullptr) {}
    sp(T* other) : mPtr(other) { take(); } // implicit, as a pointer is used in its place
    sp(const sp& other) : mPtr(other.mPtr) { take(); }
    sp(sp&& other) noexcept : mPtr(std::exchange(other.mPtr, nullptr)) {}
    template <typename U>
    sp(U* other) : mPtr(other)
    {
        take();
    }
    template <typename U>
    sp(const sp<U>& other) : mPtr(other.get())
    {
        take();
    }
    ~sp() { clear(); }

    /// By value: serves pointers, copies and moves, and makes self-assignment harmless.
    sp& operator=(sp other) noexcept
    {
        std::swap(mPtr, other.mPtr);
        return *this;
    }

    /// Gives the reference up. The pointer is null already when the object's destructor runs.
    void clear()
    {
        if (T* old = std::exchange(mPtr, nullptr))
            old->decStrong(this);
    }

    T* get() const { return mPtr; }
    T& operator*() const { return *mPtr; }
    T* operator->() const { return mPtr; }
    explicit operator bool() const { return mPtr != nullptr; }

private:
    void take()
    {
        if (mPtr)
            mPtr->incStrong(this);
    }

    T* mPtr;
};

template <typename T, typename U>
bool operator==(const sp<T>& a, const sp<U>& b)
{
    return a.get() == b.get();
}
template <typename T, typename U>
bool operator!=(const sp<T>& a, const sp<U>& b)
{
    return a.get() != b.get();
}
template <typename T, typename U>
bool operator==(const sp<T>& a, const U* b)
{
    return a.get() == b;
}
template <typename T, typename U>
bool operator!=(const sp<T>& a, const U* b)
{
    return a.get() != b;
}
template <typename T>
bool operator==(const sp<T>& a, decltype(nullptr))
{
    return a.get() == nullptr;
}
template <typename T>
bool operator!=(const sp<T>& a, decltype(nullptr))
{
    return a.get() != nullptr;
}

} // namespace android
