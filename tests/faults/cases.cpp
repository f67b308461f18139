#include "faults/cases.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "faults/tracer.h"

namespace fs = std::filesystem;

static const std::string workshop = "/var/tmp/faults";
static const std::string tool = "/usr/sbin/pvrm";

const std::vector<std::string> &compared_places() {
    static const std::vector<std::string> places = {
        live_data,
        live_conf,
        repository + "/installed",
        repository + "/fileindex",
        stagearea,
        repository + "/left_links",
        repository + "/saved",
        action_log,
        lock_file,
        script_note + "*",
        "/tmp/out.cmd_exec*",
        "/tmp/err.cmd_exec*",
        "/var/cache/vrm",
    };
    return places;
}

const std::vector<std::string> &watched_places() {
    static const std::vector<std::string> places = [] {
        std::vector<std::string> all = {repository, workshop, "/etc/vrm.conf", "/etc/vrm"};
        all.insert(all.end(), compared_places().begin(), compared_places().end());
        return all;
    }();
    return places;
}

// --- Making them ---------------------------------------------------------------------------------

void write_file(const std::string &path, const std::string &content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream file(path, std::ios::binary);
    file << content;
    if (!file.flush()) {
        throw std::runtime_error("can't write " + path);
    }
}

static void must(const std::string &line) {
    if (system(line.c_str()) != 0) {
        throw std::runtime_error("failed: " + line);
    }
}

static void must(const std::vector<std::string> &command) {
    const watched_run run = run_alone(command);
    if (run.status != 0) {
        std::string line;
        for (const std::string &word : command) {
            line.append(word).append(" ");
        }
        throw std::runtime_error("failed: " + line + "\n" + run.output);
    }
}

std::string made_package(const std::string &directory, const std::string &id) {
    return workshop + "/" + directory + "/" + id + ".vrk";
}

static void pack(const package_version &package, const std::string &directory) {
    const std::string source = workshop + "/tree";
    fs::remove_all(source);
    std::string description = "evrkName: " + package.name + "\nevrkVersion: " + package.version +
                              "\nevrkArchitecture: any\nevrkCreator: Test\n"
                              "evrkDescription: A package to be disturbed\n";
    for (const std::string &need : package.needs) {
        description.append("evrkDependency: ").append(need).append("\n");
    }
    write_file(source + "/package.ldif", description);
    for (const auto &[path, content] : package.files) {
        write_file(fs::path(source) / path, content);
    }
    std::string links, perms;
    for (const auto &[path, target] : package.links) {
        links.append(fs::path(path).parent_path().string()).append("|").append(target);
        links.append("|").append(fs::path(path).filename().string()).append("\n");
    }
    for (const auto &[path, mode] : package.perms) {
        perms.append(path).append("|").append(mode).append("\n");
    }
    if (!links.empty()) {
        write_file(source + "/info/link.txt", links);
    }
    if (!perms.empty()) {
        write_file(source + "/info/perm.txt", perms);
    }
    fs::create_directories(workshop + "/" + directory);
    must({"/usr/bin/vrk-build", "pack", source, "--key", workshop + "/key", "--cert",
          workshop + "/cert", "-o", workshop + "/" + directory});
}

static tree the_start;

void make_world() {
    fs::remove_all(workshop);
    fs::remove_all(live_data);
    fs::remove_all(live_conf);
    fs::create_directories(workshop);
    must({"/usr/bin/vrk-build", "keygen", "/O=Test/CN=Faults", "--key", workshop + "/key", "--cert",
          workshop + "/cert"});
    must("cp " + workshop + "/cert " + repository + "/certstore/$(openssl x509 -noout " +
         "-subject_hash -in " + workshop + "/cert).crt");
    pack(other(), "other");
    pack(base_1(), "suite-1");
    pack(suite_1(), "suite-1");
    for (const package_version &version : {base_2(), fonts(), suite_2()}) {
        pack(version, "suite-2");
    }
    for (const package_version &version : {base_2(), fonts(), failing(suite_2(), "99-add.sh")}) {
        pack(version, "suite-bad");
    }
    pack(failing(suite_1(), "99-del.sh"), "suite-stays");
    fs::remove_all(workshop + "/tree");

    fs::create_directories(live_conf);
    fs::create_directories(live_data + "/marks");
    fs::create_directories("/var/cache/vrm");
    write_file(live_data + "/nobodys", "belongs to no package\n");
    must({tool, "install", "--quiet", made_package("other", "other_any_1.0")});
    fs::remove_all(stagearea);
    fs::create_directories(stagearea);
    the_start = take_tree(compared_places());
}

static void use_catalogue(const std::string &name) {
    static const std::string file = "/etc/vrm.conf", key = "vrc_dirs=";
    const std::string catalogue = key + workshop + "/" + name;
    std::string text;
    for (const std::string &line : lines_of(read_whole(file))) {
        text.append(line.starts_with(key) ? catalogue : line).append("\n");
    }
    write_file(file, text);
}

void begin_case(const fault_case &what) {
    put_back(the_start, compared_places());
    use_catalogue(what.catalogue);
    must({tool, "refresh", "--quiet"});
    for (const std::vector<std::string> &command : what.before) {
        must(command);
    }
    // As if all that had been long ago.
    if (!what.keeps_stage) {
        fs::remove_all(stagearea);
        fs::create_directories(stagearea);
    }
    for (const auto &entry : fs::directory_iterator(live_data + "/marks")) {
        fs::remove(entry.path());
    }
    for (const auto &[path, content] : what.files) {
        write_file(path, content);
    }
    if (what.prepare) {
        what.prepare();
    }
}
