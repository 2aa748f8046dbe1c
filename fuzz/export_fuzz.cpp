// Random pictures through the whole opcode protocol into a GIF file, which
// giflib must then decode to a picture of the size asked for. The first bytes
// choose the size, depth, palette, band split, direction and the Setup
// block's interlace and transparency; the rest are the pixels. The picture is
// written 1:1 (100 dots per inch through the viewport scaling mode), so the
// GIF is as wide as the picture and as high as its height rounded up to an
// even number of rows, after both went through inches and back: n / 100 * 100
// truncated, which loses a pixel at 29, 57 and 58.
#include <gif_lib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "fuzz/host.h"

using fuzzhost::Block;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzzhost::Reader in{data, size, 0x5a};
    static const int32_t kBits[] = {1, 4, 8, 24, 32};
    int32_t bits = kBits[in.byte() % 5];
    int32_t width = 2 + in.byte() % 70;
    int32_t height = 2 + in.byte() % 50;
    int32_t bands = 1 + in.byte() % 4;
    bool upward = in.byte() & 1;
    uint8_t options = in.byte();

    char path[] = "/tmp/tolva-fuzz-XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) return 0;
    close(fd);

    fuzzhost::Session session;
    session.create();
    if (lpRaster != nullptr) {
        lpRaster->interlace = (options & 1) ? TOLVA_INTERLACE_ON : 0;
        if (options & 2) {
            lpRaster->transparency = TOLVA_TRANSPARENCY_ON;
            for (uint8_t &c : lpRaster->transparentColour) c = in.byte();
        }
        if (options & 4) {
            lpRaster->backgroundChoice = TOLVA_BACKGROUND_ON;
            for (uint8_t &c : lpRaster->backgroundColour) c = in.byte();
        }
    }
    session.start(path);

    Block open(TOLVA_OP_OPEN_DEVICE), begin(TOLVA_OP_BEGIN_PICTURE), body(TOLVA_OP_BEGIN_BODY),
        end(TOLVA_OP_END_PICTURE), close_(TOLVA_OP_CLOSE_DEVICE);
    fuzzhost::call(open);
    fuzzhost::call(begin);
    Block window(TOLVA_OP_DEVICE_WINDOW);
    window.putd(TOLVA_WINDOW_X1, 0.0);
    window.putd(TOLVA_WINDOW_Y1, 0.0);
    window.putd(TOLVA_WINDOW_X2, width - 1);
    window.putd(TOLVA_WINDOW_Y2, height - 1);
    fuzzhost::call(window);
    Block scaling(TOLVA_OP_VIEWPORT_SCALING);
    scaling.put16(TOLVA_SCALING_MODE, TOLVA_SCALING_METRIC);
    scaling.putd(TOLVA_SCALING_UNIT, 0.254);  // 100 dots per inch: one pixel per cell
    fuzzhost::call(scaling);
    fuzzhost::call(body);

    if (bits <= 8) {
        int32_t entries = 1 << bits;
        Block table(TOLVA_OP_COLOUR_TABLE,
                    TOLVA_COLOURS_RGB + 3 * static_cast<size_t>(entries) + 8);
        table.put32(TOLVA_COLOURS_LENGTH, TOLVA_COLOURS_LENGTH_OF(entries));
        table.put32(TOLVA_COLOURS_FIRST, 0);
        for (int32_t i = 0; i < 3 * entries; ++i)
            table.bytes[TOLVA_COLOURS_RGB + static_cast<size_t>(i)] = in.byte();
        fuzzhost::call(table);
    }

    int32_t open_data[7] = {width, height, bits, 0, 0, 0, 0};
    Block opening = fuzzhost::primitive(TOLVA_PRIMITIVE_OPEN, open_data, 7);
    fuzzhost::call(opening);

    size_t rowBytes =
        ((static_cast<size_t>(width) * static_cast<size_t>(bits) + 7) / 8 + 3) / 4 * 4;
    int32_t sent = 0;
    for (int32_t b = 0; b < bands; ++b) {
        int32_t rows = b == bands - 1 ? height - sent : height / bands;
        if (rows <= 0) continue;
        std::vector<uint8_t> pixels(rowBytes * static_cast<size_t>(rows));
        for (uint8_t &v : pixels) v = in.byte();
        // Upward rows: the second corner lies below the first while the
        // window's y grows upward.
        double y1 = upward ? rows - 1 : 0, y2 = upward ? 0 : rows - 1;
        Block cells =
            fuzzhost::cellArray(y1, y2, static_cast<uint32_t>(width), static_cast<uint32_t>(rows),
                                bits, pixels.data(), pixels.size());
        fuzzhost::call(cells);
        sent += rows;
    }

    Block closing = fuzzhost::primitive(TOLVA_PRIMITIVE_CLOSE, open_data, 7);
    fuzzhost::call(closing);
    fuzzhost::call(end);
    fuzzhost::call(close_);
    session.finish();

    int error = 0;
    GifFileType *gif = DGifOpenFileName(path, &error);
    if (gif == nullptr) std::abort();
    if (DGifSlurp(gif) != GIF_OK) std::abort();
    auto through_inches = [](int32_t n) { return static_cast<int32_t>(100.0 * (n / 100.0)); };
    int32_t wide = through_inches(width), high = through_inches(height);
    if (gif->SWidth != wide || gif->SHeight != high + (high & 1) || gif->ImageCount != 1)
        std::abort();
    DGifCloseFile(gif, &error);
    unlink(path);
    return 0;
}
