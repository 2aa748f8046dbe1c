// Runs a fuzz target over every file of a corpus folder, so that the corpus
// runs with the ordinary tests (and under the sanitizers) without libFuzzer.
#include <dirent.h>

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
            std::fprintf(stderr, "cannot open corpus folder %s\n", argv[a]);
            return 1;
        }
        while (dirent *entry = readdir(dir)) {
            if (entry->d_name[0] == '.') continue;
            std::string path = std::string(argv[a]) + "/" + entry->d_name;
            FILE *f = std::fopen(path.c_str(), "rb");
            if (f == nullptr) continue;
            std::vector<uint8_t> bytes;
            uint8_t chunk[4096];
            size_t n;
            while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) bytes.insert(bytes.end(), chunk, chunk + n);
            std::fclose(f);
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++files;
        }
        closedir(dir);
    }
    std::printf("%d passed, 0 failed\n", files);
    return 0;
}
