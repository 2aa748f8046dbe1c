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
// Cells are 32, 16, 8 and 4 wide; queries use the 4-wide ones, or the 8-wide
// ones when answers are kept (below). Each cell is filled on first use from
// its parent's list (the 32-wide ones from the whole class): whatever a cell
// drops, every part of it drops too, since its best worst case can only
// shrink inside a part.
//
// A search asked many questions also keeps every answer it gives, by 4-wide
// cell (see RlNearest): a cell of colour queries that lies wholly inside one
// entry's region (many do in a photograph; see whole_answer) is answered by
// that entry's shared block at once, and every other cell gets a block of its
// own in which each colour is searched once, on first use. A pixel then costs
// two loads: its cell's block, and its byte in it.
//
// Small tables, and searches that will be asked only a few questions, skip
// the cells and scan the class lists: the entries of the query's class in
// index order, which is the linear scan without the entries it would skip.
#include <cstring>

#include "raster/raster.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
// g++ takes the deliberately undefined registers inside the AVX-512
// intrinsics' own code for uninitialised values.
#ifndef __clang__
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#ifndef __clang__
#pragma GCC diagnostic pop
#endif
#define TOLVA_NEAREST_WIDE 1
#endif

namespace {

bool g_narrow = false;  // see rl_nearest_narrow

// The pool starts with room for one candidate per this many questions, no
// less than the first figure and no more than the second; it doubles as needed.
constexpr int64_t kQuestionsPerCandidate = 32;
constexpr uint32_t kFewestCandidates = 4096;
constexpr uint32_t kMostFirstCandidates = 65536;
// Parts of a cell whose list is this short take the list over instead of
// building their own: filtering saves less than it costs (measured on the
// photographs of the benchmarks).
constexpr uint32_t kShareBelow = 12;

// Where each level's cells start in a class's cell array.
constexpr uint32_t kLevelStart[kRlNearestLevels] = {0, 512, 512 + 4096, 512 + 4096 + 32768};
constexpr uint32_t kCellCount = 512 + 4096 + 32768 + kRlNearestFineCells;
constexpr uint32_t kCoarseCells = kRlNearestFineCells / 8;
// Blocks of their own that a search starts with room for: one per this many
// questions, no fewer than the first figure and no more than the second. It
// doubles them as needed. Room that is never used costs no fresh memory,
// but growing costs a copy of all that is used (and, in a process that maps
// many pictures, freed blocks that the allocator hands back to the system),
// so the first room covers the cells of a photograph mapped or dithered at
// 1080p. It has a bound because the allocator clears the whole of a block
// it hands out again from freed memory.
constexpr int64_t kQuestionsPerBlock = 64;
constexpr uint32_t kFewestOwnBlocks = 1024;
constexpr uint32_t kMostFirstOwnBlocks = 32768;

// Squared distances from a channel value to the nearest and the farthest
// point of the interval [lo, lo + span].
int axis_min(int v, int lo, int span) {
    int below = lo - v;
    int above = v - lo - span;
    int d = below > above ? below : above;
    d = d > 0 ? d : 0;
    return d * d;
}

int axis_max(int v, int lo, int span) {
    int fromLow = v - lo;
    int fromHigh = lo + span - v;
    int d = fromLow > fromHigh ? fromLow : fromHigh;
    return d * d;
}

// A larger block for one that is full, holding its first `used` bytes: a
// fresh block and a copy rather than GlobalReAlloc, which clears the whole
// new tail at once and so enters every page of it long before it is used.
// Null when there is none (the old block stays).
void *grow(HGLOBAL *handle, size_t used, uint32_t bytes) {
    HGLOBAL grown = GlobalAlloc(TOLVA_GMEM_FLAGS, bytes);
    auto *data = static_cast<uint8_t *>(rlLockMemory(grown));
    if (data == nullptr) return nullptr;
    std::memcpy(data, rlLockMemory(*handle), used);
    (void)rlFreeNewData(*handle);
    *handle = grown;
    return data;
}

// Makes room for `more` pool entries; false when the pool cannot grow.
bool reserve(RlNearest *n, uint32_t more) {
    if (n->pool == nullptr) return false;
    if (n->poolUsed + more <= n->poolSize) return true;
    uint32_t size = n->poolSize * 2;
    while (size < n->poolUsed + more) size *= 2;
    n->pool = static_cast<RlNearestCandidate *>(
        grow(&n->poolHandle, n->poolUsed * sizeof(RlNearestCandidate),
             size * static_cast<uint32_t>(sizeof(RlNearestCandidate))));
    if (n->pool == nullptr) {
        for (int grey = 0; grey < 2; ++grey) n->cells[grey] = nullptr;  // the linear scan serves
        n->cellBlock = nullptr;
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
    // The parent's list is sorted by closest approach to the parent, and no
    // entry comes closer to a part than to the whole: once that approach
    // reaches the bound, no later entry can lower the bound or come within it.
    for (uint32_t k = 0; k < from.length && source[k].closest < bound; ++k) {
        const RlNearestCandidate &e = source[k];
        int worst = axis_max(e.red, lo[0], span) + axis_max(e.green, lo[1], span) +
                    axis_max(e.blue, lo[2], span);
        if (worst < bound) bound = worst;
    }
    uint32_t start = n->poolUsed;
    for (uint32_t k = 0; k < from.length && source[k].closest <= bound; ++k) {
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

#ifdef TOLVA_NEAREST_WIDE
// rl_nearest_scan eight candidates at a time, for tables of at most 256
// entries: (distance << 8 | index) then fits 32 bits and orders the pairs
// as the scan does. Each candidate is eight bytes, closest approach and
// index in the low half, red, green and blue in the high half; the distance
// is two multiply-adds of 16-bit differences, (red, blue) and (green, 0). A
// last group of four is read twice, which changes no minimum. The early stop
// is tested per eight: scanning candidates past the scalar stop only adds
// entries that cannot win.
__attribute__((target("avx2"))) int16_t wide_scan(const RlNearestCandidate *k, uint32_t length,
                                                  uint8_t r, uint8_t g, uint8_t b) {
    if (length == 0) return 0;  // no entry of the query's class
    const __m256i redBlue = _mm256_set1_epi32(static_cast<int>(r | static_cast<uint32_t>(b) << 16));
    const __m256i green = _mm256_set1_epi32(g);
    const __m256i low8 = _mm256_set1_epi32(0x00FF00FF);
    const __m256i byte = _mm256_set1_epi32(0xFF);
    __m256i best = _mm256_set1_epi32(-1);
    uint32_t bestKey = ~0u;
    for (uint32_t group = 0; group < length; group += 8) {
        if (group != 0) {
            __m128i m =
                _mm_min_epu32(_mm256_castsi256_si128(best), _mm256_extracti128_si256(best, 1));
            m = _mm_min_epu32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(1, 0, 3, 2)));
            m = _mm_min_epu32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(2, 3, 0, 1)));
            bestKey = static_cast<uint32_t>(_mm_cvtsi128_si32(m));
            if (k[group].closest > (bestKey >> 8)) return static_cast<int16_t>(bestKey & 0xFF);
        }
        const auto *at = reinterpret_cast<const __m256i *>(k + group);
        __m256i first = _mm256_loadu_si256(at);
        __m256i second = length - group > 4 ? _mm256_loadu_si256(at + 1) : first;
        __m256 f = _mm256_castsi256_ps(first), s = _mm256_castsi256_ps(second);
        __m256i colour = _mm256_castps_si256(_mm256_shuffle_ps(f, s, _MM_SHUFFLE(3, 1, 3, 1)));
        __m256i head = _mm256_castps_si256(_mm256_shuffle_ps(f, s, _MM_SHUFFLE(2, 0, 2, 0)));
        __m256i dRedBlue = _mm256_sub_epi16(_mm256_and_si256(colour, low8), redBlue);
        __m256i dGreen =
            _mm256_sub_epi16(_mm256_and_si256(_mm256_srli_epi32(colour, 8), byte), green);
        __m256i distance = _mm256_add_epi32(_mm256_madd_epi16(dRedBlue, dRedBlue),
                                            _mm256_madd_epi16(dGreen, dGreen));
        __m256i key = _mm256_or_si256(_mm256_slli_epi32(distance, 8), _mm256_srli_epi32(head, 16));
        best = _mm256_min_epu32(best, key);
    }
    __m128i m = _mm_min_epu32(_mm256_castsi256_si128(best), _mm256_extracti128_si256(best, 1));
    m = _mm_min_epu32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(1, 0, 3, 2)));
    m = _mm_min_epu32(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(2, 3, 0, 1)));
    return static_cast<int16_t>(static_cast<uint32_t>(_mm_cvtsi128_si32(m)) & 0xFF);
}

