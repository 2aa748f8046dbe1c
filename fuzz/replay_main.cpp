// Runs a fuzz target over every file of its corpus and regression folders, so
// that both run with the ordinary tests (and under the sanitizers) without
// libFuzzer. A regression folder may be missing (a target with no finding
// yet); replaying nothing at all is a failure, since every target has seeds.
#include <dirent.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
    int files = 0;
    for (int a = 1; a < argc; ++a) {
        DIR *dir = opendir(argv[a]);
        if (dir == nullptr) {
            std::printf("no folder %s: nothing to replay there\n", argv[a]);
            continue;
        }
        std::vector<std::string> names;
        while (dirent *entry = readdir(dir)) {
            if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
        }
        closedir(dir);
        // In name order, so that a failure is reported the same way every time.
        std::sort(names.begin(), names.end());
        for (const std::string &name : names) {
            std::string path = std::string(argv[a]) + "/" + name;
            FILE *f = std::fopen(path.c_str(), "rb");
            if (f == nullptr) continue;
            std::vector<uint8_t> bytes;
            uint8_t chunk[4096];
            size_t n;
            while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0)
                bytes.insert(bytes.end(), chunk, chunk + n);
            std::fclose(f);
            std::fprintf(stderr, "%s\n", path.c_str());
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++files;
        }
    }
    if (files == 0) {
        std::fprintf(stderr, "no inputs replayed\n");
        return 1;
    }
    std::printf("%d passed, 0 failed\n", files);
    return 0;
}
