#include "transaction/update.h"

#include "kit/marked_file.h"
#include "transaction/unpack.h"
#include "transaction/update_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::UnorderedElementsAre;

TEST_F(Update, NeedsTheLock) {
    install_now(foo1);
    offer(foo2);
    own_vrt transaction = plan_update("foo");
    const int before = catalogue.fetches;
    repo.handle()->locked = 0;
    EXPECT_EQ(carry_out(transaction), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_update: no lock on local repository"));
    EXPECT_EQ(catalogue.fetches, before);
}

TEST_F(Update, RefusesHostileNamesBeforeStagingAnything) {
    install_now(foo1);
    offer(simple("dep"));
    PackageSpec next = foo2;
    next.deps = {"dep"};
    offer(next);
    own_vrt transaction = plan_update("foo");
    const int before = catalogue.fetches;
    vri *dep = transaction->deps[0]->info;
    free(dep->version);
    dep->version = strdup("1/../2");
    EXPECT_EQ(carry_out(transaction), -1);
    EXPECT_TRUE(
        log.has(LEVEL_ERROR, "vrm_exe_update: refusing package <dep>: its version is not allowed"));
    // Also one that is installed, when it is to be changed.
    transaction->deps[0]->status = 'I';
    transaction->deps[0]->action = 'U';
    log.clear();
    EXPECT_EQ(carry_out(transaction), -1);
    EXPECT_TRUE(
        log.has(LEVEL_ERROR, "vrm_exe_update: refusing package <dep>: its version is not allowed"));
    free(transaction->info->version);
    transaction->info->version = strdup("$(x)");
    EXPECT_EQ(carry_out(transaction), -1);
    EXPECT_TRUE(
        log.has(LEVEL_ERROR, "vrm_exe_update: refusing package <foo>: its version is not allowed"));
    EXPECT_EQ(catalogue.fetches, before);
}

TEST_F(Update, ReplacesAddsAndRemovesFiles) {
    PackageSpec before = foo1;
    before.data["srv/t/gone"] = "old only\n";
    before.data["srv/t/lost"] = "removed by hand\n";
    before.data["srv/t/both"] = "one\n";
    install_now(before);
    fs::remove(live + "/lost");
    PackageSpec after = foo2;
    after.data["srv/t/both"] = "two\n";
    after.data["srv/t/fresh"] = "new\n";
    after.modes["data/srv/t/fresh"] = 0750;
    ASSERT_EQ(update(after), 0);
    EXPECT_EQ(read_all(live + "/both"), "two\n");
    EXPECT_EQ(read_all(live + "/fresh"), "new\n");
    EXPECT_EQ(mode_of(live + "/fresh"), 0750u);
    EXPECT_FALSE(exists(live + "/gone"));
    EXPECT_EQ(version_of("foo"), "2.0");
    own_array index(
        vrm_vrl_file_list(repo.handle(), own_vri(vrm_vrl_info(repo.handle(), "foo")).get()));
    std::vector<std::string> paths;
    for (char **path = index.get(); path && *path; path++) {
        paths.emplace_back(*path);
    }
    EXPECT_THAT(paths, UnorderedElementsAre("/srv/t/foo", "/srv/t/both", "/srv/t/fresh"));
    expect_no_leftovers();
    EXPECT_THAT(tree(repo.in("stagearea")), ElementsAre("foo_any_1.0.vrk", "foo_any_2.0.vrk"));
    EXPECT_THAT(history(), ElementsAre("updated foo_any_1.0 to foo_any_2.0 as requested by user"));

    const std::string base = staged("foo_any_2.0");
    for (const std::string &line : {
             std::string("vrm_update_vrk: Found /srv/t/gone to delete"),
             std::string("vrm_update_vrk: Processing add_files[0]"),
             std::string("vrm_update_vrk: Processing add_files[2]"),
             std::string("Registering foo "),
             "vrm_update_vrk: Will unpack " + base + ".vrk to " + base + "/new",
             "Cur fileindex name: <" + repo.in("fileindex/foo") + ">",
             "Old fileindex name: <" + repo.in("fileindex/.foo.old") + ">",
             "New fileindex name: <" + repo.in("fileindex/.foo.new") + ">",
             std::string("rc of vrm_update_vrk for foo_any_2.0: 0"),
         }) {
        EXPECT_TRUE(log.has(LEVEL_DEBUG, line)) << line;
    }
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, "rc of vrm_update_vrk for foo_any_2.0: 0"));
    EXPECT_TRUE(log.has(LEVEL_INFO, "update of foo_any_2.0 succeeded"));
    EXPECT_FALSE(log.has_line_end(LEVEL_INFO, "update of foo_any_2.0 succeeded"));
}

