#include "transaction/plan_install.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kit/failing_memory.h"
#include "kit/log_capture.h"
#include "kit/scripted_user.h"
#include "kit/test_repo.h"
#include "repository/vrc.h"
#include "support/arch.h"
#include "transaction/plan_walk.h"
#include "ui/vrmui.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// One package of the fake catalogue.
struct Offer {
    std::vector<std::string> deps = {};
    int32_t arch = arch_any;
    std::string version = "1.0";
    uint64_t filesize = 0;
    uint64_t datasize = 0;
    bool empty_list = false;  // a dependency list of no names, in place of none
    bool once = false;        // found by the first search only
};

std::map<std::string, Offer> catalogue;

vri *record_of(const std::string &name, const Offer &offer) {
    auto *record = static_cast<vri *>(calloc(1, sizeof(vri)));
    record->name = strdup(name.c_str());
    record->version = strdup(offer.version.c_str());
    record->description = strdup("In the catalogue");
    record->arch = offer.arch;
    record->filesize = offer.filesize;
    record->datasize = offer.datasize;
    if (!offer.deps.empty() || offer.empty_list) {
        record->deps = static_cast<char **>(calloc(offer.deps.size() + 1, sizeof(char *)));
        for (size_t i = 0; i < offer.deps.size(); i++) {
            record->deps[i] = strdup(offer.deps[i].c_str());
        }
    }
    return record;
}

int fake_findpkg(void *, const char *name, const char *, const char *version, int, s_ekva **,
                 vri ***out) {
    const auto offer = catalogue.find(name);
    if (offer == catalogue.end() || (version && offer->second.version != version)) {
        return 0;
    }
    *out = static_cast<vri **>(calloc(2, sizeof(vri *)));
    const int left = std::exchange(strdups_left, -1);  // the backend doesn't run out of memory
    (*out)[0] = record_of(name, offer->second);
    strdups_left = left;
    if (offer->second.once) {
        catalogue.erase(offer);
    }
    return 1;
}

// The records of one walk.
struct Walked {
    int num = 0;
    vrd **records = nullptr;

    Walked() = default;
    Walked(const Walked &) = delete;
    Walked &operator=(const Walked &) = delete;
    ~Walked() {
        for (vrd **record = records; record && *record; record++) {
            vrd_free(*record);
            free(*record);
        }
        free(records);
    }
    // "name<candidate status", with a '*' behind a flagged one.
    std::vector<std::string> list() const {
        std::vector<std::string> all;
        for (vrd *const *record = records; record && *record; record++) {
            all.push_back(std::string((*record)->name) + "<" + (*record)->cand + " " +
                          (*record)->status + ((*record)->circular ? "*" : ""));
        }
        return all;
    }
};

std::vector<std::string> deps_of(const vrt *plan) {
    std::vector<std::string> all;
    for (vrd *const *dep = plan->deps; dep && *dep; dep++) {
        all.push_back(std::string((*dep)->name) + "<" + (*dep)->cand);
    }
    EXPECT_EQ(plan->num_deps, static_cast<int32_t>(all.size()));
    return all;
}

class Planning : public testing::Test {
 protected:
    Planning() {
        catalogue.clear();
        pvrm_vrc_findpkg = fake_findpkg;
    }
    ~Planning() override {
        pvrm_vrc_findpkg = nullptr;
    }
    vrm_handle *handle() {
        return repo_.handle();
    }
    void install(const std::string &name, const std::vector<std::string> &deps = {},
                 const std::string &arch = "any") {
        PackageSpec spec;
        spec.name = name;
        spec.deps = deps;
        spec.arch = arch;
        repo_.install(spec);
    }
    own_vrt plan(const std::string &name, const char *version = nullptr,
                 char *const *dirs = nullptr) {
        vrt *out = nullptr;
        vrt *result = vrm_pre_install(handle(), &here_, name.c_str(), nullptr, version, dirs, &out);
        EXPECT_EQ(result, out);
        return own_vrt(result);
    }
    own_vrt tree(const std::string &name) {
        vrt *out = nullptr;
        vrt *result = vrm_walk(handle(), &here_, name.c_str(), nullptr, nullptr, &out);
        EXPECT_EQ(result, out);
        return own_vrt(result);
    }
    int chk_install(const std::string &name, const Offer &offer, Walked *walked) {
        const own_vri candidate(record_of(name, offer));
        return vrm_chk_install(handle(), candidate.get(), &here_, nullptr, &walked->num,
                               &walked->records);
    }
    int chk_walk(const std::string &name, const Offer &offer, Walked *walked) {
        const own_vri candidate(record_of(name, offer));
        return vrm_chk_walk(handle(), candidate.get(), &here_, nullptr, &walked->num,
                            &walked->records);
    }

