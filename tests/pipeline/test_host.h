// A host for the end-to-end tests: it drives the filter only through its
// exported entry points and opcode blocks, the way a graphics application
// does, and reads the GIF back with giflib.
#ifndef TOLVA_TESTS_PIPELINE_TEST_HOST_H
#define TOLVA_TESTS_PIPELINE_TEST_HOST_H

#include <stdint.h>

#include <string>
#include <vector>

#include "tolva/tolva.h"

namespace test_host {

// One opcode parameter block, built at its byte positions.
class Block {
public:
    explicit Block(int32_t opcode, size_t size = 16);
    Block &i16(size_t at, int16_t v);
    Block &i32(size_t at, int32_t v);
    Block &f64(size_t at, double v);
    Block &ptr(size_t at, const void *p);
    Block &bytes(size_t at, const void *data, size_t n);
    void *data() { return bytes_.data(); }

private:
    void fit(size_t end);
    std::vector<uint8_t> bytes_;
};

Block device_window(double x1, double y1, double x2, double y2);
Block scaling_mode(int16_t mode, double unitSize);
Block background(uint8_t r, uint8_t g, uint8_t b);
// Colour table entries from index `first`: `rgb` holds 3 bytes an entry.
Block colour_table(uint32_t first, const std::vector<uint8_t> &rgb);
// Primitive -5 with the picture's maximum width, height and bits per pixel.
Block open_picture(int32_t width, int32_t height, int32_t bits);
Block close_picture();
// A cell array whose data lives in the host's memory (negative bits per
// cell); `upward` orders the corners against the device window so that the
// rows run bottom-up.
Block cell_array(const uint8_t *data, uint32_t cellsPerRow, uint32_t rows, int32_t bits,
                 bool upward);
// The same with the cells inline in the block.
Block inline_cell_array(const std::vector<uint8_t> &data, uint32_t cellsPerRow, uint32_t rows,
                        int32_t bits);

// The host's side of a device: Setup block, init block, status record.
struct Device {
    HGLOBAL setup = 0;
    SetupBlock *settings = nullptr;  // the host may change the block directly
    intptr_t init[TOLVA_INIT_WORDS] = {};
    intptr_t status[TOLVA_STATUS_WORDS] = {};
    int32_t capabilities[64] = {};
    std::string fileName;
    int32_t (*entry)(intptr_t, int16_t, void *) = nullptr;

    // CreateSetup with the defaults, the status function (may be null).
    explicit Device(StatusFunction status = nullptr);
    ~Device();
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

    int32_t start(const std::string &file);  // init with this output file name
    int32_t call(Block &block);               // one opcode; the result word
    int32_t call(int32_t opcode);             // an opcode with no parameters
    int32_t stop();                           // term
    bool started = false;
    // The errors on the device's stack, oldest first.
    std::vector<int16_t> errors() const;
};

// A decoded GIF: the image's indices top row first, and the global palette.
struct Gif {
    bool ok = false;
    int width = 0, height = 0;
    bool interlaced = false;
    std::vector<uint8_t> indices;
    std::vector<uint8_t> palette;  // 3 bytes an entry
    int transparent = -1;          // from the graphic control extension
    int background = 0;
    uint8_t at(int x, int y) const { return indices[static_cast<size_t>(y) * width + x]; }
};
Gif decode_file(const std::string &path);
Gif decode_memory(const uint8_t *data, size_t size);

std::vector<uint8_t> read_file(const std::string &path);
bool file_exists(const std::string &path);

// A fresh directory for one test's outputs, removed with its files.
class TempDir {
public:
    TempDir();
    ~TempDir();
    std::string path(const std::string &name) const { return dir_ + "/" + name; }

private:
    std::string dir_;
};

// The spool files the writer leaves in /tmp (zun*): a test compares the set
// before and after.
std::vector<std::string> spool_files();

// The nearest palette entry as the filter defines it: greys (channels within
// 4 of each other) match only entries with three equal channels, colours
// only the others; squared distance; lowest index on ties.
int nearest_entry(const uint8_t *rgb, const std::vector<uint8_t> &palette, int count);
uint32_t distance(const uint8_t *a, const uint8_t *b);
bool is_grey_query(const uint8_t *rgb);
bool is_grey_entry(const uint8_t *rgb);

// Millimetres a unit for 96 dots per inch, as the viewport scaling mode
// takes it.
constexpr double kUnitFor96Dpi = 25.4 / 96.0;

struct Picture {
    int32_t width = 0, height = 0, bits = 8;
    int32_t stride = 0;
    std::vector<uint8_t> rows;  // host row order, each row padded to 4 bytes
    const uint8_t *row(int32_t y) const { return &rows[static_cast<size_t>(y) * stride]; }
};

Picture indexed_picture(int32_t width, int32_t height);
// A smooth true-colour picture (red across, green down, blue in stripes).
Picture true_colour_picture(int32_t width, int32_t height);
// 256 distinct colours.
std::vector<uint8_t> device_palette();

struct Send {
    int32_t band = 0;        // rows a cell array; 0 sends the picture as one
    bool upward = false;
    bool oneToOne = true;    // resolution through the viewport scaling mode
    bool bracket = true;     // inside primitives -5/-6
    int32_t rowsSent = -1;   // -1: every row of the picture
};

// The whole conversation from open to close (init and term by the caller).
void send_picture(Device &device, const Picture &p, const Send &how);

}  // namespace test_host

#endif
