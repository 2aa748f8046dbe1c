// The end-to-end tests' host: opcode blocks, the device's lifecycle, and
// reading GIFs back with giflib.
#include "test_host.h"

#include <dirent.h>
#include <gif_lib.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

namespace test_host {

Block::Block(int32_t opcode, size_t size) : bytes_(size, 0) { i32(0, opcode); }

void Block::fit(size_t end) {
    if (bytes_.size() < end) bytes_.resize(end, 0);
}
Block &Block::i16(size_t at, int16_t v) { return bytes(at, &v, sizeof v); }
Block &Block::i32(size_t at, int32_t v) { return bytes(at, &v, sizeof v); }
Block &Block::f64(size_t at, double v) { return bytes(at, &v, sizeof v); }
Block &Block::ptr(size_t at, const void *p) { return bytes(at, &p, sizeof p); }
Block &Block::bytes(size_t at, const void *data, size_t n) {
    fit(at + n);
    memcpy(bytes_.data() + at, data, n);
    return *this;
}

Block device_window(double x1, double y1, double x2, double y2) {
    Block b(0x206, 64);
    b.f64(16, x1).f64(24, y1).f64(32, 0.0).f64(40, x2).f64(48, y2).f64(56, 0.0);
    return b;
}

Block scaling_mode(int16_t mode, double unitSize) {
    Block b(0x209, 32);
    b.i16(16, mode).f64(24, unitSize);
    return b;
}

Block background(uint8_t r, uint8_t g, uint8_t b) {
    Block block(0x207, 20);
    const uint8_t rgb[3] = {r, g, b};
    block.bytes(16, rgb, 3);
    return block;
}

Block colour_table(uint32_t first, const std::vector<uint8_t> &rgb) {
    Block b(0x522, 20 + rgb.size());
    b.i32(4, static_cast<int32_t>(rgb.size() + 2)).i32(16, static_cast<int32_t>(first));
    b.bytes(20, rgb.data(), rgb.size());
    return b;
}

namespace {
Block primitive(int32_t id, const std::vector<int32_t> &data) {
    Block b(0x40a, 28 + 4 * data.size());
    b.i32(16, id).i32(20, 0).i32(24, static_cast<int32_t>(4 * data.size()));
    for (size_t i = 0; i < data.size(); ++i) b.i32(28 + 4 * i, data[i]);
    return b;
}

Block cell_header(uint32_t cellsPerRow, uint32_t rows, int32_t bits, bool upward) {
    Block b(0x409, 110);
    // The device window runs y upward (y1 = 0 < y2); corners that run the
    // other way make the rows bottom-up.
    double first = upward ? static_cast<double>(rows) : 0.0;
    double second = upward ? 0.0 : static_cast<double>(rows);
    b.f64(16, 0.0).f64(24, first).f64(40, static_cast<double>(cellsPerRow)).f64(48, second);
    b.i32(88, static_cast<int32_t>(cellsPerRow)).i32(92, static_cast<int32_t>(rows)).i32(96, bits);
    return b;
}
}  // namespace

Block open_picture(int32_t width, int32_t height, int32_t bits) {
    return primitive(-5, {width, height, bits, 0, 0, 0, 0});
}

Block close_picture() { return primitive(-6, {0}); }

Block cell_array(const uint8_t *data, uint32_t cellsPerRow, uint32_t rows, int32_t bits,
                 bool upward) {
    Block b = cell_header(cellsPerRow, rows, bits == 1 ? -32768 : -bits, upward);
    b.ptr(102, data);
    return b;
}

Block inline_cell_array(const std::vector<uint8_t> &data, uint32_t cellsPerRow, uint32_t rows,
                        int32_t bits) {
    Block b = cell_header(cellsPerRow, rows, bits, false);
    b.bytes(102, data.data(), data.size());
    return b;
}

Device::Device(StatusFunction function) {
    setup = CreateSetup(0, "/nonexistent/tolva-test.ini", "", 0);
    settings = static_cast<SetupBlock *>(GlobalLock(setup));
    if (settings != nullptr) UseDefaultSettings(settings);
    status[TOLVA_STATUS_CONTEXT] = 77;
    status[TOLVA_STATUS_FUNCTION] = reinterpret_cast<intptr_t>(function);
    intptr_t address = 0;
    RASTER_dd_entry(-3, &address, nullptr);
    entry = reinterpret_cast<int32_t (*)(intptr_t, int16_t, void *)>(address);
}

Device::~Device() {
    if (started) stop();
    if (setup != 0) DestroySetup(setup);
}

int32_t Device::start(const std::string &file) {
    fileName = file;
    init[TOLVA_INIT_FILE_NAME] = reinterpret_cast<intptr_t>(fileName.c_str());
    init[TOLVA_INIT_REPLY_SIZE] = 4096;
    init[TOLVA_INIT_SETUP] = static_cast<intptr_t>(setup);
    init[TOLVA_INIT_STATUS_RECORD] = reinterpret_cast<intptr_t>(status);
    init[TOLVA_INIT_CAPABILITIES] = reinterpret_cast<intptr_t>(capabilities);
    int32_t r = entry(0, 0, init);
    started = r == 0;
    // A host that wants a real error stack stores a capacity.
    if (started && lpEMData != nullptr) lpEMData->errorCapacity = 10;
    return r;
}

int32_t Device::call(Block &block) { return entry(0, 2, block.data()); }

int32_t Device::call(int32_t opcode) {
    Block b(opcode, 64);
    return call(b);
}

int32_t Device::stop() {
    started = false;
    return entry(0, -1, nullptr);
}

std::vector<int16_t> Device::errors() const {
    std::vector<int16_t> codes;
    if (lpEMData == nullptr) return codes;
    for (int32_t i = 0; i < lpEMData->errorCount && i < 10; ++i)
        codes.push_back(lpEMData->errors[i].code);
    return codes;
}

namespace {

Gif decode(GifFileType *file) {
    Gif gif;
    if (file == nullptr) return gif;
    if (DGifSlurp(file) == GIF_OK && file->ImageCount == 1) {
        const SavedImage &image = file->SavedImages[0];
        gif.width = image.ImageDesc.Width;
        gif.height = image.ImageDesc.Height;
        gif.interlaced = image.ImageDesc.Interlace;
        size_t n = static_cast<size_t>(gif.width) * static_cast<size_t>(gif.height);
        gif.indices.assign(image.RasterBits, image.RasterBits + n);
        if (file->SColorMap != nullptr) {
            for (int i = 0; i < file->SColorMap->ColorCount; ++i) {
                gif.palette.push_back(file->SColorMap->Colors[i].Red);
                gif.palette.push_back(file->SColorMap->Colors[i].Green);
                gif.palette.push_back(file->SColorMap->Colors[i].Blue);
            }
        }
        GraphicsControlBlock gcb;
        if (DGifSavedExtensionToGCB(file, 0, &gcb) == GIF_OK) gif.transparent = gcb.TransparentColor;
        gif.background = file->SBackGroundColor;
        gif.ok = true;
    }
    int error = 0;
    DGifCloseFile(file, &error);
    return gif;
}

struct MemoryReader {
    const uint8_t *data;
    size_t size;
    size_t at;
};

int read_memory(GifFileType *file, GifByteType *to, int n) {
    auto *reader = static_cast<MemoryReader *>(file->UserData);
    size_t count = std::min(static_cast<size_t>(n), reader->size - reader->at);
    memcpy(to, reader->data + reader->at, count);
    reader->at += count;
    return static_cast<int>(count);
}

}  // namespace

Gif decode_file(const std::string &path) {
    int error = 0;
    return decode(DGifOpenFileName(path.c_str(), &error));
}

Gif decode_memory(const uint8_t *data, size_t size) {
    MemoryReader reader{data, size, 0};
    int error = 0;
    return decode(DGifOpen(&reader, read_memory, &error));
}

std::vector<uint8_t> read_file(const std::string &path) {
    std::vector<uint8_t> bytes;
    FILE *f = fopen(path.c_str(), "rb");
    if (f == nullptr) return bytes;
    uint8_t buffer[65536];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) bytes.insert(bytes.end(), buffer, buffer + n);
    fclose(f);
    return bytes;
}

