#include "transaction/install.h"

#include "transaction/executor_fixture.h"
#include "transaction/fetch.h"
#include "transaction/space.h"
#include "transaction/unpack.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

class Install : public ExecutorTest {};

}  // namespace

TEST_F(Install, NeedsTheLock) {
    offer(simple("foo"));
    own_vrt transaction = plan("foo");
    repo.handle()->locked = 0;
    EXPECT_EQ(run(transaction), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_install: no lock on local repository"));
    EXPECT_EQ(catalogue.fetches, 0);
}

TEST_F(Install, RefusesNamesThatWouldLeaveTheirPlaceBeforeStagingAnything) {
    struct Case {
        const char *field;
        const char *bad;
    };
    for (const Case &bad : {Case{"name", "../foo"}, Case{"name", ".foo"}, Case{"name", "-foo"},
                            Case{"name", "a;b"}, Case{"version", "1/0"}, Case{"version", "$(x)"},
                            Case{"variant", "a b"}, Case{"variant", "-x"}}) {
        offer(simple("foo"));
        own_vrt transaction = plan("foo");
        vri *package = transaction->info;
        char **field = bad.field == std::string("name")      ? &package->name
                       : bad.field == std::string("version") ? &package->version
                                                             : &package->variant;
        free(*field);
        *field = strdup(bad.bad);
        EXPECT_EQ(run(transaction), -1) << bad.bad;
        EXPECT_TRUE(log.has(LEVEL_ERROR, std::string("vrm_exe_install: refusing package <") +
                                             package->name + ">: its " + bad.field +
                                             " is not allowed"))
            << bad.bad;
        log.clear();
    }
    EXPECT_EQ(catalogue.fetches, 0);
    EXPECT_TRUE(fs::is_empty(repo.in("stagearea")));
}

TEST_F(Install, RefusesADependencyWithAHostileNameBeforeStagingAnything) {
    offer(simple("dep"));
    offer(simple("top", {"dep"}));
    own_vrt transaction = plan("top");
    ASSERT_EQ(transaction->num_deps, 1);
    free(transaction->deps[0]->info->version);
    transaction->deps[0]->info->version = strdup("`id`");
    EXPECT_EQ(run(transaction), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_exe_install: refusing package <dep>: its version is not allowed"));
    EXPECT_EQ(catalogue.fetches, 0);
}

TEST_F(Install, LeavesExactlyTheInventoryTreeAndModes) {
    PackageSpec spec = simple("foo");
    spec.data["srv/t/bin/tool"] = "#!/bin/sh\n";
    spec.modes["data/srv/t/bin/tool"] = 0755;
    spec.conf["srv/t/etc/foo.conf"] = "a = 1\n";
    spec.modes["conf/srv/t/etc/foo.conf"] = 0600;
    spec.dump["notes/read.me"] = "kept only\n";
    spec.modes["dump/notes/read.me"] = 0640;
    spec.init["99-add.sh"] = "exit 0\n";
    spec.init["00-del.sh"] = "exit 0\n";
    spec.info["link.txt"] = "/srv/t|foo|foo-link\n";
    spec.info["perm.txt"] = "/srv/t/foo|0751\n";
    offer(spec);
    ASSERT_EQ(install("foo"), 0);

    const std::string entry = repo.in("installed/foo");
    EXPECT_THAT(tree(entry),
                ElementsAre("conf/", "conf/srv/", "conf/srv/t/", "conf/srv/t/etc/",
                            "conf/srv/t/etc/foo.conf", "desc.txt", "dump/", "dump/notes/",
                            "dump/notes/read.me", "hash/", "hash/conf.txt", "hash/data.txt",
                            "hash/dump.txt", "hash/init.txt", "init/", "init/00-del.sh",
                            "init/99-add.sh", "inst.txt", "link.txt", "perm.txt"));
    EXPECT_EQ(mode_of(entry), 0755u);
    EXPECT_EQ(mode_of(entry + "/hash"), 0755u);
    for (const char *file :
         {"desc.txt", "link.txt", "perm.txt", "hash/data.txt", "hash/init.txt", "hash/conf.txt",
          "hash/dump.txt", "init/00-del.sh", "init/99-add.sh"}) {
        EXPECT_EQ(mode_of(entry + "/" + file), 0755u) << file;
    }
    EXPECT_EQ(mode_of(entry + "/conf/srv/t/etc/foo.conf"), 0600u);
    EXPECT_EQ(mode_of(entry + "/dump/notes/read.me"), 0640u);
    EXPECT_EQ(mode_of(entry + "/inst.txt"), 0644u);
    EXPECT_EQ(read_all(entry + "/desc.txt"), description_of(spec));

    EXPECT_EQ(read_all(live + "/foo"), "file of foo\n");
    EXPECT_EQ(mode_of(live + "/foo"), 0751u) << "the permission list was applied";
    EXPECT_EQ(mode_of(live + "/bin/tool"), 0755u);
    EXPECT_EQ(read_all(live + "/etc/foo.conf"), "a = 1\n");
    EXPECT_EQ(mode_of(live + "/etc/foo.conf"), 0600u);
    EXPECT_EQ(fs::read_symlink(live + "/foo-link"), "foo");
    EXPECT_FALSE(exists(live + "/read.me"));

    std::string index = read_all(repo.in("fileindex/foo"));
    EXPECT_THAT(index,
                testing::AnyOf("/srv/t/foo\n/srv/t/bin/tool\n", "/srv/t/bin/tool\n/srv/t/foo\n"));
    EXPECT_THAT(tree(repo.in("stagearea")), ElementsAre("foo_any_1.0.vrk"))
        << "the package file stays, its stage directory goes";
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_install_vrk: Will unpack " + staged("foo_any_1.0") +
                                         ".vrk to " + staged("foo_any_1.0") + "/new"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "registering foo for candidate foo"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_install_vrk: Writing fileindex for <foo> to <" +
                                         repo.in("fileindex") + "/foo>"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_install_vrk: rc of vrm_vrf_links: 0"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_install_vrk: rc of vrm_vrf_perms: 0"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_install_vrk: copying " + staged("foo_any_1.0") +
                                         "/new/data/srv/t/foo to /srv/t/foo with backup of "
                                         "/srv/t/foo"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_install_vrk: Copied 12 bytes from " +
                                         staged("foo_any_1.0") +
                                         "/new/data/srv/t/foo to /srv/t/foo"));
}

