#include "pvrm/plan_view.h"

#include <cstdio>
#include <cstring>

#include "pvrm/columns.h"
#include "support/arch.h"
#include "support/vdef.h"

plan_view::~plan_view() {
    vrm_vra_list_free(list_);
}

static const char *origin_of(char letter) {
    return letter == 'R' ? "catalogue" : "file";
}

void plan_view::add(const vrt &transaction, const std::string &remark) {
    const auto count = static_cast<size_t>(vrm_vra_list_add_vrt(&transaction, &list_));
    for (size_t i = lines_.size(); i < count; i++) {
        // The list tells what is done to which package; where it comes from and for whose sake is
        // told by the transaction that brought it in.
        line added = {origin_of(transaction.source), remark};
        for (int32_t d = 0; d < transaction.num_deps; d++) {
            const vrd *dep = transaction.deps[d];
            if (dep->info && strcmp(dep->info->name, list_[i]->name) == 0 &&
                strcmp(transaction.info->name, list_[i]->name) != 0) {
                added = {origin_of(dep->status), std::string("needed by ") + dep->cand};
                break;
            }
        }
        lines_.push_back(added);
        unique_names_.insert(vrk_puname(list_[i]->info));
    }
}

bool plan_view::covers(const vrt &transaction) const {
    const auto is_shown = [this](const vri *package) {
        return unique_names_.contains(vrk_puname(package));
    };
    for (int32_t i = 0; i < transaction.num_deps; i++) {
        const vrd *dep = transaction.deps[i];
        if (dep->info && dep->action != 'N' && !is_shown(dep->info)) {
            return false;
        }
    }
    return is_shown(transaction.info);
}

void plan_view::print() const {
    std::vector<std::vector<std::string>> rows = {
        {"Package", "Version", "Variant", "Architecture", "From", "Package file", "Installed", ""}};
    uint64_t file_sizes = 0, data_sizes = 0;
    for (size_t i = 0; i < lines_.size(); i++) {
        const vri *package = list_[i]->info;
        const char *arch = vrm_arch_getname(package->arch);
        rows.push_back({package->name, package->version, package->variant ? package->variant : "-",
                        arch ? arch : "unknown", lines_[i].origin, nice_size(package->filesize),
                        nice_size(package->datasize), lines_[i].reason});
        file_sizes += package->filesize;
        data_sizes += package->datasize;
    }
    print_columns(rows);
    printf("%zu package%s, %s of package files, %s when installed\n", lines_.size(),
           lines_.size() == 1 ? "" : "s", nice_size(file_sizes).c_str(),
           nice_size(data_sizes).c_str());
    fflush(stdout);
}

void plan_view::print_removal() const {
    std::vector<std::vector<std::string>> rows = {
        {"Package", "Version", "Variant", "Architecture", "Installed", ""}};
    uint64_t data_sizes = 0;
    for (size_t i = 0; i < lines_.size(); i++) {
        const vri *package = list_[i]->info;
        const char *arch = vrm_arch_getname(package->arch);
        rows.push_back({package->name, package->version, package->variant ? package->variant : "-",
                        arch ? arch : "unknown", nice_size(package->datasize),
                        (lines_[i].reason.empty() ? "" : "was ") + lines_[i].reason});
        data_sizes += package->datasize;
    }
    print_columns(rows);
    printf("%zu package%s to remove, %s installed\n", lines_.size(), lines_.size() == 1 ? "" : "s",
           nice_size(data_sizes).c_str());
    fflush(stdout);
}
