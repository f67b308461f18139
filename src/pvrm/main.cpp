// pvrm, the privileged command line tool: everything that changes the system goes through it.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>

#include "pvrm/lock_wait.h"
#include "pvrm/options.h"
#include "pvrm/privilege.h"
#include "pvrm/report_format.h"
#include "pvrm/restricted.h"
#include "pvrm/tell.h"
#include "pvrm/words.h"
#include "support/boundary.h"
#include "support/shell.h"

namespace {

constexpr char footer[] =
    "For all words: -y --yes takes the default answers, -n --dry-run only shows what would be "
    "done,\n"
    "-q --quiet prints no steps, -v --verbose logs every detail, --wait[=SECONDS] waits for\n"
    "another change to end, --restricted refuses what could make the caller root.\n"
    "Exit status: 0 done, 1 something failed, 2 wrong usage, 3 not permitted,\n"
    "4 the repository is locked. The manual page pvrm(8) tells more.";

// A word with what it needs to run.
struct word {
    CLI::App *command;
    bool changes_system;  // needs root, unless nothing is really done
    std::function<exit_status()> run;
};

struct command_line {
    common_options common;
    config_options config;
    install_options install;
    remove_options remove;
    trust_options trust;
    saved_options saved;
    std::string pattern, package, path, signer, format, wait;
    bool oldest_first = false, abandon = false;
    std::vector<std::string> dirs, upgrades, audited;
    std::vector<word> words;
    bool restricted = false;

