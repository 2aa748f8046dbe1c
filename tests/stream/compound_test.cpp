// Compound-document sub-streams, against files written by gsf (libgsf-bin):
// exact bytes across sector and mini-sector boundaries and after seeks, and
// clean failures on truncated and damaged files.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>

#include "stream_fixture.h"

namespace {

uint32_t le32(const std::vector<uint8_t> &b, size_t at) {
    return uint32_t{b[at]} | uint32_t{b[at + 1]} << 8 | uint32_t{b[at + 2]} << 16 |
           uint32_t{b[at + 3]} << 24;
}
void put32(std::vector<uint8_t> &b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + i] = static_cast<uint8_t>(v >> (8 * i));
}

// Builds a compound file holding the given streams with the gsf command.
std::vector<uint8_t> make_compound(const std::vector<std::pair<std::string, std::vector<uint8_t>>> &streams) {
    char dir[] = "/tmp/tolva-cfbXXXXXX";
    if (mkdtemp(dir) == nullptr) return {};
    std::string cmd = std::string("cd ") + dir + " && gsf createole out.ole";
    for (const auto &[name, bytes] : streams) {
        write_file(std::string(dir) + "/" + name, bytes);
        cmd += " " + name;
    }
    cmd += " >/dev/null 2>&1";
    std::vector<uint8_t> out;
    if (system(cmd.c_str()) == 0) out = read_file(std::string(dir) + "/out.ole");
    std::string clean = std::string("rm -rf ") + dir;
    if (system(clean.c_str()) != 0) ADD_FAILURE() << "cannot remove " << dir;
    return out;
}

// Where a named stream's directory entry sits (the test's own small look-up,
// used only to damage the file on purpose).
size_t entry_offset(const std::vector<uint8_t> &file, const std::string &name) {
    uint32_t sector = le32(file, 0x30);
    for (int e = 0; e < 4; ++e) {
        size_t at = (sector + 1) * 512 + e * 128;
        std::string got;
        for (size_t i = 0; i < name.size(); ++i) got += static_cast<char>(file[at + 2 * i]);
        if (got == name) return at;
    }
    return 0;
}

struct Compound : ::testing::Test {
    std::vector<uint8_t> big = pattern(10000, 7);
    std::vector<uint8_t> small = pattern(3000, 9);
    std::vector<uint8_t> file;
    TempFile tmp;
    void SetUp() override {
        if (system("command -v gsf >/dev/null 2>&1") != 0) GTEST_SKIP() << "gsf is not installed";
        file = make_compound({{"big.bin", big}, {"small.txt", small}});
        ASSERT_FALSE(file.empty());
        tmp.put(file);
    }
    HGLOBAL open_file() { return zunOpen(tmp.c_str(), nullptr, 0); }
};

void expect_reads(HGLOBAL s, const std::vector<uint8_t> &want, uint32_t seed) {
    std::vector<uint8_t> got(want.size() + 10);
    ASSERT_EQ(zunSeek(s, 0, 0), 0);
    ASSERT_EQ(zunRead(s, got.data(), static_cast<int32_t>(got.size())), static_cast<int32_t>(want.size()));
    ASSERT_EQ(memcmp(got.data(), want.data(), want.size()), 0);
    EXPECT_EQ(zunRead(s, got.data(), 1), 0);
    std::mt19937 rng(seed);
    auto n = static_cast<int32_t>(want.size());
    for (int i = 0; i < 300; ++i) {
        int32_t at = static_cast<int32_t>(rng() % static_cast<uint32_t>(n));
        // Reads that start a byte before and end a byte after the boundaries.
        if (i % 3 == 0) at = static_cast<int32_t>((rng() % (n / 64 + 1)) * 64) - 1;
        if (at < 0) at = 0;
        int32_t len = static_cast<int32_t>(rng() % 1500);
        ASSERT_EQ(zunSeek(s, at, 0), at);
        int32_t expect = std::min(len, n - at);
        ASSERT_EQ(zunRead(s, got.data(), len), expect) << at << "+" << len;
        ASSERT_EQ(memcmp(got.data(), want.data() + at, static_cast<size_t>(expect)), 0) << at;
        EXPECT_EQ(zunSeek(s, 0, 1), at + expect);
    }
}

TEST_F(Compound, ReadsRegularAndSmallStreamsExactly) {
    HGLOBAL s = open_file();
    ASSERT_EQ(zunOpenDocumentStream(s, "big.bin"), 0);
    expect_reads(s, big, 1);
    ASSERT_EQ(zunOpenDocumentStream(s, "SMALL.TXT"), 0);  // names compare without case
    expect_reads(s, small, 2);
    EXPECT_EQ(zunOpenDocumentStream(s, "missing"), TOLVA_DOC_NOT_FOUND);
    EXPECT_EQ(zunSeek(s, 10, 0), 10);  // still on the small stream
    EXPECT_EQ(zunClose(s), 0);

    MemoryBlock m;  // the same over a memory stream
    s = memory_source(m, file);
    ASSERT_EQ(zunOpenDocumentStream(s, "big.bin"), 0);
    expect_reads(s, big, 3);
    zunClose(s);
}

