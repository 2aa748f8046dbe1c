// The host services: memory handles and the abort on a failed allocation; the
// string and numeric helpers with the quirks hosts depend on.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "host/memory.h"
#include "tolva/host.h"
#include "tolva/stream.h"

namespace {

uint8_t *lock(HGLOBAL h) { return static_cast<uint8_t *>(GlobalLock(h)); }
bool zeroed(const uint8_t *p, size_t from, size_t to) {
    return std::all_of(p + from, p + to, [](uint8_t b) { return b == 0; });
}

TEST(GlobalMemory, HandlesRoundTripAndReAllocKeepsThePrefixAndZeroesTheTail) {
    HGLOBAL h = GlobalAlloc(TOLVA_GMEM_FLAGS, 4);
    EXPECT_TRUE(zeroed(lock(h), 0, 4));
    std::memcpy(lock(h), "abcd", 4);  // locking twice is harmless
    // Grown step by step, as a memory stream grows, then shrunk.
    for (uint32_t old = 4, size = 7; size < 200000; old = size, size += 4096) {
        h = GlobalReAlloc(h, size, TOLVA_GMEM_FLAGS);
        uint8_t *p = lock(h);
        ASSERT_EQ(reinterpret_cast<uintptr_t>(p) % 8, 0u);
        ASSERT_EQ(GlobalSize(h), size);
        ASSERT_EQ(std::memcmp(p, "abcd", 4), 0);
        ASSERT_TRUE(zeroed(p, old, size));
        ASSERT_EQ(GlobalHandle(p), h);
        p[size - 1] = 0xEE;
    }
    h = GlobalReAlloc(h, 2, TOLVA_GMEM_FLAGS);
    EXPECT_EQ(std::memcmp(lock(h), "ab", 2), 0);
    EXPECT_EQ(GlobalUnlock(h) + GlobalFree(h), 0);
    HGLOBAL empty = GlobalAlloc(TOLVA_GMEM_FLAGS, 0);
    EXPECT_EQ(GlobalSize(empty) + GlobalFree(empty), 0u);
    EXPECT_EQ(GlobalLock(0), nullptr);
    EXPECT_EQ(GlobalHandle(nullptr), 0u);
    // Memory the host owns is described, copied on growth, and never freed.
    uint8_t buffer[8] = {9, 8, 7, 6, 5, 4, 3, 2};
    HGLOBAL foreign = GlobalPointerToHandle(buffer, sizeof buffer);
    EXPECT_EQ(GlobalLock(foreign), buffer);
    EXPECT_EQ(GlobalSize(foreign), 8u);
    uint8_t *copy = lock(GlobalReAlloc(foreign, 12, TOLVA_GMEM_FLAGS));
    EXPECT_EQ(std::memcmp(copy, buffer, 8), 0);
    EXPECT_TRUE(zeroed(copy, 8, 12));
    GlobalFree(GlobalHandle(copy));
    GlobalFree(GlobalPointerToHandle(buffer, sizeof buffer));  // the header only
}

TEST(GlobalMemoryDeathTest, FailedAllocationPrintsAndAborts) {
    auto allocate = [] {
        dup2(2, 1);  // the message goes to standard output; the death test reads standard error
        host_fail_allocation(1);
        GlobalAlloc(TOLVA_GMEM_FLAGS, 7);
    };
    EXPECT_EXIT(allocate(), testing::KilledBySignal(SIGABRT),
                "GloalAlloc function failed due to insufficient memory: needs 40 bytes memory!!");
}

TEST(Strings, ComparisonSignIsReversed) {
    EXPECT_EQ(stricmp("abc", "ABD"), 1);
    EXPECT_EQ(stricmp("abc", "ABC"), 0);
    EXPECT_EQ(stricmp("abc", "ab"), -'C');
    EXPECT_EQ(strnicmp("abcX", "ABCY", 3), 0);
    EXPECT_EQ(strnicmp("abcX", "ABCY", 4), 1);
    const char a[] = {'a', '\0', 'x'}, b[] = {'A', '\0', 'y'};
    EXPECT_EQ(strnicmp(a, b, 3), 1);  // compared past equal terminators
}

TEST(Numeric, AbsToleranceAndRounding) {
    // dabs flips the sign bit of zeros and NaN instead of clearing it.
    EXPECT_TRUE(std::signbit(dabs(0.0)));
    EXPECT_FALSE(std::signbit(dabs(-0.0)));
    EXPECT_TRUE(std::signbit(dabs(std::nan(""))));
    // The tolerance is inclusive and unsigned: -1 accepts any difference.
    const int32_t near[][4] = {{10, 13, 3, 1}, {10, 14, 3, 0}, {0, -1, 0, 0}, {0, 100, -1, 1}};
    for (const auto &n : near) EXPECT_EQ(feqi(n[0], n[1], n[2]), n[3]) << n[1] << " " << n[2];
    const std::pair<double, int32_t> rounds[] = {{2.5, 3}, {-2.5, -3}, {0.49, 0}, {-0.5, -1}};
    for (const auto &[x, r] : rounds) EXPECT_EQ(roundd(x), r) << x;
}

}  // namespace
