// File and memory streams: the buffer's fill and flush rules, growth of
// memory blocks, the end mark, seeks and the failure results.
#include <gtest/gtest.h>

#include <string.h>

#include "stream_fixture.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes read_all(HGLOBAL s, size_t n) {
    Bytes got(n + 16);
    int32_t r = zunRead(s, got.data(), static_cast<int32_t>(got.size()));
    got.resize(r < 0 ? 0 : static_cast<size_t>(r));
    return got;
}

TEST(FileStream, RoundTripsAcrossBufferBoundaries) {
    for (size_t n : {0u, 1u, 12287u, 12288u, 12289u, 3u * 12288u + 5u}) {
        TempFile tmp;
        auto data = pattern(n, static_cast<uint32_t>(n));
        HGLOBAL s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_OUTPUT);
        EXPECT_EQ(zunWrite(s, data.data(), static_cast<int32_t>(n)), static_cast<int32_t>(n));
        ASSERT_EQ(zunClose(s), 0);
        EXPECT_EQ(tmp.contents(), data) << n;
        s = zunOpen(tmp.c_str(), nullptr, 0);
        EXPECT_EQ(read_all(s, n), data) << n;
        EXPECT_EQ(zunRead(s, data.data(), 1), 0);  // past the end
        EXPECT_EQ(zunClose(s), 0);
    }
}

TEST(FileStream, FlushesWhenTheByteAfterAFullBufferArrives) {
    TempFile tmp;
    auto data = pattern(12289);
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunWrite(s, data.data(), 12288), 12288);
    EXPECT_EQ(tmp.contents().size(), 0u);
    EXPECT_EQ(zunSeek(s, 0, 1), 12288);  // telling does not flush
    EXPECT_EQ(zunWrite(s, data.data() + 12288, 1), 1);
    EXPECT_EQ(tmp.contents().size(), 12288u);
    EXPECT_EQ(zunClose(s), 0);
    EXPECT_EQ(tmp.contents(), data);
}

TEST(FileStream, SeeksReadsAndWritesInsideAndOutsideTheBuffer) {
    TempFile tmp;
    auto data = pattern(30000);
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_OUTPUT);
    ASSERT_EQ(zunWrite(s, data.data(), 30000), 30000);
    uint8_t got[200];
    EXPECT_EQ(zunSeek(s, 25000, 0), 25000);  // inside the window 24576..29999
    EXPECT_EQ(zunRead(s, got, 100), 100);
    EXPECT_EQ(memcmp(got, data.data() + 25000, 100), 0);
    EXPECT_EQ(zunSeek(s, 12200, 0), 12200);  // back into the written part
    EXPECT_EQ(zunRead(s, got, 200), 200);
    EXPECT_EQ(memcmp(got, data.data() + 12200, 200), 0);
    EXPECT_EQ(zunSeek(s, -100, 1), 12300);
    EXPECT_EQ(zunWrite(s, "\1\2\3\4", 4), 4);
    EXPECT_EQ(zunRead(s, got, 4), 4);  // read after a write in the same buffer
    EXPECT_EQ(memcmp(got, data.data() + 12304, 4), 0);
    EXPECT_EQ(zunSeek(s, -2, 2), 29998);
    EXPECT_EQ(zunRead(s, got, 10), 2);
    EXPECT_EQ(zunClose(s), 0);
    memcpy(data.data() + 12300, "\1\2\3\4", 4);
    EXPECT_EQ(tmp.contents(), data);
}

TEST(FileStream, WritesAfterReadingAWholeWindowLandInPlace) {
    TempFile tmp;
    auto data = pattern(20000);
    tmp.put(data);
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_UPDATE);
    Bytes got(12288);
    ASSERT_EQ(zunRead(s, got.data(), 12288), 12288);
    EXPECT_EQ(zunWrite(s, "XY", 2), 2);
    EXPECT_EQ(zunClose(s), 0);
    data[12288] = 'X';
    data[12289] = 'Y';
    EXPECT_EQ(tmp.contents(), data);
}

TEST(FileStream, SeekLimitsDependOnTheMode) {
    TempFile tmp;
    tmp.put(pattern(100));
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, 0);
    EXPECT_EQ(zunSeek(s, 100, 0), 100);
    EXPECT_EQ(zunSeek(s, 101, 0), -1);
    EXPECT_EQ(zunSeek(s, -1, 0), -1);
    EXPECT_EQ(zunSeek(s, -200, 1), -1);
    EXPECT_EQ(zunClose(s), 0);
    s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_UPDATE);
    EXPECT_EQ(zunSeek(s, 150, 0), 150);
    EXPECT_EQ(zunWrite(s, "z", 1), 1);
    EXPECT_EQ(zunClose(s), 0);
    auto bytes = tmp.contents();
    ASSERT_EQ(bytes.size(), 151u);
    EXPECT_EQ(bytes[120], 0);
    EXPECT_EQ(bytes[150], 'z');
}

