// Changes of the package foo by each executor: one that succeeds, and one that fails in each stage
// that something other than memory can make fail.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "kit/failing_sync.h"
#include "transaction/change_fixture.h"

// One change of foo, and what goes wrong with it.
struct change_case {
    std::string name;
    operation what;
    int result;
    PackageSpec before = {}, after = {};
    // Done once all is planned, with the root of the repository.
    std::function<void(const std::string &)> spoil = [](const std::string &) {};
    // The log line at which a fault is made, and the fault, with the same root.
    std::string line = {};
    std::function<void(const std::string &)> fault = {};
    bool has_hook = false;
};

// For the message of a test that fails.
inline void PrintTo(const change_case &printed, std::ostream *out) {
    *out << printed.name;
}

inline PackageSpec plain(const std::string &number) {
    return version(simple("foo"), number);
}

inline PackageSpec with_links(PackageSpec spec) {
    spec.info["link.txt"] = "/srv/t|foo|link\n";
    return spec;
}

// A package with something in every fork.
inline PackageSpec rich(const std::string &number) {
    PackageSpec spec = plain(number);
    spec.data["srv/t/foo"] = "foo " + number + "\n";
    spec.data["srv/t/lib/libfoo.so." + number] = "library " + number + "\n";
    spec.conf["srv/t/foo.conf"] = "shipped " + number + "\n";
    spec.dump["notes"] = "notes " + number + "\n";
    spec = with_links(spec);
    spec.info["perm.txt"] = "/srv/t/foo|0640\n";
    for (const char *script : {"00-add.sh", "99-add.sh", "99-cfg.sh", "00-del.sh", "99-del.sh"}) {
        spec.init[script] = std::string("echo ") + script + " of " + number + "\n";
    }
    return spec;
}

inline PackageSpec with_script(PackageSpec spec, const std::string &name, const std::string &text) {
    spec.init[name] = text;
    return spec;
}

inline PackageSpec with_file(PackageSpec spec, const std::string &path) {
    spec.data[path] = "of " + spec.version + "\n";
    return spec;
}

inline PackageSpec with_wrong_list(PackageSpec spec) {
    spec.hash_lists["data"] = std::string(40, '0') + ":srv/t/foo\n";
    return spec;
}

inline PackageSpec with_member(PackageSpec spec, const std::string &path) {
    spec.info[path] = "in the way\n";
    return spec;
}

// ---- What goes wrong ----

inline void file_for_the_record(const std::string &root) {
    put(root + "/change", "a file where a directory is wanted\n");
}

inline void directory_for_the_index(const std::string &root) {
    fs::remove(root + "/fileindex/foo");
    fs::create_directory(root + "/fileindex/foo");
}

// A list of links of another package that nobody can read.
inline void loop_for_the_links_of_another(const std::string &root) {
    fs::create_directories(root + "/installed/bar");
    fs::create_symlink("link.txt", root + "/installed/bar/link.txt");
}

inline void directory_for(const std::string &path) {
    fs::remove(path);
    fs::create_directory(path);
}

// A file of another package where foo brings one.
inline void file_of_another(const std::string &root) {
    put(live + "/taken", "of bar\n");
    PackageSpec bar;
    bar.name = "bar";
    fs::create_directories(root + "/installed/bar");
    put(root + "/installed/bar/desc.txt", description_of(bar));
    put(root + "/installed/bar/inst.txt", "evrkInstallTime: 1700000000\nevrkInstallType: X\n");
    put(root + "/fileindex/bar", live + "/taken\n");
}

inline void disk_error(const std::string &) {
    FailingSync::fail_next();
}

// When the change begins it is looked at as well.
inline void open_stage_area(const std::string &root) {
    chmod((root + "/stagearea").c_str(), 0777);
}

// ---- The cases ----

inline std::vector<change_case> of_installations() {
    const operation what = operation::install;
    return {
        {.name = "install", .what = what, .result = 0, .after = rich("1.0"), .has_hook = true},
        {.name = "install-record",
         .what = what,
         .result = -1,
         .after = plain("1.0"),
         .spoil = file_for_the_record},
        {.name = "install-unpack",
         .what = what,
         .result = 1,
         .after = with_wrong_list(plain("1.0"))},
        {.name = "install-first-script",
         .what = what,
         .result = 3 << 8,
         .after = with_script(plain("1.0"), "00-add.sh", "echo no; exit 3\n")},
        {.name = "install-conflicts",
         .what = what,
         .result = -1,
         .after = with_file(plain("1.0"), "srv/t/taken"),
         .spoil = file_of_another},
        {.name = "install-save",
         .what = what,
         .result = -1,
         .after = plain("1.0"),
         .line = "installing foo_any_1.0",
         .fault = disk_error},
        {.name = "install-place",
         .what = what,
         .result = -1,
         .after = with_file(plain("1.0"), "srv/t/dir/x"),
         .spoil = [](const std::string &) { put(live + "/dir", "not a directory\n"); }},
        {.name = "install-last-script",
         .what = what,
         .result = 3 << 8,
         .after = with_script(plain("1.0"), "99-add.sh", "echo no >&2; exit 3\n")},
        {.name = "install-register",
         .what = what,
         .result = -1,
         .after = with_member(plain("1.0"), "hash/data.txt/x")},
        {.name = "install-commit",
         .what = what,
         .result = -1,
         .after = plain("1.0"),
         .line = "vrm_install_vrk: Writing fileindex",
         .fault = disk_error},
    };
}