    TestRepo repo_{"x86_64"};
    int here_ = 0;  // its address is the connection
};

// With every message kept.
class Logged : public Planning {
 protected:
    // The messages of a walker, without those of the functions that it calls.
    std::vector<std::string> told_by(const std::string &walker) {
        std::vector<std::string> lines;
        for (const LogCapture::Line &line : log_.lines()) {
            if (line.text.starts_with(walker)) {
                lines.push_back((line.level == "DEBUG" ? "" : line.level + " ") +
                                line.text.substr(walker.size()));
            }
        }
        return lines;
    }
    LogCapture log_;
};

class VrmChkInstall : public Logged {};
class VrmChkWalk : public Logged {};
class VrmPreInstall : public Logged {};
class VrmWalk : public Logged {
 protected:
    ScriptedUser &user_ = ScriptedUser::fresh();
};
using PlanningGrowth = Planning;

}  // namespace

TEST_F(VrmChkInstall, TellsEachStep) {
    install("present");
    catalogue = {{"a", {{"b", "c"}}}, {"b", {}}, {"c", {.empty_list = true}}};
    Walked walked;
    EXPECT_EQ(chk_install("t", {{"present", "a", "b"}}, &walked), 0);
    EXPECT_EQ(walked.num, 5);
    EXPECT_THAT(walked.list(), ElementsAre("present<t I", "a<t R", "b<a R*", "c<a R", "b<t R"));
    EXPECT_THAT(
        told_by("vrm_chk_install: "),
        ElementsAre("Checking candidate <t>", "ok, canidate <t> has 03 dependencies",
                    "Initially allocating space for 4 vrds, setting counter to 3",
                    "Got dependency present", "Storing dependency present with index 0",
                    "Resolved dependeny internally", "Got dependency a",
                    "Storing dependency a with index 1", "Resolved depeneny externally, status = R",
                    "Checking candidate <a>", "ok, canidate <a> has 02 dependencies",
                    "Reallocating space for 6 vrds, setting counter to 5", "Got dependency b",
                    "Storing dependency b with index 2", "Resolved depeneny externally, status = R",
                    "Checking candidate <b>",
                    "ok, canidate <b> has no new dependencies, total of deps: 5",
                    "Got dependency c", "Storing dependency c with index 3",
                    "Resolved depeneny externally, status = R", "Checking candidate <c>",
                    "ok, canidate <c> has 00 dependencies",
                    "Reallocating space for 6 vrds, setting counter to 5", "Got dependency b",
                    "Storing dependency b with index 4", "Found circular dependency b"));
}

TEST_F(VrmChkInstall, FlagsEveryRecordOfANameButTheLast) {
    catalogue = {{"a", {{"c"}}}, {"b", {{"c"}}}, {"c", {}}, {"d", {{"c"}}}};
    Walked walked;
    EXPECT_EQ(chk_install("t", {{"a", "b", "d"}}, &walked), 0);
    EXPECT_THAT(walked.list(), ElementsAre("a<t R", "c<a R*", "b<t R", "c<b R*", "d<t R", "c<d R"));
}

TEST_F(VrmChkInstall, EndsOnACircle) {
    catalogue = {{"a", {{"t"}}}, {"t", {{"a"}}}};
    Walked walked;
    EXPECT_EQ(chk_install("t", {{"a"}}, &walked), 0);
    EXPECT_THAT(walked.list(), ElementsAre("a<t R*", "t<a R", "a<t R"));
    EXPECT_EQ(walked.num, 3);
}

