/*
 * tolva/profile.h - profile (INI) files.
 *
 * Exported from libtolva for programs that call these parts directly; a host
 * that only drives the filter needs tolva/tolva.h alone.
 */
#ifndef TOLVA_PROFILE_H
#define TOLVA_PROFILE_H

#include <tolva/tolva.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------ */
/* Host services: profile (INI) files                                         */
/* ------------------------------------------------------------------------ */

/*
 * Profile files are lines of "[section]" headers, "key=value" lines and ";"
 * comments, with any line end. Lines are read in pieces of at most 256
 * characters; a last line without a line end is never seen, and a rewrite
 * drops it. Section and key names match without regard to case.
 */

/**
 * GetPrivateProfileString: with a key, copies the key's value (one pair of
 * surrounding double quotes removed) over the start of buffer, at most size
 * characters and without a terminator, after buffer has been zero-filled and
 * given the default (cut to size); returns the number of characters copied,
 * or the default's length when the key is not found or the file does not
 * open. Without a key, lists the section's key names, each followed by a
 * zero byte and one more zero after the last, and returns the default's
 * length plus the names' lengths (see the overflow rule of the format). A
 * null or empty section or a null default returns 0 and leaves buffer alone.
 * The key is compared with the text before "=" as it stands, spaces
 * included. Nothing is written outside buffer's size bytes.
 */
TOLVA_API int32_t GetPrivateProfileString(const char *section, const char *key, const char *def,
                                          char *buffer, int32_t size, const char *file);
/**
 * GetPrivateProfileInt: the value as "0x" hexadecimal (wrapping at 32 bits)
 * or as leading decimal digits (no sign); def when the value is empty or
 * missing; 0 when it does not parse.
 */
TOLVA_API int32_t GetPrivateProfileInt(const char *section, const char *key, int32_t def,
                                       const char *file);
/**
 * WritePrivateProfileString: sets key=value in the section (appending the
 * section at the end of the file when it is not there), or with value null
 * deletes the key (and the section's header when nothing else is left in
 * it), or with key null deletes the section. The file is found as INIopen
 * finds it and rewritten whole, keeping its line end; the new file replaces
 * the old one by a rename, so on failure the old file is unchanged. Returns
 * 1 when the file was rewritten, 0 when nothing was changed (null section or
 * file, a path of 260 characters or more, no temporary file, a failed
 * write).
 */
TOLVA_API int32_t WritePrivateProfileString(const char *section, const char *key,
                                            const char *value, const char *file);
/** GetProfileString, GetProfileInt, WriteProfileString: the same on "ZUN.INI". */
TOLVA_API int32_t GetProfileString(const char *section, const char *key, const char *def,
                                   char *buffer, int32_t size);
TOLVA_API int32_t GetProfileInt(const char *section, const char *key, int32_t def);
TOLVA_API int32_t WriteProfileString(const char *section, const char *key, const char *value);

/**
 * INIopen: opens name with zunOpen(name, NULL, mode), and when that fails
 * INIDIR "/" name (INIDIR's own trailing "/" is not doubled). When
 * nameBufferSize is non-zero the path that opened is copied into name, at
 * most nameBufferSize bytes (without terminator when it does not fit).
 * Returns the stream, which INIclose closes, or 0.
 */
TOLVA_API HGLOBAL INIopen(char *name, int32_t nameBufferSize, uint32_t mode);
/** INIclose: closes a non-null stream; zunClose's result, 0 for 0. */
TOLVA_API int32_t INIclose(HGLOBAL stream);
/**
 * GetProfileDirectory: finds a profile for reading, looking in INIDIR first
 * (when it is set, not empty and under 144 characters) and then as named.
 * An empty name becomes module's base name with ".ini". name is a buffer of
 * TOLVA_PROFILE_NAME_SIZE (144) bytes and receives the path that opened; a
 * path that would not fit is not used. Returns 0 when found, 1 when not.
 */
TOLVA_API int32_t GetProfileDirectory(char *name, const char *module);
#define TOLVA_PROFILE_NAME_SIZE 144
/**
 * CleanProfileLine: in place, removes CR, LF, double quotes (a doubled one
 * leaves one; keep bit 0x4 keeps them all) and "[" "]" (keep bit 0x1 keeps
 * them), cuts the text at its first ";" and strips spaces at both ends.
 * Returns text.
 */
TOLVA_API char *CleanProfileLine(char *text, int32_t keep);
/** CutProfileComment: ends text at its first ";". Returns text. */
TOLVA_API char *CutProfileComment(char *text);
/**
 * TrimProfileChar: strips ch at both ends, moving the rest to the start; for
 * the double quote at most one at each end, for any other character all of
 * them. Returns text.
 */
TOLVA_API char *TrimProfileChar(char *text, int32_t ch);
/** ParseProfileNumber: the integer syntax of GetPrivateProfileInt; 0 when text does not parse. */
TOLVA_API int32_t ParseProfileNumber(const char *text);

#ifdef __cplusplus
}
#endif

#endif /* TOLVA_PROFILE_H */
