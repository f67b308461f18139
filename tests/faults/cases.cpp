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

// --- Packages ------------------------------------------------------------------------------------

static std::string data(const std::string &path) {
    return "data" + live_data + "/" + path;
}

static std::string conf(const std::string &path) {
    return "conf" + live_conf + "/" + path;
}

// A script that leaves a mark of its run.
static std::string marking(const std::string &name) {
    return ": >" + live_data + "/marks/" + name + "\n";
}

static package_version lib() {
    return {"lib",
            "1.0",
            {},
            {{data("lib/a"), "a of lib\n"},
             {data("lib/b"), "b of lib\n"},
             {conf("lib.conf"), "lib = 1\n"},
             {"init/99-add.sh", marking("lib.99-add")},
             {"init/99-cfg.sh", marking("lib.99-cfg")}},
            {{live_data + "/links/lib", "../lib/a"}},
            {}};
}

static void add_scripts(package_version *package) {
    for (const char *name : {"00-add", "99-add", "99-cfg", "00-del", "99-del"}) {
        package->files["init/" + std::string(name) + ".sh"] = marking(package->name + "." + name);
    }
}

static package_version app_1() {
    package_version package = {
        "app",
        "1.0",
        {},
        {{data("app/run"), "run 1\n"},
         {data("app/one"), "one 1\n"},
         {data("app/same"), "the same in both\n"},
         {data("app/two"), "two 1\n"},
         {data("app/old/gone"), "gone 1\n"},
         {conf("app.conf"), "app = 1\n"},
         {conf("edited.conf"), "edited = 1\n"},
         {"dump/notes", "notes 1\n"}},
        {{live_data + "/links/app", "../app/run"}, {live_data + "/links/old", "../app/two"}},
        {{live_data + "/app/run", "0750"}}};
    add_scripts(&package);
    return package;
}

static package_version app_2() {
    package_version package = {
        "app",
        "2.0",
        {"lib"},
        {{data("app/run"), "run 2\n"},
         {data("app/one"), "one 2\n"},
         {data("app/same"), "the same in both\n"},
         {data("app/taken"), "taken 2\n"},
         {data("app/new/three"), "three 2\n"},
         {conf("app.conf"), "app = 2\n"},
         {conf("edited.conf"), "edited = 2\n"},
         {conf("new.conf"), "new = 2\n"},
         {"dump/notes", "notes 2\n"}},
        {{live_data + "/links/app", "../app/one"}, {live_data + "/links/new", "../app/new/three"}},
        {{live_data + "/app/run", "0755"}}};
    add_scripts(&package);
    return package;
}

static package_version app_3() {
    return {"app", "3.0", {}, {{conf("app.conf"), "app = 3\n"}, {"dump/notes", "notes 3\n"}},
            {},    {}};
}

static package_version failing(package_version package, const std::string &script) {
    package.files["init/" + script] = "exit 3\n";
    return package;
}

static package_version other() {
    return {"other", "1.0", {}, {{data("other/file"), "of a bystander\n"}}, {}, {}};
}

static const std::vector<package_version> &all_packages() {
    static const std::vector<package_version> all = {other(), lib(), app_1(), app_2(), app_3()};
    return all;
}

std::vector<package_paths> paths_of_all_packages() {
    std::map<std::string, package_paths> found;
    for (const package_version &version : all_packages()) {
        package_paths &paths = found[version.name];
        paths.name = version.name;
        for (const auto &[file, content] : version.files) {
            const std::string path = file.substr(4);
            if (file.starts_with("data/")) {
                paths.data.push_back(path);
            } else if (file.starts_with("conf/")) {
                paths.conf.push_back(path);
            }
        }
        for (const auto &[path, target] : version.links) {
            paths.links.push_back(path);
        }
        for (const auto &[path, mode] : version.perms) {
            paths.perms.push_back(path);
        }
    }
    std::vector<package_paths> all;
    for (auto &[name, paths] : found) {
        for (std::vector<std::string> *list :
             {&paths.data, &paths.conf, &paths.links, &paths.perms}) {
            std::sort(list->begin(), list->end());
            list->erase(std::unique(list->begin(), list->end()), list->end());
        }
        all.push_back(std::move(paths));
    }
    return all;
}

// --- Making them ---------------------------------------------------------------------------------