TEST_F(VrmChkInstall, LooksForASeenNameAgainAndLetsItBeMissing) {
    // Nothing tests the second record of a name: it is stored as it comes.
    catalogue = {{"a", {.once = true}}};
    Walked walked;
    EXPECT_EQ(chk_install("t", {{"a", "a"}}, &walked), 0);
    EXPECT_THAT(walked.list(), ElementsAre("a<t R*", "a<t U"));
}

TEST_F(VrmChkInstall, FailsOnWhatNobodyHas) {
    catalogue = {{"a", {{"none"}}}, {"b", {}}};
    Walked walked;
    EXPECT_EQ(chk_install("t", {{"a", "b"}}, &walked), 99);
    EXPECT_THAT(walked.list(), ElementsAre("a<t R", "none<a U"));
    EXPECT_THAT(log_.at(LEVEL_INFO),
                Contains("vrm_chk_install: Failed to resovle dependency none for a"));
}

TEST_F(VrmChkInstall, FailsOnAForeignDependency) {
    catalogue = {{"a", {{}, arch_i686}}};
    Walked walked;
    EXPECT_EQ(chk_install("t", {{"a"}}, &walked), 99);
    EXPECT_THAT(walked.list(), ElementsAre("a<t R"));
    EXPECT_TRUE(log_.has(LEVEL_INFO, "Package arch i686 doesn't match local arch x86_64, bye"));
}

TEST_F(VrmChkInstall, MakesNoArrayForAForeignCandidate) {
    catalogue = {{"a", {}}};
    Walked walked;
    EXPECT_EQ(chk_install("t", {{"a"}, arch_mips}, &walked), 99);
    EXPECT_EQ(walked.records, nullptr);
    EXPECT_EQ(walked.num, 0);
    EXPECT_TRUE(log_.has(LEVEL_INFO, "Package arch mips doesn't match local arch x86_64, bye"));
}

TEST_F(VrmChkInstall, PassesTheOwnArchitectureAndAny) {
    Walked own, any;
    EXPECT_EQ(chk_install("t", {{}, arch_x86_64}, &own), 0);
    EXPECT_EQ(chk_install("t", {{}, arch_any}, &any), 0);
    EXPECT_EQ(own.records, nullptr);
    EXPECT_THAT(told_by("vrm_chk_install: "),
                Contains("ok, canidate <t> has no new dependencies, total of deps: 0"));
}

TEST_F(VrmChkInstall, MakesAnEmptyArrayForAnEmptyList) {
    Walked walked;
    EXPECT_EQ(chk_install("t", {.empty_list = true}, &walked), 0);
    ASSERT_TRUE(walked.records);
    EXPECT_EQ(walked.records[0], nullptr);
    EXPECT_EQ(walked.num, 0);
}

TEST_F(VrmChkInstall, DoesNotWalkWhatIsInstalled) {
    install("present", {"none"});
    Walked walked;
    EXPECT_EQ(chk_install("t", {{"present"}}, &walked), 0);
    EXPECT_THAT(walked.list(), ElementsAre("present<t I"));
}

TEST_F(VrmChkInstall, StartsOverWithAnotherArray) {
    catalogue = {{"a", {}}, {"b", {}}};
    Walked first, second;
    EXPECT_EQ(chk_install("t", {{"a", "b"}}, &first), 0);
    EXPECT_EQ(chk_install("u", {{"b"}}, &second), 0);
    EXPECT_THAT(first.list(), ElementsAre("a<t R", "b<t R"));
    EXPECT_THAT(second.list(), ElementsAre("b<u R"));
    EXPECT_EQ(second.num, 1);
}

