// Internal view of the memory handles: the allocator hooks behind GlobalAlloc.
#ifndef TOLVA_HOST_MEMORY_H
#define TOLVA_HOST_MEMORY_H

#include <stddef.h>

#include "tolva/host.h"

// The system allocator as every handle function reaches it.
void *host_calloc(size_t count, size_t size);
void *host_malloc(size_t size);
void *host_realloc(void *block, size_t size);

// Enters the pages of a range that is about to be written whole in one go,
// where writing would fault once a page. Does nothing for a small range, or
// where the system cannot.
void host_populate(void *data, size_t bytes);

// Test-only: make the Nth allocation from now on fail (0 switches it off).
// GlobalAlloc aborts on failure, so this reaches GlobalPointerToHandle's
// failure path and lets death tests check the abort message.
void host_fail_allocation(long nth);

#endif
