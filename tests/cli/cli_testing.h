// What the tests of the command as a process share: a scratch folder,
// pictures written with libpng, GIFs read back with giflib, and a way to
// start the command with its standard output read back, optionally as an
// unprivileged user (so that a command that tried to replace a file in /dev
// would be refused instead of succeeding) or under a file-size limit.
#ifndef TOLVA_TESTS_CLI_TESTING_H
#define TOLVA_TESTS_CLI_TESTING_H

#include <fcntl.h>
#include <glob.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <png.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "../output/gif_decode.h"

namespace cli {

using Args = std::vector<std::string>;

inline std::string ReadText(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void WriteText(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

using gif_decode::decode_file;
using gif_decode::Gif;

struct Result {
    int status = -1;  // the exit status; -1 when ended by a signal
    int signal = 0;   // the signal that ended it
    std::string out, err;
};

struct Launch {
    bool unprivileged = false;  // run as nobody when the test runs as root
    rlim_t fileLimit = RLIM_INFINITY;
    std::string input;  // a file for standard input; /dev/null when empty
};

class Process {
public:
    // Starts the command in `dir` with standard output on a pipe.
    Process(const std::string &dir, const Args &args, const Launch &launch = {}) {
        int out[2];
        if (pipe(out) != 0) return;
        std::vector<std::string> all = {TOLVA_COMMAND_PATH};
        all.insert(all.end(), args.begin(), args.end());
        std::vector<char *> argv;
        for (auto &a : all) argv.push_back(a.data());
        argv.push_back(nullptr);
        std::string err = dir + "/.err", in = launch.input.empty() ? "/dev/null" : launch.input;
        pid_ = fork();
        if (pid_ == 0) {
            if (chdir(dir.c_str()) != 0) _exit(126);
            int input = open(in.c_str(), O_RDONLY),
                error = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
            dup2(input, 0);
            dup2(out[1], 1);
            dup2(error, 2);
            close(out[0]);
            rlimit limit{launch.fileLimit, launch.fileLimit};
            setrlimit(RLIMIT_FSIZE, &limit);
            if (launch.unprivileged && geteuid() == 0) {
                if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0)
                    _exit(126);
            }
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(out[1]);
        out_ = out[0];
        err_ = err;
    }
    ~Process() {
        if (out_ >= 0) close(out_);
    }
    pid_t pid() const { return pid_; }

    Result Finish() {
        Result r;
        char buffer[65536];
        ssize_t n;
        while ((n = read(out_, buffer, sizeof buffer)) != 0) {
            if (n > 0)
                r.out.append(buffer, static_cast<size_t>(n));
            else if (errno != EINTR)
                break;
        }
        int status = 0;
        while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        r.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
        r.err = ReadText(err_);
        return r;
    }

private:
    pid_t pid_ = -1;
    int out_ = -1;
    std::string err_;
};

class Folder : public ::testing::Test {
protected:
    void SetUp() override {
        char dir[] = "/tmp/tolva-cli-XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        dir_ = dir;
        // Open to everyone: some runs drop root for the command.
        chmod(dir_.c_str(), 0777);
        setenv("INIDIR", dir_.c_str(), 1);  // no profile: the built-in settings
        unsetenv("DISPLAYINFO");
    }
    void TearDown() override { (void)system(("rm -rf '" + dir_ + "'").c_str()); }

    std::string Path(const std::string &name) const { return dir_ + "/" + name; }

    Result Run(const Args &args, const Launch &launch = {}) {
        return Process(dir_, args, launch).Finish();
    }

    // The command's own temporary files in `folder` (relative to the test's).
    std::vector<std::string> Temporaries(const std::string &folder = ".") const {
        glob_t found;
        std::vector<std::string> names;
        if (glob((Path(folder) + "/.tolva-*").c_str(), 0, nullptr, &found) == 0)
            names.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
        globfree(&found);
        return names;
    }

    // libpng's own writer; a colour-mapped picture gets the fewest bits that
    // hold its palette (1, 2, 4 or 8).
    void WritePng(const std::string &name, int width, int height, uint32_t format,
                  const uint8_t *pixels, const std::vector<uint8_t> &palette = {}) {
        png_image image{};
        image.version = PNG_IMAGE_VERSION;
        image.width = static_cast<uint32_t>(width);
        image.height = static_cast<uint32_t>(height);
        image.format = format;
        image.colormap_entries = static_cast<uint32_t>(palette.size() / 3);
        ASSERT_TRUE(png_image_write_to_file(&image, Path(name).c_str(), 0, pixels, 0,
                                            palette.empty() ? nullptr : palette.data()))
            << image.message;
        chmod(Path(name).c_str(), 0644);
    }

    // A palette picture whose index at (x, y) is known, in a pattern the LZW
    // coder cannot shrink to nothing; its palette is left in palette_.
    std::vector<uint8_t> PalettePng(const std::string &name, int width, int height,
                                    int colours = 16) {
        palette_.resize(3 * colours);
        for (int i = 0; i < colours; ++i) {
            palette_[3 * i] = static_cast<uint8_t>(255 - i * 13);
            palette_[3 * i + 1] = static_cast<uint8_t>(i * 29);
            palette_[3 * i + 2] = static_cast<uint8_t>(i * 71 + 5);
        }
        std::vector<uint8_t> indices(static_cast<size_t>(width) * height);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                indices[static_cast<size_t>(y) * width + x] =
                    static_cast<uint8_t>((x * 7 + y * y * 3 + (x ^ y)) % colours);
        WritePng(name, width, height, PNG_FORMAT_RGB_COLORMAP, indices.data(), palette_);
        return indices;
    }

    std::vector<uint8_t> palette_;
    std::string dir_;
};

}  // namespace cli

#endif
