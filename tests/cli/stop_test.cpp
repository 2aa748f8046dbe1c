// Every way but SIGKILL to stop the command leaves nothing behind: not the
// output, not the command's temporary file, not the filter's interlace spool
// in /tmp. The signal is sent while that spool is open (the command is
// frozen with SIGSTOP the moment the spool appears, and the spool is checked
// to be its own), which is when an abrupt end would leave it.
#include <poll.h>
#include <sys/inotify.h>

#include <algorithm>
#include <chrono>
#include <sstream>

#include "cli_testing.h"

namespace {

using cli::Args;
using cli::Result;

// Whether process `pid` has ended (it is left to be waited for).
bool Ended(pid_t pid) {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           info.si_pid != 0;
}

// Whether process `pid` has `path` open.
bool HasOpen(pid_t pid, const std::string &path) {
    glob_t found;
    std::string pattern = "/proc/" + std::to_string(pid) + "/fd/*";
    bool open = false;
    if (glob(pattern.c_str(), 0, nullptr, &found) == 0) {
        for (size_t i = 0; i < found.gl_pathc && !open; ++i) {
            char target[4096];
            ssize_t n = readlink(found.gl_pathv[i], target, sizeof target - 1);
            open = n > 0 && std::string(target, static_cast<size_t>(n)) == path;
        }
    }
    globfree(&found);
    return open;
}

// Watches /tmp from its making (so before the command starts) and, while
// `pid` runs, hands each new spool file (zun*) to `spooled` until it answers
// true; false when none was taken in time.
struct SpoolWatch {
    int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    SpoolWatch() { EXPECT_GE(inotify_add_watch(watch, "/tmp", IN_CREATE), 0); }
    ~SpoolWatch() { close(watch); }
    template <typename Spooled>
    bool Until(pid_t pid, Spooled spooled) {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (std::chrono::steady_clock::now() < deadline && !Ended(pid)) {
            pollfd p{watch, POLLIN, 0};
            if (poll(&p, 1, 50) <= 0) continue;
            alignas(inotify_event) char events[4096];
            ssize_t n = read(watch, events, sizeof events);
            for (ssize_t at = 0; at < n;) {
                auto *event = reinterpret_cast<inotify_event *>(events + at);
                at += static_cast<ssize_t>(sizeof *event + event->len);
                if (event->len != 0 && std::string(event->name).rfind("zun", 0) == 0 &&
                    spooled(std::string("/tmp/") + event->name))
                    return true;
            }
        }
        return false;
    }
};

class Stop : public cli::Folder {
protected:
    void SetUp() override {
        Folder::SetUp();
        // Large enough for the filter to spool its interlace passes to a file.
        PalettePng("in.png", 3000, 2000);
    }

    // Runs an interlaced export and, once its spool is open, sends `signals`.
    // Returns false when the spool was never caught open (the export was too
    // quick, or another process's spool came first): the caller tries again.
    bool StopWhileSpooling(const std::vector<int> &signals, const Args &args, Result *result,
                           std::string *spool) {
        SpoolWatch watch;
        cli::Process command(dir_, args);
        bool sent = watch.Until(command.pid(), [&](const std::string &name) {
            kill(command.pid(), SIGSTOP);
            *spool = name;
            bool open = HasOpen(command.pid(), name);
            if (open)
                for (int s : signals) kill(command.pid(), s);
            kill(command.pid(), SIGCONT);
            return open;
        });
        *result = command.Finish();
        return sent;
    }
};

TEST_F(Stop, EachStopSignalCancelsThroughTheFilter) {
    const std::vector<std::vector<int>> cases = {
        {SIGINT}, {SIGINT, SIGINT, SIGINT}, {SIGTERM}, {SIGHUP}, {SIGQUIT}, {SIGINT, SIGTERM}};
    for (const auto &signals : cases) {
        SCOPED_TRACE(::testing::PrintToString(signals));
        Result r;
        std::string spool;
        bool caught = false;
        for (int attempt = 0; attempt < 5 && !caught; ++attempt) {
            unlink(Path("out.gif").c_str());  // written by an attempt that missed
            caught = StopWhileSpooling(
                signals, {"-q", "--interlace", "--actual-size", "in.png", "out.gif"}, &r, &spool);
        }
        ASSERT_TRUE(caught) << "the spool was never caught open";
        EXPECT_EQ(r.signal, 0) << "ended by the signal itself";
        // Pending signals may arrive in any order; the first one counts.
        EXPECT_NE(std::find(signals.begin(), signals.end(), r.status - 128), signals.end())
            << r.status;
        EXPECT_EQ(r.err, "tolva: out.gif: cancelled\n");
        EXPECT_NE(access(spool.c_str(), F_OK), 0) << spool << " was left";
        EXPECT_NE(access(Path("out.gif").c_str(), F_OK), 0);
        EXPECT_TRUE(Temporaries().empty());
    }
}

TEST_F(Stop, ABatchPassesTheStopOnToItsConversions) {
    mkdir(Path("gifs").c_str(), 0777);
    Args args = {"-O", "gifs", "--jobs", "2", "--interlace", "--actual-size"};
    for (const char *name : {"a.png", "b.png", "c.png", "d.png"}) {
        ASSERT_EQ(link(Path("in.png").c_str(), Path(name).c_str()), 0);
        args.push_back(name);
    }
    // Only the parent gets the signal, as from kill(1), once one of its
    // children has its spool open.
    SpoolWatch watch;
    cli::Process batch(dir_, args);
    bool sent = watch.Until(batch.pid(), [&](const std::string &spool) {
        std::istringstream children(cli::ReadText("/proc/" + std::to_string(batch.pid()) +
                                                  "/task/" + std::to_string(batch.pid()) +
                                                  "/children"));
        std::vector<pid_t> running;
        for (pid_t child; children >> child;) {
            kill(child, SIGSTOP);
            running.push_back(child);
        }
        bool open = false;
        for (pid_t child : running) open = open || HasOpen(child, spool);
        if (open) kill(batch.pid(), SIGTERM);
        for (pid_t child : running) kill(child, SIGCONT);
        return open;
    });
    Result r = batch.Finish();
    ASSERT_TRUE(sent) << "no conversion of the batch was caught with its spool open";
    EXPECT_EQ(r.status, 128 + SIGTERM) << r.err;
    // The two conversions under way were cancelled, the others never began.
    EXPECT_EQ(system(("test -z \"$(ls -A '" + Path("gifs") + "')\"").c_str()), 0);
}

TEST_F(Stop, AFileSizeLimitIsAWriteFailure) {
    for (const char *output : {"out.gif", "-"}) {
        SCOPED_TRACE(output);
        Result r = Run({"--actual-size", "in.png", output}, {.fileLimit = 4096});
        EXPECT_EQ(r.signal, 0) << "ended by SIGXFSZ";
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.err.rfind("tolva: ", 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_NE(access(Path("out.gif").c_str(), F_OK), 0);
        EXPECT_TRUE(Temporaries().empty());
    }
}

}  // namespace
