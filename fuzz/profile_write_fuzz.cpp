// Sequences of profile writes on a fuzzed profile: set a key, delete a key,
// delete a section. Byte 0 gives the number of steps (bits 0-2, 1 to 6) and
// whether the file exists at first (bit 7 clear); each step takes three
// bytes (request and section, key, value); the rest is the file's text.
//
// After every step the file is read again and compared byte for byte with a
// model of what the writer promises, applied to the lines of the file as it
// stood: lines are read in pieces of at most 256 characters, a last line
// without a line end is dropped, every line is written with the line end
// found first in the old file; outside the matching sections nothing
// changes; setting replaces each line of a matching section whose key
// matches and adds the key where none did, or appends a blank line, the
// header and the key when no header matched; deleting a key drops its lines
// (and the header of a section left empty); deleting a section drops it up
// to the next header line, which is kept unexamined as it is after every
// matching section. Nothing else may be left in the folder. The reader must
// then find for each key what a plain lookup over those lines finds, and
// after a set the value itself where nothing stands in its way.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/streams.h"

using namespace fuzzstreams;

namespace {

const char *const kSections[] = {"GIF Export", "TOLVA", "x", "colors"};
const char *const kKeys[] = {"Width", "Mode", "k", "Depth"};
const char *const kValues[] = {"1", "fast", "", "0x10", "a b"};

constexpr int32_t kLineSize = 256;

char fold(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

bool same(const std::string &a, const std::string &b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (fold(a[i]) != fold(b[i])) return false;
    return true;
}

std::string trim_spaces(const std::string &s) {
    size_t b = s.find_first_not_of(' ');
    if (b == std::string::npos) return "";
    return s.substr(b, s.find_last_not_of(' ') - b + 1);
}

std::string cut_comment(const std::string &s) { return s.substr(0, s.find(';')); }

// A header line as both sides compare it: quotes removed (a doubled one
// leaves one), brackets removed, the comment cut, spaces trimmed.
std::string header_name(const std::string &line) {
    std::string a;
    for (size_t i = 0; i < line.size(); ++i) {
        if (line[i] != '"') {
            a.push_back(line[i]);
        } else if (i + 1 < line.size() && line[i + 1] == '"') {
            a.push_back('"');
            ++i;
        }
    }
    std::string b;
    for (char c : a)
        if (c != '[' && c != ']') b.push_back(c);
    return trim_spaces(cut_comment(b));
}

// The key of a line as the writer matches it.
std::string writer_key(const std::string &line) {
    return trim_spaces(cut_comment(line.substr(0, line.find('='))));
}

std::vector<std::string> lines_of(const Bytes &data) {
    std::vector<std::string> lines;
    size_t at = 0;
    for (;;) {
        Line l = next_line(data, &at, kLineSize);
        if (l.result < 0) break;
        lines.push_back(l.text.substr(0, l.text.find('\0')));  // a zero byte ends the text
    }
    return lines;
}

int32_t line_format_of(const Bytes &data) {
    for (size_t i = 0; i < data.size(); ++i) {
        if (data[i] == '\n') return 2;
        if (data[i] == '\r') return i + 1 < data.size() && data[i + 1] == '\n' ? 0 : 1;
    }
    return -1;
}

// The file the writer promises, from the old one (null when there is none).
Bytes rewrite(const Bytes *old, const std::string &section, const char *key, const char *value) {
    std::vector<std::string> in = old != nullptr ? lines_of(*old) : std::vector<std::string>{};
    std::vector<std::string> out;
    const std::string wanted = header_name(section);
    const std::string pair =
        key != nullptr && value != nullptr ? std::string(key) + "=" + value : "";
    const bool setting = key != nullptr && value != nullptr;
    bool found = false;
    for (size_t i = 0; i < in.size();) {
        const std::string line = in[i++];
        if (line.empty() || line[0] != '[' || !same(header_name(line), wanted)) {
            out.push_back(line);
            continue;
        }
        found = true;
        bool holding = key != nullptr && value == nullptr;
        bool matched = false;
        bool ended = false;
        if (setting) out.push_back(line);
        while (i < in.size()) {
            const std::string &l = in[i++];
            if (!l.empty() && l[0] == '[') {
                if (setting && !matched) out.push_back(pair);
                out.push_back(l);
                ended = true;
                break;
            }
            if (key == nullptr) continue;
            bool hit = same(writer_key(l), key);
            if (!setting) {
                if (hit) continue;
                if (holding) out.push_back(line);
                holding = false;
                out.push_back(l);
            } else if (hit) {
                out.push_back(pair);
                matched = true;
            } else {
                out.push_back(l);
            }
        }
        if (!ended && setting && !matched) out.push_back(pair);
    }
    if (!found && setting) {
        out.push_back("");
        out.push_back("[" + wanted + "]");
        out.push_back(pair);
    }
    const char *end = line_end(old != nullptr ? line_format_of(*old) : 2);
    Bytes bytes;
    for (const std::string &l : out) {
        bytes.insert(bytes.end(), l.begin(), l.end());
        bytes.insert(bytes.end(), end, end + std::strlen(end));
    }
    return bytes;
}

// What the reader finds for a key: the first header line (any line that
// normalises to the name) opens a section, which runs to the next line
// beginning with "[" (consumed with it); there the first line whose text
// before "=" (comment cut, the line's ends trimmed, the key itself not)
// matches gives its value, one pair of quotes removed.
bool lookup(const std::vector<std::string> &lines, const std::string &section,
            const std::string &key, std::string *value) {
    for (size_t i = 0; i < lines.size();) {
        if (!same(header_name(lines[i++]), section)) continue;
        while (i < lines.size()) {
            const std::string &l = lines[i++];
            if (!l.empty() && l[0] == '[') break;
            std::string c = trim_spaces(cut_comment(l));
            size_t eq = c.find('=');
            if (c.empty() || !same(c.substr(0, eq), key)) continue;
            std::string v = eq == std::string::npos ? "" : c.substr(eq + 1);
            if (!v.empty() && v.front() == '"') v.erase(0, 1);
            if (!v.empty() && v.back() == '"') v.pop_back();
            *value = v;
            return true;
        }
    }
    return false;
}

size_t entries(const char *dir) {
    size_t n = 0;
    if (DIR *d = opendir(dir)) {
        while (dirent *e = readdir(d))
            if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) ++n;
        closedir(d);
    }
    return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    int steps = 1 + (data[0] & 7) % 6;
    bool exists = (data[0] & 0x80) == 0;
    if (size < 1 + 3 * static_cast<size_t>(steps)) return 0;
    const uint8_t *ops = data + 1;
    const uint8_t *text = ops + 3 * steps;

    char dir[] = "/tmp/tolva-fuzz-XXXXXX";
    if (mkdtemp(dir) == nullptr) return 0;
    std::string path = std::string(dir) + "/p.ini";
    bool ready = true;
    if (exists) {
        FILE *f = std::fopen(path.c_str(), "wb");
        size_t n = static_cast<size_t>(data + size - text);
        ready = f != nullptr && (n == 0 || std::fwrite(text, 1, n, f) == n);
        if (f != nullptr && std::fclose(f) != 0) ready = false;
    }

    for (int i = 0; ready && i < steps; ++i) {
        const uint8_t *op = ops + 3 * i;
        int request = op[0] % 3;
        const char *section = kSections[op[0] / 3 % 4];
        const char *key = request == 2 ? nullptr : kKeys[op[1] % 4];
        const char *value = request == 0 ? kValues[op[2] % 5] : nullptr;

        struct stat st;
        bool had = stat(path.c_str(), &st) == 0;
        Bytes old = read_whole(path.c_str());
        Bytes want = rewrite(had ? &old : nullptr, section, key, value);
        expect(WritePrivateProfileString(section, key, value, path.c_str()) == 1, "writer result");
        expect(stat(path.c_str(), &st) == 0, "file after the rewrite");
        Bytes now = read_whole(path.c_str());
        expect(now == want, "rewritten file");
        expect(entries(dir) == 1, "nothing else left in the folder");

        // Each key of the section as the reader finds it. After a set that
        // is the value, unless a line that is no header reads as one to the
        // reader ("x" does) or the file's lines end in CR: then the last line
        // of the file ends at its last byte and so does not exist for the
        // reader (nor for the next rewrite).
        std::vector<std::string> lines = lines_of(now);
        for (const char *k : kKeys) {
            std::string found;
            bool there = lookup(lines, section, k, &found);
            // A value longer than the buffer fills it, with no terminator.
            char buffer[64];
            int32_t n =
                GetPrivateProfileString(section, k, "", buffer, sizeof buffer, path.c_str());
            size_t shown = std::min(found.size(), sizeof buffer);
            expect(
                n == static_cast<int32_t>(shown) && std::memcmp(buffer, found.data(), shown) == 0,
                "value as the reader finds it");
            if (request == 0 && k == key && line_format_of(now) != 1 &&
                !std::any_of(lines.begin(), lines.end(), [&](const std::string &l) {
                    return (l.empty() || l[0] != '[') && same(header_name(l), section);
                })) {
                expect(there && found == value, "value read back after setting it");
            }
        }
    }
    unlink(path.c_str());
    rmdir(dir);
    return 0;
}