TEST_F(Update, LeavesExactlyTheInventoryTreeAndModesOfTheNewVersion) {
    PackageSpec before = foo1;
    before.dump["old-notes"] = "n";
    install_now(before);
    PackageSpec after = foo2;
    after.conf["srv/t/foo.conf"] = "c";
    after.modes["conf/srv/t/foo.conf"] = 0600;
    after.dump["notes"] = "n";
    after.init["99-add.sh"] = "exit 0\n";
    after.info["link.txt"] = "/srv/t|foo|foo-link\n";
    after.info["perm.txt"] = "/srv/t/foo|0751\n";
    ASSERT_EQ(update(after), 0);
    const std::string entry = repo.in("installed/foo");
    EXPECT_THAT(tree(entry),
                ElementsAre("conf/", "conf/srv/", "conf/srv/t/", "conf/srv/t/foo.conf", "desc.txt",
                            "dump/", "dump/notes", "hash/", "hash/conf.txt", "hash/data.txt",
                            "hash/dump.txt", "hash/init.txt", "init/", "init/99-add.sh", "inst.txt",
                            "link.txt", "perm.txt"));
    EXPECT_EQ(mode_of(entry), 0755u);
    EXPECT_EQ(mode_of(entry + "/desc.txt"), 0755u);
    EXPECT_EQ(mode_of(entry + "/init/99-add.sh"), 0755u);
    EXPECT_EQ(mode_of(entry + "/conf/srv/t/foo.conf"), 0600u);
    EXPECT_EQ(mode_of(entry + "/inst.txt"), 0644u);
    EXPECT_EQ(fs::read_symlink(live + "/foo-link"), "foo");
    EXPECT_EQ(mode_of(live + "/foo"), 0751u);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_update_vrk: rc of vrm_vrf_links: 0"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_update_vrk: rc of vrm_vrf_perms: 0"));
}

TEST_F(Update, LinksOfTheOldVersionStay) {
    PackageSpec before = foo1;
    before.info["link.txt"] = "/srv/t|foo|old-link\n";
    install_now(before);
    ASSERT_EQ(update(foo2), 0);
    EXPECT_TRUE(fs::is_symlink(live + "/old-link"));
    EXPECT_EQ(read_all(repo.in("left_links/foo")), live + "/old-link|foo\n");
}

TEST_F(Update, LinksAreNotNotedAsLeftWhenItFails) {
    PackageSpec before = foo1, after = foo2;
    before.info["link.txt"] = "/srv/t|foo|old-link\n";
    after.init["99-add.sh"] = "exit 3\n";
    install_now(before);
    ASSERT_NE(update(after), 0);
    EXPECT_FALSE(exists(repo.in("left_links")));
}

TEST_F(Update, CarriesTheInstallRecordOver) {
    install_now(foo1);
    put(repo.in("installed/foo/inst.txt"),
        "evrkInstallTime: 1600000000\nevrkInstallType: D\nevrkInstallHead: top\n"
        "evrkUpdateTime: 1600000001\nevrkUpdateTime: 1600000002\n");
    const time_t before = time(nullptr);
    ASSERT_EQ(update(foo2), 0);
    const std::string record = read_all(repo.in("installed/foo/inst.txt"));
    const std::string kept =
        "evrkInstallTime: 1600000000\nevrkInstallType: D\nevrkInstallHead: top\n"
        "evrkUpdateTime: 1600000001\nevrkUpdateTime: 1600000002\nevrkUpdateTime: ";
    ASSERT_EQ(record.substr(0, kept.size()), kept);
    EXPECT_THAT(record.substr(kept.size()), MatchesRegex("[0-9]+\n"));
    EXPECT_GE(std::stoll(record.substr(kept.size())), before);
    EXPECT_LE(std::stoll(record.substr(kept.size())), time(nullptr));
}

TEST_F(Update, ExplicitPackageStaysExplicit) {
    install_now(foo1);
    ASSERT_EQ(update(foo2), 0);
    ASSERT_EQ(update(version(foo1, "3.0")), 0);
    EXPECT_THAT(read_all(repo.in("installed/foo/inst.txt")),
                MatchesRegex("evrkInstallTime: [0-9]+\nevrkInstallType: X\n"
                             "evrkUpdateTime: [0-9]+\nevrkUpdateTime: [0-9]+\n"));
}

TEST_F(Update, VersionWithoutDataHasNoFileIndex) {
    install_now(foo1);
    PackageSpec after = foo2;
    after.data.clear();
    after.dump["x"] = "y";
    ASSERT_EQ(update(after), 0);
    EXPECT_FALSE(exists(repo.in("fileindex/foo")));
    EXPECT_FALSE(exists(live + "/foo"));
    EXPECT_EQ(version_of("foo"), "2.0");
    expect_no_leftovers();
    ASSERT_EQ(update(version(foo1, "3.0")), 0) << "from no files to some";
    EXPECT_EQ(read_all(repo.in("fileindex/foo")), "/srv/t/foo\n");
}

