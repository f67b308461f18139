#include "pvrm/engine_report.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <exception>
#include <optional>
#include <set>
#include <utility>

#include "pvrm/interruption.h"
#include "pvrm/tell.h"
#include "repository/repository.h"
#include "support/file.h"
#include "support/log.h"
#include "ui/sentences.h"
#include "ui/vrmui.h"

static std::string last_cause, last_reason, last_outcome, failed_installation;
// Each reading of the inventory warns of the same entries again.
static std::set<std::string> told_warnings;
static size_t reasons = 0;
static rollback undone = rollback::none;
static std::optional<kept_reasons> kept;
static bool no_catalogue = false;
static int directories = 0;

bool was_explained() {
    return !last_cause.empty();
}

std::string take_cause() {
    return std::exchange(last_cause, {});
}

std::string take_outcome() {
    return std::exchange(last_outcome, {});
}

void forget_last_reason() {
    last_reason.clear();
}

std::string take_failed_installation() {
    return std::exchange(failed_installation, {});
}

size_t reasons_told() {
    return reasons;
}

void tell_failure(problem found) {
    found.why = take_cause();
    tell_problem(found);
}

void tell_failure(const char *format, ...) {
    char text[3000];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    tell_failure({"", text});
}

void expect_no_catalogue() {
    no_catalogue = true;
}

int unreadable_directories() {
    return directories;
}

rollback take_rollback() {
    return std::exchange(undone, rollback::none);
}

std::string with_rollback(const std::string &failed, rollback how) {
    switch (how) {
        case rollback::complete:
            return failed + ", and what it had changed was rolled back";
        case rollback::incomplete:
            return failed + ", and not all that it had changed could be rolled back";
        case rollback::none:
            break;
    }
    return failed;
}

static void note_rollback(event_kind kind) {
    if (kind == event_kind::not_restored || kind == event_kind::backup_list_not_read) {
        undone = rollback::incomplete;
    } else if ((kind == event_kind::rollback_finished || kind == event_kind::nothing_to_restore) &&
               undone == rollback::none) {
        undone = rollback::complete;
    }
}

static void take_reason(event_kind kind, problem found) {
    if (kept) {
        kept->reasons.push_back({kind, std::move(found)});
        return;
    }
    const bool is_warning = event_level(kind) == LEVEL_WARNING;
    std::string text = problem{found.subject, found.what}.text();
    const bool is_repeated =
        text == last_reason || (is_warning && !told_warnings.insert(text).second);
    if (!is_repeated) {
        reasons++;
        last_reason = std::move(text);
    }
    if (is_repeated && !is_warning) {
        note_repeated_problem(found);
    } else if (!is_repeated && is_warning) {
        tell_warning_text(found.text());
    } else if (!is_repeated) {
        tell_problem(found);
    }
}

// The sentence of an event, with the cause that was given before it.
static void take_reason(event_kind kind, const sentence &said) {
    const size_t subject = said.subject.empty() ? 0 : said.subject.size() + 1;
    take_reason(kind, {said.subject, said.text.substr(subject), take_cause()});
}

void keep_reasons() {
    kept.emplace();
}

kept_reasons take_reasons() {
    kept_reasons taken = kept ? std::move(*kept) : kept_reasons();
    kept.reset();
    taken.cause = take_cause();
    return taken;
}

void tell_reasons(kept_reasons given) {
    for (kept_reasons::given &one : given.reasons) {
        take_reason(one.kind, std::move(one.what));
    }
    last_cause = std::move(given.cause);
}

// The sentence of an event where there is no catalogue.
static sentence sentence_without_catalogue(const event &happened) {
    switch (happened.kind) {
        case event_kind::catalogue_not_connected:
        case event_kind::not_in_catalogue:
            return {sentence_sort::nothing, ""};
        case event_kind::dependency_not_found:
            return {sentence_sort::reason,
                    fill_in("{package} needs {other}, which is not installed", happened),
                    std::string(happened.package)};
        default:
            return sentence_of(happened);
    }
}

static vrm_handle *open_repository = nullptr;

void report_engine_of(vrm_handle *repository) {
    open_repository = repository;
}

static bool is_being_made(const event &happened) {
    if (happened.kind != event_kind::entry_damaged || !open_repository) {
        return false;
    }
    const pid_t holder = vrm_lock_holder(open_repository);
    const std::string record = std::string(ekva_getval(open_repository->dirs, "installed")) + "/" +
                               std::string(happened.package) + "/inst.txt";
    return holder > 0 && holder != getpid() && is_missing(record.c_str());
}

static void take(const event &happened) {
    if (is_being_made(happened)) {
        return;
    }
    // An interruption may be sent to a configuration command alone; only its end says so.
    if (happened.kind == event_kind::configuration_failed ||
        happened.kind == event_kind::hook_failed) {
        was_interrupted(happened.status);
    }
    if (happened.kind == event_kind::dependency_install_failed ||
        happened.kind == event_kind::install_failed) {
        failed_installation = happened.package;
    }
    note_rollback(happened.kind);
    if (happened.kind == event_kind::catalogue_directory_unreadable ||
        happened.kind == event_kind::catalogue_directory_cut) {
        directories++;
    }
    sentence said = no_catalogue ? sentence_without_catalogue(happened) : sentence_of(happened);
    switch (said.sort) {
        case sentence_sort::nothing:
            break;
        case sentence_sort::step:
            last_cause.clear();
            tell_step("%s", said.text.c_str());
            break;
        case sentence_sort::cause:
            last_cause = std::move(said.text);
            break;
        case sentence_sort::outcome:
            last_outcome = std::move(said.text);
            break;
        case sentence_sort::finding:
            vrmui_write(vrmui, said.text.c_str(), 0);
            break;
        case sentence_sort::failure:
            said.text = with_rollback(said.text, take_rollback());
            [[fallthrough]];
        case sentence_sort::reason:
            take_reason(happened.kind, said);
            break;
    }
}

static void receive(const event &happened, void *) {
    try {
        take(happened);
    } catch (const std::exception &) {
        // Without memory for a sentence the kind has to do. The engine goes on in any case.
        if (event_level(happened.kind) == LEVEL_ERROR) {
            fflush(stdout);
            fprintf(stderr, "pvrm: %s\n", event_name(happened.kind));
        }
    }
}

void report_engine() {
    receive_events(receive, nullptr);
}