bool wide_scan_runs() { return __builtin_cpu_supports("avx2"); }

bool wide_rows_run() {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw");
}

// key | (shifted & mask), one instruction.
__attribute__((target("avx512f"), always_inline)) inline __m512i put_bits(__m512i key,
                                                                          __m512i shifted,
                                                                          int mask) {
    return _mm512_ternarylogic_epi32(key, shifted, _mm512_set1_epi32(mask), 0xF8);
}

// The key of rl_nearest_key for sixteen colours at once, each a 32-bit lane
// (red, green, blue, 0). The key takes each group of bits of the three
// channels to its place: one shift and one masked OR a group, the groups
// that move by the same amount sharing a shift.
__attribute__((target("avx512f"), always_inline)) inline __m512i wide_key(__m512i x) {
    __m512i key = _mm512_and_si512(_mm512_slli_epi32(x, 16), _mm512_set1_epi32(0xE00000));
    key = put_bits(key, _mm512_slli_epi32(x, 5), 0x1C0000);    // green 7-5
    key = put_bits(key, _mm512_srli_epi32(x, 6), 0x03800C);    // blue 7-5, green 1-0
    key = put_bits(key, _mm512_slli_epi32(x, 10), 0x004000);   // red 4
    key = put_bits(key, _mm512_slli_epi32(x, 1), 0x002000);    // green 4
    key = put_bits(key, _mm512_srli_epi32(x, 8), 0x001000);    // blue 4
    key = put_bits(key, _mm512_slli_epi32(x, 8), 0x000800);    // red 3
    key = put_bits(key, _mm512_srli_epi32(x, 1), 0x000400);    // green 3
    key = put_bits(key, _mm512_srli_epi32(x, 10), 0x000200);   // blue 3
    key = put_bits(key, _mm512_slli_epi32(x, 6), 0x000100);    // red 2
    key = put_bits(key, _mm512_srli_epi32(x, 3), 0x000080);    // green 2
    key = put_bits(key, _mm512_srli_epi32(x, 12), 0x000040);   // blue 2
    key = put_bits(key, _mm512_slli_epi32(x, 4), 0x000030);    // red 1-0
    return put_bits(key, _mm512_srli_epi32(x, 16), 0x000003);  // blue 1-0
}

