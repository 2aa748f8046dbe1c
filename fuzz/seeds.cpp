// Makes the seed corpora of the stream and profile fuzz targets:
// `fuzz_seeds DIR` writes them under DIR/<target>/, `fuzz_seeds --check DIR`
// fails when a file there differs from what would be written. Each seed is a
// valid input of its target, laid out as the target's opening comment says.
// The compound documents are built here sector by sector: one small stream in
// the mini stream, regular streams, a storage, and one document with more
// allocation-table sectors than its header can list, so that the extension
// (DIFAT) sectors are followed.
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes pattern(size_t n, uint32_t seed) {
    Bytes b(n);
    for (uint8_t &v : b) {
        seed = seed * 1103515245u + 12345u;
        v = static_cast<uint8_t>(seed >> 16);
    }
    return b;
}

void put16(Bytes &b, size_t at, uint16_t v) {
    b[at] = static_cast<uint8_t>(v);
    b[at + 1] = static_cast<uint8_t>(v >> 8);
}
void put32(Bytes &b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + static_cast<size_t>(i)] = static_cast<uint8_t>(v >> (8 * i));
}

// ---- compound documents (512-byte sectors, 64-byte mini-sectors) ----

constexpr uint32_t kFree = 0xFFFFFFFFu, kEnd = 0xFFFFFFFEu, kFatSector = 0xFFFFFFFDu,
                   kDifatSector = 0xFFFFFFFCu, kNone = 0xFFFFFFFFu;

struct Node {
    std::string name;
    uint8_t type;  // 1 storage, 2 stream, 5 root
    Bytes data;
    std::vector<size_t> children;
    uint32_t start = kEnd, size = 0, left = kNone, right = kNone, child = kNone;
    uint8_t colour = 1;  // black
};

uint32_t sectors_for(size_t bytes, size_t unit) {
    return static_cast<uint32_t>((bytes + unit - 1) / unit);
}

// A red-black sibling tree over the children in the order names compare
// (shorter first, then by upper-case letters): balanced, the deepest level
// of an incomplete tree red.
uint32_t build_tree(std::vector<Node> &nodes, const std::vector<size_t> &order, size_t lo,
                    size_t hi, int depth, int red_depth) {
    if (lo >= hi) return kNone;
    size_t mid = (lo + hi) / 2;
    Node &n = nodes[order[mid]];
    n.colour = depth == red_depth ? 0 : 1;
    uint32_t l = build_tree(nodes, order, lo, mid, depth + 1, red_depth);
    uint32_t r = build_tree(nodes, order, mid + 1, hi, depth + 1, red_depth);
    nodes[order[mid]].left = l;
    nodes[order[mid]].right = r;
    return static_cast<uint32_t>(order[mid]);
}

std::string upper(std::string s) {
    for (char &c : s) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
    return s;
}

