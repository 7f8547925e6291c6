#ifndef VELTO_FLOAT_CONVERSION_H
#define VELTO_FLOAT_CONVERSION_H

#include <stdint.h>

namespace velto {

// Truncating float-to-integer conversions that behave like the plain C casts
// on the x86-64 and ARM targets for every input, including the NaN and
// out-of-range values for which the casts themselves are undefined. The
// calibration code truncates values derived from sensor data and files.
class FloatConversion {
public:
    // The integer part; INT32_MIN where (int) is undefined (x86's answer).
    static int32_t truncToInt(float v) {
        if (!(v > -2147483904.0f && v < 2147483648.0f)) return INT32_MIN;
        return static_cast<int32_t>(v);
    }

    // The integer part taken through 64 bits, then its low 32 bits: what a
    // compiler emits for (uint32_t) of a float; 0 where even that is undefined.
    static uint32_t toUint32(float v) {
        if (!(v > -9223372036854775808.0f && v < 9223372036854775808.0f)) return 0;
        return static_cast<uint32_t>(static_cast<int64_t>(v));
    }

private:
    FloatConversion() = delete;
};

}  // namespace velto

#endif  // VELTO_FLOAT_CONVERSION_H