// The row loop of rl_nearest_map_row for 3-byte colours, sixteen at a time:
// each colour's key, its cell's block and its stored answer are found in
// the vector registers. Colours not known yet are left for a second pass
// over each stretch of the row, one by one on the slow road, so that the
// vector pass never waits on a branch it cannot foresee. Returns how many
// colours it mapped (whole sixteens).
__attribute__((target("avx512f,avx512bw"))) uint32_t wide_map_row(RlNearest *n, const uint8_t *in,
                                                                  uint32_t width, uint8_t *out) {
    // Twelve bytes (four colours) to each 128-bit lane, then each colour to
    // a 32-bit lane of its own.
    const __m512i toLanes = _mm512_setr_epi32(0, 1, 2, 2, 3, 4, 5, 5, 6, 7, 8, 8, 9, 10, 11, 11);
    const __m512i toColours =
        _mm512_broadcast_i32x4(_mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1));
    const __m512i sixtyThree = _mm512_set1_epi32(63);
    const __m512i byte = _mm512_set1_epi32(0xFF);
    const uint32_t *cellBlock = n->cellBlock;
    constexpr uint32_t kStretch = 32;  // sixteens a pass
    uint16_t unknown[kStretch];
    uint32_t x = 0;
    while (x + 16 <= width) {
        uint32_t groups = (width - x) / 16 < kStretch ? (width - x) / 16 : kStretch;
        const uint8_t *blocks = n->blocks;
        for (uint32_t k = 0; k < groups; ++k) {
            const uint8_t *c = in + 3 * (x + 16 * k);
            __m512i raw = _mm512_maskz_loadu_epi8(0x0000FFFFFFFFFFFFull, c);
            __m512i colour = _mm512_shuffle_epi8(_mm512_permutexvar_epi32(toLanes, raw), toColours);
            __m512i key = wide_key(colour);
            __m512i block = _mm512_i32gather_epi32(_mm512_srli_epi32(key, 6), cellBlock, 4);
            __m512i at = _mm512_add_epi32(block, _mm512_and_si512(key, sixtyThree));
            // Four bytes from each answer's place: a block ends in its mask,
            // so the three after the last answer are still inside it.
            __m512i stored = _mm512_and_si512(_mm512_i32gather_epi32(at, blocks, 1), byte);
            unknown[k] = _mm512_cmpeq_epi32_mask(stored, _mm512_setzero_si512());
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out + x + 16 * k),
                             _mm512_cvtepi32_epi8(_mm512_xor_si512(stored, byte)));
        }
        for (uint32_t k = 0; k < groups; ++k) {
            for (uint32_t left = unknown[k]; left != 0; left &= left - 1) {
                uint32_t i = x + 16 * k + static_cast<uint32_t>(__builtin_ctz(left));
                const uint8_t *c = in + 3 * i;
                out[i] = static_cast<uint8_t>(rl_nearest_find_slow(n, c[0], c[1], c[2]));
            }
        }
        x += 16 * groups;
    }
    return x;
}
#endif