TEST_F(Install, WritesTheInstallRecordOfATopPackage) {
    offer(simple("foo"));
    const time_t before = time(nullptr);
    ASSERT_EQ(install("foo"), 0);
    const time_t after = time(nullptr);
    const std::string record = read_all(repo.in("installed/foo/inst.txt"));
    ASSERT_THAT(record, testing::MatchesRegex("evrkInstallTime: [0-9]+\nevrkInstallType: X\n"));
    const long long told = std::stoll(record.substr(17));
    EXPECT_GE(told, before);
    EXPECT_LE(told, after);
}

TEST_F(Install, ChainGetsTypesHeadsOrderAndHistory) {
    PackageSpec b = simple("b"), a = simple("a", {"b"}), t = simple("t", {"a"});
    for (PackageSpec *spec : {&b, &a, &t}) {
        spec->init["00-add.sh"] = "echo add " + spec->name + " >>/srv/t/trace\n";
        spec->init["99-cfg.sh"] = "echo cfg " + spec->name + " $VRK_NAME >>/srv/t/trace\n";
        offer(*spec);
    }
    ASSERT_EQ(install("t"), 0);
    EXPECT_THAT(read_all(repo.in("installed/b/inst.txt")),
                HasSubstr("\nevrkInstallType: D\nevrkInstallHead: a\n"));
    EXPECT_THAT(read_all(repo.in("installed/a/inst.txt")),
                HasSubstr("\nevrkInstallType: D\nevrkInstallHead: t\n"));
    EXPECT_THAT(read_all(repo.in("installed/t/inst.txt")), HasSubstr("\nevrkInstallType: X\n"));
    EXPECT_EQ(read_all(live + "/trace"), "add b\nadd a\nadd t\ncfg b b\ncfg a a\ncfg t t\n");
    EXPECT_THAT(history(), ElementsAre("installed b_any_1.0 as dependency of a",
                                       "installed a_any_1.0 as dependency of t",
                                       "installed t_any_1.0 as requested by user"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_exe_install: Number of deps: 2"));
    EXPECT_TRUE(log.has(LEVEL_INFO, "installation of b_any_1.0 succeeded"));
    EXPECT_TRUE(log.has(LEVEL_INFO, "installation of t_any_1.0 succeeded"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "rc of vrm_install_vrk for t_any_1.0: 0"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_install_vrk: Found 99-cfg, registered"));
}

TEST_F(Install, MessagesOfTheTransactionHaveTheirLineEnds) {
    offer(simple("dep"));
    offer(simple("top", {"dep"}));
    ASSERT_EQ(install("top"), 0);
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, "-  dep                       Status: R, URI: " +
                                                  fs::canonical(files / "dep.vrk").string()));
    EXPECT_TRUE(log.has_line_end(LEVEL_DEBUG, "rc of vrm_install_vrk for top_any_1.0: 0"));
    EXPECT_TRUE(log.has_line_end(LEVEL_INFO, "installation of top_any_1.0 succeeded"));
    EXPECT_FALSE(log.has_line_end(LEVEL_INFO, "installation of dep_any_1.0 succeeded"));

    PackageSpec bad = simple("bad");
    bad.init["00-add.sh"] = "exit 1\n";
    offer(bad);
    offer(simple("user", {"bad"}));
    EXPECT_EQ(install("bad"), 256);
    EXPECT_EQ(install("user"), 256);
    EXPECT_TRUE(log.has_line_end(LEVEL_ERROR, "installation of bad_any_1.0 failed with rc=256"));
    EXPECT_TRUE(log.has_line_end(LEVEL_ERROR, "Installation of bad_any_1.0 failed with rc=256"));
}

TEST_F(Install, TopPackageThatACircleLedToKeepsTypeX) {
    offer(simple("a", {"t"}));
    offer(simple("t", {"a"}));
    ASSERT_EQ(install("t"), 0);
    EXPECT_THAT(read_all(repo.in("installed/t/inst.txt")), HasSubstr("evrkInstallType: X"));
    EXPECT_THAT(read_all(repo.in("installed/a/inst.txt")), HasSubstr("evrkInstallHead: t"));
}

TEST_F(Install, PackageWithoutDataHasNoFileIndex) {
    PackageSpec spec = simple("foo");
    spec.data.clear();
    spec.dump["x"] = "y";
    offer(spec);
    ASSERT_EQ(install("foo"), 0);
    EXPECT_TRUE(is_installed("foo"));
    EXPECT_FALSE(exists(repo.in("fileindex/foo")));
    EXPECT_FALSE(exists(repo.in("installed/foo/hash/data.txt")));
    EXPECT_TRUE(exists(repo.in("installed/foo/hash")));
}

TEST_F(Install, PackageWithoutScriptsRunsNoneAndRegistersNone) {
    offer(simple("foo"));
    own_vrt transaction = plan("foo");
    ASSERT_EQ(run(transaction), 0);
    EXPECT_EQ(ekva_nument(transaction->scripts), 0);
    EXPECT_FALSE(exists(repo.in("installed/foo/init")));
    for (const std::string &line : log.at(LEVEL_DEBUG)) {
        EXPECT_THAT(line, Not(HasSubstr("install script, will execute")));
    }
}

TEST_F(Install, SaysWhatItDoesWhenVerbose) {
    PackageSpec spec = simple("foo");
    spec.init["00-add.sh"] = "exit 0\n";
    spec.init["99-add.sh"] = "exit 0\n";
    spec.conf["srv/t/new.conf"] = "x";
    offer(spec);
    ASSERT_EQ(install("foo", 1), 0);
    EXPECT_THAT(log.at(LEVEL_INFO),
                ElementsAre("getting foo_any_1.0.vrk", "unpacking foo_any_1.0.vrk",
                            "verifying foo_any_1.0", "executing pre-install script for foo_any_1.0",
                            "installing foo_any_1.0", "installing new config file /srv/t/new.conf",
                            "executing post-install script for foo_any_1.0",
                            "installation of foo_any_1.0 succeeded"));
}

TEST_F(Install, IsSilentWhenNotVerbose) {
    PackageSpec spec = simple("foo");
    spec.conf["srv/t/new.conf"] = "x";
    offer(spec);
    ASSERT_EQ(install("foo", 0), 0);
    EXPECT_THAT(log.at(LEVEL_INFO), ElementsAre("installation of foo_any_1.0 succeeded"));
}

TEST_F(Install, KeepsAConfigurationFileThatStandsThere) {
    PackageSpec spec = simple("foo");
    spec.conf["srv/t/my.conf"] = "shipped\n";
    files.write("x", "");
    std::ofstream(live + "/my.conf") << "mine\n";
    offer(spec);
    ASSERT_EQ(install("foo", 1), 0);
    EXPECT_EQ(read_all(live + "/my.conf"), "mine\n");
    EXPECT_EQ(read_all(repo.in("installed/foo/conf/srv/t/my.conf")), "shipped\n");
    EXPECT_TRUE(log.has(LEVEL_INFO, "keeping existing config file /srv/t/my.conf"));
    EXPECT_EQ(read_all(repo.in("fileindex/foo")), "/srv/t/foo\n") << "no configuration file in it";
}

TEST_F(Install, ScriptsSeeTheirEnvironmentAndStage) {
    PackageSpec spec = simple("foo");
    spec.variant = "lite";
    spec.init["00-add.sh"] =
        "echo $VRM_MODE $VRK_NAME $VRK_VARIANT $VRK_VERSION_NEW >/srv/t/pre\n"
        "pwd >>/srv/t/pre; ls $VRK_STAGE_NEW/data/srv/t >>/srv/t/pre; ls /srv/t >>/srv/t/pre\n";
    spec.init["99-add.sh"] = "cat /srv/t/foo >/srv/t/post\n";
    offer(spec);
    ASSERT_EQ(install("foo"), 0);
    EXPECT_EQ(read_all(live + "/pre"),
              "INSTALL foo lite 1.0\n" + repo.in("scriptdir") + "\nfoo\npre\n")
        << "before 00-add.sh nothing of the package is on the system";
    EXPECT_EQ(read_all(live + "/post"), "file of foo\n");
    EXPECT_EQ(getenv("VRK_NAME"), nullptr);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_install_vrk: Found pre-install script, will execute"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_install_vrk: Found post-install script, will execute"));
}

