#include "repository/snapshot.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "kit/failing_reads.h"
#include "kit/log_capture.h"
#include "kit/test_repo.h"
#include "repository/inventory.h"
#include "transaction/plan_removal.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// What a record says, as text; "(none)" for null.
std::string text_of(const vri *info) {
    if (!info) {
        return "(none)";
    }
    const own_ekva pairs(vrk_info_ekva(info, 2));
    std::string text;
    for (s_ekva *const *pair = pairs.get() + 1; *pair; pair++) {
        text += std::string((*pair)->key) + "=" + ((*pair)->val ? (*pair)->val : "(null)") + "\n";
    }
    return text;
}

template <class Infos>
std::vector<std::string> names_of(const Infos &infos) {
    std::vector<std::string> names;
    for (const vri *info : infos) {
        names.emplace_back(info->name);
    }
    return names;
}

class Snapshot : public testing::Test {
 protected:
    // Under the lock nobody else makes changes, so nothing is in doubt.
    Snapshot() {
        EXPECT_EQ(vrm_lock(repo.handle()), 0);
    }

    void add(const std::string &name, std::vector<std::string> deps = {},
             const std::string &version = "1.0") {
        PackageSpec spec;
        spec.name = name;
        spec.version = version;
        spec.deps = std::move(deps);
        repo.install(spec);
    }
    std::string in_entry(const std::string &below) {
        return repo.in("installed/" + below);
    }
    void damage(const std::string &name) {
        std::ofstream(in_entry(name + "/desc.txt")) << "evrkName: " + name + "\n";
    }
    // One of each sort, and a circle.
    void fill() {
        add("a", {"b", "c", "b"});
        add("b", {"a"});
        add("c");
        add("damaged", {"c"});
        damage("damaged");
        add("inner", {"c"});
        fs::rename(in_entry("inner"), in_entry("outer"));
        add("elsewhere", {"c"});
        fs::rename(in_entry("elsewhere"), repo.in("elsewhere"));
        fs::create_directory_symlink(repo.in("elsewhere"), in_entry("link"));
        add(".c.old", {"b"});
        add("half");
        fs::remove(in_entry("half/inst.txt"));
        std::ofstream(in_entry("file")) << "x";
    }
    const std::vector<std::string> asked = {
        "a",      "b",    "c",    "damaged", "inner", "outer", "link", "half",
        ".c.old", "file", "none", "",        ".",     "..",    "a/",   "../installed/a"};

    TestRepo repo;
    LogCapture log;
    inventory_snapshot snapshot{repo.handle()};
};

}  // namespace

TEST_F(Snapshot, FindsWhatTheTreeHolds) {
    fill();
    for (int time = 0; time < 2; time++) {
        for (const std::string &name : asked) {
            const own_vri info(vrm_vrl_info(repo.handle(), name.c_str()));
            const own_vri own(vrm_vrl_own_info(repo.handle(), name.c_str()));
            EXPECT_EQ(text_of(snapshot.find(name)), text_of(info.get())) << name;
            EXPECT_EQ(text_of(snapshot.find_own(name)), text_of(own.get())) << name;
        }
        snapshot.packages();  // and the same after a reading of all
    }
    EXPECT_NE(snapshot.find("outer"), nullptr);
    EXPECT_EQ(snapshot.find_own("outer"), nullptr);
}

TEST_F(Snapshot, ListsWhatTheTreeLists) {
    fill();
    vri **raw = nullptr;
    const int count = vrm_list_vri(repo.handle(), nullptr, 1, &raw);
    const own_vri_list list(raw);
    const std::vector<const vri *> &packages = snapshot.packages();
    ASSERT_EQ(packages.size(), static_cast<size_t>(count));
    for (size_t i = 0; i < packages.size(); i++) {
        EXPECT_EQ(text_of(packages[i]), text_of(raw[i]));
    }
    EXPECT_THAT(names_of(packages), ElementsAre("a", "b", "c", "inner"));
    EXPECT_THAT(snapshot.names(), ElementsAre("a", "b", "c", "inner"));
}

