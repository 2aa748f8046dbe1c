// Where the command may be pointed: every kind of output path, and many
// inputs at once. The GIF that reaches any of them must be byte for byte the
// one written to a plain new file; nothing may be renamed over a device, a
// link or the input; a failed file of a batch must not stop the others.
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <future>
#include <thread>

#include "cli_testing.h"

namespace {

using cli::Args;
using cli::ReadText;
using cli::Result;
using cli::WriteText;

// Reads everything from a descriptor until end of file, and closes it.
std::string Drain(int fd) {
    std::string all;
    char buffer[65536];
    ssize_t n;
    while ((n = read(fd, buffer, sizeof buffer)) > 0) all.append(buffer, static_cast<size_t>(n));
    close(fd);
    return all;
}

// Every run here is as nobody when the tests run as root, so that what the
// command may do to a path is what an ordinary user's command may do; the
// test's own files are open to it.
class Targets : public cli::Folder {
protected:
    void SetUp() override {
        umask(0);
        Folder::SetUp();
        PalettePng("in.png", 60, 40);
        Result r = Run({"in.png", "reference.gif"});
        ASSERT_EQ(r.status, 0) << r.err;
        reference_ = ReadText(Path("reference.gif"));
        ASSERT_EQ(reference_.rfind("GIF89a", 0), 0u);
    }
    void TearDown() override {
        EXPECT_TRUE(Temporaries().empty()) << "a temporary file was left";
        Folder::TearDown();
    }
    Result Run(const Args &args, cli::Launch launch = {}) {
        launch.unprivileged = true;
        return Folder::Run(args, launch);
    }
    std::string reference_;
};

TEST_F(Targets, DevicesAreWrittenNeverReplaced) {
    struct stat before, after;
    ASSERT_EQ(stat("/dev/null", &before), 0);
    // A command that renamed over /dev/null would be refused here rather
    // than replace it.
    Result null = Run({"in.png", "/dev/null"});
    EXPECT_EQ(null.status, 0) << null.err;
    ASSERT_EQ(stat("/dev/null", &after), 0);
    EXPECT_TRUE(S_ISCHR(after.st_mode));
    EXPECT_EQ(before.st_ino, after.st_ino);

    Result full = Run({"in.png", "/dev/full"});
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.err,
              "tolva: /dev/full: cannot write the output file (No space left on device)\n");
    ASSERT_EQ(stat("/dev/full", &after), 0);
    EXPECT_TRUE(S_ISCHR(after.st_mode));

    // Standard output is a pipe here, named two ways.
    for (const char *name : {"-", "/dev/stdout"}) {
        Result piped = Run({"in.png", name});
        EXPECT_EQ(piped.status, 0) << name << piped.err;
        EXPECT_TRUE(piped.out == reference_) << name;
    }
}

TEST_F(Targets, PipesAndSocketsGetTheWholeGif) {
    ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0666), 0);
    auto fromFifo =
        std::async(std::launch::async, [&] { return Drain(open(Path("fifo").c_str(), O_RDONLY)); });
    Result fifo = Run({"in.png", "fifo"});
    EXPECT_EQ(fifo.status, 0) << fifo.err;
    EXPECT_TRUE(fromFifo.get() == reference_);
    struct stat info;
    ASSERT_EQ(lstat(Path("fifo").c_str(), &info), 0);
    EXPECT_TRUE(S_ISFIFO(info.st_mode));

    int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string socketPath = Path("socket");
    ASSERT_LT(socketPath.size(), sizeof address.sun_path);
    memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    auto fromSocket =
        std::async(std::launch::async, [&] { return Drain(accept(listener, nullptr, nullptr)); });
    Result sock = Run({"in.png", "socket"});
    EXPECT_EQ(sock.status, 0) << sock.err;
    EXPECT_TRUE(fromSocket.get() == reference_);
    close(listener);
}