// The scan of a list of a table of at most 256 entries.
int16_t small_scan(const RlNearest *n, RlNearestCell list, uint8_t r, uint8_t g, uint8_t b) {
#ifdef TOLVA_NEAREST_WIDE
    if (n->wideScan) return wide_scan(n->pool + list.start, list.length, r, g, b);
#endif
    return rl_nearest_scan(n->pool + list.start, list.length, r, g, b);
}

#ifdef TOLVA_NEAREST_WIDE
// The test of whole_answer eight candidates at a time (tables of at most 256
// entries): true when the entry `a` at w beats every candidate of the list
// throughout the cell. A last group of four is read twice.
__attribute__((target("avx2"))) bool wide_beats_all(const RlNearestCandidate *k, uint32_t length,
                                                    int32_t a, const uint8_t *w, const int lo[3],
                                                    int span) {
    __m256i nearEnd[3], farEnd[3], at[3];
    for (int c = 0; c < 3; ++c) {
        at[c] = _mm256_set1_epi32(w[c]);
        nearEnd[c] = _mm256_set1_epi32(2 * lo[c] - w[c]);
        farEnd[c] = _mm256_set1_epi32(2 * (lo[c] + span) - w[c]);
    }
    const __m256i byte = _mm256_set1_epi32(0xFF);
    const __m256i winner = _mm256_set1_epi32(a);
    const __m256i zero = _mm256_setzero_si256();
    for (uint32_t group = 0; group < length; group += 8) {
        const auto *from = reinterpret_cast<const __m256i *>(k + group);
        __m256i first = _mm256_loadu_si256(from);
        __m256i second = length - group > 4 ? _mm256_loadu_si256(from + 1) : first;
        __m256 f = _mm256_castsi256_ps(first), s = _mm256_castsi256_ps(second);
        __m256i colour = _mm256_castps_si256(_mm256_shuffle_ps(f, s, _MM_SHUFFLE(3, 1, 3, 1)));
        __m256i index = _mm256_srli_epi32(
            _mm256_castps_si256(_mm256_shuffle_ps(f, s, _MM_SHUFFLE(2, 0, 2, 0))), 16);
        __m256i largest = zero;
        for (int c = 0; c < 3; ++c) {
            __m256i o = _mm256_and_si256(_mm256_srli_epi32(colour, 8 * c), byte);
            __m256i apart = _mm256_sub_epi32(o, at[c]);
            __m256i low = _mm256_mullo_epi32(apart, _mm256_sub_epi32(nearEnd[c], o));
            __m256i high = _mm256_mullo_epi32(apart, _mm256_sub_epi32(farEnd[c], o));
            largest = _mm256_add_epi32(largest, _mm256_max_epi32(low, high));
        }
        __m256i loses = _mm256_or_si256(
            _mm256_cmpgt_epi32(largest, zero),
            _mm256_and_si256(_mm256_cmpeq_epi32(largest, zero), _mm256_cmpgt_epi32(winner, index)));
        if (!_mm256_testz_si256(loses, loses)) return false;
    }
    return true;
}
#endif