TEST_F(Update, ListOfOldFilesThatCannotBeReadEndsItBeforeAnythingIsChanged) {
    install_now(foo1);
    fs::remove(repo.in("fileindex/foo"));
    fs::create_directory(repo.in("fileindex/foo"));
    PackageSpec after = foo2;
    after.data.clear();
    after.dump["x"] = "y";
    EXPECT_EQ(update(after), -1);
    EXPECT_TRUE(
        log.has(LEVEL_ERROR, "Failed to read " + repo.in("fileindex/foo") + ": Is a directory"));
    EXPECT_TRUE(exists(live + "/foo"));
    EXPECT_EQ(version_of("foo"), "1.0");
    expect_no_leftovers();
}

TEST_F(Update, KeepsChangedConfigurationAndComparesWithWhatWasShippedLast) {
    PackageSpec before = foo1;
    before.conf["srv/t/mine.conf"] = "shipped 1\n";
    before.conf["srv/t/plain.conf"] = "shipped 1\n";
    before.conf["srv/t/missing.conf"] = "shipped 1\n";
    install_now(before);
    put(live + "/mine.conf", "mine\n");
    fs::remove(live + "/missing.conf");
    put(live + "/stranger.conf", "shipped 2\n");
    PackageSpec after = foo2;
    after.conf["srv/t/mine.conf"] = "shipped 2\n";
    after.conf["srv/t/plain.conf"] = "shipped 2\n";
    after.conf["srv/t/missing.conf"] = "shipped 2\n";
    after.conf["srv/t/stranger.conf"] = "shipped 2\n";
    ASSERT_EQ(update(after, 1), 0);
    EXPECT_EQ(read_all(live + "/mine.conf"), "mine\n");
    EXPECT_EQ(read_all(repo.in("installed/foo/conf/srv/t/mine.conf")), "shipped 2\n");
    EXPECT_EQ(read_all(live + "/plain.conf"), "shipped 2\n");
    EXPECT_EQ(read_all(live + "/missing.conf"), "shipped 2\n");
    EXPECT_TRUE(log.has(LEVEL_INFO, "keeping modified config file /srv/t/mine.conf"));
    EXPECT_TRUE(log.has(LEVEL_INFO, "overwriting unmodified config file /srv/t/plain.conf"));
    EXPECT_TRUE(log.has(LEVEL_INFO, "installing missing config file /srv/t/missing.conf"));
    EXPECT_TRUE(
        log.has(LEVEL_DEBUG, "vrm_update_vrk: config file /srv/t/mine.conf already exists"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_update_vrk: /srv/t/mine.conf was shipped the last time"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_update_vrk: keeping existing config"))
        << "one that was not shipped before";
    EXPECT_EQ(read_all(repo.in("fileindex/foo")), "/srv/t/foo\n");

    // Back to what was shipped last: the next update replaces it.
    put(live + "/mine.conf", "shipped 2\n");
    after.version = "3.0";
    after.conf["srv/t/mine.conf"] = "shipped 3\n";
    ASSERT_EQ(update(after), 0);
    EXPECT_EQ(read_all(live + "/mine.conf"), "shipped 3\n");
}

