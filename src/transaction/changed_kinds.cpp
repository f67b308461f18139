#include "transaction/changed_kinds.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <string_view>
#include <unordered_map>

#include "package/fileops_lists.h"
#include "support/array.h"
#include "support/event.h"
#include "support/file.h"
#include "transaction/change.h"
#include "transaction/link_conflicts.h"

namespace {

class kinds_finder {
 public:
    explicit kinds_finder(change *change) : change_(change), kinds_(&change->kinds) {}

    bool run() {
        if (!find_links() || !find_directories()) {
            return false;
        }
        for (const auto &[place, target] : going_) {
            kinds_->links.insert(place);
        }
        if (!going_.empty() && !no_other_lists(*change_, going_, &resolver_)) {
            return false;
        }
        extend_old_files();
        return true;
    }

 private:
    // The place of the link of the old version that a directory of the new one is, empty for none.
    const std::string &link_of(const std::string &directory) {
        const auto [found, is_new] = link_above_.try_emplace(directory);
        if (is_new && directory != "/") {
            const std::string place = resolver_.place_of(directory);
            // Where the new version lists the link as well, its files go through it.
            const std::string result =
                place == directory && old_links_.contains(place) && !new_links_.contains(place)
                    ? place
                    : std::string(link_of(directory_of(directory)));
            return link_above_[directory] = result;
        }
        return link_above_[directory];
    }

    // The paths below links that the new version's configuration and links come to.
    bool find_other_places() {
        for (char *const *path = change_->forks.conf.get(); path && *path; path++) {
            others_.emplace_back(*path);
        }
        std::vector<link_entry> entries;
        const std::string list = change_->stage.fresh + "/info/link.txt";
        if (fork_has(change_->forks.info, "/link.txt") && !read_link_list(list, &entries)) {
            report({.kind = event_kind::links_not_known,
                    .who = change_->by->who,
                    .path = list,
                    .error = errno});
            return false;
        }
        for (const link_entry &entry : entries) {
            const std::string path = entry.directory + "/" + entry.name;
            others_.push_back(std::filesystem::path(path).lexically_normal());
        }
        return true;
    }

    bool find_links() {
        if (!read_links_in_place(*change_, &resolver_, &old_links_) ||
            !read_new_links(*change_, &resolver_, &new_links_)) {
            return false;
        }
        if (old_links_.empty()) {
            return true;
        }
        if (!find_other_places()) {
            return false;
        }
        for (char *const *path = change_->forks.data.get(); path && *path; path++) {
            const std::string place = resolver_.place_of(*path);
            if (place == *path && old_links_.contains(place)) {
                going_[place] = old_links_[place];
                in_the_way_.push_back(place);
            }
            if (goes_below_link(*path)) {
                in_the_way_.emplace_back(*path);
            }
        }
        for (const std::string &path : others_) {
            goes_below_link(path);
        }
        return true;
    }

    // Whether a path of the new version is below a link that becomes a directory by that.
    bool goes_below_link(const std::string &path) {
        const std::string &link = link_of(directory_of(path));
        if (link.empty()) {
            return false;
        }
        going_[link] = old_links_[link];
        kinds_->below_links.push_back(path);
        return true;
    }

    bool is_of_others(const std::string &top, const std::string &path) const {
        report({.kind = event_kind::directory_holds_others,
                .who = change_->by->who,
                .package = change_->stage.puname,
                .path = top,
                .other = path});
        return false;
    }

    // What is in a directory that goes. False, with an ERROR line, for what is not the old
    // version's, and for what can't be looked at.
    bool walk(const std::string &directory, const std::string &top) {
        kinds_->directories.push_back(directory);
        std::vector<std::string> below;
        const own_dir dir(opendir(directory.c_str()));
        if (!dir) {
            return is_unreadable(directory);
        }
        errno = 0;
        while (const dirent *entry = readdir(dir.get())) {
            const std::string name = entry->d_name;
            const std::string path = std::string(directory).append("/").append(name);
            struct stat status;
            if (name == "." || name == "..") {
                continue;
            }
            if (lstat(path.c_str(), &status) != 0) {
                return is_unreadable(path);
            }
            if (S_ISDIR(status.st_mode) && old_directories_.contains(path)) {
                below.push_back(path);
            } else if (S_ISLNK(status.st_mode) && old_links_.contains(path)) {
                going_[path] = old_links_[path];
            } else if (!goes(path)) {
                return is_of_others(top, path);
            }
            errno = 0;
        }
        return errno == 0 ? std::all_of(below.begin(), below.end(),
                                        [&](const std::string &path) { return walk(path, top); })
                          : is_unreadable(directory);
    }

    static bool is_unreadable(const std::string &path) {
        report({.kind = event_kind::file_not_read, .path = path, .error = errno});
        return false;
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

    // Where the new version has files below the place of a link, the link is not made.
    bool is_new_directory(const std::string &place) const {
        const std::string below = place + "/";
        for (char *const *path = change_->forks.data.get(); path && *path; path++) {
            if (std::string_view(*path).starts_with(below)) {
                return true;
            }
        }
        return false;
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
        for (const auto &[place, target] : new_links_) {
            if (is_old_directory(place) && !is_new_directory(place)) {
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

    // What goes is not in the way of the new files.
    void extend_old_files() {
        if (in_the_way_.empty()) {
            return;
        }
        own_array more(static_cast<char **>(calloc(in_the_way_.size() + 1, sizeof(char *))));
        for (size_t i = 0; more && i < in_the_way_.size(); i++) {
            more.get()[i] = strdup(in_the_way_[i].c_str());
            if (!more.get()[i]) {
                more = nullptr;
            }
        }
        char **const longer = more ? arr_tail(change_->old_files.get(), more.get()) : nullptr;
        if (!longer) {
            throw std::bad_alloc();
        }
        change_->old_files.release();
        change_->old_files.reset(longer);
    }

    change *change_;
    changed_kinds *kinds_;
    link_resolver resolver_;
    std::unordered_map<std::string, std::string> link_above_;
    link_targets old_links_, new_links_, going_;
    std::vector<std::string> others_;
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
