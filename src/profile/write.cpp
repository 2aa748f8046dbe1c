// Rewriting profile (INI) files: setting a key, deleting a key or a whole
// section.
//
// The old file is copied line by line into a new one with the request
// applied on the way; every line, copied ones included, gets the line end
// detected in the old file, and a last line without a line end is dropped.
// The new file is made beside the old one and renamed over it only when it
// has been written and closed without error, so a failed rewrite leaves the
// user's file as it was and no temporary file behind.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "profile/profile.h"

namespace {

constexpr char kTempPattern[] = ".tolva-profile-XXXXXX";

// The output side of a rewrite: the new file's stream and whether every
// write so far went through.
struct Rewrite {
    HGLOBAL out;
    bool ok;
};

void put(Rewrite *w, const char *text) {
    int32_t n = static_cast<int32_t>(std::strlen(text));
    if (zunWriteLine(w->out, text, n) != n) w->ok = false;
}

// Writes left, middle and right as one line.
void put_joined(Rewrite *w, const char *left, const char *middle, const char *right) {
    size_t a = std::strlen(left);
    size_t b = std::strlen(middle);
    size_t c = std::strlen(right);
    HGLOBAL handle = GlobalAlloc(TOLVA_GMEM_FLAGS, static_cast<uint32_t>(a + b + c + 1));
    auto *text = static_cast<char *>(GlobalLock(handle));
    if (text == nullptr) {
        w->ok = false;
        return;
    }
    std::memcpy(text, left, a);
    std::memcpy(text + a, middle, b);
    std::memcpy(text + a + b, right, c + 1);
    put(w, text);
    GlobalFree(handle);
}

// The key of a line as the writer sees it: the text before "=", comment
// cut, spaces trimmed. (The reader does not trim; the writer always has.)
bool line_has_key(const char *line, const char *key) {
    char text[kProfileLineSize + 1];
    std::memcpy(text, line, std::strlen(line) + 1);
    char *equals = std::strchr(text, '=');
    if (equals != nullptr) *equals = '\0';
    CutProfileComment(text);
    TrimProfileChar(text, ' ');
    return stricmp(text, key) == 0;
}

// Copies the lines of the matching section with the request applied.
// Returns true when a "[" line ended the section; it is left in `line`.
bool rewrite_section(HGLOBAL in, Rewrite *w, char *line, const char *header, const char *key,
                     const char *value) {
    bool holding = key != nullptr && value == nullptr;  // deleting a key holds the header back
    bool matched = false;
    if (key != nullptr && value != nullptr) put(w, header);
    while (profile_read_line(in, line)) {
        if (line[0] == '[') {
            if (key != nullptr && value != nullptr && !matched) put_joined(w, key, "=", value);
            return true;
        }
        if (key == nullptr) continue;  // deleting the section
        bool hit = line_has_key(line, key);
        if (value == nullptr) {
            if (hit) continue;
            if (holding) put(w, header);
            holding = false;
            put(w, line);
        } else if (hit) {
            put_joined(w, key, "=", value);
            matched = true;
        } else {
            put(w, line);
        }
    }
    if (key != nullptr && value != nullptr && !matched) put_joined(w, key, "=", value);
    return false;
}

// Copies the old file into the new one; true when the section was found.
bool copy_profile(HGLOBAL in, Rewrite *w, const char *section, const char *key, const char *value) {
    char line[kProfileLineSize + 1];
    char header[kProfileLineSize + 1];
    bool found = false;
    while (profile_read_line(in, line)) {
        if (line[0] != '[') {
            put(w, line);
            continue;
        }
        std::memcpy(header, line, sizeof line);
        if (stricmp(CleanProfileLine(header, kProfileKeepNothing), section) != 0) {
            put(w, line);
            continue;
        }
        found = true;
        std::memcpy(header, line, sizeof line);
        // The "[" line that ends the section is copied as it is, even when
        // it repeats the section.
        if (rewrite_section(in, w, line, header, key, value)) put(w, line);
    }
    return found;
}

// The mode the new file gets: the old file's, or what a new file would get.
mode_t new_file_mode(const char *path) {
    struct stat old;
    if (stat(path, &old) == 0) return old.st_mode & 07777;
    mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace

extern "C" {

int32_t WritePrivateProfileString(const char *section, const char *key, const char *value,
                                  const char *file) {
    if (section == nullptr || file == nullptr) return 0;
    char path[kProfilePathSize + 1] = {};
    if (std::strlen(file) >= kProfilePathSize) return 0;
    std::memcpy(path, file, std::strlen(file) + 1);

    HGLOBAL in = profile_open(path, path, kProfilePathSize, 0);
    // A found path that filled the buffer may be cut short: writing there
    // could replace some other file.
    if (path[kProfilePathSize - 1] != '\0') {
        INIclose(in);
        return 0;
    }

    // The new file goes beside the old one, so that the rename stays on one
    // file system.
    char temp[kProfilePathSize + sizeof kTempPattern];
    const char *slash = std::strrchr(path, '/');
    size_t dir = slash == nullptr ? 0 : static_cast<size_t>(slash - path) + 1;
    std::memcpy(temp, path, dir);
    std::memcpy(temp + dir, kTempPattern, sizeof kTempPattern);
    int fd = mkstemp(temp);
    if (fd < 0) {
        INIclose(in);
        return 0;
    }
    (void)fchmod(fd, new_file_mode(path));  // mkstemp's 0600 would lock others out
    close(fd);
    Rewrite w = {zunOpen(temp, nullptr, TOLVA_STREAM_OUTPUT), true};
    if (w.out == 0) {
        INIclose(in);
        unlink(temp);
        return 0;
    }
    if (in != 0) zunSetLineFormat(w.out, static_cast<int16_t>(zunGetLineFormat(in)));

    HGLOBAL sectionHandle =
        GlobalAlloc(TOLVA_GMEM_FLAGS, static_cast<uint32_t>(std::strlen(section) + 1));
    auto *wanted = static_cast<char *>(GlobalLock(sectionHandle));
    std::memcpy(wanted, section, std::strlen(section) + 1);
    CleanProfileLine(wanted, kProfileKeepNothing);

    bool found = in != 0 && copy_profile(in, &w, wanted, key, value);
    // Nothing is added for a deletion that found nothing to delete.
    if (!found && key != nullptr && value != nullptr) {
        put(&w, "");
        put_joined(&w, "[", wanted, "]");
        put_joined(&w, key, "=", value);
    }
    GlobalFree(sectionHandle);
    INIclose(in);
    if (zunClose(w.out) != 0) w.ok = false;
    if (!w.ok || std::rename(temp, path) != 0) {
        unlink(temp);
        return 0;
    }
    return 1;
}

int32_t WriteProfileString(const char *section, const char *key, const char *value) {
    return WritePrivateProfileString(section, key, value, kDefaultProfile);
}

}  // extern "C"
