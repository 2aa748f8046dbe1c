// A scratch directory for profile tests: made fresh, made the current
// directory while the test runs, and removed with everything in it after.
#ifndef TOLVA_TESTS_PROFILE_FIXTURE_H
#define TOLVA_TESTS_PROFILE_FIXTURE_H

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

class ScratchDir {
public:
    ScratchDir() {
        char pattern[] = "/tmp/tolva-profile-XXXXXX";
        path_ = mkdtemp(pattern);
        char cwd[4096];
        previous_ = getcwd(cwd, sizeof cwd) != nullptr ? cwd : "/";
        if (chdir(path_.c_str()) != 0) std::abort();
    }
    ~ScratchDir() {
        if (chdir(previous_.c_str()) != 0) std::abort();
        remove_tree(path_);
    }
    ScratchDir(const ScratchDir &) = delete;
    ScratchDir &operator=(const ScratchDir &) = delete;

    const std::string &path() const { return path_; }
    std::string at(const std::string &name) const { return path_ + "/" + name; }

    void put(const std::string &name, const std::string &bytes) const {
        std::ofstream(at(name), std::ios::binary) << bytes;
    }
    std::string get(const std::string &name) const {
        std::ifstream in(at(name), std::ios::binary);
        std::ostringstream all;
        all << in.rdbuf();
        return all.str();
    }
    void mkdir(const std::string &name) const { ::mkdir(at(name).c_str(), 0755); }

    // The names in a directory of the scratch area ("" for its top).
    std::set<std::string> list(const std::string &sub = "") const {
        std::set<std::string> names;
        DIR *d = opendir(sub.empty() ? path_.c_str() : at(sub).c_str());
        if (d == nullptr) return names;
        while (dirent *e = readdir(d)) {
            std::string n = e->d_name;
            if (n != "." && n != "..") names.insert(n);
        }
        closedir(d);
        return names;
    }

private:
    static void remove_tree(const std::string &path) {
        if (DIR *d = opendir(path.c_str())) {
            while (dirent *e = readdir(d)) {
                std::string n = e->d_name;
                if (n != "." && n != "..") remove_tree(path + "/" + n);
            }
            closedir(d);
            chmod(path.c_str(), 0755);
            rmdir(path.c_str());
        } else {
            unlink(path.c_str());
        }
    }

    std::string path_;
    std::string previous_;
};

// Sets an environment variable for the life of the object.
class EnvVar {
public:
    EnvVar(const char *name, const char *value) : name_(name) {
        const char *old = std::getenv(name);
        had_ = old != nullptr;
        if (had_) old_ = old;
        if (value != nullptr)
            setenv(name, value, 1);
        else
            unsetenv(name);
    }
    ~EnvVar() {
        if (had_)
            setenv(name_.c_str(), old_.c_str(), 1);
        else
            unsetenv(name_.c_str());
    }
    EnvVar(const EnvVar &) = delete;
    EnvVar &operator=(const EnvVar &) = delete;

private:
    std::string name_;
    std::string old_;
    bool had_ = false;
};

#endif
