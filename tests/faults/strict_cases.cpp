// The cases of the strict judge: each change with all that it can have to do.
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "faults/cases.h"
#include "faults/tracer.h"

namespace fs = std::filesystem;

static const std::string tool = "/usr/sbin/pvrm";

static const std::map<std::string, std::string> &surroundings() {
    static const std::map<std::string, std::string> files = {
        {"/etc/ld.so.conf.d/faults.conf", live_data + "/usr/lib\n"},
        {"/etc/vrm/hooks.d/faults.vrh",
         "evrhType: 99-cfg\nevrhName: marks\nevrhCond: data:" + live_data +
             "/usr/share/*\nevrhExec: /bin/touch " + marks + "/'${evrkName}.hook'\n"},
        {live_data + "/usr/share/suite/taken", "was here before\n"},
    };
    return files;
}

static std::map<std::string, std::string> with(const std::string &path,
                                               const std::string &content) {
    std::map<std::string, std::string> files = surroundings();
    files[path] = content;
    return files;
}

// A capability as the kernel keeps it: version 2, effective, CAP_NET_RAW.
static void give_capability(const std::string &path) {
    constexpr unsigned char value[20] = {1, 0, 0, 2, 0, 0x20};
    if (setxattr(path.c_str(), "security.capability", value, sizeof value, 0) != 0) {
        throw std::runtime_error("cannot set a capability on " + path + ": " + strerror(errno));
    }
}

// What an administrator has made of version 1.
static void administer() {
    const std::string edited = live_conf + "/suite-edited.conf";
    if (chown(edited.c_str(), 5, 60) != 0 || chmod(edited.c_str(), 0640) != 0) {
        throw std::runtime_error("cannot change " + edited + ": " + strerror(errno));
    }
    give_capability(live_data + "/usr/bin/suite-raw");
    if (system("/sbin/ldconfig") != 0) {
        throw std::runtime_error("ldconfig failed");
    }
}

static void run_ldconfig() {
    if (system("/sbin/ldconfig") != 0) {
        throw std::runtime_error("ldconfig failed");
    }
}

// What an update leaves that could not end, beside the staged packages.
static void retire() {
    const auto deep = fs::copy_options::recursive;
    fs::copy(installed + "suite", installed + ".suite.old", deep);
    fs::copy(fileindex + "suite", fileindex + ".suite.old");
    run_ldconfig();
}

// Installs version 1 from a directory, with what it needs.
static std::vector<std::string> suite_from(const std::string &directory) {
    const std::string base = fs::path(made_package("suite-1", "x")).parent_path();
    return {tool, "install", "--quiet", "--dir", base, made_package(directory, "suite_any_1.0")};
}

const std::vector<fault_case> &strict_cases() {
    static const std::vector<std::string> has_suite_1 = suite_from("suite-1");
    static const std::vector<std::string> has_suite_2 = {tool, "install", "--quiet", "suite"};
    static const std::vector<fault_case> cases = {
        {.name = "full-install",
         .title = "two new dependencies, links, permissions, scripts, a hook, a file in the way",
         .command = {tool, "install", "suite"},
         .catalogue = "suite-2",
         .before = {},
         .files = surroundings(),
         .prepare = run_ldconfig},
        {.name = "full-upgrade",
         .title = "a new and an updated dependency, renamed files, edited configuration, set-id",
         .command = {tool, "upgrade", "suite", "base"},
         .catalogue = "suite-2",
         .before = {has_suite_1},
         .files = with(live_conf + "/suite-edited.conf", "edited = mine\n"),
         .prepare = administer},
        {.name = "full-remove",
         .title = "with the dependencies that nobody needs any more",
         .command = {tool, "remove", "suite"},
         .catalogue = "suite-2",
         .before = {has_suite_2},
         .files = with(live_conf + "/suite-edited.conf", "edited = mine\n"),
         .prepare = administer},
        {.name = "upgrade-fails",
         .title = "the same as full-upgrade, but the last script of suite fails",
         .command = {tool, "upgrade", "suite", "base"},
         .catalogue = "suite-bad",
         .before = {has_suite_1},
         .files = with(live_conf + "/suite-edited.conf", "edited = mine\n"),
         .fails = true,
         .prepare = administer},
        {.name = "remove-fails",
         .title = "the last script fails",
         .command = {tool, "remove", "suite"},
         .catalogue = "suite-2",
         .before = {suite_from("suite-stays")},
         .files = surroundings(),
         .fails = true,
         .prepare = administer},
        {.name = "cleanup",
         .title = "staged package files, and what a killed upgrade had retired",
         .command = {tool, "cleanup", "--yes"},
         .catalogue = "suite-2",
         .before = {has_suite_2},
         .files = surroundings(),
         .prepare = retire,
         .keeps_stage = true},
    };
    return cases;
}

const fault_case &case_named(const std::string &name) {
    for (const fault_case &one : strict_cases()) {
        if (one.name == name) {
            return one;
        }
    }
    throw std::runtime_error("unknown case: " + name);
}

std::vector<std::string> recovery_of_tool() {
    const watched_run help = run_alone({tool, "--help"});
    for (const std::string &line : lines_of(help.output)) {
        if (line.starts_with("  recover ") || line == "  recover") {
            return {tool, "recover"};
        }
    }
    return {};
}