// nodes[0] is the root. `min_fat` forces at least that many allocation-table
// sectors.
Bytes compound(std::vector<Node> nodes, uint32_t min_fat = 1) {
    // Small streams go to the mini stream, laid end to end in 64-byte steps.
    Bytes mini;
    std::vector<uint32_t> mini_fat;
    uint32_t big_sectors = 0;
    for (Node &n : nodes) {
        if (n.type != 2) continue;
        n.size = static_cast<uint32_t>(n.data.size());
        if (n.data.empty()) continue;
        if (n.data.size() < 4096) {
            uint32_t first = static_cast<uint32_t>(mini.size() / 64),
                     count = sectors_for(n.data.size(), 64);
            n.start = first;
            for (uint32_t i = 0; i < count; ++i)
                mini_fat.push_back(i + 1 < count ? first + i + 1 : kEnd);
            mini.insert(mini.end(), n.data.begin(), n.data.end());
            mini.resize(static_cast<size_t>(first + count) * 64, 0);
        } else {
            big_sectors += sectors_for(n.data.size(), 512);
        }
    }
    uint32_t dir_sectors = sectors_for(nodes.size(), 4);
    uint32_t mini_fat_sectors = sectors_for(mini_fat.size() * 4, 512);
    uint32_t container = sectors_for(mini.size(), 512);
    uint32_t fat = min_fat, difat = 0;
    for (;;) {
        difat = fat > 109 ? (fat - 109 + 126) / 127 : 0;
        uint32_t total = fat + difat + dir_sectors + mini_fat_sectors + container + big_sectors;
        if (fat * 128 >= total) break;
        ++fat;
    }
    std::vector<uint32_t> table(static_cast<size_t>(fat) * 128, kFree);
    uint32_t next = 0;
    auto chain = [&](uint32_t count) {
        uint32_t first = next;
        for (uint32_t i = 0; i < count; ++i)
            table[first + i] = i + 1 < count ? first + i + 1 : kEnd;
        next += count;
        return count > 0 ? first : kEnd;
    };
    for (uint32_t i = 0; i < fat; ++i) table[next++] = kFatSector;
    uint32_t first_difat = difat > 0 ? next : kEnd;
    for (uint32_t i = 0; i < difat; ++i) table[next++] = kDifatSector;
    uint32_t first_dir = chain(dir_sectors);
    uint32_t first_mini_fat = chain(mini_fat_sectors);
    uint32_t first_container = chain(container);
    for (Node &n : nodes)
        if (n.type == 2 && n.data.size() >= 4096) n.start = chain(sectors_for(n.data.size(), 512));
    nodes[0].start = first_container;
    nodes[0].size = static_cast<uint32_t>(mini.size());

    for (Node &parent : nodes) {
        if (parent.children.empty()) continue;
        std::vector<size_t> order = parent.children;
        std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
            const std::string &x = nodes[a].name, &y = nodes[b].name;
            return x.size() != y.size() ? x.size() < y.size() : upper(x) < upper(y);
        });
        int levels = 0;
        while ((size_t{1} << (levels + 1)) - 1 < order.size()) ++levels;
        bool perfect = (size_t{1} << (levels + 1)) - 1 == order.size();
        parent.child = build_tree(nodes, order, 0, order.size(), 0, perfect ? -1 : levels);
    }

    Bytes file(static_cast<size_t>(next + 1) * 512, 0);
    auto sector = [&](uint32_t s) { return static_cast<size_t>(s + 1) * 512; };
    const uint8_t signature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
    std::memcpy(file.data(), signature, 8);
    put16(file, 0x18, 0x3E);
    put16(file, 0x1A, 3);
    put16(file, 0x1C, 0xFFFE);
    put16(file, 0x1E, 9);
    put16(file, 0x20, 6);
    put32(file, 0x2C, fat);
    put32(file, 0x30, first_dir);
    put32(file, 0x38, 4096);
    put32(file, 0x3C, first_mini_fat);
    put32(file, 0x40, mini_fat_sectors);
    put32(file, 0x44, first_difat);
    put32(file, 0x48, difat);
    for (uint32_t i = 0; i < 109; ++i) put32(file, 0x4C + 4 * i, i < fat ? i : kFree);
    for (uint32_t d = 0; d < difat; ++d) {
        size_t at = sector(first_difat + d);
        for (uint32_t i = 0; i < 127; ++i) {
            uint32_t f = 109 + d * 127 + i;
            put32(file, at + 4 * i, f < fat ? f : kFree);
        }
        put32(file, at + 508, d + 1 < difat ? first_difat + d + 1 : kEnd);
    }
    for (size_t i = 0; i < table.size(); ++i)
        put32(file, sector(static_cast<uint32_t>(i / 128)) + 4 * (i % 128), table[i]);
    for (size_t i = 0; i < dir_sectors * size_t{4}; ++i) {
        size_t at = sector(first_dir + static_cast<uint32_t>(i / 4)) + 128 * (i % 4);
        if (i >= nodes.size()) {
            put32(file, at + 0x44, kNone);
            put32(file, at + 0x48, kNone);
            put32(file, at + 0x4C, kNone);
            continue;
        }
        const Node &n = nodes[i];
        for (size_t c = 0; c < n.name.size(); ++c)
            put16(file, at + 2 * c, static_cast<uint8_t>(n.name[c]));
        put16(file, at + 0x40, static_cast<uint16_t>((n.name.size() + 1) * 2));
        file[at + 0x42] = n.type;
        file[at + 0x43] = n.colour;
        put32(file, at + 0x44, n.left);
        put32(file, at + 0x48, n.right);
        put32(file, at + 0x4C, n.child);
        put32(file, at + 0x74, n.start);
        put32(file, at + 0x78, n.size);
    }
    for (size_t i = 0; i < mini_fat_sectors * size_t{128}; ++i)
        put32(file, sector(first_mini_fat + static_cast<uint32_t>(i / 128)) + 4 * (i % 128),
              i < mini_fat.size() ? mini_fat[i] : kFree);
    if (!mini.empty()) std::memcpy(file.data() + sector(first_container), mini.data(), mini.size());
    for (const Node &n : nodes)
        if (n.type == 2 && n.data.size() >= 4096)
            std::memcpy(file.data() + sector(n.start), n.data.data(), n.data.size());
    return file;
}

