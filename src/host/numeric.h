// Conversions from the doubles that sizes, windows and resolutions travel as
// to the 32-bit integers the records hold.
//
// A host can hand the filter any double (NaN, infinities, values beyond the
// 32-bit range); every such conversion goes through here so that each gives a
// bounded integer instead of undefined behaviour.
#ifndef TOLVA_HOST_NUMERIC_H
#define TOLVA_HOST_NUMERIC_H

#include <stdint.h>

// Truncates toward zero into 32 bits; NaN gives 0 and values beyond the
// range stick at its ends.
inline int32_t host_trunc_i32(double value) {
    if (!(value == value)) return 0;
    if (value >= 2147483647.0) return INT32_MAX;
    if (value <= -2147483648.0) return INT32_MIN;
    return static_cast<int32_t>(value);
}

#endif
