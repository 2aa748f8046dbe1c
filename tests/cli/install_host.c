/* install_host.c - a host linked with an installed libtolva. Besides
 * walking the name table it writes two exported data objects, the way a
 * host does, and checks that the library sees its writes: export_szDLLName
 * names the module, so CreateSetup must find "<module>.ini" (in INIDIR) and
 * load its section; _debug_color_res = 1 makes the raster library trace a
 * depth conversion on standard error, which the test script looks for. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <tolva/host.h>
#include <tolva/raster.h>
#include <tolva/tolva.h>

static int fail(const char *what) {
    fprintf(stderr, "install_host: %s\n", what);
    return 1;
}

int main(void) {
    intptr_t record[3] = {0, 0, 0};
    fltLoadPointers(record);
    int16_t rows = 0;
    memcpy(&rows, &record[1], sizeof rows);
    const TolvaNameEntry *table = (const TolvaNameEntry *)record[2];
    if (ZUNGetFilterVersion() != TOLVA_FILTER_VERSION || rows != TOLVA_NAME_TABLE_ROWS)
        return fail("the name table or version is not the filter's");
    if (table[TOLVA_NAME_TABLE_ROWS - 1].target != export_szDLLName)
        return fail("szDLLName in the name table is not the object this host writes");

    /* The module's profile, found through the name the host gives it. */
    char dir[] = "/tmp/tolva-install-XXXXXX";
    if (mkdtemp(dir) == NULL) return fail("no temporary directory");
    char ini[300];
    snprintf(ini, sizeof ini, "%s/probe.ini", dir);
    FILE *file = fopen(ini, "w");
    if (file == NULL) return fail("cannot write the profile");
    fputs("[Probe]\nDriver=GIF\nX Resolution=123\n", file);
    fclose(file);
    setenv("INIDIR", dir, 1);
    snprintf(export_szDLLName, sizeof export_szDLLName, "%s/probe.so.2", dir);
    HGLOBAL setup = CreateSetup(0, "", "Probe", 0);
    const SetupBlock *block = (const SetupBlock *)GlobalLock(setup);
    int found = block != NULL && block->xResolution == 123;
    (void)DestroySetup(setup);
    unlink(ini);
    rmdir(dir);
    if (!found) return fail("the library did not read the module name the host wrote");

    /* A traced conversion: 4 x 2 pixels of 24 bits down to 8. */
    _debug_color_res = 1;
    HGLOBAL bits = GlobalAlloc(TOLVA_GMEM_FLAGS, (uint32_t)rlCalcNewSize(4, 2, 24));
    HGLOBAL converted = rlConvertBitmapDepth(bits, 4, 2, 24, 8, 0, 0, 0);
    _debug_color_res = 0;
    (void)rlFreeNewData(converted);
    (void)GlobalFree(bits);
    printf("install host: profile found through szDLLName\n");
    return 0;
}