bool file_exists(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

TempDir::TempDir() {
    char name[] = "/tmp/tolva-pipeline-XXXXXX";
    const char *made = mkdtemp(name);
    dir_ = made != nullptr ? made : "/tmp";
}

TempDir::~TempDir() {
    DIR *d = opendir(dir_.c_str());
    if (d == nullptr) return;
    while (dirent *e = readdir(d)) {
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0)
            unlink((dir_ + "/" + e->d_name).c_str());
    }
    closedir(d);
    rmdir(dir_.c_str());
}

std::vector<std::string> spool_files() {
    std::vector<std::string> names;
    DIR *d = opendir("/tmp");
    if (d == nullptr) return names;
    while (dirent *e = readdir(d)) {
        if (strncmp(e->d_name, "zun", 3) == 0) names.push_back(e->d_name);
    }
    closedir(d);
    std::sort(names.begin(), names.end());
    return names;
}

static int absdiff(int a, int b) { return a > b ? a - b : b - a; }

bool is_grey_query(const uint8_t *c) {
    return absdiff(c[0], c[1]) <= 4 && absdiff(c[1], c[2]) <= 4 && absdiff(c[0], c[2]) <= 4;
}

bool is_grey_entry(const uint8_t *c) { return c[0] == c[1] && c[1] == c[2]; }

