#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <sys/stat.h>

#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "repository/inventory.h"
#include "repository/owner_lookup.h"
#include "support/terminal_text.h"

namespace fs = std::filesystem;

exit_status word_owner(const common_options &options, const std::string &path) {
    session work(options);
    if (!work.open_repository() || !work.has_directories({"fileindex"})) {
        return EXIT_FAILED;
    }
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
        tell_problem("%s: %s", path.c_str(), strerror(errno));
        return EXIT_FAILED;
    }
    std::error_code failed;
    const fs::path absolute = fs::absolute(path, failed).lexically_normal();
    own_string owner(vrm_file_owner(work.repository(), absolute.c_str()));
    if (!owner) {
        // The index knows a file by the path in its package, which a directory that is a link, as
        // /bin in many systems, may lead to.
        const fs::path parent = fs::canonical(absolute.parent_path(), failed);
        const fs::path real = parent / absolute.filename();
        if (!failed && real != absolute) {
            owner.reset(vrm_file_owner(work.repository(), real.c_str()));
        }
    }
    if (!owner) {
        tell_problem("no package owns %s", path.c_str());
        return EXIT_FAILED;
    }
    puts(terminal_safe_cell(owner.get()).c_str());
    return EXIT_DONE;
}
