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
// worst case can only shrink inside a part. In front of the cells sit the
// answers of whole 8-wide and 4-wide cells (many cells of a photograph's
// colours lie inside one entry's region, and then one byte answers every
// colour in them; see whole_answer) and a cache of recent answers by exact
// colour (see rl_nearest_find).
//
// Small tables, and searches that will be asked only a few questions, skip
// the cells and scan the class lists: the entries of the query's class in
// index order, which is the linear scan without the entries it would skip.
#include "raster/raster.h"

namespace {

constexpr uint32_t kFirstPoolSize = 4096;
// Parts of a cell whose list is this short take the list over instead of
// building their own: filtering saves less than it costs (measured on the
// photographs of the benchmarks).
constexpr uint32_t kShareBelow = 12;

// Where each level's cells start in a class's cell array.
constexpr uint32_t kLevelStart[kRlNearestLevels] = {0, 512, 512 + 4096, 512 + 4096 + 32768};
constexpr uint32_t kFineCells = 262144;
constexpr uint32_t kCellCount = 512 + 4096 + 32768 + kFineCells;
// Tables up to this size are scanned whole within the query's class.
constexpr int32_t kCellsFrom = 32;

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
    HGLOBAL grown = GlobalReAlloc(
        n->poolHandle, size * static_cast<uint32_t>(sizeof(RlNearestCandidate)), TOLVA_GMEM_FLAGS);
    n->poolHandle = grown;
    n->pool = static_cast<RlNearestCandidate *>(rlLockMemory(grown));
    if (n->pool == nullptr) {
        for (int grey = 0; grey < 2; ++grey) {  // every query now takes the linear scan
            n->cells[grey] = nullptr;
            n->fine[grey] = nullptr;
        }
        n->uniform = nullptr;
        n->coarse = nullptr;
        return false;
    }
    n->poolSize = size;
    return true;
}

// Fills `cell` (corner lo, each side span + 1 wide) with the candidates of
// the list `from` that can be nearest inside it; false when out of memory.
bool build_cell(RlNearest *n, RlNearestCell from, const int lo[3], int span, RlNearestCell *cell) {
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
    while (cell->length != 0 && (n->poolUsed - start) % 4 != 0)
        n->pool[n->poolUsed++] = n->pool[start];
    return true;
}

}  // namespace

namespace {

// Lays out a class list: the entries of one class in index order, padded to
// whole groups of four for the scan.
void add_class(RlNearest *n, uint32_t grey) {
    RlNearestCell &list = n->classes[grey];
    list.start = n->poolUsed;
    for (int32_t i = 0; i < n->count; ++i) {
        const uint8_t *e = n->table + 3 * static_cast<size_t>(i);
        if (rl_grey_entry(e) != (grey != 0)) continue;
        n->pool[n->poolUsed++] =
            RlNearestCandidate{0, static_cast<uint16_t>(i), e[0], e[1], e[2], 0};
    }
    list.length = n->poolUsed - list.start;
    while (list.length != 0 && (n->poolUsed - list.start) % 4 != 0)
        n->pool[n->poolUsed++] = n->pool[list.start];
}

// Squared distance from a corner of a cell to a candidate.
int corner_distance(const RlNearestCandidate &e, int r, int g, int b) {
    return (r - e.red) * (r - e.red) + (g - e.green) * (g - e.green) + (b - e.blue) * (b - e.blue);
}

// The answer for every colour of a cell of colour queries (corner lo, each
// side span + 1 wide) whose candidates are `list`, or kRlNearestMixed.
//
// The cell must hold no grey query: a pair of channels far enough apart at
// its corner stays more than kRlGreyTolerance apart in every colour of the
// cell. Then the answer at the corner, A, is the answer everywhere when A
// beats every other candidate B at all eight corners: the difference of the
// squared distances to A and to B is linear in the colour, so over the cell
// it is largest at a corner. Beating means nearer, or as near with the lower
// index.
uint8_t whole_answer(const RlNearest *n, RlNearestCell list, const int lo[3], int span) {
    auto apart = [span](int a, int c) {
        return a - c > span + kRlGreyTolerance || c - a > span + kRlGreyTolerance;
    };
    if (!(apart(lo[0], lo[1]) || apart(lo[1], lo[2]) || apart(lo[0], lo[2])))
        return kRlNearestMixed;
    const RlNearestCandidate *k = n->pool + list.start;
    int16_t a = rl_nearest_scan(k, list.length, static_cast<uint8_t>(lo[0]),
                                static_cast<uint8_t>(lo[1]), static_cast<uint8_t>(lo[2]));
    if (a >= kRlNearestMixed - 1) return kRlNearestMixed;
    const RlNearestCandidate *winner = nullptr;
    for (uint32_t i = 0; i < list.length; ++i) {
        if (k[i].index == a) winner = &k[i];
    }
    if (winner == nullptr) return kRlNearestMixed;
    for (uint32_t i = 0; i < list.length; ++i) {
        const RlNearestCandidate &other = k[i];
        if (other.index == a) continue;
        for (int corner = 0; corner < 8; ++corner) {
            int r = lo[0] + ((corner & 4) != 0 ? span : 0);
            int g = lo[1] + ((corner & 2) != 0 ? span : 0);
            int b = lo[2] + ((corner & 1) != 0 ? span : 0);
            int d = corner_distance(*winner, r, g, b) - corner_distance(other, r, g, b);
            if (d > 0 || (d == 0 && other.index < a)) return kRlNearestMixed;
        }
    }
    return static_cast<uint8_t>(a + 1);
}

}  // namespace

