#ifndef VELTO_CIRCULAR_BUFFER_H
#define VELTO_CIRCULAR_BUFFER_H

#include <stdint.h>
#include <utils/Vector.h>

namespace velto {

// A ring of the last N values, newest at delay 0. The vector's storage is
// reserved once at full capacity and never given back before destruction:
// add(), getAtDelay() and clear() never allocate, and reads return references
// into the storage. While fewer than N values were added since construction or
// the last clear, they sit in insertion order at indexes 0..size-1.
template <typename T>
class CircularBuffer : protected android::Vector<T> {
    typedef android::Vector<T> Base;

public:
    explicit CircularBuffer(unsigned int capacity) : mHead(-1), mCount(0), mInvalidValue() {
        Base::setCapacity(capacity);
    }
    CircularBuffer(unsigned int capacity, const T& invalidValue)
        : mHead(-1), mCount(0), mInvalidValue(invalidValue) {
        Base::setCapacity(capacity);
    }
    virtual ~CircularBuffer() {
        mHead = -1;
        mCount = 0;
    }

    // A capacity of 0 is a programming error: the ring has nowhere to write.
    void add(const T& value) {
        const unsigned int n = capacity();
        mHead = static_cast<int32_t>((static_cast<unsigned int>(mHead) + 1u) % n);
        // The vector only grows once; after that (and after a clear) elements
        // are overwritten in place.
        if (static_cast<unsigned int>(mHead) < Base::size()) {
            Base::editItemAt(mHead) = value;
        } else {
            Base::push_back(value);
        }
        if (mCount < n) ++mCount;
    }

    // The value added `delay` additions ago, or the invalid value.
    const T& getAtDelay(unsigned int delay) const {
        const unsigned int n = capacity();
        if (mHead < 0 || n == 0) return mInvalidValue;
        if (delay >= mCount) return mInvalidValue;
        return Base::itemAt((n + static_cast<unsigned int>(mHead) - delay) % n);
    }

    unsigned int size() const { return mCount; }
    unsigned int capacity() const { return static_cast<unsigned int>(Base::capacity()); }
    bool isFull() const { return size() == capacity(); }
    const T& invalidValue() const { return mInvalidValue; }

    // Empties the ring; the capacity and the storage stay.
    void clear() {
        mHead = -1;
        mCount = 0;
    }

protected:
    int32_t mHead;
    unsigned int mCount;  // values held: grows to the capacity, reset by clear()
    T mInvalidValue;
};

}  // namespace velto

#endif  // VELTO_CIRCULAR_BUFFER_H
