/*
 * messages.h - what the filter's result codes mean to the person at the
 * terminal.
 */
#ifndef TOLVA_TOOLS_MESSAGES_H
#define TOLVA_TOOLS_MESSAGES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The message for a filter code; a generic text for an unknown one. */
const char *tolva_filter_message(int32_t code);

#ifdef __cplusplus
}
#endif

#endif
