// The public headers as a C99 program sees them: they must compile as C, and
// the host's records must have the same sizes as in C++.
#include "tolva/tolva.h"

#include "tolva/driver.h"
#include "tolva/host.h"
#include "tolva/output.h"
#include "tolva/profile.h"
#include "tolva/raster.h"
#include "tolva/settings.h"
#include "tolva/stream.h"

const size_t tolva_c_sizes[] = {sizeof(EMData), sizeof(SetupBlock), sizeof(CommonBlock),
                                sizeof(TolvaNameEntry), sizeof(TolvaPicture)};
