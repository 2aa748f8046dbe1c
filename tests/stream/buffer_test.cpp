// Every kind of stream: exact round trips, when the buffer is flushed, memory
// growth, host procedures, the no-stream modes and the failure results; and
// the direct bulk transfers against the plain window-by-window algorithm.
#include <gtest/gtest.h>

#include <string.h>

#include <random>
#include <string>

#include "stream/stream.h"
#include "stream_fixture.h"

namespace {

// A host procedure serving one in-memory file, logging every call as
// "instance:operation:b".
struct Host {
    MemoryBlock store;
    HGLOBAL file = store.open(TOLVA_STREAM_OUTPUT);
    std::vector<std::string> calls;
    intptr_t openAnswer = 77;
    ~Host() { zunClose(file); }
};
Host *g_host;

intptr_t host_proc(intptr_t instance, int32_t op, intptr_t a, intptr_t b) {
    Host &h = *g_host;
    h.calls.push_back(std::to_string(instance) + ":" + std::to_string(op) + ":" +
                      std::to_string(op >= 4 ? b : 0));
    auto *p = reinterpret_cast<uint8_t *>(a);
    switch (op) {
    case 1:
        return zunSeek(h.file, 0, 0) == 0 ? h.openAnswer : -1;
    case 2:
        return zunRead(h.file, p, static_cast<int32_t>(b));
    case 3:
        return zunWrite(h.file, p, static_cast<int32_t>(b));
    case 4:
        return zunSeek(h.file, *reinterpret_cast<int32_t *>(a), static_cast<int32_t>(b));
    default:
        return op * 11;
    }
}

// File and memory streams are run against a model by the stream fuzz target;
// these are the two kinds it does not reach.
TEST(Streams, RoundTripExactlyThroughAProcedureAndAWrappedFile) {
    for (bool proc : {true, false}) {
        for (size_t n : {0u, 12288u, 3u * 12288u + 5u}) {
            SCOPED_TRACE(std::to_string(proc) + " " + std::to_string(n));
            TempFile tmp;
            Host host;
            g_host = &host;
            FILE *f = proc ? nullptr : fopen(tmp.c_str(), "w+b");
            intptr_t d[TOLVA_STREAM_DESCRIPTOR_WORDS] = {
                1, 0, 0, reinterpret_cast<intptr_t>(f),
                proc ? reinterpret_cast<intptr_t>(&host_proc) : 0};
            auto open = [&](uint32_t mode) {
                if (proc) return zunOpen("host", d, mode);
                rewind(f);  // the caller's FILE stays open and usable after each close
                return zunOpen(nullptr, d, TOLVA_STREAM_WRAP);
            };
            auto data = pattern(n, static_cast<uint32_t>(n));
            HGLOBAL s = open(TOLVA_STREAM_OUTPUT);
            EXPECT_EQ(zunWrite(s, data.data(), static_cast<int32_t>(n)), static_cast<int32_t>(n));
            EXPECT_EQ(zunClose(s), proc ? 55 : 0);  // a procedure's close answers for itself
            if (f != nullptr) fflush(f);
            EXPECT_EQ(proc ? Bytes(host.store.bytes(), host.store.bytes() + n) : tmp.contents(),
                      data);
            s = open(0);
            EXPECT_EQ(read_at(s, 0, n + 1), data);
            EXPECT_EQ(zunClose(s), proc ? 55 : 0);
            if (f != nullptr) fclose(f);
        }
    }
}

TEST(FileStream, FlushesWhenAFullBufferTakesAnotherByteAndKeepsToTheEnd) {
    TempFile tmp;
    auto data = pattern(12289);
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunWrite(s, data.data(), 12288), 12288);
    EXPECT_EQ(zunSeek(s, 0, 1), 12288);  // telling does not flush
    EXPECT_EQ(tmp.contents().size(), 0u);
    EXPECT_EQ(zunWrite(s, data.data() + 12288, 1), 1);
    EXPECT_EQ(tmp.contents().size(), 12288u);
    EXPECT_EQ(zunClose(s), 0);
    EXPECT_EQ(tmp.contents(), data);
    // Reading never seeks past the end; updating fills a gap with zeros.
    s = zunOpen(tmp.c_str(), nullptr, 0);
    EXPECT_EQ(zunSeek(s, 12289, 0), 12289);
    EXPECT_EQ(zunSeek(s, 12290, 0), -1);
    EXPECT_EQ(zunClose(s), 0);
    s = zunOpen(tmp.c_str(), nullptr, TOLVA_STREAM_UPDATE);
    EXPECT_EQ(read_at(s, 0, 12288), slice(data, 0, 12288));
    EXPECT_EQ(zunWrite(s, "XY", 2), 2);  // lands after the whole window just read
    EXPECT_EQ(zunSeek(s, 13000, 0), 13000);
    EXPECT_EQ(zunWrite(s, "z", 1), 1);
    EXPECT_EQ(zunClose(s), 0);
    data.resize(13000, 0);
    memcpy(data.data() + 12288, "XY", 2);
    data.push_back('z');
    EXPECT_EQ(tmp.contents(), data);
}

