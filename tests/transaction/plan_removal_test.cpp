#include "transaction/plan_removal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "kit/log_capture.h"
#include "kit/scripted_user.h"
#include "kit/test_repo.h"
#include "repository/inventory.h"
#include "ui/vrmui.h"

// The planning of removals, which only reads.

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class PlanRemoval : public testing::Test {
 protected:
    PlanRemoval() {
        ScriptedUser::fresh();
    }

    // An installed package; with a head it came as that one's dependency.
    void add(const std::string &name, std::vector<std::string> deps = {},
             const std::string &head = "") {
        PackageSpec spec;
        spec.name = name;
        spec.deps = std::move(deps);
        spec.more = "evrkDataSize: 10\n";
        repo.install(spec, {"/srv/t/" + name},
                     head.empty() ? "evrkInstallTime: 1700000000\nevrkInstallType: X\n"
                                  : "evrkInstallTime: 1700000000\nevrkInstallType: D\n"
                                    "evrkInstallHead: " +
                                        head + "\n");
    }

    // Puts the record of another package into the entry.
    void take_over(const std::string &entry, const std::string &other) {
        fs::copy_file(repo.in("installed/" + other + "/desc.txt"),
                      repo.in("installed/" + entry + "/desc.txt"),
                      fs::copy_options::overwrite_existing);
    }

    own_vrt plan(const std::string &name, int mode = 0) {
        vrt *out = nullptr;
        vrt *made = vrm_pre_delete(repo.handle(), name.c_str(), mode, &out);
        EXPECT_EQ(made, out);
        return own_vrt(made);
    }

    // "name for candidate" of each dependency that goes along.
    static std::vector<std::string> along(const own_vrt &transaction) {
        std::vector<std::string> found;
        for (int i = 0; transaction && i < transaction->num_deps; i++) {
            const vrd *dep = transaction->deps[i];
            EXPECT_EQ(dep->status, 'I');
            EXPECT_EQ(dep->action, 'D');
            EXPECT_EQ(dep->extra, nullptr);
            EXPECT_STREQ(dep->info->name, dep->name);
            found.push_back(std::string(dep->name) + " for " + dep->cand);
        }
        if (transaction && transaction->deps) {
            EXPECT_EQ(transaction->deps[transaction->num_deps], nullptr);
        }
        return found;
    }

    std::vector<std::string> dependents(const std::string &name) {
        const own_vri package(vrm_vrl_info(repo.handle(), name.c_str()));
        vri **list = vrm_chk_delete_reqs(repo.handle(), package.get());
        std::vector<std::string> names;
        for (vri **found = list; found && *found; found++) {
            names.push_back((*found)->name);
        }
        EXPECT_TRUE(!list || !names.empty());
        vrm_vri_list_free(list);
        return names;
    }

    bool debug(const std::string &line) {
        return log.has(LEVEL_DEBUG, "vrm_chk_delete_deps: " + line);
    }

    TestRepo repo;
    LogCapture log;
};

std::string text() {
    return vrmui->text;
}

}  // namespace

TEST_F(PlanRemoval, WhatIsNotInstalledIsPassedOver) {
    vrt *out = reinterpret_cast<vrt *>(&out);
    vrt *const before = out;
    EXPECT_EQ(vrm_pre_delete(repo.handle(), "foo", 0, &out), nullptr);
    EXPECT_EQ(out, before);
    EXPECT_EQ(text(), "foo is not installed, skipping\n");
}

TEST_F(PlanRemoval, WhatNobodyNeedsCanGo) {
    add("foo");
    own_vrt made = plan("foo");
    ASSERT_TRUE(made);
    EXPECT_EQ(text(), "foo can be deleted, nothing depends on it\n");
    EXPECT_STREQ(made->name, "foo");
    EXPECT_EQ(made->source, 'L');
    EXPECT_EQ(made->action, 'D');
    EXPECT_EQ(made->mark, 'N');
    EXPECT_STREQ(made->info->name, "foo");
    EXPECT_EQ(made->num_deps, 0);
    EXPECT_EQ(made->deps, nullptr);
    EXPECT_EQ(made->tot_data_size, 10u);
    EXPECT_EQ(made->tot_file_size, 0u);
    EXPECT_STREQ(made->scripts[0]->key, "#EKVA_10:1:1");
    EXPECT_STREQ(made->hookcmds[0]->key, "#EKVA_10:1:3");
    EXPECT_TRUE(debug("checking candidate <foo>"));
    EXPECT_TRUE(debug("ok, canidate <foo> has no new dependencies, total of deps: 0"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "foo can be removed along with 0 deps"));
}

