// A scratch directory for profile tests, made the current directory while a
// test runs and removed afterwards; and an environment variable set for a
// scope.
#ifndef TOLVA_TESTS_PROFILE_FIXTURE_H
#define TOLVA_TESTS_PROFILE_FIXTURE_H

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

class ScratchDir {
public:
    ScratchDir() {
        char pattern[] = "/tmp/tolva-profile-XXXXXX";
        char cwd[4096];
        path_ = mkdtemp(pattern);
        previous_ = getcwd(cwd, sizeof cwd);
        if (chdir(path_.c_str()) != 0) std::abort();
    }
    ~ScratchDir() {
        if (chdir(previous_.c_str()) != 0) std::abort();
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string at(const std::string &name) const { return path_ + "/" + name; }
    void put(const std::string &name, const std::string &bytes) const {
        std::ofstream(at(name), std::ios::binary) << bytes;
    }
    std::string get(const std::string &name) const {
        std::ostringstream all;
        all << std::ifstream(at(name), std::ios::binary).rdbuf();
        return all.str();
    }
    void mkdir(const std::string &name) const { ::mkdir(at(name).c_str(), 0755); }
    // The names in the scratch directory or one of its subdirectories.
    std::set<std::string> list(const std::string &sub = ".") const {
        std::set<std::string> names;
        if (DIR *d = opendir(at(sub).c_str())) {
            while (dirent *e = readdir(d)) {
                std::string n = e->d_name;
                if (n != "." && n != "..") names.insert(n);
            }
            closedir(d);
        }
        return names;
    }

private:
    std::string path_, previous_;
};

class EnvVar {
public:
    EnvVar(const char *name, const char *value) : name_(name) {
        const char *old = std::getenv(name);
        if (old != nullptr) old_ = old;
        had_ = old != nullptr;
        value != nullptr ? setenv(name, value, 1) : unsetenv(name);
    }
    ~EnvVar() { had_ ? setenv(name_.c_str(), old_.c_str(), 1) : unsetenv(name_.c_str()); }

private:
    std::string name_, old_;
    bool had_;
};

#endif
