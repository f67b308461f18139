#include <cstdlib>
#include <cstring>
#include <utility>

#include "package/vri.h"
#include "pvrm/report_format.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "repository/vrc.h"

// A plain word is looked for anywhere in names and descriptions; who writes a pattern means it.
static std::string as_pattern(const std::string &text) {
    return text.find_first_of("*?[\\") == std::string::npos ? "*" + text + "*" : text;
}

static int find(session &work, const std::string &pattern, own_vri_list *found) {
    own_ekva filter(ekva_new(1, 4));
    add_pair(&filter, "evrkDescription", pattern.c_str());
    vri **list = nullptr;
    const int count =
        vrm_findpkg(work.catalogue(), pattern.c_str(), nullptr, nullptr, 5, filter.get(), &list);
    if (count > 0 && list) {
        vrm_vri_list_sort(&list);
    }
    found->reset(list);
    return list ? count : 0;
}

// Tells at the beginning of the description what of a package is installed. Who reads the form for
// programs gets the description as it is.
static void mark_installed(session &work, vri *package) {
    const vri *const installed = work.installed().find(package->name);
    if (!installed) {
        return;
    }
    const auto text = [](const char *s) { return s ? s : ""; };
    const bool same = strcmp(installed->version, package->version) == 0 &&
                      strcmp(text(installed->variant), text(package->variant)) == 0;
    const std::string variant = installed->variant ? std::string("_") + installed->variant : "";
    const std::string mark =
        same ? "[installed] " : "[" + (installed->version + variant) + " installed] ";
    char *const marked = strdup((mark + text(package->description)).c_str());
    if (marked) {
        free(std::exchange(package->description, marked));
    }
}

exit_status word_search(const common_options &options, const std::string &text,
                        const std::string &format_name) {
    const std::string pattern = as_pattern(text);
    const list_format format = format_named(format_name, FORMAT_TABLE);
    session work(options);
    if (!work.open_repository()) {
        return EXIT_FAILED;
    }
    // Only the forms for people tell what is installed.
    if ((is_for_people(format) && !work.has_directories({"installed"})) || !work.connect()) {
        return EXIT_FAILED;
    }
    own_vri_list found;
    const int count = work.look_up([&] { return find(work, pattern, &found); });
    if (count == 0) {
        tell_problem("nothing in the package catalogue matches %s", text.c_str());
        return EXIT_FAILED;
    }
    for (int i = 0; is_for_people(format) && i < count; i++) {
        mark_installed(work, found.get()[i]);
    }
    return report_list(found.get(), count, 1, format);
}
