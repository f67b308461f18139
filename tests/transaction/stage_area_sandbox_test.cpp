#include "transaction/stage_area.h"

#include "transaction/executor_fixture.h"
#include "transaction/fetch.h"
#include "transaction/plan_removal.h"
#include "transaction/plan_update.h"
#include "transaction/removal.h"
#include "transaction/update.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class StageArea : public ExecutorTest {
 protected:
    StageArea() {
        offer(simple("foo"));
        transaction = plan("foo");
    }

    void put(const std::string &path, const std::string &text) {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path) << text;
    }
    int clear() {
        return vrm_clear_stage(repo.handle(), transaction->info);
    }
    int install_vrk() {
        vrt *raw = transaction.get();
        return vrm_install_vrk(repo.handle(), &raw, transaction->info, "foo", nullptr, 0);
    }
    int remove(const std::string &name) {
        vrt *made = nullptr;
        vrm_pre_delete(repo.handle(), name.c_str(), 2, &made);
        const own_vrt removal(made);
        return made ? vrm_exe_delete(repo.handle(), &made) : -1000;
    }
    int update(const PackageSpec &spec) {
        offer(spec);
        vrt *made = nullptr;
        vrm_pre_update(repo.handle(), &catalogue, spec.name.c_str(), nullptr, nullptr, nullptr,
                       &made);
        const own_vrt update(made);
        return made ? vrm_exe_update(repo.handle(), &made, &catalogue, 0, 0) : -1000;
    }
    // That all executors and vrm_check_stage refuse the area, and touch nothing.
    void expect_refused(const std::string &why) {
        const int fetches = catalogue.fetches;
        const auto before = tree(live);
        log.clear();
        EXPECT_EQ(vrm_check_stage(repo.handle()), -1) << why;
        EXPECT_EQ(run(transaction), -1) << why;
        EXPECT_EQ(install_vrk(), -1) << why;
        EXPECT_EQ(vrm_stage_file(repo.handle(), transaction->info, 0), -1) << why;
        EXPECT_EQ(clear(), -1) << why;
        EXPECT_EQ(update(next), -1) << why;
        EXPECT_EQ(remove("installed"), -1) << why;
        const own_vri package(vrm_vrl_info(repo.handle(), "installed"));
        EXPECT_EQ(vrm_one_delete(repo.handle(), package.get()), -1) << why;
        std::vector<std::string> expected;
        for (const char *who :
             {"vrm_check_stage", "vrm_exe_install", "vrm_install_vrk", "vrm_stage_file",
              "vrm_clear_stage", "vrm_exe_update", "vrm_exe_delete", "vrm_one_delete"}) {
            expected.push_back(std::string(who) + ": refusing stage area " + area + ": " + why);
        }
        EXPECT_EQ(log.at(LEVEL_ERROR), expected) << why;
        EXPECT_EQ(catalogue.fetches, fetches) << why;
        EXPECT_EQ(tree(live), before) << "no script ran, no file went: " << why;
        EXPECT_FALSE(is_installed("foo"));
        EXPECT_TRUE(is_installed("installed"));
    }

    own_vrt transaction;  // installs foo
    PackageSpec next;     // of the package "installed"
    const std::string area = repo.in("stagearea"), base = staged("foo_any_1.0");
};

}  // namespace

TEST_F(StageArea, AnAreaThatOthersHaveAHandInIsRefused) {
    PackageSpec package = simple("installed");
    package.init["00-del.sh"] = "echo >/srv/t/ran\n";
    offer(package);
    ASSERT_EQ(install("installed"), 0);
    next = simple("installed");
    next.version = "2.0";
    next.init["00-add.sh"] = "echo >/srv/t/ran\n";

    for (const mode_t mode : {0775U, 0757U, 01777U}) {
        ASSERT_EQ(chmod(area.c_str(), mode), 0);
        expect_refused("others may write to it");
    }
    ASSERT_EQ(chmod(area.c_str(), 0755), 0);
    ASSERT_EQ(chown(area.c_str(), 65534, 0), 0);
    expect_refused("it belongs to user 65534");
    ASSERT_EQ(chown(area.c_str(), 0, 0), 0);
    fs::rename(area, repo.in("elsewhere"));
    fs::create_symlink("elsewhere", area);
    expect_refused("it is a symbolic link");
    fs::remove(area);
    put(area, "x");
    expect_refused("it is not a directory");
    fs::remove(area);
    fs::rename(repo.in("elsewhere"), area);
    EXPECT_EQ(vrm_check_stage(repo.handle()), 0);
    EXPECT_EQ(run(transaction), 0);
}

