// Movable memory handles on top of the system allocator.
//
// A handle is the address of a small header that sits in front of the data in
// the same allocation; the data always starts on an 8-byte boundary and the
// byte just before it (once locked) holds the distance back to the header, so
// that GlobalHandle can turn an address back into its handle. Nothing ever
// moves and there is no lock count: locking only yields the pointer.
#include "host/memory.h"
#include "host/unaligned.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Header layout: size, flags, reserved (32 bits each), the data address
// (pointer-sized, stored unaligned), the data offset (one byte), three
// reserved bytes. 24 bytes on LP64.
constexpr size_t kSizeAt = 0;
constexpr size_t kFlagsAt = 4;
constexpr size_t kReservedAt = 8;
constexpr size_t kAddressAt = 12;
constexpr size_t kOffsetAt = kAddressAt + sizeof(void *);
constexpr size_t kHeaderSize = kOffsetAt + 4;

// (size + header + 14) rounded down to a multiple of 8 leaves room for the
// header, up to 7 bytes of alignment fill and the data.
constexpr uint64_t kSlack = kHeaderSize + 14;

uint8_t *header(HGLOBAL h) { return reinterpret_cast<uint8_t *>(h); }

uint8_t *data_address(HGLOBAL h) { return host_load<uint8_t *>(header(h), kAddressAt); }

size_t allocation_bytes(uint32_t size) {
    return static_cast<size_t>((uint64_t{size} + kSlack) / 8 * 8);
}

[[noreturn]] void out_of_memory(size_t bytes) {
    std::printf("GloalAlloc function failed due to insufficient memory: needs %ld bytes memory!!\n",
                static_cast<long>(bytes));
    std::fflush(stdout);
    std::abort();
}

// Header of an allocation that starts at block; returns the data address,
// which sits behind the header on the next 8-byte boundary.
uint8_t *write_header(uint8_t *block, uint32_t size, uint32_t flags) {
    uintptr_t base = reinterpret_cast<uintptr_t>(block);
    size_t fill = (8 - ((base + kHeaderSize) % 8)) % 8;
    uint8_t *data = block + kHeaderSize + fill;
    host_store(block, kSizeAt, size);
    host_store(block, kFlagsAt, flags);
    host_store(block, kReservedAt, uint32_t{0});
    host_store(block, kAddressAt, data);
    block[kOffsetAt] = static_cast<uint8_t>(kHeaderSize + fill);
    std::memset(block + kOffsetAt + 1, 0, 3);
    return data;
}

// A handle from GlobalPointerToHandle describes memory it does not own.
bool owns_data(HGLOBAL h) { return data_address(h) == header(h) + header(h)[kOffsetAt]; }

}  // namespace

