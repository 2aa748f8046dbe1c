#include "stream_fixture.h"

std::vector<uint8_t> read_file(const std::string &path) {
    std::vector<uint8_t> bytes;
    FILE *f = fopen(path.c_str(), "rb");
    if (f == nullptr) return bytes;
    for (int c; (c = fgetc(f)) != EOF;) bytes.push_back(static_cast<uint8_t>(c));
    fclose(f);
    return bytes;
}

void write_file(const std::string &path, const std::vector<uint8_t> &bytes) {
    FILE *f = fopen(path.c_str(), "wb");
    if (f == nullptr) return;
    fwrite(bytes.data(), 1, bytes.size(), f);
    fclose(f);
}

HGLOBAL memory_source(MemoryBlock &m, const std::vector<uint8_t> &bytes) {
    HGLOBAL w = m.open(TOLVA_STREAM_OUTPUT);
    zunWrite(w, bytes.data(), static_cast<int32_t>(bytes.size()));
    zunClose(w);
    return m.reopen();
}

std::vector<uint8_t> pattern(size_t n, uint32_t seed) {
    std::vector<uint8_t> v(n);
    for (auto &b : v) {
        seed = seed * 1103515245u + 12345u;
        b = static_cast<uint8_t>(seed >> 16);
    }
    return v;
}
