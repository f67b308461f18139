#include "transaction/journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "repository/action_log.h"
#include "repository/running_script.h"
#include "repository/saved_files.h"
#include "support/atomic_file.h"
#include "support/boundary.h"
#include "support/event.h"
#include "support/file.h"
#include "support/log.h"
#include "transaction/change.h"
#include "transaction/record.h"
#include "transaction/space.h"
#include "transaction/touched.h"

std::string status_path(const vrm_handle *handle) {
    return std::string(handle->dir) + "/change.status";
}

namespace {

// What a thousand marks need, and the entry that says that a package is done.
constexpr off_t room_for_marks = off_t{64} * 1024;

class journal {
 public:
    explicit journal(const vrm_handle *handle)
        : root_(handle->dir),
          directory_(record_directory(handle)),
          path_(record_path(handle)),
          status_(status_path(handle)) {}
    ~journal() {
        close();
    }
    journal(const journal &) = delete;
    journal &operator=(const journal &) = delete;

    // Makes the record. False with errno.
    bool open_record() {
        if ((mkdir(directory_.c_str(), 0700) != 0 && errno != EEXIST)) {
            return false;
        }
        const own_fd directory(
            open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        struct stat status;
        if (!directory.valid() || fstat(directory.get(), &status) != 0) {
            return false;
        }
        if (status.st_uid != geteuid()) {
            errno = EPERM;
            return false;
        }
        if ((status.st_mode & 07777) != 0700 && fchmod(directory.get(), 0700) != 0) {
            return false;
        }
        file_ =
            own_fd(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600));
        if (!file_.valid()) {
            return false;
        }
        const running_script self = describe_process(getpid(), "", "change");
        record_entry command("command");
        command.add("process", std::to_string(self.process));
        command.add("started", std::to_string(self.started));
        if (!self.boot.empty()) {
            command.add("boot", self.boot);
        }
        command.add("temporary", temporary_name());
        const std::string first =
            "vrm-change " + std::to_string(record_format) + "\n" + command.text();
        if (!reserve(first.size()) || !write_all(file_.get(), first) ||
            fdatasync(file_.get()) != 0 || fsync(directory.get()) != 0) {
            drop();
            return false;
        }
        length_ = static_cast<off_t>(first.size());
        systems.add(root_);
        return true;
    }

    bool is_open() const {
        return file_.valid();
    }

    // Appends an entry, with room left for all marks to come. False with errno; nothing of it
    // counts then.
    bool append(const record_entry &entry) {
        const std::string text = entry.text();
        if (!reserve(text.size()) || !write_all(file_.get(), text)) {
            const int reason = errno;
            // What comes after a torn entry would not count.
            if (ftruncate(file_.get(), length_) != 0) {
                log_say(LEVEL_DEBUG, "the record of the change can't be shortened");
            }
            errno = reason;
            return false;
        }
        length_ += static_cast<off_t>(text.size());
        return true;
    }

    bool sync() const {
        return fdatasync(file_.get()) == 0;
    }

    void show_status(const char *package, const char *operation) const {
        const running_script self = describe_process(getpid(), package, operation);
        // Of use to those who can't read the record; not needed to recover.
        if (!write_atomically(status_, text_of_note(self), 0644, durability::none)) {
            log_say(LEVEL_DEBUG, "%s can't be written", status_.c_str());
        }
    }

