// Init and term of the export-filter variant.
//
// This variant keeps its state in the host's settings block (lpRaster) and
// renders a platform metafile at term. The metafile hooks are stubs on this
// platform, so term never has a metafile and always ends with 300; the
// variant is kept complete because a host may load either entry.
#include <string.h>

#include "driver/driver.h"
#include "stream/sinks.h"

namespace {

intptr_t status_word(const intptr_t *record, int index) {
    return record != nullptr ? record[index] : 0;
}

// Copies the host's name, cut to the field; false when it had to be cut.
bool copy_name(char (&field)[144], const char *name) {
    size_t n = name != nullptr ? strnlen(name, sizeof field) : 0;
    const bool fits = n < sizeof field;
    if (!fits) --n;
    if (n != 0) memcpy(field, name, n);
    field[n] = '\0';
    return fits;
}

// Opens the output stream into raster->outputStream; 0 or the init result.
int32_t open_output(SetupBlock *raster) {
    if (raster->outputDevice != 0) {
        // The host's I/O procedure reports its own failures; a null stream
        // here is not checked.
        raster->outputStream =
            stream_open_procedure(raster->fileName, raster->outputDevice, raster->statusRecord);
        return TOLVA_OK;
    }
    if (raster->fileName[0] != '\0') {
        raster->outputStream = stream_open_file(raster->fileName);
    } else {
        raster->outputStream =
            stream_open_memory(&raster->exportMemoryBlock, &raster->exportMemoryData);
        if (raster->exportMemoryBlock == 0) return TOLVA_ERR_WORK_BUFFER;
    }
    return raster->outputStream == 0 ? TOLVA_ERR_STREAM : TOLVA_OK;
}

// The colour class that the host's property callback is told about.
int32_t colour_class(int32_t colourMode) {
    switch (colourMode) {
    case TOLVA_COLOUR_INVERT:
        return 102;
    case TOLVA_COLOUR_INVERT_GREY:
        return 103;
    case TOLVA_COLOUR_GREY:
        return 104;
    case TOLVA_COLOUR_INVERT_LUMINANCE:
        return 105;
    default:
        return 101;
    }
}

}  // namespace

extern "C" {

int32_t initdvr(intptr_t *block) {
    if (block == nullptr) return TOLVA_ERR_NO_SETUP;
    hRaster = static_cast<HGLOBAL>(block[TOLVA_EXPORT_INIT_SETUP]);
    lpRaster = static_cast<SetupBlock *>(GlobalLock(hRaster));
    if (hRaster == 0 || lpRaster == nullptr) return TOLVA_ERR_NO_SETUP;
    SetupBlock *raster = lpRaster;

    intptr_t *record = reinterpret_cast<intptr_t *>(block[TOLVA_EXPORT_INIT_STATUS_RECORD]);
    raster->statusRecord = record;
    intptr_t callback = 0;
    raster->hookResult = InitPlatformMetafileFilter(
        block[TOLVA_EXPORT_INIT_HOOK_A], block[TOLVA_EXPORT_INIT_HOOK_B], record, &raster->metafile,
        &hSetup, &raster->metafileAux, &callback);

    char *hostName = reinterpret_cast<char *>(block[TOLVA_EXPORT_INIT_FILE_NAME]);
    // A file under the start of a longer name would be one the host never
    // asked for; a host I/O procedure makes of the name what it will.
    if (!copy_name(raster->fileName, hostName) && raster->outputDevice == 0)
        return TOLVA_ERR_STREAM;

    int32_t opened = open_output(raster);
    if (opened != TOLVA_OK) return opened;

    // The name now lives in the settings block; the host's copy is cleared.
    if (hostName != nullptr) hostName[0] = '\0';
    raster->statusValue = status_word(record, TOLVA_STATUS_VALUE);
    block[TOLVA_EXPORT_INIT_SETUP] = static_cast<intptr_t>(hSetup);

    int32_t colours = colour_class(raster->colourMode);
    int32_t fonts = AltFontsAvailable() != 0 ? 111 : 110;
    if (callback != 0) {
        auto property = reinterpret_cast<TolvaPropertyCallback>(callback);
        intptr_t setup = block[TOLVA_EXPORT_INIT_SETUP];
        int32_t device = 130;
        int32_t one = 1;
        // Each answer is the host's business; init goes on regardless.
        (void)property(setup, 1, 4, &colours, 0, 0);
        (void)property(setup, 2, 4, &fonts, 0, 0);
        (void)property(setup, 6, 4, &device, 0, 0);
        (void)property(setup, 5, 4, &raster->exportWord, 0, 0);
        (void)property(setup, 3, 4, &one, 0, 0);
    }
    return TOLVA_OK;
}

int32_t termdvr(int32_t) {
    SetupBlock *raster = lpRaster;
    intptr_t descriptor[TOLVA_METAFILE_WORDS];
    memset(descriptor, 0, sizeof descriptor);

    int32_t result = TOLVA_ERR_MEMORY;
    int32_t hook = 0;
    if (raster != nullptr) {
        descriptor[TOLVA_METAFILE_HANDLE] =
            GetMetaFileHandle(raster->metafile, raster->metafileAux);
        for (int i = 0; i < 4; ++i)
            descriptor[TOLVA_METAFILE_BOUNDS + i] =
                static_cast<intptr_t>(raster->pageCoordinates[i]);
        descriptor[TOLVA_METAFILE_RESOLUTION] = roundd(static_cast<double>(raster->pageResolution));
        for (int i = 0; i < 5; ++i)
            descriptor[TOLVA_METAFILE_STATUS + i] =
                status_word(raster->statusRecord, TOLVA_STATUS_PICTURE + i);
        descriptor[TOLVA_METAFILE_WORD] = raster->metafile;

        // Without a metafile (always, on this platform) there is nothing to
        // draw, and that is reported as 300.
        if (descriptor[TOLVA_METAFILE_HANDLE] != 0 && escape() == 0) {
            result = OutputPicture(raster->outputStream, descriptor, DrawPlatformMetafile);
            if (escape() != 0) (void)zunOpen(raster->fileName, nullptr, TOLVA_STREAM_DELETE);
        }
        (void)DeleteMetaFileHandle(descriptor[TOLVA_METAFILE_HANDLE]);
        hook = TermPlatformMetafileFilter(raster->hookResult);
        if (raster->outputStream != 0) {
            if (zunClose(raster->outputStream) != 0) result = TOLVA_ERR_STREAM;
            raster->outputStream = 0;
        }
    }
    return result == TOLVA_OK ? hook : result;
}

}  // extern "C"