TEST_F(PlanRemoval, AnOrphanGoesAlong) {
    add("t", {"a"});
    add("a", {}, "t");
    own_vrt made = plan("t");
    EXPECT_THAT(along(made), ElementsAre("a for t"));
    EXPECT_EQ(made->tot_data_size, 20u);
    EXPECT_STREQ(made->scripts[0]->key, "#EKVA_10:2:1");
    EXPECT_STREQ(made->hookcmds[0]->key, "#EKVA_10:2:3");
    EXPECT_TRUE(debug("initially allocating space for 2 vrds, setting counter to 1"));
    EXPECT_TRUE(debug("Got dependency a"));
    EXPECT_TRUE(debug("ok, a WAS installed as dependency of t"));
    EXPECT_TRUE(debug("a seems not to be required by anybody else, adding it"));
    EXPECT_TRUE(debug("we now have a total of 1 deps"));
    EXPECT_TRUE(debug("ok, canidate <a> has no new dependencies, total of deps: 1"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "t can be removed along with 1 deps"));
}

TEST_F(PlanRemoval, WhatTheUserAskedForStays) {
    add("t", {"a"});
    add("a");
    own_vrt made = plan("t");
    ASSERT_TRUE(made);
    EXPECT_THAT(along(made), IsEmpty());
    EXPECT_EQ(made->deps, nullptr);
    EXPECT_TRUE(debug("nope, a WAS installed explicitely"));
}

TEST_F(PlanRemoval, WhatAnotherNeedsTooStays) {
    add("t", {"a"});
    add("a", {}, "t");
    add("b", {"a"});
    own_vrt made = plan("t");
    ASSERT_TRUE(made);
    EXPECT_THAT(along(made), IsEmpty());
    EXPECT_TRUE(debug("skipping dependency a, b also depends on it"));
}

TEST_F(PlanRemoval, ThePackageThatSomethingCameForDecidesWhileItIsThere) {
    add("t", {"a", "b"});
    add("a", {}, "other");
    add("b", {}, "gone");
    add("other");
    own_vrt made = plan("t");
    EXPECT_THAT(along(made), ElementsAre("b for t"));
    EXPECT_TRUE(debug("nope, a was installed as a dependency of other, which is still installed"));
    EXPECT_TRUE(
        debug("ok, b was installed as a dependency of gone, which is not installed anymore"));
}

TEST_F(PlanRemoval, ADependencyThatIsGoneIsAWarning) {
    add("t", {"a"});
    own_vrt made = plan("t");
    ASSERT_TRUE(made);
    EXPECT_TRUE(log.has(LEVEL_WARNING,
                        "dependency a has already ben deleted, this should not really happen"));
}

TEST_F(PlanRemoval, ANeededPackageIsRefused) {
    add("t", {"a"});
    add("a");
    EXPECT_FALSE(plan("a"));
    EXPECT_EQ(text(), "a cannot be deleted, t depends on it\n");
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "a cannot be deleted, t depends on it"));
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, "a cannot be deleted, t depends on it"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_pre_delete: found dependent packages for a"));
}

TEST_F(PlanRemoval, WhatCameForThePackageItselfDoesNotHoldIt) {
    add("a", {"t"});
    add("t", {"a"}, "a");
    own_vrt made = plan("a");
    ASSERT_TRUE(made);
    EXPECT_EQ(text(), "a can be deleted, nothing depends on it\n");
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "t is a circular dependency of a, allowing"));
    EXPECT_THAT(along(made), ElementsAre("t for a"));
}

// The order of a directory is the file system's: which of the two comes first is asked before.
TEST_F(PlanRemoval, OfTwoDependentsTheLastOneDecides) {
    add("one", {"a"});
    add("two", {"a"});
    add("a");
    const std::vector<std::string> order = dependents("a");
    ASSERT_EQ(order.size(), 2u);
    add(order[1], {"a"}, "a");
    ASSERT_EQ(dependents("a"), order);
    own_vrt made = plan("a");
    ASSERT_TRUE(made) << "a refusing one first and an allowing one behind it";
    EXPECT_EQ(text(), "a cannot be deleted, " + order[0] +
                          " depends on it\na can be deleted, nothing depends on it\n");

    ScriptedUser::fresh();
    add(order[1], {"a"});
    add(order[0], {"a"}, "a");
    EXPECT_FALSE(plan("a")) << "an allowing one first and a refusing one behind it";
    EXPECT_EQ(text(), "a cannot be deleted, " + order[1] + " depends on it\n");
}

