/*
 * tolva/host.h - memory handles and the string and numeric helpers.
 *
 * Exported from libtolva for programs that call these parts directly; a host
 * that only drives the filter needs tolva/tolva.h alone.
 */
#ifndef TOLVA_HOST_H
#define TOLVA_HOST_H

#include <tolva/tolva.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Allocation flags used throughout: movable and zero-initialised. */
#define TOLVA_GMEM_FLAGS 66

/* ------------------------------------------------------------------------ */
/* Host services: memory handles                                             */
/* ------------------------------------------------------------------------ */

/**
 * GlobalAlloc: a zero-filled block of `size` bytes whose data starts on an
 * 8-byte boundary behind a small header; the handle is the header's address.
 * The flags are stored, never interpreted. When the system allocator fails the
 * process prints a line to standard output and aborts: 0 is never returned.
 */
TOLVA_API HGLOBAL GlobalAlloc(uint32_t flags, uint32_t size);
/**
 * GlobalReAlloc: a new block with the old data (up to the smaller size); the
 * old block is freed even when the new allocation fails (the result is then 0).
 */
TOLVA_API HGLOBAL GlobalReAlloc(HGLOBAL h, uint32_t size, uint32_t flags);
/** GlobalHandle: the handle of a locked data address; 0 for 0. */
TOLVA_API HGLOBAL GlobalHandle(const void *address);
/** GlobalSize: the size asked for at allocation. */
TOLVA_API uint32_t GlobalSize(HGLOBAL h);
/** GlobalPointerToHandle: a bare header describing memory the caller keeps. */
TOLVA_API HGLOBAL GlobalPointerToHandle(void *address, uint32_t size);
/** GlobalCompact: the argument, or 65536 for 0. */
TOLVA_API uint32_t GlobalCompact(uint32_t bytes);

/* ------------------------------------------------------------------------ */
/* Host services: string and numeric helpers                                  */
/* ------------------------------------------------------------------------ */

TOLVA_API char *strupr(char *s);
TOLVA_API char *strlower(char *s);
TOLVA_API char *strlwr(char *s);
/** Case-insensitive comparison; the sign is reversed (positive when a sorts first). */
TOLVA_API int32_t stricmp(const char *a, const char *b);
/** Compares exactly n bytes, past terminators too; reversed sign like stricmp. */
TOLVA_API int32_t strnicmp(const char *a, const char *b, int32_t n);
TOLVA_API char *s_getpath(char *destination, const char *path);
TOLVA_API char *s_getname(char *destination, const char *path);
/** x when x > 0.0, else -x (so 0.0 gives -0.0). */
TOLVA_API double dabs(double x);
/** 1 when |a - b| <= tolerance (unsigned comparison), else 0. */
TOLVA_API int32_t feqi(int32_t a, int32_t b, int32_t tolerance);
/** Rounds half away from zero. */
TOLVA_API int32_t roundd(double x);

#ifdef __cplusplus
}
#endif

#endif /* TOLVA_HOST_H */
