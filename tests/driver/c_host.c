/* A host written in C: it loads the built shared object at run time and
 * drives it by name only, the way a graphics application does. Exits 0 when
 * every step answered as the protocol says. */
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tolva/tolva.h"

typedef int32_t (*Entry)(int16_t, void *, void *);
typedef int32_t (*Entry32)(intptr_t, int16_t, void *);
typedef void (*LoadPointers)(intptr_t *);
typedef HGLOBAL (*AllocFn)(uint32_t, uint32_t);
typedef void *(*LockFn)(HGLOBAL);
typedef int32_t (*FreeFn)(HGLOBAL);

static int failures = 0;

static void check(int ok, const char *what) {
    if (!ok) {
        fprintf(stderr, "c_host: %s\n", what);
        ++failures;
    }
}

static int status_calls = 0;
static int32_t host_status(intptr_t context, intptr_t a, intptr_t b, intptr_t c, intptr_t d,
                           intptr_t e, intptr_t f) {
    (void)e;
    (void)f;
    if (status_calls++ == 0)
        check(context == 5 && a == 0 && b == -2 && c == 100 && d == 0, "the init report");
    return 0;
}

int main(void) {
    const char *path = getenv("TOLVA_SHARED_LIB");
    void *lib = dlopen(path != NULL ? path : "libtolva.so", RTLD_NOW | RTLD_LOCAL);
    if (lib == NULL) {
        fprintf(stderr, "c_host: %s\n", dlerror());
        return 1;
    }
    Entry entry = (Entry)dlsym(lib, "RASTER_dd_entry");
    LoadPointers load = (LoadPointers)dlsym(lib, "fltLoadPointers");
    AllocFn alloc = (AllocFn)dlsym(lib, "GlobalAlloc");
    LockFn lock = (LockFn)dlsym(lib, "GlobalLock");
    FreeFn release = (FreeFn)dlsym(lib, "GlobalFree");
    EMData **em = (EMData **)dlsym(lib, "lpEMData");
    if (!entry || !load || !alloc || !lock || !release || !em) {
        fprintf(stderr, "c_host: a basic entry is missing\n");
        return 1;
    }

    /* The name table: every row leads to the symbol of its name. */
    static const char *const names[9][2] = {
        {"CreateSetup", "CreateSetup"}, {"DestroySetup", "DestroySetup"},
        {"EditSetup", "EditSetup"}, {"EscapeSetup", "xEscapeSetup"},
        {"ZUNGetFilterVersion", "ZUNGetFilterVersion"}, {"dd_entry", "dd_entry"},
        {"RASTER_dd_entry", "RASTER_dd_entry"}, {"ExportCellData", "ExportCellData"},
        {"szDLLName", "export_szDLLName"}};
    static const int16_t ordinals[9] = {1001, 1002, 1003, 1004, 1005, 1006, 1008, 1009, 1010};
    intptr_t record[3] = {0, 0, 0};
    load(record);
    int16_t rows;
    memcpy(&rows, &record[1], sizeof rows);
    check(rows == 9, "the name table has 9 rows");
    const TolvaNameEntry *table = (const TolvaNameEntry *)record[2];
    for (int i = 0; i < 9 && rows == 9; ++i) {
        check(strcmp(table[i].name, names[i][0]) == 0, names[i][0]);
        check(table[i].ordinal == ordinals[i], "an ordinal");
        check(dlsym(lib, names[i][1]) == table[i].target, names[i][1]);
    }

    uint32_t version = 0;
    check(entry(-2, &version, NULL) == 0 && version == 0x02000005u, "the version");
    Entry32 entry32 = NULL;
    entry(-3, &entry32, NULL);
    check(entry32 == (Entry32)dlsym(lib, "RASTER_dd_entry32"), "the 32-bit entry");
    if (entry32 == NULL) return 1;

    HGLOBAL setup = alloc(TOLVA_GMEM_FLAGS, TOLVA_SETUP_BLOCK_SIZE);
    int32_t caps[64];
    for (int i = 0; i < 64; ++i) caps[i] = 7;
    intptr_t status[TOLVA_STATUS_WORDS] = {0};
    status[TOLVA_STATUS_CONTEXT] = 5;
    status[TOLVA_STATUS_FUNCTION] = (intptr_t)&host_status;
    intptr_t init[TOLVA_INIT_WORDS] = {0};
    init[TOLVA_INIT_FILE_NAME] = (intptr_t) "";
    init[TOLVA_INIT_REPLY_SIZE] = 64;
    init[TOLVA_INIT_SETUP] = (intptr_t)setup;
    init[TOLVA_INIT_STATUS_RECORD] = (intptr_t)status;
    init[TOLVA_INIT_CAPABILITIES] = (intptr_t)caps;
    check(entry32(0, 0, init) == 0, "init");
    check(status_calls == 1, "one status report at init");
    check(caps[0] == 100 && caps[6] == 7 && caps[47] == 0, "the capability array");
    check(*em != NULL && (*em)->deviceState == 1, "the device state after init");

    /* An opcode, then the error stack popped through the reply buffer. */
    uint8_t op[64];
    memset(op, 0, sizeof op);
    int32_t opcode = 0xf02, wanted = 3;
    memcpy(op, &opcode, 4);
    memcpy(op + 16, &wanted, 4);
    check(entry32(0, 2, op) == 0, "popping the error stack");
    const uint8_t *reply = (const uint8_t *)init[TOLVA_INIT_REPLY_BUFFER];
    int32_t popped = -1;
    memcpy(&popped, reply, 4);
    check(popped == 0 && (*em)->replyPosition == 4, "an empty stack pops 0");
    opcode = 0xf03;
    memcpy(op, &opcode, 4);
    check(entry32(0, 2, op) == 0, "emptying the error stack");

    check(entry32(0, -1, NULL) == 0, "term");
    check(*em == NULL, "lpEMData is null after term");
    release(setup);
    dlclose(lib);
    if (failures == 0) printf("c_host: all steps answered\n");
    return failures == 0 ? 0 : 1;
}
