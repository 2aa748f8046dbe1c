// GIF files written by the writer and read back by giflib, pixel for pixel:
// palettes of 2 to 256 colours, widths 1 to 2000, one band or many, plain and
// interlaced, memory and file spools, memory, file and host-procedure output.
#include <gtest/gtest.h>
#include <gif_lib.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <random>

#include "gif_support.h"

namespace {

class GifRoundTrip : public testing::Test {
protected:
    void SetUp() override {
        std::memset(&setup_, 0, sizeof setup_);
        std::memset(&em_, 0, sizeof em_);
        lpRaster = &setup_;
        lpEMData = &em_;
    }
    void TearDown() override {
        lpRaster = nullptr;
        lpEMData = nullptr;
    }

    std::vector<uint8_t> write_to_memory(Picture *p, const std::vector<int32_t> &bands) {
        MemoryOutput out;
        open_memory_output(&out);
        std::vector<int32_t> results;
        write_picture(out.stream, p, bands, &results);
        for (int32_t r : results) EXPECT_EQ(0, r);
        return close_memory_output(&out);
    }

    void expect_decodes_to(const std::vector<uint8_t> &file, const Picture &p, bool interlaced) {
        Decoded d = decode_gif(file);
        ASSERT_TRUE(d.ok);
        EXPECT_EQ(p.width, d.width);
        EXPECT_EQ(p.height, d.height);
        EXPECT_EQ(interlaced, d.interlaced);
        EXPECT_EQ(p.palette, d.palette);
        ASSERT_EQ(p.pixels.size(), d.pixels.size());
        for (size_t k = 0; k < p.pixels.size(); ++k) {
            ASSERT_EQ(p.pixels[k], d.pixels[k]) << "pixel " << k % p.width << "," << k / p.width;
        }
    }