TEST_F(Install, FailingPreScriptLeavesNothing) {
    PackageSpec spec = simple("foo");
    spec.init["00-add.sh"] = "exit 3\n";
    offer(spec);
    EXPECT_EQ(install("foo"), 3 << 8) << "the raw wait status";
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_install_vrk: pre-install script got an error, aborting"));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "installation of foo_any_1.0 failed with rc=768"));
    EXPECT_FALSE(exists(live + "/foo"));
    EXPECT_FALSE(exists(repo.in("installed/foo")));
    EXPECT_THAT(tree(repo.in("stagearea")), ElementsAre("foo_any_1.0.vrk"));
    EXPECT_THAT(history(), IsEmpty());
}

TEST_F(Install, FailingPostScriptRollsBack) {
    PackageSpec spec = simple("foo");
    spec.data["srv/t/old"] = "new content\n";
    spec.init["99-add.sh"] = "exit 1\n";
    std::ofstream(live + "/old") << "old content\n";
    chmod((live + "/old").c_str(), 0604);
    offer(spec);
    ScriptedUser::instance().answers = {"r"};
    EXPECT_EQ(install("foo"), 256);
    EXPECT_TRUE(
        log.has(LEVEL_ERROR, "vrm_install_vrk: post-install script got an error, aborting"));
    EXPECT_FALSE(exists(live + "/foo"));
    EXPECT_EQ(read_all(live + "/old"), "old content\n");
    EXPECT_EQ(mode_of(live + "/old"), 0604u);
    EXPECT_FALSE(exists(repo.in("installed/foo")));
    EXPECT_FALSE(exists(repo.in("fileindex/foo")));
    EXPECT_THAT(tree(repo.in("stagearea")), ElementsAre("foo_any_1.0.vrk"));
    EXPECT_THAT(history(), IsEmpty());
}

TEST_F(Install, FileOfAnotherPackageEndsItBeforeAnythingIsWritten) {
    PackageSpec other = simple("other");
    std::ofstream(live + "/shared") << "other's\n";
    repo.install(other, {"/srv/t/shared"});
    PackageSpec spec = simple("foo");
    spec.data["srv/t/shared"] = "mine\n";
    offer(spec);
    EXPECT_EQ(install("foo"), -1);
    EXPECT_TRUE(log.has(
        LEVEL_ERROR, "aborting installation, /srv/t/shared exists and belongs to package other"));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_install_vrk: Aborting"));
    EXPECT_EQ(read_all(live + "/shared"), "other's\n");
    EXPECT_FALSE(exists(live + "/foo"));
    EXPECT_THAT(tree(repo.in("stagearea")), ElementsAre("foo_any_1.0.vrk"));
    EXPECT_FALSE(is_installed("foo"));
}

TEST_F(Install, FilesThatTheUserLeavesAreNotIndexed) {
    PackageSpec spec = simple("foo");
    std::ofstream(live + "/foo") << "the user's\n";
    offer(spec);
    ScriptedUser::instance().answers = {"l"};
    ASSERT_EQ(install("foo"), 0);
    EXPECT_EQ(read_all(live + "/foo"), "the user's\n");
    ASSERT_TRUE(exists(repo.in("fileindex/foo"))) << "an empty index, not none";
    EXPECT_EQ(read_all(repo.in("fileindex/foo")), "");
    EXPECT_TRUE(is_installed("foo"));
}

TEST_F(Install, TamperedPayloadIsNeverUnpacked) {
    const std::string file = offer(simple("foo"));
    std::string bytes = read_all(file);
    bytes[bytes.size() - 1] = static_cast<char>(bytes[bytes.size() - 1] ^ 1);
    std::ofstream(file, std::ios::binary) << bytes;
    EXPECT_EQ(install("foo"), -1);
    const std::string base = staged("foo_any_1.0");
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_install_vrk: Failure unpacking " + base + ".vrk to " + base + "/new"));
    EXPECT_TRUE(fs::is_empty(base + "/new"));
    EXPECT_FALSE(exists(live + "/foo"));
    EXPECT_FALSE(exists(repo.in("installed/foo")));
    EXPECT_FALSE(exists(repo.in("fileindex/foo")));
    EXPECT_THAT(history(), IsEmpty());
}

