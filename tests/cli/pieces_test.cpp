// The command's pieces on their own: the command line, and the status
// function's progress and stop answers. What each option does to the picture
// is tested through the command itself (command_test.cpp).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "batch.h"
#include "options.h"
#include "progress.h"

namespace {

// The parsed record borrows its strings from argv: keep the last one alive.
int Parse(const std::vector<std::string> &given, TolvaOptions *o, std::string *error = nullptr) {
    static std::vector<std::string> args;
    args = given;
    args.insert(args.begin(), "tolva");
    std::vector<char *> argv;
    for (auto &a : args) argv.push_back(a.data());
    char text[256];
    int r = tolva_parse_options(static_cast<int>(argv.size()), argv.data(), o, text, sizeof text);
    if (error) *error = text;
    return r;
}

TEST(Options, BundledShortFormsAndTheEndOfOptions) {
    TolvaOptions o;
    ASSERT_EQ(Parse({"-iqs4x3", "-t", "#FF8000", "--", "-a.png", "-"}, &o), 0);
    EXPECT_TRUE(o.interlace && o.quiet && o.transparent);
    EXPECT_FALSE(o.actualSize);
    EXPECT_DOUBLE_EQ(o.width, 4.0);
    EXPECT_DOUBLE_EQ(o.height, 3.0);
    EXPECT_EQ(o.transparentColour[0] << 16 | o.transparentColour[1] << 8 | o.transparentColour[2],
              0xff8000);
    EXPECT_STREQ(o.input, "-a.png");
    EXPECT_STREQ(o.output, "-");
    ASSERT_EQ(Parse({"-V", "--help"}, &o), 0);
    EXPECT_EQ(o.action, TOLVA_RUN_HELP);
    // File names and options in any order; a batch takes every file name.
    ASSERT_EQ(Parse({"a.png", "-j2", "b.png", "--output-dir=out", "-vn", "c.png"}, &o), 0);
    ASSERT_EQ(o.inputCount, 3);
    EXPECT_STREQ(o.inputs[2], "c.png");
    EXPECT_EQ(o.output, nullptr);
    EXPECT_STREQ(o.outputDir, "out");
    EXPECT_TRUE(o.jobs == 2 && o.verbose && o.noClobber);
}

TEST(Options, RefusalsAreUsageErrorsWithAReason) {
    const std::vector<std::vector<std::string>> cases = {
        {"in.png"},
        {"a", "b", "c"},
        {"--size", "4", "a", "b"},
        {"--size=4x0", "a", "b"},
        {"--dpi", "-5", "a", "b"},
        {"--transparent=12345", "a", "b"},
        {"--colour-mode=sepia", "a", "b"},
        {"--bands=0", "a", "b"},
        {"-a", "-d", "96", "a", "b"},
        {"--quiet=yes", "a", "b"},
        {"--frobnicate", "a", "b"},
        {"--profile", std::string(150, 'p'), "a", "b"},
        {"--section", "GIF Export", "a", "b"},  // a section of no profile
        {"--jobs", "2", "a", "b"},               // jobs without a batch
        {"-O", "out"},
        {"-O", "out", "a.png", "-"},
        {"-j", "0", "-O", "out", "a.png"},
        {"--size"},
        {"--inter=yes", "a", "b"},
    };
    for (const auto &args : cases) {
        TolvaOptions o;
        std::string error;
        EXPECT_EQ(Parse(args, &o, &error), 2) << ::testing::PrintToString(args);
        EXPECT_FALSE(error.empty());
        EXPECT_EQ(error.find('\n'), std::string::npos);
    }
}

TEST(Batch, OutputNamesLoseOnlyTheLastExtension) {
    const char *cases[][3] = {
        {"out", "a/b.photo.jpg", "out/b.photo.gif"},
        {"out/", "pic", "out/pic.gif"},
        {"/", ".hidden", "/.hidden.gif"},
        {"o", "x.gif", "o/x.gif"},
    };
    for (const auto &c : cases) {
        char name[64];
        ASSERT_EQ(tolva_batch_output_name(c[0], c[1], name, sizeof name), 0);
        EXPECT_STREQ(name, c[2]);
    }
    char small[8];
    EXPECT_EQ(tolva_batch_output_name("out", "long-name.png", small, sizeof small), -1);
}

TEST(Progress, StopIsStickyAndTheBarReachesTheEnd) {
    FILE *terminal = tmpfile();
    ASSERT_NE(terminal, nullptr);
    TolvaProgress p;
    tolva_progress_init(&p, terminal, "out.gif", 3);
    auto call = [&](intptr_t a, intptr_t b, intptr_t d) {
        return tolva_status_function(reinterpret_cast<intptr_t>(&p), a, b, 0, d, 0, 0);
    };
    EXPECT_EQ(call(0, -2, 0), 0);  // the init report
    tolva_progress_bands(&p, 4, 4);
    EXPECT_EQ(call(0, 0, 100), 0);
    EXPECT_EQ(call(0, 0, 0), 1);   // the third call asks to stop...
    EXPECT_EQ(call(2, 61, 0), 1);  // ...and so does the detail request after it
    EXPECT_TRUE(tolva_progress_stopping(&p));
    tolva_progress_finish(&p);
    rewind(terminal);
    char text[512] = {0};
    std::string drawn(text, fread(text, 1, sizeof text - 1, terminal));
    fclose(terminal);
    EXPECT_NE(drawn.find("out.gif [##############################] 100%"), std::string::npos)
        << drawn;
    EXPECT_EQ(drawn.back(), '\n');
}

}  // namespace
