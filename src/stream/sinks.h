// The three places a picture can be written to, each opened one way for every
// writer (the raster device, the export variant, ExportCellData and the
// interlace spool): the host's I/O procedure, a named file, or a memory block
// that grows as the stream writes.
//
// Only the opening is shared; what a failure means (which code is pushed or
// returned, whether the block is given back) stays with each caller.
#ifndef TOLVA_STREAM_SINKS_H
#define TOLVA_STREAM_SINKS_H

#include <stdint.h>

#include "tolva/host.h"
#include "tolva/stream.h"
#include "tolva/tolva.h"

// Bytes a memory output grows by whenever it is full.
constexpr intptr_t kStreamMemoryGrowth = 4096;

// An output stream through the host's I/O procedure, whose open is called
// with `name` and the device word of the host's status record (0 without a
// record). The procedure reports its own failures.
HGLOBAL stream_open_procedure(const char *name, intptr_t procedure, const intptr_t *statusRecord);

// An output stream on the named file, created or truncated.
HGLOBAL stream_open_file(const char *name);

// An output stream on a new one-byte memory block. *block receives the block
// (0 when none could be had) and *data its locked address; the stream keeps
// *data pointing at the block as it moves it while growing, so *data must
// outlive the stream and names the block once it is closed. 0 when the block
// or the stream could not be had; the block is then left to the caller.
HGLOBAL stream_open_memory(HGLOBAL *block, void **data);

// For a variable that is about to go away with the block it lies in: when
// `stream` is a memory output that keeps *from up to date, it keeps *to from
// now on, which takes *from's value. Any other stream is left as it is.
void stream_move_memory_ref(HGLOBAL stream, void **from, void **to);

#endif
