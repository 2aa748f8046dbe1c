/*
 * messages.c - one table that gives every result code of the filter a
 * message a person can act on. A code added to the protocol must be added
 * here too; the static assertion counts them.
 */
#include "messages.h"

#include <assert.h>

#include <tolva/tolva.h>

typedef struct Message {
    int32_t code;
    const char *text;
} Message;

static const Message kMessages[] = {
    {TOLVA_ERR_WORK_BUFFER, "the filter could not allocate a work buffer (out of memory?)"},
    {TOLVA_ERR_NO_SETUP, "the filter's settings block is missing"},
    {TOLVA_ERR_NO_PICTURE, "the filter could not obtain the picture"},
    {TOLVA_ERR_MEMORY, "out of memory, or the filter could not run the export"},
    {TOLVA_ERR_STREAM, "cannot write the output file"},
    {TOLVA_ERR_STOPPED, "cancelled"},
};

/* 21, 22, 27, 300, 303 and 901: the codes the filter reports. */
static_assert(sizeof kMessages / sizeof kMessages[0] == 6, "one message per filter code");

const char *tolva_filter_message(int32_t code)
{
    for (unsigned i = 0; i < sizeof kMessages / sizeof kMessages[0]; ++i) {
        if (kMessages[i].code == code) {
            return kMessages[i].text;
        }
    }
    return "the filter reported an unknown error";
}
