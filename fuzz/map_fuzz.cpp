// True-colour pictures mapped onto a colour table, as a picture becomes 8
// bits: every index must be the one the literal nearest-colour search gives.
// The first bytes choose the table's size (1 to 256 entries), the picture's
// size (64 to 127 on each side, enough for the search to keep its answers by
// cell), 24 or 32 bits, and whether the search may take the processor's wide
// roads; then come the table's colours and the pixels' bytes, which are
// repeated to fill the picture, each round shifted by one so that the
// repeats are not copies. Half the pictures take their pixels near the table's
// own entries, where ties and the grey rule decide.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fuzz/host.h"
#include "raster/raster.h"
#include "raster/raster_oracle.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzzhost::Reader in{data, size, 0x5a};
    int32_t count = 1 + in.byte();
    int32_t width = 64 + in.byte() % 64, height = 64 + in.byte() % 64;
    uint8_t options = in.byte();
    int16_t bits = (options & 1) ? 32 : 24;
    bool nearEntries = (options & 2) != 0;
    rl_nearest_narrow((options & 4) != 0);

    HGLOBAL table = GlobalAlloc(TOLVA_GMEM_FLAGS, 3 * static_cast<uint32_t>(count));
    auto *colours = static_cast<uint8_t *>(GlobalLock(table));
    for (int32_t i = 0; i < 3 * count; ++i) colours[i] = in.byte();

    static const uint8_t kNone = 0;
    const uint8_t *rest = in.n > 0 ? in.p : &kNone;
    size_t restSize = in.n > 0 ? in.n : 1;
    int32_t line = rlBytesPerLine(width, bits);
    size_t step = static_cast<size_t>(bits / 8);
    HGLOBAL picture =
        GlobalAlloc(TOLVA_GMEM_FLAGS, static_cast<uint32_t>(line) * static_cast<uint32_t>(height));
    auto *pixels = static_cast<uint8_t *>(GlobalLock(picture));
    size_t k = 0;
    for (int32_t y = 0; y < height; ++y) {
        uint8_t *p = pixels + static_cast<size_t>(y) * static_cast<size_t>(line);
        for (int32_t x = 0; x < width; ++x, p += step) {
            for (size_t c = 0; c < step; ++c, ++k) {
                auto v = static_cast<uint8_t>(rest[k % restSize] + k / restSize);
                if (nearEntries && c < 3) {
                    const uint8_t *e = colours + 3 * (rest[(k / 3) % restSize] % count);
                    v = static_cast<uint8_t>(e[c] + (v % 5) - 2);
                }
                p[c] = v;
            }
        }
    }

    HGLOBAL fast = rlConvertBitmapDepth(picture, width, height, bits, 8, 0, table,
                                        static_cast<int16_t>(count));
    HGLOBAL slow = rasteroracle::convert(picture, width, height, bits, 8, 0, table,
                                         static_cast<int16_t>(count));
    if (fast == 0 || slow == 0 || GlobalSize(fast) != GlobalSize(slow) ||
        std::memcmp(GlobalLock(fast), GlobalLock(slow), GlobalSize(fast)) != 0)
        std::abort();
    rl_nearest_narrow(false);
    for (HGLOBAL h : {fast, slow, picture, table}) GlobalFree(h);
    return 0;
}