inline std::vector<change_case> of_updates() {
    const operation what = operation::update;
    const PackageSpec before = with_file(plain("1.0"), "srv/t/gone"), after = plain("2.0");
    PackageSpec more = with_file(rich("1.0"), "srv/t/gone");
    return {
        {.name = "update",
         .what = what,
         .result = 0,
         .before = more,
         .after = rich("2.0"),
         .has_hook = true},
        {.name = "update-record",
         .what = what,
         .result = -1,
         .before = before,
         .after = after,
         .spoil =
             [](const std::string &root) {
                 fs::remove_all(root + "/change");
                 file_for_the_record(root);
             }},
        {.name = "update-unpack",
         .what = what,
         .result = 1,
         .before = before,
         .after = with_wrong_list(after)},
        {.name = "update-old-side",
         .what = what,
         .result = -1,
         .before = before,
         .after = after,
         .spoil = directory_for_the_index},
        {.name = "update-first-script",
         .what = what,
         .result = 3 << 8,
         .before = before,
         .after = with_script(after, "00-add.sh", "echo no; exit 3\n")},
        {.name = "update-conflicts",
         .what = what,
         .result = -1,
         .before = before,
         .after = with_file(after, "srv/t/taken"),
         .spoil = file_of_another},
        {.name = "update-save",
         .what = what,
         .result = -1,
         .before = before,
         .after = after,
         .line = "updating foo_any_2.0",
         .fault = disk_error},
        {.name = "update-take-away",
         .what = what,
         .result = -1,
         .before = before,
         .after = after,
         .spoil = [](const std::string &) { directory_for(live + "/gone"); }},
        {.name = "update-place",
         .what = what,
         .result = -1,
         .before = before,
         .after = with_file(after, "srv/t/dir/x"),
         .spoil = [](const std::string &) { put(live + "/dir", "not a directory\n"); }},
        {.name = "update-last-script",
         .what = what,
         .result = -1,
         .before = before,
         .after = with_script(after, "99-add.sh", "echo no >&2; exit 3\n")},
        {.name = "update-register",
         .what = what,
         .result = -1,
         .before = before,
         .after = with_member(after, "hash/data.txt/x")},
        {.name = "update-commit",
         .what = what,
         .result = -1,
         .before = before,
         .after = after,
         .line = "New fileindex name",
         .fault = disk_error},
    };
}

inline std::vector<change_case> of_removals() {
    const operation what = operation::removal;
    return {
        {.name = "removal", .what = what, .result = 0, .before = rich("1.0")},
        {.name = "removal-record",
         .what = what,
         .result = -1,
         .before = plain("1.0"),
         .spoil =
             [](const std::string &root) {
                 fs::remove_all(root + "/change");
                 file_for_the_record(root);
             }},
        {.name = "removal-old-side",
         .what = what,
         .result = -1,
         .before = with_links(plain("1.0")),
         .spoil = loop_for_the_links_of_another},
        {.name = "removal-first-script",
         .what = what,
         .result = 3 << 8,
         .before = with_script(plain("1.0"), "00-del.sh", "echo no; exit 3\n")},
        {.name = "removal-backups",
         .what = what,
         .result = -1,
         .before = plain("1.0"),
         .line = "vrm_one_delete: no pre-delete script found",
         .fault = open_stage_area},
        {.name = "removal-save",
         .what = what,
         .result = -1,
         .before = plain("1.0"),
         .line = "vrm_one_delete: no pre-delete script found",
         .fault = disk_error},
        {.name = "removal-take-away",
         .what = what,
         .result = -1,
         .before = with_file(plain("1.0"), "srv/t/gone"),
         .spoil = [](const std::string &) { directory_for(live + "/gone"); }},
        {.name = "removal-last-script",
         .what = what,
         .result = 3 << 8,
         .before = with_script(plain("1.0"), "99-del.sh", "echo no >&2; exit 3\n")},
        {.name = "removal-commit",
         .what = what,
         .result = -1,
         .before = plain("1.0"),
         .line = "vrm_one_delete: no link script found",
         .fault = disk_error},
    };
}

inline std::vector<change_case> all_cases() {
    std::vector<change_case> all = of_installations();
    for (const auto &more : {of_updates(), of_removals()}) {
        all.insert(all.end(), more.begin(), more.end());
    }
    return all;
}

// The stage that fails, as the engine names it: of "update-take-away" it is "take away".
inline std::string failing_stage(const change_case &one) {
    const size_t dash = one.name.find('-');
    std::string stage = dash == std::string::npos ? "" : one.name.substr(dash + 1);
    std::replace(stage.begin(), stage.end(), '-', ' ');
    return stage;
}

inline std::string name_of_case(const testing::TestParamInfo<change_case> &info) {
    std::string name = info.param.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

class CaseOfChange : public ChangeOfFoo {
 protected:
    void prepare_case(const change_case &wanted) {
        if (wanted.has_hook) {
            hook("data:/srv/t/foo", "/bin/hook");
        }
        prepare(wanted.what, wanted.before, wanted.after);
        wanted.spoil(repo.root());
    }

    int run_case(const change_case &wanted) {
        if (wanted.line.empty()) {
            return change();
        }
        const AtLogLine trouble(wanted.line, [&] { wanted.fault(repo.root()); });
        const int code = change();
        EXPECT_TRUE(trouble.reached()) << wanted.line;
        EXPECT_FALSE(FailingSync::is_armed());
        return code;
    }
};
