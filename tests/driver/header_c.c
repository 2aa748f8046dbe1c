/* The public header as a C99 host sees it: it must compile as C, and its
 * records must have the same layout as in C++. */
#include "tolva/tolva.h"

size_t tolva_c_layout(int which) {
    switch (which) {
        case 0: return sizeof(EMData);
        case 1: return offsetof(EMData, firstError);
        case 2: return offsetof(EMData, deviceWindow);
        case 3: return offsetof(EMData, replyBuffer);
        case 4: return offsetof(EMData, statusRecord);
        case 5: return offsetof(EMData, cellFlag);
        case 6: return sizeof(SetupBlock);
        case 7: return offsetof(SetupBlock, outputDevice);
        case 8: return sizeof(TolvaNameEntry);
        case 9: return sizeof(CommonBlock);
        case 10: return sizeof(TolvaPicture);
        default: return 0;
    }
}
