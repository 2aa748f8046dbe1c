// The exported data of the settings: the module name, the module path a host
// writes in, and the two handle/pointer pairs through which the Setup block is
// reached.
//
// szFilter must point at writable memory: CreateSetup upper-cases the module
// name in place, and every later use (the profile section, the driver name)
// expects the upper-case form.
#include "settings/settings.h"
#include "tolva/tolva.h"

namespace {
char g_module_name[] = "tolva";
}  // namespace

void (*settings_leaving)(SetupBlock *block) = nullptr;

extern "C" {

char *szFilter = g_module_name;
char export_szDLLName[260] = {};
HGLOBAL hRaster = 0;
SetupBlock *lpRaster = nullptr;
HGLOBAL hSetup = 0;
SetupBlock *lpSetup = nullptr;

}  // extern "C"
