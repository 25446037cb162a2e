#pragma once
// sp<T>: Android's strong pointer to a reference-counted object (RefBase or
// LightRefBase). Copying an sp increments the object's strong count; the
// object deletes itself when the last strong reference goes away. An sp
// itself is not thread-safe (like a raw pointer), the count it manipulates is.
//
// As on the device (API 28) there is no operator bool: compare with nullptr.

#include <cstddef>
#include <utility>

namespace android {

template <typename T>
class wp;

template <typename T>
class sp {
  public:
    inline sp() : m_ptr(nullptr) {}

    sp(T* other);  // NOLINT(google-explicit-constructor)
    sp(const sp<T>& other);
    sp(sp<T>&& other) noexcept : m_ptr(other.m_ptr) { other.m_ptr = nullptr; }
    template <typename U>
    sp(U* other);  // NOLINT(google-explicit-constructor)
    template <typename U>
    sp(const sp<U>& other);  // NOLINT(google-explicit-constructor)
    template <typename U>
    sp(sp<U>&& other) noexcept;  // NOLINT(google-explicit-constructor)

    ~sp();

    sp& operator=(T* other);
    sp& operator=(const sp<T>& other);
    sp& operator=(sp<T>&& other) noexcept;
    template <typename U>
    sp& operator=(const sp<U>& other);
    template <typename U>
    sp& operator=(sp<U>&& other) noexcept;
    template <typename U>
    sp& operator=(U* other);

    // Takes over a reference the caller already holds (used by wp::promote).
    void force_set(T* other);

    void clear();

    inline T& operator*() const { return *m_ptr; }
    inline T* operator->() const { return m_ptr; }
    inline T* get() const { return m_ptr; }

#define ANDROID_SP_COMPARE(_op_)                      \
    inline bool operator _op_(const sp<T>& o) const { \
        return m_ptr _op_ o.m_ptr;                    \
    }                                                 \
    inline bool operator _op_(const T* o) const {     \
        return m_ptr _op_ o;                          \
    }                                                 \
    inline bool operator _op_(std::nullptr_t) const { \
        return m_ptr _op_ nullptr;                    \
    }                                                 \
    template <typename U>                             \
    inline bool operator _op_(const sp<U>& o) const { \
        return m_ptr _op_ o.m_ptr;                    \
    }                                                 \
    template <typename U>                             \
    inline bool operator _op_(const U* o) const {     \
        return m_ptr _op_ o;                          \
    }

    ANDROID_SP_COMPARE(==)
    ANDROID_SP_COMPARE(!=)
#undef ANDROID_SP_COMPARE
    inline bool operator<(const sp<T>& o) const {
        return m_ptr < o.m_ptr;
    }

  private:
    template <typename Y>
    friend class sp;
    template <typename Y>
    friend class wp;
    T* m_ptr;
};

template <typename T>
inline bool operator==(std::nullptr_t, const sp<T>& p) {
    return p == nullptr;
}
template <typename T>
inline bool operator!=(std::nullptr_t, const sp<T>& p) {
    return p != nullptr;
}

template <typename T>
sp<T>::sp(T* other) : m_ptr(other) {
    if (other) {
        other->incStrong(this);
    }
}

template <typename T>
sp<T>::sp(const sp<T>& other) : m_ptr(other.m_ptr) {
    if (m_ptr) {
        m_ptr->incStrong(this);
    }
}

template <typename T>
template <typename U>
sp<T>::sp(U* other) : m_ptr(other) {
    if (other) {
        static_cast<T*>(other)->incStrong(this);
    }
}

template <typename T>
template <typename U>
sp<T>::sp(const sp<U>& other) : m_ptr(other.m_ptr) {
    if (m_ptr) {
        m_ptr->incStrong(this);
    }
}

template <typename T>
template <typename U>
sp<T>::sp(sp<U>&& other) noexcept : m_ptr(other.m_ptr) {
    other.m_ptr = nullptr;
}

template <typename T>
sp<T>::~sp() {
    if (m_ptr) {
        m_ptr->decStrong(this);
    }
}

template <typename T>
sp<T>& sp<T>::operator=(const sp<T>& other) {
    T* otherPtr(other.m_ptr);
    if (otherPtr) {
        otherPtr->incStrong(this);
    }
    if (m_ptr) {
        m_ptr->decStrong(this);
    }
    m_ptr = otherPtr;
    return *this;
}

template <typename T>
sp<T>& sp<T>::operator=(sp<T>&& other) noexcept {
    if (this != &other) {
        if (m_ptr) {
            m_ptr->decStrong(this);
        }
        m_ptr = other.m_ptr;
        other.m_ptr = nullptr;
    }
    return *this;
}

template <typename T>
sp<T>& sp<T>::operator=(T* other) {
    if (other) {
        other->incStrong(this);
    }
    if (m_ptr) {
        m_ptr->decStrong(this);
    }
    m_ptr = other;
    return *this;
}

template <typename T>
template <typename U>
sp<T>& sp<T>::operator=(const sp<U>& other) {
    T* otherPtr(other.m_ptr);
    if (otherPtr) {
        otherPtr->incStrong(this);
    }
    if (m_ptr) {
        m_ptr->decStrong(this);
    }
    m_ptr = otherPtr;
    return *this;
}

template <typename T>
template <typename U>
sp<T>& sp<T>::operator=(sp<U>&& other) noexcept {
    if (m_ptr) {
        m_ptr->decStrong(this);
    }
    m_ptr = other.m_ptr;
    other.m_ptr = nullptr;
    return *this;
}

template <typename T>
template <typename U>
sp<T>& sp<T>::operator=(U* other) {
    if (other) {
        static_cast<T*>(other)->incStrong(this);
    }
    if (m_ptr) {
        m_ptr->decStrong(this);
    }
    m_ptr = other;
    return *this;
}

template <typename T>
void sp<T>::force_set(T* other) {
    m_ptr = other;
}

template <typename T>
void sp<T>::clear() {
    if (m_ptr) {
        m_ptr->decStrong(this);
        m_ptr = nullptr;
    }
}

}  // namespace android
