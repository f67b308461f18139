#include "pvrm/named_files.h"

#include <utility>

#include "package/vrf.h"
#include "pvrm/engine_report.h"
#include "support/arch.h"

void named_files::read(session &work, const std::vector<std::string> &requests) {
    if (are_read_) {
        return;
    }
    are_read_ = true;
    const int32_t own_arch = work.repository()->arch;
    for (const std::string &request : requests) {
        if (!vrk_file_is_vrk(request.c_str())) {
            continue;
        }
        keep_reasons();
        own_vri record(vrm_vrf_info(work.repository(), request.c_str(), 0));
        take_reasons();
        if (!record || record->name[0] == '\0' ||
            (record->arch != arch_any && record->arch != own_arch)) {
            continue;
        }
        const size_t at = files_.size();
        by_request_.emplace(request, at);
        if (record->absolute_uri) {
            by_path_.emplace(record->absolute_uri, at);
        }
        by_name_[record->name].push_back(at);
        given_.files.emplace(record->name, record.get());
        files_.push_back({request, std::move(record)});
    }
    serves_others_ = !files_.empty() && requests.size() > 1;
}

const named_files::named_file *named_files::file_of(const std::string &request) const {
    const auto place = by_request_.find(request);
    return place == by_request_.end() ? nullptr : &files_[place->second];
}

const vri *named_files::record_of(const std::string &request) const {
    const named_file *const file = file_of(request);
    return file ? file->record.get() : nullptr;
}

// The first of a name that can be used serves.
void named_files::choose(const std::string &name) {
    given_.files.erase(name);
    for (const size_t at : by_name_.at(name)) {
        if (files_[at].is_usable) {
            given_.files.emplace(name, files_[at].record.get());
            return;
        }
    }
}

void named_files::set_usable(const std::string &request, bool is_usable) {
    const auto place = by_request_.find(request);
    if (place == by_request_.end() || files_[place->second].is_usable == is_usable) {
        return;
    }
    named_file &file = files_[place->second];
    file.is_usable = is_usable;
    if (is_usable) {
        unusable_--;
    } else {
        unusable_++;
    }
    choose(file.record->name);
}

bool named_files::has_unusable_besides(const std::string &request) const {
    const named_file *const own = file_of(request);
    return unusable_ > (own && !own->is_usable ? 1U : 0U);
}

const given_packages &named_files::given_for(const std::string &request) {
    given_.coming.clear();
    if (const vri *own = record_of(request)) {
        given_.coming.emplace(own->name, own);
    }
    return given_;
}

const vrd *named_files::unusable_part(const vrt &transaction) const {
    for (int32_t i = 0; unusable_ > 0 && transaction.deps && i < transaction.num_deps; i++) {
        const vrd *dep = transaction.deps[i];
        if (dep->status != 'L' || !dep->info || !dep->info->absolute_uri) {
            continue;
        }
        const auto place = by_path_.find(dep->info->absolute_uri);
        if (place != by_path_.end() && !files_[place->second].is_usable) {
            return dep;
        }
    }
    return nullptr;
}