TEST_F(Update, SaysWhatItDoesWhenVerbose) {
    install_now(foo1);
    PackageSpec after = foo2;
    after.init["00-add.sh"] = "exit 0\n";
    after.init["99-add.sh"] = "exit 0\n";
    after.deps = {"dep"};
    offer(simple("dep"));
    ASSERT_EQ(update(after, 1), 0);
    EXPECT_THAT(
        log.at(LEVEL_INFO),
        ElementsAre("getting foo_any_2.0.vrk", "retrieving dep_any_1.0.vrk",
                    "unpacking dep_any_1.0.vrk", "verifying dep_any_1.0", "installing dep_any_1.0",
                    "installation of dep_any_1.0 succeeded", "unpacking foo_any_2.0.vrk",
                    "verifying foo_any_2.0", "executing pre-install script for foo_any_2.0",
                    "updating foo_any_2.0", "executing post-install script for foo_any_2.0",
                    "update of foo_any_2.0 succeeded"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_exe_update: Number of deps: 1"));
    for (const std::string &line : log.at(LEVEL_DEBUG)) {
        EXPECT_THAT(line, Not(HasSubstr("Status: R, URI")));
    }
}

TEST_F(Update, ScriptsSeeBothVersions) {
    PackageSpec before = foo1;
    before.variant = "lite";
    install_now(before);
    PackageSpec after = foo2;
    after.variant = "lite";
    after.init["00-add.sh"] =
        "echo $VRM_MODE $VRK_VERSION_OLD $VRK_VERSION $VRK_VERSION_NEW $VRK_VARIANT_OLD "
        "[$VRM_VRKDIR] $VRK_STAGE_NEW >/srv/t/pre; cat /srv/t/foo >>/srv/t/pre\n";
    after.init["99-add.sh"] =
        "echo $VRM_MODE $VRK_VERSION_OLD $VRK_VERSION $VRM_VRKDIR "
        "$VRK_STAGE_NEW >/srv/t/post; cat /srv/t/foo >>/srv/t/post\n";
    after.init["99-cfg.sh"] = "echo $VRK_VERSION >/srv/t/cfg\n";
    after.data["srv/t/foo"] = "second\n";
    ASSERT_EQ(update(after), 0);
    const std::string fresh = staged("foo_lite_any_2.0") + "/new";
    EXPECT_EQ(read_all(live + "/pre"), "UPDATE 1.0 2.0 2.0 lite [] " + fresh + "\nfile of foo\n");
    EXPECT_EQ(read_all(live + "/post"), "UPDATE 1.0 2.0 " + fresh + " " + fresh + "\nsecond\n");
    EXPECT_EQ(read_all(live + "/cfg"), "2.0\n");
    EXPECT_EQ(getenv("VRK_NAME"), nullptr);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_update_vrk: Found pre-install script, will execute"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_update_vrk: Found post-install script, will execute"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_update_vrk: Found 99-cfg, registered"));
}

TEST_F(Update, HookCommandsAndLdconfigFollow) {
    put("/sbin/ldconfig.new", "#!/bin/sh\necho ran >>/srv/t/ldconfig\n");
    chmod("/sbin/ldconfig.new", 0755);
    fs::rename("/sbin/ldconfig.new", "/sbin/ldconfig");
    hook("data:/srv/t/*", "/bin/touch /srv/t/hook-of-${evrkName}");
    install_now(foo1);
    PackageSpec after = foo2;
    after.data["srv/t/libfoo.so.1"] = "elf";
    offer(after);
    own_vrt transaction = plan_update("foo");
    ASSERT_EQ(carry_out(transaction), 0);
    EXPECT_EQ(read_all(live + "/ldconfig"), "ran\n");
    EXPECT_EQ(have_so, 0);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_update_vrk: calling ldconfig"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG,
                        "vrm_update_vrk: Adding hook command: </bin/touch /srv/t/hook-of-foo>"));
    EXPECT_STREQ(ekva_getval(transaction->hookcmds, "foo"), "/bin/touch /srv/t/hook-of-foo");
}

TEST_F(Update, FailingPreScriptLeavesNothing) {
    install_now(foo1);
    PackageSpec after = foo2;
    after.data["srv/t/foo"] = "second\n";
    after.init["00-add.sh"] = "exit 3\n";
    EXPECT_EQ(update(after), 3 << 8) << "the raw wait status";
    EXPECT_TRUE(log.has(LEVEL_ERROR, "Pre-Install script ended with errors, aborting update"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "rc of vrm_update_vrk for foo_any_2.0: 768"));
    EXPECT_EQ(read_all(live + "/foo"), "file of foo\n");
    expect_untouched_registration("00-add.sh");
    EXPECT_TRUE(exists(staged("foo_any_2.0") + ".vrk"));
}

TEST_F(Update, FailingPostScriptBringsEverythingBack) {
    PackageSpec before = foo1;
    before.data["srv/t/gone"] = "old only\n";
    before.modes["data/srv/t/gone"] = 0604;
    before.conf["srv/t/plain.conf"] = "shipped 1\n";
    install_now(before);
    PackageSpec after = foo2;
    after.data["srv/t/foo"] = "second\n";
    after.data["srv/t/fresh"] = "new\n";
    after.conf["srv/t/plain.conf"] = "shipped 2\n";
    after.conf["srv/t/new.conf"] = "shipped 2\n";
    after.init["99-add.sh"] = "echo ran >/srv/t/trace; exit 3\n";
    EXPECT_EQ(update(after), -1) << "not the script's status, unlike in an install";
    EXPECT_TRUE(log.has(LEVEL_ERROR, "Post-Install script ended with errors, aborting update"));
    EXPECT_EQ(read_all(live + "/foo"), "file of foo\n");
    EXPECT_EQ(read_all(live + "/gone"), "old only\n");
    EXPECT_EQ(mode_of(live + "/gone"), 0604u);
    EXPECT_EQ(read_all(live + "/plain.conf"), "shipped 1\n");
    EXPECT_FALSE(exists(live + "/fresh"));
    EXPECT_TRUE(exists(live + "/new.conf")) << "no rollback knows of it";
    EXPECT_TRUE(exists(live + "/trace"));
    expect_untouched_registration("99-add.sh");
}