    SetupBlock setup_;
    EMData em_;
};

// The LZW segments the writer makes of a picture cut into these bands.
std::vector<std::vector<uint8_t>> segments_of(const Picture &p, const std::vector<int32_t> &bands,
                                              bool interlaced) {
    std::vector<std::vector<uint8_t>> segments;
    auto row = [&](int32_t y) {
        return p.pixels.begin() + static_cast<long>(y) * p.width;
    };
    static const int32_t start[4] = {0, 4, 2, 1};
    static const int32_t step[4] = {8, 8, 4, 2};
    if (!interlaced) {
        int32_t top = 0;
        for (int32_t rows : bands) {
            segments.emplace_back(row(top), row(top + rows));
            top += rows;
        }
    } else if (bands.size() == 1) {
        std::vector<uint8_t> s;
        for (int pass = 0; pass < 4; ++pass) {
            for (int32_t y = start[pass]; y < p.height; y += step[pass]) {
                s.insert(s.end(), row(y), row(y + 1));
            }
        }
        segments.push_back(s);
    } else {
        int32_t per_load = 65536 / p.width;
        int pass = 0;
        int32_t y = 0;
        while (y < p.height && pass <= 3) {
            std::vector<uint8_t> s;
            for (int32_t k = 0; k < per_load && y < p.height; ++k, y += step[pass]) {
                s.insert(s.end(), row(y), row(y + 1));
            }
            segments.push_back(s);
            if (y >= p.height && ++pass < 4) y = start[pass];
        }
    }
    return segments;
}

// Whether the writer's stream for this picture is one a decoder can read in
// full. Four habits of the writer make streams that it cannot: a one-pixel
// segment (its pixel is never emitted), a second width raise at the end of a
// segment that is not the last (the joining clear code is one bit wider than
// decoders read), an interlaced picture of a few rows spooled in bands (no
// fourth pass: no end code and no terminator), and a spooled pass-load of
// fewer than 4 bytes after the first (only that many bytes of the shared work
// buffer are cleared, so the previous segment's bytes are ORed into its
// codes). Those are checked byte for byte against the reference encoder
// instead.
bool decodable(const Picture &p, const std::vector<int32_t> &bands, bool interlaced) {
    if (interlaced && bands.size() > 1 && p.height <= 4) return false;
    auto segments = segments_of(p, bands, interlaced);
    for (size_t k = 0; k < segments.size(); ++k) {
        if (segments[k].size() == 1) return false;
        if (interlaced && bands.size() > 1 && k > 0 && segments[k].size() < 4) return false;
        if (k + 1 < segments.size() &&
            ends_with_double_raise(segments[k].data(), segments[k].size())) {
            return false;
        }
    }
    return true;
}

std::vector<int32_t> random_bands(std::mt19937 &rng, int32_t height) {
    std::vector<int32_t> bands;
    for (int32_t left = height; left > 0;) {
        int32_t rows = 1 + static_cast<int32_t>(rng() % static_cast<uint32_t>(left < 12 ? left : 12));
        bands.push_back(rows);
        left -= rows;
    }
    return bands;
}

TEST_F(GifRoundTrip, EveryPaletteWidthBandingAndInterlace) {
    std::mt19937 rng(5);
    int files = 0;
    int set_aside = 0;
    for (int colours : {2, 3, 16, 200, 256}) {
        for (int32_t width : {1, 2, 3, 7, 100, 255, 256, 1000, 2000}) {
            std::vector<int32_t> heights = width <= 7 ? std::vector<int32_t>{1, 2, 3, 9, 40}
                                           : width <= 256 ? std::vector<int32_t>{1, 4, 17, 60}
                                                          : std::vector<int32_t>{1, 5, 33};
            for (int32_t height : heights) {
                Picture p = make_picture(rng(), width, height, colours, colours > 100);
                std::vector<std::vector<int32_t>> bandings = {{height}, random_bands(rng, height)};
                if (height <= 40) bandings.emplace_back(static_cast<size_t>(height), 1);
                for (const auto &bands : bandings) {
                    for (bool interlaced : {false, true}) {
                        SCOPED_TRACE(testing::Message() << colours << " colours, " << width << "x"
                                                        << height << ", " << bands.size()
                                                        << " bands, interlaced " << interlaced);
                        setup_.interlace = interlaced ? TOLVA_INTERLACE_ON : 0;
                        auto file = write_to_memory(&p, bands);
                        if (!decodable(p, bands, interlaced)) {
                            bool spooled = interlaced && bands.size() > 1;
                            auto want = gif_head(width, height, 8, p.palette, -1, 0, interlaced);
                            auto data = reference_data(segments_of(p, bands, interlaced),
                                                       !spooled || height > 4, spooled);
                            want.insert(want.end(), data.begin(), data.end());
                            want.push_back(0x3B);
                            ASSERT_EQ(want, file);
                            ++set_aside;
                            continue;
                        }
                        expect_decodes_to(file, p, interlaced);
                        ++files;
                        if (HasFatalFailure()) return;
                    }
                }
            }
        }
    }
    // The set-aside cases must stay the exception.
    EXPECT_GT(files, 800);
    EXPECT_LT(set_aside, files / 4);
}

TEST_F(GifRoundTrip, SpoolInMemoryUpTo349999PixelsAndInAFileBeyond) {
    setup_.interlace = TOLVA_INTERLACE_ON;
    struct Case {
        int32_t width, height;
        bool file;
    };
    for (Case c : {Case{1417, 247, false}, Case{700, 500, true}}) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height);
        Picture p = make_picture(static_cast<uint32_t>(c.width), c.width, c.height, 64, true);
        MemoryOutput out;
        open_memory_output(&out);
        HGLOBAL state = 0;
        BeginCellBitmap(out.stream, p.width, p.height, 8, p.palette.data(), &state);
        auto *st = static_cast<CellBitmapState *>(GlobalLock(state));
        ASSERT_NE(0u, st->spoolStream);
        std::string spool_name = st->spoolName;
        EXPECT_EQ(c.file, !spool_name.empty());
        EXPECT_EQ(c.file, st->spoolBlock == 0);
        if (c.file) {
            EXPECT_EQ(0, access(spool_name.c_str(), F_OK));
        }
        int32_t top = 0;
        for (int32_t rows : {100, 1, 99, c.height - 200}) {
            HGLOBAL band = make_band(p, top, rows);
            EXPECT_EQ(0, WriteCellBits(out.stream, band, p.width, rows, 8, 0, state));
            GlobalFree(band);
            top += rows;
        }
        EXPECT_EQ(0, EndCellBitmap(out.stream, state));
        if (c.file) {
            EXPECT_NE(0, access(spool_name.c_str(), F_OK)) << "spool left behind";
        }
        expect_decodes_to(close_memory_output(&out), p, true);
        EXPECT_EQ(0, em_.lostErrors);
    }
}