TEST(FileStream, FailuresAreResultsNotCrashes) {
    intptr_t no_file[TOLVA_STREAM_DESCRIPTOR_WORDS] = {0, 0, 0, -1};
    EXPECT_EQ(zunOpen(nullptr, no_file, TOLVA_STREAM_WRAP), 0u);
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
    auto data = pattern(12288);
    EXPECT_EQ(zunWrite(s, data.data(), 12288), 12288);
    EXPECT_EQ(zunWrite(s, data.data(), 1), -1);
    EXPECT_EQ(zunWrite(s, data.data(), 1), 0);
    EXPECT_EQ(zunClose(s), -1);
}

TEST(MemoryStream, GrowsByStepsAndAFailedSeekSticks) {
    MemoryBlock m;
    HGLOBAL s = m.open(TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunWrite(s, pattern(10000).data(), 10000), 10000);
    EXPECT_EQ(GlobalSize(GlobalHandle(m.data)), 12288u);  // three steps of 4096
    EXPECT_EQ(zunSeek(s, 15000, 0), 15000);               // a seek past the block grows it
    EXPECT_EQ(GlobalSize(GlobalHandle(m.data)), 15000u + 4096u + 1u);
    EXPECT_EQ(zunWrite(s, "q", 1), 1);
    EXPECT_EQ(zunClose(s), 0);
    // Reading drops the zero slack and the end mark; the size word says so.
    s = m.reopen();
    EXPECT_EQ(m.descriptor[1], 15001);
    EXPECT_EQ(zunSeek(s, 15001, 0), -1);
    EXPECT_EQ(zunClose(s), 0);

    // The fresh block, full from the start, refuses the write after a failed
    // seek, and the end mark cannot go in either.
    MemoryBlock fresh;
    s = fresh.open(TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunSeek(s, -1, 0), -1);
    EXPECT_EQ(zunWrite(s, "a", 1), 0);
    EXPECT_EQ(zunClose(s), -1);
    EXPECT_EQ(GlobalSize(GlobalHandle(fresh.data)), 1u);
}

TEST(ProcStream, EveryOperationGoesToTheProcedure) {
    Host host;
    g_host = &host;
    intptr_t d[TOLVA_STREAM_DESCRIPTOR_WORDS] = {1234, 0, 0, 0,
                                                 reinterpret_cast<intptr_t>(&host_proc)};
    HGLOBAL s = zunOpen("name", d, TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunWriteLine(s, "hi", 2), 2);  // procedure streams keep line format 0: CR LF
    EXPECT_EQ(read_at(s, 1, 3), (Bytes{'i', '\r', '\n'}));
    EXPECT_EQ(zunClose(s), 55);

    // A declined open leaves the procedure serving with instance 0; the file
    // is opened as well but never written. Mode -1 skips the open call.
    host.openAnswer = 0;
    TempFile tmp;
    s = zunOpen(tmp.c_str(), d, TOLVA_STREAM_OUTPUT);
    EXPECT_EQ(zunWrite(s, "abc", 3), 3);
    EXPECT_EQ(zunCloseandDelete(s, tmp.c_str()), 0);
    EXPECT_EQ(tmp.contents().size(), 0u);
    d[5] = 55;
    s = zunOpen(nullptr, d, TOLVA_STREAM_WRAP);
    EXPECT_EQ(zunWrite(s, "x", 1), 1);
    zunClose(s);
    EXPECT_EQ(zunOpen("f", d, TOLVA_STREAM_EXISTS), 66u);
    EXPECT_EQ(zunOpen("f", d, TOLVA_STREAM_DELETE), 77u);
    EXPECT_EQ(host.calls,
              (std::vector<std::string>{"1234:1:0", "77:3:0", "77:3:0", "77:3:0", "77:4:0",
                                        "77:2:0", "77:5:0", "1234:1:0", "0:3:0", "0:5:512",
                                        "55:3:0", "55:5:0", "0:6:0", "0:7:0"}));
}

