// An exact fast replacement for rlNearestRGBIndex on 8-bit channels.
//
// The colour cube is cut into cells, and each cell keeps, per query class
// (grey or colour), only the entries of that class that could be nearest to
// some colour of the cell: an entry is dropped when even its closest approach
// to the cell is farther than the farthest approach of the entry that is best
// in the worst case. A dropped entry can never reach the minimum distance, not
// even in a tie. A query scans its cell's candidates in order of closest
// approach, stops once the next one cannot come within its best distance, and
// keeps the smallest (distance, index) pair: exactly what the full scan's
// strict comparison from index 0 upward returns (see rl_nearest_find).
//
// Cells are 32, 16, 8 and 4 wide; queries use the 4-wide ones. Each cell is
// filled on first use from its parent's list (the 32-wide ones from the whole
// class): whatever a cell drops, every part of it drops too, since its best
// worst case can only shrink inside a part. In front of the cells sits a
// cache of recent answers by exact colour (see rl_nearest_find).
#include "raster/raster.h"

namespace {

constexpr uint32_t kFirstPoolSize = 4096;
// Parts of a cell whose list is this short take the list over instead of
// building their own: filtering saves less than it costs (measured on the
// photographs of the benchmarks).
constexpr uint32_t kShareBelow = 12;

// Where each level's cells start in a class's cell array.
constexpr uint32_t kLevelStart[kRlNearestLevels] = {0, 512, 512 + 4096, 512 + 4096 + 32768};
constexpr uint32_t kCellCount = 512 + 4096 + 32768 + 262144;

// Squared distances from a channel value to the nearest and the farthest
// point of the interval [lo, lo + span].
int axis_min(int v, int lo, int span) {
    int d = v < lo ? lo - v : (v > lo + span ? v - lo - span : 0);
    return d * d;
}

int axis_max(int v, int lo, int span) {
    int a = v > lo ? v - lo : lo - v;
    int b = v > lo + span ? v - lo - span : lo + span - v;
    int d = a > b ? a : b;
    return d * d;
}

// Makes room for `more` pool entries; false when the pool cannot grow.
bool reserve(RlNearest *n, uint32_t more) {
    if (n->pool == nullptr) return false;
    if (n->poolUsed + more <= n->poolSize) return true;
    uint32_t size = n->poolSize * 2;
    while (size < n->poolUsed + more) size *= 2;
    HGLOBAL grown = GlobalReAlloc(n->poolHandle,
                                  size * static_cast<uint32_t>(sizeof(RlNearestCandidate)),
                                  TOLVA_GMEM_FLAGS);
    n->poolHandle = grown;
    n->pool = static_cast<RlNearestCandidate *>(rlLockMemory(grown));
    if (n->pool == nullptr) {
        for (int grey = 0; grey < 2; ++grey) {  // every query now takes the linear scan
            n->cells[grey] = nullptr;
            n->fine[grey] = nullptr;
        }
        return false;
    }
    n->poolSize = size;
    return true;
}

// Fills `cell` (corner lo, each side span + 1 wide) with the candidates of
// the list `from` that can be nearest inside it; false when out of memory.
bool build_cell(RlNearest *n, RlNearestCell from, const int lo[3], int span,
                RlNearestCell *cell) {
    if (!reserve(n, from.length + 3)) return false;
    const RlNearestCandidate *source = n->pool + from.start;
    int bound = 0x7FFFFFFF;
    for (uint32_t k = 0; k < from.length; ++k) {
        const RlNearestCandidate &e = source[k];
        int worst = axis_max(e.red, lo[0], span) + axis_max(e.green, lo[1], span) +
                    axis_max(e.blue, lo[2], span);
        if (worst < bound) bound = worst;
    }
    uint32_t start = n->poolUsed;
    for (uint32_t k = 0; k < from.length; ++k) {
        RlNearestCandidate e = source[k];
        int closest = axis_min(e.red, lo[0], span) + axis_min(e.green, lo[1], span) +
                      axis_min(e.blue, lo[2], span);
        if (closest > bound) continue;
        e.closest = static_cast<uint16_t>(closest < 0xFFFF ? closest : 0xFFFF);
        uint32_t at = n->poolUsed++;
        while (at > start && n->pool[at - 1].closest > e.closest) {
            n->pool[at] = n->pool[at - 1];
            --at;
        }
        n->pool[at] = e;
    }
    cell->start = start;
    cell->length = n->poolUsed - start;
    // The scan reads whole groups of four: pad with copies of the first.
    while (cell->length != 0 && (n->poolUsed - start) % 4 != 0) n->pool[n->poolUsed++] = n->pool[start];
    return true;
}

}  // namespace

