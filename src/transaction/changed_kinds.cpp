#include "transaction/changed_kinds.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <unordered_map>

#include "package/fileops_lists.h"
#include "support/array.h"
#include "support/event.h"
#include "support/file.h"
#include "transaction/change.h"
#include "transaction/link_conflicts.h"

static std::string directory_of(const std::string &path) {
    const size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

namespace {

class kinds_finder {
 public:
    explicit kinds_finder(change *change) : change_(change), kinds_(&change->kinds) {}

    bool run() {
        return find_links() && find_directories() && extend_old_files();
    }

 private:
    // The place of the link of the old version that a directory of the new one is, empty for none.
    const std::string &link_of(const std::string &directory, const link_targets &old_links,
                               const link_targets &new_links) {
        const auto [found, is_new] = link_above_.try_emplace(directory);
        if (is_new && directory != "/") {
            const std::string place = resolver_.place_of(directory);
            // Where the new version lists the link as well, its files go through it.
            const std::string result =
                place == directory && old_links.contains(place) && !new_links.contains(place)
                    ? place
                    : std::string(link_of(directory_of(directory), old_links, new_links));
            return link_above_[directory] = result;
        }
        return link_above_[directory];
    }

    bool find_links() {
        link_targets old_links, new_links;
        if (!read_links_in_place(*change_, &resolver_, &old_links)) {
            return false;
        }
        if (old_links.empty()) {
            return true;
        }
        if (!read_new_links(*change_, &resolver_, &new_links)) {
            return false;
        }
        link_targets going;
        for (char *const *path = change_->forks.data.get(); path && *path; path++) {
            const std::string place = resolver_.place_of(*path);
            if (place == *path && old_links.contains(place)) {
                going[place] = old_links[place];
                in_the_way_.push_back(place);
            }
            const std::string &above = link_of(directory_of(*path), old_links, new_links);
            if (!above.empty()) {
                going[above] = old_links[above];
                kinds_->below_links.emplace_back(*path);
            }
        }
        for (const auto &[place, target] : going) {
            kinds_->links.insert(place);
        }
        return going.empty() || no_other_lists(*change_, going, &resolver_);
    }

    // What is in a directory that goes. False, with an ERROR line, for what is not the old
    // version's.
    bool walk(const std::string &directory, const std::string &top) {
        kinds_->directories.push_back(directory);
        const own_dir dir(opendir(directory.c_str()));
        if (!dir) {
            report({.kind = event_kind::file_not_read, .path = directory, .error = errno});
            return false;
        }
        while (const dirent *entry = readdir(dir.get())) {
            const std::string name = entry->d_name, path = directory + "/" + name;
            struct stat status;
            if (name == "." || name == ".." || lstat(path.c_str(), &status) != 0) {
                continue;
            }
            if (S_ISDIR(status.st_mode) ? !walk(path, top) : !goes(path)) {
                if (!S_ISDIR(status.st_mode)) {
                    report({.kind = event_kind::directory_holds_others,
                            .who = change_->by->who,
                            .package = change_->stage.puname,
                            .path = top,
                            .other = path});
                }
                return false;
            }
        }
        return true;
    }

    bool goes(const std::string &path) {
        if (old_files_.empty()) {
            old_files_ = set_of(change_->old_files);
            new_files_ = set_of(change_->forks.data);
        }
        return old_files_.contains(path) && !new_files_.contains(path);
    }

    static std::unordered_set<std::string> set_of(const own_array &paths) {
        std::unordered_set<std::string> all;
        for (char *const *path = paths.get(); path && *path; path++) {
            all.insert(*path);
        }
        return all;
    }

    // Whether a place of the new version is a directory that has files of the old one.
    bool is_old_directory(const std::string &place) const {
        struct stat status;
        return old_directories_.contains(place) && lstat(place.c_str(), &status) == 0 &&
               S_ISDIR(status.st_mode);
    }

    bool find_directories() {
        for (char *const *path = change_->old_files.get(); path && *path; path++) {
            std::string directory = directory_of(*path);
            while (directory != "/" && old_directories_.insert(directory).second) {
                directory = directory_of(directory);
            }
        }
        std::vector<std::string> places;
        for (char *const *path = change_->forks.data.get(); path && *path; path++) {
            if (is_old_directory(*path)) {
                places.emplace_back(*path);
                in_the_way_.emplace_back(*path);
            }
        }
        link_targets links;
        if (!read_new_links(*change_, &resolver_, &links)) {
            return false;
        }
        for (const auto &[place, target] : links) {
            if (is_old_directory(place)) {
                places.push_back(place);
            }
        }
        for (const std::string &place : places) {
            if (!walk(place, place)) {
                return false;
            }
        }
        return true;
    }

    // What goes is in nobody's way.
    bool extend_old_files() {
        for (const auto *more : {&in_the_way_, &kinds_->below_links}) {
            for (const std::string &path : *more) {
                char **const longer = arr_adds(change_->old_files.get(), 0, path.c_str());
                if (!longer) {
                    throw std::bad_alloc();
                }
                change_->old_files.release();
                change_->old_files.reset(longer);
            }
        }
        return true;
    }

    change *change_;
    changed_kinds *kinds_;
    link_resolver resolver_;
    std::unordered_map<std::string, std::string> link_above_;
    std::unordered_set<std::string> old_files_, old_directories_, new_files_;
    std::vector<std::string> in_the_way_;
};

}  // namespace

bool find_changed_kinds(change *change) {
    return !change->is_update() || kinds_finder(change).run();
}

int take_changed_kinds_away(const change &change) {
    const auto failed = [&](const std::string &path) {
        report({.kind = event_kind::old_kind_not_removed,
                .who = change.by->who,
                .path = path,
                .error = errno});
        return -1;
    };
    for (const std::string &link : change.kinds.links) {
        if (unlink(link.c_str()) != 0 && errno != ENOENT) {
            return failed(link);
        }
    }
    const auto &directories = change.kinds.directories;
    for (auto directory = directories.rbegin(); directory != directories.rend(); ++directory) {
        if (!set_directory_aside(change.touched, *directory)) {
            return failed(*directory);
        }
    }
    return 0;
}
