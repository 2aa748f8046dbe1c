// A host for the end-to-end tests and the benchmark: it drives the filter only
// through its exported entry points and opcode blocks, the way a graphics
// application does; gif_decode.h reads the GIF back.
#ifndef TOLVA_TESTS_PIPELINE_TEST_HOST_H
#define TOLVA_TESTS_PIPELINE_TEST_HOST_H

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "../output/gif_decode.h"
#include "tolva/host.h"
#include "tolva/settings.h"

namespace test_host {

// One opcode parameter block, each value stored at its byte position.
struct Block {
    std::vector<uint8_t> bytes;
    explicit Block(int32_t opcode, size_t size = 64) : bytes(size, 0) {
        put(TOLVA_BLOCK_OPCODE, opcode);
    }
    template <typename T>
    Block &put(size_t at, T value) {
        bytes.resize(std::max(bytes.size(), at + sizeof value));
        memcpy(bytes.data() + at, &value, sizeof value);
        return *this;
    }
};

// Primitive -5 opens a picture (width, height, bits, ...), -6 closes it.
inline Block primitive(int32_t id, const std::vector<int32_t> &data) {
    Block b(TOLVA_OP_PRIMITIVE, TOLVA_PRIMITIVE_DATA(0));
    b.put(TOLVA_PRIMITIVE_ID, id)
        .put(TOLVA_PRIMITIVE_DATA_LENGTH(0), static_cast<int32_t>(4 * data.size()));
    for (size_t i = 0; i < data.size(); ++i) b.put(TOLVA_PRIMITIVE_DATA(0) + 4 * i, data[i]);
    return b;
}

// A cell array whose cells stay in the host's memory (a negative depth says
// so). The device window runs y upward; corners that run the other way (up)
// make the rows bottom-up.
inline Block cell_array(const uint8_t *data, uint32_t cells, uint32_t rows, int32_t bits, bool up) {
    Block b(TOLVA_OP_CELL_ARRAY, TOLVA_CELLS_DATA + sizeof data);
    b.put(TOLVA_CELLS_FIRST_Y, up ? double(rows) : 0.0).put(TOLVA_CELLS_SECOND_X, double(cells));
    b.put(TOLVA_CELLS_SECOND_Y, up ? 0.0 : double(rows));
    b.put(TOLVA_CELLS_PER_ROW, cells).put(TOLVA_CELLS_ROWS, rows);
    return b.put(TOLVA_CELLS_BITS, bits == 1 ? int32_t{TOLVA_CELLS_ONE_BIT} : -bits)
        .put(TOLVA_CELLS_DATA, data);
}

// The status function of every device: it records progress reports (plain
// queries with a value) and says stop at the report g_stop_at, where 0 is
// the plain query of close. A stop answer is followed by the detail request
// (2, 61), which must say stop as well.
inline intptr_t g_stop_at = -1;
inline std::vector<intptr_t> g_reports;
inline int32_t stopping_status(intptr_t, intptr_t a, intptr_t b, intptr_t, intptr_t d, intptr_t,
                               intptr_t) {
    if (a == 0 && b == 0 && d != 0) g_reports.push_back(d);
    return (a == 2 && b == 61) || (a == 0 && b == 0 && d == g_stop_at) ? 1 : 0;
}

// The host's side of a device: a current Setup block with the defaults (the
// host may change it directly), the init block and the status record.
struct Device {
    HGLOBAL setup = CreateSetup(0, "/nonexistent/tolva-test.ini", "", 0);
    SetupBlock *settings = static_cast<SetupBlock *>(GlobalLock(setup));
    intptr_t init[TOLVA_INIT_WORDS] = {}, status[TOLVA_STATUS_WORDS] = {};
    int32_t capabilities[64] = {};
    std::string fileName;
    int32_t (*entry)(intptr_t, int16_t, void *) = nullptr;
    bool started = false;