TEST_F(Update, ARollbackBringsBackAllThatBelongsToAFile) {
    PackageSpec before = foo1;
    before.data["srv/t/gone"] = "old only\n";
    before.conf["srv/t/foo.conf"] = "shipped\n";
    install_now(before);
    std::map<std::string, file_facts> facts;
    for (const std::string name : {"/foo", "/gone", "/foo.conf", "/mine"}) {
        const std::string path = live + name;
        facts[path] = write_marked_file(path, name == "/foo.conf" ? "shipped\n" : "x");
    }
    PackageSpec after = foo2;
    after.data["srv/t/foo"] = "second\n";
    after.data["srv/t/mine"] = "a file in the way\n";
    after.conf["srv/t/foo.conf"] = "shipped 2\n";
    after.init["99-add.sh"] = "exit 3\n";
    EXPECT_EQ(update(after), -1);
    for (const auto &[path, as_before] : facts) {
        EXPECT_EQ(facts_of(path), as_before) << path;
    }
    EXPECT_THAT(log.at(LEVEL_WARNING), IsEmpty());
    expect_untouched_registration("facts");
}

TEST_F(Update, RollbackKeepsWhatWasNotReachedYet) {
    PackageSpec before = foo1;
    before.data["srv/t/a"] = "a 1\n";
    before.data["srv/t/b"] = "b 1\n";
    install_now(before);
    PackageSpec after = foo2;
    after.data["srv/t/a"] = "a 2\n";
    after.data["srv/t/b"] = "b 2\n";
    after.data["srv/t/dir/x"] = "x";
    put(live + "/dir", "a file where a directory is wanted\n");
    EXPECT_EQ(update(after), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "Failure installing " + staged("foo_any_2.0") +
                                         "/new/data/srv/t/dir/x to /srv/t/dir/x"));
    for (const std::string name : {"a", "b"}) {
        EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_install_rollback: removing /srv/t/" + name));
        EXPECT_EQ(read_all(live + "/" + name), name + " 1\n");
    }
    expect_untouched_registration("data");
}

TEST_F(Update, ConfigurationThatCannotBeWrittenRollsBack) {
    install_now(foo1);
    PackageSpec after = foo2;
    after.data["srv/t/foo"] = "second\n";
    after.conf["srv/t/dir/x.conf"] = "x";
    put(live + "/dir", "a file where a directory is wanted\n");
    EXPECT_EQ(update(after), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_update_vrk: Failed to install " + staged("foo_any_2.0") +
                                         "/new/conf/srv/t/dir/x.conf to /srv/t/dir/x.conf"));
    EXPECT_EQ(read_all(live + "/foo"), "file of foo\n");
    expect_untouched_registration("conf");
}

TEST_F(Update, HalfWrittenConfigurationDoesNotStay) {
    install_now(foo1);
    const SmallDisk disk(live + "/small");
    PackageSpec after = foo2;
    after.conf["srv/t/small/big.conf"] = std::string(200000, 'c');
    EXPECT_EQ(update(after), -1);
    EXPECT_FALSE(exists(live + "/small/big.conf"));
    expect_untouched_registration("half a configuration file");
}

TEST_F(Update, BackupThatFailsEndsItBeforeAnythingIsWritten) {
    PackageSpec before = foo1;
    before.data["srv/t/gone"] = "old only\n";
    install_now(before);
    fs::remove(live + "/gone");
    fs::create_directory(live + "/gone");
    PackageSpec after = foo2;
    after.data["srv/t/foo"] = "second\n";
    EXPECT_EQ(update(after), -1);
    EXPECT_TRUE(
        log.has(LEVEL_ERROR,
                "Failure backing up previous version of /srv/t/gone, will rollback and abort."));
    EXPECT_EQ(read_all(live + "/foo"), "file of foo\n") << "it was not reached";
    EXPECT_EQ(version_of("foo"), "1.0");
    EXPECT_FALSE(exists(staged("foo_any_2.0")));
}

TEST_F(Update, OldFileThatCannotBeRemovedStaysWithAWarning) {
    PackageSpec before = foo1;
    before.data["srv/t/held"] = "held\n";
    install_now(before);
    ASSERT_EQ(mount((live + "/held").c_str(), (live + "/held").c_str(), nullptr, MS_BIND, nullptr),
              0)
        << strerror(errno);
    EXPECT_EQ(update(foo2), 0);
    umount((live + "/held").c_str());
    EXPECT_TRUE(log.has(LEVEL_WARNING, "Failed to remove old file /srv/t/held: " +
                                           std::string(strerror(EBUSY)) + ", continuing"));
    EXPECT_EQ(version_of("foo"), "2.0");
}