TEST_F(GifRoundTrip, SingleInterlacedBandDropsItsSpoolAtOnce) {
    setup_.interlace = TOLVA_INTERLACE_ON;
    Picture p = make_picture(3, 700, 500, 256, true);
    MemoryOutput out;
    open_memory_output(&out);
    HGLOBAL state = 0;
    BeginCellBitmap(out.stream, p.width, p.height, 8, p.palette.data(), &state);
    std::string spool_name = static_cast<CellBitmapState *>(GlobalLock(state))->spoolName;
    ASSERT_FALSE(spool_name.empty());
    HGLOBAL band = make_band(p, 0, p.height);
    EXPECT_EQ(0, WriteCellBits(out.stream, band, p.width, p.height, 8, 0, state));
    GlobalFree(band);
    EXPECT_NE(0, access(spool_name.c_str(), F_OK));
    EXPECT_EQ(0, static_cast<CellBitmapState *>(GlobalLock(state))->spoolStream);
    EXPECT_EQ(0, EndCellBitmap(out.stream, state));
    expect_decodes_to(close_memory_output(&out), p, true);
}

TEST_F(GifRoundTrip, FileAndHostProcedureOutput) {
    // A buffered file stream and a host's own I/O procedure both have to
    // step back over the parked byte between bands.
    char path[] = "/tmp/tolva_gif_testXXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    for (bool interlaced : {false, true}) {
        setup_.interlace = interlaced ? TOLVA_INTERLACE_ON : 0;
        Picture p = make_picture(21, 333, 150, 256, false);
        std::vector<int32_t> bands = {40, 1, 60, 49};

        HGLOBAL file = zunOpen(path, nullptr, 4097);
        ASSERT_NE(0u, file);
        write_picture(file, &p, bands);
        ASSERT_EQ(0, zunClose(file));
        int error = 0;
        GifFileType *gif = DGifOpenFileName(path, &error);
        ASSERT_NE(nullptr, gif);
        ASSERT_EQ(GIF_OK, DGifSlurp(gif));
        EXPECT_EQ(0, std::memcmp(p.pixels.data(), gif->SavedImages[0].RasterBits, p.pixels.size()));
        DGifCloseFile(gif, &error);

        HostFile host;
        HGLOBAL proc = open_host_output(&host);
        ASSERT_NE(0u, proc);
        write_picture(proc, &p, bands);
        zunClose(proc);
        expect_decodes_to(host.bytes, p, interlaced);
    }
    unlink(path);
}

TEST_F(GifRoundTrip, TransparentAndBackgroundColours) {
    Picture p = make_picture(8, 50, 20, 256, false);
    for (int k = 0; k < 256; ++k) {  // a spread of coloured entries, a few greys
        p.palette[3 * k] = static_cast<uint8_t>(k);
        p.palette[3 * k + 1] = static_cast<uint8_t>(255 - k);
        p.palette[3 * k + 2] = static_cast<uint8_t>(k % 16 * 16);
    }
    setup_.transparency = TOLVA_TRANSPARENCY_ON;
    const uint8_t clear[3] = {101, 150, 90};
    std::memcpy(setup_.transparentColour, clear, 3);
    setup_.backgroundChoice = TOLVA_BACKGROUND_ON;
    const uint8_t paper[3] = {200, 55, 130};
    std::memcpy(setup_.backgroundColour, paper, 3);
    int16_t want_transparent = get_nearest_rgb_index(101, 150, 90, p.palette.data(), 256);
    int16_t want_background = get_nearest_rgb_index(200, 55, 130, p.palette.data(), 256);

    Picture expected = p;
    std::memcpy(&expected.palette[3 * want_transparent], clear, 3);
    auto file = write_to_memory(&p, {20});
    EXPECT_EQ(expected.palette, p.palette) << "the caller's palette carries the exact colour";
    Decoded d = decode_gif(file);
    ASSERT_TRUE(d.ok);
    EXPECT_EQ(want_transparent, d.transparent);
    EXPECT_EQ(want_background, d.background);
    expect_decodes_to(file, expected, false);
}

}  // namespace
