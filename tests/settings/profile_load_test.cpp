// Creating a Setup block from profiles: the "Driver" gate, the module-named
// profile, the backup, and settings saved by the escape and loaded back.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <string>

#include "../host/profile_fixture.h"
#include "tolva/tolva.h"

namespace {

struct Created : ::testing::Test {
    ScratchDir dir;
    EnvVar inidir{"INIDIR", nullptr};
    HGLOBAL handle = 0;

    void TearDown() override {
        if (handle != 0) DestroySetup(handle);
        std::memset(export_szDLLName, 0, sizeof export_szDLLName);
    }
    SetupBlock *create(const char *profile, const char *section = "") {
        if (handle != 0) DestroySetup(handle);
        handle = CreateSetup(0, profile, section, 0);
        EXPECT_EQ(hRaster, handle);
        return static_cast<SetupBlock *>(GlobalLock(handle));
    }
};

const char kProfile[] =
    "[TOLVA]\n~Mode=GIF Export\n\n[GIF Export]\nDriver=TOLVA.1\nColor Mode=105\n"
    "Size Mode=600\nResolution Mode=0x133\nX Resolution=31\nY Resolution=400\n"
    "Width=22.5\nHeight=4\nLine Mode=120\n";

TEST_F(Created, LoadsTheSectionTheProfileNamesAndRepairsLimits) {
    dir.put("my.ini", kProfile);
    SetupBlock *b = create("my.ini");
    EXPECT_STREQ(szFilter, "TOLVA");
    EXPECT_STREQ(b->profilePath, "my.ini");
    EXPECT_STREQ(b->sectionName, "GIF Export");
    EXPECT_STREQ(b->driverName, "TOLVA.1");
    EXPECT_EQ(b->colourMode, 105);
    EXPECT_EQ(b->sizeMode, 600);
    EXPECT_EQ(b->resolutionMode, 307);
    EXPECT_EQ(b->xResolution, 96);  // 31 is out of range
    EXPECT_EQ(b->yResolution, 400);
    EXPECT_EQ(b->width, 6.67);      // 22.5 is out of range
    EXPECT_EQ(b->height, 4.0);      // "4" over the default "5.0" reads "4.0"
    EXPECT_EQ(b->lineMode, 120);

    dir.put("my.ini", "[G]\nDriver=X\nWidth=5\n");
    b = create("my.ini", "G");
    EXPECT_EQ(b->width, 5.67);  // "5" over "6.67"
    EXPECT_EQ(b->colourMode + b->lineMode, 103 + 119);
}

TEST_F(Created, WithoutDriverTheZeroFillStaysAndWithoutProfileTheDefaults) {
    dir.put("my.ini", "[G]\nColor Mode=104\nWidth=3\n");
    SetupBlock *b = create("my.ini", "G");
    EXPECT_EQ(b->colourMode, 0);
    EXPECT_EQ(b->width, 0.0);
    EXPECT_STREQ(b->profilePath, "my.ini");
    b = create("my.ini");  // no "~Mode" key: the section stays empty
    EXPECT_STREQ(b->sectionName, "");
    EXPECT_EQ(b->colourMode, 0);

    b = create("absent.ini", "G");
    EXPECT_STREQ(b->profilePath, "");
    EXPECT_STREQ(b->sectionName, "");
    EXPECT_STREQ(b->driverName, "TOLVA.1");
    EXPECT_EQ(b->colourMode, 103);
    // LoadProfile clears the driver name even when the key is missing.
    std::strcpy(b->profilePath, "my.ini");
    std::strcpy(b->sectionName, "G");
    EXPECT_EQ(LoadProfile(0), 0);
    EXPECT_STREQ(b->driverName, "");
    EXPECT_EQ(b->colourMode, 103);
}

TEST_F(Created, TheModuleFileNamesTheProfileInInidirOrHere) {
    std::strcpy(export_szDLLName, "/opt/host/filters/libtolva.so.2");
    dir.put("libtolva.ini", "[G]\nDriver=TOLVA.1\nColor Mode=106\n");
    SetupBlock *b = create(nullptr, "G");
    EXPECT_STREQ(b->profilePath, "libtolva.ini");
    EXPECT_EQ(b->colourMode, 106);
    dir.mkdir("conf");
    dir.put("conf/libtolva.ini", "[G]\nDriver=TOLVA.1\nColor Mode=107\n");
    for (std::string inidir : {dir.at("conf"), dir.at("conf") + "/"}) {
        EnvVar env("INIDIR", inidir.c_str());
        b = create("", "G");
        EXPECT_EQ(std::string(b->profilePath), dir.at("conf") + "/libtolva.ini");
        EXPECT_EQ(b->colourMode, 107);
    }
    // Over-long names stay inside their 144-byte fields.
    std::memset(export_szDLLName, 'm', sizeof export_szDLLName);
    b = create(nullptr, std::string(400, 's').c_str());
    EXPECT_STREQ(b->profilePath, "");
    dir.put("my.ini", "[TOLVA]\n~Mode=" + std::string(250, 's') + "\n");
    b = create("my.ini");
    EXPECT_EQ(std::strlen(b->sectionName), sizeof b->sectionName - 1);
}

TEST_F(Created, BackupMovesThePathAsideForATemporaryOne) {
    dir.put("my.ini", kProfile);
    SetupBlock *b = create("my.ini");
    EXPECT_EQ(BackupProfile(b), 1);
    EXPECT_STREQ(b->thirdName, "my.ini");
    EXPECT_EQ(access(b->profilePath, F_OK), 0);
    unlink(b->profilePath);
}

TEST_F(Created, EscapeSavesToTheProfileAndTheWidthComesBackAs036) {
    dir.put("my.ini", kProfile);
    create("my.ini");
    double width = 6.67, height = 5.0;
    int32_t dpi = 150, colourClass = 102, bad = 20;
    EXPECT_EQ(xEscapeSetup(handle, TOLVA_ESCAPE_WIDTH, 8, &width, nullptr, 1), 1);
    EXPECT_EQ(xEscapeSetup(handle, TOLVA_ESCAPE_HEIGHT, 8, &height, nullptr, 1), 1);
    EXPECT_EQ(xEscapeSetup(handle, TOLVA_ESCAPE_X_RESOLUTION, 4, &dpi, nullptr, 1), 1);
    EXPECT_EQ(xEscapeSetup(handle, TOLVA_ESCAPE_COLOUR_CLASS, 4, &colourClass, nullptr, 1), 1);
    EXPECT_EQ(xEscapeSetup(handle, TOLVA_ESCAPE_Y_RESOLUTION, 4, &bad, nullptr, 1), -1);
    EXPECT_EQ(xEscapeSetup(handle, TOLVA_ESCAPE_SIZE_MODE, 2, nullptr, nullptr, 1), 1);
    EXPECT_EQ(dir.get("my.ini"),
              "[TOLVA]\n~Mode=GIF Export\n\n[GIF Export]\nDriver=TOLVA.1\nColor Mode=104\n"
              "Size Mode=600\nResolution Mode=0x133\nX Resolution=150\nY Resolution=400\n"
              "Width=.36.67\nHeight=5\nLine Mode=120\n");
    SetupBlock *b = create("my.ini");
    EXPECT_EQ(b->width, 0.36);
    EXPECT_EQ(b->height, 5.0);
    EXPECT_EQ(b->xResolution, 150);
    EXPECT_EQ(b->colourMode, 104);

    std::string before = dir.get("my.ini");
    EXPECT_EQ(xEscapeSetup(handle, TOLVA_ESCAPE_WIDTH, 8, &height, nullptr, 0), 1);
    EXPECT_EQ(dir.get("my.ini"), before);
    // Without a profile the save fails silently and the change stands.
    b = create("absent.ini");
    EXPECT_EQ(xEscapeSetup(handle, TOLVA_ESCAPE_WIDTH, 8, &height, nullptr, 1), 1);
    EXPECT_EQ(b->width, 5.0);
    EXPECT_EQ(dir.list(), std::set<std::string>{"my.ini"});
}

}  // namespace
