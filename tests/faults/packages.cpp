#include "faults/packages.h"

#include <algorithm>

std::string data(const std::string &path) {
    return "data" + live_data + "/" + path;
}

std::string conf(const std::string &path) {
    return "conf" + live_conf + "/" + path;
}

// A script that leaves a mark of its run.
std::string marking(const std::string &name) {
    return ": >" + live_data + "/marks/" + name + "\n";
}

package_version lib() {
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

void add_scripts(package_version *package) {
    for (const char *name : {"00-add", "99-add", "99-cfg", "00-del", "99-del"}) {
        package->files["init/" + std::string(name) + ".sh"] = marking(package->name + "." + name);
    }
}

package_version app_1() {
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

package_version app_2() {
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

package_version app_3() {
    return {"app", "3.0", {}, {{conf("app.conf"), "app = 3\n"}, {"dump/notes", "notes 3\n"}},
            {},    {}};
}

package_version failing(package_version package, const std::string &script) {
    package.files["init/" + script] = "exit 3\n";
    return package;
}

package_version other() {
    return {"other", "1.0", {}, {{data("other/file"), "of a bystander\n"}}, {}, {}};
}

static const std::vector<package_version> &all_packages() {
    static const std::vector<package_version> all = {other(),   lib(),    app_1(),  app_2(),
                                                     app_3(),   base_1(), base_2(), fonts(),
                                                     suite_1(), suite_2()};
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
