// The public header as a C99 host sees it: it must compile as C, and its
// records must have the same sizes as in C++.
#include "tolva/tolva.h"

const size_t tolva_c_sizes[] = {sizeof(EMData), sizeof(SetupBlock), sizeof(CommonBlock),
                                sizeof(TolvaNameEntry), sizeof(TolvaPicture)};