TEST_F(VrmChkInstall, StaysApartFromTheOtherWalker) {
    catalogue = {{"a", {}}, {"b", {}}};
    Walked first, second;
    EXPECT_EQ(chk_install("t", {{"a"}}, &first), 0);
    EXPECT_EQ(chk_walk("u", {{"b"}}, &second), 0);
    // A second candidate on the first array.
    EXPECT_EQ(chk_install("v", {{"a", "b"}}, &first), 0);
    EXPECT_THAT(first.list(), ElementsAre("a<t R*", "a<v R", "b<v R"));
    EXPECT_THAT(second.list(), ElementsAre("b<u R"));
}

TEST_F(VrmChkWalk, TellsEachStep) {
    install("present", {"inner"});
    install("inner");
    catalogue = {{"a", {{"present"}}}};
    Walked walked;
    EXPECT_EQ(chk_walk("t", {{"present", "a"}}, &walked), 0);
    EXPECT_THAT(walked.list(),
                ElementsAre("present<t I*", "inner<present I", "a<t R", "present<a I"));
    EXPECT_EQ(walked.num, 4);
    EXPECT_THAT(
        told_by("vrm_chk_walk"),
        ElementsAre(
            ": Checking candidate <t>", ": ok, canidate <t> has 02 dependencies",
            ": Initially allocating space for 3 vrds, setting counter to 2",
            ": Got dependency present", ": Storing dependency present with index 0",
            ": Resolved dependeny internally", ": Resolved depeneny, status = I",
            ": Checking candidate <present>", ": ok, canidate <present> has 01 dependencies",
            " Reallocating space for 4 vrds, setting counter to 3", ": Got dependency inner",
            ": Storing dependency inner with index 1", ": Resolved dependeny internally",
            ": Resolved depeneny, status = I", ": Checking candidate <inner>",
            ": ok, canidate <inner> has no new dependencies, total of deps: 3",
            ": Got dependency a", ": Storing dependency a with index 2",
            ": Resolved depeneny, status = R", ": Checking candidate <a>",
            ": ok, canidate <a> has 01 dependencies",
            " Reallocating space for 5 vrds, setting counter to 4", ": Got dependency present",
            ": Storing dependency present with index 3", ": Found circular dependency present"));
}

TEST_F(VrmChkWalk, FailsOnWhatAnInstalledPackageLacks) {
    install("present", {"none"});
    Walked walked;
    EXPECT_EQ(chk_walk("t", {{"present"}}, &walked), 99);
    EXPECT_TRUE(
        log_.has(LEVEL_INFO, "vrm_chk_walk: Failed to resovle dependency none for present"));
}

TEST_F(VrmPreInstall, PlansAPackageWithoutDependencies) {
    catalogue = {{"t", {{}, arch_any, "1.0", 100, 2000}}};
    const own_vrt made = plan("t");
    ASSERT_TRUE(made);
    EXPECT_STREQ(made->name, "t");
    EXPECT_EQ(made->action, 'I');
    EXPECT_EQ(made->source, 'R');
    EXPECT_EQ(made->mark, 'N');
    ASSERT_TRUE(made->info);
    EXPECT_STREQ(made->info->name, "t");
    EXPECT_EQ(made->deps, nullptr);
    EXPECT_EQ(made->num_deps, 0);
    EXPECT_EQ(made->tot_file_size, 100u);
    EXPECT_EQ(made->tot_data_size, 2000u);
    ASSERT_TRUE(made->scripts);
    ASSERT_TRUE(made->hookcmds);
    EXPECT_STREQ(made->scripts[0]->key, "#EKVA_10:1:1");
    EXPECT_STREQ(made->hookcmds[0]->key, "#EKVA_10:1:1");
}

TEST_F(VrmPreInstall, CountsADiamondOnce) {
    catalogue = {{"t", {{"a", "b"}, arch_any, "1", 1, 10}},
                 {"a", {{"c"}, arch_any, "1", 2, 20}},
                 {"b", {{"c"}, arch_any, "1", 4, 40}},
                 {"c", {{}, arch_any, "1", 8, 80}}};
    const own_vrt made = plan("t");
    ASSERT_TRUE(made);
    EXPECT_THAT(deps_of(made.get()), ElementsAre("a<t", "c<a", "b<t"));
    EXPECT_EQ(made->tot_file_size, 15u);
    EXPECT_EQ(made->tot_data_size, 150u);
    // Room for the four records of the walk.
    EXPECT_STREQ(made->scripts[0]->key, "#EKVA_10:5:1");
    EXPECT_EQ(made->deps[0]->weight, 2);
    EXPECT_EQ(made->deps[1]->weight, 1);
    EXPECT_STREQ(made->deps[1]->info->name, "c");
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Skipping c for b, already processed for a"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Found dep c for cand b, status: R"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Adding 8 to tot_file_size"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Adding 80 to tot_data_size"));
}

