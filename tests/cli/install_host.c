/* install_host.c - a host linked with an installed libtolva: the installed
 * headers compile, and the name table the library hands over is the one
 * they describe. (That the library sees what a linked host writes into its
 * exported data is the test script's readelf check.) */
#include <stdio.h>
#include <string.h>

#include <tolva/host.h>
#include <tolva/tolva.h>

int main(void) {
    intptr_t record[3] = {0, 0, 0};
    fltLoadPointers(record);
    int16_t rows = 0;
    memcpy(&rows, &record[1], sizeof rows);
    const TolvaNameEntry *table = (const TolvaNameEntry *)record[2];
    if (ZUNGetFilterVersion() != TOLVA_FILTER_VERSION || rows != TOLVA_NAME_TABLE_ROWS ||
        table[TOLVA_NAME_TABLE_ROWS - 1].target != export_szDLLName) {
        fprintf(stderr, "install_host: the name table or version is not the filter's\n");
        return 1;
    }

    printf("install host: the filter's name table\n");
    return 0;
}
