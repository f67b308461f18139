#include <set>
#include <string>

#include "package/vrf.h"
#include "package/vri.h"
#include "pvrm/engine_report.h"
#include "pvrm/installing_job.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "repository/choice.h"
#include "repository/vrc.h"
#include "transaction/install.h"
#include "transaction/plan_install.h"

namespace {

class installation : public installing_job {
 public:
    installation(session &work, const install_options &what)
        : installing_job(work, what.requests, what.dirs, {"Install", "installed", "installation"}),
          what_(what) {}

 private:
    own_vrt make_plan(const std::string &request, const given_packages &given,
                      bool *failed) override;
    int execute(vrt **transaction) override {
        const int rc = vrm_exe_install(work_.repository(), transaction, work_.catalogue(), 1, 0);
        forget_changed(**transaction);
        return rc;
    }
    own_vrt ask_planner(const std::string &request, const given_packages &given);
    std::string missing_choice(const std::string &name) const;

    const install_options &what_;
};

}  // namespace

// "x", "x and y", "x, y and z".
static std::string enumerated(const std::set<std::string> &names) {
    std::string text;
    size_t left = names.size();
    for (const std::string &name : names) {
        left--;
        text += name + (left > 1 ? ", " : left == 1 ? " and " : "");
    }
    return (names.size() == 1 ? "there is " : "there are ") + text;
}

// Why the catalogue has packages of a name and none that was asked for, as it goes on after the
// name; empty when it has one, or knows nothing of the name.
std::string installation::missing_choice(const std::string &name) const {
    const char *variant = what_.has_variant ? what_.variant.c_str() : nullptr;
    const char *version = what_.version.empty() ? nullptr : what_.version.c_str();
    void *const catalogue = work_.catalogue();
    if (!catalogue ||
        own_vri(vrm_findone_vrc(work_.repository(), name.c_str(), variant, version, catalogue))) {
        return "";
    }
    vri **raw = nullptr;
    vrm_findpkg(catalogue, name.c_str(), nullptr, nullptr, 5, nullptr, &raw);
    const own_vri_list offered(raw);
    std::set<std::string> variants, versions;
    for (vri *const *one = offered.get(); one && *one; one++) {
        if ((*one)->name != name) {
            continue;
        }
        variants.insert((*one)->variant && *(*one)->variant ? (*one)->variant : "default");
        if (!variant || vrm_vri_match(*one, 1, nullptr, variant, nullptr, 5, nullptr)) {
            versions.insert((*one)->version);
        }
    }
    if (variants.empty()) {
        return "";
    }
    if (variant && versions.empty()) {
        return std::string("has no variant ") + (*variant ? variant : "default") + "; " +
               enumerated(variants);
    }
    if (version && !versions.contains(version)) {
        return std::string("has no version ") + version + "; " + enumerated(versions);
    }
    return "has no default variant; " + enumerated(variants) + ": use --variant";
}

own_vrt installation::ask_planner(const std::string &request, const given_packages &given) {
    vrt *made = nullptr;
    take_cause();
    plan_install({work_.installed(), given}, work_.catalogue(), request.c_str(),
                 what_.has_variant ? what_.variant.c_str() : nullptr,
                 what_.version.empty() ? nullptr : what_.version.c_str(), dirs(), &made);
    return own_vrt(made);
}

own_vrt installation::make_plan(const std::string &request, const given_packages &given,
                                bool *failed) {
    const std::string name = package_name(request);
    if (name.empty()) {
        *failed = true;
        return nullptr;
    }
    if (const vri *installed = work_.installed().find(name)) {
        if (installed->name != name) {
            tell_problem({name, "can't be installed",
                          std::string("its entry in the inventory is that of another package, ") +
                              installed->name + "; pvrm check offers to delete that entry"});
            *failed = true;
            return nullptr;
        }
        tell_step("%s is already installed, version %s", name.c_str(), installed->version);
        return nullptr;
    }
    if (!vrk_file_is_vrk(request.c_str())) {
        if (const std::string missing = missing_choice(name); !missing.empty()) {
            tell_problem({name, missing});
            *failed = true;
            return nullptr;
        }
    }
    own_vrt transaction = work_.look_up([&] { return ask_planner(request, given); });
    if (!transaction) {
        tell_failure({request, "can't be installed"});
    } else if (!is_acceptable(request, *transaction)) {
        transaction.reset();
    }
    take_cause();
    *failed = !transaction;
    return transaction;
}

exit_status word_install(const common_options &options, const install_options &what) {
    session work(options);
    if (const exit_status refused = work.begin_change()) {
        return refused;
    }
    // Package files can do without a catalogue, and a name that can't be found says so itself.
    work.connect();

    return installation(work, what).run();
}