TEST_F(VrmPreInstall, GivesAWholePlanOrNoneWhenMemoryFails) {
    catalogue = {{"t", {{"a", "b"}}}, {"a", {{"c"}}}, {"b", {{"c"}}}, {"c", {}}};
    int failed = 0, made = 0;
    for (int copies = 0; made < 3 && copies < 1000; copies++) {
        strdups_left = copies;
        const own_vrt found = plan("t");
        strdups_left = -1;
        if (found) {
            EXPECT_EQ(deps_of(found.get()).size(), 3u) << copies;
            made++;
        } else {
            failed++;
        }
    }
    EXPECT_GT(failed, 8);
    EXPECT_EQ(made, 3);
    // Without room for the first dependency the package must not be taken for one that has none.
    growing_fails = true;
    EXPECT_FALSE(plan("t"));
    EXPECT_FALSE(tree("t"));
    growing_fails = false;
}

TEST_F(VrmPreInstall, LeavesOutWhatIsInstalled) {
    install("present");
    catalogue = {{"t", {{"present", "a"}, arch_any, "1", 1, 10}},
                 {"a", {{}, arch_any, "1", 2, 20}}};
    const own_vrt made = plan("t");
    ASSERT_TRUE(made);
    EXPECT_THAT(deps_of(made.get()), ElementsAre("a<t"));
    EXPECT_EQ(made->tot_file_size, 3u);
    EXPECT_EQ(made->tot_data_size, 30u);
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Skipping present for t, locally installed"));
}

TEST_F(VrmPreInstall, HasNoDepsWhenAllAreInstalled) {
    install("present");
    catalogue = {{"t", {{"present"}}}};
    const own_vrt made = plan("t");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->deps, nullptr);
    EXPECT_EQ(made->num_deps, 0);
}

