// Loads and stores of native values at any byte offset of a block.
//
// Host blocks (opcode parameter blocks, escape arguments, handle headers)
// place their fields at byte positions that need not suit the field's
// alignment; every such field is read and written through memcpy, which the
// compiler turns into a plain load or store where the target allows it. The
// helpers live at the bottom of the library so that every folder can use
// them. Bytes a file fixes in an order of its own (little- or big-endian)
// are read with the stream layer's byte-order helpers instead.
#ifndef TOLVA_HOST_UNALIGNED_H
#define TOLVA_HOST_UNALIGNED_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

template <typename T>
inline T host_load(const void *block, size_t at = 0) {
    T value;
    memcpy(&value, static_cast<const uint8_t *>(block) + at, sizeof value);
    return value;
}

template <typename T>
inline void host_store(void *block, size_t at, T value) {
    memcpy(static_cast<uint8_t *>(block) + at, &value, sizeof value);
}

inline int16_t host_load_i16(const void *block, size_t at) { return host_load<int16_t>(block, at); }
inline int32_t host_load_i32(const void *block, size_t at) { return host_load<int32_t>(block, at); }
inline uint32_t host_load_u32(const void *block, size_t at) {
    return host_load<uint32_t>(block, at);
}
inline double host_load_f64(const void *block, size_t at) { return host_load<double>(block, at); }

#endif