    // The end: all that was done is durable ahead of the record's removal.
    void close() {
        if (!file_.valid() || !due.empty() || is_stuck) {
            return;
        }
        const own_fd history(
            ::open((std::string(vrm_action_log_dir) + "/" + vrm_action_log_name).c_str(),
                   O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
        if (systems.sync() && (!history.valid() || fsync(history.get()) == 0)) {
            drop();
        }
    }

    void drop() {
        unlink(path_.c_str());
        sync_directory(directory_);
        unlink(status_.c_str());
        file_ = own_fd();
    }

    std::multiset<std::pair<std::string, std::string>> due;
    bool is_stuck = false;  // only a recovery can go on
    touched_systems systems;
    std::set<std::string> changed;  // the packages that were

    const std::string &root() const {
        return root_;
    }

 private:
    bool reserve(size_t bytes) {
        const off_t needed = length_ + static_cast<off_t>(bytes) + room_for_marks;
        if (needed <= reserved_) {
            return true;
        }
        const off_t more = needed + room_for_marks;
        if (fallocate(file_.get(), FALLOC_FL_KEEP_SIZE, 0, more) == 0) {
            reserved_ = more;
            return true;
        }
        return errno == EOPNOTSUPP || errno == ENOSYS;
    }

    const std::string root_, directory_, path_, status_;
    own_fd file_;
    off_t length_ = 0, reserved_ = 0;
};

std::unique_ptr<journal> the_journal;
int scopes = 0;
const history_line *expected = nullptr;

bool is_ours(const vrm_handle *handle) {
    return the_journal && the_journal->is_open() && the_journal->root() == handle->dir;
}

int not_recorded(const change &change, int reason) {
    report({.kind = event_kind::change_not_recorded,
            .who = change.by->who,
            .path = record_path(change.handle),
            .error = reason});
    return -1;
}

const char *operation_of(const change &change) {
    return change.is_update() ? "update" : change.new_package ? "install" : "remove";
}

}  // namespace

bool foreign_record_exists(const char *who, const vrm_handle *handle) {
    const std::string path = record_path(handle);
    if (is_ours(handle) || !path_exists(path)) {
        return false;
    }
    report({.kind = event_kind::foreign_record, .who = who, .path = path});
    return true;
}

void enter_scope(const vrm_handle *handle) {
    scopes++;
    if (the_journal && the_journal->root() != handle->dir) {
        the_journal.reset();
    }
}

void leave_scope() {
    if (--scopes == 0) {
        end_idle_journal();
    }
}

void end_idle_journal() {
    if (scopes == 0 && the_journal && the_journal->due.empty()) {
        the_journal.reset();
    }
}

void expect_history(const history_line *line) {
    expected = line;
}

// ---- The stages of a change ----

int note_begin(change *change) {
    if (foreign_record_exists(change->by->who, change->handle)) {
        return -1;
    }
    const std::string name = change->package()->name;
    // What is finished again after a crash must not be what was changed twice.
    if (the_journal && the_journal->changed.contains(name) && the_journal->due.empty()) {
        the_journal.reset();
    }
    if (!is_ours(change->handle)) {
        the_journal = std::make_unique<journal>(change->handle);
        if (!the_journal->open_record()) {
            const int reason = errno;
            the_journal.reset();
            return not_recorded(*change, reason);
        }
    }
    if (the_journal->is_stuck) {
        report({.kind = event_kind::foreign_record,
                .who = change->by->who,
                .path = record_path(change->handle)});
        return -1;
    }
    record_entry begin("begin");
    begin.add("operation", operation_of(*change));
    begin.add("name", name);
    if (change->old_package) {
        begin.add("old", vrk_puname(change->old_package));
    }
    if (change->new_package) {
        begin.add("new", vrk_puname(change->new_package));
    }
    begin.add("time", std::to_string(time(nullptr)));
    begin.add("stage", change->stage.base);
    begin.add("entry", change->places.entry);
    begin.add("index", change->places.index);
    if (const std::string saved = saved_directory(change->handle); !path_exists(saved)) {
        begin.add("absent", saved);
    }
    if (!the_journal->append(begin)) {
        return not_recorded(*change, errno);
    }
    change->recorded = true;
    the_journal->changed.insert(name);
    the_journal->show_status(change->stage.puname.c_str(), operation_of(*change));
    return 0;
}

void note_script(const change &change, const char *script) {
    if (!change.recorded) {
        return;
    }
    record_entry entry("script");
    entry.add("name", script);
    // The effects of a script can outlive a crash, its mention should.
    if (!the_journal->append(entry) || !the_journal->sync()) {
        log_say(LEVEL_DEBUG, "%s: the run of %s is not recorded", change.by->who, script);
    }
}

int note_saved_set(const change &change, const std::string &directory) {
    record_entry entry("replaced");
    entry.add("saved_set", directory);
    return the_journal->append(entry) && the_journal->sync() ? 0 : not_recorded(change, errno);
}

static record_entry entry_of(const change &change) {
    record_entry entry("touch");
    for (const kept_path &kept : change.touched.kept) {
        entry.add("kept", kept.text());
    }
    for (const std::string &path : change.touched.absent) {
        entry.add("absent", path);
    }
    for (const std::string &path : change.touched.gone_links) {
        entry.add("gone", path);
    }
    for (const auto &[mode, path] : change.touched.modes) {
        char octal[16];
        snprintf(octal, sizeof octal, "%o ", mode);
        entry.add("mode", octal + path);
    }
    if (change.new_package && have_so) {
        entry.add("libraries", "1");
    }
    return entry;
}

// Waits for the disks. Other programs' data goes along, so that it can take long.
static bool sync_systems(const change &change) {
    using clock = std::chrono::steady_clock;
    const auto start = clock::now();
    const bool synced = the_journal->systems.sync();
    const int reason = errno;
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(clock::now() - start).count();
    if (seconds >= 2) {
        report({.kind = event_kind::sync_was_slow,
                .package = change.stage.puname,
                .number = static_cast<int64_t>(seconds)});
    }
    errno = reason;
    return synced;
}

int save_touched(change *change) {
    if (!find_touched(change) || !has_space_to_save(*change)) {
        return -1;
    }
    if (!the_journal->append(entry_of(*change))) {
        return not_recorded(*change, errno);
    }
    if (!save_kept(*change)) {
        return -1;
    }
    touched_systems repository;
    repository.add(change->handle->dir);
    repository.add(change->stage.base);
    if (!repository.sync()) {
        return not_recorded(*change, errno);
    }
    for (const kept_path &kept : change->touched.kept) {
        the_journal->systems.add_directory_of(kept.path);
    }
    for (const std::string &path : change->touched.absent) {
        the_journal->systems.add_directory_of(path);
    }
    change->backups = std::make_unique<backup_tree>(change->stage.old, change->touched.temporary);
    return 0;
}

int commit(change *change) {
    if (!sync_systems(*change)) {
        return not_recorded(*change, errno);
    }
    record_entry entry("commit");
    if (change->new_package && have_so) {
        entry.add("libraries", "1");
    }
    if (change->written) {
        entry.add("has_data", "1");
    }
    std::vector<std::string> due;
    for (char *const *command = change->due.get(); command && *command; command++) {
        due.emplace_back(*command);
    }
    for (const std::string &command : due) {
        entry.add("due", command);
    }
    if (expected) {
        struct stat status = {};
        const bool known =
            stat((std::string(vrm_action_log_dir) + "/" + vrm_action_log_name).c_str(), &status) ==
            0;
        entry.add("action", std::to_string(expected->action));
        if (expected->old_puname) {
            entry.add("old", expected->old_puname);
        }
        entry.add("new", expected->new_puname);
        if (expected->head) {
            entry.add("head", expected->head);
        }
        entry.add("history", std::to_string(known ? static_cast<int64_t>(status.st_size) : 0));
    }
    if (!the_journal->append(entry) || !the_journal->sync()) {
        const int reason = errno;
        // Whether a mark that can't be synced will be there after a crash is not known: the one
        // that follows takes it back.
        note_undone(*change);
        return not_recorded(*change, reason);
    }
    for (const std::string &command : due) {
        the_journal->due.emplace(change->package()->name, command);
    }
    return 0;
}

bool repair(const change &change) {
    return restore_kept(change.touched);
}

void keep_journal() {
    if (the_journal) {
        the_journal->is_stuck = true;
    }
}

void note_undone(const change &change) {
    if (!change.recorded || !is_ours(change.handle)) {
        return;
    }
    // Nothing was touched ahead of that.
    const bool touched = !change.touched.keep.empty();
    if ((touched && !sync_systems(change)) || !the_journal->append(record_entry("undone")) ||
        (touched && !the_journal->sync())) {
        log_say(LEVEL_DEBUG, "%s: it is not recorded that %s is taken back", change.by->who,
                change.stage.puname.c_str());
        // A later change must not be taken for a part of this one.
        the_journal->is_stuck = true;
    }
}

void note_done(const char *package, const char *what) {
    if (!the_journal || !the_journal->is_open()) {
        return;
    }
    const auto found = the_journal->due.find({package, what});
    if (found == the_journal->due.end()) {
        return;
    }
    the_journal->due.erase(found);
    record_entry entry("did");
    entry.add("name", package);
    entry.add("due", what);
    // The mark must not reach the disk ahead of what was done.
    if (!the_journal->systems.sync() || !the_journal->append(entry)) {
        log_say(LEVEL_DEBUG, "it is not recorded that %s of %s has run", what, package);
    }
}

void note_finished() {
    if (the_journal && the_journal->is_open() && !the_journal->append(record_entry("done"))) {
        log_say(LEVEL_DEBUG, "it is not recorded that the change is done");
    }
}

void drop_due() {
    if (the_journal) {
        the_journal->due.clear();
        end_idle_journal();
    }
}
