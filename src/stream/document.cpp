// Serving a compound-document sub-stream through the plain buffered file.
//
// The sub-stream's bytes are found by walking its chain of 512-byte sectors,
// or of 64-byte mini-sectors inside the mini-stream container. The invariant:
// every table lookup stays inside its table and every file offset inside the
// 32-bit range; a chain that leaves either ends the read early.
#include <stdint.h>

#include "stream/stream.h"

namespace {

struct Chain {
    const uint32_t *links;
    uint32_t count;
};

Chain chain_of(HGLOBAL table) {
    Chain c{static_cast<const uint32_t *>(GlobalLock(table)), GlobalSize(table) / 4};
    if (c.links == nullptr) c.count = 0;
    return c;
}

// The sector `steps` links after `sector`; false when a link leaves the table.
bool walk(const Chain &c, uint32_t sector, uint32_t steps, uint32_t *found) {
    for (uint32_t i = 0; i < steps; ++i) {
        if (sector >= c.count) return false;
        sector = c.links[sector];
    }
    *found = sector;
    return true;
}

bool next_link(const Chain &c, uint32_t *sector) {
    if (*sector >= c.count) return false;
    *sector = c.links[*sector];
    return true;
}

// File offset of byte `within` of sector `sector`; false past 32 bits.
bool sector_offset(uint32_t sector, uint32_t within, int32_t *offset) {
    uint64_t at = (uint64_t{sector} + 1) * kDocSector + within;
    if (at > INT32_MAX) return false;
    *offset = static_cast<int32_t>(at);
    return true;
}

}  // namespace

extern "C" {

int32_t docSeek(HGLOBAL s, int32_t offset, int32_t origin) {
    if (s == 0) return -1;
    StreamRecord *r = stream_lock(s);
    int64_t target;
    if (origin == SEEK_END) {
        // Measured back from the end by subtraction of the offset itself.
        target = int64_t{r->docSize} - offset;
    } else if (origin == SEEK_SET) {
        target = offset;
    } else if (origin == SEEK_CUR) {
        target = int64_t{r->docPosition} + offset;
    } else {
        return -1;
    }
    if (target < 0) target = 0;
    if (target >= r->docSize) target = r->docSize;
    r->docPosition = static_cast<uint32_t>(target);
    return static_cast<int32_t>(target);
}

int32_t docRead(HGLOBAL s, void *buffer, int32_t count) {
    if (s == 0) return 0;
    StreamRecord *r = stream_lock(s);
    // The pieces are fetched through the plain file below.
    r->docMode = 0;
    int64_t left = r->docPosition < r->docSize ? int64_t{r->docSize} - r->docPosition : 0;
    if (count < left) left = count < 0 ? 0 : count;

    Chain big = chain_of(r->docSectorTable);
    Chain mini = chain_of(r->docMiniSectorTable);
    bool small = r->docSize < kDocMiniCutoff;
    uint32_t block = small ? kDocMiniSector : kDocSector;
    auto *out = static_cast<uint8_t *>(buffer);
    int32_t total = 0;
    uint32_t sector = 0;
    bool ok =
        left > 0 && walk(small ? mini : big, r->docStartSector, r->docPosition / block, &sector);
    while (ok && left > 0) {
        uint32_t within = r->docPosition % block;
        uint32_t piece = block - within;
        if (piece > left) piece = static_cast<uint32_t>(left);
        int32_t at = 0;
        if (small) {
            uint64_t place = uint64_t{sector} * kDocMiniSector + within;
            uint32_t container = 0;
            ok = place / kDocSector <= UINT32_MAX &&
                 walk(big, r->docMiniStreamStart, static_cast<uint32_t>(place / kDocSector),
                      &container) &&
                 sector_offset(container, static_cast<uint32_t>(place % kDocSector), &at);
        } else {
            ok = sector_offset(sector, within, &at);
        }
        if (!ok) break;
        int32_t got = -1;
        if (zunSeek(s, at, SEEK_SET) == at) got = zunRead(s, out, static_cast<int32_t>(piece));
        // The position moves by the whole piece even when the read fell short.
        out += piece;
        r->docPosition += piece;
        total += static_cast<int32_t>(piece);
        left -= piece;
        if (got < static_cast<int32_t>(piece)) break;
        ok = next_link(small ? mini : big, &sector);
    }
    r->docMode = 1;
    return total;
}

}  // extern "C"