TEST_F(Install, UnsignedAndUntrustedPackagesLeaveNothing) {
    PackageSpec unsigned_spec = simple("plain");
    unsigned_spec.sign = false;
    offer(unsigned_spec);
    EXPECT_EQ(install("plain"), -1);
    TempDir keys;
    const Signer stranger = Signer::make(keys, "/O=Stranger/CN=Nobody");
    PackageSpec foreign = simple("foreign");
    foreign.signer = &stranger;
    offer(foreign);
    EXPECT_EQ(install("foreign"), -1);
    EXPECT_TRUE(fs::is_empty(live));
    EXPECT_TRUE(fs::is_empty(repo.in("installed")));
    EXPECT_TRUE(fs::is_empty(repo.in("fileindex")));
    EXPECT_THAT(history(), IsEmpty());
}

TEST_F(Install, UnlistedFileFailsTheVerification) {
    PackageSpec spec = simple("foo");
    spec.data["srv/t/stowaway"] = "not in the list";
    spec.hash_lists["data"] = "0000000000000000000000000000000000000000:srv/t/foo\n";
    offer(spec);
    EXPECT_EQ(install("foo"), 2) << "the number of files that did not verify";
    const std::string base = staged("foo_any_1.0");
    EXPECT_TRUE(log.has(
        LEVEL_ERROR, "vrm_install_vrk: Failure checking info files for foo in " + base + "/new"));
    EXPECT_TRUE(exists(base + "/new/data/srv/t/stowaway")) << "left for a look at it";
    EXPECT_TRUE(fs::is_empty(live));
    EXPECT_FALSE(is_installed("foo"));
}

TEST_F(Install, StageDirectoryOfAnEarlierAttemptIsUnpackedOver) {
    offer(simple("foo"));
    const std::string base = staged("foo_any_1.0");
    fs::create_directories(base + "/new/data/srv/t");
    std::ofstream(base + "/new/data/srv/t/foo") << "of an earlier attempt\n";
    std::ofstream(base + "/new/data/srv/t/left-over") << "in no list\n";
    EXPECT_EQ(install("foo"), 1) << "what is left over is no file of the package";
    EXPECT_EQ(read_all(base + "/new/data/srv/t/foo"), "file of foo\n");
    fs::remove(base + "/new/data/srv/t/left-over");
    EXPECT_EQ(install("foo"), 0);
    EXPECT_FALSE(exists(base));
}

TEST_F(Install, SecondAttemptUsesTheStagedFile) {
    offer(simple("foo"));
    ASSERT_EQ(install("foo"), 0);
    EXPECT_EQ(catalogue.fetches, 1);
    fs::remove_all(repo.in("installed/foo"));
    fs::remove(repo.in("fileindex/foo"));
    fs::remove(live + "/foo");
    ASSERT_EQ(install("foo"), 0);
    EXPECT_EQ(catalogue.fetches, 1);
    EXPECT_EQ(read_all(live + "/foo"), "file of foo\n");
}

TEST_F(Install, FetchOfAnotherSizeFailsAndStaysForALook) {
    const std::string file = offer(simple("foo"));
    catalogue.short_by = 1;
    EXPECT_EQ(install("foo"), -1);
    const auto size = fs::file_size(file);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_install: Failed to get " + std::to_string(size) +
                                         " bytes from vrc_readpkg into " + staged("foo_any_1.0") +
                                         ".vrk. rc = " + std::to_string(size - 1)));
    EXPECT_TRUE(exists(staged("foo_any_1.0") + ".vrk"));
    EXPECT_FALSE(is_installed("foo"));
}

// The count is believed. What is missing shows when the package is unpacked.
TEST_F(Install, FetchThatReportsMoreThanItWroteIsNotThePlannedFile) {
    offer(simple("foo"));
    catalogue.lost = 100;
    EXPECT_EQ(install("foo"), -1);
    EXPECT_FALSE(exists(staged("foo_any_1.0") + ".vrk"));
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre(StartsWith("vrm_exe_install: the fetched file " +
                                       staged("foo_any_1.0") + ".vrk is not the planned file: ")));
    EXPECT_FALSE(is_installed("foo"));
    EXPECT_FALSE(exists(live + "/foo"));
}

TEST_F(Install, StagedFileThatCannotBeOpenedIsTold) {
    offer(simple("foo"));
    fs::create_directory(staged("foo_any_1.0") + ".vrk");
    EXPECT_EQ(install("foo"), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_install: Failed to open " + staged("foo_any_1.0") +
                                         ".vrk for writing: Is a directory"));
}

TEST_F(Install, WhatIsNoFileIsNotFetchedInto) {
    const std::string path = staged("foo_any_1.0") + ".vrk";
    const std::string other = files / "other";
    std::ofstream(other) << "not to be touched\n";
    for (const std::string kind : {"pipe", "link", "link to nothing"}) {
        offer(simple("foo"));
        if (kind == "pipe") {
            ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
        } else {
            fs::create_symlink(kind == "link" ? other : files / "nothing", path);
        }
        log.clear();
        alarm(120);  // to wait for a reader of the pipe would be to wait for ever
        EXPECT_EQ(install("foo"), -1) << kind;
        alarm(0);
        EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_install: Failed to open " + path +
                                             " for writing: Not a regular file"))
            << kind;
        EXPECT_EQ(read_all(other), "not to be touched\n") << kind;
        EXPECT_FALSE(exists(files / "nothing")) << kind;
        EXPECT_FALSE(is_installed("foo")) << kind;
        fs::remove(path);
    }
}

TEST_F(Install, FullDiskWhileFetchingFails) {
    const SmallDisk disk(repo.in("stagearea"));
    offer(simple("foo"));
    std::ofstream(repo.in("stagearea/filling")) << std::string(200000, 'x');
    EXPECT_EQ(install("foo"), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_install: Failed to write " + staged("foo_any_1.0") +
                                         ".vrk: No space left on device"));
    EXPECT_FALSE(is_installed("foo"));
}