static void write(const std::string &path, const std::string &content) {
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

static std::string file_of(const std::string &directory, const std::string &id) {
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
    write(source + "/package.ldif", description);
    for (const auto &[path, content] : package.files) {
        write(fs::path(source) / path, content);
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
        write(source + "/info/link.txt", links);
    }
    if (!perms.empty()) {
        write(source + "/info/perm.txt", perms);
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
    for (const package_version &version : {lib(), app_2()}) {
        pack(version, "good");
    }
    pack(lib(), "lib");
    pack(lib(), "bad");
    pack(failing(app_2(), "99-add.sh"), "bad");
    pack(app_1(), "app");
    pack(app_3(), "app");
    pack(failing(app_1(), "99-del.sh"), "stays");
    fs::remove_all(workshop + "/tree");

    fs::create_directories(live_conf);
    fs::create_directories(live_data + "/marks");
    fs::create_directories("/var/cache/vrm");
    write(live_data + "/nobodys", "belongs to no package\n");
    must({tool, "install", "--quiet", file_of("other", "other_any_1.0")});
    fs::remove_all(stagearea);
    fs::create_directories(stagearea);
    the_start = take_tree(compared_places());
}

static void use_catalogue(const std::string &name) {
    static const std::string file = "/etc/vrm.conf", key = "vrc_dirs=";
    std::string text;
    for (const std::string &line : lines_of(read_whole(file))) {
        text += (line.starts_with(key) ? key + workshop + "/" + name : line) + "\n";
    }
    write(file, text);
}

void mend(const fault_case &what) {
    if (!what.good_catalogue.empty()) {
        use_catalogue(what.good_catalogue);
        must({tool, "refresh", "--quiet"});
    }
    for (const auto &[path, content] : what.good_files) {
        write(path, content);
    }
}

void unmend(const fault_case &what) {
    use_catalogue(what.catalogue);
}

void begin_case(const fault_case &what) {
    put_back(the_start, compared_places());
    use_catalogue(what.catalogue);
    must({tool, "refresh", "--quiet"});
    for (const std::vector<std::string> &command : what.before) {
        must(command);
    }
    // As if all that had been long ago.
    fs::remove_all(stagearea);
    fs::create_directories(stagearea);
    for (const auto &entry : fs::directory_iterator(live_data + "/marks")) {
        fs::remove(entry.path());
    }
    for (const auto &[path, content] : what.files) {
        write(path, content);
    }
}

const std::vector<fault_case> &all_cases() {
    static const std::string app_1_file = file_of("app", "app_any_1.0");
    static const std::string app_2_file = file_of("good", "app_any_2.0");
    static const std::string app_3_file = file_of("app", "app_any_3.0");
    static const std::vector<std::string> has_app_1 = {tool, "install", "--quiet", app_1_file};
    static const std::vector<std::string> has_app_2 = {tool,    "install",         "--quiet",
                                                       "--dir", workshop + "/lib", app_2_file};
    static const std::map<std::string, std::string> in_the_way = {
        {live_data + "/app/taken", "was here before\n"},
        {live_conf + "/new.conf", "new = mine\n"},
    };
    static const std::map<std::string, std::string> in_the_way_and_edited = {
        {live_data + "/app/taken", "was here before\n"},
        {live_conf + "/edited.conf", "edited = mine\n"},
    };
    static const std::vector<fault_case> cases = {
        {"install",
         "from the catalogue, with a new dependency, files in the way",
         {tool, "install", "app"},
         false,
         "good",
         {},
         in_the_way},
        {"install-file",
         "a package file, its dependency in a directory",
         {tool, "install", "--dir", workshop + "/lib", app_2_file},
         false,
         "app",
         {}},
        {"install-fails",
         "the same, but its last script fails",
         {tool, "install", "app"},
         true,
         "bad",
         {},
         in_the_way,
         "good"},
        {"update",
         "from the catalogue, with a new dependency, edited configuration",
         {tool, "upgrade", "app"},
         false,
         "good",
         {has_app_1},
         in_the_way_and_edited},
        {"update-bare",
         "by a package file, to a version without data",
         {tool, "upgrade", app_3_file},
         false,
         "app",
         {has_app_1}},
        {"update-fails",
         "the same as update, but its last script fails",
         {tool, "upgrade", "app"},
         true,
         "bad",
         {has_app_1},
         in_the_way_and_edited,
         "good"},
        {"remove", "with an orphan", {tool, "remove", "app"}, false, "good", {has_app_2}},
        {"remove-fails",
         "its last script fails",
         {tool, "remove", "app"},
         true,
         "good",
         {{tool, "install", "--quiet", file_of("stays", "app_any_1.0")}},
         {},
         "",
         {{installed + "app/init/99-del.sh", marking("app.99-del")}}},
    };
    return cases;
}
