#include "pvrm/privilege.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "pvrm/tell.h"

// The path under which a sudoers file permits the tool, with no link in it.
static std::string own_path() {
    std::error_code failed;
    const auto path = std::filesystem::read_symlink("/proc/self/exe", failed);
    return failed ? "/usr/sbin/pvrm" : path.string();
}

// What sudo is called for: to run the tool, or to list that as permitted.
enum class sudo_use { run, list };

using argument_list = std::vector<std::string>;

static std::vector<char *> sudo_command(sudo_use use, const std::string &tool,
                                        const argument_list &arguments) {
    std::vector<char *> command;
    // Root by name: whatever else the configuration of sudo prefers would ask sudo again.
    for (const char *word : {"sudo", "-n", "-u", "root"}) {
        command.push_back(const_cast<char *>(word));
    }
    if (use == sudo_use::list) {
        command.push_back(const_cast<char *>("-l"));
    }
    for (const char *word : {"--", tool.c_str()}) {
        command.push_back(const_cast<char *>(word));
    }
    for (const std::string &word : arguments) {
        command.push_back(const_cast<char *>(word.c_str()));
    }
    command.push_back(nullptr);
    return command;
}

// Whether sudo does that, in silence.
static bool sudo_agrees(sudo_use use, const argument_list &arguments) {
    const std::string tool = own_path();
    const std::vector<char *> command = sudo_command(use, tool, arguments);
    posix_spawn_file_actions_t silence;
    posix_spawn_file_actions_init(&silence);
    posix_spawn_file_actions_addopen(&silence, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&silence, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&silence, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child;
    const int failed = posix_spawnp(&child, "sudo", &silence, nullptr, command.data(), environ);
    posix_spawn_file_actions_destroy(&silence);
    int status = -1;
    if (failed != 0) {
        return false;
    }
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

static const argument_list full_question = {"allowed"};
static const argument_list restricted_question = {"--restricted", "allowed"};

bool may_change_system(bool restricted) {
    return geteuid() == 0 || (!restricted && sudo_agrees(sudo_use::run, full_question)) ||
           sudo_agrees(sudo_use::run, restricted_question);
}

// Whether a rule that lets the caller use the tool leaves these arguments out. A sudo that wants a
// password for its list, or has none, lists nothing, not even what it has just run: then only
// running can tell.
static bool is_left_out(const argument_list &arguments, const argument_list &question) {
    return !sudo_agrees(sudo_use::list, arguments) && sudo_agrees(sudo_use::list, question);
}

static bool is_permitted(const argument_list &arguments, const argument_list &question) {
    return sudo_agrees(sudo_use::run, question) && !is_left_out(arguments, question);
}

// The command line as a rule for the restricted mode names it, whatever comes before the word.
static argument_list restricted_form(const argument_list &arguments, const std::string &word) {
    argument_list form = {"--restricted", word};
    bool word_is_to_come = true;
    for (const std::string &argument : arguments) {
        if (word_is_to_come && argument == word) {
            word_is_to_come = false;
        } else if (argument != "--restricted") {
            form.push_back(argument);
        }
    }
    return form;
}

// Comes back only when sudo can't be run.
static void run_by_sudo(const argument_list &arguments) {
    const std::string tool = own_path();
    const std::vector<char *> command = sudo_command(sudo_use::run, tool, arguments);
    execvp("sudo", command.data());
    tell_problem("sudo can't be run: %s", strerror(errno));
}

exit_status run_as_root(const std::vector<std::string> &arguments, const std::string &word,
                        bool restricted) {
    const argument_list form = restricted_form(arguments, word);
    if (!restricted && is_permitted(arguments, full_question)) {
        run_by_sudo(arguments);
    } else if (is_permitted(form, restricted_question)) {
        run_by_sudo(form);
    } else {
        tell_problem(
            "you are not permitted to change the system: run this as root, or ask the "
            "administrator for membership in the group vrm");
    }
    return EXIT_NOT_PERMITTED;
}

exit_status word_allowed(bool restricted) {
    return may_change_system(restricted) ? EXIT_DONE : EXIT_NOT_PERMITTED;
}
