// Helpers of the GIF writer tests (see gif_support.h).
#include "gif_support.h"

#include <gif_lib.h>

#include <cstring>
#include <initializer_list>
#include <random>
#include <unordered_map>

#include "lzw_oracle.h"
#include "pixels.h"

void open_memory_output(MemoryOutput *out) {
    HGLOBAL block = GlobalAlloc(TOLVA_GMEM_FLAGS, 1);
    out->data = GlobalLock(block);
    intptr_t descriptor[TOLVA_STREAM_DESCRIPTOR_WORDS] = {reinterpret_cast<intptr_t>(&out->data),
                                                          0, 4096, 0, 0, 0};
    out->stream = zunOpen(nullptr, descriptor, 4097);
}

std::vector<uint8_t> close_memory_output(MemoryOutput *out) {
    int32_t length = zunSeek(out->stream, 0, 2);
    std::vector<uint8_t> bytes(static_cast<const uint8_t *>(out->data),
                               static_cast<const uint8_t *>(out->data) + length);
    zunClose(out->stream);
    GlobalFree(GlobalHandle(out->data));
    out->data = nullptr;
    out->stream = 0;
    return bytes;
}

namespace {

intptr_t host_procedure(intptr_t instance, int32_t operation, intptr_t a, intptr_t b) {
    auto *f = reinterpret_cast<HostFile *>(instance);
    switch (operation) {
    case 1: return instance;  // open: the descriptor's context becomes the instance
    case 2: {
        auto *buffer = reinterpret_cast<uint8_t *>(a);
        intptr_t n = 0;
        while (n < b && f->position < f->bytes.size()) buffer[n++] = f->bytes[f->position++];
        return n;
    }
    case 3: {
        auto *buffer = reinterpret_cast<const uint8_t *>(a);
        intptr_t n = 0;
        for (; n < b; ++n) {
            if (f->write_limit >= 0 && static_cast<int64_t>(f->position) >= f->write_limit) break;
            if (f->position < f->bytes.size()) {
                f->bytes[f->position] = buffer[n];
            } else {
                f->bytes.push_back(buffer[n]);
            }
            ++f->position;
        }
        return n;
    }
    case 4: {
        int32_t offset = *reinterpret_cast<int32_t *>(a);
        int64_t base = b == 0 ? 0 : b == 1 ? static_cast<int64_t>(f->position)
                                           : static_cast<int64_t>(f->bytes.size());
        int64_t target = base + offset;
        if (target < 0) return -1;
        f->position = static_cast<size_t>(target);
        return static_cast<intptr_t>(target);
    }
    default: return 0;
    }
}

}  // namespace

HGLOBAL open_host_output(HostFile *file) {
    intptr_t descriptor[TOLVA_STREAM_DESCRIPTOR_WORDS] = {
        reinterpret_cast<intptr_t>(file), 0, 0, 0, reinterpret_cast<intptr_t>(&host_procedure), 0};
    return zunOpen("host.gif", descriptor, 4097);
}

Picture make_picture(uint32_t seed, int32_t width, int32_t height, int colours, bool smooth) {
    std::mt19937 rng(seed);
    Picture p;
    p.width = width;
    p.height = height;
    auto n = static_cast<size_t>(width) * static_cast<size_t>(height);
    if (smooth) {
        p.pixels = smooth_pixels(rng, static_cast<size_t>(width), static_cast<size_t>(height));
        for (auto &v : p.pixels) v = static_cast<uint8_t>(v % colours);
    } else {
        p.pixels = random_pixels(rng, n, colours);
    }
    p.palette.resize(768);
    for (auto &v : p.palette) v = static_cast<uint8_t>(rng());
    return p;
}

HGLOBAL make_band(const Picture &p, int32_t top, int32_t rows, uint32_t extra) {
    auto r = static_cast<uint32_t>(p.width);
    uint32_t s = (r + 3) & ~3u;
    HGLOBAL band = GlobalAlloc(TOLVA_GMEM_FLAGS, s * static_cast<uint32_t>(rows) + extra);
    auto *data = static_cast<uint8_t *>(GlobalLock(band));
    for (int32_t k = 0; k < rows; ++k) {
        int32_t y = top + rows - 1 - k;
        std::memcpy(data + static_cast<size_t>(k) * s,
                    p.pixels.data() + static_cast<size_t>(y) * r, r);
    }
    return band;
}

void write_picture(HGLOBAL stream, Picture *p, const std::vector<int32_t> &bands,
                   std::vector<int32_t> *results, HGLOBAL *state_out) {
    HGLOBAL state = 0;
    BeginCellBitmap(stream, p->width, p->height, 8, p->palette.data(), &state);
    if (state_out) *state_out = state;
    int32_t top = 0;
    for (int32_t rows : bands) {
        HGLOBAL band = make_band(*p, top, rows);
        int32_t r = WriteCellBits(stream, band, p->width, rows, 8, 0, state);
        if (results) results->push_back(r);
        GlobalFree(band);
        top += rows;
    }
    int32_t r = EndCellBitmap(stream, state);
    if (results) results->push_back(r);
}

