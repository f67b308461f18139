#include "pvrm/request.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "package/vrf.h"
#include "pvrm/engine_report.h"
#include "pvrm/tell.h"
#include "repository/choice.h"

bool looks_like_file(const std::string &request) {
    return request.find('/') != std::string::npos || request.ends_with(".vrk");
}

void tell_no_package_file(const std::string &request) {
    struct stat status;
    if (stat(request.c_str(), &status) != 0) {
        tell_problem({request, "", strerror(errno)});
    } else if (!S_ISREG(status.st_mode)) {
        tell_problem({request, "is not a regular file"});
    } else {
        tell_problem({request, "is not a package file: its name does not end in .vrk"});
    }
}

bool names_nothing(const std::string &request) {
    if (request.empty()) {
        tell_problem("an empty text is no name of a package");
    }
    return request.empty();
}

own_vri find_package(session &work, const std::string &request) {
    if (vrk_file_is_vrk(request.c_str())) {
        own_vri info(vrm_vrf_info(work.repository(), request.c_str(), 1));
        if (!info) {
            tell_failure({request, "is not a valid package file"});
        }
        return info;
    }
    if (looks_like_file(request)) {
        tell_no_package_file(request);
        return nullptr;
    }
    if (names_nothing(request)) {
        return nullptr;
    }
    if (!work.has_directories({"installed"})) {
        return nullptr;
    }
    if (const vri *installed = work.installed().find(request)) {
        return own_vri(vrk_info_copy(installed));
    }
    if (!work.connect()) {
        return nullptr;
    }
    own_vri found = work.look_up([&] {
        return own_vri(vrm_findone_vrc(work.repository(), request.c_str(), nullptr, nullptr,
                                       work.catalogue()));
    });
    if (!found) {
        tell_problem({request, "is neither installed nor in the package catalogue"});
    }
    return found;
}