TEST_F(PlanRemoval, ModeTwoLooksAtNoDependency) {
    add("t", {"a"});
    add("a", {}, "t");
    own_vrt made = plan("t", 2);
    ASSERT_TRUE(made);
    EXPECT_EQ(made->num_deps, 0);
    EXPECT_EQ(made->deps, nullptr);
    EXPECT_FALSE(debug("checking candidate <t>"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "t can be removed along with 0 deps"));
}

TEST_F(PlanRemoval, OrphansOfOrphansGoToo) {
    add("t", {"a"});
    add("a", {"b"}, "t");
    add("b", {}, "a");
    EXPECT_THAT(along(plan("t")), ElementsAre("a for t", "b for a"));
    EXPECT_TRUE(debug("reallocating space for 3 vrds, setting counter to 2"));
    EXPECT_TRUE(debug("we now have a total of 2 deps"));
}

TEST_F(PlanRemoval, TheSecondOrphanTakesThePlaceOfWhatTheFirstBrought) {
    add("t", {"a", "c"});
    add("a", {"b"}, "t");
    add("b", {}, "a");
    add("c", {}, "t");
    EXPECT_THAT(along(plan("t")), ElementsAre("a for t", "c for t"));
    EXPECT_EQ(log.at(LEVEL_DEBUG).back(), "t can be removed along with 2 deps");
}

TEST_F(PlanRemoval, WhatTwoOrphansShareStaysForThisTime) {
    add("t", {"a", "c"});
    add("a", {"b"}, "t");
    add("b", {}, "gone");
    add("c", {"a", "b"}, "t");
    EXPECT_THAT(along(plan("t")), ElementsAre("c for t"));
    EXPECT_TRUE(debug("skipping dependency a, c also depends on it"));
    EXPECT_TRUE(debug("skipping dependency b, a also depends on it"));
}

TEST_F(PlanRemoval, EnoughRoomIsNotMadeAgain) {
    add("t", {"a", "x", "y", "z"});
    add("a", {"b"}, "t");
    add("b", {}, "a");
    for (const char *name : {"x", "y", "z"}) {
        add(name);
    }
    EXPECT_THAT(along(plan("t")), ElementsAre("a for t", "b for a"));
    EXPECT_TRUE(debug("initially allocating space for 5 vrds, setting counter to 4"));
    EXPECT_TRUE(
        debug("not reallocating space, as we already have 4 and this run could only go to 2"));
}

TEST_F(PlanRemoval, ACircleStopsAtTheRecordThatIsThere) {
    add("t", {"a"});
    add("a", {"b"}, "t");
    add("b", {"a"}, "a");
    // b needs a as well, so a would stay: it takes a circle of two with the top to go round.
    EXPECT_THAT(along(plan("t")), IsEmpty());
    EXPECT_TRUE(debug("skipping dependency a, b also depends on it"));
    log.clear();
    add("u", {"v", "v"});
    add("v", {}, "u");
    EXPECT_THAT(along(plan("u")), ElementsAre("v for u"));
    EXPECT_TRUE(debug("found circular dependency on v"));
}

TEST_F(PlanRemoval, ACircleOfTheWholeTreeEnds) {
    add("t", {"a"}, "b");
    add("a", {"b"}, "t");
    add("b", {"t"}, "a");
    // b stands in the way of t, so the search is asked itself.
    const own_vri top(vrm_vrl_info(repo.handle(), "t"));
    int num = 0;
    vrd **deps = nullptr;
    EXPECT_EQ(vrm_chk_delete_deps(repo.handle(), top.get(), &num, &deps), 0);
    ASSERT_EQ(num, 3);
    EXPECT_STREQ(deps[0]->name, "a");
    EXPECT_STREQ(deps[1]->name, "b");
    EXPECT_STREQ(deps[2]->name, "t");
    EXPECT_EQ(deps[3], nullptr);
    EXPECT_TRUE(debug("found circular dependency on a"));

    // A further search of the same array goes on behind what is there.
    add("other", {"a", "c"});
    add("c", {}, "other");
    const own_vri other(vrm_vrl_info(repo.handle(), "other"));
    log.clear();
    EXPECT_EQ(vrm_chk_delete_deps(repo.handle(), other.get(), &num, &deps), 0);
    EXPECT_EQ(num, 4);
    EXPECT_STREQ(deps[3]->name, "c");
    EXPECT_TRUE(debug("found circular dependency on a"));
    EXPECT_TRUE(debug("reallocating space for 6 vrds, setting counter to 5"));
    for (vrd **record = deps; *record; record++) {
        vrd_free(*record);
        free(*record);
    }
    free(deps);
}