TEST_F(StageArea, OneThatIsMissingIsMade) {
    fs::remove_all(area);
    EXPECT_EQ(vrm_check_stage(repo.handle()), 0);
    ASSERT_EQ(vrm_stage_file(repo.handle(), transaction->info, 0), 0);
    EXPECT_EQ(install_vrk(), 0);
    EXPECT_TRUE(is_installed("foo"));
}

TEST_F(StageArea, NobodyElseCanEnterTheDirectoryOfAChange) {
    PackageSpec package = simple("app");
    package.init["00-add.sh"] = "ls -ld " + staged("app_any_1.0") + " >>/srv/t/seen\n";
    package.init["99-del.sh"] = package.init["00-add.sh"];
    offer(package);
    ASSERT_EQ(install("app"), 0);
    EXPECT_THAT(read_all(live + "/seen"), testing::StartsWith("drwx------ "));

    fs::remove(live + "/seen");
    package.version = "2.0";
    package.init["00-add.sh"] = "ls -ld " + staged("app_any_2.0") + " >>/srv/t/seen\n";
    package.init["99-del.sh"] = package.init["00-add.sh"];
    // One that is there, made by an older version.
    fs::create_directories(staged("app_any_2.0") + "/old");
    ASSERT_EQ(chmod(staged("app_any_2.0").c_str(), 0755), 0);
    ASSERT_EQ(update(package), 0);
    EXPECT_THAT(read_all(live + "/seen"), testing::StartsWith("drwx------ "));

    fs::remove(live + "/seen");
    ASSERT_EQ(remove("app"), 0);
    EXPECT_THAT(read_all(live + "/seen"), testing::StartsWith("drwx------ "));
}

TEST_F(StageArea, WhatStandsInPlaceOfAStageDirectoryIsRefused) {
    put("/srv/elsewhere/new/kept", "x");
    put("/srv/elsewhere/old/kept", "x");
    const auto elsewhere = tree("/srv/elsewhere");
    struct {
        const char *what;
        std::string why;
    } const cases[] = {{"link", "it is a symbolic link"},
                       {"file", "it is not a directory"},
                       {"foreign", "it belongs to user 65534"},
                       {"shared", "others may write to it"}};
    for (const auto &one : cases) {
        fs::remove_all(base);
        if (one.what == std::string("link")) {
            fs::create_symlink("/srv/elsewhere", base);
        } else if (one.what == std::string("file")) {
            put(base, "x");
        } else if (one.what == std::string("foreign")) {
            fs::create_directory(base);
            ASSERT_EQ(chown(base.c_str(), 65534, 0), 0);
        } else {
            fs::create_directory(base);
            ASSERT_EQ(chmod(base.c_str(), 0770), 0);
        }
        log.clear();
        EXPECT_EQ(clear(), -1) << one.what;
        EXPECT_EQ(run(transaction), -1) << one.what;
        const std::string refusal = ": refusing stage directory " + base + ": " + one.why;
        EXPECT_THAT(log.at(LEVEL_ERROR),
                    ElementsAre("vrm_clear_stage" + refusal, "vrm_install_vrk" + refusal,
                                "installation of foo_any_1.0 failed with rc=-1"));
        EXPECT_TRUE(exists(base)) << one.what;
        EXPECT_THAT(tree(live), IsEmpty()) << one.what;
    }
    fs::remove_all(base);
    for (const std::string part : {"/new", "/old"}) {
        fs::create_directories(base);
        fs::create_symlink("/srv/elsewhere" + part, base + part);
        log.clear();
        EXPECT_EQ(run(transaction), -1) << part;
        EXPECT_THAT(log.at(LEVEL_ERROR), Contains("vrm_install_vrk: refusing stage directory " +
                                                  base + part + ": it is a symbolic link"));
        fs::remove_all(base);
        fs::create_directories(base + part);
        ASSERT_EQ(chmod((base + part).c_str(), 0757), 0);
        log.clear();
        EXPECT_EQ(run(transaction), -1) << part;
        EXPECT_THAT(log.at(LEVEL_ERROR), Contains("vrm_install_vrk: refusing stage directory " +
                                                  base + part + ": others may write to it"));
        fs::remove_all(base);
    }
    EXPECT_EQ(tree("/srv/elsewhere"), elsewhere);
    fs::remove_all("/srv/elsewhere");
}