int32_t rl_nearest_open(RlNearest *n, const uint8_t *table, int16_t count, RlNearestUse use) {
    *n = RlNearest{};
    n->table = table;
    n->count = table != nullptr && count > 0 ? count : 0;
    if (n->count == 0) return 0;
    // The cells pay for themselves only over a table of some size and many
    // questions; below that the class lists are scanned whole.
    bool celled = use == kRlNearestMany && n->count > kCellsFrom;
    uint32_t poolSize = static_cast<uint32_t>(n->count) + 8 + (celled ? kFirstPoolSize : 0);
    n->poolHandle = rlGetMemory(static_cast<int16_t>(sizeof(RlNearestCandidate)),
                                static_cast<int32_t>(poolSize));
    n->pool = static_cast<RlNearestCandidate *>(rlLockMemory(n->poolHandle));
    if (n->pool == nullptr) {
        rl_nearest_close(n);  // every query takes the linear scan
        n->table = table;
        n->count = count;
        return -1;
    }
    n->poolSize = poolSize;
    // Pool entry 0 is never used, so a cell whose start is 0 is not built.
    // The two class lists (colours first, then greys) open the pool.
    n->poolUsed = 1;
    add_class(n, 0);
    add_class(n, 1);
    if (use == kRlNearestFew) return 0;

    // The recent answers and the cells share one block: recent answers, the
    // answers of whole cells, then the cells of both classes.
    size_t recentBytes = sizeof(uint32_t) << kRlNearestRecentBits;
    size_t uniformBytes = celled ? kFineCells + kFineCells / 8 : 0;
    size_t cellBytes = celled ? 2 * kCellCount * sizeof(RlNearestCell) : 0;
    n->cacheHandle = GlobalAlloc(TOLVA_GMEM_FLAGS,
                                 static_cast<uint32_t>(recentBytes + uniformBytes + cellBytes));
    auto *block = static_cast<uint8_t *>(rlLockMemory(n->cacheHandle));
    if (block == nullptr) return -1;  // the class lists serve alone
    n->recent = reinterpret_cast<uint32_t *>(block);
    if (!celled) return 0;
    n->uniform = block + recentBytes;
    n->coarse = n->uniform + kFineCells;
    auto *cells = reinterpret_cast<RlNearestCell *>(block + recentBytes + uniformBytes);
    for (uint32_t grey = 0; grey < 2; ++grey) {
        n->cells[grey] = cells + grey * kCellCount;
        n->fine[grey] = n->cells[grey] + kLevelStart[kRlNearestLevels - 1];
    }
    return 0;
}