TEST_F(PlanRemoval, ALongChainGoesAtOnce) {
    const int length = 1000;
    add("p0", {"p1"});
    for (int i = 1; i < length; i++) {
        add("p" + std::to_string(i),
            i + 1 < length ? std::vector<std::string>{"p" + std::to_string(i + 1)}
                           : std::vector<std::string>{},
            "p" + std::to_string(i - 1));
    }
    log_level_new(llog, LEVEL_ERROR | LEVEL_WARNING, LEVEL_ERROR, LEVEL_ERROR);
    llog->syslog_levels = 0;
    own_vrt made = plan("p0");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->num_deps, length - 1);
}

TEST_F(PlanRemoval, NoMoreThanTwoDependentsAreSeen) {
    add("a");
    for (const char *name : {"x", "y", "z"}) {
        add(name, {"a", "a"});
    }
    EXPECT_EQ(dependents("a").size(), 2u);
    EXPECT_THAT(dependents("x"), IsEmpty());
}

TEST_F(PlanRemoval, TheScanPassesOverWhatIsNoPackage) {
    add("a");
    add("b", {"a"});
    fs::create_directories(repo.in("installed/.b.old"));
    fs::create_directories(repo.in("installed/broken"));
    fs::create_directory_symlink(repo.in("installed/b"), repo.in("installed/link"));
    EXPECT_THAT(dependents("a"), ElementsAre("b"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Omitting non-directory link"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "Failure parsing info for broken, skipping entry"));
    EXPECT_FALSE(log.has(LEVEL_DEBUG, "Failure parsing info for .b.old, skipping entry"));
    EXPECT_TRUE(log.at(LEVEL_WARNING).empty());
}

TEST_F(PlanRemoval, AnUnreadableInventoryHoldsNoDependents) {
    add("a");
    const own_vri package(vrm_vrl_info(repo.handle(), "a"));
    fs::remove_all(repo.in("installed"));
    EXPECT_EQ(vrm_chk_delete_reqs(repo.handle(), package.get()), nullptr);
    EXPECT_TRUE(log.has(LEVEL_WARNING, "Failure opening <" + repo.in("installed") +
                                           "> for reading: No such file or directory"));
}

TEST_F(PlanRemoval, AllDependentsAreNamedForTheAudit) {
    add("a");
    add("A");
    for (const char *name : {"z", "x", "y"}) {
        add(name, {"b", "a"});
    }
    add("other", {"A", "aa"});
    own_array names(vrm_dependson(repo.handle(), "a"));
    ASSERT_TRUE(names);
    EXPECT_THAT(std::vector<std::string>(names.get(), names.get() + arr_count(names.get())),
                ElementsAre("x", "y", "z"));
    EXPECT_EQ(vrm_dependson(repo.handle(), "nobody"), nullptr);
    names.reset(vrm_dependson(repo.handle(), "missing-too"));
    EXPECT_FALSE(names);
}

TEST_F(PlanRemoval, AnEntryWithTheRecordOfAnotherPackageIsNotRemoved) {
    add("victim");
    add("lib", {}, "top");
    add("top", {"lib"});
    take_over("lib", "victim");
    const std::string warning = "not removing lib: its entry in the inventory is that of victim";
    EXPECT_FALSE(plan("lib"));
    EXPECT_THAT(log.at(LEVEL_WARNING), ElementsAre(warning));
    log.clear();
    const own_vrt transaction = plan("top");
    ASSERT_TRUE(transaction);
    EXPECT_THAT(along(transaction), IsEmpty());
    EXPECT_THAT(log.at(LEVEL_WARNING), ElementsAre(warning));
}
