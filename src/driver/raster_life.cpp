// Init and term of the raster device variant.
//
// Init allocates the EMData block and the reply buffer, takes the Setup
// block, reports once to the host's status function and fills the host's
// capability array; term closes a device that is still open and releases
// everything init took. After term lpEMData is null.
#include <string.h>

#include "driver/driver.h"
#include "settings/settings.h"

namespace {

struct Capability {
    uint8_t slot;
    int32_t value;
};

// Copied row by row into the host's array; slots not named here keep the
// host's values. Slot 47 comes last because init overwrites it with the
// colour conversion mode.
const Capability kCapabilities[] = {
    {0, 100}, {1, -1},  {2, -1},  {3, -1},  {4, -1},  {5, 0},   {9, -1},  {10, -1},
    {11, -1}, {12, -1}, {13, -1}, {14, -1}, {15, -1}, {16, -1}, {17, -1}, {18, -1},
    {19, 0},  {20, 0},  {21, 0},  {22, 0},  {23, -1}, {24, -1}, {25, -1}, {26, -1},
    {27, -1}, {28, -1}, {29, -1}, {31, 0},  {32, -1}, {33, -1}, {34, 0},  {35, 0},
    {36, -1}, {37, -1}, {38, 1},  {39, 1},  {40, 0},  {41, -1}, {44, 0},  {45, -1},
    {55, 0},  {56, 0},  {57, -1}, {58, 0},  {59, -1}, {47, 0},
};

static_assert(sizeof kCapabilities / sizeof kCapabilities[0] == 46,
              "the capability table has 46 rows");

// The Setup block's colour modes 103..107 become conversion modes 0..4 for
// rev_rgb; anything else leaves the mode as it was.
void take_colour_mode(EMData *em, const SetupBlock *setup) {
    if (setup == nullptr) return;
    int32_t mode = setup->colourMode;
    if (mode >= TOLVA_COLOUR_NORMAL && mode <= TOLVA_COLOUR_INVERT_LUMINANCE)
        em->colourConversionMode = mode - TOLVA_COLOUR_NORMAL;
}

// The host keeps file names under 144 bytes. A longer one is cut so that
// the copy stays inside the field, and noted, so that the device refuses to
// open it.
void take_file_name(EMData *em, const char *name) {
    if (name == nullptr) {
        em->fileName[0] = '\0';
        driver_note_file_name_fits(true);
        return;
    }
    size_t n = strnlen(name, sizeof em->fileName);
    driver_note_file_name_fits(n < sizeof em->fileName);
    if (n == sizeof em->fileName) --n;
    memcpy(em->fileName, name, n);
    em->fileName[n] = '\0';
}

}  // namespace

extern "C" {

int32_t RASTER_initdvr(intptr_t *block) {
    if (block == nullptr) return TOLVA_ERR_MEMORY;
    if (AllocGlobal() != 0) return TOLVA_ERR_MEMORY;
    EMData *em = lpEMData;
    // With a Common block set by the host, AllocGlobal takes nothing and
    // there is no device to initialise.
    if (em == nullptr) return TOLVA_ERR_MEMORY;

    HGLOBAL setup = static_cast<HGLOBAL>(block[TOLVA_INIT_SETUP]);
    lpSetup = static_cast<SetupBlock *>(GlobalLock(setup));
    settings_leaving = driver_setup_leaving;
    em->setup = setup;
    take_colour_mode(em, lpSetup);

    intptr_t *record = reinterpret_cast<intptr_t *>(block[TOLVA_INIT_STATUS_RECORD]);
    em->statusRecord = record;
    if (record != nullptr && record[TOLVA_STATUS_FUNCTION] != 0 &&
        record[TOLVA_STATUS_CONTEXT] != 0) {
        // The init report: b = -2 keeps it from ever asking for a stop detail.
        (void)CallGetSet_Status(reinterpret_cast<StatusFunction>(record[TOLVA_STATUS_FUNCTION]),
                                record[TOLVA_STATUS_CONTEXT], 0, TOLVA_STATUS_INIT_REPORT, 100, 0,
                                0, 0);
    }

    em->replySize = static_cast<uint32_t>(block[TOLVA_INIT_REPLY_SIZE]);
    HGLOBAL reply = GlobalAlloc(TOLVA_GMEM_FLAGS, em->replySize);
    if (reply == 0) {
        (void)FreeGlobal();
        return TOLVA_ERR_MEMORY;
    }
    em->replyHandle = reply;
    em->replyBuffer = static_cast<uint8_t *>(GlobalLock(reply));
    block[TOLVA_INIT_REPLY_BUFFER] = reinterpret_cast<intptr_t>(em->replyBuffer);

    take_file_name(em, reinterpret_cast<const char *>(block[TOLVA_INIT_FILE_NAME]));
    em->deviceState = TOLVA_STATE_INITIALISED;

    int32_t *capabilities = reinterpret_cast<int32_t *>(block[TOLVA_INIT_CAPABILITIES]);
    if (capabilities != nullptr) {
        for (const Capability &row : kCapabilities) capabilities[row.slot] = row.value;
        capabilities[TOLVA_CAPABILITY_COLOUR_CONVERSION] = em->colourConversionMode;
    }
    return TOLVA_OK;
}

int32_t RASTER_termdvr(void) {
    EMData *em = lpEMData;
    if (em == nullptr) return TOLVA_OK;
    if (em->deviceState != TOLVA_STATE_INITIALISED) (void)d_cldv(nullptr);
    driver_release_memory_output();
    // A picture opened by primitive -5 and never closed by -6 still owns its
    // bitmap; term releases every block the device took.
    if (em->pictureBitmap != 0) {
        (void)GlobalFree(em->pictureBitmap);
        em->pictureBitmap = 0;
    }
    if (em->replyHandle != 0) {
        (void)GlobalUnlock(em->replyHandle);
        (void)GlobalFree(em->replyHandle);
        em->replyHandle = 0;
        em->replyBuffer = nullptr;
    }
    (void)FreeGlobal();
    // The Setup block stays the host's, which may destroy it at any time
    // from now on: nothing that falls back on lpSetup may find it.
    lpSetup = nullptr;
    return TOLVA_OK;
}

}  // extern "C"
