// An exact fast replacement for rlNearestRGBIndex on 8-bit channels.
//
// The colour cube is cut into 32768 cells of 8 x 8 x 8. For each cell and
// query class (grey or colour) the search keeps, in ascending index order,
// only the entries of that class that could be nearest to some colour of the
// cell: entry e is dropped when even its closest approach to the cell is
// farther than the worst case of the entry that is best in the worst case.
// Dropped entries can never reach the minimum distance, not even in a tie, so
// a linear scan of the kept entries with the same strict comparison returns
// the index that the full scan returns. Cells are filled on first use.
#include "raster/raster.h"

namespace {

constexpr uint32_t kCells = 32768;

uint32_t cell_of(uint8_t r, uint8_t g, uint8_t b) {
    return (static_cast<uint32_t>(r >> 3) << 10) | (static_cast<uint32_t>(g >> 3) << 5) |
           static_cast<uint32_t>(b >> 3);
}

bool grey_query(uint8_t r, uint8_t g, uint8_t b) {
    auto near = [](int a, int c) { return a - c <= 4 && c - a <= 4; };
    return near(r, g) && near(g, b) && near(r, b);
}

// Squared distance from a channel value to the interval [lo, lo + 7]: the
// nearest and the farthest point of the cell along one axis.
uint32_t axis_min(int v, int lo) {
    int d = v < lo ? lo - v : (v > lo + 7 ? v - lo - 7 : 0);
    return static_cast<uint32_t>(d * d);
}

uint32_t axis_max(int v, int lo) {
    int a = v > lo ? v - lo : lo - v;
    int b = v > lo + 7 ? v - lo - 7 : lo + 7 - v;
    int d = a > b ? a : b;
    return static_cast<uint32_t>(d * d);
}

// Makes room for `more` pool entries; false when the pool cannot grow.
bool reserve(RlNearest *n, uint32_t more) {
    if (n->pool == nullptr) return false;
    if (n->poolUsed + more <= n->poolSize) return true;
    uint32_t size = n->poolSize * 2;
    while (size < n->poolUsed + more) size *= 2;
    HGLOBAL grown = GlobalReAlloc(n->poolHandle, size * 2, TOLVA_GMEM_FLAGS);
    n->poolHandle = grown;
    n->pool = static_cast<uint16_t *>(rlLockMemory(grown));
    if (n->pool == nullptr) return false;
    n->poolSize = size;
    return true;
}

// Fills the candidate list of one cell and class; false when out of memory.
bool build_cell(RlNearest *n, uint32_t cell, int grey) {
    const uint16_t *members = n->classes + (grey != 0 ? 0 : n->greyCount);
    int32_t memberCount = grey != 0 ? n->greyCount : n->colourCount;
    int lo[3] = {static_cast<int>((cell >> 10) & 31) * 8, static_cast<int>((cell >> 5) & 31) * 8,
                 static_cast<int>(cell & 31) * 8};
    uint32_t bound = 0xFFFFFFFFu;
    for (int32_t k = 0; k < memberCount; ++k) {
        const uint8_t *e = n->table + 3 * static_cast<size_t>(members[k]);
        uint32_t worst = axis_max(e[0], lo[0]) + axis_max(e[1], lo[1]) + axis_max(e[2], lo[2]);
        if (worst < bound) bound = worst;
    }
    if (!reserve(n, static_cast<uint32_t>(memberCount))) return false;
    uint32_t start = n->poolUsed;
    for (int32_t k = 0; k < memberCount; ++k) {
        const uint8_t *e = n->table + 3 * static_cast<size_t>(members[k]);
        uint32_t closest = axis_min(e[0], lo[0]) + axis_min(e[1], lo[1]) + axis_min(e[2], lo[2]);
        if (closest <= bound) n->pool[n->poolUsed++] = members[k];
    }
    RlNearestCell &c = n->cells[2 * cell + static_cast<uint32_t>(grey)];
    c.start = start;
    c.length = n->poolUsed - start;
    return true;
}

}  // namespace

int32_t rl_nearest_open(RlNearest *n, const uint8_t *table, int16_t count) {
    *n = RlNearest{};
    n->table = table;
    n->count = table != nullptr && count > 0 ? count : 0;
    if (n->count == 0) return 0;
    n->classHandle = rlGetMemory(2, n->count);
    n->cellsHandle = rlGetMemory(static_cast<int16_t>(sizeof(RlNearestCell)),
                                 static_cast<int32_t>(2 * kCells));
    n->poolSize = 1024;
    n->poolHandle = rlGetMemory(2, static_cast<int32_t>(n->poolSize));
    n->classes = static_cast<uint16_t *>(rlLockMemory(n->classHandle));
    n->cells = static_cast<RlNearestCell *>(rlLockMemory(n->cellsHandle));
    n->pool = static_cast<uint16_t *>(rlLockMemory(n->poolHandle));
    if (n->classes == nullptr || n->cells == nullptr || n->pool == nullptr) {
        // Without the structure every query takes the linear scan.
        const uint8_t *kept = n->table;
        int32_t keptCount = n->count;
        rl_nearest_close(n);
        n->table = kept;
        n->count = keptCount;
        return -1;
    }
    // Greys first, then colours, each in ascending index order. Pool entry 0
    // is never used, so a cell with start 0 has not been built yet.
    for (int32_t i = 0; i < n->count; ++i) {
        const uint8_t *e = table + 3 * static_cast<size_t>(i);
        if (e[0] == e[1] && e[1] == e[2]) n->classes[n->greyCount++] = static_cast<uint16_t>(i);
    }
    n->colourCount = 0;
    for (int32_t i = 0; i < n->count; ++i) {
        const uint8_t *e = table + 3 * static_cast<size_t>(i);
        if (!(e[0] == e[1] && e[1] == e[2])) {
            n->classes[n->greyCount + n->colourCount++] = static_cast<uint16_t>(i);
        }
    }
    n->poolUsed = 1;
    return 0;
}

int16_t rl_nearest_find(RlNearest *n, uint8_t r, uint8_t g, uint8_t b) {
    if (n->count == 0) return 0;
    if (n->pool == nullptr) return rlNearestRGBIndex(r, g, b, n->table, static_cast<int16_t>(n->count));
    uint32_t cell = cell_of(r, g, b);
    int grey = grey_query(r, g, b) ? 1 : 0;
    RlNearestCell *c = &n->cells[2 * cell + static_cast<uint32_t>(grey)];
    if (c->start == 0 && !build_cell(n, cell, grey)) {
        return rlNearestRGBIndex(r, g, b, n->table, static_cast<int16_t>(n->count));
    }
    const uint16_t *candidates = n->pool + c->start;
    uint32_t best = 0x7FFFFFFFu;
    int16_t bestIndex = 0;
    for (uint32_t k = 0; k < c->length; ++k) {
        const uint8_t *e = n->table + 3 * static_cast<size_t>(candidates[k]);
        int dr = r - e[0], dg = g - e[1], db = b - e[2];
        auto distance = static_cast<uint32_t>(dr * dr + dg * dg + db * db);
        if (distance < best) {
            best = distance;
            bestIndex = static_cast<int16_t>(candidates[k]);
            if (distance == 0) break;
        }
    }
    return bestIndex;
}

void rl_nearest_close(RlNearest *n) {
    (void)rlFreeNewData(n->poolHandle);  // each handle is either freed or 0
    (void)rlFreeNewData(n->cellsHandle);
    (void)rlFreeNewData(n->classHandle);
    *n = RlNearest{};
}
