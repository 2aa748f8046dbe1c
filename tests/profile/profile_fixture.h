// A scratch directory, made the current directory while a test runs and
// removed afterwards.
#ifndef TOLVA_TESTS_PROFILE_FIXTURE_H
#define TOLVA_TESTS_PROFILE_FIXTURE_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

namespace fs = std::filesystem;

struct ScratchDir {
    fs::path previous = fs::current_path();
    std::string path = enter();

    static std::string enter() {
        char pattern[] = "/tmp/tolva-profile-XXXXXX";
        fs::current_path(mkdtemp(pattern));
        return pattern;
    }
    ~ScratchDir() {
        fs::current_path(previous);
        fs::remove_all(path);
    }
    std::string at(const std::string &name) const { return path + "/" + name; }
    void put(const std::string &name, const std::string &bytes) const {
        std::ofstream(at(name), std::ios::binary) << bytes;
    }
    std::string get(const std::string &name) const {
        std::ifstream in(at(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    // The names in the scratch directory or one of its subdirectories.
    std::set<std::string> list(const std::string &sub = ".") const {
        std::set<std::string> names;
        for (const auto &entry : fs::directory_iterator(at(sub)))
            names.insert(entry.path().filename());
        return names;
    }
};

#endif