    CLI::App *add(CLI::App &app, const char *name, const char *help, bool changes_system,
                  std::function<exit_status()> run) {
        CLI::App *command = app.add_subcommand(name, help);
        words.push_back({command, changes_system, std::move(run)});
        return command;
    }
};

void add_common_options(CLI::App &app, common_options &options, std::string &wait) {
    app.add_flag("-y,--yes", options.yes, "Take the default answer to every question");
    app.add_flag("-n,--dry-run", options.dry_run, "Show what would be done, and do nothing");
    app.add_flag("-q,--quiet", options.quiet, "Tell no steps, only results and problems");
    app.add_flag("-v,--verbose", options.verbose, "Let the log take every detail");
    // A flag with a value of its own: the word after it is not taken for one.
    app.add_flag("--wait{forever}", wait,
                 "Wait until another change has ended, for so many seconds if given")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.parse_complete_callback([&app, &wait, &options] {
        if (app.count("--wait") == 0) {
            return;
        }
        if (wait == "forever") {
            options.wait = -1;
            return;
        }
        const char *const end = wait.data() + wait.size();
        const auto result = std::from_chars(wait.data(), end, options.wait);
        if (result.ec != std::errc() || result.ptr != end || options.wait < 0 ||
            options.wait > longest_wait) {
            throw CLI::ValidationError("--wait", wait + " is not a number of seconds from 0 to " +
                                                     std::to_string(longest_wait));
        }
    });
}

void add_space_option(CLI::App *word, common_options &options) {
    word->add_flag("--ignore-space", options.ignore_space,
                   "Begin also where the disk seems to lack room");
}

void add_restricted_option(CLI::App &app, command_line &line) {
    // No value: nothing after it on the command line may take it back.
    app.add_flag("--restricted", line.restricted,
                 "Refuse what a user who is not to become root may not do")
        ->disable_flag_override();
}

void add_format_option(CLI::App *word, command_line &line, const std::vector<std::string> &names) {
    word->add_option("--format", line.format, "Show it in this form")
        ->check(CLI::IsMember(names))
        ->type_name("FORMAT");
}

void add_reading_words(CLI::App &app, command_line &line) {
    CLI::App *list = line.add(app, "list", "List what is installed", false, [&line] {
        return word_list(line.common, line.pattern, line.format);
    });
    list->add_option("PATTERN", line.pattern, "Only packages whose name or description matches");
    add_format_option(list, line, list_format_names);

    CLI::App *search =
        line.add(app, "search", "Search the catalogue by name or description", false,
                 [&line] { return word_search(line.common, line.pattern, line.format); });
    search->add_option("PATTERN", line.pattern, "A name, or a pattern with * and ?")->required();
    add_format_option(search, line, list_format_names);

    CLI::App *info = line.add(app, "info", "Show one package in full", false, [&line] {
        return word_info(line.common, line.package, line.format);
    });
    info->add_option("NAME|FILE", line.package, "A package or a package file")->required();
    add_format_option(info, line, info_format_names);

    CLI::App *files = line.add(app, "files", "List the paths of a package, one a line", false,
                               [&line] { return word_files(line.common, line.package); });
    files->add_option("NAME|FILE", line.package, "An installed package or a package file")
        ->required();

    CLI::App *owner = line.add(app, "owner", "Print the name of the package that owns a file",
                               false, [&line] { return word_owner(line.common, line.path); });
    owner->add_option("PATH", line.path, "A file of the system")->required();

    CLI::App *depends =
        line.add(app, "depends", "Show what a package needs, as a tree", false,
                 [&line] { return word_depends(line.common, line.package, line.dirs); });
    depends->add_option("NAME|FILE", line.package, "A package or a package file")->required();
    depends->add_option("--dir", line.dirs, "Look for dependencies here too; may be repeated")
        ->allow_extra_args(false);

    CLI::App *verify =
        line.add(app, "verify", "Compare the files of packages with what was delivered", false,
                 [&line] { return word_verify(line.common, line.audited); });
    verify->footer(
        "With --verbose it prints a line for each file.\n"
        "Exit status: 1 when a file, a link or a listed permission is wrong, or missing.");
    verify->add_option("NAME", line.audited, "Installed packages; without names all of them");

    line.add(app, "orphans", "List dependencies that no installed package needs any more", false,
             [&line] { return word_orphans(line.common); });

    CLI::App *why = line.add(app, "why", "Show what an installed package is needed for", false,
                             [&line] { return word_why(line.common, line.package); });
    why->add_option("NAME", line.package, "An installed package")->required();

    CLI::App *log =
        line.add(app, "log", "Show what was installed, upgraded and removed", false,
                 [&line] { return word_log(line.common, line.format, line.oldest_first); });
    add_format_option(log, line, log_format_names);
    log->add_flag("--oldest-first", line.oldest_first, "Begin with the oldest entry");
}

// It changes the system only when it is given a value.
void add_config(CLI::App &app, command_line &line) {
    CLI::App *config =
        line.add(app, "config", "Show the configuration, or one key of it, or change one", false,
                 [&line] { return word_config(line.common, line.config); });
    config->add_option("KEY", line.config.key, "Show the value of this key");
    config->add_option("VALUE", line.config.value, "Give it this value");
    const size_t entry = line.words.size() - 1;
    config->parse_complete_callback([config, &line, entry] {
        line.config.has_key = config->get_option("KEY")->count() > 0;
        line.config.has_value = config->get_option("VALUE")->count() > 0;
        line.words[entry].changes_system = line.config.has_value;
    });
}

void add_changing_words(CLI::App &app, command_line &line) {
    line.add(app, "allowed", "Tell by the exit status whether the caller may change the system",
             false, [&line] { return word_allowed(line.restricted); });

    line.add(app, "refresh", "Bring the package catalogue up to date", true,
             [&line] { return word_refresh(line.common); });

    install_options &what = line.install;
    CLI::App *install = line.add(app, "install", "Install packages and what they need", true,
                                 [&line] { return word_install(line.common, line.install); });
    install->add_option("NAME|FILE", what.requests, "Packages or package files")->required();
    install->add_option("--variant", what.variant, "Install this variant");
    install->add_option("--version", what.version, "Install this version");
    install->add_option("--dir", what.dirs, "Look for dependencies here too; may be repeated")
        ->allow_extra_args(false);
    add_space_option(install, line.common);
    install->parse_complete_callback(
        [install, &what] { what.has_variant = install->get_option("--variant")->count() > 0; });

    remove_options &gone = line.remove;
    CLI::App *remove = line.add(app, "remove", "Remove packages and what only they needed", true,
                                [&line] { return word_remove(line.common, line.remove); });
    remove->add_option("NAME", gone.requests, "Installed packages")->required();
    remove->add_flag("--keep-deps", gone.keep_deps, "Leave what only they needed installed");
    add_space_option(remove, line.common);

    CLI::App *upgrade =
        line.add(app, "upgrade", "Upgrade packages to newer versions, without names all of them",
                 true, [&line] { return word_upgrade(line.common, line.upgrades); });
    upgrade->add_option("NAME|FILE", line.upgrades, "Installed packages or package files");
    add_space_option(upgrade, line.common);

    line.add(app, "cleanup", "Remove staged package files and what a crash left behind", true,
             [&line] { return word_cleanup(line.common); });

    CLI::App *recover = line.add(app, "recover", "Undo or finish a change that was cut off", true,
                                 [&line] { return word_recover(line.common, line.abandon); });
    recover->add_flag("--abandon", line.abandon,
                      "Leave everything as it is, and keep what was saved");
    recover->footer("Every word that changes the system does this first, by itself.");

    line.add(app, "check", "Audit the inventory for what is damaged, missing or left over", true,
             [&line] { return word_check(line.common); })
        ->footer(
            "On a terminal it asks what to do about each; with --dry-run it only reports.\n"
            "Exit status: 1 when something was found.");

    line.add(app, "init", "Make a fresh repository where it is missing", true,
             [&line] { return word_init(line.common); });
}

// Who is trusted can be listed by everybody.
void add_trust_words(CLI::App &app, command_line &line) {
    CLI::App *trust = line.add(app, "trust", "Trust the signer whose certificate this is", true,
                               [&line] { return word_trust(line.common, line.trust); });
    CLI::Option *certificate =
        trust->add_option("CERT.pem", line.trust.certificate, "A certificate");
    CLI::Option *list =
        trust->add_flag("--list", line.trust.list, "Show who is trusted")->excludes(certificate);
    trust->add_flag("--replace", line.trust.replace, "Also in place of another certificate")
        ->excludes(list);
    trust->footer("Without a terminal to ask on it needs --yes.");
    const size_t entry = line.words.size() - 1;
    trust->parse_complete_callback([&line, entry, certificate] {
        if (!line.trust.list && certificate->count() == 0) {
            throw CLI::RequiredError("CERT.pem");
        }
        line.words[entry].changes_system = !line.trust.list;
    });

    CLI::App *distrust = line.add(app, "distrust", "Trust a signer no more", true,
                                  [&line] { return word_distrust(line.common, line.signer); });
    distrust
        ->add_option("SUBJECT|SHA-256", line.signer,
                     "The signer, or the beginning of the certificate's fingerprint")
        ->required();
    distrust->footer("Without a terminal to ask on it needs --yes.");
}

// It changes the system only when it deletes something.
void add_saved(CLI::App &app, command_line &line) {
    CLI::App *saved = line.add(app, "saved", "List the replaced files that belonged to no package",
                               false, [&line] { return word_saved(line.common, line.saved); });
    saved
        ->add_option("--prune", line.saved.days,
                     "Delete those that were kept DAYS days ago or before")
        ->type_name("DAYS")
        ->check(CLI::Range(0, 36500));
    saved->footer("Each is kept as /var/lib/vrm/saved/TIME_PACKAGE/PATH. Only root may read it.");
    const size_t entry = line.words.size() - 1;
    saved->parse_complete_callback([saved, &line, entry] {
        line.saved.prune = saved->get_option("--prune")->count() > 0;
        line.words[entry].changes_system = line.saved.prune;
    });
}

// A standard stream that the caller closed would else be the first file that is opened, such as the
// lock, and messages would go there.
void open_standard_streams() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) {
            _exit(EXIT_FAILED);
        }
    }
}

