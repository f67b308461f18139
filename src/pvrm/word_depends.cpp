#include <cstdio>
#include <string>
#include <vector>

#include "package/vrf.h"
#include "pvrm/dependency_tree.h"
#include "pvrm/engine_report.h"
#include "pvrm/request.h"
#include "pvrm/session.h"
#include "pvrm/words.h"
#include "transaction/plan_install.h"
#include "ui/vrmui.h"

// The array of null-terminated strings that the engine takes, over strings that live elsewhere.
static std::vector<char *> as_array(const std::vector<std::string> &texts) {
    std::vector<char *> array;
    array.reserve(texts.size() + 1);
    for (const std::string &text : texts) {
        array.push_back(const_cast<char *>(text.c_str()));
    }
    array.push_back(nullptr);
    return array;
}

exit_status word_depends(const common_options &options, const std::string &what,
                         const std::vector<std::string> &dirs) {
    session work(options);
    if (names_nothing(what) || !work.open_repository()) {
        return EXIT_FAILED;
    }
    if (looks_like_file(what) && !vrk_file_is_vrk(what.c_str())) {
        tell_no_package_file(what);
        return EXIT_FAILED;
    }
    if (!work.has_directories({"installed"})) {
        return EXIT_FAILED;
    }
    // Without a catalogue the walk ends at what can't be found.
    const bool connected = work.connect();
    std::vector<char *> dir_array = as_array(dirs);
    const own_vrt tree = work.look_up([&] {
        vrt *made = nullptr;
        vrmui_line_new(vrmui, "");
        plan_tree(work.installed(), work.catalogue(), what.c_str(), nullptr,
                  dirs.empty() ? nullptr : dir_array.data(), &made);
        return own_vrt(made);
    });
    if (!tree) {
        const std::string said = connected ? vrmui->text : "";
        const std::string reason = said.substr(0, said.find('\n'));
        tell_failure("%s", reason.empty() ? ("what " + what + " needs can't be told").c_str()
                                          : reason.c_str());
        return EXIT_FAILED;
    }
    if (was_explained()) {
        // A foreign architecture ends the walk at the top, and is no failure of it.
        tell_failure("what %s needs can't be told", what.c_str());
        return EXIT_FAILED;
    }
    for (const std::string &line : dependency_tree(*tree)) {
        puts(line.c_str());
    }
    return EXIT_DONE;
}
