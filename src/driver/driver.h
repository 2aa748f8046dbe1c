// Internal view of the driver: helpers shared by the driver's own files.
//
// Opcode parameter blocks are byte-positioned host memory: every field is
// read and written through memcpy so that no access depends on the block's
// alignment. Nothing here is exported.
#ifndef TOLVA_DRIVER_DRIVER_H
#define TOLVA_DRIVER_DRIVER_H

#include <stddef.h>

#include "tolva/driver.h"
#include "tolva/host.h"
#include "tolva/output.h"
#include "tolva/raster.h"
#include "tolva/settings.h"
#include "tolva/stream.h"

#include "host/numeric.h"
#include "host/unaligned.h"

// Error entry `index` of the stack, where -1 is the first error record that
// lies directly in front of entry 0. Indices outside -1..9 have no record
// (a host-set capacity above 10 or below 0) and give null.
TolvaErrorRecord *driver_error_entry(EMData *em, int32_t index);

// Advances the reply position by `length` bytes, cut at the reply size the
// way mov2buf cuts, without writing them: those bytes keep whatever the
// reply area held.
void driver_reply_skip(uint32_t length);

// Releases the block of the device's memory stream (its stream must be
// closed) unless the host took it by clearing the Setup block's fields.
void driver_release_memory_output(void);

// The host is destroying `block`. When it is the device's Setup block, the
// device's memory output (an open stream, or a closed block the host has
// not taken) moves out of its fields to a home of the library's, so that
// the stream never writes into the freed block and the block is still
// released in the end.
void driver_setup_leaving(SetupBlock *block);

// Init notes whether the host's output file name fitted the EMData name
// field; the open-device opcode refuses a name that did not (303) rather
// than write under a cut one.
void driver_note_file_name_fits(bool fits);

// Makes the close-device opcode delete the named output file: a picture was
// refused, and a file without it must not survive. Opening the device again
// clears the mark.
void driver_discard_output(void);

#endif
