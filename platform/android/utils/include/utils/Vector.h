#pragma once
// Android's Vector<T> (libutils), the subset binder's interfaces use
// (IServiceManager::listServices, IBinder::dump). A thin value type over
// std::vector; not thread-safe for concurrent mutation.

#include <sys/types.h>

#include <vector>

namespace android {

template <class TYPE>
class Vector {
  public:
    typedef TYPE value_type;
    typedef typename std::vector<TYPE>::iterator iterator;
    typedef typename std::vector<TYPE>::const_iterator const_iterator;

    Vector() = default;

    inline size_t size() const { return mItems.size(); }
    inline bool isEmpty() const { return mItems.empty(); }
    inline void clear() { mItems.clear(); }

    inline const TYPE& operator[](size_t index) const { return mItems[index]; }
    inline const TYPE& itemAt(size_t index) const { return mItems[index]; }
    inline TYPE& editItemAt(size_t index) { return mItems[index]; }
    inline const TYPE& top() const { return mItems.back(); }
    inline const TYPE* array() const { return mItems.data(); }

    // Returns the index of the new item.
    inline ssize_t add(const TYPE& item) {
        mItems.push_back(item);
        return static_cast<ssize_t>(mItems.size() - 1);
    }
    inline void push_back(const TYPE& item) { mItems.push_back(item); }
    inline ssize_t insertAt(const TYPE& item, size_t index) {
        mItems.insert(mItems.begin() + static_cast<ptrdiff_t>(index), item);
        return static_cast<ssize_t>(index);
    }
    inline ssize_t removeAt(size_t index) {
        mItems.erase(mItems.begin() + static_cast<ptrdiff_t>(index));
        return static_cast<ssize_t>(index);
    }

    inline iterator begin() { return mItems.begin(); }
    inline iterator end() { return mItems.end(); }
    inline const_iterator begin() const { return mItems.begin(); }
    inline const_iterator end() const { return mItems.end(); }

  private:
    std::vector<TYPE> mItems;
};

}  // namespace android
