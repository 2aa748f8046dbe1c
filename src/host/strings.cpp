// Byte-string and numeric helpers that a desktop host library would supply.
//
// The case-insensitive comparisons return upper(b) - upper(a): the reverse of
// the usual sign. Every caller only tests for zero, and hosts that link
// against these names expect exactly this result, so the sign stays.
#include <cctype>
#include <cstring>

#include "tolva/host.h"

namespace {

int upper(char c) { return std::toupper(static_cast<unsigned char>(c)); }

const char *last_separator(const char *path) {
    const char *cut = std::strrchr(path, '\\');
    if (cut == nullptr) cut = std::strrchr(path, '/');
    return cut;
}

}  // namespace

extern "C" {

char *strupr(char *s) {
    for (char *p = s; *p != '\0'; ++p) *p = static_cast<char>(upper(*p));
    return s;
}

char *strlower(char *s) {
    for (char *p = s; *p != '\0'; ++p)
        *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
    return s;
}

char *strlwr(char *s) { return strlower(s); }

int32_t stricmp(const char *a, const char *b) {
    while (*a != '\0' && *b != '\0' && upper(*a) == upper(*b)) {
        ++a;
        ++b;
    }
    return upper(*b) - upper(*a);
}

int32_t strnicmp(const char *a, const char *b, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        int d = upper(b[i]) - upper(a[i]);
        if (d != 0) return d;
    }
    return 0;
}

char *s_getpath(char *destination, const char *path) {
    std::size_t n = std::strlen(path);
    std::memmove(destination, path, n + 1);
    const char *cut = last_separator(destination);
    if (cut == nullptr)
        destination[0] = '\0';
    else
        destination[cut - destination + 1] = '\0';
    return destination;
}

char *s_getname(char *destination, const char *path) {
    const char *start = last_separator(path);
    if (start == nullptr) start = std::strrchr(path, ':');
    start = start == nullptr ? path : start + 1;
    std::memmove(destination, start, std::strlen(start) + 1);
    char *dot = std::strrchr(destination, '.');
    if (dot != nullptr) *dot = '\0';
    return destination;
}

double dabs(double x) { return x > 0.0 ? x : -x; }

int32_t feqi(int32_t a, int32_t b, int32_t tolerance) {
    // Wrapping 32-bit difference, as the colour matching has always computed it.
    uint32_t d = static_cast<uint32_t>(a) - static_cast<uint32_t>(b);
    if (static_cast<int32_t>(d) < 0) d = static_cast<uint32_t>(b) - static_cast<uint32_t>(a);
    return static_cast<uint32_t>(tolerance) >= d ? 1 : 0;
}

int32_t roundd(double x) {
    double r = x > 0.0 ? x + 0.5 : x - 0.5;
    // Out of range values are clamped rather than left undefined.
    if (!(r > -2147483649.0)) return INT32_MIN;
    if (!(r < 2147483648.0)) return INT32_MAX;
    return static_cast<int32_t>(r);
}

}  // extern "C"