// The answer for every colour of a cell of colour queries (corner lo, each
// side span + 1 wide) whose candidates are `list`, or -1 when its colours
// have several answers. Only searches that keep answers (tables of at most
// 256 entries) ask.
//
// The cell must hold no grey query: a pair of channels far enough apart at
// its corner stays more than kRlGreyTolerance apart in every colour of the
// cell. Then the answer at the corner, A, is the answer everywhere when A
// beats every other candidate B throughout the cell: nearer, or as near with
// the lower index. The difference of the squared distances to A and to B is
// a sum of one linear term per channel, so its largest value over the cell
// takes each channel at whichever end of its side makes that term largest.
int32_t whole_answer(const RlNearest *n, RlNearestCell list, const int lo[3], int span) {
    auto apart = [span](int a, int c) {
        return a - c > span + kRlGreyTolerance || c - a > span + kRlGreyTolerance;
    };
    if (!(apart(lo[0], lo[1]) || apart(lo[1], lo[2]) || apart(lo[0], lo[2]))) return -1;
    if (list.length == 0) return -1;
    const RlNearestCandidate *k = n->pool + list.start;
    int16_t a = small_scan(n, list, static_cast<uint8_t>(lo[0]), static_cast<uint8_t>(lo[1]),
                           static_cast<uint8_t>(lo[2]));
    const uint8_t *w = n->table + 3 * static_cast<size_t>(a);
#ifdef TOLVA_NEAREST_WIDE
    if (n->wideScan) return wide_beats_all(k, list.length, a, w, lo, span) ? a : -1;
#endif
    for (uint32_t i = 0; i < list.length; ++i) {
        const RlNearestCandidate &other = k[i];
        if (other.index == a) continue;
        const int o[3] = {other.red, other.green, other.blue};
        int largest = 0;
        for (int c = 0; c < 3; ++c) {
            // (x - w)^2 - (x - o)^2 = (o - w)(2x - w - o), at either end of the side.
            int low = (o[c] - w[c]) * (2 * lo[c] - w[c] - o[c]);
            int high = (o[c] - w[c]) * (2 * (lo[c] + span) - w[c] - o[c]);
            largest += low > high ? low : high;
        }
        if (largest > 0 || (largest == 0 && other.index < a)) return -1;
    }
    return a;
}

// Makes room for one more block of a cell's own; false when there is none.
bool reserve_block(RlNearest *n) {
    if (n->blocksUsed < n->blocksSize) return true;
    uint32_t size = n->blocksSize * 2;
    if (size > kRlNearestSharedBlocks + kRlNearestFineCells)
        size = kRlNearestSharedBlocks + kRlNearestFineCells;
    if (size <= n->blocksUsed) return false;
    auto *blocks = static_cast<uint8_t *>(
        grow(&n->blockHandle, n->blocksUsed * kRlNearestBlockBytes, size * kRlNearestBlockBytes));
    if (blocks == nullptr) return false;  // the old block stays, and stays in use
    n->blocks = blocks;
    n->blocksSize = size;
    return true;
}

// The query's list at `level` from its parent's, built into *cell unless
// built already; false when out of memory.
bool cell_list(RlNearest *n, RlNearestCell parent, uint8_t r, uint8_t g, uint8_t b, int level,
               RlNearestCell *cell) {
    if (cell->start != 0) return true;
    if (parent.length <= kShareBelow) {
        // A short parent list serves the part as it is: it holds every
        // candidate of the part, and since no point of the part is closer to
        // an entry than the parent's closest approach, stopping on the
        // parent's order never stops too early.
        *cell = parent;
        return true;
    }
    int shift = 5 - level;
    int mask = ~((1 << shift) - 1);
    int lo[3] = {r & mask, g & mask, b & mask};
    return build_cell(n, parent, lo, (1 << shift) - 1, cell);
}