TEST_F(StageArea, ARemovalRefusesItBeforeItsFirstScript) {
    PackageSpec package = simple("app");
    package.init["00-del.sh"] = "echo >/srv/t/ran\n";
    offer(package);
    ASSERT_EQ(install("app"), 0);
    fs::create_symlink(live, staged("app_any_1.0"));
    EXPECT_EQ(remove("app"), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_one_delete: refusing stage directory " +
                                         staged("app_any_1.0") + ": it is a symbolic link"));
    EXPECT_FALSE(exists(live + "/ran"));
    EXPECT_TRUE(is_installed("app"));
}

TEST_F(StageArea, WhatAFailedAttemptLeftIsCleared) {
    EXPECT_EQ(clear(), 0) << "there is nothing";
    put(base + "/new/data/srv/t/stale", "x");
    fs::create_directories(base + "/old/srv/t");
    EXPECT_EQ(clear(), 0);
    EXPECT_FALSE(exists(base));
    EXPECT_THAT(log.at(LEVEL_ERROR), IsEmpty());
}

TEST_F(StageArea, BackupsAreNotCleared) {
    for (const std::string file : {"index.txt", "srv/t/file"}) {
        fs::remove_all(base);
        put(base + "/new/data/srv/t/stale", "x");
        put(base + "/old/" + file, "/srv/t/file\n");
        const auto before = tree(base);
        log.clear();
        EXPECT_EQ(clear(), -1) << file;
        EXPECT_THAT(log.at(LEVEL_ERROR),
                    ElementsAre("vrm_clear_stage: backups of an interrupted change in " + base +
                                ", not going on with foo_any_1.0"));
        EXPECT_EQ(tree(base), before) << file;
    }
    fs::remove_all(base);
    fs::create_directories(base);
    fs::create_symlink("nowhere", base + "/old");
    EXPECT_EQ(clear(), -1) << "a link is not an empty directory";
    EXPECT_TRUE(exists(base + "/old"));
}

TEST_F(StageArea, BackupsOfAnotherVersionAreNamedAndBarNothing) {
    const std::string other = staged("foo_any_0.9");
    put(other + "/old/srv/t/file", "x");
    put(staged("foobar_any_1.0") + "/old/srv/t/file", "x");
    put(staged("foo_nothing") + "/old/srv/t/file", "x");
    fs::create_directories(staged("foo_any_0.8") + "/old/srv");
    EXPECT_EQ(clear(), 0);
    EXPECT_THAT(
        log.at(LEVEL_WARNING),
        ElementsAre("vrm_clear_stage: backups of an interrupted change of foo in " + other));
    EXPECT_TRUE(exists(other + "/old/srv/t/file"));
    EXPECT_EQ(run(transaction), 0);
}

TEST_F(StageArea, ClearingNeedsTheLockAndAName) {
    put(base + "/new/x", "x");
    repo.handle()->locked = 0;
    EXPECT_EQ(clear(), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_clear_stage: no lock on local repository"));
    repo.handle()->locked = 1;
    free(transaction->info->version);
    transaction->info->version = strdup("1/../..");
    EXPECT_EQ(clear(), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_clear_stage: refusing package <foo>: its version is not allowed"));
    EXPECT_TRUE(exists(base + "/new/x"));
}

// The engine itself goes on as described: a program that clears nothing finds what was left.
TEST_F(StageArea, AnInstallClearsNothingItself) {
    put(base + "/new/data/srv/t/stale", "x");
    EXPECT_NE(run(transaction), 0);
    EXPECT_TRUE(exists(base + "/new/data/srv/t/stale"));
    EXPECT_EQ(clear(), 0);
    EXPECT_EQ(run(transaction), 0);
    EXPECT_TRUE(is_installed("foo"));
}
