// Creating a Setup block from the profile, loading its settings, and the
// profile backup.
//
// The "Driver" key is the gate: a section without it leaves the block as it
// was (the zero fill, for a block that CreateSetup has just made), so a
// profile that names a section but holds no settings yields colour mode 0
// rather than the defaults. Only a profile that cannot be found at all gives
// the defaults.
#include <cstdlib>
#include <cstring>

#include "host/busy.h"
#include "settings/settings.h"

namespace {

constexpr int32_t kInchesText = 30;
constexpr int32_t kDefaultLineMode = 119;

struct Key {
    char text[32];
};

Key key_name(int32_t identifier) {
    Key key = {};
    LoadString(0, identifier, key.text, sizeof key.text - 1);
    return key;
}

int32_t read_int(const SetupBlock *block, int32_t identifier, int32_t def) {
    return GetPrivateProfileInt(block->sectionName, key_name(identifier).text, def,
                                block->profilePath);
}

// The value is read over its default text without a terminator, so a short
// value keeps the default's tail ("5" over "6.67" reads 5.67); the extra
// byte keeps the text terminated for atof.
double read_inches(const SetupBlock *block, int32_t identifier, const char *def) {
    char text[kInchesText + 1] = {};
    GetPrivateProfileString(block->sectionName, key_name(identifier).text, def, text, kInchesText,
                            block->profilePath);
    return std::atof(text);
}

}  // namespace

extern "C" {

HGLOBAL CreateSetup(intptr_t, const char *profileName, const char *sectionName, intptr_t) {
    // A handle is all the host gets back, so a refused call answers 0, as
    // a failed one does.
    HostCallGuard guard;
    if (!guard.entered()) return 0;
    HGLOBAL handle = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
    if (handle == 0) return 0;
    hRaster = handle;
    lpRaster = static_cast<SetupBlock *>(GlobalLock(handle));
    SetupBlock *block = lpRaster;
    if (szFilter != nullptr) strupr(szFilter);

    if (profileName != nullptr && *profileName != '\0') {
        settings_copy_text(block->profilePath, sizeof block->profilePath, profileName);
    } else {
        // The module's file name up to its first ".": libtolva.so.2 gives
        // libtolva.ini.
        char name[sizeof export_szDLLName + 1] = {};
        std::memcpy(name, export_szDLLName, sizeof export_szDLLName);
        s_getname(name, name);
        char *dot = std::strchr(name, '.');
        if (dot != nullptr) *dot = '\0';
        name[sizeof block->profilePath - sizeof ".ini"] = '\0';
        std::memcpy(block->profilePath, name, std::strlen(name));
        std::memcpy(block->profilePath + std::strlen(name), ".ini", sizeof ".ini");
    }

    char module[sizeof export_szDLLName + 1] = {};
    std::memcpy(module, export_szDLLName, sizeof export_szDLLName);
    if (GetProfileDirectory(block->profilePath, module) != 0) {
        block->profilePath[0] = '\0';
        UseDefaultSettings(block);
        return handle;
    }

    if (sectionName != nullptr && *sectionName != '\0') {
        settings_copy_text(block->sectionName, sizeof block->sectionName, sectionName);
    } else {
        // One byte short of the field, so that the name always ends inside it.
        GetPrivateProfileString(szFilter, key_name(kKeyMode).text, "", block->sectionName,
                                sizeof block->sectionName - 1, block->profilePath);
    }
    (void)LoadProfile(0);  // a section without settings leaves the zero fill
    GlobalUnlock(handle);
    return handle;
}

int32_t LoadProfile(intptr_t) {
    SetupBlock *block = settings_current();
    if (block == nullptr) return 0;
    // Read straight into the field: even a missing key clears its 13 bytes.
    static_assert(sizeof block->driverName >= kSettingsDriverNameText,
                  "the driver name fits its field");
    if (GetPrivateProfileString(block->sectionName, key_name(kKeyDriver).text, "",
                                block->driverName, kSettingsDriverNameText,
                                block->profilePath) <= 0)
        return 0;

    block->colourMode = read_int(block, kKeyColourMode, TOLVA_COLOUR_NORMAL);
    block->sizeMode = read_int(block, kKeySizeMode, TOLVA_SIZE_GIVEN);
    block->resolutionMode = read_int(block, kKeyResolutionMode, TOLVA_RESOLUTION_GIVEN);
    block->xResolution =
        static_cast<int16_t>(read_int(block, kKeyXResolution, kSettingsDefaultDpi));
    block->yResolution =
        static_cast<int16_t>(read_int(block, kKeyYResolution, kSettingsDefaultDpi));
    block->width = read_inches(block, kKeyWidth, kSettingsDefaultWidthText);
    block->height = read_inches(block, kKeyHeight, kSettingsDefaultHeightText);
    block->lineMode = read_int(block, kKeyLineMode, kDefaultLineMode);
    (void)LimitCheck();  // repairs are silent; the host is not told
    return 1;
}

int32_t BackupProfile(SetupBlock *block) {
    if (block == nullptr) return 1;
    std::memcpy(block->thirdName, block->profilePath, sizeof block->thirdName);
    char temp[TOLVA_TEMP_NAME_SIZE] = {};
    (void)ZUNGetTempFileName(0, "", 0, temp);  // on failure the path is left empty
    settings_copy_text(block->profilePath, sizeof block->profilePath, temp);
    return 1;
}

}  // extern "C"
