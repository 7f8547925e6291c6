#ifndef VELTO_REVERSE_CIRCULAR_BUFFER_H
#define VELTO_REVERSE_CIRCULAR_BUFFER_H

#include <string.h>

#include <type_traits>

#include "proxdata/CircularBuffer.h"

namespace velto {

// A CircularBuffer read in chronological order: index 0 is the oldest element,
// size() - 1 the newest (delay size() - 1 - i). Reads outside 0 .. size() - 1
// return the invalid value.
//
// The elements are kept in chronological order at storage indexes
// 0 .. size() - 1 (the newest at mHead = size() - 1, which the base class's
// reads rely on): once full, an add shifts the window down by one instead of
// wrapping. The shift costs the same pass over the window that the sample
// window's re-basing of its prefix sums makes anyway, and in return every
// read is one bounds check and one load, and the window is one contiguous run.
template <typename T>
class ReverseCircularBuffer : public CircularBuffer<T> {
    static_assert(std::is_trivially_copyable<T>::value, "elements are moved with memmove");
    typedef CircularBuffer<T> Base;
    typedef android::Vector<T> Storage;
    // Four elements in one vector register (a GCC and Clang extension).
    typedef T Lanes __attribute__((vector_size(4 * sizeof(T))));

public:
    explicit ReverseCircularBuffer(unsigned int capacity) : Base(capacity), mCapacity(Base::capacity()) {}

    // Appends; once full, drops the oldest. A buffer of capacity 0 (an
    // unusable window) stays empty instead of dividing by its capacity.
    void add(const T& value) {
        const unsigned int n = mCapacity;
        if (this->mCount == n) {
            if (n == 0) return;
            T* d = Storage::editArray();
            memmove(d, d + 1, (n - 1) * sizeof(T));
            d[n - 1] = value;
        } else if (Storage::size() > this->mCount) {
            // Storage grown by an earlier fill: write in place.
            Storage::editArray()[this->mCount] = value;
            this->mHead = static_cast<int32_t>(this->mCount);
            ++this->mCount;
        } else {
            Base::add(value);
        }
    }

    unsigned int capacity() const { return mCapacity; }
    bool full() const { return mCapacity != 0 && this->mCount == mCapacity; }
    bool empty() const { return this->mCount == 0; }

    const T& at(int i) const {
        // One unsigned compare also rejects negative indexes.
        if (static_cast<unsigned int>(i) >= this->mCount) return this->mInvalidValue;
        return Storage::array()[i];
    }

    // Overwrites element i; an index out of range writes nothing.
    void set(int i, const T& value) {
        if (static_cast<unsigned int>(i) >= this->mCount) return;
        Storage::editArray()[i] = value;
    }

    const T& newest() const { return at(static_cast<int>(this->mCount) - 1); }

    // For a full buffer: drops the oldest element and subtracts `base` from
    // the others, leaving room for one add. Element k becomes exactly the old
    // element k + 1 minus `base`, as subtracting first and then sliding would
    // give.
    void dropOldestAndSubtract(T base) {
        if (!full()) return;
        T* d = Storage::editArray();
        const unsigned int n = this->mCount;
        T* p = d;
        T* const last = d + n - 1;
        // Four at a time, loaded before stored, so the compiler can do each
        // group in one vector operation.
        for (; p + 4 <= last; p += 4) {
            const T a = p[1], b = p[2], c = p[3], e = p[4];
            p[0] = a - base;
            p[1] = b - base;
            p[2] = c - base;
            p[3] = e - base;
        }
        for (; p < last; ++p) *p = p[1] - base;
        this->mCount = n - 1;
        this->mHead = static_cast<int32_t>(n) - 2;
    }

    // The smallest and largest element: lo = min(lo, v) and hi = max(hi, v)
    // over the elements from the oldest on (four interleaved runs, merged the
    // same way, find the same extremes); both the invalid value when empty.
    void minMax(T* lo, T* hi) const {
        const unsigned int n = this->mCount;
        if (n == 0) {
            *lo = *hi = this->mInvalidValue;
            return;
        }
        const T* p = Storage::array();
        const T* const end = p + n;
        Lanes l = {*p, *p, *p, *p};
        Lanes h = l;
        for (++p; p + 4 <= end; p += 4) {
            Lanes v;
            memcpy(&v, p, sizeof(v));
            l = v < l ? v : l;
            h = h < v ? v : h;
        }
        T l0 = l[0], h0 = h[0];
        for (; p < end; ++p) {
            l0 = *p < l0 ? *p : l0;
            h0 = h0 < *p ? *p : h0;
        }
        for (int j = 1; j < 4; ++j) {
            l0 = l[j] < l0 ? l[j] : l0;
            h0 = h0 < h[j] ? h[j] : h0;
        }
        *lo = l0;
        *hi = h0;
    }

private:
    const unsigned int mCapacity;
};

}  // namespace velto

#endif  // VELTO_REVERSE_CIRCULAR_BUFFER_H