uint32_t distance(const uint8_t *a, const uint8_t *b) {
    uint32_t d = 0;
    for (int i = 0; i < 3; ++i) d += static_cast<uint32_t>((a[i] - b[i]) * (a[i] - b[i]));
    return d;
}

int nearest_entry(const uint8_t *rgb, const std::vector<uint8_t> &palette, int count) {
    bool grey = is_grey_query(rgb);
    int best = 0;
    uint32_t bestDistance = 0x7FFFFFFF;
    for (int i = 0; i < count; ++i) {
        const uint8_t *entry = &palette[3 * static_cast<size_t>(i)];
        if (is_grey_entry(entry) != grey) continue;
        uint32_t d = distance(rgb, entry);
        if (d < bestDistance) {
            bestDistance = d;
            best = i;
        }
    }
    return best;
}

Picture indexed_picture(int32_t width, int32_t height) {
    Picture p;
    p.width = width;
    p.height = height;
    p.bits = 8;
    p.stride = (width + 3) & ~3;
    p.rows.assign(static_cast<size_t>(p.stride) * height, 0);
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x)
            p.rows[static_cast<size_t>(y) * p.stride + x] = static_cast<uint8_t>(x * 7 + y * 13 + 1);
    return p;
}

Picture true_colour_picture(int32_t width, int32_t height) {
    Picture p;
    p.width = width;
    p.height = height;
    p.bits = 24;
    p.stride = (width * 3 + 3) & ~3;
    p.rows.assign(static_cast<size_t>(p.stride) * height, 0);
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x) {
            uint8_t *px = &p.rows[static_cast<size_t>(y) * p.stride + 3 * x];
            px[0] = static_cast<uint8_t>(x * 255 / width);
            px[1] = static_cast<uint8_t>(y * 255 / height);
            px[2] = static_cast<uint8_t>((x + y) % 64 * 4);
        }
    return p;
}

// 256 distinct colours.
std::vector<uint8_t> device_palette() {
    std::vector<uint8_t> rgb(768);
    for (int i = 0; i < 256; ++i) {
        rgb[3 * i] = static_cast<uint8_t>(i);
        rgb[3 * i + 1] = static_cast<uint8_t>(255 - i);
        rgb[3 * i + 2] = static_cast<uint8_t>(i * 3);
    }
    return rgb;
}

// The whole conversation from open to close (init and term by the caller).
void send_picture(Device &device, const Picture &p, const Send &how) {
    (void)device.call(0x1);  // its result is the test's to check, through errors()
    device.call(0x3);
    auto window = device_window(0, 0, p.width - 1, p.height - 1);
    device.call(window);
    if (how.oneToOne) {
        auto mode = scaling_mode(1, kUnitFor96Dpi);
        device.call(mode);
    }
    auto bg = background(0, 0, 0);
    device.call(bg);
    device.call(0x4);
    auto table = colour_table(0, device_palette());
    device.call(table);
    if (how.bracket) {
        auto open = open_picture(p.width, p.height, p.bits);
        device.call(open);
    }
    int32_t total = how.rowsSent < 0 ? p.height : how.rowsSent;
    int32_t band = how.band > 0 ? how.band : total;
    for (int32_t first = 0; first < total; first += band) {
        int32_t rows = std::min(band, total - first);
        // Upward rows are sent bottom row first: the host's row order is
        // kept, only the corners say which way they run.
        auto cells = cell_array(p.row(first), static_cast<uint32_t>(p.width),
                                static_cast<uint32_t>(rows), p.bits, how.upward);
        device.call(cells);
    }
    if (how.bracket) {
        auto close = close_picture();
        device.call(close);
    }
    device.call(0x5);
    device.call(0x2);
}

}  // namespace test_host