// The query's list of candidates in its 8-wide cell, building the cells on
// the way down that are not built yet; false when out of memory.
bool eight_wide_list(RlNearest *n, uint32_t grey, uint8_t r, uint8_t g, uint8_t b,
                     RlNearestCell *list) {
    RlNearestCell parent = n->classes[grey];
    for (int level = 0; level < kRlNearestLevels - 1; ++level) {
        RlNearestCell *cell =
            &n->cells[grey][kLevelStart[level] + rl_nearest_position(r, g, b, level)];
        if (level == 0 && cell->start == 0) {
            int lo[3] = {r & ~31, g & ~31, b & ~31};
            if (!build_cell(n, parent, lo, 31, cell)) return false;
            // Its parts at the next two levels, none built yet, are written
            // before anything reads them: a page of fresh memory read first
            // is entered twice, once to read and again to write.
            uint32_t at = rl_nearest_position(r, g, b, 0);
            std::memset(&n->cells[grey][kLevelStart[1] + 8 * at], 0, 8 * sizeof(RlNearestCell));
            std::memset(&n->cells[grey][kLevelStart[2] + 64 * at], 0, 64 * sizeof(RlNearestCell));
        } else if (!cell_list(n, parent, r, g, b, level, cell)) {
            return false;
        }
        parent = *cell;
    }
    *list = parent;
    return true;
}

// The query's list of candidates in its 4-wide cell, kept with the cells;
// only a search that keeps no answers asks for it.
bool four_wide_list(RlNearest *n, uint32_t grey, uint8_t r, uint8_t g, uint8_t b,
                    RlNearestCell eight, RlNearestCell *list) {
    if (n->cells[grey] == nullptr) return false;  // the pool could not grow
    RlNearestCell *cell = &n->cells[grey][kLevelStart[kRlNearestLevels - 1] +
                                          rl_nearest_position(r, g, b, kRlNearestLevels - 1)];
    if (!cell_list(n, eight, r, g, b, kRlNearestLevels - 1, cell)) return false;
    *list = *cell;
    return true;
}

// The block of the query's 4-wide cell, decided on its first query, or 0
// when no block could be had; `eight` is the query's 8-wide list. A cell
// answered whole holds no grey query, so it is a colour list whenever it is
// used.
uint32_t decide_cell(RlNearest *n, uint8_t r, uint8_t g, uint8_t b, RlNearestCell eight) {
    uint32_t position = rl_nearest_key(r, g, b) >> 6;
    // An 8-wide cell is looked at once, on its first undecided part; when it
    // is answered whole, no part of it is undecided again.
    uint8_t &looked = n->coarse[position >> 3];
    if (looked == 0) {
        looked = 1;
        const int lo[3] = {r & ~7, g & ~7, b & ~7};
        int32_t whole = whole_answer(n, eight, lo, 7);
        // Every 4-wide part of a cell answered whole shares its block.
        if (whole >= 0) {
            for (uint32_t part = 0; part < 8; ++part)
                n->cellBlock[(position & ~7u) | part] =
                    static_cast<uint32_t>(whole + 1) * kRlNearestBlockBytes;
            return n->cellBlock[position];
        }
    }
    // The 8-wide list holds every candidate of the 4-wide cell too.
    const int lo[3] = {r & ~3, g & ~3, b & ~3};
    int32_t whole = whole_answer(n, eight, lo, 3);
    if (whole >= 0)
        return n->cellBlock[position] = static_cast<uint32_t>(whole + 1) * kRlNearestBlockBytes;
    if (!reserve_block(n)) return 0;
    uint32_t block = n->blocksUsed++ * kRlNearestBlockBytes;
    // Written before anything reads it: a page of fresh memory read first
    // is mapped twice, once to read and again to write.
    std::memset(n->blocks + block, 0, kRlNearestBlockBytes);
    return n->cellBlock[position] = block;
}

}  // namespace