TEST_F(Install, StagingFailureOfADependencyInstallsNothing) {
    offer(simple("dep"));
    offer(simple("top", {"dep"}));
    fs::create_directory(staged("dep_any_1.0") + ".vrk");
    EXPECT_EQ(install("top"), -1);
    EXPECT_TRUE(exists(staged("top_any_1.0") + ".vrk")) << "staged files stay";
    EXPECT_FALSE(is_installed("dep"));
    EXPECT_FALSE(is_installed("top"));
}

TEST_F(Install, PackageFileIsCopiedToTheStageArea) {
    const std::string file = files / "some-name.vrk";
    make_package(simple("foo"), file);
    ASSERT_EQ(install(file, 1), 0);
    EXPECT_THAT(log.at(LEVEL_INFO), testing::Contains("copying foo_any_1.0.vrk"));
    EXPECT_EQ(sha1_of(staged("foo_any_1.0") + ".vrk"), sha1_of(file));
    EXPECT_TRUE(is_installed("foo"));
}

TEST_F(Install, PackageFileThatIsGoneIsTold) {
    const std::string file = files / "foo.vrk";
    make_package(simple("foo"), file);
    own_vrt transaction = plan(file);
    fs::remove(file);
    EXPECT_EQ(run(transaction), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_install: Failed to copy " + file + " to " +
                                         staged("foo_any_1.0") + ".vrk"));
}

TEST_F(Install, StagedFileNamedByTheUserIsUsedWhereItLies) {
    const std::string file = staged("foo_any_1.0") + ".vrk";
    make_package(simple("foo"), file);
    EXPECT_EQ(install(file), 0);
    EXPECT_TRUE(exists(file));
    EXPECT_TRUE(is_installed("foo"));
}

TEST_F(Install, DependencyFromADirectoryLandsOnTheFileStagedBeforeIt) {
    TempDir shelf;
    make_package(simple("dep"), shelf / "dep.vrk");
    offer(simple("top", {"dep"}));
    char *dirs[] = {const_cast<char *>(shelf.path().c_str()), nullptr};
    own_vrt transaction = plan("top", dirs);
    ASSERT_EQ(transaction->deps[0]->status, 'L');
    EXPECT_EQ(run(transaction), -1);
    EXPECT_EQ(sha1_of(staged("top_any_1.0") + ".vrk"), sha1_of(shelf / "dep.vrk"));
    EXPECT_FALSE(exists(staged("dep_any_1.0") + ".vrk"));
    // Before the dependency is tried: the top package's staged file is not that package.
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_exe_install: cannot install top.vrk: the catalogue says top 1.0, its "
                        "signed description says dep 1.0"));
    EXPECT_FALSE(is_installed("dep"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "-  dep                       Status: L, URI: " +
                                         fs::canonical(shelf / "dep.vrk").string()));
}

TEST_F(Install, PackagesBeforeAFailureStayAndAreConfigured) {
    PackageSpec dep = simple("dep");
    dep.init["99-cfg.sh"] = "echo configured >/srv/t/cfg\n";
    PackageSpec top = simple("top", {"dep"});
    top.init["00-add.sh"] = "exit 1\n";
    offer(dep);
    offer(top);
    EXPECT_EQ(install("top"), 256);
    EXPECT_TRUE(is_installed("dep"));
    EXPECT_FALSE(is_installed("top"));
    EXPECT_EQ(read_all(live + "/cfg"), "configured\n");
    EXPECT_THAT(history(), ElementsAre("installed dep_any_1.0 as dependency of top"));
}

TEST_F(Install, FailingDependencyEndsTheTransaction) {
    PackageSpec dep = simple("dep");
    dep.init["00-add.sh"] = "exit 1\n";
    offer(dep);
    offer(simple("top", {"dep"}));
    EXPECT_EQ(install("top"), 256);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "Installation of dep_any_1.0 failed with rc=256"));
    EXPECT_FALSE(is_installed("top"));
}

TEST_F(Install, PassesOverWhatIsInstalledByNow) {
    offer(simple("dep"));
    offer(simple("top", {"dep"}));
    own_vrt transaction = plan("top");
    repo.install(simple("dep"));
    repo.install(simple("top"));
    EXPECT_EQ(run(transaction), 0);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "skipping installation of dep, was already installed"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "skipping installation of top, was already installed"));
    EXPECT_TRUE(fs::is_empty(live));
    EXPECT_THAT(history(), IsEmpty());
}

TEST_F(Install, RmpkgDeletesTheStagedFileAfterSuccessOnly) {
    offer(simple("foo"));
    ASSERT_EQ(install("foo", 0, 1), 0);
    EXPECT_FALSE(exists(staged("foo_any_1.0") + ".vrk"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "removing foo_any_1.0.vrk"));

    PackageSpec bad = simple("bad");
    bad.init["00-add.sh"] = "exit 1\n";
    offer(bad);
    EXPECT_EQ(install("bad", 0, 1), 256);
    EXPECT_TRUE(exists(staged("bad_any_1.0") + ".vrk"));
}

TEST_F(Install, RmpkgWithDependenciesDeletesOnlyTheFileStagedLast) {
    offer(simple("b"));
    offer(simple("a", {"b"}));
    own_vrt transaction = plan("a");
    ASSERT_EQ(run(transaction, 0, 1), 0);
    EXPECT_FALSE(exists(staged("b_any_1.0") + ".vrk"));
    EXPECT_TRUE(exists(staged("a_any_1.0") + ".vrk"));
}

TEST_F(Install, SharedLibraryRunsLdconfig) {
    std::ofstream("/sbin/ldconfig.new") << "#!/bin/sh\necho ran >>/srv/t/ldconfig\n";
    chmod("/sbin/ldconfig.new", 0755);
    fs::rename("/sbin/ldconfig.new", "/sbin/ldconfig");
    offer(simple("foo"));
    have_so = 1;  // left behind by a package that failed
    ASSERT_EQ(install("foo"), 0);
    EXPECT_FALSE(exists(live + "/ldconfig"));
    PackageSpec lib = simple("libz");
    lib.data["srv/t/libz.so.1"] = "elf";
    offer(lib);
    ASSERT_EQ(install("libz"), 0);
    EXPECT_EQ(read_all(live + "/ldconfig"), "ran\n");
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_install_vrk: calling ldconfig"));
    EXPECT_EQ(have_so, 0);
}