TEST(FileStream, FailuresAreResultsNotCrashes) {
    EXPECT_EQ(zunOpen("/nonexistent/dir/file", nullptr, 0), 0u);
    EXPECT_EQ(zunOpen(nullptr, nullptr, 0), 0u);
    uint8_t b[4];
    EXPECT_EQ(zunRead(0, b, 4), 0);
    EXPECT_EQ(zunWrite(0, b, 4), 0);
    EXPECT_EQ(zunSeek(0, 0, 0), -1);
    EXPECT_EQ(zunClose(0), -1);
    EXPECT_EQ(zunCloseandDelete(0, "x"), -1);

    // A full disk fails the flush; the error then makes a full buffer refuse.
    HGLOBAL s = zunOpen("/dev/full", nullptr, TOLVA_STREAM_WRITE);
    ASSERT_NE(s, 0u);
    auto data = pattern(12288);
    EXPECT_EQ(zunWrite(s, data.data(), 12288), 12288);
    EXPECT_EQ(zunWrite(s, data.data(), 1), -1);
    EXPECT_EQ(zunWrite(s, data.data(), 1), 0);
    EXPECT_EQ(zunClose(s), -1);
}

TEST(FileStream, CloseAndDeleteRemovesTheFile) {
    TempFile tmp;
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunWrite(s, "abc", 3), 3);
    EXPECT_EQ(zunCloseandDelete(s, tmp.c_str()), 0);
    EXPECT_EQ(zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_EXISTS), static_cast<HGLOBAL>(-1));
}

TEST(MemoryStream, GrowsAndTheCallersPointerFollows) {
    MemoryBlock m;
    void *first = m.data;
    HGLOBAL s = m.open(TOLVA_STREAM_OUTPUT);
    auto data = pattern(10000);
    EXPECT_EQ(zunWrite(s, data.data(), 10000), 10000);
    EXPECT_NE(m.data, first);
    EXPECT_EQ(GlobalSize(GlobalHandle(m.data)), 12288u);  // three steps of 4096
    EXPECT_EQ(memcmp(m.data, data.data(), 10000), 0);
    EXPECT_EQ(zunClose(s), 0);
    EXPECT_EQ(m.bytes()[10000], 0xFF);  // the end mark
    s = m.reopen();
    EXPECT_EQ(m.descriptor[1], 10000);
    EXPECT_EQ(read_all(s, 10000), data);
    EXPECT_EQ(zunClose(s), 0);
}

TEST(MemoryStream, OpenForReadingDropsSlackAndTheEndMark) {
    MemoryBlock m;
    m.data = GlobalLock(GlobalReAlloc(GlobalHandle(m.data), 8, TOLVA_GMEM_FLAGS));
    memcpy(m.data, "ab\xFF", 3);
    HGLOBAL s = m.reopen();
    EXPECT_EQ(m.descriptor[1], 2);
    EXPECT_EQ(read_all(s, 2), (Bytes{'a', 'b'}));
    EXPECT_EQ(zunSeek(s, 1, 0), 1);
    EXPECT_EQ(zunSeek(s, 2, 0), -1);  // the size field is lastValid
    EXPECT_EQ(zunClose(s), 0);
}

TEST(MemoryStream, SeeksGrowTheBlockAndFailuresStick) {
    MemoryBlock m;
    HGLOBAL s = m.open(TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunSeek(s, 5000, 0), 5000);
    EXPECT_EQ(GlobalSize(GlobalHandle(m.data)), 5000u + 4096u + 1u);
    EXPECT_EQ(zunWrite(s, "q", 1), 1);
    EXPECT_EQ(zunSeek(s, 0, 2), 5001);
    EXPECT_EQ(zunSeek(s, -6000, 2), -1);
    EXPECT_EQ(zunClose(s), 0);
    EXPECT_EQ(m.bytes()[5000], 'q');
    EXPECT_EQ(m.bytes()[5001], 0xFF);

    MemoryBlock fresh;
    s = fresh.open(TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunSeek(s, -1, 0), -1);
    EXPECT_EQ(zunWrite(s, "a", 1), 0);  // a new block is full from the start
    EXPECT_EQ(zunClose(s), -1);         // nor does the end mark go in
    EXPECT_EQ(GlobalSize(GlobalHandle(fresh.data)), 1u);
}

TEST(TempName, CreatesAFreshFileUnderTmp) {
    char a[TOLVA_TEMP_NAME_SIZE], b[TOLVA_TEMP_NAME_SIZE];
    ASSERT_EQ(ZUNGetTempFileName(0, "x", 7, a), 1);
    ASSERT_EQ(ZUNGetTempFileName(0, "x", 7, b), 1);
    EXPECT_EQ(strncmp(a, "/tmp/", 5), 0);
    EXPECT_STRNE(a, b);
    EXPECT_EQ(access(a, F_OK), 0);
    unlink(a);
    unlink(b);
}

}  // namespace
