// Profile text into the INI reader and writer. The first bytes choose the
// section, key, buffer size and call; the rest is the file's text. A read must
// stay inside the caller's buffer (the buffer is sized exactly, so ASan sees
// any overrun) and a write must leave a readable file behind.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tolva/host.h"
#include "tolva/profile.h"
#include "tolva/settings.h"
#include "tolva/stream.h"

namespace {

const char *const kSections[] = {"TOLVA", "GIF Export", "", "Section With Spaces", "x"};
const char *const kKeys[] = {"Driver", "Width", " Width ", "~Mode", "k", ""};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 4) return 0;
    uint8_t choice = data[0];
    const char *section = kSections[data[1] % 5];
    const char *key = kKeys[data[2] % 6];
    int32_t bufferSize = data[3] % 300;
    data += 4;
    size -= 4;

    char path[] = "/tmp/tolva-fuzz-XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) return 0;
    if (size > 0 && write(fd, data, size) != static_cast<ssize_t>(size)) {
        close(fd);
        unlink(path);
        return 0;
    }
    close(fd);

    std::vector<char> buffer(static_cast<size_t>(bufferSize) + 1);
    char *out = buffer.data();
    switch (choice % 5) {
    case 0:
        GetPrivateProfileString(section, key, "default", out, bufferSize, path);
        break;
    case 1:  // enumerate the keys of a section
        GetPrivateProfileString(section, nullptr, "", out, bufferSize, path);
        break;
    case 2:  // enumerate the sections
        GetPrivateProfileString(nullptr, nullptr, "", out, bufferSize, path);
        break;
    case 3:
        GetPrivateProfileInt(section, key, 7, path);
        break;
    default: {
        std::string value(reinterpret_cast<const char *>(data), size < 40 ? size : 40);
        for (char &c : value)
            if (c == '\0' || c == '\n' || c == '\r') c = ' ';
        WritePrivateProfileString(section, key, value.c_str(), path);
        GetPrivateProfileString(section, key, "", out, bufferSize, path);
        break;
    }
    }
    unlink(path);
    return 0;
}