TEST_F(Update, FileOfAnotherPackageEndsItBeforeAnythingIsWritten) {
    install_now(foo1);
    put(live + "/shared", "other's\n");
    repo.install(simple("other"), {"/srv/t/shared"});
    PackageSpec after = foo2;
    after.data["srv/t/foo"] = "second\n";
    after.data["srv/t/shared"] = "mine\n";
    after.init["00-add.sh"] = "echo ran >/srv/t/trace\n";
    EXPECT_EQ(update(after), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_chk_local_update: /srv/t/shared is on disk and belongs to package "
                        "other, aborting"));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "Failure processing update, rc=-1"));
    EXPECT_EQ(read_all(live + "/shared"), "other's\n");
    EXPECT_EQ(read_all(live + "/foo"), "file of foo\n");
    EXPECT_TRUE(exists(live + "/trace"));
    expect_untouched_registration("a file of another package");
}

TEST_F(Update, TamperedPayloadLeavesItsStageDirectory) {
    install_now(foo1);
    const std::string file = offer(foo2);
    std::string bytes = read_all(file);
    bytes[bytes.size() - 1] = static_cast<char>(bytes[bytes.size() - 1] ^ 1);
    std::ofstream(file, std::ios::binary) << bytes;
    own_vrt transaction = plan_update("foo");
    EXPECT_EQ(carry_out(transaction), -1);
    const std::string base = staged("foo_any_2.0");
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_update_vrk: Failure unpacking " + base + ".vrk to " + base + "/new"));
    EXPECT_TRUE(exists(base + "/new"));
    EXPECT_EQ(version_of("foo"), "1.0");
    EXPECT_THAT(history(), IsEmpty());
}

TEST_F(Update, UnlistedFileFailsTheVerificationAndLeavesItsStageDirectory) {
    install_now(foo1);
    PackageSpec after = foo2;
    after.data["srv/t/extra"] = "x";
    after.hash_lists["data"] = "";
    EXPECT_NE(update(after), 0);
    const std::string fresh = staged("foo_any_2.0") + "/new";
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_update_vrk: Failure checking files for foo in " + fresh));
    EXPECT_TRUE(exists(fresh + "/data/srv/t/extra"));
    EXPECT_EQ(read_all(live + "/foo"), "file of foo\n");
    EXPECT_EQ(version_of("foo"), "1.0");
}

// A member of the info fork that is a directory stands where a later copy wants to put a file: so
// each copy of the registration can be made to fail.
TEST_F(Update, EachFailureOfTheRegistrationRollsBack) {
    install_now(foo1);
    const std::string general = "Failed to register package foo in local inventory";
    struct Case {
        std::string in_the_way;  // a member of the info fork
        std::vector<std::string> messages;
    };
    const std::string copy = "vrm_update_vrk: Failed to copy ";
    for (const Case &bad : {
             Case{"hash", {general}},
             Case{"hash/data.txt/x", {copy + "data hash file for package foo", general}},
             Case{"init/99-add.sh/x", {copy + "init files for package foo"}},
             Case{"hash/init.txt/x", {copy + "init hash file for package foo"}},
             Case{"conf/srv/t/foo.conf/x", {copy + "conf files for package foo"}},
             Case{"hash/conf.txt/x", {copy + "conf hash file for package foo"}},
             Case{"dump/notes/x", {copy + "dump files for package foo"}},
             Case{"hash/dump.txt/x", {copy + "dump hash file for package foo"}},
             Case{"inst.txt/x", {"vrm_update_vrk: Failed to write install info for package foo"}},
         }) {
        PackageSpec after = foo2;
        after.data["srv/t/foo"] = "second\n";
        after.init["99-add.sh"] = "exit 0\n";
        after.conf["srv/t/foo.conf"] = "c";
        after.dump["notes"] = "n";
        after.info[bad.in_the_way] = "in the way";
        log.clear();
        EXPECT_EQ(update(after), -1) << bad.in_the_way;
        for (const std::string &message : bad.messages) {
            EXPECT_TRUE(log.has(LEVEL_ERROR, message)) << bad.in_the_way;
        }
        EXPECT_EQ(log.has(LEVEL_ERROR, general), bad.messages.back() == general);
        EXPECT_EQ(read_all(live + "/foo"), "file of foo\n") << bad.in_the_way;
        expect_untouched_registration(bad.in_the_way);
    }
}