TEST_F(Targets, LinksAreFollowedAndTheirTargetsReplaced) {
    mkdir(Path("sub").c_str(), 0777);
    WriteText(Path("sub/real.gif"), "old");
    ASSERT_EQ(symlink("sub/real.gif", Path("link.gif").c_str()), 0);
    ASSERT_EQ(symlink("../link.gif", Path("sub/chain.gif").c_str()), 0);  // a link to a link
    ASSERT_EQ(symlink("sub/absent.gif", Path("dangling.gif").c_str()), 0);
    const std::pair<const char *, const char *> cases[] = {{"link.gif", "sub/real.gif"},
                                                           {"sub/chain.gif", "sub/real.gif"},
                                                           {"dangling.gif", "sub/absent.gif"}};
    for (const auto &[name, written] : cases) {
        WriteText(Path("sub/real.gif"), "old");
        Result r = Run({"in.png", name});
        EXPECT_EQ(r.status, 0) << name << r.err;
        EXPECT_TRUE(ReadText(Path(written)) == reference_) << name;
        struct stat info;
        ASSERT_EQ(lstat(Path(name).c_str(), &info), 0);
        EXPECT_TRUE(S_ISLNK(info.st_mode)) << name << " is no longer a link";
        // The finished file gets a new file's mode, not the temporary's.
        ASSERT_EQ(stat(Path(written).c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0666u) << name;
    }
    EXPECT_TRUE(Temporaries("sub").empty());
    // A directory name too long for the filter's 144-byte file name field.
    std::string deep = dir_;
    for (int i = 0; i < 4; ++i) mkdir((deep += "/" + std::string(40, 'd')).c_str(), 0777);
    Result far = Run({"in.png", deep + "/far.gif"});
    EXPECT_EQ(far.status, 0) << far.err;
    EXPECT_TRUE(ReadText(deep + "/far.gif") == reference_);
}

TEST_F(Targets, RefusalsComeBeforeAnythingIsWritten) {
    std::string picture = ReadText(Path("in.png"));
    mkdir(Path("folder").c_str(), 0777);
    ASSERT_EQ(symlink("in.png", Path("alias.png").c_str()), 0);
    ASSERT_EQ(link(Path("in.png").c_str(), Path("hard.png").c_str()), 0);
    WriteText(Path("old.gif"), "old");
    struct Case {
        Args args;
        std::string message;  // the whole of standard error
        cli::Launch launch = {};
    };
    const Case cases[] = {
        {{"in.png", "in.png"}, "tolva: in.png: is the input file; not overwritten\n"},
        {{"in.png", "alias.png"}, "tolva: alias.png: is the input file; not overwritten\n"},
        {{"alias.png", "hard.png"}, "tolva: hard.png: is the input file; not overwritten\n"},
        {{"-", "in.png"},
         "tolva: in.png: is the input file; not overwritten\n",
         {.input = Path("in.png")}},
        {{"in.png", "folder"}, "tolva: folder: cannot create the output file (Is a directory)\n"},
        {{"in.png", "folder/"}, "tolva: folder/: cannot create the output file (Is a directory)\n"},
        {{"-n", "in.png", "old.gif"},
         "tolva: old.gif: already exists; not replaced (--no-clobber)\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(::testing::PrintToString(c.args));
        Result r = Run(c.args, c.launch);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.err, c.message);
        EXPECT_EQ(ReadText(Path("in.png")), picture);
        EXPECT_EQ(ReadText(Path("old.gif")), "old");
    }
    // --no-clobber still writes where nothing is, through a link too.
    ASSERT_EQ(symlink("fresh.gif", Path("to-fresh.gif").c_str()), 0);
    Result fresh = Run({"--no-clobber", "in.png", "to-fresh.gif"});
    EXPECT_EQ(fresh.status, 0) << fresh.err;
    EXPECT_TRUE(ReadText(Path("fresh.gif")) == reference_);

    // The temporary directory that is missing is the one named.
    setenv("TMPDIR", Path("no-such-dir").c_str(), 1);
    Result tmp = Run({"in.png", "-"});
    unsetenv("TMPDIR");
    EXPECT_EQ(tmp.status, 1);
    EXPECT_EQ(tmp.err, "tolva: " + Path("no-such-dir") +
                           ": cannot create a temporary file (No such file or directory)\n");
}

TEST_F(Targets, ABatchWritesEveryFileItCanAndNamesTheOthers) {
    mkdir(Path("gifs").c_str(), 0777);
    mkdir(Path("b").c_str(), 0777);
    PalettePng("b/two.photo.png", 30, 20);
    PalettePng("b/in.png", 10, 10);  // the same output name as in.png
    WriteText(Path("broken.png"), "not a picture\n");
    WriteText(Path("gifs/three.gif"), "old");
    Result r = Run({"-O", "gifs", "--jobs=3", "in.png", "b/two.photo.png", "broken.png",
                    "missing.png", "b/in.png"});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(ReadText(Path("gifs/in.gif")) == reference_);
    EXPECT_TRUE(cli::decode_file(Path("gifs/two.photo.gif")).ok);
    EXPECT_FALSE(cli::decode_file(Path("gifs/broken.gif")).ok);
    // One whole line for each failed file, whatever order they ended in.
    std::vector<std::string> lines;
    for (size_t at = 0, end; (end = r.err.find('\n', at)) != std::string::npos; at = end + 1)
        lines.push_back(r.err.substr(at, end - at));
    std::sort(lines.begin(), lines.end());
    const std::vector<std::string> want = {
        "tolva: b/in.png: has the output name of an earlier input; not converted",
        "tolva: broken.png: not a picture the command reads (PNG, JPEG, GIF, WebP, TIFF, PBM, PGM, "
        "PPM or PAM)",
        "tolva: missing.png: cannot read the picture (No such file or directory)",
    };
    EXPECT_EQ(lines, want) << r.err;
    EXPECT_TRUE(Temporaries("gifs").empty());

    // Every file written: status 0, one process at a time as well.
    Result again = Run({"in.png", "b/two.photo.png", "--output-dir", "gifs/", "-j", "1"});
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(again.err, "");

    // A missing folder is made; one whose parent is missing is refused.
    Result made = Run({"-O", "new", "in.png"});
    EXPECT_EQ(made.status, 0) << made.err;
    EXPECT_TRUE(ReadText(Path("new/in.gif")) == reference_);
    Result deep = Run({"-O", "no/such", "in.png"});
    EXPECT_EQ(deep.status, 1);
    EXPECT_EQ(deep.err,
              "tolva: no/such: cannot use the output directory (No such file or directory)\n");

    Result notDir = Run({"-O", "in.png", "b/in.png"});
    EXPECT_EQ(notDir.status, 1);
    EXPECT_EQ(notDir.err, "tolva: in.png: is not a directory\n");
}

// The command's own version needs no library; what could not be loaded is
// named after it.
class Version : public cli::Folder {};

TEST_F(Version, IsShownEvenWithoutTheLibrary) {
    cli::Result r = Run({"--version", "--library", "/no/such/libtolva.so"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "tolva 2.0.5\n");
    EXPECT_EQ(r.err.rfind("tolva: /no/such/libtolva.so: cannot load the filter (", 0), 0u) << r.err;
}

}  // namespace
