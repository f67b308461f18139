#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "pvrm/columns.h"
#include "pvrm/interruption.h"
#include "pvrm/session.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "repository/saved_files.h"
#include "support/vdef.h"
#include "ui/vrmui.h"

static bool read_listing(const session &work, saved_listing *listing) {
    if (list_saved(work.repository(), listing)) {
        return true;
    }
    const int reason = errno;
    tell_problem("cannot read %s: %s%s", saved_directory(work.repository()).c_str(),
                 strerror(reason), reason == EACCES ? "; run this as root" : "");
    return false;
}

// What nobody but root can have put there is still not ours to judge.
static exit_status tell_strange(const saved_listing &listing) {
    for (const std::string &path : listing.strange) {
        tell_problem("%s is not a directory of saved files: it is skipped", path.c_str());
    }
    return listing.strange.empty() ? EXIT_DONE : EXIT_FAILED;
}

static void print(const std::vector<saved_set> &sets) {
    std::vector<text_cells> rows;
    for (const saved_set &set : sets) {
        for (const saved_file &file : set.files) {
            rows.push_back({nice_date(set.time), set.package, nice_size(file.size),
                            file.path + (file.target.empty() ? "" : " -> " + file.target)});
        }
    }
    print_columns(rows);
}

static std::string number_of_files(size_t count) {
    return std::to_string(count) + (count == 1 ? " saved file" : " saved files");
}

namespace {

// Deletes old sets, or prints that it would, and counts what goes.
class pruning {
 public:
    explicit pruning(bool dry_run) : dry_run_(dry_run) {}

    // Whether the set is gone, or would be.
    bool take(const saved_set &set) {
        tell_step("%s the files that %s replaced on %s", dry_run_ ? "would delete" : "deleting",
                  set.package.c_str(), nice_date(set.time).c_str());
        if (!dry_run_ && !remove_saved(set)) {
            return false;
        }
        for (const saved_file &file : set.files) {
            count_++;
            bytes_ += file.size;
        }
        return true;
    }

    void tell_total() const {
        tell_step("%s %s and %s %s", dry_run_ ? "would delete" : "deleted",
                  number_of_files(count_).c_str(), dry_run_ ? "free" : "freed",
                  nice_size(bytes_).c_str());
    }

 private:
    const bool dry_run_;
    size_t count_ = 0;
    uint64_t bytes_ = 0;
};

}  // namespace

static std::vector<saved_set> older_than(const std::vector<saved_set> &sets, int days) {
    const time_t latest = time(nullptr) - static_cast<time_t>(days) * 24 * 60 * 60;
    std::vector<saved_set> old;
    for (const saved_set &set : sets) {
        if (set.time <= latest) {
            old.push_back(set);
        }
    }
    return old;
}

static bool user_agrees_to_delete(const std::vector<saved_set> &sets) {
    size_t files = 0;
    for (const saved_set &set : sets) {
        files += set.files.size();
    }
    return user_agrees("Delete " + number_of_files(files) + "?", 1);
}

static exit_status prune(session *work, int days) {
    if (const exit_status refused = work->begin_change()) {
        return refused;
    }
    saved_listing listing;
    if (!read_listing(*work, &listing)) {
        return EXIT_FAILED;
    }
    exit_status status = tell_strange(listing);
    const std::vector<saved_set> old = older_than(listing.sets, days);
    const bool dry_run = work->options.dry_run;
    if (old.empty()) {
        tell_step("there are no saved files to delete");
        return status;
    }
    if (vote_mode == 1 && !dry_run) {
        print(old);
    }
    if (!dry_run && !user_agrees_to_delete(old)) {
        tell_problem("nothing was deleted");
        return EXIT_FAILED;
    }
    pruning run(dry_run);
    for (const saved_set &set : old) {
        if (was_interrupted()) {
            tell_problem("interrupted: not all saved files were deleted");
            status = EXIT_FAILED;
            break;
        }
        status = run.take(set) ? status : EXIT_FAILED;
    }
    run.tell_total();
    return status;
}

exit_status word_saved(const common_options &options, const saved_options &what) {
    session work(what.prune ? with_a_dry_run_told(options) : options);
    if (what.prune) {
        return prune(&work, what.days);
    }
    saved_listing listing;
    if (!work.open_repository() || !read_listing(work, &listing)) {
        return EXIT_FAILED;
    }
    print(listing.sets);
    return tell_strange(listing);
}