int32_t rl_nearest_open(RlNearest *n, const uint8_t *table, int16_t count) {
    *n = RlNearest{};
    n->table = table;
    n->count = table != nullptr && count > 0 ? count : 0;
    if (n->count == 0) return 0;
    n->cellsHandle = rlGetMemory(static_cast<int16_t>(sizeof(RlNearestCell)),
                                 static_cast<int32_t>(2 * kCellCount));
    n->recentHandle = rlGetMemory(4, 1 << kRlNearestRecentBits);
    n->recent = static_cast<uint32_t *>(rlLockMemory(n->recentHandle));
    uint32_t poolSize = kFirstPoolSize + static_cast<uint32_t>(n->count);
    n->poolHandle = rlGetMemory(static_cast<int16_t>(sizeof(RlNearestCandidate)),
                                static_cast<int32_t>(poolSize));
    auto *cells = static_cast<RlNearestCell *>(rlLockMemory(n->cellsHandle));
    n->pool = static_cast<RlNearestCandidate *>(rlLockMemory(n->poolHandle));
    if (cells == nullptr || n->pool == nullptr || n->recent == nullptr) {
        // Without the structure every query takes the linear scan.
        const uint8_t *kept = n->table;
        int32_t keptCount = n->count;
        rl_nearest_close(n);
        n->table = kept;
        n->count = keptCount;
        return -1;
    }
    for (uint32_t grey = 0; grey < 2; ++grey) {
        n->cells[grey] = cells + grey * kCellCount;
        n->fine[grey] = n->cells[grey] + kLevelStart[kRlNearestLevels - 1];
    }
    n->poolSize = poolSize;
    // Pool entry 0 is never used, so a cell whose start is 0 is not built.
    // The two class lists (colours first, then greys) open the pool.
    n->poolUsed = 1;
    for (uint32_t grey = 0; grey < 2; ++grey) {
        n->classes[grey].start = n->poolUsed;
        for (int32_t i = 0; i < n->count; ++i) {
            const uint8_t *e = table + 3 * static_cast<size_t>(i);
            bool isGrey = e[0] == e[1] && e[1] == e[2];
            if (isGrey != (grey != 0)) continue;
            n->pool[n->poolUsed++] =
                RlNearestCandidate{0, static_cast<uint16_t>(i), e[0], e[1], e[2], 0};
        }
        n->classes[grey].length = n->poolUsed - n->classes[grey].start;
    }
    return 0;
}

int16_t rl_nearest_find_slow(RlNearest *n, uint8_t r, uint8_t g, uint8_t b) {
    if (n->count == 0) return 0;
    uint32_t grey = rl_grey_query(r, g, b);
    RlNearestCell parent = n->classes[grey];
    bool built = n->cells[grey] != nullptr;
    for (int level = 0; built && level < kRlNearestLevels; ++level) {
        RlNearestCell *cell = &n->cells[grey][kLevelStart[level] + rl_nearest_position(r, g, b, level)];
        if (cell->start == 0 && level > 0 && parent.length <= kShareBelow) {
            // A short parent list serves the part as it is: it holds every
            // candidate of the part, and since no point of the part is closer
            // to an entry than the parent's closest approach, stopping on the
            // parent's order never stops too early.
            *cell = parent;
        } else if (cell->start == 0) {
            int shift = 5 - level;
            int mask = ~((1 << shift) - 1);
            int lo[3] = {r & mask, g & mask, b & mask};
            built = build_cell(n, parent, lo, (1 << shift) - 1, cell);
        }
        parent = *cell;
    }
    if (!built) return rlNearestRGBIndex(r, g, b, n->table, static_cast<int16_t>(n->count));
    return rl_nearest_scan(n->pool + parent.start, parent.length, r, g, b);
}

void rl_nearest_close(RlNearest *n) {
    (void)rlFreeNewData(n->poolHandle);  // each handle is either freed or 0
    (void)rlFreeNewData(n->cellsHandle);
    (void)rlFreeNewData(n->recentHandle);
    *n = RlNearest{};
}