int16_t rl_nearest_find_slow(RlNearest *n, uint8_t r, uint8_t g, uint8_t b) {
    if (n->count == 0) return 0;
    if (n->pool == nullptr)
        return rlNearestRGBIndex(r, g, b, n->table, static_cast<int16_t>(n->count));
    uint32_t grey = rl_grey_query(r, g, b);
    RlNearestCell parent = n->classes[grey];
    if (n->cells[grey] == nullptr)
        return rl_nearest_scan(n->pool + parent.start, parent.length, r, g, b);
    bool built = true;
    RlNearestCell lists[kRlNearestLevels] = {};
    for (int level = 0; built && level < kRlNearestLevels; ++level) {
        RlNearestCell *cell =
            &n->cells[grey][kLevelStart[level] + rl_nearest_position(r, g, b, level)];
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
        lists[level] = parent;
    }
    if (!built) return rlNearestRGBIndex(r, g, b, n->table, static_cast<int16_t>(n->count));
    // Whole answers for the query's 8-wide and 4-wide cells, decided once. A
    // cell that holds a grey query is never answered whole.
    uint32_t position = rl_fine_position(r, g, b);
    const int spans[2] = {7, 3};
    uint8_t *whole[2] = {&n->coarse[position >> 3], &n->uniform[position]};
    for (int at = 0; at < 2; ++at) {
        if (*whole[at] != 0) continue;
        int mask = ~spans[at];
        int lo[3] = {r & mask, g & mask, b & mask};
        *whole[at] = grey != 0 ? kRlNearestMixed : whole_answer(n, lists[2 + at], lo, spans[at]);
        // The 4-wide parts of an 8-wide cell answered whole share its answer,
        // so that a query needs to look at its 4-wide cell alone.
        if (at == 0 && *whole[0] != kRlNearestMixed) {
            for (uint32_t part = 0; part < 8; ++part)
                n->uniform[(position & ~7u) | part] = *whole[0];
        }
    }
    return rl_nearest_scan(n->pool + parent.start, parent.length, r, g, b);
}

void rl_nearest_close(RlNearest *n) {
    (void)rlFreeNewData(n->poolHandle);  // each handle is either freed or 0
    (void)rlFreeNewData(n->cacheHandle);
    *n = RlNearest{};
}

void rl_nearest_map_row(RlNearest *n, const uint8_t *in, uint32_t step, int32_t width, uint8_t *out,
                        uint32_t *waiting) {
    if (n->uniform == nullptr) {
        for (int32_t x = 0; x < width; ++x, in += step) {
            out[x] = static_cast<uint8_t>(rl_nearest_find(n, in[0], in[1], in[2]));
        }
        return;
    }
    // First every pixel whose cell is answered whole, with no branch to
    // mispredict; the others are noted and asked one by one after.
    const uint8_t *uniform = n->uniform;
    uint32_t waited = 0;
    const uint8_t *p = in;
    for (int32_t x = 0; x < width; ++x, p += step) {
        uint32_t whole = uniform[rl_fine_position(p[0], p[1], p[2])] - 1u;
        out[x] = static_cast<uint8_t>(whole);
        waiting[waited] = static_cast<uint32_t>(x);
        waited += whole >= kRlNearestMixed - 1u ? 1u : 0u;
    }
    uint32_t last = ~0u;
    uint8_t index = 0;
    for (uint32_t k = 0; k < waited; ++k) {
        uint32_t x = waiting[k];
        p = in + static_cast<size_t>(x) * step;
        uint32_t colour =
            static_cast<uint32_t>(p[0]) << 16 | static_cast<uint32_t>(p[1]) << 8 | p[2];
        if (colour != last) {  // neighbours often share a colour
            index = static_cast<uint8_t>(rl_nearest_find(n, p[0], p[1], p[2]));
            last = colour;
        }
        out[x] = index;
    }
}