namespace {

uint32_t first_room(int64_t questions, int64_t per, uint32_t least, uint32_t most) {
    int64_t room = questions / per;
    return room < least ? least : room > most ? most : static_cast<uint32_t>(room);
}

}  // namespace

int32_t rl_nearest_open(RlNearest *n, const uint8_t *table, int16_t count, RlNearestUse use,
                        int64_t questions) {
    *n = RlNearest{};
    n->table = table;
    n->count = table != nullptr && count > 0 ? count : 0;
    if (n->count == 0) return 0;
    // The cells pay for themselves only over many questions; a few are
    // answered from the class lists.
    bool celled = use == kRlNearestMany;
    uint32_t poolSize = static_cast<uint32_t>(n->count) + 8 +
                        (celled ? first_room(questions, kQuestionsPerCandidate, kFewestCandidates,
                                             kMostFirstCandidates)
                                : 0);
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
    if (!celled) return 0;
    // Answers are kept in blocks when they fit a byte. The blocks grow as
    // needed; the shared ones come first.
    if (n->count <= 256) {
        uint32_t blocks =
            kRlNearestSharedBlocks +
            first_room(questions, kQuestionsPerBlock, kFewestOwnBlocks, kMostFirstOwnBlocks);
        n->blockHandle = GlobalAlloc(TOLVA_GMEM_FLAGS, blocks * kRlNearestBlockBytes);
        n->blocks = static_cast<uint8_t *>(rlLockMemory(n->blockHandle));
        n->blocksSize = n->blocks != nullptr ? blocks : 0;
        n->blocksUsed = kRlNearestSharedBlocks;
        for (uint32_t answer = 0; answer < 256 && n->blocks != nullptr; ++answer) {
            uint8_t *shared = n->blocks + (answer + 1) * kRlNearestBlockBytes;
            std::memset(shared, static_cast<int>(answer ^ 0xFFu), 64);
            std::memset(shared + 64, 0xFF, 8);
        }
    }
    // The cells of both classes, then each 4-wide cell's block and each
    // 8-wide cell's answer. With blocks, the colours of a 4-wide cell are
    // searched in their 8-wide list and the cells stop at the 8-wide level.
    bool keep = n->blocks != nullptr;
    uint32_t perClass = keep ? kLevelStart[kRlNearestLevels - 1] : kCellCount;
    size_t cellBytes = 2 * perClass * sizeof(RlNearestCell);
    size_t keptBytes = keep ? kRlNearestFineCells * sizeof(uint32_t) + kCoarseCells : 0;
    n->cacheHandle = GlobalAlloc(TOLVA_GMEM_FLAGS, static_cast<uint32_t>(cellBytes + keptBytes));
    auto *cache = static_cast<uint8_t *>(rlLockMemory(n->cacheHandle));
    if (cache == nullptr) return -1;  // the class lists serve alone
    auto *cells = reinterpret_cast<RlNearestCell *>(cache);
    for (uint32_t grey = 0; grey < 2; ++grey) n->cells[grey] = cells + grey * perClass;
    if (!keep) return n->count <= 256 ? -1 : 0;
    n->cellBlock = reinterpret_cast<uint32_t *>(cache + cellBytes);
#ifdef TOLVA_NEAREST_WIDE
    n->wideScan = !g_narrow && wide_scan_runs();
    n->wideRows = !g_narrow && wide_rows_run();
#endif
    n->coarse = cache + cellBytes + kRlNearestFineCells * sizeof(uint32_t);
    return 0;
}