// A listing that can't be written is no answer. But who read as much as he wanted, as head does,
// has his answer. Of a change it is the doing that counts.
exit_status check_output(exit_status status) {
    if ((fflush(stdout) == 0 && !ferror(stdout)) || nobody_reads(STDOUT_FILENO)) {
        return status;
    }
    tell_problem("the output can't be written: %s", strerror(errno ? errno : EIO));
    return EXIT_FAILED;
}

// What a command line gives to the tool and to one of its words.
std::vector<given_argument> arguments_of(const CLI::App &app, const CLI::App &word) {
    std::vector<given_argument> given;
    for (const CLI::App *part : {&app, &word}) {
        for (const CLI::Option *option : part->get_options()) {
            if (option->count() > 0) {
                given.push_back({option->get_name(), option->results()});
            }
        }
    }
    return given;
}

// Whether the restricted mode permits the command line; prints when it does not. From here on
// nothing of the caller counts but that.
bool enter_restricted_mode(const CLI::App &app, const word &chosen) {
    std::string refusal =
        restricted_refusal(chosen.command->get_name(), arguments_of(app, *chosen.command));
    if (refusal.empty() && geteuid() == 0) {
        const std::string failure = forget_caller();
        refusal = chosen.changes_system ? failure : "";
    }
    if (!refusal.empty()) {
        tell_problem("%s", refusal.c_str());
    }
    return refusal.empty();
}

