#include "pvrm/privilege.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "pvrm/exit_status.h"
#include "pvrm/tell.h"

// The path under which a sudoers file permits the tool, with no link in it.
static std::string own_path() {
    std::error_code failed;
    const auto path = std::filesystem::read_symlink("/proc/self/exe", failed);
    return failed ? "/usr/sbin/pvrm" : path.string();
}

static std::vector<char *> sudo_command(const std::string &tool,
                                        const std::vector<const char *> &arguments) {
    std::vector<char *> command;
    // Root by name: whatever else the configuration of sudo prefers would ask sudo again.
    for (const char *word : {"sudo", "-n", "-u", "root", "--", tool.c_str()}) {
        command.push_back(const_cast<char *>(word));
    }
    for (const char *word : arguments) {
        command.push_back(const_cast<char *>(word));
    }
    command.push_back(nullptr);
    return command;
}

bool may_change_system() {
    if (geteuid() == 0) {
        return true;
    }
    const std::string tool = own_path();
    const std::vector<char *> command = sudo_command(tool, {"allowed"});
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

int run_as_root(const std::vector<const char *> &arguments) {
    if (may_change_system()) {
        const std::string tool = own_path();
        const std::vector<char *> command = sudo_command(tool, arguments);
        execvp("sudo", command.data());
        tell_problem("sudo can't be run: %s", strerror(errno));
    } else {
        tell_problem(
            "you are not permitted to change the system: run this as root, or ask the "
            "administrator for membership in the group vrm");
    }
    return EXIT_NOT_PERMITTED;
}
