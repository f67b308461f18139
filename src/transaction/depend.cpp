#include "transaction/depend.h"

#include <cstring>

#include "repository/choice.h"
#include "repository/dirsearch.h"
#include "support/arch.h"
#include "support/log.h"

namespace {

// Before the order is known all dependencies weigh the same, more than any order gives a small
// transaction.
constexpr int32_t unsorted_weight = 99;

void set_unresolved(vrd *record, const char *candidate, const char *dependency) {
    *record = {};
    record->status = 'U';
    record->name = strdup(dependency);
    record->cand = strdup(candidate);
    record->weight = unsorted_weight;
    log_debug("Setting status of dep %s for canditate %s to %c", dependency, candidate,
              record->status);
}

// Status and action are only ever set as a pair, and with the package they are about.
bool resolve(vrd *record, vri *info, char status, char action) {
    if (!info) {
        return false;
    }
    record->info = info;
    record->status = status;
    record->action = action;
    return true;
}

bool find_installed(const installed_view &installed, vrd *record) {
    if (!resolve(record, installed.own_info(record->name).release(), 'I', 'N')) {
        log_debug("ok, dependency %s in not yet installed", record->name);
        return false;
    }
    log_debug("ok, dependency %s was found already installed", record->name);
    return true;
}

vri *copy_of(const std::unordered_map<std::string, const vri *> &packages, const char *name,
             int32_t arch) {
    const auto found = packages.find(name);
    const bool fits =
        found != packages.end() && (found->second->arch == arch_any || found->second->arch == arch);
    return fits ? vrk_info_copy(found->second) : nullptr;
}

bool find_given(const installed_view &installed, vrd *record) {
    const given_packages *const given = installed.given();
    if (!given) {
        return false;
    }
    const int32_t arch = installed.handle()->arch;
    if (resolve(record, copy_of(given->coming, record->name, arch), 'I', 'N')) {
        log_debug("ok, dependency %s is installed before", record->name);
        return true;
    }
    if (resolve(record, copy_of(given->files, record->name, arch), 'L', 'I')) {
        log_debug("ok, dependency %s is a file that was named", record->name);
        return true;
    }
    return false;
}

bool find_in_directories(vrm_handle *handle, char *const *dirs, vrd *record) {
    if (!dirs) {
        log_debug("ok, no directories to search in specified");
        return false;
    }
    vri *info = vrm_findone_dirs(handle, record->name, nullptr, nullptr, dirs);
    if (!resolve(record, info, 'L', 'I')) {
        log_debug("No package for %s in directories found", record->name);
        return false;
    }
    log_debug("ok, dependency %s was found locally", record->name);
    return true;
}

bool find_in_catalogue(vrm_handle *handle, void *vrc, vrd *record) {
    vri *info = vrm_findone_vrc(handle, record->name, nullptr, nullptr, vrc);
    if (!resolve(record, info, 'R', 'I')) {
        log_debug("No package for %s in catalogue found", record->name);
        return false;
    }
    log_debug("ok, dependency %s was found in catalogue", record->name);
    return true;
}

}  // namespace

vrd *find_dependency(const installed_view &installed, const char *candidate, const char *dependency,
                     void *vrc, char *const *dirs, vrd **out) {
    log_debug("Checking dep %s for canditate %s\n", dependency, candidate);
    vrd *record = *out;
    set_unresolved(record, candidate, dependency);
    if (!record->name || !record->cand) {
        return record;
    }
    vrm_handle *const handle = installed.handle();
    (void)(find_installed(installed, record) || find_given(installed, record) ||
           find_in_directories(handle, dirs, record) || find_in_catalogue(handle, vrc, record));
    return record;
}

vrd *vrm_get_dependency(vrm_handle *handle, const char *candidate, const char *dependency,
                        void *vrc, char *const *dirs, vrd **out) {
    return find_dependency(handle, candidate, dependency, vrc, dirs, out);
}
