// Text handling of profile lines: normalisation, comment cutting, trimming
// and the integer syntax of profile values.
//
// Normalisation works in place and only ever shortens the text. Its quirks
// are part of the file format users have written against: a ";" cuts the
// line even inside quotes, and a doubled double quote stands for one quote
// character when quotes are removed.
#include <cstring>

#include "profile/profile.h"

namespace {

// Removes every `c`; with `pairs`, a doubled `c` is kept as a single one.
void remove_char(char *text, char c, bool pairs) {
    char *out = text;
    for (const char *in = text; *in != '\0'; ++in) {
        if (*in != c) {
            *out++ = *in;
        } else if (pairs && in[1] == c) {
            *out++ = c;
            ++in;
        }
    }
    *out = '\0';
}

int hex_digit(char c) {
    static const char kDigits[] = "0123456789ABCDEF";
    char upper = (c >= 'a' && c <= 'f') ? static_cast<char>(c - 'a' + 'A') : c;
    const char *at = upper == '\0' ? nullptr : std::strchr(kDigits, upper);
    return at == nullptr ? -1 : static_cast<int>(at - kDigits);
}

}  // namespace

extern "C" {

char *CutProfileComment(char *text) {
    char *semicolon = std::strchr(text, ';');
    if (semicolon != nullptr) *semicolon = '\0';
    return text;
}

char *TrimProfileChar(char *text, int32_t ch) {
    const char c = static_cast<char>(ch);
    size_t n = std::strlen(text);
    size_t start = 0;
    if (c == '"') {
        // Only one quote comes off each end: the value's own delimiters.
        if (n > 0 && text[0] == c) start = 1;
        if (n > start && text[n - 1] == c) --n;
    } else {
        while (start < n && text[start] == c) ++start;
        while (n > start && text[n - 1] == c) --n;
    }
    std::memmove(text, text + start, n - start);
    text[n - start] = '\0';
    return text;
}

char *CleanProfileLine(char *text, int32_t keep) {
    remove_char(text, '\r', false);
    remove_char(text, '\n', false);
    if ((keep & kProfileKeepQuotes) == 0) remove_char(text, '"', true);
    if ((keep & kProfileKeepBrackets) == 0) {
        remove_char(text, '[', false);
        remove_char(text, ']', false);
    }
    CutProfileComment(text);
    return TrimProfileChar(text, ' ');
}

int32_t ParseProfileNumber(const char *text) {
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        // Wraps silently at 32 bits, as the platform's own parser did.
        uint32_t value = 0;
        for (const char *p = text + 2; hex_digit(*p) >= 0; ++p)
            value = value * 16u + static_cast<uint32_t>(hex_digit(*p));
        return static_cast<int32_t>(value);
    }
    // Decimal: the leading digits only, no sign. Beyond 32 bits the value
    // sticks at the largest one, as a 32-bit decimal conversion does.
    int64_t value = 0;
    for (const char *p = text; *p >= '0' && *p <= '9'; ++p) {
        value = value * 10 + (*p - '0');
        if (value > INT32_MAX) return INT32_MAX;
    }
    return static_cast<int32_t>(value);
}

}  // extern "C"
