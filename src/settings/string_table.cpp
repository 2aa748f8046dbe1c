// The built-in string table that names the profile keys, and LoadString.
//
// The table has 23 rows and the last one (-1, "Not Defined") is both a row
// that can be found and the fallback text; LoadString searches all 23 rows,
// so asking for -1 finds it with its length while an unknown identifier gets
// the same text with a result of 0.
#include <cstring>

#include "tolva/settings.h"

extern "C" {

const TolvaStringRow gStringTable[TOLVA_STRING_ROWS] = {
    {0, "~Defaults"},
    {1, "~Mode"},
    {2, "~Header"},
    {3, "~Default Mode"},
    {4, "Driver"},
    {6, "DefaultFileSpec"},
    {7, "Font"},
    {11, "Color Mode"},
    {15, "User-Defined Patterns"},
    {5, "ColorTableSource"},
    {8, "Color"},
    {9, "FILE"},
    {10, "PROFILE"},
    {18, "Resolution Mode"},
    {19, "X Resolution"},
    {20, "Y Resolution"},
    {21, "Width"},
    {22, "Height"},
    {23, "File Type"},
    {24, "Size Mode"},
    {13, "GIF Export"},
    {34, "Line Mode"},
    {-1, "Not Defined"},
};

int32_t LoadString(intptr_t, int32_t identifier, char *buffer, int32_t size) {
    const char *text = gStringTable[TOLVA_STRING_ROWS - 1].text;
    int32_t result = 0;
    for (const TolvaStringRow &row : gStringTable) {
        if (static_cast<uint16_t>(row.id) == static_cast<uint16_t>(identifier)) {
            text = row.text;
            result = static_cast<int32_t>(std::strlen(text));
            break;
        }
    }
    // A buffer too small gets exactly `size` bytes and no terminator: hosts
    // size their buffers from the result, not from a terminated string.
    int32_t n = static_cast<int32_t>(std::strlen(text));
    if (buffer != nullptr && size > 0) {
        int32_t copy = size <= n + 1 ? size : n + 1;
        std::memcpy(buffer, text, static_cast<size_t>(copy));
    }
    return result;
}

}  // extern "C"