exit_status run(const word &chosen, const command_line &line, int argc, char **argv) {
    if (!chosen.changes_system) {
        signal(SIGPIPE, SIG_IGN);
        return check_output(chosen.run());
    }
    if (!line.common.dry_run && geteuid() != 0) {
        return run_as_root({argv + 1, argv + argc}, chosen.command->get_name(), line.restricted);
    }
    return chosen.run();
}

exit_status run_command_line(int argc, char **argv) {
    command_line line;
    CLI::App app("The package manager's tool for changing the system, and for asking about it.",
                 "pvrm");
    app.require_subcommand(0, 1);  // none is told apart from an unknown one below
    app.failure_message([](const CLI::App *, const CLI::Error &error) {
        return std::string("pvrm: ") + error.what() + "\nTry: pvrm --help\n";
    });
    app.fallthrough();  // the common options may stand behind the word as well
    app.footer(footer);
    add_common_options(app, line.common, line.wait);
    add_restricted_option(app, line);
    add_changing_words(app, line);
    add_trust_words(app, line);
    add_reading_words(app, line);
    add_config(app, line);
    add_saved(app, line);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &outcome) {
        return app.exit(outcome) == 0 ? EXIT_DONE : EXIT_WRONG_USAGE;
    }
    for (const word &candidate : line.words) {
        if (candidate.command->parsed()) {
            if (line.restricted && !enter_restricted_mode(app, candidate)) {
                return EXIT_NOT_PERMITTED;
            }
            return run(candidate, line, argc, argv);
        }
    }
    fputs(app.help().c_str(), stderr);
    return EXIT_WRONG_USAGE;
}

}  // namespace

int main(int argc, char **argv) {
    umask(022);  // what is installed must not depend on who called
    open_standard_streams();
    const auto out_of_memory = [] {
        fflush(stdout);
        fputs("pvrm: there is not enough memory\n", stderr);
        return EXIT_FAILED;
    };
    try {
        return guarded(out_of_memory, [&] { return run_command_line(argc, argv); });
    } catch (const std::exception &failure) {
        fflush(stdout);
        fprintf(stderr, "pvrm: %s\n", failure.what());
    }
    return EXIT_FAILED;
}
