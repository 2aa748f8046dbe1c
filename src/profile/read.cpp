// Reading profile (INI) files: finding the file, looking a key up,
// enumerating a section's keys and reading integers.
//
// The reader's quirks are kept because users' files and the hosts' code were
// written against them: keys are not trimmed around "=", a value is copied
// over the default without a terminator, the "[" line that ends a section is
// consumed (so a header right behind the matching section is not seen), and
// a last line without a line end does not exist.
#include <cstdlib>
#include <cstring>

#include "profile/profile.h"

namespace {

constexpr size_t kPathLimit = 4096;

bool skipped(const char *line) { return line[0] == '\0' || line[0] == ';'; }

// INIDIR + "/" + name, the separator left out when INIDIR ends in one.
// False when INIDIR is unset or empty, or the path does not fit.
bool under_inidir(const char *name, char *path, size_t size) {
    const char *dir = std::getenv("INIDIR");
    if (dir == nullptr || *dir == '\0') return false;
    size_t d = std::strlen(dir);
    size_t n = std::strlen(name);
    bool slash = dir[d - 1] != '/';
    if (d + (slash ? 1 : 0) + n + 1 > size) return false;
    std::memcpy(path, dir, d);
    if (slash) path[d++] = '/';
    std::memcpy(path + d, name, n + 1);
    return true;
}

// A private copy of a section name, normalised the way header lines are.
char *clean_copy(const char *text, HGLOBAL *handle) {
    size_t n = std::strlen(text);
    *handle = GlobalAlloc(TOLVA_GMEM_FLAGS, static_cast<uint32_t>(n + 1));
    auto *copy = static_cast<char *>(GlobalLock(*handle));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text, n + 1);
    return CleanProfileLine(copy, kProfileKeepNothing);
}

// Key enumeration into the caller's buffer: names one after another, each
// with a terminator and one more after the last. The first name that does
// not fit fills the buffer's end and ends the section early; after that only
// the count grows. The count keeps the default's length it started with.
struct Enumeration {
    char *buffer;
    int32_t size;
    int64_t position;
    int32_t count;
};

// Returns false when the name overflowed the buffer just now, which sends
// the search back to looking for the section's next header.
bool enumerate(Enumeration *e, const char *name) {
    const int64_t n = static_cast<int64_t>(std::strlen(name));
    const int64_t size = e->size;
    if (e->position + n + 1 < size) {
        if (e->buffer != nullptr) {
            std::memcpy(e->buffer + e->position, name, static_cast<size_t>(n));
            e->buffer[e->position + n] = '\0';
            e->buffer[e->position + n + 1] = '\0';
        }
        e->position += n + 1;
        e->count += static_cast<int32_t>(n);
        return true;
    }
    if (e->position < size) {
        if (e->buffer != nullptr) {
            int64_t fits = size - e->position < n ? size - e->position : n;
            std::memcpy(e->buffer + e->position, name, static_cast<size_t>(fits));
            e->buffer[size - 1] = '\0';
            if (size >= 2) e->buffer[size - 2] = '\0';
        }
        e->position = size;
        e->count = e->size - 1;
        return false;
    }
    if (e->count == 0) e->count = 1;
    e->count += static_cast<int32_t>(1 + n);
    return true;
}

}  // namespace

bool profile_read_line(HGLOBAL stream, char *line) {
    int32_t n = zunReadLine(stream, line, kProfileLineSize);
    if (n < 0) return false;
    line[n] = '\0';
    return true;
}

HGLOBAL profile_open(const char *name, char *found, int32_t foundSize, uint32_t mode) {
    HGLOBAL stream = zunOpen(name, nullptr, mode);
    if (stream != 0) return stream;
    char path[kPathLimit];
    const char *used = name;
    if (name != nullptr && under_inidir(name, path, sizeof path)) used = path;
    stream = zunOpen(used, nullptr, mode);
    if (stream != 0 && found != nullptr && foundSize > 0 && used != found) {
        size_t n = std::strlen(used) + 1;
        if (n > static_cast<size_t>(foundSize)) n = static_cast<size_t>(foundSize);
        std::memmove(found, used, n);
    }
    return stream;
}