    Device() {
        status[TOLVA_STATUS_CONTEXT] = 77;
        status[TOLVA_STATUS_FUNCTION] = reinterpret_cast<intptr_t>(stopping_status);
        UseDefaultSettings(settings);
        intptr_t address = 0;
        RASTER_dd_entry(TOLVA_ENTRY_ADDRESS, &address, nullptr);
        entry = reinterpret_cast<int32_t (*)(intptr_t, int16_t, void *)>(address);
    }
    ~Device() {
        stop();
        DestroySetup(setup);
    }
    int32_t start(const std::string &file) {  // init, with this output file name
        fileName = file;
        init[TOLVA_INIT_FILE_NAME] = reinterpret_cast<intptr_t>(fileName.c_str());
        init[TOLVA_INIT_REPLY_SIZE] = 4096;
        init[TOLVA_INIT_SETUP] = static_cast<intptr_t>(setup);
        init[TOLVA_INIT_STATUS_RECORD] = reinterpret_cast<intptr_t>(status);
        init[TOLVA_INIT_CAPABILITIES] = reinterpret_cast<intptr_t>(capabilities);
        int32_t r = entry(0, TOLVA_ENTRY_INIT, init);
        started = r == 0;
        // A host that wants a real error stack stores a capacity.
        if (started && lpEMData != nullptr) lpEMData->errorCapacity = 10;
        return r;
    }
    int32_t call(Block block) { return entry(0, TOLVA_ENTRY_CALL, block.bytes.data()); }
    int32_t call(int32_t opcode) { return call(Block(opcode)); }
    void stop() {  // term
        if (started) (void)entry(0, TOLVA_ENTRY_TERM, nullptr);
        started = false;
    }
};

using gif_decode::decode;
using gif_decode::decode_file;
using gif_decode::Gif;
using gif_decode::read_file;

// A fresh directory for one test's outputs, removed with its files.
struct TempDir {
    std::string dir = std::filesystem::temp_directory_path() / "tolva-pipeline-XXXXXX";
    TempDir() { dir = mkdtemp(dir.data()); }
    ~TempDir() { std::filesystem::remove_all(dir); }
    std::string path(const std::string &name) const { return dir + "/" + name; }
};

// The spool files the writer leaves in /tmp (zun*), to be compared before and after.
inline std::vector<std::string> spool_files() {
    std::vector<std::string> names;
    for (const auto &e : std::filesystem::directory_iterator("/tmp"))
        if (e.path().filename().string().rfind("zun", 0) == 0) names.push_back(e.path());
    return names;
}

inline uint32_t distance(const uint8_t *a, const uint8_t *b) {
    uint32_t d = 0;
    for (int i = 0; i < 3; ++i) d += static_cast<uint32_t>((a[i] - b[i]) * (a[i] - b[i]));
    return d;
}

// The nearest palette entry as the filter defines it: greys (channels within
// 4 of each other) match only entries with three equal channels, colours
// only the others; squared distance; lowest index on ties.
inline int nearest_entry(const uint8_t *rgb, const std::vector<uint8_t> &palette) {
    bool grey = abs(rgb[0] - rgb[1]) <= 4 && abs(rgb[1] - rgb[2]) <= 4 && abs(rgb[0] - rgb[2]) <= 4;
    int best = 0;
    uint32_t bestDistance = UINT32_MAX;
    for (size_t i = 0; 3 * i < palette.size(); ++i) {
        const uint8_t *e = &palette[3 * i];
        if ((e[0] == e[1] && e[1] == e[2]) == grey && distance(rgb, e) < bestDistance) {
            bestDistance = distance(rgb, e);
            best = static_cast<int>(i);
        }
    }
    return best;
}

struct Picture {
    int32_t width = 0, height = 0, bits = 8, stride = 0;
    std::vector<uint8_t> rows;  // host row order, each row padded to 4 bytes
    const uint8_t *row(int32_t y) const { return &rows[static_cast<size_t>(y) * stride]; }
    int index(int32_t x, int32_t y) const {  // of palette pictures, packed from the high bit
        return (row(y)[x * bits / 8] >> (8 - bits - x * bits % 8)) & ((1 << bits) - 1);
    }
};

// Palette pictures (1, 4, 8 bits) hold a diagonal pattern of indices;
// true-colour ones (24, 32 bits) run red across, green down, blue in stripes.
inline Picture make_picture(int32_t width, int32_t height, int32_t bits) {
    Picture p{width, height, bits, ((width * bits + 7) / 8 + 3) & ~3, {}};
    // The fourth byte of a 32-bit pixel plays no part.
    p.rows.assign(static_cast<size_t>(p.stride) * height, bits == 32 ? 0x5A : 0);
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x) {
            uint8_t *px = &p.rows[static_cast<size_t>(y) * p.stride + x * bits / 8];
            if (bits <= 8) {
                int index = (x * 7 + y * 13 + 1) & ((1 << bits) - 1);
                *px |= static_cast<uint8_t>(index << (8 - bits - x * bits % 8));
                continue;
            }
            px[0] = static_cast<uint8_t>(x * 255 / width);
            px[1] = static_cast<uint8_t>(y * 255 / height);
            px[2] = static_cast<uint8_t>((x + y) % 64 * 4);
        }
    return p;
}

