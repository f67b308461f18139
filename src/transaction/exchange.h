// Private to the library: putting one file in its place, and taking one away, so that no file is
// half there meanwhile. The exception is a mount point: it can't be replaced and is written over in
// its place. What was there is saved to the backups of the change (package/copy_file.h).
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "support/own.h"

// The backups of one change.
class backup_tree {
 public:
    // `base` is the directory for them, and `temporary` the name of a file beside its place.
    backup_tree(std::string base, std::string temporary)
        : base_(std::move(base)), temporary_(std::move(temporary)) {}

    // Puts a file over the target, with a backup of a file that is there, links followed. As
    // vrm_vrf_copy with the mode 1, with which it shares the log, but written beside its place and
    // renamed. Unless the source stays, it is moved where that makes no difference; a fresh one was
    // written by this change, and keeps its time. Result: the bytes, at most INT32_MAX; -1 with an
    // ERROR line, and the target is as it was, but for a mount point, which can be half written
    // then.
    enum class source_use { stays, moves, moves_fresh };
    int32_t put(const std::string &target, const std::string &source, source_use use);

    enum class taken { gone, not_saved, not_removed };
    // Takes a file away, links followed for its backup. errno tells why it is not removed.
    taken take(const std::string &path);

 private:
    bool save(const std::string &path);
    bool note(const std::string &path);
    bool make_directory_of(const std::string &copy);
    bool can_move_to(const std::string &directory);
    bool move(const std::string &target, const std::string &source, const struct stat &status,
              bool is_fresh);
    bool write_beside(const std::string &target, const std::string &source);

    const std::string base_, temporary_;
    own_fd list_;
    std::string made_;  // the directory of the last backup
    std::unordered_map<std::string, bool> can_move_;
};
