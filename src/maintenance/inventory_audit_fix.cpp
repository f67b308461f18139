// The repair of an entry's install record.
#include <cerrno>
#include <cstdio>
#include <string>

#include "maintenance/inventory_audit.h"
#include "package/fileops.h"
#include "package/safe_name.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/log.h"
#include "support/own.h"
#include "transaction/register.h"

namespace {

struct entry_places {
    std::string entry, old_entry, new_entry;
};

}  // namespace

static constexpr char me[] = "vrm_fixinst_vrk";

static entry_places places_of(const vrm_handle *handle, const char *package_name) {
    const std::string installed =
        std::string(ekva_getval(handle->dirs, "installed")).substr(0, 1000);
    const std::string name = std::string(package_name).substr(0, 1000);
    return {installed + "/" + name, installed + "/." + name + ".old",
            installed + "/." + name + ".new"};
}

static bool write_record(const std::string &path, const vri *package, char new_type,
                         const char *head) {
    own_file out(fopen(path.c_str(), "we"));
    if (out && new_type != package->install_type) {
        report({.kind = event_kind::install_type_changed,
                .who = me,
                .package = package->name,
                .other = std::string_view(&new_type, 1),
                .found = std::string_view(&package->install_type, 1)});
    }
    return write_install_record(std::move(out), package->install_time, new_type, head,
                                updates_until_now(package));
}

// The old entry comes back when the new one can't take its place.
static bool swap_in(const entry_places &places) {
    vrm_vrf_rmdir(places.old_entry.c_str());
    if (rename(places.entry.c_str(), places.old_entry.c_str()) != 0 && errno != ENOENT) {
        return false;
    }
    if (rename(places.new_entry.c_str(), places.entry.c_str()) != 0) {
        rename(places.old_entry.c_str(), places.entry.c_str());
        return false;
    }
    vrm_vrf_rmdir(places.old_entry.c_str());
    return true;
}

int vrm_fixinst_vrk(vrm_handle *handle, const vri *package, char new_type, const char *head) {
    return guarded(me, -1, [&] {
        if (!vrk_name_is_safe(package->name)) {
            report({.kind = event_kind::identity_refused,
                    .who = me,
                    .package = package->name ? package->name : "",
                    .other = "name"});
            return -1;
        }
        log_debug("fixing installation info for %s ", package->name);
        entry_places places = places_of(handle, package->name);
        vrm_vrf_mkdir(places.new_entry.data(), 0755);
        if (!write_record(places.new_entry + "/inst.txt", package, new_type, head) ||
            !swap_in(places)) {
            report({.kind = event_kind::fixed_record_not_written,
                    .who = me,
                    .package = package->name});
            vrm_vrf_rmdir(places.new_entry.c_str());
            return -1;
        }
        return 0;
    });
}
