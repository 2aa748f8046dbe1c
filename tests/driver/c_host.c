// A host written in C: it loads the built shared object at run time and
// drives it by name only, the way a graphics application does. Exits 0 when
// every step answered as the protocol says.
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tolva/host.h"

typedef int32_t (*Entry)(int16_t, void *, void *);
typedef int32_t (*Entry32)(intptr_t, int16_t, void *);
typedef HGLOBAL (*AllocFn)(uint32_t, uint32_t);

static int failures = 0;
#define CHECK(ok) ((ok) ? (void)0 : (void)(fprintf(stderr, "c_host: %s\n", #ok), ++failures))

static int32_t host_status(intptr_t context, intptr_t a, intptr_t b, intptr_t c, intptr_t d,
                           intptr_t e, intptr_t f) {
    CHECK(context == 5 && a == 0 && b == -2 && c == 100 && d + e + f == 0);  // the init report
    return 1;  // a stop answer, which the init report never follows up
}

int main(void) {
    const char *path = getenv("TOLVA_SHARED_LIB");
    void *lib = dlopen(path != NULL ? path : "libtolva.so", RTLD_NOW | RTLD_LOCAL);
    if (lib == NULL) return fprintf(stderr, "c_host: %s\n", dlerror()), 1;
    EMData **em = (EMData **)dlsym(lib, "lpEMData");
    Entry raster = (Entry)dlsym(lib, "RASTER_dd_entry");

    // The name table: every row leads to the symbol of its name (two names
    // lead to symbols of their own); 1007 is absent.
    static const char *const names[9] = {"CreateSetup",     "DestroySetup",        "EditSetup",
                                         "EscapeSetup",     "ZUNGetFilterVersion", "dd_entry",
                                         "RASTER_dd_entry", "ExportCellData",      "szDLLName"};
    static const int16_t ordinals[9] = {1001, 1002, 1003, 1004, 1005, 1006, 1008, 1009, 1010};
    intptr_t record[3] = {0, 0, 0};
    ((void (*)(intptr_t *))dlsym(lib, "fltLoadPointers"))(record);
    const TolvaNameEntry *table = (const TolvaNameEntry *)record[2];
    CHECK((int16_t)record[1] == 9);
    for (int i = 0; i < 9 && (int16_t)record[1] == 9; ++i)
        CHECK(strcmp(table[i].name, names[i]) == 0 && table[i].ordinal == ordinals[i] &&
              table[i].target == dlsym(lib, i == 3   ? "xEscapeSetup"
                                            : i == 8 ? "export_szDLLName"
                                                     : names[i]));

    // The version (0x02000005, in exactly 4 bytes) and the 32-bit entries,
    // asked through both variants.
    uint8_t out[8] = {0, 0, 0, 0, 0xee};
    Entry32 entry32 = NULL, export32 = NULL;
    CHECK(raster(-2, out, NULL) == 0 && memcmp(out, "\x05\0\0\x02\xee", 5) == 0);
    CHECK(raster(-3, &entry32, NULL) == 0 && entry32 == (Entry32)dlsym(lib, "RASTER_dd_entry32"));
    CHECK(((Entry)dlsym(lib, "dd_entry"))(-3, &export32, NULL) == 0 &&
          export32 == (Entry32)dlsym(lib, "dd_entry32"));
    memset(out, 0, 4);
    CHECK(entry32(0, -2, out) == 4 && export32(0, -2, out) == 4 &&
          memcmp(out, "\x05\0\0\x02\xee", 5) == 0);

    int32_t caps[64];
    intptr_t status[TOLVA_STATUS_WORDS] = {
        [TOLVA_STATUS_CONTEXT] = 5, [TOLVA_STATUS_FUNCTION] = (intptr_t)&host_status};
    intptr_t init[TOLVA_INIT_WORDS] = {
        [TOLVA_INIT_FILE_NAME] = (intptr_t) "",
        [TOLVA_INIT_REPLY_SIZE] = 64,
        [TOLVA_INIT_SETUP] = (intptr_t)((AllocFn)dlsym(lib, "GlobalAlloc"))(TOLVA_GMEM_FLAGS,
                                                                            TOLVA_SETUP_BLOCK_SIZE),
        [TOLVA_INIT_STATUS_RECORD] = (intptr_t)status,
        [TOLVA_INIT_CAPABILITIES] = (intptr_t)caps};
    CHECK(entry32(0, 0, init) == 0 && *em != NULL && (*em)->deviceState == 1);
    CHECK(caps[0] == 100 && caps[1] == -1 && caps[47] == 0);

    // An opcode: popping three errors off the empty stack replies with the count 0.
    uint8_t op[64] = {0x02, 0x0f, [16] = 3};
    CHECK(entry32(0, 2, op) == 0 && (*em)->replyPosition == 4 &&
          memcmp((const void *)init[TOLVA_INIT_REPLY_BUFFER], "\0\0\0", 4) == 0);
    CHECK(entry32(0, -1, NULL) == 0 && *em == NULL);
    ((int32_t(*)(HGLOBAL))dlsym(lib, "GlobalFree"))((HGLOBAL)init[TOLVA_INIT_SETUP]);
    dlclose(lib);
    return failures != 0;
}
