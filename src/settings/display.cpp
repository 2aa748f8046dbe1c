// Display and printer information: what the host told us, what the user put
// in DISPLAYINFO, and the built-in screen that stands in for both.
//
// DISPLAYINFO overrides the host completely: once it is set, every value comes
// from it and a missing number is 0 (so a width alone divides by zero and the
// quotients come out infinite), while the host's values replace the defaults
// one by one, only where they are non-zero.
#include <cstdlib>

#include "tolva/settings.h"

namespace {

struct DeviceInfo {
    double width;   // pixels
    double height;  // pixels
    int16_t xDpi;
    int16_t yDpi;
};

DeviceInfo g_display = {};
DeviceInfo g_printer = {};

constexpr double kDefaultWidth = 1280.0;
constexpr double kDefaultHeight = 1078.0;
constexpr int32_t kDefaultDpi = 96;

// atoi as the C library has it (strtol narrowed to int), without atoi's
// undefined result on an out-of-range number.
int32_t decimal(const char *text) { return static_cast<int32_t>(std::strtol(text, nullptr, 10)); }

}  // namespace

extern "C" {

void moveptr(const char **text) {
    const char *p = *text;
    while (*p >= '0' && *p <= '9') ++p;
    if (*p != '\0') ++p;
    *text = p;
}

void SetDisplayInfo(double width, double height, int16_t xDpi, int16_t yDpi) {
    g_display = {width, height, xDpi, yDpi};
}

void SetPrinterInfo(double width, double height, int16_t xDpi, int16_t yDpi) {
    g_printer = {width, height, xDpi, yDpi};
}

int32_t GetDisplayInfo(double *width, double *height, int16_t *xDpi, int16_t *yDpi) {
    double w = kDefaultWidth;
    double h = kDefaultHeight;
    int32_t x = kDefaultDpi;
    int32_t y = kDefaultDpi;
    const char *env = std::getenv("DISPLAYINFO");
    if (env != nullptr && *env != '\0') {
        // Four numbers, each followed by one separator of any kind: 1600x1200x120x120.
        w = decimal(env);
        moveptr(&env);
        h = decimal(env);
        moveptr(&env);
        x = decimal(env);
        moveptr(&env);
        y = decimal(env);
    } else {
        if (g_display.width != 0.0) w = g_display.width;
        if (g_display.height != 0.0) h = g_display.height;
        if (g_display.xDpi != 0) x = g_display.xDpi;
        if (g_display.yDpi != 0) y = g_display.yDpi;
    }
    // The quotients use the full numbers; only the resolutions handed out
    // are narrowed to the 16 bits of their outputs.
    if (width != nullptr) *width = w / x;
    if (height != nullptr) *height = h / y;
    if (xDpi != nullptr) *xDpi = static_cast<int16_t>(x);
    if (yDpi != nullptr) *yDpi = static_cast<int16_t>(y);
    return 0;
}

int32_t GetPrinterInfo(double *width, double *height, int16_t *xDpi, int16_t *yDpi) {
    if (width != nullptr) *width = g_printer.width;
    if (height != nullptr) *height = g_printer.height;
    if (xDpi != nullptr) *xDpi = g_printer.xDpi;
    if (yDpi != nullptr) *yDpi = g_printer.yDpi;
    return 0;
}

int32_t GetDisplayColorInfo(intptr_t) { return 0; }

}  // extern "C"
