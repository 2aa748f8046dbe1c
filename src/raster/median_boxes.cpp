// The box arithmetic of median-cut colour reduction (Heckbert, "Color image
// quantization for frame buffer display", 1982), on a list of 15-bit colour
// keys with pixel counts.
//
// The orders here decide which colours end up in the table, so they are kept
// exactly as the reduction has always done them, odd corners included: the
// heap build reaches one entry past a box's range, the downward median run
// compares with the entry above it, and a box that is split leaves its record
// behind in a freed slot. The colour list always carries one spare entry after
// its last colour so that the entry past a range is inside the list.
#include "raster/raster.h"

namespace {

constexpr uint16_t kSlotFree = 0xFFFF;
constexpr uint16_t kSlotFinal = 0xFFFE;

uint8_t key_red(uint16_t key) { return static_cast<uint8_t>((key >> 10) & 31); }
uint8_t key_green(uint16_t key) { return static_cast<uint8_t>((key >> 5) & 31); }
uint8_t key_blue(uint16_t key) { return static_cast<uint8_t>(key & 31); }

uint8_t component(const RlColorEntry &e, int32_t axis) {
    switch (axis) {
    case 0:
        return key_red(e.key);
    case 1:
        return key_green(e.key);
    default:
        return key_blue(e.key);
    }
}

// Where an axis's 5-bit component sits in a key: red 10, green 5, blue 0.
int axis_shift(int32_t axis) { return axis == 0 ? 10 : (axis == 1 ? 5 : 0); }

uint32_t at_shift(const RlColorEntry &e, int shift) { return (e.key >> shift) & 31u; }

void swap_entries(RlColorEntry *a, RlColorEntry *b) {
    RlColorEntry t = *a;
    *a = *b;
    *b = t;
}

// AdjustHeap: with left = 2 root + 1, the larger child (the right one on a
// tie, the left one alone at `last`) moves up while the root is strictly
// smaller.
void sift_down(RlColorEntry *list, int shift, int32_t root, int32_t last) {
    int32_t left = 2 * root + 1;
    while (left <= last) {
        int32_t child = left;
        if (left != last && at_shift(list[left], shift) <= at_shift(list[left + 1], shift)) {
            child = left + 1;
        }
        if (at_shift(list[root], shift) >= at_shift(list[child], shift)) return;
        swap_entries(&list[root], &list[child]);
        root = child;
        left = 2 * root + 1;
    }
}

// The lowest free slot above `after`, or the last slot when none is free.
int32_t free_slot(const uint16_t *status, int32_t after, int32_t n) {
    for (int32_t s = after + 1; s < n; ++s) {
        if (status[s] == kSlotFree) return s;
    }
    return n - 1;
}

}  // namespace

