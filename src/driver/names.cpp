// The exported name table: how a host that cannot look symbols up by name
// finds the filter's entry points and data.
//
// The ordinals are the host's and are not contiguous: 1007 is absent on
// purpose, and the row named "EscapeSetup" leads to xEscapeSetup.
#include <string.h>

#include "driver/driver.h"

namespace {

template <typename F>
const void *address_of(F *function) {
    return reinterpret_cast<const void *>(function);
}

const TolvaNameEntry kNameTable[TOLVA_NAME_TABLE_ROWS] = {
    {"CreateSetup", 1001, address_of(&CreateSetup)},
    {"DestroySetup", 1002, address_of(&DestroySetup)},
    {"EditSetup", 1003, address_of(&EditSetup)},
    {"EscapeSetup", 1004, address_of(&xEscapeSetup)},
    {"ZUNGetFilterVersion", 1005, address_of(&ZUNGetFilterVersion)},
    {"dd_entry", 1006, address_of(&dd_entry)},
    {"RASTER_dd_entry", 1008, address_of(&RASTER_dd_entry)},
    {"ExportCellData", 1009, address_of(&ExportCellData)},
    {"szDLLName", 1010, export_szDLLName},
};

}  // namespace

extern "C" void fltLoadPointers(intptr_t *record) {
    // The count is a 16-bit field at the start of the second word; the rest
    // of that word is the host's.
    int16_t rows = TOLVA_NAME_TABLE_ROWS;
    memcpy(&record[1], &rows, sizeof rows);
    record[2] = reinterpret_cast<intptr_t>(kNameTable);
}
