// The driver's exported data objects and its small platform answers.
//
// These globals hold the one device's state for the whole process: the host
// may read and write every one of them by name, so their types and initial
// values are part of the interface. EMData lives from AllocGlobal to
// FreeGlobal and nothing else allocates or frees it.
#include "driver/driver.h"

extern "C" {

uint16_t FilterVersion = 1;
uint16_t FilterID = 19;
uintptr_t hDLLModule = 0;
uintptr_t hAppAnchorBlock = 0;
HGLOBAL hCommon = 0;
void *lpCommon = nullptr;
HGLOBAL hEMData = 0;
EMData *lpEMData = nullptr;
int32_t GDPSupport[8] = {0, 0, 0, 0, 0, 0, 0, 0};

uint32_t ZUNGetFilterVersion(void) { return TOLVA_FILTER_VERSION; }

int32_t AllocGlobal(void) {
    // With a Common block the host keeps the state itself; the result is 0
    // either way because GlobalAlloc never returns a failure here.
    if (hCommon == 0) {
        hEMData = GlobalAlloc(TOLVA_GMEM_FLAGS, TOLVA_EMDATA_SIZE);
        lpEMData = static_cast<EMData *>(GlobalLock(hEMData));
    }
    return 0;
}

int32_t FreeGlobal(void) {
    if (lpEMData != nullptr) {
        (void)GlobalUnlock(hEMData);
        (void)GlobalFree(hEMData);
        hEMData = 0;
        lpEMData = nullptr;
    }
    return 0;
}

// Locking is nominal on this platform, and there are no alternative fonts.
int32_t LockGlobal(HGLOBAL) { return 0; }
int32_t UnlockGlobal(HGLOBAL) { return 0; }
int32_t AltFontsAvailable(void) { return 0; }

// Hooks of the desktop platform that have nothing to do here.
void esc_mode(int32_t) {}
void d_reset(int32_t, int32_t) {}

}  // extern "C"