Node root(std::vector<size_t> children) { return Node{"Root Entry", 5, {}, std::move(children)}; }
Node stream(const std::string &name, Bytes data) { return Node{name, 2, std::move(data), {}}; }

// The compound target's input: flags, second name, three seeks, read length, document.
Bytes compound_input(uint8_t flags, uint8_t second, const Bytes &document) {
    Bytes in = {flags, second, 0, 100, 0, 1, 0x00, 0xFF, 2, 40, 0, 9};
    in.insert(in.end(), document.begin(), document.end());
    return in;
}

// ---- the other targets ----

Bytes struct_input(uint8_t options, const std::string &format, size_t data) {
    Bytes in = {options};
    in.insert(in.end(), format.begin(), format.end());
    in.push_back(0);
    Bytes d = pattern(data, static_cast<uint32_t>(format.size() * 31 + options));
    in.insert(in.end(), d.begin(), d.end());
    return in;
}

Bytes line_input(uint8_t options, uint8_t size, uint8_t detect_at, uint8_t repeat,
                 const std::string &t) {
    Bytes in = {options, size, detect_at, repeat};
    in.insert(in.end(), t.begin(), t.end());
    return in;
}

// Operations of the stream target.
struct Ops {
    Bytes in;
    explicit Ops(uint8_t flags) : in{flags} {}
    Ops &write(uint16_t n, uint8_t seed) { return add({0, uint8_t(n), uint8_t(n >> 8), seed}); }
    Ops &write_small(uint8_t n, uint8_t seed) { return add({1, n, seed}); }
    Ops &byte(uint8_t v) { return add({2, v}); }
    Ops &read(uint16_t n) { return add({3, uint8_t(n), uint8_t(n >> 8)}); }
    Ops &seek(int16_t offset, uint8_t origin) {
        auto u = static_cast<uint16_t>(offset);
        return add({5, origin, uint8_t(u), uint8_t(u >> 8)});
    }
    Ops &flush() { return add({6 | 0x80}); }
    Ops &tell() { return add({6}); }
    Ops &reopen(uint8_t choice) { return add({7, choice}); }
    Ops &add(std::initializer_list<uint8_t> b) {
        in.insert(in.end(), b);
        return *this;
    }
};

Bytes profile_input(bool exists, const std::vector<Bytes> &steps, const std::string &t) {
    Bytes in = {static_cast<uint8_t>((steps.size() - 1) | (exists ? 0 : 0x80))};
    for (const Bytes &s : steps) in.insert(in.end(), s.begin(), s.end());
    in.insert(in.end(), t.begin(), t.end());
    return in;
}
// request 0 set, 1 delete key, 2 delete section; section, key and value index
// the target's word lists.
Bytes step(int request, int section, int key, int value) {
    return {static_cast<uint8_t>(request + 3 * section), static_cast<uint8_t>(key),
            static_cast<uint8_t>(value)};
}

