/* install_host.c - the smallest host of an installed libtolva: it includes
 * the public header, links the library and walks the name table. */
#include <stdio.h>
#include <string.h>

#include <tolva/tolva.h>

int main(void)
{
    intptr_t record[3] = {0, 0, 0};
    fltLoadPointers(record);
    int16_t rows = 0;
    memcpy(&rows, &record[1], sizeof rows);
    const TolvaNameEntry *table = (const TolvaNameEntry *)record[2];
    uint32_t version = ZUNGetFilterVersion();
    printf("filter %08x, %d names, first %s\n", (unsigned)version, rows, table[0].name);
    return version == TOLVA_FILTER_VERSION && rows == TOLVA_NAME_TABLE_ROWS ? 0 : 1;
}
