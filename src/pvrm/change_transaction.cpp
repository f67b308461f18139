#include "pvrm/change_transaction.h"

#include <cstdlib>
#include <cstring>

#include "transaction/stage_area.h"

std::vector<std::string> names_of(const vrt &transaction) {
    std::vector<std::string> names = {transaction.info->name};
    for (int32_t i = 0; i < transaction.num_deps; i++) {
        const vrd *dep = transaction.deps[i];
        if (dep->info && dep->action != 'N') {
            names.emplace_back(dep->info->name);
        }
    }
    return names;
}

void drop_deps(vrt *transaction, const std::function<bool(const vrd &)> &is_unwanted) {
    int32_t kept = 0;
    for (int32_t i = 0; i < transaction->num_deps; i++) {
        vrd *dep = transaction->deps[i];
        if (!is_unwanted(*dep)) {
            transaction->deps[kept++] = dep;
            continue;
        }
        if (dep->info) {
            transaction->tot_file_size -= dep->info->filesize;
            transaction->tot_data_size -= dep->info->datasize;
        }
        vrd_free(dep);
        free(dep);
    }
    transaction->num_deps = kept;
    if (kept > 0) {
        transaction->deps[kept] = nullptr;
    } else {
        free(transaction->deps);
        transaction->deps = nullptr;
    }
}

static vrd *new_part(const removal_plan::part &part, const vri *installed) {
    own_vri record(vrk_info_copy(installed));
    own_heap<vrd> made(static_cast<vrd *>(calloc(1, sizeof(vrd))));
    own_string name(strdup(part.name.c_str())), needed_by(strdup(part.needed_by.c_str()));
    if (!made || !record || !name || !needed_by) {
        return nullptr;
    }
    made->status = 'I';
    made->action = 'D';
    made->name = name.release();
    made->cand = needed_by.release();
    made->info = record.release();
    return made.release();
}

own_vrt removal_transaction(const removal_plan::removal &planned,
                            const std::vector<const vri *> &installed) {
    own_vrt made(static_cast<vrt *>(calloc(1, sizeof(vrt))));
    if (!made || !(made->name = strdup(planned.name.c_str())) ||
        !(made->info = vrk_info_copy(installed[planned.place]))) {
        return nullptr;
    }
    made->source = 'L';
    made->action = 'D';
    made->mark = 'N';
    made->tot_file_size = made->info->filesize;
    made->tot_data_size = made->info->datasize;
    if (planned.parts.empty()) {
        return made;
    }
    made->deps = static_cast<vrd **>(calloc(planned.parts.size() + 1, sizeof(vrd *)));
    for (size_t i = 0; made->deps && i < planned.parts.size(); i++) {
        const removal_plan::part &part = planned.parts[i];
        if (!(made->deps[i] = new_part(part, installed[part.place]))) {
            return nullptr;
        }
        made->num_deps++;
        made->tot_file_size += made->deps[i]->info->filesize;
        made->tot_data_size += made->deps[i]->info->datasize;
    }
    return made->deps ? std::move(made) : nullptr;
}

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
