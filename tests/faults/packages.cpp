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

void add_scripts(package_version *package) {
    for (const char *name : {"00-add", "99-add", "99-cfg", "00-del", "99-del"}) {
        package->files["init/" + std::string(name) + ".sh"] = marking(package->name + "." + name);
    }
}

package_version failing(package_version package, const std::string &script) {
    package.files["init/" + script] = "exit 3\n";
    return package;
}

package_version other() {
    return {"other", "1.0", {}, {{data("other/file"), "of a bystander\n"}}, {}, {}};
}

static const std::vector<package_version> &all_packages() {
    static const std::vector<package_version> all = {other(), base_1(),  base_2(),
                                                     fonts(), suite_1(), suite_2()};
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