TEST_F(Install, LinksModesAndNewConfigurationOutliveARollback) {
    PackageSpec spec = simple("foo");
    spec.conf["srv/t/foo.conf"] = "c";
    spec.info["link.txt"] = "/srv/t|foo|foo-link\n";
    spec.info["perm.txt"] = "/srv/t/mine|0600\n";
    spec.init["00-add.sh"] = "echo was here >/srv/t/trace\n";
    spec.init["99-add.sh"] = "exit 1\n";
    std::ofstream(live + "/mine") << "mine\n";
    chmod((live + "/mine").c_str(), 0644);
    offer(spec);
    EXPECT_EQ(install("foo"), 256);
    EXPECT_EQ(tree(live), (std::vector<std::string>{"foo-link", "foo.conf", "mine", "trace"}));
    EXPECT_EQ(mode_of(live + "/mine"), 0600u);
}

TEST_F(Install, LinksAndModesThatCannotBeMadeAreNoFailure) {
    PackageSpec spec = simple("foo");
    fs::create_directories(live + "/taken/below");
    spec.info["link.txt"] = "/srv/t|foo|taken\n";
    spec.info["perm.txt"] = "/srv/t/none|0600\n";
    offer(spec);
    EXPECT_EQ(install("foo"), 0);
    EXPECT_TRUE(fs::is_directory(live + "/taken/below"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_install_vrk: rc of vrm_vrf_links: -1"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_install_vrk: rc of vrm_vrf_perms: -1"));
}

TEST_F(Install, FilesOfNobodysAreKeptBeforeAnythingIsWritten) {
    PackageSpec spec = simple("foo");
    spec.data["srv/t/new"] = "n";
    spec.info["link.txt"] = "/srv/t|foo|link\n|foo|file\n|foo|fresh\n";
    std::ofstream(live + "/foo") << "mine\n";
    std::ofstream(live + "/file") << "mine too\n";
    fs::create_symlink("elsewhere", live + "/link");
    ScriptedUser::instance().answers = {"r"};
    offer(spec);
    ASSERT_EQ(install("foo"), 0);
    const std::vector<std::string> saved = tree(repo.in("saved"));
    ASSERT_EQ(saved.size(), 6u) << testing::PrintToString(saved);
    const std::string copies = repo.in("saved/") + saved[0];
    EXPECT_EQ(read_all(copies + "srv/t/foo"), "mine\n");
    EXPECT_EQ(read_all(copies + "srv/t/file"), "mine too\n");
    EXPECT_EQ(fs::read_symlink(copies + "srv/t/link"), "elsewhere");
    EXPECT_TRUE(
        log.has(LEVEL_INFO, "the replaced file /srv/t/foo is kept as " + copies + "srv/t/foo"));
    for (const char *link : {"/link", "/file", "/fresh"}) {
        EXPECT_EQ(fs::read_symlink(live + link), "foo") << link;
    }
}

TEST_F(Install, WhatCannotBeKeptEndsItBeforeAnythingIsWritten) {
    PackageSpec spec = simple("foo");
    spec.data["srv/t/new"] = "n";
    std::ofstream(live + "/foo") << "mine\n";
    std::ofstream(repo.in("saved")) << "in the way\n";
    ScriptedUser::instance().answers = {"r"};
    offer(spec);
    EXPECT_EQ(install("foo"), -1);
    EXPECT_EQ(tree(live), (std::vector<std::string>{"foo"}));
    EXPECT_EQ(read_all(live + "/foo"), "mine\n");
    EXPECT_FALSE(exists(staged("foo_any_1.0")));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "cannot keep a copy of /srv/t/foo in " + repo.in("saved") +
                                         ": Not a directory"));
}

TEST_F(Install, ALinkThatAnotherPackageListsOtherwiseEndsItBeforeAnythingIsAsked) {
    PackageSpec other = simple("other");
    other.info["link.txt"] = "/srv/t|other|link\n";
    offer(other);
    ASSERT_EQ(install("other"), 0);
    PackageSpec spec = simple("foo");
    spec.info["link.txt"] = "/srv/t|foo|link\n";
    std::ofstream(live + "/foo") << "mine\n";
    offer(spec);
    EXPECT_EQ(install("foo"), -1);
    EXPECT_EQ(fs::read_symlink(live + "/link"), "other");
    EXPECT_FALSE(exists(staged("foo_any_1.0")));
    EXPECT_FALSE(exists(repo.in("saved")));
    EXPECT_TRUE(ScriptedUser::instance().questions.empty());
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_install_vrk: the link /srv/t/link would point to foo, but the package "
                        "other has it pointing to other"));
}

TEST_F(Install, HookCommandsAreGatheredForTheEnd) {
    hook("data:/srv/t/*", "/bin/touch /srv/t/hook-of-${evrkName}");
    offer(simple("foo"));
    own_vrt transaction = plan("foo");
    ASSERT_EQ(run(transaction), 0);
    EXPECT_TRUE(log.has(LEVEL_DEBUG,
                        "vrm_install_vrk: Adding hook command: </bin/touch /srv/t/hook-of-foo>"));
    ASSERT_EQ(ekva_nument(transaction->hookcmds), 1);
    EXPECT_STREQ(ekva_getval(transaction->hookcmds, "foo"), "/bin/touch /srv/t/hook-of-foo");
    EXPECT_FALSE(exists(live + "/hook-of-foo")) << "running them is the caller's";
}

