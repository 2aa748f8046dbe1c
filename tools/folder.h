/*
 * folder.h - the inputs of a batch, with each folder among them standing for
 * the pictures in it.
 */
#ifndef TOLVA_TOOLS_FOLDER_H
#define TOLVA_TOOLS_FOLDER_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct TolvaInputs {
    char **paths; /* each picture to read */
    char **names; /* where its GIF goes below DIR, before the extension changes */
    int count;
} TolvaInputs;

/* Whether `path` names a folder (a link to one included). */
int tolva_is_folder(const char *path);

/*
 * The batch's inputs, in the order given, except that a folder is replaced
 * by the pictures in it, in name order: its regular files (links to them
 * included) whose names do not start with a dot and whose first bytes are a
 * format the command reads (or that cannot be opened to tell, so that their
 * conversions say why); with `recursive`, those of its subfolders too
 * (not hidden ones, nor links to folders, which could lead back up). A
 * file's name is its file name, or with `recursive` its path below the folder
 * given. The output folder `outputDir` is never looked into as a subfolder.
 * Other files are passed over without a word; a folder that cannot be
 * listed, or holds no picture at all, gets a one-line message on standard
 * error and adds one to *failed. Returns 0, or -1 when memory runs out.
 */
int tolva_expand_inputs(char *const *inputs, int inputCount, int recursive, const char *outputDir,
                        TolvaInputs *list, int *failed);

void tolva_free_inputs(TolvaInputs *list);

#ifdef __cplusplus
}
#endif

#endif