TEST_F(Snapshot, KeepsTheOrderOfTheDirectory) {
    fill();
    std::vector<std::string> expected, names;
    for (const fs::directory_entry &entry : fs::directory_iterator(repo.in("installed"))) {
        if (entry.path().filename() != ".c.old") {
            expected.push_back(entry.path().filename());
        }
    }
    for (const inventory_snapshot::listed_entry &entry : snapshot.entries()) {
        if (entry.name != "." && entry.name != "..") {
            names.push_back(entry.name);
            EXPECT_EQ(entry.is_directory, entry.name != "file" && entry.name != "link");
        }
    }
    EXPECT_EQ(names, expected);
}

TEST_F(Snapshot, NamesTheDependentsThatTheTreeNames) {
    fill();
    for (const std::string &name : asked) {
        const own_array names(vrm_dependson(repo.handle(), name.c_str()));
        std::vector<std::string> expected;
        for (char *const *one = names.get(); one && *one; one++) {
            expected.emplace_back(*one);
        }
        EXPECT_EQ(names_of(snapshot.dependents(name)), expected) << name;
    }
    EXPECT_THAT(names_of(snapshot.dependents("c")), ElementsAre("a", "inner"));
}

TEST_F(Snapshot, ReadsAnEntryOnceAndOnlyWhenAsked) {
    fill();
    EXPECT_EQ(snapshot.readings(), 0u);
    snapshot.find("a");
    snapshot.find_own("a");
    snapshot.find("none");
    EXPECT_EQ(snapshot.readings(), 1u);
    snapshot.entries();
    EXPECT_EQ(snapshot.readings(), 6u);
    snapshot.entries();
    snapshot.dependents("c");
    snapshot.find("b");
    EXPECT_EQ(snapshot.readings(), 6u);
}

TEST_F(Snapshot, AnswersFromMemory) {
    fill();
    const std::string before = text_of(snapshot.find("a"));
    snapshot.packages();
    snapshot.dependents("c");
    fs::remove_all(repo.in("installed"));
    EXPECT_EQ(text_of(snapshot.find("a")), before);
    EXPECT_EQ(snapshot.packages().size(), 4u);
    EXPECT_EQ(snapshot.dependents("c").size(), 2u);
}

TEST_F(Snapshot, ReportsADamagedEntryOnceInAListAndItsReasonWithEachQuestion) {
    fill();
    const std::string line = "Failure parsing info for <damaged>, skipping entry";
    const auto reasons = [this] {
        const auto lines = log.at(LEVEL_INFO);
        return std::count(lines.begin(), lines.end(), "vrk_info_parse: Unspecified package format");
    };
    snapshot.entries();
    EXPECT_FALSE(log.has(LEVEL_WARNING, line));
    EXPECT_EQ(reasons(), 1);
    snapshot.packages();
    EXPECT_TRUE(log.has(LEVEL_WARNING, line));
    EXPECT_EQ(reasons(), 2) << "the reason goes ahead of it";
    log.clear();
    snapshot.packages();
    EXPECT_FALSE(log.has(LEVEL_WARNING, line));
    EXPECT_EQ(snapshot.find("damaged"), nullptr);
    EXPECT_EQ(reasons(), 1);
}

TEST_F(Snapshot, ADamagedEntryIsWhatItWasUntilItIsForgotten) {
    fill();
    EXPECT_EQ(snapshot.find("damaged"), nullptr);
    add("damaged");
    EXPECT_EQ(snapshot.find("damaged"), nullptr);
    EXPECT_TRUE(snapshot.refresh());
    EXPECT_NE(snapshot.find("damaged"), nullptr);
}