TEST_F(Install, HookCommandsStandBehindTheConfigurationScript) {
    hook("dump:/notes", "/bin/dumped");
    hook("conf:/srv/t/foo.conf", "/bin/configured");
    hook("data:/srv/t/left", "/bin/never");
    PackageSpec spec = simple("foo");
    spec.data["srv/t/left"] = "new\n";
    spec.conf["srv/t/foo.conf"] = "c";
    spec.dump["notes"] = "n";
    spec.init["99-cfg.sh"] = "exit 0\n";
    std::ofstream(live + "/left") << "the user's\n";
    std::ofstream(live + "/foo.conf") << "the user's\n";
    offer(spec);
    ScriptedUser::instance().answers = {"l"};
    own_vrt transaction = plan("foo");
    ASSERT_EQ(run(transaction), 0);
    EXPECT_STREQ(ekva_getone(transaction->scripts, "foo", 0), "99-cfg.sh");
    EXPECT_STREQ(ekva_getone(transaction->scripts, "foo", 1), "/bin/dumped");
    EXPECT_STREQ(ekva_getone(transaction->scripts, "foo", 2), "/bin/configured");
    EXPECT_EQ(ekva_nument(transaction->scripts), 3)
        << "a hook on data goes by the files that were written";
}

TEST_F(Install, HookCommandsOfFinishedPackagesOutliveAFailure) {
    hook("data:*", "/bin/hook");
    PackageSpec top = simple("top", {"dep"});
    top.init["99-add.sh"] = "exit 1\n";
    offer(simple("dep"));
    offer(top);
    own_vrt transaction = plan("top");
    EXPECT_EQ(run(transaction), 256);
    EXPECT_EQ(ekva_nument(transaction->hookcmds), 1);
    EXPECT_STREQ(ekva_getval(transaction->hookcmds, "dep"), "/bin/hook");
}

TEST_F(Install, AskedToStopItEndsBeforeTheNextPackage) {
    PackageSpec dep = simple("dep");
    offer(dep);
    offer(simple("top", {"dep"}));
    own_vrt transaction = plan("top");
    vrm_stop_requested = 1;
    EXPECT_EQ(run(transaction), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "interrupted, not going on with top_any_1.0"));
    EXPECT_TRUE(fs::is_empty(live));
    EXPECT_FALSE(is_installed("dep"));
}

TEST_F(Install, AskedToStopItFinishesNoOtherPackageButConfiguresWhatIsThere) {
    offer(simple("dep"));
    offer(simple("top", {"dep"}));
    own_vrt transaction = plan("top");
    catalogue.stop_after = 2;
    EXPECT_EQ(run(transaction), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "interrupted, not going on with dep_any_1.0"));
    EXPECT_TRUE(log.has(LEVEL_ERROR, "Installation of dep_any_1.0 failed with rc=-1"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_scripts_exe: found 0 scripts to configure"));
    EXPECT_TRUE(fs::is_empty(live));
}

TEST_F(Install, RefusesADependencyOfAHostileCandidate) {
    offer(simple("dep"));
    offer(simple("top", {"dep"}));
    own_vrt transaction = plan("top");
    free(transaction->deps[0]->cand);
    transaction->deps[0]->cand = strdup("to\np");
    EXPECT_EQ(run(transaction), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR,
                        "vrm_exe_install: refusing dependency dep of <to\np>: that name is not "
                        "allowed"));
    EXPECT_EQ(catalogue.fetches, 0);
}

TEST_F(Install, RefusesAStagePathThatIsTooLong) {
    offer(simple("foo"));
    own_vrt transaction = plan("foo");
    const std::string area = "/" + std::string(1100, 's');
    ekva_addval(&repo.handle()->dirs, "stagearea", area.c_str(), 2);
    EXPECT_EQ(run(transaction), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_exe_install: path in the stage area is too long: " +
                                         area.substr(0, 900)));
    EXPECT_EQ(catalogue.fetches, 0);
}

TEST_F(Install, DependencyFromADirectoryIsInstalledWhenItWasStagedBefore) {
    TempDir shelf;
    make_package(simple("dep"), shelf / "dep.vrk");
    offer(simple("top", {"dep"}));
    char *dirs[] = {const_cast<char *>(shelf.path().c_str()), nullptr};
    own_vrt transaction = plan("top", dirs);
    vrd *dep = transaction->deps[0];
    EXPECT_EQ(vrm_stage_file(repo.handle(), dep->info, 1), 0);
    EXPECT_THAT(log.at(LEVEL_INFO), ElementsAre("copying dep_any_1.0.vrk"));
    dep->status = 'R';
    EXPECT_EQ(run(transaction), 0);
    EXPECT_EQ(catalogue.fetches, 1) << "only the top package";
    EXPECT_TRUE(is_installed("dep"));
}

TEST_F(Install, StagingALocalFileCreatesNothingBehindALink) {
    const std::string file = offer(simple("foo"));
    const own_vri package(vrm_vrf_info(repo.handle(), file.c_str(), 0));
    const std::string path = staged("foo_any_1.0") + ".vrk";
    fs::create_symlink(files / "nothing", path);
    EXPECT_EQ(vrm_stage_file(repo.handle(), package.get(), 0), 0);
    EXPECT_FALSE(exists(files / "nothing"));
    EXPECT_FALSE(fs::is_symlink(path));
    EXPECT_EQ(read_all(path), read_all(file));
}

TEST_F(Install, FileThatCannotBeStagedBeforeIsTold) {
    const std::string file = files / "foo.vrk";
    make_package(simple("foo"), file);
    const own_vri package(vrm_vrf_info(repo.handle(), file.c_str(), 0));
    fs::remove(file);
    EXPECT_EQ(vrm_stage_file(repo.handle(), package.get(), 0), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_stage_file: Failed to copy " + file + " to " +
                                         staged("foo_any_1.0") + ".vrk"));
    free(package->version);
    package->version = strdup("../1");
    EXPECT_EQ(vrm_stage_file(repo.handle(), package.get(), 0), -1);
    EXPECT_TRUE(
        log.has(LEVEL_ERROR, "vrm_stage_file: refusing package <foo>: its version is not allowed"));
}

// Lets a change begin although there is not enough room for it.
class IgnoredSpace {
 public:
    IgnoredSpace() {
        vrm_ignore_space = true;
    }
    ~IgnoredSpace() {
        vrm_ignore_space = false;
    }
    IgnoredSpace(const IgnoredSpace &) = delete;
    IgnoredSpace &operator=(const IgnoredSpace &) = delete;
};