extern "C" {

HGLOBAL INIopen(char *name, int32_t nameBufferSize, uint32_t mode) {
    return profile_open(name, nameBufferSize != 0 ? name : nullptr, nameBufferSize, mode);
}

int32_t INIclose(HGLOBAL stream) { return stream != 0 ? zunClose(stream) : 0; }

int32_t GetProfileDirectory(char *name, const char *module) {
    if (name == nullptr) return 1;
    const size_t limit = TOLVA_PROFILE_NAME_SIZE;
    if (name[0] == '\0' && module != nullptr) {
        char base[kPathLimit];
        if (std::strlen(module) >= sizeof base) return 1;
        s_getname(base, module);
        size_t n = std::strlen(base);
        if (n + sizeof ".ini" > limit) return 1;
        std::memcpy(base + n, ".ini", sizeof ".ini");
        std::memcpy(name, base, n + sizeof ".ini");
    }
    // INIDIR first, then the current directory: the opposite of INIopen,
    // because a user's INIDIR is meant to win over a stray file here.
    char path[kPathLimit];
    const char *dir = std::getenv("INIDIR");
    const char *first = name;
    if (dir != nullptr && std::strlen(dir) < limit && under_inidir(name, path, sizeof path))
        first = path;
    const char *candidates[] = {first, name};
    for (const char *candidate : candidates) {
        // A path that would not fit the caller's 144 bytes is not usable.
        if (std::strlen(candidate) >= limit) continue;
        HGLOBAL stream = zunOpen(candidate, nullptr, 0);
        if (stream == 0) continue;
        zunClose(stream);
        if (candidate != name) std::memcpy(name, candidate, std::strlen(candidate) + 1);
        return 0;
    }
    return 1;
}

int32_t GetPrivateProfileString(const char *section, const char *key, const char *def, char *buffer,
                                int32_t size, const char *file) {
    if (section == nullptr || *section == '\0' || def == nullptr) return 0;
    int32_t count = 0;
    if (buffer != nullptr) {
        // The default is not cut to the buffer by the format, but it is cut
        // here: the caller's buffer is exactly `size` bytes.
        size_t room = size > 0 ? static_cast<size_t>(size) : 0;
        size_t n = std::strlen(def);
        std::memset(buffer, 0, room);
        std::memcpy(buffer, def, n < room ? n : room);
        count = static_cast<int32_t>(n);
    }
    HGLOBAL stream = profile_open(file, nullptr, 0, 0);
    if (stream == 0) return count;

    HGLOBAL sectionHandle = 0;
    const char *wanted = clean_copy(section, &sectionHandle);
    Enumeration listing = {buffer, size, 0, count};
    char line[kProfileLineSize + 1];
    bool found = false;
    while (wanted != nullptr && !found && profile_read_line(stream, line)) {
        CleanProfileLine(line, kProfileKeepNothing);
        if (skipped(line) || stricmp(line, wanted) != 0) continue;
        while (profile_read_line(stream, line) && line[0] != '[') {
            CleanProfileLine(line, kProfileKeepBrackets | kProfileKeepQuotes);
            if (skipped(line)) continue;
            char *value = std::strchr(line, '=');
            if (value != nullptr)
                *value++ = '\0';
            else
                value = line + std::strlen(line);
            if (key == nullptr) {
                if (!enumerate(&listing, line)) break;
                continue;
            }
            if (stricmp(line, key) != 0) continue;
            TrimProfileChar(value, '"');
            int32_t n = static_cast<int32_t>(std::strlen(value));
            if (n > size) n = size;
            if (buffer != nullptr && n > 0) std::memcpy(buffer, value, static_cast<size_t>(n));
            count = n;
            found = true;
            break;
        }
    }
    if (key == nullptr) count = listing.count;
    GlobalFree(sectionHandle);
    zunClose(stream);
    return count;
}

int32_t GetPrivateProfileInt(const char *section, const char *key, int32_t def, const char *file) {
    char text[33] = {};
    if (GetPrivateProfileString(section, key, "", text, 32, file) == 0) return def;
    return ParseProfileNumber(text);
}

int32_t GetProfileString(const char *section, const char *key, const char *def, char *buffer,
                         int32_t size) {
    return GetPrivateProfileString(section, key, def, buffer, size, kDefaultProfile);
}

int32_t GetProfileInt(const char *section, const char *key, int32_t def) {
    return GetPrivateProfileInt(section, key, def, kDefaultProfile);
}

}  // extern "C"
