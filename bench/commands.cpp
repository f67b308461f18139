#include "bench/commands.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

static double seconds_of(const timeval &time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

static process_cost run_once(const std::vector<std::string> &command) {
    std::vector<char *> words;
    for (const std::string &word : command) {
        words.push_back(const_cast<char *>(word.c_str()));
    }
    words.push_back(nullptr);
    posix_spawn_file_actions_t silence;
    posix_spawn_file_actions_init(&silence);
    posix_spawn_file_actions_addopen(&silence, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&silence, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&silence, 2, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const auto start = std::chrono::steady_clock::now();
    const bool started =
        posix_spawnp(&child, words[0], &silence, nullptr, words.data(), environ) == 0;
    int status = -1;
    rusage usage = {};
    if (started) {
        wait4(child, &status, 0, &usage);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    posix_spawn_file_actions_destroy(&silence);
    return {took.count(), static_cast<double>(usage.ru_maxrss) / 1024,
            started && WIFEXITED(status) ? WEXITSTATUS(status) : -1,
            seconds_of(usage.ru_utime) + seconds_of(usage.ru_stime)};
}

process_cost cost_of(const std::vector<std::string> &command, int runs) {
    process_cost best = run_once(command);
    for (int i = 1; i < runs; i++) {
        const process_cost next = run_once(command);
        best.seconds = std::min(best.seconds, next.seconds);
        best.peak_megabytes = std::max(best.peak_megabytes, next.peak_megabytes);
        best.status = std::max(best.status, next.status);
        best.cpu_seconds = std::min(best.cpu_seconds, next.cpu_seconds);
    }
    return best;
}

process_cost cost_of_shell(const std::string &line, int runs) {
    return cost_of({"sh", "-c", line}, runs);
}

void must(const process_cost &cost, const std::string &what) {
    if (cost.status != 0) {
        fprintf(stderr, "bench: %s failed with status %d\n", what.c_str(), cost.status);
        exit(1);
    }
}

std::string told(const char *what, double seconds) {
    char text[100];
    snprintf(text, sizeof text, "%s: %.2f ms", what, seconds * 1e3);
    return text;
}