TEST_F(Update, FileIndexThatCannotBeWrittenRollsBack) {
    install_now(foo1);
    fs::create_directory(repo.in("fileindex/.foo.new"));
    PackageSpec after = foo2;
    after.data["srv/t/foo"] = "second\n";
    EXPECT_EQ(update(after), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_update_vrk: Failed to write fileindex for package foo"));
    EXPECT_EQ(read_all(live + "/foo"), "file of foo\n");
    fs::remove(repo.in("fileindex/.foo.new"));
    expect_untouched_registration("the file index");
}

TEST_F(Update, WhatACrashLeftIsNoObstacle) {
    install_now(foo1);
    for (const char *left : {"installed/.foo.new/conf", "installed/.foo.old/conf"}) {
        fs::create_directories(repo.in(left));
    }
    put(repo.in("fileindex/.foo.old"), "/left\n");
    put(repo.in("fileindex/.foo.new"), "/left\n");
    ASSERT_EQ(update(foo2), 0);
    expect_no_leftovers();
    EXPECT_THAT(tree(repo.in("installed/foo")),
                ElementsAre("desc.txt", "hash/", "hash/data.txt", "inst.txt"));
    EXPECT_EQ(read_all(repo.in("fileindex/foo")), "/srv/t/foo\n");
}

TEST_F(Update, IndexThatACrashLeftIsNotTakenForThatOfAVersionWithoutData) {
    install_now(foo1);
    put(repo.in("fileindex/.foo.new"), "/left\n");
    PackageSpec after = foo2;
    after.data.clear();
    ASSERT_EQ(update(after), 0);
    expect_no_leftovers();
    EXPECT_FALSE(exists(repo.in("fileindex/foo")));
}

TEST_F(Update, StagingFailuresChangeNothing) {
    install_now(foo1);
    offer(foo2);
    own_vrt transaction = plan_update("foo");
    const std::string target = staged("foo_any_2.0") + ".vrk";
    catalogue.short_by = 1;
    EXPECT_EQ(carry_out(transaction), -1);
    const auto size = transaction->info->filesize;
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_update: Failed to get " + std::to_string(size) +
                                         " bytes from vrc_readpkg into " + target +
                                         ". rc = " + std::to_string(size - 1)));
    fs::remove(target);
    fs::create_directory(target);
    EXPECT_EQ(carry_out(transaction), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_update: Failed to open " + target +
                                         " for writing: " + strerror(EISDIR)));
    fs::remove(target);
    transaction->source = 'L';
    const std::string source = transaction->info->absolute_uri;
    fs::remove(source);
    EXPECT_EQ(carry_out(transaction, 1), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_update: Failed to copy " + source + " to " + target));
    EXPECT_TRUE(log.has(LEVEL_INFO, "copying foo_any_2.0.vrk"));
    EXPECT_EQ(version_of("foo"), "1.0");
}

TEST_F(Update, PackageFileCanGoBackToAnOlderVersion) {
    install_now(foo2);
    const std::string older = offer(foo1);
    own_vrt transaction = plan_update(older);
    ASSERT_EQ(carry_out(transaction), 0);
    EXPECT_EQ(version_of("foo"), "1.0");
    EXPECT_THAT(history(), ElementsAre("updated foo_any_2.0 to foo_any_1.0 as requested by user"));
}

TEST_F(Update, InstallsNewDependenciesInReverseOrderOfTheirDiscovery) {
    install_now(foo1);
    for (const char *name : {"a", "b"}) {
        PackageSpec dep = simple(name);
        dep.deps = {"c"};
        offer(dep);
    }
    offer(simple("c"));
    PackageSpec after = foo2;
    after.deps = {"a", "b"};
    ASSERT_EQ(update(after), 0);
    EXPECT_THAT(history(), ElementsAre("installed c_any_1.0 as dependency of b",
                                       "installed b_any_1.0 as dependency of foo",
                                       "installed a_any_1.0 as dependency of foo",
                                       "updated foo_any_1.0 to foo_any_2.0 as requested by user"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "skipping installation of c, was already installed"))
        << "the repeat";
}

TEST_F(Update, DependencyIsUpdatedWhereItsActionSaysSo) {
    install_now(simple("dep"));
    install_now(foo1);
    PackageSpec after = foo2;
    after.deps = {"dep"};
    offer(after);
    own_vrt transaction = plan_update("foo");
    offer(version(simple("dep"), "2.0"));
    vrd *dep = transaction->deps[0];
    EXPECT_EQ(dep->action, 'N');
    vrk_info_free(dep->info);
    dep->info = vrm_vrf_info(repo.handle(), catalogue.files.at("dep").c_str(), 0);
    dep->status = 'R';
    dep->action = 'U';
    ASSERT_EQ(carry_out(transaction), 0);
    EXPECT_EQ(version_of("dep"), "2.0");
    EXPECT_THAT(history(), ElementsAre("updated dep_any_1.0 to dep_any_2.0 as dependency of foo",
                                       "updated foo_any_1.0 to foo_any_2.0 as requested by user"));
    EXPECT_TRUE(log.has(LEVEL_INFO, "update of dep_any_2.0 succeeded"));
}

TEST_F(Update, DependencyThatIsNotInstalledIsNotUpdated) {
    install_now(foo1);
    offer(simple("dep"));
    PackageSpec after = foo2;
    after.deps = {"dep"};
    offer(after);
    own_vrt transaction = plan_update("foo");
    transaction->deps[0]->action = 'U';
    EXPECT_EQ(carry_out(transaction), 0);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "skipping update of dep, is not installed"));
    EXPECT_FALSE(is_installed("dep"));
}