namespace {

struct MemoryReader {
    const std::vector<uint8_t> *bytes;
    size_t at;
};

int read_memory(GifFileType *gif, GifByteType *buffer, int n) {
    auto *m = static_cast<MemoryReader *>(gif->UserData);
    int k = 0;
    while (k < n && m->at < m->bytes->size()) buffer[k++] = (*m->bytes)[m->at++];
    return k;
}

}  // namespace

Decoded decode_gif(const std::vector<uint8_t> &file) {
    Decoded d;
    MemoryReader reader{&file, 0};
    int error = 0;
    GifFileType *gif = DGifOpen(&reader, read_memory, &error);
    if (gif == nullptr) return d;
    if (DGifSlurp(gif) == GIF_OK && gif->ImageCount == 1) {
        const SavedImage &image = gif->SavedImages[0];
        d.ok = true;
        d.width = image.ImageDesc.Width;
        d.height = image.ImageDesc.Height;
        d.interlaced = image.ImageDesc.Interlace;
        d.background = gif->SBackGroundColor;
        d.pixels.assign(image.RasterBits,
                        image.RasterBits + static_cast<size_t>(d.width) * static_cast<size_t>(d.height));
        if (gif->SColorMap != nullptr) {
            for (int k = 0; k < gif->SColorMap->ColorCount; ++k) {
                d.palette.push_back(gif->SColorMap->Colors[k].Red);
                d.palette.push_back(gif->SColorMap->Colors[k].Green);
                d.palette.push_back(gif->SColorMap->Colors[k].Blue);
            }
        }
        GraphicsControlBlock gcb;
        if (DGifSavedExtensionToGCB(gif, 0, &gcb) == GIF_OK) d.transparent = gcb.TransparentColor;
    }
    DGifCloseFile(gif, &error);
    return d;
}

std::vector<uint8_t> gif_head(int32_t width, int32_t height, int bits,
                              const std::vector<uint8_t> &palette, int transparent, int background,
                              bool interlaced) {
    auto lo = [](int32_t v) { return static_cast<uint8_t>(v & 0xFF); };
    auto hi = [](int32_t v) { return static_cast<uint8_t>((v >> 8) & 0xFF); };
    std::vector<uint8_t> h;
    h.reserve(1024);
    auto put = [&h](std::initializer_list<uint8_t> bytes) {
        for (uint8_t b : bytes) h.push_back(b);
    };
    put({'G', 'I', 'F', '8', '9', 'a', lo(width), hi(width), lo(height), hi(height),
         static_cast<uint8_t>(0xF0 + bits - 1), static_cast<uint8_t>(background), 0});
    for (size_t k = 0; k < 3u << bits; ++k) h.push_back(palette[k]);
    put({0x21, 0xF9, 4, static_cast<uint8_t>(transparent >= 0 ? 1 : 0), 0, 0,
         static_cast<uint8_t>(transparent >= 0 ? transparent : 0), 0});
    put({0x2C, 0, 0, 0, 0, lo(width), hi(width), lo(height), hi(height),
         static_cast<uint8_t>(interlaced ? 0x40 : 0), 8});
    return h;
}

bool ends_with_double_raise(const uint8_t *pixels, size_t n) {
    if (n < 2) return false;
    std::unordered_map<uint32_t, uint32_t> dictionary;
    uint32_t next = 258;
    uint32_t prefix = pixels[0];
    for (size_t i = 1; i < n; ++i) {
        uint32_t key = prefix << 8 | pixels[i];
        auto it = dictionary.find(key);
        bool final_step = i == n - 1;
        if (it != dictionary.end()) {
            if (final_step) return false;
            prefix = it->second;
            continue;
        }
        if (final_step) return next + 1 == 513 || next + 1 == 1025 || next + 1 == 2049;
        dictionary[key] = next++;
        if (next == 4090) {
            dictionary.clear();
            next = 258;
        }
        prefix = pixels[i];
    }
    return false;
}

std::vector<uint8_t> reference_data(const std::vector<std::vector<uint8_t>> &segments, bool end,
                                    bool shared_work) {
    ByteStream stream;
    uint32_t carry = 0;
    std::vector<uint8_t> shared(kLzwWorkBytes, 0);
    for (size_t k = 0; k < segments.size(); ++k) {
        std::vector<uint8_t> fresh(kLzwWorkBytes, 0);
        std::vector<uint8_t> &work = shared_work ? shared : fresh;
        int32_t last = end && k + 1 == segments.size();
        oracle_compress_and_write(&stream, segments[k].data(), work.data(),
                                  static_cast<int32_t>(segments[k].size()), k == 0, last, &carry);
    }
    return stream.bytes;
}
