// What a word works with: the log, the configuration, the repository, and the catalogue.
#pragma once

#include <initializer_list>
#include <optional>
#include <utility>

#include "pvrm/engine_report.h"
#include "pvrm/options.h"
#include "pvrm/words.h"
#include "repository/repository.h"
#include "repository/snapshot.h"
#include "support/own.h"

class session {
 public:
    // Starts the log, the user interface and the watch over what the engine reports.
    explicit session(const common_options &options);
    ~session();
    session(const session &) = delete;
    session &operator=(const session &) = delete;

    // Opens the repository. False, with the reason told, when that doesn't work.
    bool open_repository();

    // Whether these directories of the repository are there and can be read; tells when one is not.
    bool has_directories(std::initializer_list<const char *> roles);

    // Takes the lock, and waits for a script that an earlier run left when it was killed. Result:
    // EXIT_DONE, or EXIT_LOCKED or EXIT_FAILED with the reason printed. The signals must be held
    // (interruption.h), so that the wait can be interrupted.
    exit_status lock();

    // Begins a change of the system: opens the repository, whose inventory must be readable, and
    // unless nothing is really to be done holds the signals (interruption.h), takes the lock, and
    // takes back what an update that died left half entered. A dry run only warns of that, and of
    // a script that still runs. Result as of lock().
    exit_status begin_change();

    // Whether a dry run warned of an update that was cut off.
    bool found_cut_off() const {
        return found_cut_off_;
    }

    // Loads and connects the catalogue's backend. False, with the reason told, when that doesn't
    // work; searches then find nothing.
    bool connect();

    // Brings the catalogue up to date. False when the backend could not.
    bool refresh();

    // Looks something up. When that finds nothing, and the backend knew nothing at all so far and
    // now does, after a refresh, it looks again, and why nothing was found at first is not told. A
    // refresh that fails is a warning. `look` gives what tests false when nothing was found.
    template <class Look>
    auto look_up(const Look &look) -> decltype(look());

    // Whether the backend knew nothing at all so far and now does, after a refresh. One that fails
    // is a warning.
    bool learned_catalogue();

    // Makes each of many lookups of an exact name fast: where the backend has no index of names,
    // the whole catalogue is read once, and searched in memory. A catalogue of which the backend
    // knew nothing is refreshed, as by look_up().
    void prepare_many_lookups();

    vrm_handle *repository() const {
        return handle_.get();
    }
    void *catalogue() const;

    // What is installed, each entry read once at the first question about it. Who changes a package
    // has it forgotten. The repository must be open.
    inventory_snapshot &installed() {
        return *installed_;
    }

    const common_options options;

 private:
    // Whether these directories, which are there, can be written to; tells when one can't.
    bool can_write(std::initializer_list<const char *> roles);

    // Whether these directories are there, whoever may read them; tells when one is not.
    bool are_there(std::initializer_list<const char *> roles);

    own_ekva config_;
    own_handle handle_;
    std::optional<inventory_snapshot> installed_;
    bool tried_to_learn_ = false;
    bool found_cut_off_ = false;

    void warn_of_cut_off();
};

// Warns of a change that was cut off, as far as everybody may know it. Result: whether there is
// one.
bool warn_of_cut_off_change(vrm_handle *repository);

template <class Look>
auto session::look_up(const Look &look) -> decltype(look()) {
    if (tried_to_learn_) {
        return look();
    }
    keep_reasons();
    auto found = look();
    kept_reasons first = take_reasons();
    if (!found && learned_catalogue()) {
        take_cause();
        return look();
    }
    tell_reasons(std::move(first));
    return found;
}