// What is half there would be taken for the administrator's own by the next attempt.
TEST_F(Install, HalfWrittenConfigurationDoesNotStay) {
    const SmallDisk disk(live + "/small");
    const IgnoredSpace ignored;
    fs::create_symlink("behind-the-link", live + "/small/link.conf");
    for (const std::string conf : {"big.conf", "link.conf"}) {
        PackageSpec spec = simple("foo");
        spec.conf["srv/t/small/" + conf] = std::string(200000, 'c');
        offer(spec);
        EXPECT_EQ(install("foo"), -1);
        EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_install_vrk: Failed to install " +
                                             staged("foo_any_1.0") + "/new/conf/srv/t/small/" +
                                             conf + " to /srv/t/small/" + conf));
        EXPECT_THAT(tree(live + "/small"), ElementsAre("link.conf")) << conf;
        EXPECT_FALSE(exists(live + "/foo"));
        log.clear();
    }
}

TEST_F(Install, DataThatDoesNotFitOnTheDiskRollsBack) {
    const SmallDisk disk(live + "/small");
    const IgnoredSpace ignored;
    std::ofstream(live + "/small/big") << "before\n";
    PackageSpec spec = simple("foo");
    spec.data["srv/t/small/big"] = std::string(200000, 'd');
    offer(spec);
    ScriptedUser::instance().answers = {"r"};
    EXPECT_EQ(install("foo"), -1);
    EXPECT_EQ(read_all(live + "/small/big"), "before\n");
    EXPECT_FALSE(exists(live + "/foo"));
    EXPECT_FALSE(is_installed("foo"));
}

// A member of the info fork that is a directory stands where a later copy wants to put a file: so
// each copy of the registration can be made to fail.
TEST_F(Install, EachFailureOfTheRegistrationRollsBack) {
    struct Case {
        std::string in_the_way;  // a member of the info fork
        std::string message;
    };
    for (const Case &bad : {
             Case{"hash", "Failed to copy info files for package foo"},
             Case{"hash/data.txt/x", "Failed to copy data hash file for package foo"},
             Case{"init/99-add.sh/x", "Failed to copy init files for package foo"},
             Case{"hash/init.txt/x", "Failed to copy init hash file for package foo"},
             Case{"conf/srv/t/foo.conf/x", "Failed to copy conf files for package foo"},
             Case{"hash/conf.txt/x", "Failed to copy conf hash file for package foo"},
             Case{"dump/notes/x", "Failed to copy dump files for package foo"},
             Case{"hash/dump.txt/x", "Failed to copy dump hash file for package foo"},
             Case{"inst.txt/x", "Failed to write install info for package foo"},
         }) {
        PackageSpec spec = simple("foo");
        spec.init["99-add.sh"] = "exit 0\n";
        spec.conf["srv/t/foo.conf"] = "c";
        spec.dump["notes"] = "n";
        spec.info[bad.in_the_way] = "in the way";
        std::ofstream(live + "/foo") << "before\n";
        offer(spec);
        ScriptedUser::fresh().answers = {"r"};
        log.clear();
        EXPECT_EQ(install("foo"), -1) << bad.in_the_way;
        EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_install_vrk: " + bad.message)) << bad.in_the_way;
        EXPECT_EQ(read_all(live + "/foo"), "before\n") << bad.in_the_way;
        EXPECT_FALSE(exists(repo.in("installed/foo"))) << bad.in_the_way;
        EXPECT_FALSE(exists(repo.in("fileindex/foo"))) << bad.in_the_way;
        EXPECT_FALSE(exists(staged("foo_any_1.0"))) << bad.in_the_way;
        EXPECT_TRUE(exists(staged("foo_any_1.0") + ".vrk")) << bad.in_the_way;
        EXPECT_TRUE(exists(live + "/foo.conf"))
            << "a new configuration file has no backup and stays: " << bad.in_the_way;
        fs::remove(live + "/foo.conf");
    }
    EXPECT_THAT(history(), IsEmpty());
}

TEST_F(Install, EntryThatACrashLeftUnfinishedAddsNothing) {
    offer(simple("foo"));
    for (const std::string left : {"init/99-del.sh", "hash/init.txt", "link.txt"}) {
        const std::string path = repo.in("installed/foo/" + left);
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path) << "of a version that never was entered\n";
    }
    ASSERT_EQ(install("foo"), 0);
    EXPECT_EQ(tree(repo.in("installed/foo")),
              (std::vector<std::string>{"desc.txt", "hash/", "hash/data.txt", "inst.txt"}));
}

TEST_F(Install, FileIndexThatCannotBeWrittenRollsBack) {
    offer(simple("foo"));
    fs::create_directory(repo.in("fileindex/foo"));
    EXPECT_EQ(install("foo"), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_install_vrk: Failed to write fileindex for package foo"));
    EXPECT_FALSE(exists(live + "/foo"));
    EXPECT_FALSE(exists(repo.in("installed/foo")));
    EXPECT_FALSE(exists(staged("foo_any_1.0")));
}

TEST_F(Install, DataThatCannotBeWrittenRollsBack) {
    PackageSpec spec = simple("foo");
    spec.data["srv/t/dir/x"] = "x";
    std::ofstream(live + "/dir") << "a file where a directory is wanted\n";
    offer(spec);
    EXPECT_EQ(install("foo"), -1);
    const std::string base = staged("foo_any_1.0");
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_install_vrk: Failed to install " + base +
                                         "/new/data/srv/t/dir/x to /srv/t/dir/x"));
    EXPECT_FALSE(exists(live + "/foo"));
    EXPECT_FALSE(exists(base));
}

TEST_F(Install, ConfigurationThatCannotBeWrittenRollsBack) {
    PackageSpec spec = simple("foo");
    spec.conf["srv/t/dir/x.conf"] = "x";
    std::ofstream(live + "/dir") << "a file where a directory is wanted\n";
    offer(spec);
    EXPECT_EQ(install("foo"), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_install_vrk: Failed to install " + staged("foo_any_1.0") +
                                         "/new/conf/srv/t/dir/x.conf to /srv/t/dir/x.conf"));
    EXPECT_FALSE(exists(live + "/foo"));
    EXPECT_FALSE(exists(staged("foo_any_1.0")));
}
