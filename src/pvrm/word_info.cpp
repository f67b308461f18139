#include "package/signed_record.h"
#include "package/vrf.h"
#include "pvrm/engine_report.h"
#include "pvrm/report_format.h"
#include "pvrm/request.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"

// What the form of a package that isn't the installed one leaves open.
static void tell_state(session &work, const vri *package) {
    if (!work.has_directories({"installed"})) {
        return;  // of a package file all else is known, and that this is not has been told
    }
    const vri *const installed = work.installed().find(package->name);
    if (installed) {
        tell_problem("%s is installed in version %s", package->name, installed->version);
    } else {
        tell_problem("%s is not installed", package->name);
    }
}

// What is shown of a package file is its head, which nobody signed. Result: whether it is what the
// signed description says; if not, a warning was printed.
static bool head_is_signed(const std::string &file) {
    const head_comparison head = compare_head(file.c_str());
    if (head.result != head_comparison::matches) {
        take_cause();
        tell_warning("%s cannot be installed: %s", file.c_str(), head.why.c_str());
    }
    return head.result == head_comparison::matches;
}

exit_status word_info(const common_options &options, const std::string &what,
                      const std::string &format_name) {
    const list_format format = format_named(format_name, FORMAT_FORM);
    session work(options);
    if (!work.open_repository()) {
        return EXIT_FAILED;
    }
    const own_vri package = find_package(work, what);
    if (!package) {
        return EXIT_FAILED;
    }
    const bool is_file = vrk_file_is_vrk(what.c_str()) != 0;
    const unsigned mode = is_file ? 3 : package->install_type ? 2 : 1;
    if (is_file && package->sig_status != 1) {
        const std::string why = take_cause();
        tell_warning("%s can't be trusted%s%s", what.c_str(), why.empty() ? "" : ": ", why.c_str());
    }
    // A payload that nobody who is trusted signed is not unpacked either.
    const bool matches = is_file && package->sig_status == 1 && head_is_signed(what);
    if (vrm_vrk_info_write(package.get(), stream_for(format), mode, static_cast<unsigned>(format),
                           0) != 0) {
        return EXIT_FAILED;
    }
    if (is_file && is_for_people(format) && !options.quiet) {
        if (package->sig_status != 1) {
            tell_problem("the head of %s is not compared: its description is not signed",
                         what.c_str());
        } else if (matches) {
            tell_problem("the head of %s matches its signed description", what.c_str());
        }
    }
    if (format == FORMAT_FORM && mode != 2 && !options.quiet) {
        tell_state(work, package.get());
    }
    return EXIT_DONE;
}
