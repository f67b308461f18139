#include "pvrm/stages.h"

#include "transaction/stage_area.h"

bool clear_stages(vrm_handle *repository, const vrt &transaction) {
    bool cleared = vrm_clear_stage(repository, transaction.info) == 0;
    for (int32_t i = 0; transaction.deps && i < transaction.num_deps; i++) {
        const vrd *dep = transaction.deps[i];
        if (dep->info && dep->action != 'N') {
            cleared = vrm_clear_stage(repository, dep->info) == 0 && cleared;
        }
    }
    return cleared;
}