TEST_F(VrmPreInstall, EndsACircleAtTheRequest) {
    catalogue = {{"t", {{"a"}}}, {"a", {{"t"}}}};
    const own_vrt made = plan("t");
    ASSERT_TRUE(made);
    EXPECT_THAT(deps_of(made.get()), ElementsAre("a<t"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Skipping t for a, already processed for User"));
}

TEST_F(VrmPreInstall, TakesNamesThatDifferInCaseForOne) {
    catalogue = {{"t", {{"Lib", "lib"}}}, {"Lib", {}}, {"lib", {}}};
    const own_vrt made = plan("t");
    ASSERT_TRUE(made);
    EXPECT_THAT(deps_of(made.get()), ElementsAre("Lib<t"));
}

TEST_F(VrmPreInstall, RefusesWhatIsInstalledInAnyVersion) {
    install("t");
    catalogue = {{"t", {{}, arch_any, "9.9"}}};
    EXPECT_FALSE(plan("t"));
    EXPECT_TRUE(log_.has(LEVEL_INFO, "t is already installed"));
}

TEST_F(VrmPreInstall, RefusesWhatTheCatalogueDoesNotHave) {
    catalogue = {{"t", {}}};
    EXPECT_FALSE(plan("none"));
    EXPECT_TRUE(log_.has(LEVEL_INFO, "none was not found in the package catalogue"));
    EXPECT_FALSE(plan("t", "2.0"));
    EXPECT_TRUE(log_.has(LEVEL_INFO, "t was not found in the package catalogue"));
    EXPECT_TRUE(plan("t", "1.0"));
}

TEST_F(VrmPreInstall, FailsOnADependencyThatNobodyHas) {
    catalogue = {{"t", {{"a"}}}, {"a", {{"none"}}}};
    vrt *marker = nullptr;
    vrt **untouched = &marker;
    EXPECT_EQ(vrm_pre_install(handle(), &here_, "t", nullptr, nullptr, nullptr, untouched),
              nullptr);
    EXPECT_EQ(marker, nullptr);
    EXPECT_TRUE(log_.has(LEVEL_INFO, "vrm_chk_install: Failed to resovle dependency none for a"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "t cannot be installed"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Found dep a for cand t, status: R"));
    EXPECT_FALSE(log_.has(LEVEL_DEBUG, "Found dep none for cand a, status: U"));
}

TEST_F(VrmPreInstall, FailsOnAForeignDependencyButNotOnAForeignRequest) {
    catalogue = {{"t", {{"foreign"}}}, {"foreign", {{"t"}, arch_mips, "1", 5, 50}}};
    EXPECT_FALSE(plan("t"));
    log_.clear();
    const own_vrt made = plan("foreign");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->deps, nullptr);
    EXPECT_EQ(made->tot_file_size, 5u);
    EXPECT_TRUE(log_.has(LEVEL_INFO, "Package arch mips doesn't match local arch x86_64, bye"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "foreign cannot be installed"));
}

TEST_F(VrmPreInstall, PlansAPackageFile) {
    PackageSpec spec;
    spec.name = "t";
    spec.deps = {"a"};
    const std::string file = repo_.dir() / "t.vrk";
    make_package(spec, file);
    catalogue = {{"a", {{"t"}, arch_any, "1", 2, 20}}, {"t", {}}};
    const own_vrt made = plan(file);
    ASSERT_TRUE(made);
    EXPECT_EQ(made->name, file);
    EXPECT_EQ(made->source, 'L');
    EXPECT_STREQ(made->info->name, "t");
    // It is the request as it was spelled that counts as taken, so the catalogue's t comes along.
    EXPECT_THAT(deps_of(made.get()), ElementsAre("a<t", "t<a"));
}

TEST_F(VrmPreInstall, TakesDependenciesFromDirectoriesFirst) {
    PackageSpec spec;
    spec.name = "a";
    spec.version = "0.1";
    make_package(spec, repo_.dir().write("files/a.vrk", ""));
    catalogue = {{"t", {{"a"}}}, {"a", {{}, arch_any, "7"}}};
    std::string dir = repo_.dir() / "files";
    char *dirs[] = {dir.data(), nullptr};
    const own_vrt made = plan("t", nullptr, dirs);
    ASSERT_TRUE(made);
    ASSERT_THAT(deps_of(made.get()), ElementsAre("a<t"));
    EXPECT_EQ(made->deps[0]->status, 'L');
    EXPECT_STREQ(made->deps[0]->info->version, "0.1");
}

TEST_F(VrmPreInstall, RefusesADamagedPackageFile) {
    const std::string file = repo_.dir() / "bad.vrk";
    write_package(file, "EVRM20", "not a description\n", repo_.dir().write("empty", ""));
    EXPECT_FALSE(plan(file));
    EXPECT_TRUE(log_.has(LEVEL_INFO, file + " is not a valid package file, skipping"));
}

TEST_F(VrmWalk, ShowsTheWholeTree) {
    install("t");
    install("present", {"inner"});
    install("inner");
    catalogue = {{"t", {{"present", "a"}, arch_any, "1", 1, 10}},
                 {"a", {{"inner"}, arch_any, "1", 2, 20}}};
    const own_vrt made = tree("t");
    ASSERT_TRUE(made);
    EXPECT_THAT(deps_of(made.get()),
                testing::UnorderedElementsAre("present<t", "inner<present", "a<t"));
    EXPECT_EQ(made->action, '\0');
    EXPECT_EQ(made->source, 'R');
    EXPECT_EQ(made->mark, 'N');
    EXPECT_EQ(made->scripts, nullptr);
    EXPECT_EQ(made->hookcmds, nullptr);
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Found dep inner for cand a, status: I"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Found dep a for cand t, status: R"));
    EXPECT_FALSE(log_.has(LEVEL_DEBUG, "Skipping present for t, locally installed"));
    EXPECT_THAT(user_.messages, IsEmpty());
}

TEST_F(VrmWalk, LeavesTheTextThatThereIsNoSuchPackage) {
    EXPECT_FALSE(tree("none"));
    EXPECT_STREQ(vrmui->text, "none was not found in the package catalogue\n");
    EXPECT_THAT(user_.messages, IsEmpty());
    EXPECT_THAT(log_.at(LEVEL_INFO), IsEmpty());
}

TEST_F(VrmWalk, LeavesTheTextThatAFileIsDamaged) {
    const std::string file = repo_.dir() / "bad.vrk";
    write_package(file, "EVRM20", "not a description\n", repo_.dir().write("empty", ""));
    EXPECT_FALSE(tree(file));
    EXPECT_EQ(vrmui->text, file + " is not a valid package file\n");
    EXPECT_THAT(user_.messages, IsEmpty());
}

TEST_F(VrmWalk, FailsOnADependencyThatNobodyHas) {
    catalogue = {{"t", {{"a", "none"}}}, {"a", {}}};
    EXPECT_FALSE(tree("t"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "t cannot be installed"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Found dep a for cand t, status: R"));
}

TEST_F(VrmWalk, TellsOfEachRecordAndPassesOverWhatHasNoPackage) {
    catalogue = {{"t", {{"a", "a"}}}, {"a", {.once = true}}};
    const own_vrt made = tree("t");
    ASSERT_TRUE(made);
    EXPECT_THAT(deps_of(made.get()), ElementsAre("a<t"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Found dep a for cand t, status: R"));
    EXPECT_TRUE(log_.has(LEVEL_DEBUG, "Found dep a for cand t, status: U"));
}

TEST_F(VrmWalk, ShowsAForeignPackageWithoutItsDependencies) {
    catalogue = {{"t", {{"a"}, arch_mips}}, {"a", {}}};
    const own_vrt made = tree("t");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->deps, nullptr);
}

TEST_F(VrmWalk, EndsACircleAtTheRequest) {
    catalogue = {{"t", {{"a"}}}, {"a", {{"t"}}}};
    const own_vrt made = tree("t");
    ASSERT_TRUE(made);
    EXPECT_THAT(deps_of(made.get()), ElementsAre("a<t"));
}

TEST_F(PlanningGrowth, PlansALongChain) {
    constexpr int length = 10000;
    for (int i = 1; i <= length; i++) {
        catalogue["p" + std::to_string(i)].deps = {"p" + std::to_string(i + 1)};
    }
    catalogue["p" + std::to_string(length)].deps = {};
    Walked walked;
    EXPECT_EQ(chk_install("t", {{"p1"}}, &walked), 0);
    EXPECT_EQ(walked.num, length);
    EXPECT_STREQ(walked.records[length - 1]->name, ("p" + std::to_string(length)).c_str());
    EXPECT_EQ(walked.records[length], nullptr);

    catalogue["t"].deps = {"p1"};
    const own_vrt made = plan("t");
    ASSERT_TRUE(made);
    ASSERT_EQ(made->num_deps, length);
    EXPECT_STREQ(made->deps[0]->name, "p1");
    EXPECT_STREQ(made->deps[length - 1]->name, ("p" + std::to_string(length)).c_str());
}

TEST_F(PlanningGrowth, PlansManyPackagesThatShareTheirDependencies) {
    const std::vector<std::string> shared = {"s0", "s1", "s2", "s3", "s4",
                                             "s5", "s6", "s7", "s8", "s9"};
    for (const std::string &name : shared) {
        catalogue[name] = {};
    }
    constexpr size_t packages = 1000;
    for (size_t i = 0; i < packages; i++) {
        const std::string name = "p" + std::to_string(i);
        catalogue[name].deps = shared;
        catalogue["t"].deps.push_back(name);
    }
    const own_vrt made = plan("t");
    ASSERT_TRUE(made);
    EXPECT_EQ(deps_of(made.get()).size(), packages + shared.size());
}
