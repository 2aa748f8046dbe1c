// The host's status callback: progress reports and the stop request.
//
// Every call to the host's status function goes through CallGetSet_Status.
// When the host answers a plain status query with "stop", it is asked once
// more for the stop's detail, and that second answer is what counts. A stop
// becomes error 901. A missing record, function or block means "go on".
#include "driver/driver.h"

namespace {

StatusFunction status_function(const intptr_t *record) {
    return reinterpret_cast<StatusFunction>(record[TOLVA_STATUS_FUNCTION]);
}

}  // namespace

extern "C" {

int32_t CallGetSet_Status(StatusFunction fn, intptr_t context, intptr_t a, intptr_t b, intptr_t c,
                          intptr_t d, intptr_t e, intptr_t f) {
    if (fn == nullptr) return 0;
    int32_t r = fn(context, a, b, c, d, e, f);
    if (r != 0 && a == 0 && b == 0) {
        // The detail itself is not used; the host only needs to be asked.
        int32_t detail[TOLVA_STATUS_DETAIL_WORDS] = {};
        r = fn(context, TOLVA_STATUS_DETAIL, TOLVA_STATUS_DETAIL_CODE, 0, 0, 0,
               reinterpret_cast<intptr_t>(detail));
    }
    return r;
}

int32_t RASTER_escape(void) {
    if (lpEMData == nullptr || lpEMData->statusRecord == nullptr) return 0;
    const intptr_t *record = lpEMData->statusRecord;
    int32_t r =
        CallGetSet_Status(status_function(record), record[TOLVA_STATUS_CONTEXT], 0, 0, 0, 0, 0, 0);
    if (r == 0) return 0;
    push_er(TOLVA_ERR_STOPPED);
    return TOLVA_ERR_STOPPED;
}

int32_t escape(void) {
    const CommonBlock *common = static_cast<const CommonBlock *>(lpCommon);
    if (common == nullptr || common->statusRecord == nullptr) return 0;
    const intptr_t *record = common->statusRecord;
    int32_t r = CallGetSet_Status(status_function(record), record[TOLVA_STATUS_CONTEXT], 0, 0, 0,
                                  common->statusValue, 0, 0);
    if (r == 0) return 0;
    push_er(TOLVA_ERR_STOPPED);
    return TOLVA_ERR_STOPPED;
}

int32_t UpdateStatus(int32_t value) {
    if (lpRaster == nullptr || lpRaster->statusRecord == nullptr) return 0;
    const intptr_t *record = lpRaster->statusRecord;
    if (record[TOLVA_STATUS_FUNCTION] == 0) return 0;
    int32_t r = CallGetSet_Status(status_function(record), record[TOLVA_STATUS_CONTEXT], 0, 0, 0,
                                  value, 0, 0);
    return r != 0 ? TOLVA_ERR_STOPPED : 0;
}

}  // extern "C"