extern "C" {

HGLOBAL GlobalAlloc(uint32_t flags, uint32_t size) {
    size_t bytes = allocation_bytes(size);
    auto *block = static_cast<uint8_t *>(host_calloc(bytes / 8, 8));
    if (block == nullptr) out_of_memory(bytes);
    // calloc's memory is zero already; not touching it leaves the pages of a
    // large block unmapped until they are used.
    write_header(block, size, flags);
    return reinterpret_cast<HGLOBAL>(block);
}

void *GlobalLock(HGLOBAL h) {
    if (h == 0) return nullptr;
    uint8_t *data = data_address(h);
    uintptr_t distance = reinterpret_cast<uintptr_t>(data) - h;
    if (distance <= 255) {
        uint8_t offset = header(h)[kOffsetAt];
        header(h)[offset - 1] = static_cast<uint8_t>(distance);
    }
    return data;
}

int32_t GlobalUnlock(HGLOBAL) { return 0; }

int32_t GlobalFree(HGLOBAL h) {
    std::free(header(h));
    return 0;
}

HGLOBAL GlobalReAlloc(HGLOBAL h, uint32_t size, uint32_t flags) {
    // The old contents survive up to the smaller size (the sizes compared as
    // signed values); the new tail is zero. Owned blocks grow in place with
    // realloc, so that a memory stream growing step by step does not copy its
    // whole block at every step.
    int32_t oldSize = static_cast<int32_t>(GlobalSize(h));
    int32_t newSize = static_cast<int32_t>(size);
    int32_t keep = oldSize < newSize ? oldSize : newSize;
    size_t kept = keep > 0 ? static_cast<size_t>(keep) : 0;
    if (h != 0 && owns_data(h)) {
        size_t oldOffset = header(h)[kOffsetAt];
        size_t bytes = allocation_bytes(size);
        auto *block = static_cast<uint8_t *>(host_realloc(header(h), bytes));
        if (block == nullptr) {
            std::free(header(h));
            out_of_memory(bytes);
        }
        size_t fill = (8 - ((reinterpret_cast<uintptr_t>(block) + kHeaderSize) % 8)) % 8;
        if (kHeaderSize + fill != oldOffset)
            std::memmove(block + kHeaderSize + fill, block + oldOffset, kept);
        uint8_t *data = write_header(block, size, flags);
        std::memset(block + kHeaderSize, 0, fill);
        std::memset(data + kept, 0, static_cast<size_t>(block + bytes - (data + kept)));
        return reinterpret_cast<HGLOBAL>(block);
    }
    HGLOBAL fresh = GlobalAlloc(flags, size);
    if (h != 0 && kept > 0) std::memcpy(data_address(fresh), data_address(h), kept);
    // The old block goes even when the new one could not be had: callers own
    // only the handle they get back.
    GlobalFree(h);
    return fresh;
}

HGLOBAL GlobalHandle(const void *address) {
    if (address == nullptr) return 0;
    auto *p = static_cast<const uint8_t *>(address);
    return reinterpret_cast<HGLOBAL>(p - p[-1]);
}

uint32_t GlobalSize(HGLOBAL h) {
    if (h == 0) return 0;
    return host_load<uint32_t>(header(h), kSizeAt);
}

HGLOBAL GlobalPointerToHandle(void *address, uint32_t size) {
    auto *block = static_cast<uint8_t *>(host_malloc(kHeaderSize));
    if (block == nullptr) return 0;
    // The flags word keeps whatever the allocator left there; set it anyway so
    // that the header is never read uninitialised.
    std::memset(block, 0, kHeaderSize);
    host_store(block, kSizeAt, size);
    host_store(block, kAddressAt, address);
    block[kOffsetAt] = static_cast<uint8_t>(kHeaderSize);
    return reinterpret_cast<HGLOBAL>(block);
}

uint32_t GlobalCompact(uint32_t bytes) { return bytes == 0 ? 65536u : bytes; }

}  // extern "C"

// Test switch: fail the Nth allocation from now on (0 disables).
namespace {
long g_fail_countdown = 0;
}

void host_fail_allocation(long nth) { g_fail_countdown = nth; }

void host_populate(void *data, size_t bytes) {
#ifdef MADV_POPULATE_WRITE
    constexpr uintptr_t kPage = 4096;
    constexpr size_t kWorthIt = 16 * kPage;
    if (bytes < kWorthIt) return;
    uintptr_t first = (reinterpret_cast<uintptr_t>(data) + kPage - 1) & ~(kPage - 1);
    uintptr_t end = (reinterpret_cast<uintptr_t>(data) + bytes) & ~(kPage - 1);
    // An older kernel refuses the advice; the pages then fault as usual.
    if (end > first)
        (void)madvise(reinterpret_cast<void *>(first), end - first, MADV_POPULATE_WRITE);
#else
    (void)data;
    (void)bytes;
#endif
}

void *host_calloc(size_t count, size_t size) {
    if (g_fail_countdown > 0 && --g_fail_countdown == 0) return nullptr;
    return std::calloc(count, size);
}

void *host_realloc(void *block, size_t size) {
    if (g_fail_countdown > 0 && --g_fail_countdown == 0) return nullptr;
    return std::realloc(block, size);
}

void *host_malloc(size_t size) {
    if (g_fail_countdown > 0 && --g_fail_countdown == 0) return nullptr;
    return std::malloc(size);
}