struct Seed {
    std::string target, name;
    Bytes bytes;
};

std::vector<Seed> seeds() {
    std::vector<Seed> out;
    auto add = [&](const char *target, const std::string &name, Bytes b) {
        out.push_back({target, name, std::move(b)});
    };

    // Compound documents. Names: 0 stream, 1 big, 2 small, 3 dir/inner, 4 DIR/Inner, 5 missing.
    add("compound_fuzz", "one-stream",
        compound_input(0 << 1, 5, compound({root({1}), stream("stream", pattern(300, 1))})));
    add("compound_fuzz", "one-big-stream-on-file",
        compound_input(1 | 1 << 1, 0, compound({root({1}), stream("big", pattern(5000, 2))})));
    {
        std::vector<Node> nodes = {
            root({1, 2, 3}), Node{"dir", 1, {}, {4}}, stream("small", pattern(100, 3)),
            stream("big", pattern(4100, 4)), stream("inner", pattern(700, 5))};
        add("compound_fuzz", "storage", compound_input(3 << 1, 2, compound(nodes)));
        add("compound_fuzz", "storage-on-file", compound_input(1 | 4 << 1, 1, compound(nodes)));
    }
    add("compound_fuzz", "extension-sectors",
        compound_input(1 << 1, 0,
                       compound({root({1, 2}), stream("big", pattern(6000, 6)),
                                 stream("stream", pattern(90, 7))},
                                110)));

    // Struct formats: the GIF writer's own, then alignment, nesting, unions, skips.
    const struct {
        uint8_t options;
        const char *format;
    } formats[] = {{0x00, "6C2S3C"}, {0x01, "4C1S2C"},    {0x04, "1C4S1C"},     {0x10, "3C"},
                   {0x0D, "2C1L"},   {0x01, "1C{1D}"},    {0x08, "(1L|1D|)1S"}, {0x02, "[2L]1c1F"},
                   {0x13, "1C2F1D"}, {0x0C, "2S{1C1L}1D"}};
    for (size_t i = 0; i < sizeof formats / sizeof formats[0]; ++i)
        add("struct_fuzz", "format" + std::to_string(i),
            struct_input(formats[i].options, formats[i].format, 96));

    // Lines: every line end, a full buffer, no end at all, and a long text
    // repeated past a file buffer's window.
    add("line_fuzz", "mixed-ends", line_input(2 << 1, 79, 0, 0, "ab\r\ncd\ref\n"));
    add("line_fuzz", "no-end", line_input(1 | 1 << 1, 20, 1, 0, "xyz"));
    add("line_fuzz", "full-buffer", line_input(0, 3, 2, 0, "abcdef\r\n\n\r\r\n"));
    add("line_fuzz", "cr-last", line_input(1 | 3 << 1, 9, 0, 0, "one\ntwo\r"));
    std::string longer;
    for (int i = 0; i < 60; ++i)
        longer += std::string(static_cast<size_t>(i % 37), static_cast<char>('a' + i % 26)) +
                  (i % 3 == 0   ? "\r\n"
                   : i % 3 == 1 ? "\r"
                                : "\n");
    add("line_fuzz", "windows", line_input(1 | 0x80, 40, 5, 7, longer));
    add("line_fuzz", "long-lines",
        line_input(1 | 0x80 | 0x40, 200, 0, 7, longer + std::string(900, 'q')));

    // Stream sequences, each on memory and on a file.
    for (uint8_t file : {0, 1}) {
        std::string on = file ? "-file" : "-memory";
        add("stream_fuzz", "write-read-reopen" + on,
            Ops(file)
                .write(20000, 7)
                .seek(0, 0)
                .read(30000)
                .seek(-100, 2)
                .write_small(9, 3)
                .reopen(1)
                .seek(50, 2)
                .byte(0xAB)
                .reopen(0)
                .read(30000)
                .seek(12, 0)
                .read(16)
                .in);
        add("stream_fuzz", "windows" + on,
            Ops(file)
                .write(13000, 1)
                .flush()
                .seek(12280, 0)
                .write(20, 2)
                .tell()
                .seek(-5, 1)
                .read(30)
                .write(24576, 3)
                .seek(0, 0)
                .read(12288)
                .read(12289)
                .reopen(2)
                .write(5, 4)
                .in);
        add("stream_fuzz", "bytes" + on,
            Ops(file | 2)
                .byte(1)
                .byte(0)
                .byte(0)
                .reopen(1)
                .seek(1, 2)
                .byte(0)
                .reopen(1)
                .read(10)
                .reopen(0)
                .seek(3, 0)
                .seek(2, 0)
                .read(5)
                .in);
    }

    // Profiles: each line end, repeated and empty sections, comments, quotes.
    const std::string crlf =
        "; settings\r\n[GIF Export]\r\nWidth=640\r\n Mode = fast ;x\r\n\r\n[TOLVA]\r\nk=1\r\n";
    add("profile_write_fuzz", "crlf",
        profile_input(true, {step(0, 0, 0, 0), step(1, 1, 2, 0), step(0, 3, 3, 3)}, crlf));
    add("profile_write_fuzz", "lf-repeated",
        profile_input(
            true, {step(0, 1, 1, 1), step(1, 1, 1, 0), step(2, 0, 0, 0)},
            "[TOLVA]\nMode=slow\n[tolva]\nMode=\"q\"\n[x]\nk=2\n\n[TOLVA]\nDepth=8\nlast=no end"));
    add("profile_write_fuzz", "cr",
        profile_input(true, {step(2, 2, 0, 0), step(0, 2, 2, 4)},
                      "[x]\rk=1\r[\"colors\"]\rDepth=4\r"));
    add("profile_write_fuzz", "no-file",
        profile_input(false, {step(1, 0, 0, 0), step(0, 0, 1, 2), step(0, 0, 1, 1)}, ""));
    return out;
}