TEST_F(Update, DependencyWithNothingToDoIsLeftAlone) {
    install_now(simple("dep"));
    install_now(foo1);
    PackageSpec after = foo2;
    after.deps = {"dep"};
    ASSERT_EQ(update(after), 0);
    EXPECT_THAT(history(), ElementsAre("updated foo_any_1.0 to foo_any_2.0 as requested by user"));
}

TEST_F(Update, FailingDependenciesEndTheTransaction) {
    install_now(foo1);
    PackageSpec bad = simple("bad");
    bad.init["00-add.sh"] = "exit 1\n";
    offer(bad);
    PackageSpec good = simple("good");
    good.init["99-cfg.sh"] = "echo configured >/srv/t/cfg\n";
    offer(good);
    PackageSpec after = foo2;
    after.deps = {"bad", "good"};
    EXPECT_EQ(update(after), 256);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "installation of bad_any_1.0 failed with rc=256"));
    EXPECT_TRUE(log.has_line_end(LEVEL_ERROR, "installation of bad_any_1.0 failed with rc=256"));
    EXPECT_EQ(version_of("foo"), "1.0");
    EXPECT_TRUE(is_installed("good")) << "what was done before stays";
    EXPECT_EQ(read_all(live + "/cfg"), "configured\n");
}

TEST_F(Update, FailingUpdateOfADependencyEndsTheTransaction) {
    install_now(simple("dep"));
    install_now(foo1);
    PackageSpec after = foo2;
    after.deps = {"dep"};
    offer(after);
    own_vrt transaction = plan_update("foo");
    PackageSpec bad = version(simple("dep"), "2.0");
    bad.init["00-add.sh"] = "exit 1\n";
    offer(bad);
    vrd *dep = transaction->deps[0];
    vrk_info_free(dep->info);
    dep->info = vrm_vrf_info(repo.handle(), catalogue.files.at("dep").c_str(), 0);
    dep->status = 'R';
    dep->action = 'U';
    EXPECT_EQ(carry_out(transaction), 256);
    EXPECT_TRUE(log.has_line_end(LEVEL_ERROR, "update of dep_any_2.0 failed with rc=256"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_scripts_exe: found 0 scripts to configure"));
    EXPECT_EQ(version_of("foo"), "1.0");
}

TEST_F(Update, TopPackageThatIsNotInstalledGives99) {
    install_now(foo1);
    offer(foo2);
    own_vrt transaction = plan_update("foo");
    fs::remove_all(repo.in("installed/foo"));
    EXPECT_EQ(carry_out(transaction), 99);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "skipping update of foo, is not installed"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_scripts_exe: found 0 scripts to configure"));
}

TEST_F(Update, TopPackageToBeInstalledIsInstalledOrGives99) {
    install_now(foo1);
    offer(foo2);
    own_vrt transaction = plan_update("foo");
    transaction->action = 'I';
    EXPECT_EQ(carry_out(transaction), 99);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "skipping installation of foo, was already installed"));
    EXPECT_FALSE(log.has(LEVEL_DEBUG, "vrm_scripts_exe: found 0 scripts to configure"));
    fs::remove_all(repo.in("installed/foo"));
    fs::remove(repo.in("fileindex/foo"));
    fs::remove(live + "/foo");
    EXPECT_EQ(carry_out(transaction), 0);
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, "rc of vrm_install_vrk for foo_any_2.0: 0"));
    EXPECT_EQ(version_of("foo"), "2.0");
}

TEST_F(Update, TopPackageWithAnotherActionIsOnlyStaged) {
    install_now(foo1);
    offer(foo2);
    own_vrt transaction = plan_update("foo");
    transaction->action = 'N';
    EXPECT_EQ(carry_out(transaction), 0);
    EXPECT_EQ(version_of("foo"), "1.0");
    EXPECT_TRUE(exists(staged("foo_any_2.0") + ".vrk"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_scripts_exe: found 0 scripts to configure"));
}

TEST_F(Update, RmpkgDeletesTheStagedFileAfterSuccessOnly) {
    install_now(foo1);
    PackageSpec bad = foo2;
    bad.init["00-add.sh"] = "exit 1\n";
    EXPECT_EQ(update(bad, 0, 1), 256);
    EXPECT_TRUE(exists(staged("foo_any_2.0") + ".vrk"));
    ASSERT_EQ(update(foo2, 0, 1), 0);
    EXPECT_FALSE(exists(staged("foo_any_2.0") + ".vrk"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "removing foo_any_2.0.vrk"));
}

TEST_F(Update, AskedToStopItEndsBeforeTheNextPackage) {
    install_now(foo1);
    offer(foo2);
    own_vrt transaction = plan_update("foo");
    catalogue.stop_after = catalogue.fetches + 1;
    EXPECT_EQ(carry_out(transaction), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "interrupted, not going on with foo_any_2.0"));
    EXPECT_EQ(version_of("foo"), "1.0");
}