TEST_F(Snapshot, AListThatBreaksOffIsNone) {
    fill();
    {
        const FailingReaddir failing(3);
        EXPECT_THAT(snapshot.packages(), IsEmpty());
        EXPECT_THAT(snapshot.names(), IsEmpty());
    }
    EXPECT_EQ(snapshot.errors().read, EIO);
    EXPECT_TRUE(log.has(LEVEL_WARNING,
                        "Failure reading <" + repo.in("installed") + ">: Input/output error"));
}

TEST_F(Snapshot, AListThatIsNotThereIsNone) {
    fs::remove_all(repo.in("installed"));
    EXPECT_THAT(snapshot.packages(), IsEmpty());
    EXPECT_EQ(snapshot.errors().open, ENOENT);
    EXPECT_TRUE(log.has(LEVEL_WARNING, "Failure opening <" + repo.in("installed") +
                                           "> for reading: No such file or directory"));
    add("a");
    EXPECT_TRUE(snapshot.refresh());
}

TEST_F(Snapshot, IsCurrentUntilSomethingChanges) {
    fill();
    EXPECT_FALSE(snapshot.refresh()) << "nothing was read";
    snapshot.packages();
    EXPECT_FALSE(snapshot.refresh());
}

TEST_F(Snapshot, DoesNotMindChangesOfWhatItDidNotRead) {
    fill();
    snapshot.find("a");
    add("new");
    damage("b");
    EXPECT_FALSE(snapshot.refresh());
}

TEST_F(Snapshot, DoesNotMindTheWorkDirectoriesOfAnUpdate) {
    fill();
    snapshot.packages();
    fs::create_directory(in_entry(".a.new"));
    EXPECT_FALSE(snapshot.refresh());
}

namespace {

// Each is a change that a snapshot must notice.
struct Change {
    const char *name;
    void (*make)(const std::string &installed);
};

void rewrite(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::in | std::ios::out) << text;  // in place
}

std::string content(const std::string &path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

const Change changes[] = {
    {"ANewEntry",
     [](const std::string &dir) {
         fs::copy(dir + "/a", dir + "/new", fs::copy_options::recursive);
     }},
    {"ARemovedEntry", [](const std::string &dir) { fs::remove_all(dir + "/c"); }},
    {"AnEntryThatIsNoDirectoryNow",
     [](const std::string &dir) {
         fs::rename(dir + "/c", dir + "/../c");
         fs::create_directory_symlink(dir + "/../c", dir + "/c");
     }},
    {"ADescriptionWrittenInPlace",
     [](const std::string &dir) { rewrite(dir + "/a/desc.txt", content(dir + "/a/desc.txt")); }},
    {"AnotherDescription",
     [](const std::string &dir) {
         fs::copy_file(dir + "/a/desc.txt", dir + "/a/desc.new");
         fs::rename(dir + "/a/desc.new", dir + "/a/desc.txt");
     }},
    {"AnInstallRecordWrittenInPlace",
     [](const std::string &dir) { rewrite(dir + "/a/inst.txt", "evrkInstallTime: 1600000000\n"); }},
    {"AReplacedEntry",
     [](const std::string &dir) {
         fs::copy(dir + "/a", dir + "/.a.new", fs::copy_options::recursive);
         fs::rename(dir + "/a", dir + "/.a.old");
         fs::rename(dir + "/.a.new", dir + "/a");
         fs::remove_all(dir + "/.a.old");
     }},
    {"AnInstallRecordThatCameLate",
     [](const std::string &dir) { fs::copy_file(dir + "/a/inst.txt", dir + "/half/inst.txt"); }},
    {"AnInstallRecordThatWent", [](const std::string &dir) { fs::remove(dir + "/a/inst.txt"); }},
};

class SnapshotNotices : public Snapshot, public testing::WithParamInterface<Change> {};

}  // namespace

