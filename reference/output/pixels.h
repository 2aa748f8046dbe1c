// Pixel generators for the LZW encoder: noise, runs, a smooth picture and a
// walk of distinct pairs, the kinds of data that stress an LZW dictionary in
// different ways. Kept beside the literal encoder because the tests compare
// the fast encoder with it on these inputs and the benchmark times both on
// them.
#ifndef TOLVA_REFERENCE_OUTPUT_PIXELS_H
#define TOLVA_REFERENCE_OUTPUT_PIXELS_H

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

// Uniform noise over `colours` values: short strings, a miss at almost every
// step, table resets every few thousand pixels.
inline std::vector<uint8_t> random_pixels(std::mt19937 &rng, size_t n, int colours = 256) {
    std::vector<uint8_t> p(n);
    for (auto &v : p) v = static_cast<uint8_t>(rng() % static_cast<uint32_t>(colours));
    return p;
}

// Runs of one value with random lengths up to max_run: long strings.
inline std::vector<uint8_t> run_pixels(std::mt19937 &rng, size_t n, int colours, uint32_t max_run) {
    std::vector<uint8_t> p;
    p.reserve(n);
    while (p.size() < n) {
        auto v = static_cast<uint8_t>(rng() % static_cast<uint32_t>(colours));
        size_t len = 1 + rng() % max_run;
        for (size_t k = 0; k < len && p.size() < n; ++k) p.push_back(v);
    }
    return p;
}

// A smooth picture with a little noise, as a quantised photograph looks.
inline std::vector<uint8_t> smooth_pixels(std::mt19937 &rng, size_t width, size_t height) {
    std::vector<uint8_t> p(width * height);
    for (size_t y = 0; y < height; ++y) {
        for (size_t x = 0; x < width; ++x) {
            double v = 128 + 60 * std::sin(static_cast<double>(x) / 37.0) +
                       50 * std::cos(static_cast<double>(y) / 23.0 + static_cast<double>(x) / 90.0);
            int noise = static_cast<int>(rng() % 5) - 2;
            int q = static_cast<int>(v) / 4 * 4 + noise;
            p[y * width + x] = static_cast<uint8_t>(q < 0 ? 0 : q > 255 ? 255 : q);
        }
    }
    return p;
}

// A walk in which no two neighbouring pixels repeat a pair (greedy de Bruijn
// sequence): every step of the encoder adds a new entry.
inline std::vector<uint8_t> distinct_pairs(size_t n) {
    std::vector<bool> seen(65536, false);
    std::vector<uint8_t> p{0};
    while (p.size() < n) {
        uint32_t a = p.back();
        int b = 255;
        while (b >= 0 && seen[a << 8 | static_cast<uint32_t>(b)]) --b;
        if (b < 0) break;
        seen[a << 8 | static_cast<uint32_t>(b)] = true;
        p.push_back(static_cast<uint8_t>(b));
    }
    return p;
}

#endif
