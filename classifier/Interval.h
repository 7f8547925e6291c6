#ifndef VELTO_INTERVAL_H
#define VELTO_INTERVAL_H

#include <utils/String8.h>

namespace velto {

// A range of values [min, max]. Whether an end is inclusive is up to the
// test that uses it; contains() treats both ends as inclusive.
template <typename T>
class Interval {
public:
    Interval() : min(), max() {}
    Interval(T lo, T hi) : min(lo), max(hi) {}
    Interval(const Interval& other) = default;

    Interval& operator=(const Interval& other) {
        if (this != &other) {
            min = other.min;
            max = other.max;
        }
        return *this;
    }

    bool contains(T value) const { return min <= value && value <= max; }

    // "[%.2f, %.2f]", the form every log line and dump uses.
    android::String8 toString() const {
        return android::String8::format("[%.2f, %.2f]", static_cast<double>(min), static_cast<double>(max));
    }

    T min;
    T max;
};

}  // namespace velto

#endif  // VELTO_INTERVAL_H