TEST_P(SnapshotNotices, AndReadsThatAlone) {
    fill();
    snapshot.packages();
    snapshot.dependents("c");
    ASSERT_FALSE(snapshot.refresh());
    GetParam().make(repo.in("installed"));
    const size_t before = snapshot.readings();
    EXPECT_TRUE(snapshot.refresh());
    EXPECT_FALSE(snapshot.refresh());
    snapshot.entries();
    EXPECT_LE(snapshot.readings(), before + 1);

    inventory_snapshot fresh(repo.handle());
    EXPECT_EQ(names_of(snapshot.packages()), names_of(fresh.packages()));
    for (const char *const name : {"a", "c", "half", "new"}) {
        EXPECT_EQ(text_of(snapshot.find(name)), text_of(fresh.find(name))) << name;
        EXPECT_EQ(names_of(snapshot.dependents(name)), names_of(fresh.dependents(name))) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(Changes, SnapshotNotices, testing::ValuesIn(changes),
                         [](const auto &one) { return std::string(one.param.name); });

TEST_F(Snapshot, NoticesThatWhatWasNotInstalledIs) {
    EXPECT_EQ(snapshot.find("a"), nullptr);
    EXPECT_FALSE(snapshot.refresh());
    add("a");
    EXPECT_TRUE(snapshot.refresh());
    EXPECT_NE(snapshot.find("a"), nullptr);
}

// A clock that has not gone on since the entry was made: a further change could leave the same
// time.
static bool is_clock_stopped = false;

extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept {
    static const auto real =
        reinterpret_cast<int (*)(clockid_t, timespec *)>(dlsym(RTLD_NEXT, "clock_gettime"));
    if (is_clock_stopped && clock == CLOCK_REALTIME_COARSE) {
        *time = {};
        return 0;
    }
    return real(clock, time);
}

TEST_F(Snapshot, WithoutTheLockWhatWasJustChangedIsInDoubt) {
    add("a");
    const auto is_current_after_reading = [this](bool stopped) {
        is_clock_stopped = stopped;
        inventory_snapshot quick(repo.handle());
        quick.find("a");
        is_clock_stopped = false;
        return !quick.refresh();
    };
    EXPECT_TRUE(is_current_after_reading(true)) << "nobody else makes changes";
    ASSERT_EQ(vrm_unlock(repo.handle()), 0);
    EXPECT_FALSE(is_current_after_reading(true));
    while (!is_current_after_reading(false)) {
    }
}

// The system's clock for files may not go on between its ticks, so that a change right after the
// reading leaves the time of the one before it.
TEST_F(Snapshot, WithoutTheLockNoChangeIsMissedForItsTime) {
    ASSERT_EQ(vrm_unlock(repo.handle()), 0);
    add("a");
    const std::string path = in_entry("a/desc.txt");
    const std::string one = content(path);
    std::string other = one;
    other.replace(other.find("A test"), 6, "B test");
    for (int round = 0; round < 50; round++) {
        rewrite(path, one);
        inventory_snapshot quick(repo.handle());
        quick.find("a");
        rewrite(path, other);
        ASSERT_TRUE(quick.refresh()) << "round " << round;
    }
}

TEST_F(Snapshot, ForgetsWhatItsCallerChanged) {
    fill();
    snapshot.packages();
    add("a", {"half"}, "2.0");
    add("new", {"c"});
    snapshot.forget("a");
    snapshot.forget("new");
    const size_t before = snapshot.readings();
    EXPECT_STREQ(snapshot.find("a")->version, "2.0");
    EXPECT_THAT(names_of(snapshot.dependents("c")), ElementsAre("inner", "new"));
    EXPECT_EQ(snapshot.readings(), before + 2);
    EXPECT_FALSE(snapshot.refresh());
    fs::remove_all(in_entry("new"));
    snapshot.forget("new");
    EXPECT_THAT(names_of(snapshot.dependents("c")), ElementsAre("inner"));
    EXPECT_EQ(snapshot.find("new"), nullptr);
}
