#include <utils/RefBase.h>

namespace android {

namespace {
// The strong count before the first incStrong, so onFirstRef can be detected
// and an object that was never strongly held can be told apart.
constexpr int32_t INITIAL_STRONG_VALUE = 1 << 28;
}  // namespace

class RefBase::weakref_impl : public RefBase::weakref_type {
  public:
    explicit weakref_impl(RefBase* base) : mStrong(INITIAL_STRONG_VALUE), mWeak(0), mBase(base) {}

    std::atomic<int32_t> mStrong;
    std::atomic<int32_t> mWeak;
    RefBase* const mBase;
};

RefBase::RefBase() : mRefs(new weakref_impl(this)) {}

RefBase::~RefBase() {
    const int32_t strong = mRefs->mStrong.load(std::memory_order_relaxed);
    if (strong == INITIAL_STRONG_VALUE) {
        // Never strongly held: deleted directly or by the last weak reference.
        if (mRefs->mWeak.load(std::memory_order_relaxed) == 0) {
            delete mRefs;
        }
    }
    // Otherwise the last decWeak frees the bookkeeping.
}

void RefBase::incStrong(const void* id) const {
    weakref_impl* const refs = mRefs;
    refs->incWeak(id);
    const int32_t c = refs->mStrong.fetch_add(1, std::memory_order_relaxed);
    if (c != INITIAL_STRONG_VALUE) {
        return;
    }
    refs->mStrong.fetch_sub(INITIAL_STRONG_VALUE, std::memory_order_relaxed);
    const_cast<RefBase*>(this)->onFirstRef();
}

void RefBase::decStrong(const void* id) const {
    weakref_impl* const refs = mRefs;
    const int32_t c = refs->mStrong.fetch_sub(1, std::memory_order_acq_rel);
    if (c == 1) {
        const_cast<RefBase*>(this)->onLastStrongRef(id);
        delete this;
    }
    refs->decWeak(id);
}

void RefBase::forceIncStrong(const void* id) const {
    weakref_impl* const refs = mRefs;
    refs->incWeak(id);
    const int32_t c = refs->mStrong.fetch_add(1, std::memory_order_relaxed);
    if (c == INITIAL_STRONG_VALUE) {
        refs->mStrong.fetch_sub(INITIAL_STRONG_VALUE, std::memory_order_relaxed);
        const_cast<RefBase*>(this)->onFirstRef();
    }
}

int32_t RefBase::getStrongCount() const {
    return mRefs->mStrong.load(std::memory_order_relaxed);
}

RefBase* RefBase::weakref_type::refBase() const {
    return static_cast<const weakref_impl*>(this)->mBase;
}

void RefBase::weakref_type::incWeak(const void* /*id*/) {
    static_cast<weakref_impl*>(this)->mWeak.fetch_add(1, std::memory_order_relaxed);
}

void RefBase::weakref_type::decWeak(const void* id) {
    weakref_impl* const impl = static_cast<weakref_impl*>(this);
    const int32_t c = impl->mWeak.fetch_sub(1, std::memory_order_acq_rel);
    if (c != 1) {
        return;
    }
    if (impl->mStrong.load(std::memory_order_relaxed) == INITIAL_STRONG_VALUE) {
        // Only ever weakly held: the last weak reference owns the object, and
        // ~RefBase frees this bookkeeping.
        impl->mBase->onLastWeakRef(id);
        delete impl->mBase;
    } else {
        delete impl;
    }
}

bool RefBase::weakref_type::attemptIncStrong(const void* id) {
    incWeak(id);
    weakref_impl* const impl = static_cast<weakref_impl*>(this);
    int32_t curCount = impl->mStrong.load(std::memory_order_relaxed);
    for (;;) {
        if (curCount == INITIAL_STRONG_VALUE) {
            if (impl->mStrong.compare_exchange_weak(curCount, 1, std::memory_order_relaxed)) {
                impl->mBase->onFirstRef();
                return true;
            }
        } else if (curCount <= 0) {
            break;
        } else if (impl->mStrong.compare_exchange_weak(curCount, curCount + 1,
                                                       std::memory_order_relaxed)) {
            return true;
        }
    }
    decWeak(id);
    return false;
}

int32_t RefBase::weakref_type::getWeakCount() const {
    return static_cast<const weakref_impl*>(this)->mWeak.load(std::memory_order_relaxed);
}

RefBase::weakref_type* RefBase::createWeak(const void* id) const {
    mRefs->incWeak(id);
    return mRefs;
}

RefBase::weakref_type* RefBase::getWeakRefs() const {
    return mRefs;
}

void RefBase::onFirstRef() {}

void RefBase::onLastStrongRef(const void* /*id*/) {}

bool RefBase::onIncStrongAttempted(uint32_t /*flags*/, const void* /*id*/) {
    return false;
}

void RefBase::onLastWeakRef(const void* /*id*/) {}

}  // namespace android