TEST(NamedFiles, TempNamesCopyExistsAndDelete) {
    TempFile from, to;
    EXPECT_EQ(strncmp(from.c_str(), "/tmp/", 5), 0);
    EXPECT_STRNE(from.c_str(), to.c_str());
    EXPECT_EQ(access(to.c_str(), F_OK), 0);  // temporary names are created when handed out
    from.put(pattern(10000));
    EXPECT_EQ(zunCopy(from.c_str(), to.c_str()), 0);
    EXPECT_EQ(to.contents(), from.contents());
    EXPECT_NE(zunOpen(to.c_str(), nullptr, TOLVA_STREAM_EXISTS), static_cast<HGLOBAL>(-1));
    EXPECT_EQ(zunOpen(to.c_str(), nullptr, TOLVA_STREAM_DELETE), 1u);
    EXPECT_EQ(zunOpen(to.c_str(), nullptr, TOLVA_STREAM_DELETE), 0u);
    EXPECT_EQ(zunCopy("/nonexistent/source", to.c_str()), 0);  // copies nothing, still 0
    EXPECT_EQ(to.contents().size(), 0u);
    EXPECT_EQ(zunCloseandDelete(zunOpen(to.c_str(), nullptr, TOLVA_STREAM_OUTPUT), to.c_str()), 0);
    EXPECT_EQ(zunOpen(to.c_str(), nullptr, TOLVA_STREAM_EXISTS), static_cast<HGLOBAL>(-1));
}

// The direct bulk transfers against the plain window-by-window algorithm:
// the same random operations, run once each way, must give the same results,
// the same bytes read and the same file.

// Sixty random reads, writes, seeks and single-byte writes on a file of
// 100000 bytes, half of their lengths next to a window boundary. Returns each
// result, then the bytes read, then the file.
std::vector<int64_t> run(uint32_t seed, uint32_t mode, bool direct) {
    stream_use_direct_io(direct);
    TempFile tmp;
    tmp.put(pattern(100000, 5));
    std::mt19937 rng(seed);
    Bytes data = pattern(70000, seed), sink(70000);
    std::vector<int64_t> trace;
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, mode);
    static const int32_t near[] = {1, 12287, 12288, 12289, 24575, 24576, 24577, 36864, 50000};
    for (int step = 0; step < 60; ++step) {
        int32_t n = rng() % 2 ? near[rng() % 9] + static_cast<int32_t>(rng() % 3) - 1
                              : static_cast<int32_t>(rng() % 60000);
        int32_t origin = static_cast<int32_t>(rng() % 3);
        int32_t offset = origin == 0 ? n : origin == 1 ? n - 30000 : -(n % 20000);
        switch (rng() % 4) {
        case 0:
            trace.push_back(zunWrite(s, data.data() + rng() % 1000, n));
            break;
        case 1:
            trace.push_back(zunRead(s, sink.data(), n));
            if (trace.back() > 0)
                trace.insert(trace.end(), sink.begin(), sink.begin() + trace.back());
            break;
        case 2:
            trace.push_back(zunSeek(s, offset, origin));
            break;
        case 3:
            trace.push_back(zunWriteChar(s, data.data() + step, 1));
            break;
        }
    }
    trace.push_back(zunClose(s));
    Bytes file = tmp.contents();
    trace.insert(trace.end(), file.begin(), file.end());
    stream_use_direct_io(true);
    return trace;
}

TEST(DirectTransfers, MatchTheBufferedAlgorithm) {
    for (uint32_t mode : {TOLVA_STREAM_OUTPUT, TOLVA_STREAM_UPDATE, 0u}) {
        for (uint32_t seed = 1; seed <= 40; ++seed) {
            ASSERT_EQ(run(seed, mode, false), run(seed, mode, true))
                << "mode " << mode << " seed " << seed;
        }
    }
}

}  // namespace
