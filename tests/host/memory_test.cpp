// Memory handles: sizes, round trips, reallocation and the abort on failure.
#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <cstring>

#include "host/memory.h"
#include "tolva/tolva.h"

namespace {

TEST(GlobalMemory, DataIsAlignedZeroedAndRoundTrips) {
    for (uint32_t size : {0u, 1u, 7u, 8u, 100u, 65536u}) {
        HGLOBAL h = GlobalAlloc(TOLVA_GMEM_FLAGS, size);
        ASSERT_NE(h, 0u);
        auto *p = static_cast<uint8_t *>(GlobalLock(h));
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 8, 0u);
        EXPECT_EQ(GlobalSize(h), size);
        for (uint32_t i = 0; i < size; ++i) ASSERT_EQ(p[i], 0) << i;
        EXPECT_EQ(GlobalHandle(p), h);
        EXPECT_EQ(GlobalLock(h), p);  // locking twice is harmless
        EXPECT_EQ(GlobalUnlock(h), 0);
        EXPECT_EQ(GlobalFree(h), 0);
    }
    EXPECT_EQ(GlobalLock(0), nullptr);
    EXPECT_EQ(GlobalHandle(nullptr), 0u);
}

TEST(GlobalMemory, ReAllocKeepsPrefixAndZeroesTail) {
    HGLOBAL h = GlobalAlloc(TOLVA_GMEM_FLAGS, 10);
    std::memcpy(GlobalLock(h), "abcdefghij", 10);
    HGLOBAL small = GlobalReAlloc(h, 4, TOLVA_GMEM_FLAGS);
    ASSERT_NE(small, 0u);
    EXPECT_EQ(GlobalSize(small), 4u);
    EXPECT_EQ(std::memcmp(GlobalLock(small), "abcd", 4), 0);
    HGLOBAL big = GlobalReAlloc(small, 20, TOLVA_GMEM_FLAGS);
    auto *p = static_cast<uint8_t *>(GlobalLock(big));
    EXPECT_EQ(std::memcmp(p, "abcd", 4), 0);
    for (int i = 4; i < 20; ++i) EXPECT_EQ(p[i], 0);
    EXPECT_EQ(GlobalHandle(p), big);
    // Grown step by step, as a memory stream grows, the data stays intact.
    for (uint32_t size = 24; size < 200000; size += 4096) {
        big = GlobalReAlloc(big, size, TOLVA_GMEM_FLAGS);
        p = static_cast<uint8_t *>(GlobalLock(big));
        ASSERT_EQ(std::memcmp(p, "abcd", 4), 0);
        ASSERT_EQ(p[size - 1], 0);
        p[size - 1] = 0xEE;
    }
    GlobalFree(big);
}

TEST(GlobalMemory, ReAllocOfForeignMemoryCopiesAndLeavesItAlone) {
    uint8_t buffer[8] = {9, 8, 7, 6, 5, 4, 3, 2};
    HGLOBAL h = GlobalPointerToHandle(buffer, sizeof buffer);
    HGLOBAL copy = GlobalReAlloc(h, 12, TOLVA_GMEM_FLAGS);
    auto *p = static_cast<uint8_t *>(GlobalLock(copy));
    EXPECT_NE(p, buffer);
    EXPECT_EQ(std::memcmp(p, buffer, 8), 0);
    EXPECT_EQ(p[8] | p[9] | p[10] | p[11], 0);
    GlobalFree(copy);
}

TEST(GlobalMemory, PointerToHandleDescribesForeignMemory) {
    uint8_t buffer[16] = {1, 2, 3};
    HGLOBAL h = GlobalPointerToHandle(buffer, sizeof buffer);
    ASSERT_NE(h, 0u);
    EXPECT_EQ(GlobalLock(h), buffer);
    EXPECT_EQ(GlobalSize(h), 16u);
    GlobalFree(h);  // releases the header only
    EXPECT_EQ(buffer[2], 3);
}

TEST(GlobalMemory, CompactAnswersTheRequest) {
    EXPECT_EQ(GlobalCompact(0), 65536u);
    EXPECT_EQ(GlobalCompact(1000), 1000u);
}

TEST(GlobalMemoryDeathTest, FailedAllocationPrintsAndAborts) {
    // The message goes to standard output; send that to standard error in the
    // child so that the death test can read it.
    EXPECT_EXIT(
        {
            dup2(2, 1);
            tolva_host_fail_allocation(1);
            GlobalAlloc(TOLVA_GMEM_FLAGS, 7);
        },
        testing::KilledBySignal(SIGABRT),
        "GloalAlloc function failed due to insufficient memory: needs 40 bytes memory!!");
}

}  // namespace
