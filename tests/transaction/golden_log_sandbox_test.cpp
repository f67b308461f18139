// The log of a change, line by line, DEBUG included: of each executor a success, and a failure of
// each stage that can fail. The files are in tests/transaction/golden; its README.md says how they
// are written anew.
#include <regex>

#include "kit/failing_sync.h"
#include "kit/golden.h"
#include "kit/sorted_directories.h"
#include "transaction/change_fixture.h"

using testing::ElementsAreArray;

namespace {

const std::string golden_directory = std::string(VRM_SOURCE_DIR) + "/tests/transaction/golden";

// One change of foo, and what goes wrong with it.
struct golden_case {
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
void PrintTo(const golden_case &printed, std::ostream *out) {
    *out << printed.name;
}

PackageSpec plain(const std::string &number) {
    return version(simple("foo"), number);
}

PackageSpec with_links(PackageSpec spec) {
    spec.info["link.txt"] = "/srv/t|foo|link\n";
    return spec;
}

// A package with something in every fork.
PackageSpec rich(const std::string &number) {
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

PackageSpec with_script(PackageSpec spec, const std::string &name, const std::string &text) {
    spec.init[name] = text;
    return spec;
}

PackageSpec with_file(PackageSpec spec, const std::string &path) {
    spec.data[path] = "of " + spec.version + "\n";
    return spec;
}

PackageSpec with_wrong_list(PackageSpec spec) {
    spec.hash_lists["data"] = std::string(40, '0') + ":srv/t/foo\n";
    return spec;
}

PackageSpec with_member(PackageSpec spec, const std::string &path) {
    spec.info[path] = "in the way\n";
    return spec;
}

// ---- What goes wrong ----

void file_for_the_record(const std::string &root) {
    put(root + "/change", "a file where a directory is wanted\n");
}

void directory_for_the_index(const std::string &root) {
    fs::remove(root + "/fileindex/foo");
    fs::create_directory(root + "/fileindex/foo");
}

// A list of links of another package that nobody can read.
void loop_for_the_links_of_another(const std::string &root) {
    fs::create_directories(root + "/installed/bar");
    fs::create_symlink("link.txt", root + "/installed/bar/link.txt");
}

void directory_for(const std::string &path) {
    fs::remove(path);
    fs::create_directory(path);
}

// A file of another package where foo brings one.
void file_of_another(const std::string &root) {
    put(live + "/taken", "of bar\n");
    PackageSpec bar;
    bar.name = "bar";
    fs::create_directories(root + "/installed/bar");
    put(root + "/installed/bar/desc.txt", description_of(bar));
    put(root + "/installed/bar/inst.txt", "evrkInstallTime: 1700000000\nevrkInstallType: X\n");
    put(root + "/fileindex/bar", live + "/taken\n");
}

void disk_error(const std::string &) {
    FailingSync::fail_next();
}

// When the change begins it is looked at as well.
void open_stage_area(const std::string &root) {
    chmod((root + "/stagearea").c_str(), 0777);
}

// ---- The cases ----

std::vector<golden_case> of_installations() {
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

std::vector<golden_case> of_updates() {
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

std::vector<golden_case> of_removals() {
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

std::vector<golden_case> all_cases() {
    std::vector<golden_case> all = of_installations();
    for (const auto &more : {of_updates(), of_removals()}) {
        all.insert(all.end(), more.begin(), more.end());
    }
    return all;
}

// Temporary directories of the tests, and so the repository, on the file system of what is
// installed: there files are linked and moved, elsewhere they are copied.
class OneFileSystem {
 protected:
    OneFileSystem() {
        fs::create_directories("/srv/tmp");
        setenv("TMPDIR", "/srv/tmp", 1);
    }
    ~OneFileSystem() {
        unsetenv("TMPDIR");
    }
    OneFileSystem(const OneFileSystem &) = delete;
    OneFileSystem &operator=(const OneFileSystem &) = delete;
};

class LoggedChange : public ChangeOfFoo {
 protected:
    // Makes the change of a case. Its log is compared.
    void expect_log_of(const golden_case &wanted, const std::string &name) {
        if (wanted.has_hook) {
            hook("data:/srv/t/foo", "/bin/hook");
        }
        prepare(wanted.what, wanted.before, wanted.after);
        wanted.spoil(repo.root());
        int code = -1000;
        bool reached = true;
        if (wanted.line.empty()) {
            code = change();
        } else {
            const AtLogLine trouble(wanted.line, [&] { wanted.fault(repo.root()); });
            code = change();
            reached = trouble.reached();
        }
        EXPECT_EQ(code, wanted.result);
        EXPECT_TRUE(reached) << wanted.line;
        EXPECT_FALSE(FailingSync::is_armed());
        expect_golden(golden_directory + "/" + name + ".log", text());
        forget_hooks();
    }

    // The log with what is another in each run replaced.
    std::string text() const {
        std::string text = log.text();
        for (const auto &[what, by] :
             {std::pair<std::string, std::string>{repo.root(), "REPO"}, {files.path(), "FILES"}}) {
            for (size_t at = 0; (at = text.find(what, at)) != std::string::npos;) {
                text.replace(at, what.size(), by);
            }
        }
        // A package's size depends on what it was made of: inodes and times are in its head.
        for (const auto &[what, by] : {
                 std::pair<const char *, const char *>{"Got \\d+ bytes of package",
                                                       "Got SIZE bytes of package"},
                 {"(Valid (from|until)): [-0-9: ]+", "$1: TIME"},
             }) {
            text = std::regex_replace(text, std::regex(what), by);
        }
        return text;
    }

    const SortedDirectories sorted = {};
};

class GoldenLog : public OneFileSystem,
                  public LoggedChange,
                  public testing::WithParamInterface<golden_case> {};

class GoldenLogOfTwoFileSystems : public LoggedChange,
                                  public testing::WithParamInterface<golden_case> {};

std::vector<golden_case> successes() {
    std::vector<golden_case> all = all_cases();
    std::erase_if(all, [](const golden_case &one) { return one.result != 0; });
    return all;
}

std::string name_of_case(const testing::TestParamInfo<golden_case> &info) {
    std::string name;
    for (const char c : info.param.name) {
        name += c == '-' ? '_' : c;
    }
    return name;
}

}  // namespace

TEST_P(GoldenLog, IsAsKept) {
    expect_log_of(GetParam(), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(, GoldenLog, testing::ValuesIn(all_cases()), name_of_case);

TEST_P(GoldenLogOfTwoFileSystems, IsAsKept) {
    expect_log_of(GetParam(), GetParam().name + "-two-file-systems");
}

INSTANTIATE_TEST_SUITE_P(, GoldenLogOfTwoFileSystems, testing::ValuesIn(successes()), name_of_case);

// Several packages: the order of their lines, and rmpkg.
TEST_F(LoggedChange, OfSeveralPackages) {
    offer(simple("low"));
    PackageSpec middle = simple("middle", {"low"});
    offer(middle);
    prepare(operation::install, {}, version(simple("foo", {"middle"}), "1.0"));
    EXPECT_EQ(change(1), 0);
    expect_golden(golden_directory + "/install-dependencies.log", text());

    offer(simple("new"));
    offer(version(simple("foo", {"middle", "new"}), "2.0"));
    what_ = operation::update;
    plan_anew();
    EXPECT_EQ(change(1), 0);
    expect_golden(golden_directory + "/update-dependencies.log", text());

    what_ = operation::removal;
    plan_anew();
    EXPECT_EQ(change(), 0);
    expect_golden(golden_directory + "/removal-dependencies.log", text());
}

// A file that no test reads would be taken for an expectation.
TEST(GoldenLogs, AreAllOfACase) {
    std::vector<std::string> names = {"README.md", "install-dependencies.log",
                                      "update-dependencies.log", "removal-dependencies.log"};
    for (const golden_case &one : all_cases()) {
        names.push_back(one.name + ".log");
    }
    for (const golden_case &one : successes()) {
        names.push_back(one.name + "-two-file-systems.log");
    }
    std::sort(names.begin(), names.end());
    EXPECT_THAT(tree(golden_directory), ElementsAreArray(names));
}