Bytes read_file(const std::string &path, bool *found) {
    Bytes b;
    FILE *f = std::fopen(path.c_str(), "rb");
    *found = f != nullptr;
    if (f == nullptr) return b;
    uint8_t chunk[4096];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) b.insert(b.end(), chunk, chunk + n);
    std::fclose(f);
    return b;
}

}  // namespace

int main(int argc, char **argv) {
    bool check = argc == 3 && std::strcmp(argv[1], "--check") == 0;
    if (argc != 2 && !check) {
        std::fprintf(stderr, "usage: fuzz_seeds [--check] CORPUS_DIR\n");
        return 2;
    }
    std::string root = argv[argc - 1];
    int bad = 0;
    for (const Seed &s : seeds()) {
        std::string path = root + "/" + s.target + "/" + s.name;
        if (check) {
            bool found = false;
            if (read_file(path, &found) != s.bytes) {
                std::fprintf(stderr, "%s: %s; run fuzz_seeds fuzz/corpus\n", path.c_str(),
                             found ? "differs from the generated seed" : "missing");
                ++bad;
            }
            continue;
        }
        mkdir(root.c_str(), 0755);  // either made or there already; the open below tells
        mkdir((root + "/" + s.target).c_str(), 0755);
        FILE *f = std::fopen(path.c_str(), "wb");
        if (f == nullptr || std::fwrite(s.bytes.data(), 1, s.bytes.size(), f) != s.bytes.size() ||
            std::fclose(f) != 0) {
            std::fprintf(stderr, "%s: cannot write\n", path.c_str());
            ++bad;
        }
    }
    return bad == 0 ? 0 : 1;
}
