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

uint32_t le32(const Bytes &b, size_t at) {
    return uint32_t{b[at]} | uint32_t{b[at + 1]} << 8 | uint32_t{b[at + 2]} << 16 |
           uint32_t{b[at + 3]} << 24;
}

bool have_gsf() { return system("command -v gsf >/dev/null 2>&1") == 0; }

// Builds a compound file holding the given streams with the gsf command.
Bytes make_compound(const std::vector<std::pair<std::string, Bytes>> &streams) {
    char dir[] = "/tmp/tolva-cfbXXXXXX";
    if (mkdtemp(dir) == nullptr) return {};
    std::string cmd = std::string("cd ") + dir + " && gsf createole out.ole";
    for (const auto &[name, bytes] : streams) {
        write_file(std::string(dir) + "/" + name, bytes);
        cmd += " " + name;
    }
    Bytes out;
    if (system((cmd + " >/dev/null 2>&1").c_str()) == 0)
        out = read_file(std::string(dir) + "/out.ole");
    if (system((std::string("rm -rf ") + dir).c_str()) != 0)
        ADD_FAILURE() << "cannot remove " << dir;
    return out;
}

// One whole read that must stop at the end, then reads of random lengths
// after random seeks, a third of them starting a byte before a 64-byte
// boundary.
void expect_reads(HGLOBAL s, const Bytes &want, uint32_t seed) {
    ASSERT_EQ(read_at(s, 0, want.size() + 1), want);
    std::mt19937 rng(seed);
    auto n = static_cast<uint32_t>(want.size());
    for (int i = 0; i < 300; ++i) {
        uint32_t at = i % 3 != 0 ? rng() % n : std::max<uint32_t>(1, rng() % (n / 64 + 1) * 64) - 1;
        uint32_t len = rng() % 1500;
        ASSERT_EQ(read_at(s, static_cast<int32_t>(at), len), slice(want, at, std::min(len, n - at)))
            << at << "+" << len;
        EXPECT_EQ(zunSeek(s, 0, 1), static_cast<int32_t>(std::min(at + len, n)));
    }
}

struct Compound : ::testing::Test {
    Bytes big = pattern(10000, 7), small = pattern(3000, 9), file;
    void SetUp() override {
        if (!have_gsf()) GTEST_SKIP() << "gsf is not installed";
        file = make_compound({{"big.bin", big}, {"small.txt", small}});
        ASSERT_FALSE(file.empty());
    }
};

TEST_F(Compound, ReadsRegularAndSmallStreamsExactly) {
    TempFile tmp;
    tmp.put(file);
    HGLOBAL s = zunOpen(tmp.c_str(), nullptr, 0);
    ASSERT_EQ(zunOpenDocumentStream(s, "big.bin"), 0);
    expect_reads(s, big, 1);
    ASSERT_EQ(zunOpenDocumentStream(s, "SMALL.TXT"), 0);  // names compare without case
    expect_reads(s, small, 2);
    EXPECT_EQ(zunOpenDocumentStream(s, "missing"), TOLVA_DOC_NOT_FOUND);
    EXPECT_EQ(zunSeek(s, 0, 7), -1);  // (seeks clamping to the bounds: the compound fuzz target)
    EXPECT_EQ(zunClose(s), 0);
}

TEST(CompoundLarge, FollowsTheDifatExtensionSectors) {
    if (!have_gsf()) GTEST_SKIP() << "gsf is not installed";
    // More than 109 allocation-table sectors: 7.5 MB of 512-byte sectors.
    auto huge = pattern(7500000, 3);
    auto file = make_compound({{"huge", huge}});
    ASSERT_GT(file.size(), 0x50u);
    ASSERT_GT(le32(file, 0x48), 0u);  // the file really has extension sectors
    MemoryBlock m;
    HGLOBAL s = m.holding(file);
    ASSERT_EQ(zunOpenDocumentStream(s, "huge"), 0);
    expect_reads(s, huge, 4);
    zunClose(s);
}

// A cut file either fails or, when every sector a stream needs is there,
// reads exactly.
TEST_F(Compound, TruncatedFilesFailOrReadExactly) {
    std::vector<size_t> lengths = {file.size() - 1, file.size()};
    for (size_t len = 0; len < file.size(); len += 61) lengths.push_back(len);
    int opened = 0;
    for (size_t len : lengths) {
        MemoryBlock m;
        HGLOBAL s = m.holding(slice(file, 0, len));
        for (const auto &[name, want] :
             {std::pair{"big.bin", &big}, std::pair{"small.txt", &small}}) {
            int32_t r = zunOpenDocumentStream(s, name);
            EXPECT_TRUE(len >= 512 || r == TOLVA_DOC_NOT_COMPOUND) << len;
            if (r != 0) continue;
            ++opened;
            EXPECT_EQ(read_at(s, 0, want->size() + 1), *want) << len;
        }
        zunClose(s);
    }
    EXPECT_GE(opened, 2);  // the whole file at least
}

// One damage of each kind the reader checks; arbitrary damage is the compound
// fuzz target's.
TEST_F(Compound, DamagedTablesFailCleanly) {
    size_t directory = (le32(file, 0x30) + 1) * 512, big_entry = 0, small_entry = 0;
    for (size_t at = directory; at < directory + 512; at += 128) {
        if (file[at] == 'b') big_entry = at;  // the names are UTF-16, their first byte suffices
        if (file[at] == 's') small_entry = at;
    }
    ASSERT_NE(big_entry * small_entry, 0u);
    uint32_t big_start = le32(file, big_entry + 0x74);
    struct Damage {
        const char *what, *name;
        size_t at;
        uint32_t value;
    } cases[] = {
        {"big stream loops onto itself", "big.bin", (le32(file, 0x4C) + 1) * 512 + 4 * big_start,
         big_start},
        {"big stream starts past the file", "big.bin", big_entry + 0x74, 0x7FFFFFF0u},
        {"small stream starts past the mini stream", "small.txt", small_entry + 0x74, 5000},
        {"allocation table count is absurd", "big.bin", 0x2C, 0xFFFFFF},
        {"big stream claims 2 GiB", "big.bin", big_entry + 0x78, 0x7FFFFFFF},
        {"no compound signature", "big.bin", 0, 0},
    };
    for (const Damage &c : cases) {
        auto bad = file;
        for (int i = 0; i < 4; ++i) bad[c.at + i] = static_cast<uint8_t>(c.value >> (8 * i));
        MemoryBlock m;
        HGLOBAL s = m.holding(bad);
        int32_t want = c.at == 0 ? TOLVA_DOC_NOT_COMPOUND : TOLVA_DOC_CORRUPT;
        EXPECT_EQ(zunOpenDocumentStream(s, c.name), want) << c.what;
        zunClose(s);
    }
    EXPECT_EQ(zunOpenDocumentStream(0, "big.bin"), TOLVA_DOC_BAD_STREAM);
}

}  // namespace