TEST(CompoundLarge, FollowsTheDifatExtensionSectors) {
    if (system("command -v gsf >/dev/null 2>&1") != 0) GTEST_SKIP() << "gsf is not installed";
    // More than 109 allocation-table sectors: 7.5 MB of 512-byte sectors.
    auto huge = pattern(7500000, 3);
    auto file = make_compound({{"huge", huge}});
    ASSERT_FALSE(file.empty());
    ASSERT_GT(le32(file, 0x48), 0u);  // the file really has extension sectors
    TempFile tmp;
    tmp.put(file);
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, 0);
    ASSERT_EQ(zunOpenDocumentStream(s, "huge"), 0);
    std::vector<uint8_t> got(4000);
    for (int32_t at : {0, 7500000 - 4000, 6999999 - 1234, 3333333}) {
        ASSERT_EQ(zunSeek(s, at, 0), at);
        ASSERT_EQ(zunRead(s, got.data(), 4000), 4000);
        ASSERT_EQ(memcmp(got.data(), huge.data() + at, 4000), 0) << at;
    }
    zunClose(s);
}

// A cut file either fails or, when every sector a stream needs is there,
// reads exactly; scrambled bytes may give any data but never a read outside.
TEST_F(Compound, TruncatedAndScrambledFilesStayInside) {
    std::vector<size_t> lengths = {file.size() - 1, file.size()};
    for (size_t len = 0; len < file.size(); len += 61) lengths.push_back(len);
    int opened = 0;
    for (size_t len : lengths) {
        MemoryBlock m;
        HGLOBAL s = memory_source(m, std::vector<uint8_t>(file.begin(), file.begin() + static_cast<long>(len)));
        for (const auto *want : {&big, &small}) {
            int32_t r = zunOpenDocumentStream(s, want == &big ? "big.bin" : "small.txt");
            if (len < 512) {
                EXPECT_EQ(r, TOLVA_DOC_NOT_COMPOUND);
            }
            if (r != 0) continue;
            ++opened;
            std::vector<uint8_t> got(want->size());
            ASSERT_EQ(zunRead(s, got.data(), static_cast<int32_t>(got.size())), static_cast<int32_t>(got.size()));
            EXPECT_EQ(got, *want) << len;
        }
        zunClose(s);
    }
    EXPECT_GE(opened, 2);  // the whole file at least
    std::mt19937 rng(42);
    for (int round = 0; round < 400; ++round) {
        auto bad = file;
        for (int i = 1 + static_cast<int>(rng() % 8); i > 0; --i) {
            bad[rng() % 2 ? rng() % 512 : rng() % bad.size()] = static_cast<uint8_t>(rng());
        }
        MemoryBlock m;
        HGLOBAL s = memory_source(m, bad);
        for (const char *name : {"big.bin", "small.txt"}) {
            if (zunOpenDocumentStream(s, name) != 0) continue;
            std::vector<uint8_t> got(20000);
            EXPECT_LE(zunRead(s, got.data(), 20000), static_cast<int32_t>(bad.size()));
            zunSeek(s, static_cast<int32_t>(rng() % 12000), 0);
            EXPECT_GE(zunRead(s, got.data(), 5000), 0);
        }
        zunClose(s);
    }
}

TEST_F(Compound, DamagedTablesFailCleanly) {
    size_t big_entry = entry_offset(file, "big.bin");
    size_t small_entry = entry_offset(file, "small.txt");
    ASSERT_NE(big_entry, 0u);
    ASSERT_NE(small_entry, 0u);
    uint32_t fat0 = le32(file, 0x4C);
    uint32_t big_start = le32(file, big_entry + 0x74);
    struct Damage {
        const char *what;
        const char *name;
        size_t at;
        uint32_t value;
    } cases[] = {
        {"big stream loops onto itself", "big.bin", (fat0 + 1) * 512 + 4 * big_start, big_start},
        {"big stream starts past the file", "big.bin", big_entry + 0x74, 0x7FFFFFF0u},
        {"small stream starts past the mini stream", "small.txt", small_entry + 0x74, 5000},
        {"root's mini stream starts past the file", "small.txt", (le32(file, 0x30) + 1) * 512 + 0x74, 999},
        {"allocation table count is absurd", "big.bin", 0x2C, 0xFFFFFF},
        {"allocation table sector out of range", "big.bin", 0x4C, 0x10000},
        {"directory starts past the file", "big.bin", 0x30, 0x7FFFFF},
        {"mini table sector out of range", "small.txt", 0x3C, 0x7FFF},
        {"big stream claims 2 GiB", "big.bin", big_entry + 0x78, 0x7FFFFFFF},
    };
    for (const Damage &c : cases) {
        auto bad = file;
        put32(bad, c.at, c.value);
        TempFile t;
        t.put(bad);
        HGLOBAL s = zunOpen(t.c_str(), nullptr, 0);
        EXPECT_EQ(zunOpenDocumentStream(s, c.name), TOLVA_DOC_CORRUPT) << c.what;
        uint8_t b;
        EXPECT_EQ(zunSeek(s, 0, 0), 0) << c.what;  // the stream stays a plain file
        EXPECT_EQ(zunRead(s, &b, 1), 1);
        EXPECT_EQ(b, 0xD0);
        zunClose(s);
    }
    auto bad = file;
    bad[0] = 0;
    TempFile t;
    t.put(bad);
    HGLOBAL s = zunOpen(t.c_str(), nullptr, 0);
    EXPECT_EQ(zunOpenDocumentStream(s, "big.bin"), TOLVA_DOC_NOT_COMPOUND);
    EXPECT_EQ(zunOpenDocumentStream(0, "big.bin"), TOLVA_DOC_BAD_STREAM);
    zunClose(s);
}

}  // namespace
