// Opening a named sub-stream of a compound document (Compound File Binary
// Format, version 3: 512-byte sectors, 64-byte mini-sectors, mini streams
// below 4096 bytes) on a file or memory stream.
//
// Reads the header, the sector allocation table through the header's and the
// extension sectors' DIFAT entries, the mini-sector table and the directory,
// then fills the record's document fields. The invariant: nothing is read
// outside the whole sectors the stream holds, and every chain that docRead
// will walk has been followed here first, in range and without a loop, for as
// far as the sub-stream's size needs it.
#include <stdint.h>
#include <string.h>

#include "stream/stream.h"

namespace {

constexpr uint32_t kLinksPerSector = kDocSector / 4;
constexpr uint32_t kEndOfChain = 0xFFFFFFFEu;
constexpr uint32_t kNoStream = 0xFFFFFFFFu;
constexpr uint32_t kEntrySize = 128;
constexpr uint32_t kHeaderDifat = 109;
constexpr uint8_t kSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

enum EntryType : uint8_t { kStorage = 1, kStream = 2, kRoot = 5 };

// The document's numbers are little-endian.
uint32_t le32(const uint8_t *p) { return static_cast<uint32_t>(stream_load_bytes(p, 4, false)); }
uint16_t le16(const uint8_t *p) { return static_cast<uint16_t>(stream_load_bytes(p, 2, false)); }

// One growable table of u32 values in a memory handle.
struct Table {
    HGLOBAL handle = 0;
    uint32_t *links = nullptr;
    uint32_t count = 0;
};

bool table_make(Table *t, uint32_t count) {
    if (count > UINT32_MAX / 4) return false;
    t->handle = GlobalAlloc(TOLVA_GMEM_FLAGS, count * 4);
    if (t->handle == 0) return false;
    t->links = static_cast<uint32_t *>(GlobalLock(t->handle));
    t->count = count;
    return true;
}

void table_free(Table *t) {
    if (t->handle != 0) GlobalFree(t->handle);
    *t = Table{};
}

struct Document {
    HGLOBAL stream;
    uint32_t sectors;  // whole 512-byte sectors after the header
    Table fat;
    Table miniFat;
    Table directory;  // raw directory bytes, 4 entries per sector
    uint32_t entries;
};

bool read_sector(const Document &d, uint32_t sector, uint8_t *out) {
    if (sector >= d.sectors) return false;
    auto at = static_cast<int32_t>((sector + 1) * kDocSector);
    return zunSeek(d.stream, at, SEEK_SET) == at &&
           zunRead(d.stream, out, kDocSector) == static_cast<int32_t>(kDocSector);
}

// Follows a chain from `start` through the allocation table, calling `visit`
// with each sector, until the end-of-chain mark. Fails on a link out of
// range, on a loop (more links than sectors) or on a chain shorter than
// `needed`. `limit` is the largest valid sector number plus one.
template <typename Visit>
bool follow(const Table &fat, uint32_t start, uint32_t limit, uint32_t needed, Visit visit) {
    uint32_t sector = start;
    uint32_t length = 0;
    while (sector != kEndOfChain) {
        if (sector >= limit || sector >= fat.count || length >= limit) return false;
        if (!visit(sector, length)) return false;
        ++length;
        sector = fat.links[sector];
    }
    return length >= needed;
}

uint32_t blocks(uint64_t bytes, uint32_t size) {
    return static_cast<uint32_t>((bytes + size - 1) / size);
}

int32_t load_fat(Document *d, const uint8_t *header) {
    uint32_t fatSectors = le32(header + 0x2C);
    uint32_t difatNext = le32(header + 0x44);
    uint32_t difatSectors = le32(header + 0x48);
    if (fatSectors == 0 || fatSectors > d->sectors || difatSectors > d->sectors) {
        return TOLVA_DOC_CORRUPT;
    }
    if (!table_make(&d->fat, fatSectors * kLinksPerSector)) return TOLVA_DOC_CORRUPT;
    uint8_t sector[kDocSector];
    uint32_t loaded = 0;
    auto load = [&](uint32_t where) {
        if (!read_sector(*d, where, sector)) return false;
        uint32_t *out = d->fat.links + loaded * kLinksPerSector;
        for (uint32_t i = 0; i < kLinksPerSector; ++i) out[i] = le32(sector + 4 * i);
        ++loaded;
        return true;
    };
    for (uint32_t i = 0; i < kHeaderDifat && loaded < fatSectors; ++i) {
        if (!load(le32(header + 0x4C + 4 * i))) return TOLVA_DOC_CORRUPT;
    }
    // Extension sectors: 127 FAT sector numbers, then the next one's number.
    uint8_t difat[kDocSector];
    for (uint32_t seen = 0; loaded < fatSectors; ++seen) {
        if (seen >= difatSectors || !read_sector(*d, difatNext, difat)) return TOLVA_DOC_CORRUPT;
        for (uint32_t i = 0; i < kLinksPerSector - 1 && loaded < fatSectors; ++i) {
            if (!load(le32(difat + 4 * i))) return TOLVA_DOC_CORRUPT;
        }
        difatNext = le32(difat + kDocSector - 4);
    }
    return 0;
}

int32_t load_directory(Document *d, const uint8_t *header) {
    uint32_t count = 0;
    if (!follow(d->fat, le32(header + 0x30), d->sectors, 1,
                [&](uint32_t, uint32_t) { return ++count, true; })) {
        return TOLVA_DOC_CORRUPT;
    }
    if (!table_make(&d->directory, count * kLinksPerSector)) return TOLVA_DOC_CORRUPT;
    auto *bytes = reinterpret_cast<uint8_t *>(d->directory.links);
    if (!follow(d->fat, le32(header + 0x30), d->sectors, 1, [&](uint32_t s, uint32_t i) {
            return read_sector(*d, s, bytes + uint64_t{i} * kDocSector);
        })) {
        return TOLVA_DOC_CORRUPT;
    }
    d->entries = count * (kDocSector / kEntrySize);
    return 0;
}

int32_t load_mini_fat(Document *d, const uint8_t *header) {
    uint32_t start = le32(header + 0x3C);
    uint32_t count = 0;
    if (start == kEndOfChain) return 0;
    if (!follow(d->fat, start, d->sectors, 1, [&](uint32_t, uint32_t) { return ++count, true; })) {
        return TOLVA_DOC_CORRUPT;
    }
    if (!table_make(&d->miniFat, count * kLinksPerSector)) return TOLVA_DOC_CORRUPT;
    uint8_t sector[kDocSector];
    bool ok = follow(d->fat, start, d->sectors, 1, [&](uint32_t s, uint32_t i) {
        if (!read_sector(*d, s, sector)) return false;
        for (uint32_t k = 0; k < kLinksPerSector; ++k) {
            d->miniFat.links[i * kLinksPerSector + k] = le32(sector + 4 * k);
        }
        return true;
    });
    return ok ? 0 : TOLVA_DOC_CORRUPT;
}

const uint8_t *entry(const Document &d, uint32_t id) {
    return reinterpret_cast<const uint8_t *>(d.directory.links) + uint64_t{id} * kEntrySize;
}

uint32_t fold(uint32_t c) { return c >= 'a' && c <= 'z' ? c - 32 : c; }

// Decodes UTF-8 into UTF-16 code units; false when it does not fit 31 units.
bool to_utf16(const char *name, size_t length, uint16_t *out, uint32_t *units) {
    uint32_t n = 0;
    const auto *p = reinterpret_cast<const uint8_t *>(name);
    const uint8_t *end = p + length;
    while (p < end) {
        uint32_t c = *p++;
        int more = c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : c >= 0xC0 ? 1 : 0;
        if (more) c &= 0x3Fu >> more;
        for (int i = 0; i < more && p < end; ++i) c = c << 6 | (*p++ & 0x3Fu);
        if (c >= 0x10000) {
            if (n + 2 > 31) return false;
            c -= 0x10000;
            out[n++] = static_cast<uint16_t>(0xD800 | c >> 10);
            out[n++] = static_cast<uint16_t>(0xDC00 | (c & 0x3FF));
        } else {
            if (n + 1 > 31) return false;
            out[n++] = static_cast<uint16_t>(c);
        }
    }
    *units = n;
    return true;
}

bool name_matches(const uint8_t *e, const uint16_t *want, uint32_t units) {
    uint16_t bytes = le16(e + 0x40);
    if (bytes != (units + 1) * 2) return false;
    for (uint32_t i = 0; i < units; ++i) {
        if (fold(le16(e + 2 * i)) != fold(want[i])) return false;
    }
    return true;
}

// Searches the sibling tree under `parent` for a name; kNoStream when absent.
int32_t find_child(const Document &d, uint32_t parent, const uint16_t *want, uint32_t units,
                   uint32_t *found) {
    uint32_t stack[128];
    uint32_t depth = 0;
    uint32_t visited = 0;
    stack[depth++] = le32(entry(d, parent) + 0x4C);
    while (depth > 0) {
        uint32_t id = stack[--depth];
        if (id == kNoStream) continue;
        if (id >= d.entries || ++visited > d.entries || depth + 2 > 128) return TOLVA_DOC_CORRUPT;
        const uint8_t *e = entry(d, id);
        if (name_matches(e, want, units)) {
            *found = id;
            return 0;
        }
        stack[depth++] = le32(e + 0x44);
        stack[depth++] = le32(e + 0x48);
    }
    *found = kNoStream;
    return 0;
}

int32_t open_document(Document *d, const char *path, StreamRecord *r) {
    uint8_t header[kDocSector];
    int32_t length = zunSeek(d->stream, 0, SEEK_END);
    if (length < static_cast<int32_t>(kDocSector) || zunSeek(d->stream, 0, SEEK_SET) != 0 ||
        zunRead(d->stream, header, kDocSector) != static_cast<int32_t>(kDocSector)) {
        return TOLVA_DOC_NOT_COMPOUND;
    }
    if (memcmp(header, kSignature, 8) != 0 || le16(header + 0x1C) != 0xFFFE ||
        le16(header + 0x1A) != 3 || le16(header + 0x1E) != 9 || le16(header + 0x20) != 6 ||
        le32(header + 0x38) != kDocMiniCutoff) {
        return TOLVA_DOC_NOT_COMPOUND;
    }
    d->sectors = static_cast<uint32_t>(length) / kDocSector - 1;
    int32_t result = load_fat(d, header);
    if (result == 0) result = load_directory(d, header);
    if (result == 0) result = load_mini_fat(d, header);
    if (result != 0) return result;
    if (entry(*d, 0)[0x42] != kRoot) return TOLVA_DOC_CORRUPT;

    uint32_t id = 0;
    for (const char *p = path;;) {
        const char *slash = strchr(p, '/');
        size_t n = slash != nullptr ? static_cast<size_t>(slash - p) : strlen(p);
        uint16_t want[31];
        uint32_t units = 0;
        if (n == 0 || !to_utf16(p, n, want, &units)) return TOLVA_DOC_NOT_FOUND;
        if (find_child(*d, id, want, units, &id) != 0) return TOLVA_DOC_CORRUPT;
        if (id == kNoStream) return TOLVA_DOC_NOT_FOUND;
        uint8_t type = entry(*d, id)[0x42];
        if (slash == nullptr) {
            if (type != kStream) return TOLVA_DOC_NOT_FOUND;
            break;
        }
        if (type != kStorage) return TOLVA_DOC_NOT_FOUND;
        p = slash + 1;
    }

    const uint8_t *root = entry(*d, 0);
    const uint8_t *e = entry(*d, id);
    uint32_t size = le32(e + 0x78);
    uint32_t start = le32(e + 0x74);
    uint32_t miniStart = le32(root + 0x74);
    if (size == 0) {
        // Nothing will be read; the chain is not looked at.
    } else if (size >= kDocMiniCutoff) {
        if (!follow(d->fat, start, d->sectors, blocks(size, kDocSector),
                    [](uint32_t, uint32_t) { return true; })) {
            return TOLVA_DOC_CORRUPT;
        }
    } else {
        // The mini-sectors must lie inside the container, and the container's
        // chain must hold every sector they can reach.
        uint32_t container = 0;
        if (!follow(d->fat, miniStart, d->sectors, blocks(le32(root + 0x78), kDocSector),
                    [&](uint32_t, uint32_t) { return ++container, true; })) {
            return TOLVA_DOC_CORRUPT;
        }
        uint64_t minis = uint64_t{container} * (kDocSector / kDocMiniSector);
        uint64_t rootMinis = blocks(le32(root + 0x78), kDocMiniSector);
        if (rootMinis < minis) minis = rootMinis;
        auto limit = static_cast<uint32_t>(minis);
        if (!follow(d->miniFat, start, limit, blocks(size, kDocMiniSector),
                    [](uint32_t, uint32_t) { return true; })) {
            return TOLVA_DOC_CORRUPT;
        }
    }
    stream_release_tables(r);
    r->docSectorTable = d->fat.handle;
    r->docMiniSectorTable = d->miniFat.handle;
    d->fat = Table{};
    d->miniFat = Table{};
    r->docMiniStreamStart = miniStart;
    r->docStartSector = start;
    r->docSize = size;
    r->docPosition = 0;
    return 0;
}

}  // namespace

extern "C" {

int32_t zunOpenDocumentStream(HGLOBAL s, const char *path) {
    if (s == 0 || path == nullptr) return TOLVA_DOC_BAD_STREAM;
    StreamRecord *r = stream_lock(s);
    if (r->ioProc != nullptr) return TOLVA_DOC_BAD_STREAM;
    int32_t was = r->docMode;
    r->docMode = 0;  // the container is read through the plain stream
    Document d{s, 0, {}, {}, {}, 0};
    int32_t result = open_document(&d, path, r);
    table_free(&d.fat);
    table_free(&d.miniFat);
    table_free(&d.directory);
    if (result == 0) {
        r->docMode = 1;
    } else {
        r->docMode = was;
    }
    return result;
}

}  // extern "C"