extern "C" {

void clrswap(RlColorEntry *a, RlColorEntry *b) { swap_entries(a, b); }

void getCRectData(RlColorBox *box, const RlColorEntry *list, int32_t first, int32_t last) {
    box->first = static_cast<uint16_t>(first);
    box->last = static_cast<uint16_t>(last);
    box->pixels = 0;
    box->redMin = box->greenMin = box->blueMin = 255;
    box->redMax = box->greenMax = box->blueMax = 0;
    uint32_t sumRed = 0, sumGreen = 0, sumBlue = 0;
    for (int32_t i = first; i <= last; ++i) {
        uint8_t r = key_red(list[i].key), g = key_green(list[i].key), b = key_blue(list[i].key);
        uint32_t count = list[i].count;
        sumRed += r * count;
        sumGreen += g * count;
        sumBlue += b * count;
        if (r < box->redMin) box->redMin = r;
        if (r > box->redMax) box->redMax = r;
        if (g < box->greenMin) box->greenMin = g;
        if (g > box->greenMax) box->greenMax = g;
        if (b < box->blueMin) box->blueMin = b;
        if (b > box->blueMax) box->blueMax = b;
        box->pixels += count;
    }
    // Extents are signed so that an empty range (minimum 255, maximum 0)
    // compares as the smallest; ties keep red, then green.
    int32_t extent = box->redMax - box->redMin;
    box->axis = 0;
    if (box->greenMax - box->greenMin > extent) {
        box->axis = 1;
        extent = box->greenMax - box->greenMin;
    }
    if (box->blueMax - box->blueMin > extent) box->axis = 2;
    // Every list entry inside a box has a non-zero count; an empty range has
    // no mean and keeps 0.
    uint32_t pixels = box->pixels;
    box->meanRed = static_cast<uint8_t>(pixels == 0 ? 0 : sumRed / pixels);
    box->meanGreen = static_cast<uint8_t>(pixels == 0 ? 0 : sumGreen / pixels);
    box->meanBlue = static_cast<uint8_t>(pixels == 0 ? 0 : sumBlue / pixels);
}

void AdjustHeap(RlColorEntry *list, int32_t axis, int32_t root, int32_t last) {
    sift_down(list, axis_shift(axis), root, last);
}

void HeapSort(RlColorEntry *list, int32_t axis, int32_t n) {
    // The build is bounded by n, not n - 1: the entry just past the range
    // takes part and may trade places with one inside it.
    int shift = axis_shift(axis);
    for (int32_t root = (n - 2) / 2; root >= 0; --root) sift_down(list, shift, root, n);
    for (int32_t k = n - 1; k >= 1; --k) {
        swap_entries(&list[0], &list[k]);
        sift_down(list, shift, 0, k - 1);
    }
}

int32_t find_median(const RlColorEntry *list, const RlColorBox *box) {
    int32_t f = box->first, l = box->last;
    int32_t axis = box->axis;
    if (l - f <= 1) return f;
    int32_t total = 0;
    for (int32_t i = f; i <= l; ++i) total += list[i].count;
    int32_t half = total / 2;

    int32_t m = f;
    int32_t acc = list[f].count;
    while (acc < half && m < l) {
        ++m;
        acc += list[m].count;
    }

    int32_t up = m, accUp = acc;
    while (up < l && component(list[up], axis) == component(list[up + 1], axis)) {
        ++up;
        accUp += list[up].count;
    }
    // The downward run looks at the entry above, not below, and takes off the
    // count of the position it moves to.
    int32_t down = m, accDown = acc;
    while (down > f && component(list[down], axis) == component(list[down + 1], axis)) {
        --down;
        accDown -= list[down].count;
    }
    return half - accDown > accUp - half ? up : down;
}

int32_t split(RlColorBox *boxes, int32_t slot, int32_t median, uint16_t *boxCount, uint16_t *status,
              const RlColorEntry *list, int32_t n) {
    int32_t f = boxes[slot].first, l = boxes[slot].last;

    int32_t i = free_slot(status, -1, n);
    if (f == median) {
        status[i] = kSlotFinal;
        getCRectData(&boxes[i], list, f, median);
    } else {
        getCRectData(&boxes[i], list, f, l == median ? median - 1 : median);
        status[i] = static_cast<uint16_t>(i);
    }

    int32_t j = free_slot(status, i, n);
    if (l == median) {
        status[j] = kSlotFinal;
        getCRectData(&boxes[j], list, median, l);
    } else {
        getCRectData(&boxes[j], list, median + 1, l);
        status[j] = l == median + 1 ? kSlotFinal : static_cast<uint16_t>(j);
    }

    status[slot] = kSlotFree;  // the parent's record stays until a split reuses the slot
    *boxCount = static_cast<uint16_t>(*boxCount + 1);
    return 1;
}

int32_t GetMaxHistSum(const RlColorBox *boxes, const uint16_t *status, int32_t n) {
    int32_t best = 0;
    uint32_t most = 0;
    for (int32_t s = 0; s < n; ++s) {
        if (static_cast<int16_t>(status[s]) >= 0 && boxes[s].pixels > most) {
            most = boxes[s].pixels;
            best = s;
        }
    }
    return best;
}

}  // extern "C"
