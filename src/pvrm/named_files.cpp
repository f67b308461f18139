#include "pvrm/named_files.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "package/vrf.h"
#include "pvrm/engine_report.h"

void named_files::read(session &work, const std::vector<std::string> &requests) {
    if (are_read_ || requests.size() < 2) {
        return;
    }
    are_read_ = true;
    for (const std::string &request : requests) {
        if (!vrk_file_is_vrk(request.c_str())) {
            continue;
        }
        keep_reasons();
        own_vri record(vrm_vrf_info(work.repository(), request.c_str(), 0));
        take_reasons();
        if (record && record->name[0] != '\0') {
            files_.push_back({request, std::move(record)});
        }
    }
}

const vri *named_files::record_of(const std::string &request) const {
    const auto file = std::find_if(files_.begin(), files_.end(),
                                   [&](const named_file &one) { return one.request == request; });
    return file == files_.end() ? nullptr : file->record.get();
}

given_packages named_files::given_for(const std::string &request) const {
    given_packages given;
    for (const named_file &file : files_) {
        if (!unusable_.contains(file.request)) {
            auto &place = file.request == request ? given.coming : given.files;
            place.emplace(file.record->name, file.record.get());
        }
    }
    return given;
}

bool named_files::has_unusable_part(const vrt &transaction) const {
    const auto is_from = [](const vrd *dep, const named_file &file) {
        return dep->status == 'L' && dep->info && dep->info->absolute_uri &&
               file.record->absolute_uri &&
               strcmp(dep->info->absolute_uri, file.record->absolute_uri) == 0;
    };
    return std::any_of(files_.begin(), files_.end(), [&](const named_file &file) {
        vrd *const *const begin = transaction.deps;
        return unusable_.contains(file.request) && begin &&
               std::any_of(begin, begin + transaction.num_deps,
                           [&](const vrd *dep) { return is_from(dep, file); });
    });
}
