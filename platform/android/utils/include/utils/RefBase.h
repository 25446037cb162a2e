#pragma once
// Android's intrusive reference counting (libutils RefBase) and the weak
// pointer wp<T>.
//
// An object derived from RefBase lives while it has strong references (sp<T>)
// and is deleted when the last one is dropped, after onLastStrongRef(). Its
// bookkeeping (weakref_type) lives on until the last weak reference is gone,
// so a wp<T> can safely try to promote itself to an sp<T> after the object
// died: promote() then yields nullptr. An object that only ever had weak
// references is deleted when the last of them goes, as on the device.
// All counting operations are thread-safe (atomics); sp and wp instances
// themselves are not.
//
// Simplification: the OBJECT_LIFETIME_WEAK mode and the debugging reference
// tracker are not provided.

#include <stdint.h>

#include <atomic>
#include <cstddef>

#include <utils/StrongPointer.h>

namespace android {

class RefBase {
  public:
    void incStrong(const void* id) const;
    void decStrong(const void* id) const;
    // Like incStrong, but also allowed while the object has no strong reference.
    void forceIncStrong(const void* id) const;
    int32_t getStrongCount() const;

    class weakref_type {
      public:
        RefBase* refBase() const;
        void incWeak(const void* id);
        void decWeak(const void* id);
        // Takes a strong reference if the object is still alive.
        bool attemptIncStrong(const void* id);
        int32_t getWeakCount() const;
    };

    weakref_type* createWeak(const void* id) const;
    weakref_type* getWeakRefs() const;

    typedef RefBase basetype;

  protected:
    RefBase();
    virtual ~RefBase();

    // Called when the first strong reference is taken.
    virtual void onFirstRef();
    // Called when the last strong reference is dropped, just before deletion.
    virtual void onLastStrongRef(const void* id);
    virtual bool onIncStrongAttempted(uint32_t flags, const void* id);
    virtual void onLastWeakRef(const void* id);

  private:
    friend class weakref_type;
    class weakref_impl;

    RefBase(const RefBase& o);
    RefBase& operator=(const RefBase& o);

    weakref_impl* const mRefs;
};

// A lighter count for objects that never need weak references.
template <class T>
class LightRefBase {
  public:
    inline LightRefBase() : mCount(0) {}
    inline void incStrong(const void* /*id*/) const {
        mCount.fetch_add(1, std::memory_order_relaxed);
    }
    inline void decStrong(const void* /*id*/) const {
        if (mCount.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete static_cast<const T*>(this);
        }
    }
    inline int32_t getStrongCount() const { return mCount.load(std::memory_order_relaxed); }

    typedef LightRefBase<T> basetype;

  protected:
    inline ~LightRefBase() {}

  private:
    mutable std::atomic<int32_t> mCount;
};

template <typename T>
class wp {
  public:
    typedef typename RefBase::weakref_type weakref_type;

    inline wp() : m_ptr(nullptr), m_refs(nullptr) {}

    wp(T* other);  // NOLINT(google-explicit-constructor)
    wp(const wp<T>& other);
    wp(const sp<T>& other);  // NOLINT(google-explicit-constructor)
    template <typename U>
    wp(const sp<U>& other);  // NOLINT(google-explicit-constructor)
    template <typename U>
    wp(const wp<U>& other);  // NOLINT(google-explicit-constructor)

    ~wp();

    wp& operator=(T* other);
    wp& operator=(const wp<T>& other);
    wp& operator=(const sp<T>& other);
    template <typename U>
    wp& operator=(const sp<U>& other);

    // A strong pointer to the object, or nullptr when it has died.
    sp<T> promote() const;

    void clear();

    inline weakref_type* get_refs() const { return m_refs; }
    // The raw address (not safe to dereference without promote()).
    inline T* unsafe_get() const { return m_ptr; }

    inline bool operator==(const wp<T>& o) const { return m_ptr == o.m_ptr && m_refs == o.m_refs; }
    inline bool operator!=(const wp<T>& o) const { return !operator==(o); }
    inline bool operator==(const T* o) const { return m_ptr == o; }
    inline bool operator!=(const T* o) const { return m_ptr != o; }
    inline bool operator<(const wp<T>& o) const { return m_ptr < o.m_ptr; }

  private:
    template <typename Y>
    friend class wp;

    T* m_ptr;
    weakref_type* m_refs;
};

template <typename T>
wp<T>::wp(T* other) : m_ptr(other), m_refs(other ? other->createWeak(this) : nullptr) {}

template <typename T>
wp<T>::wp(const wp<T>& other) : m_ptr(other.m_ptr), m_refs(other.m_refs) {
    if (m_ptr) {
        m_refs->incWeak(this);
    }
}

template <typename T>
wp<T>::wp(const sp<T>& other)
    : m_ptr(other.get()), m_refs(m_ptr ? m_ptr->createWeak(this) : nullptr) {}

template <typename T>
template <typename U>
wp<T>::wp(const sp<U>& other)
    : m_ptr(other.get()), m_refs(m_ptr ? m_ptr->createWeak(this) : nullptr) {}

template <typename T>
template <typename U>
wp<T>::wp(const wp<U>& other) : m_ptr(other.m_ptr), m_refs(other.m_refs) {
    if (m_ptr) {
        m_refs->incWeak(this);
    }
}

template <typename T>
wp<T>::~wp() {
    if (m_ptr) {
        m_refs->decWeak(this);
    }
}

template <typename T>
wp<T>& wp<T>::operator=(T* other) {
    weakref_type* newRefs = other ? other->createWeak(this) : nullptr;
    if (m_ptr) {
        m_refs->decWeak(this);
    }
    m_ptr = other;
    m_refs = newRefs;
    return *this;
}

template <typename T>
wp<T>& wp<T>::operator=(const wp<T>& other) {
    weakref_type* otherRefs(other.m_refs);
    T* otherPtr(other.m_ptr);
    if (otherPtr) {
        otherRefs->incWeak(this);
    }
    if (m_ptr) {
        m_refs->decWeak(this);
    }
    m_ptr = otherPtr;
    m_refs = otherRefs;
    return *this;
}

template <typename T>
wp<T>& wp<T>::operator=(const sp<T>& other) {
    return operator=(other.get());
}

template <typename T>
template <typename U>
wp<T>& wp<T>::operator=(const sp<U>& other) {
    return operator=(static_cast<T*>(other.get()));
}

template <typename T>
sp<T> wp<T>::promote() const {
    sp<T> result;
    if (m_ptr && m_refs->attemptIncStrong(&result)) {
        result.force_set(m_ptr);
    }
    return result;
}

template <typename T>
void wp<T>::clear() {
    if (m_ptr) {
        m_refs->decWeak(this);
        m_ptr = nullptr;
        m_refs = nullptr;
    }
}

}  // namespace android
