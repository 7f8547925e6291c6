#ifndef VELTO_REVERSE_CIRCULAR_BUFFER_H
#define VELTO_REVERSE_CIRCULAR_BUFFER_H

#include "proxdata/CircularBuffer.h"

namespace velto {

// A CircularBuffer read in chronological order: index 0 is the oldest element,
// size() - 1 the newest (delay size() - 1 - i). Reads outside 0 .. size() - 1
// return the invalid value. The sample window keeps its values and prefix sums
// in these, so the hot operations work on the storage directly, in at most two
// contiguous runs, without a modulo per element.
template <typename T>
class ReverseCircularBuffer : public CircularBuffer<T> {
    typedef CircularBuffer<T> Base;
    typedef android::Vector<T> Storage;

public:
    explicit ReverseCircularBuffer(unsigned int capacity) : Base(capacity) {}

    // A buffer of capacity 0 (an unusable window) stays empty instead of
    // dividing by its capacity.
    void add(const T& value) {
        if (this->capacity() != 0) Base::add(value);
    }

    bool full() const { return this->capacity() != 0 && this->mCount == this->capacity(); }
    bool empty() const { return this->mCount == 0; }

    const T& at(int i) const {
        if (i < 0 || static_cast<unsigned int>(i) >= this->mCount) return this->mInvalidValue;
        return Storage::array()[storageIndex(static_cast<unsigned int>(i))];
    }

    // Overwrites element i; an index out of range writes nothing.
    void set(int i, const T& value) {
        if (i < 0 || static_cast<unsigned int>(i) >= this->mCount) return;
        Storage::editArray()[storageIndex(static_cast<unsigned int>(i))] = value;
    }

    const T& newest() const { return at(static_cast<int>(this->mCount) - 1); }

    // Subtracts `base` from every element, oldest first.
    void subtractFromAll(T base) {
        if (this->mCount == 0) return;
        T* data = Storage::editArray();
        unsigned int first, firstCount, secondCount;
        runs(&first, &firstCount, &secondCount);
        for (T* p = data + first; p != data + first + firstCount; ++p) *p -= base;
        for (T* p = data; p != data + secondCount; ++p) *p -= base;
    }

    // The smallest and largest element, scanning oldest first with
    // lo = min(lo, v), hi = max(hi, v); both the invalid value when empty.
    void minMax(T* lo, T* hi) const {
        if (this->mCount == 0) {
            *lo = *hi = this->mInvalidValue;
            return;
        }
        const T* data = Storage::array();
        unsigned int first, firstCount, secondCount;
        runs(&first, &firstCount, &secondCount);
        T l = data[first];
        T h = l;
        for (const T* p = data + first + 1; p != data + first + firstCount; ++p) {
            if (*p < l) l = *p;
            if (h < *p) h = *p;
        }
        for (const T* p = data; p != data + secondCount; ++p) {
            if (*p < l) l = *p;
            if (h < *p) h = *p;
        }
        *lo = l;
        *hi = h;
    }

private:
    // Storage index of the oldest element; valid while not empty.
    unsigned int oldestIndex() const {
        int oldest = this->mHead + 1 - static_cast<int>(this->mCount);
        if (oldest < 0) oldest += static_cast<int>(this->capacity());
        return static_cast<unsigned int>(oldest);
    }

    unsigned int storageIndex(unsigned int i) const {
        unsigned int j = oldestIndex() + i;
        const unsigned int n = this->capacity();
        return j >= n ? j - n : j;
    }

    // The elements oldest first: storage [first, first + firstCount), then
    // [0, secondCount).
    void runs(unsigned int* first, unsigned int* firstCount, unsigned int* secondCount) const {
        *first = oldestIndex();
        const unsigned int tail = this->capacity() - *first;
        *firstCount = this->mCount < tail ? this->mCount : tail;
        *secondCount = this->mCount - *firstCount;
    }
};

}  // namespace velto

#endif  // VELTO_REVERSE_CIRCULAR_BUFFER_H
