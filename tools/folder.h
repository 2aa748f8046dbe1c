/*
 * folder.h - the inputs of a batch, with each folder among them standing for
 * the pictures in it.
 */
#ifndef TOLVA_TOOLS_FOLDER_H
#define TOLVA_TOOLS_FOLDER_H

#ifdef __cplusplus
extern "C" {
#endif

/* Whether `path` names a folder (a link to one included). */
int tolva_is_folder(const char *path);

/*
 * The batch's inputs, in the order given, except that a folder is replaced
 * by the pictures directly in it, in name order: its regular files (links to
 * them included) whose names do not start with a dot and whose first bytes
 * are a format the command reads. Other files are passed over without a word;
 * a folder that cannot be listed, or holds no such picture, gets a one-line
 * message on standard error and adds one to *failed. Returns the list, which
 * tolva_free_inputs releases, with its length in *count; NULL when memory
 * runs out.
 */
char **tolva_expand_inputs(char *const *inputs, int inputCount, int *count, int *failed);

void tolva_free_inputs(char **inputs, int count);

#ifdef __cplusplus
}
#endif

#endif