inline std::vector<uint8_t> device_palette() {  // 256 distinct colours
    std::vector<uint8_t> rgb;
    for (int i = 0; i < 256; ++i) rgb.insert(rgb.end(), {uint8_t(i), uint8_t(~i), uint8_t(3 * i)});
    return rgb;
}

// How the GIF disagrees with the picture, or "" when every GIF row y holds
// picture row source[y] (-1: a row never filled, index 0 or black; no source:
// the rows as sent downward, the first at the bottom). Palette pictures keep
// every index, true-colour pixels take their nearest entry.
inline std::string mismatch(const Gif &gif, const Picture &p, std::vector<int32_t> source = {}) {
    if (source.empty())
        for (int32_t y = p.height - 1; y >= 0; --y) source.push_back(y);
    if (!gif.ok || gif.width != p.width || gif.height != static_cast<int>(source.size()))
        return "decoded as " + std::to_string(gif.width) + " x " + std::to_string(gif.height);
    const uint8_t black[3] = {};
    for (int y = 0; y < gif.height; ++y)
        for (int x = 0; x < gif.width; ++x) {
            uint8_t got = gif.indices[y * gif.width + x];
            const uint8_t *rgb = source[y] < 0 ? black : p.row(source[y]) + p.bits / 8 * x;
            bool ok = p.bits > 8
                          ? distance(rgb, &gif.palette[3 * got]) ==
                                distance(rgb, &gif.palette[3 * nearest_entry(rgb, gif.palette)])
                          : got == (source[y] < 0 ? 0 : p.index(x, source[y]));
            if (!ok) return "at " + std::to_string(x) + "," + std::to_string(y);
        }
    return "";
}

struct Send {
    int32_t band = 0;  // rows a cell array; 0 sends the picture as one
    bool upward = false;
    bool oneToOne = true;    // resolution through the viewport scaling mode
    bool bracket = true;     // inside primitives -5/-6
    bool palette = true;     // the device's colour table
    int32_t rowsSent = -1;   // -1: every row of the picture
    int32_t abandoned = -1;  // a picture this tall opened first and never closed; -1: none
};

// The whole conversation from open to close (init and term are the caller's).
inline void send_picture(Device &device, const Picture &p, const Send &how) {
    (void)device.call(TOLVA_OP_OPEN_DEVICE);  // its result is the test's to check, through errors()
    device.call(TOLVA_OP_BEGIN_PICTURE);
    device.call(Block(TOLVA_OP_DEVICE_WINDOW)
                    .put(TOLVA_WINDOW_X2, p.width - 1.0)
                    .put(TOLVA_WINDOW_Y2, p.height - 1.0));
    // Viewport scaling mode 1 at 25.4 / 96 millimetres a unit: 96 dots per inch.
    if (how.oneToOne)
        device.call(Block(TOLVA_OP_VIEWPORT_SCALING)
                        .put(TOLVA_SCALING_MODE, int16_t{TOLVA_SCALING_METRIC})
                        .put(TOLVA_SCALING_UNIT, TOLVA_MM_PER_INCH / 96.0));
    device.call(Block(TOLVA_OP_BACKGROUND, TOLVA_BACKGROUND_RGB + 4));  // black background
    device.call(TOLVA_OP_BEGIN_BODY);
    std::vector<uint8_t> rgb = device_palette();
    Block table(TOLVA_OP_COLOUR_TABLE);  // from entry 0, 3 bytes an entry
    table.put(TOLVA_COLOURS_LENGTH, int32_t{TOLVA_COLOURS_LENGTH_OF(256)});
    for (size_t i = 0; i < rgb.size(); ++i) table.put(TOLVA_COLOURS_RGB + i, rgb[i]);
    if (how.palette) device.call(table);
    for (int32_t height : {how.abandoned, how.bracket ? p.height : -1})
        if (height >= 0)
            device.call(primitive(TOLVA_PRIMITIVE_OPEN, {p.width, height, p.bits, 0, 0, 0, 0}));
    int32_t total = how.rowsSent < 0 ? p.height : how.rowsSent;
    int32_t band = how.band > 0 ? how.band : std::max(total, 1);
    // Upward bands keep the host's row order; only the corners say which way they run.
    for (int32_t y = 0; y < total; y += band) {
        auto rows = static_cast<uint32_t>(std::min(band, total - y));
        device.call(cell_array(p.row(y), static_cast<uint32_t>(p.width), rows, p.bits, how.upward));
    }
    if (how.bracket) device.call(primitive(TOLVA_PRIMITIVE_CLOSE, {0}));
    device.call(TOLVA_OP_END_PICTURE);
    device.call(TOLVA_OP_CLOSE_DEVICE);
}

}  // namespace test_host

#endif
