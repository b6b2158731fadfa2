// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>
#include <utils/RefBase.h>

namespace android {

RefBase::RefBase() : mStrong(0) {}
RefBase::~RefBase() = default;

void RefBase::onFirstRef() {}
void RefBase::onLastStrongRef(const void*) {}
bool RefBase::onIncStrongAttempted(uint32_t, const void*)
{
    return false;
}
void RefBase::onLastWeakRef(const void*) {}

void RefBase::incStrong(const void*) const
{
    if (mStrong.fetch_add(1, std::memory_order_relaxed) == 0)
        const_cast<RefBase*>(this)->onFirstRef();
}

void RefBase::decStrong(const void* id) const
{
    // Release: what this thread did to the object happens before its deletion by another.
    const int32_t before = mStrong.fetch_sub(1, std::memory_order_acq_rel);
    if (before < 1)
        __android_log_assert("before >= 1", "RefBase", "decStrong() without a reference");
    if (before > 1)
        return;
    const_cast<RefBase*>(this)->onLastStrongRef(id);
    delete this;
}

int32_t RefBase::getStrongCount() const
{
    return mStrong.load(std::memory_order_relaxed);
}

} // namespace android
