// The packages of the strict cases: what a change of a real system has, each at least once.
#include "faults/packages.h"
#include "faults/tree.h"

// A shared library that ldconfig enters under its name. Its directory is in /etc/ld.so.conf.d.
static std::string shared_library(const std::string &name) {
    return read_whole("/lib/x86_64-linux-gnu/" + name);
}

// More than a file system writes at once, and different in each block.
static std::string long_text(const std::string &line, size_t size) {
    std::string text;
    for (size_t number = 0; text.size() < size; number++) {
        text.append(line).append(" ").append(std::to_string(number)).append("\n");
    }
    return text;
}

static void add_all_scripts(package_version *package) {
    add_scripts(package);
    // The versions differ in all that the inventory has of them.
    for (auto &[path, content] : package->files) {
        if (path.starts_with("init/")) {
            content += "# " + package->version + "\n";
        }
    }
}

package_version base_1() {
    package_version package = {"base",
                               "1.0",
                               {},
                               {{data("usr/lib/libutil.so.1"), shared_library("libutil.so.1")},
                                {data("usr/share/base/table"), long_text("base 1", 20'000)},
                                {conf("base.conf"), "base = 1\n"}},
                               {{live_data + "/usr/lib/libbase.so", "libutil.so.1"}},
                               {{live_data + "/usr/share/base/table", "0640"}}};
    add_all_scripts(&package);
    return package;
}

package_version base_2() {
    package_version package = {"base",
                               "2.0",
                               {},
                               {{data("usr/lib/libdl.so.2"), shared_library("libdl.so.2")},
                                {data("usr/share/base/table"), long_text("base 2", 30'000)},
                                {data("usr/share/base/more"), "more 2\n"},
                                {conf("base.conf"), "base = 2\n"}},
                               {{live_data + "/usr/lib/libbase.so", "libdl.so.2"}},
                               {{live_data + "/usr/share/base/table", "0644"}}};
    add_all_scripts(&package);
    return package;
}

package_version fonts() {
    package_version package = {"fonts",
                               "1.0",
                               {},
                               {{data("usr/share/fonts/sans"), long_text("sans", 150'000)},
                                {data("usr/share/fonts/serif"), "serif\n"},
                                {conf("fonts.conf"), "fonts = 1\n"}},
                               {{live_data + "/usr/share/fonts/default", "sans"}},
                               {}};
    add_all_scripts(&package);
    return package;
}

// The program that runs with rights of another user gets them by the last script: a package has no
// owners.
static void add_tools(package_version *package) {
    const std::string tool = live_data + "/usr/bin/suite-as-games";
    package->files["data" + tool] = "run as games " + package->version + "\n";
    package->files[data("usr/bin/suite-raw")] = "run with a capability " + package->version + "\n";
    package->perms[tool] = "4755";
    package->perms[live_data + "/usr/bin/suite-raw"] = "0755";
    package->files["init/99-add.sh"] += "chown 5:60 " + tool + "\nchmod 4755 " + tool + "\n";
}

package_version suite_1() {
    package_version package = {"suite",
                               "1.0",
                               {"base"},
                               {{data("usr/bin/suite"), "suite 1\n"},
                                {data("usr/share/suite/one"), "one 1\n"},
                                {data("usr/share/suite/same"), "the same in both\n"},
                                {data("usr/share/suite/empty"), ""},
                                {data("usr/share/suite/long"), long_text("long 1", 300'000)},
                                {data("usr/share/suite/names/old-1"), "renamed 1\n"},
                                {data("usr/share/suite/names/old-2"), "renamed 2\n"},
                                {data("usr/share/suite/old/deep/gone"), "gone 1\n"},
                                {data("boot/kernel-1"), long_text("kernel 1", 50'000)},
                                {data("boot/loader"), "loader 1\n"},
                                {conf("suite.conf"), "suite = 1\n"},
                                {conf("suite-edited.conf"), "edited = 1\n"},
                                {conf("suite/part.conf"), "part = 1\n"},
                                {"dump/notes", "notes 1\n"}},
                               {{live_data + "/links/suite", "../usr/bin/suite"},
                                {live_data + "/links/suite-old", "../usr/share/suite/one"}},
                               {{live_data + "/usr/bin/suite", "0750"}}};
    add_all_scripts(&package);
    add_tools(&package);
    return package;
}

package_version suite_2() {
    package_version package = {
        "suite",
        "2.0",
        {"base", "fonts"},
        {{data("usr/bin/suite"), "suite 2\n"},
         {data("usr/share/suite/one"), "one 2\n"},
         {data("usr/share/suite/same"), "the same in both\n"},
         {data("usr/share/suite/empty"), "no longer empty\n"},
         {data("usr/share/suite/long"), long_text("long 2", 280'000)},
         {data("usr/share/suite/names/new-1"), "renamed 1\n"},
         {data("usr/share/suite/names/new-2"), "renamed 2\n"},
         {data("usr/share/suite/new/deep/three"), "three 2\n"},
         {data("usr/share/suite/taken"), "taken 2\n"},
         {data("boot/kernel-2"), long_text("kernel 2", 60'000)},
         {data("boot/loader"), "loader 2\n"},
         {conf("suite.conf"), "suite = 2\n"},
         {conf("suite-edited.conf"), "edited = 2\n"},
         {conf("suite/part.conf"), "part = 1\n"},
         {conf("suite-new.conf"), "new = 2\n"},
         {"dump/notes", "notes 2\n"}},
        {{live_data + "/links/suite", "../usr/bin/suite"},
         {live_data + "/links/suite-new", "../usr/share/suite/new/deep/three"}},
        {{live_data + "/usr/bin/suite", "0755"}}};
    add_all_scripts(&package);
    add_tools(&package);
    return package;
}
