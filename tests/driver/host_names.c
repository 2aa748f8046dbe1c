// A host with functions of its own named split, escape, strupr and
// LoadString, as graphics applications often have: it must compile against
// the host's header, link with the library, and the library must keep
// calling its own functions of those names (CreateSetup upper-cases the
// module name with strupr and finds its profile keys with LoadString).
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "tolva/tolva.h"

static int hostCalls = 0;

int split(const char *text, char separator, char **parts, int most) {
    (void)text, (void)separator, (void)parts, (void)most;
    return ++hostCalls;
}
void escape(char *text) { (void)text, ++hostCalls; }
int strupr(char *text, size_t size) {
    (void)text, (void)size;
    return ++hostCalls;
}
int LoadString(void *instance, unsigned id, char *buffer, int size) {
    (void)instance, (void)id, (void)buffer, (void)size;
    return ++hostCalls;
}

int main(void) {
    char profile[] = "/tmp/tolva-names-XXXXXX";
    int fd = mkstemp(profile);
    if (fd < 0) return 1;
    static const char text[] = "[Test]\nDriver=GIF\nX Resolution=150\n";
    int written = (int)write(fd, text, sizeof text - 1) == (int)sizeof text - 1;
    close(fd);

    HGLOBAL setup = CreateSetup(0, profile, "Test", 0);
    const SetupBlock *block = (const SetupBlock *)GlobalLock(setup);
    int ok = written && block != NULL && block->xResolution == 150 &&
             strcmp(block->driverName, "GIF") == 0 && strcmp(szFilter, "TOLVA") == 0 &&
             hostCalls == 0;
    if (!ok)
        fprintf(stderr, "host_names: resolution %d, driver %s, module %s, host calls %d\n",
                block ? block->xResolution : -1, block ? block->driverName : "-", szFilter,
                hostCalls);
    (void)DestroySetup(setup);
    unlink(profile);
    return ok ? 0 : 1;
}
