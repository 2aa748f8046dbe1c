// Internal view of the profile (INI) files: the sizes the reader and the
// writer share.
#ifndef TOLVA_PROFILE_PROFILE_H
#define TOLVA_PROFILE_PROFILE_H

#include "tolva/host.h"
#include "tolva/profile.h"
#include "tolva/stream.h"

// The profile calls read and write through the streams, so they sit above
// them (and above the host services); nothing below the settings uses them.

// What CleanProfileLine keeps: by default it removes brackets and quotes.
constexpr int32_t kProfileKeepNothing = 0x0;
constexpr int32_t kProfileKeepBrackets = 0x1;
constexpr int32_t kProfileKeepQuotes = 0x4;

// A profile line is read in pieces of at most this many characters; a longer
// line comes back as several lines. One more byte holds the terminator.
constexpr int32_t kProfileLineSize = 256;

// The writer's path buffer, as the platform's path limit.
constexpr int32_t kProfilePathSize = 260;

// The profile file of the calls that take no file name.
constexpr const char *kDefaultProfile = "ZUN.INI";

// Reads the next line of a profile into line[kProfileLineSize + 1], always
// terminated. False at the end of the file, which includes a last line that
// has no line end: such a line is never seen by the profile calls.
bool profile_read_line(HGLOBAL stream, char *line);

// INIopen's search: the name as given, then under INIDIR. When `found` is
// given, the path that opened is copied into it, at most foundSize bytes
// (without terminator when it does not fit).
HGLOBAL profile_open(const char *name, char *found, int32_t foundSize, uint32_t mode);

#endif