int16_t rl_nearest_find_slow(RlNearest *n, uint8_t r, uint8_t g, uint8_t b) {
    if (n->count == 0) return 0;
    if (n->pool == nullptr)
        return rlNearestRGBIndex(r, g, b, n->table, static_cast<int16_t>(n->count));
    uint32_t grey = rl_grey_query(r, g, b);
    RlNearestCell whole = n->classes[grey];
    if (n->cells[grey] == nullptr)
        return rl_nearest_scan(n->pool + whole.start, whole.length, r, g, b);
    RlNearestCell eight = {};
    if (n->cellBlock == nullptr) {
        RlNearestCell fine = {};
        if (!eight_wide_list(n, grey, r, g, b, &eight) ||
            !four_wide_list(n, grey, r, g, b, eight, &fine))
            return rlNearestRGBIndex(r, g, b, n->table, static_cast<int16_t>(n->count));
        return rl_nearest_scan(n->pool + fine.start, fine.length, r, g, b);
    }
    uint32_t key = rl_nearest_key(r, g, b);
    uint32_t block = n->cellBlock[key >> 6];
    uint64_t bit = uint64_t{1} << (key & 63u);
    uint64_t known = 0;
    if (block != 0) std::memcpy(&known, n->blocks + block + 64, sizeof known);
    if ((known & bit) != 0) return static_cast<int16_t>(n->blocks[block + (key & 63u)] ^ 0xFFu);

    // A colour of a cell with several answers is searched in its 8-wide
    // list: a list of the 4-wide cell would be barely shorter (a few
    // candidates on photographs) and cost a build and room per cell. The
    // 8-wide cell's place follows from the key; once built, its whole line
    // of cells above it is built too. Its 32-wide cell is looked at first,
    // so that an 8-wide cell is never read before it is written (above).
    if (n->cells[grey][key >> 15].start != 0)
        eight = n->cells[grey][kLevelStart[kRlNearestLevels - 2] + (key >> 9)];
    if (eight.start == 0 && !eight_wide_list(n, grey, r, g, b, &eight))
        return rlNearestRGBIndex(r, g, b, n->table, static_cast<int16_t>(n->count));
    if (block == 0) {
        block = decide_cell(n, r, g, b, eight);
        std::memcpy(&known, n->blocks + block + 64, sizeof known);
        if ((known & bit) != 0) return static_cast<int16_t>(n->blocks[block + (key & 63u)] ^ 0xFFu);
    }
    int16_t index = small_scan(n, eight, r, g, b);
    constexpr uint32_t kFirstOwn = kRlNearestSharedBlocks * kRlNearestBlockBytes;
    if (block < kFirstOwn) return index;  // no room for its answers
    n->blocks[block + (key & 63u)] = static_cast<uint8_t>(index ^ 0xFF);
    known |= bit;
    std::memcpy(n->blocks + block + 64, &known, sizeof known);
    return index;
}

void rl_nearest_narrow(bool narrow) { g_narrow = narrow; }

void rl_nearest_close(RlNearest *n) {
    (void)rlFreeNewData(n->poolHandle);  // each handle is either freed or 0
    (void)rlFreeNewData(n->cacheHandle);
    (void)rlFreeNewData(n->blockHandle);
    *n = RlNearest{};
}

void rl_nearest_map_row(RlNearest *n, const uint8_t *in, uint32_t step, int32_t width,
                        uint8_t *out) {
#ifdef TOLVA_NEAREST_WIDE
    if (n->cellBlock != nullptr && step == 3 && n->wideRows) {
        uint32_t done = wide_map_row(n, in, static_cast<uint32_t>(width), out);
        in += 3 * done;
        out += done;
        width -= static_cast<int32_t>(done);
    }
#endif
    // (A search whose pool could not grow keeps no answers from then on.)
    if (n->cellBlock == nullptr) {
        for (int32_t x = 0; x < width; ++x, in += step)
            out[x] = static_cast<uint8_t>(rl_nearest_find_slow(n, in[0], in[1], in[2]));
        return;
    }
    // rl_nearest_find with the tables held in locals: only a slow answer
    // can move the blocks.
    const uint32_t *cellBlock = n->cellBlock;
    const uint8_t *blocks = n->blocks;
    for (uint32_t x = 0; x < static_cast<uint32_t>(width); ++x, in += step) {
        uint32_t key = rl_nearest_key(in[0], in[1], in[2]);
        uint32_t stored = blocks[cellBlock[key >> 6] + (key & 63u)];
        if (stored == 0) {
            stored = ~static_cast<uint32_t>(rl_nearest_find_slow(n, in[0], in[1], in[2]));
            blocks = n->blocks;  // a new block may have moved them
        }
        out[x] = static_cast<uint8_t>(~stored);
    }
}
