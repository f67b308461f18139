#include "transaction/scripts.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "kit/capture.h"
#include "kit/failing_memory.h"
#include "kit/log_capture.h"
#include "kit/package_maker.h"
#include "kit/temp_dir.h"
#include "support/own.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

static own_vri parsed(const PackageSpec &spec) {
    own_vri info(vrk_info_parse("test", 3, description_of(spec).c_str(), nullptr));
    EXPECT_TRUE(info);
    return info;
}

static PackageSpec spec(const std::string &version, const std::string &variant = "") {
    PackageSpec made;
    made.version = version;
    made.variant = variant;
    made.deps = {"libc", "zlib"};
    return made;
}

// The variables of the process whose names begin with VRK_.
static std::vector<std::string> vrk_environment() {
    std::vector<std::string> found;
    for (char **entry = environ; *entry; entry++) {
        if (std::string(*entry).starts_with("VRK_")) {
            found.emplace_back(*entry);
        }
    }
    return found;
}

// What vrm_scriptenv_add sets, in its order.
static std::vector<std::string> added(const vri *before, const vri *after) {
    char **const list = vrm_scriptenv_add(before, after);
    std::vector<std::string> strings;
    for (char **entry = list; entry && *entry; entry++) {
        strings.emplace_back(*entry);
    }
    EXPECT_THAT(vrk_environment(), testing::UnorderedElementsAreArray(strings));
    vrm_scriptenv_del(list);
    EXPECT_THAT(vrk_environment(), IsEmpty());
    return strings;
}

TEST(ScriptenvAdd, GivesAnInstallTheNewPackage) {
    EXPECT_THAT(added(nullptr, parsed(spec("2.0", "gtk")).get()),
                ElementsAre("VRK_NAME=foo", "VRK_VARIANT=gtk", "VRK_VARIANT_NEW=gtk",
                            "VRK_VERSION=2.0", "VRK_VERSION_NEW=2.0", "VRK_ARCHITECTURE=any",
                            "VRK_ARCHITECTURE_NEW=any", "VRK_CREATOR=Test", "VRK_CREATOR_NEW=Test",
                            "VRK_DESCRIPTION=A test package", "VRK_DESCRIPTION_NEW=A test package",
                            "VRK_DEPENDENCIES=libc zlib", "VRK_DEPENDENCIES_NEW=libc zlib"));
}

TEST(ScriptenvAdd, SetsNoVariantForAPackageWithout) {
    for (const std::string &entry : added(nullptr, parsed(spec("2.0")).get())) {
        EXPECT_FALSE(entry.starts_with("VRK_VARIANT")) << entry;
    }
}

TEST(ScriptenvAdd, GivesARemovalTheOldPackage) {
    EXPECT_THAT(added(parsed(spec("1.0", "qt")).get(), nullptr),
                ElementsAre("VRK_NAME=foo", "VRK_VARIANT_OLD=qt", "VRK_VARIANT=qt",
                            "VRK_VERSION_OLD=1.0", "VRK_VERSION=1.0", "VRK_ARCHITECTURE_OLD=any",
                            "VRK_ARCHITECTURE=any", "VRK_CREATOR_OLD=Test", "VRK_CREATOR=Test",
                            "VRK_DESCRIPTION_OLD=A test package", "VRK_DESCRIPTION=A test package",
                            "VRK_DEPENDENCIES_OLD=libc zlib", "VRK_DEPENDENCIES=libc zlib"));
}

TEST(ScriptenvAdd, GivesAnUpdateBothWithPlainNamesFromTheNew) {
    PackageSpec before = spec("1.0", "qt"), after = spec("2.0", "gtk");
    before.name = "oldname";
    before.arch = "i686";
    before.creator = "Before";
    before.description = "As it was";
    before.deps = {"a"};
    EXPECT_THAT(added(parsed(before).get(), parsed(after).get()),
                ElementsAre("VRK_NAME=oldname", "VRK_VARIANT_OLD=qt", "VRK_VARIANT=gtk",
                            "VRK_VARIANT_NEW=gtk", "VRK_VERSION_OLD=1.0", "VRK_VERSION=2.0",
                            "VRK_VERSION_NEW=2.0", "VRK_ARCHITECTURE_OLD=i686",
                            "VRK_ARCHITECTURE=any", "VRK_ARCHITECTURE_NEW=any",
                            "VRK_CREATOR_OLD=Before", "VRK_CREATOR=Test", "VRK_CREATOR_NEW=Test",
                            "VRK_DESCRIPTION_OLD=As it was", "VRK_DESCRIPTION=A test package",
                            "VRK_DESCRIPTION_NEW=A test package", "VRK_DEPENDENCIES_OLD=a",
                            "VRK_DEPENDENCIES=libc zlib", "VRK_DEPENDENCIES_NEW=libc zlib"));
}

TEST(ScriptenvAdd, NeverFillsAPlainNameFromTheOldInAnUpdate) {
    const own_vri before = parsed(spec("1.0", "qt")), after = parsed(spec("2.0"));
    free(after->creator);
    free(after->description);
    after->creator = after->description = nullptr;
    const auto strings = added(before.get(), after.get());
    EXPECT_THAT(strings, IsSupersetOf({"VRK_VARIANT_OLD=qt", "VRK_CREATOR_OLD=Test",
                                       "VRK_DESCRIPTION_OLD=A test package",
                                       "VRK_DEPENDENCIES_OLD=libc zlib"}));
    for (const std::string name :
         {"VRK_VARIANT", "VRK_CREATOR", "VRK_DESCRIPTION", "VRK_DEPENDENCIES"}) {
        EXPECT_THAT(strings, Not(Contains(testing::StartsWith(name + "=")))) << name;
        EXPECT_THAT(strings, Not(Contains(testing::StartsWith(name + "_NEW=")))) << name;
    }
}

TEST(ScriptenvAdd, HangsTheDependenciesOnTheDescription) {
    PackageSpec lonely = spec("1.0");
    lonely.deps.clear();
    EXPECT_THAT(added(nullptr, parsed(lonely).get()),
                IsSupersetOf({"VRK_DEPENDENCIES=(null)", "VRK_DEPENDENCIES_NEW=(null)"}));
}

TEST(ScriptenvAdd, CutsAValueAt1950Bytes) {
    const own_vri info = parsed(spec("1.0"));
    free(info->description);
    info->description = strdup(std::string(3000, 'd').c_str());
    EXPECT_THAT(added(nullptr, info.get()), Contains("VRK_DESCRIPTION=" + std::string(1950, 'd')));
    free(info->description);
    info->description = strdup(std::string(1950, 'd').c_str());
    EXPECT_THAT(added(nullptr, info.get()), Contains("VRK_DESCRIPTION=" + std::string(1950, 'd')));
}

TEST(ScriptenvAdd, GivesNullForNoPackage) {
    EXPECT_EQ(vrm_scriptenv_add(nullptr, nullptr), nullptr);
    vrm_scriptenv_del(nullptr);
}

TEST(ScriptenvAdd, SetsAllOrNothing) {
    const own_vri info = parsed(spec("2.0", "gtk"));
    int copies = 0;
    for (; copies < 100; copies++) {
        strdups_left = copies;
        char **const list = vrm_scriptenv_add(nullptr, info.get());
        strdups_left = -1;
        if (list) {
            EXPECT_EQ(vrk_environment().size(), 13u);
            vrm_scriptenv_del(list);
            break;
        }
        EXPECT_THAT(vrk_environment(), IsEmpty()) << copies;
    }
    EXPECT_GE(copies, 13);
}

TEST(ScriptenvAdd, LogsWhatItSetsAndWhatIsTakenAway) {
    LogCapture log;
    char **const list = vrm_scriptenv_add(nullptr, parsed(spec("2.0")).get());
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_scriptenv_add: putting VRK_NAME=foo to environment"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_scriptenv_add: set VRK_VERSION=2.0 in env"));
    vrm_scriptenv_del(list);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_scriptenv_del: removing VRK_NAME from env"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_scriptenv_del: removing VRK_ARCHITECTURE_NEW from env"));
}

TEST(ScriptenvDel, WarnsOfANameThatIsTooLongAndUnsetsItsBeginning) {
    LogCapture log;
    const std::string longest(32, 'L'), begin(32, 'M');
    setenv(longest.c_str(), "x", 1);
    setenv(begin.c_str(), "x", 1);
    char **const list = static_cast<char **>(calloc(3, sizeof(char *)));
    list[0] = strdup((longest + "=x").c_str());
    list[1] = strdup((begin + "M=x").c_str());
    vrm_scriptenv_del(list);
    EXPECT_EQ(getenv(longest.c_str()), nullptr);
    EXPECT_EQ(getenv(begin.c_str()), nullptr);
    EXPECT_THAT(log.at(LEVEL_WARNING),
                ElementsAre("vrm_scriptenv_del: Overlong env variable name, skipping entry 1"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_scriptenv_del: removing " + longest + " from env"));
}

// A repository with a shell for scripts, and a transaction.
class Scripts : public testing::Test {
 protected:
    Scripts() : scriptdir(dir / "scriptdir"), installed(dir / "installed") {
        fs::create_directories(scriptdir);
        fs::create_directories(installed);
        fs::create_symlink(fs::exists("/usr/bin/busybox") ? "/usr/bin/busybox" : "/bin/busybox",
                           scriptdir + "/ash");
        handle.dirs = ekva_new(5, 2);
        ekva_addval(&handle.dirs, "installed", installed.c_str(), 2);
        ekva_addval(&handle.dirs, "scriptdir", scriptdir.c_str(), 2);
    }
    ~Scripts() override {
        ekva_free(handle.dirs);
        ekva_free(transaction.scripts);
        ekva_free(transaction.hookcmds);
    }

    void add_script(const char *package, const char *value) {
        if (!transaction.scripts) {
            transaction.scripts = ekva_new(1, 1);
            transaction.hookcmds = ekva_new(1, 1);
        }
        ekva_addval(&transaction.scripts, package, value, 0);
    }
    void install(const PackageSpec &package) {
        dir.write("installed/" + package.name + "/desc.txt", description_of(package));
        for (const auto &[name, text] : package.init) {
            dir.write("installed/" + package.name + "/init/" + name, text, 0755);
        }
    }
    // Runs the transaction's scripts; the result is what they wrote to stdout.
    std::string run_scripts() {
        vrt *pointer = &transaction;
        return stdout_of([&] { EXPECT_EQ(vrm_scripts_exe(&handle, &pointer), 0); });
    }

    TempDir dir;
    std::string scriptdir, installed;
    vrm_handle handle = {};
    vrt transaction = {};
    LogCapture log;
};

TEST_F(Scripts, FormsTheCommandLinesOfTheAddScripts) {
    const auto line = [&](const char *script, const char *mode) {
        return add_script_line(&handle, script, mode, "/stage/new");
    };
    const std::string &S = scriptdir;
    EXPECT_EQ(line("00-add.sh", "INSTALL"), "cd " + S + " && PATH=" + S +
                                                " VRM_MODE=INSTALL VRK_STAGE_NEW=/stage/new " + S +
                                                "/ash /stage/new/init/00-add.sh");
    EXPECT_EQ(line("99-add.sh", "INSTALL"), "cd " + S + " && PATH=" + S +
                                                " VRM_MODE=INSTALL VRK_STAGE_NEW=/stage/new " + S +
                                                "/ash /stage/new/init/99-add.sh");
    EXPECT_EQ(line("00-add.sh", "UPDATE"), "cd " + S + " && PATH=" + S +
                                               " VRM_MODE=UPDATE VRK_STAGE_NEW=/stage/new " + S +
                                               "/ash /stage/new/init/00-add.sh");
    EXPECT_EQ(line("99-add.sh", "UPDATE"),
              "cd " + S + " && PATH=" + S +
                  " VRM_MODE=UPDATE VRM_VRKDIR=/stage/new VRK_STAGE_NEW=/stage/new " + S +
                  "/ash /stage/new/init/99-add.sh");
}

TEST_F(Scripts, FormsTheCommandLinesOfTheRemovalScripts) {
    const std::string &S = scriptdir;
    const std::string before = del_script_line(&handle, "00-del.sh", "foo", "/stage/old");
    EXPECT_EQ(before,
              "cd " + S + " && PATH=" + S + " " + S + "/ash " + installed + "/foo/init/00-del.sh");
    const std::string after = del_script_line(&handle, "99-del.sh", "foo", "/stage/old");
    EXPECT_EQ(after, "cd " + S + " && PATH=" + S + " VRK_STAGE_OLD=/stage/old VRM_VRKDIR=" +
                         installed + "/foo " + S + "/ash " + installed + "/foo/init/99-del.sh");
}

TEST_F(Scripts, TellAnAddScriptWhatItNeeds) {
    dir.write("stage/init/99-add.sh",
              "pwd; echo $PATH; echo $VRM_MODE; echo $VRM_VRKDIR; echo $VRK_STAGE_NEW\n"
              "echo $VRK_NAME $VRK_VERSION_OLD $VRK_VERSION $VRK_VERSION_NEW\n"
              "echo $VRK_DEPENDENCIES\n");
    const std::string stage = dir / "stage";
    const std::string line = add_script_line(&handle, "99-add.sh", "UPDATE", stage);
    const own_vri before = parsed(spec("1.0")), after = parsed(spec("2.0"));
    char **const variables = vrm_scriptenv_add(before.get(), after.get());
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(vrm_system("99-add.sh", line.c_str()), 0); }),
              scriptdir + "\n" + scriptdir + "\nUPDATE\n" + stage + "\n" + stage +
                  "\nfoo 1.0 2.0 2.0\nlibc zlib\n");
    vrm_scriptenv_del(variables);
    EXPECT_STRNE(getenv("PATH"), scriptdir.c_str());
}

TEST_F(Scripts, FindNoCommandBesideTheirShell) {
    dir.write("stage/init/00-add.sh", "no-such-command-anywhere\n");
    const std::string line = add_script_line(&handle, "00-add.sh", "INSTALL", dir / "stage");
    std::string told;
    told = stderr_of([&] { EXPECT_EQ(vrm_system(nullptr, line.c_str()), 127 * 256); });
    EXPECT_THAT(told, HasSubstr("not found"));
}

TEST_F(Scripts, GiveTheRawStatus) {
    EXPECT_EQ(vrm_system(nullptr, "exit 1"), 256);
    EXPECT_EQ(vrm_system("a label longer than twenty characters", "exit 3"), 768);
    EXPECT_EQ(vrm_script_status, 768);
    EXPECT_EQ(vrm_system(nullptr, "true"), 0);
    EXPECT_EQ(vrm_script_status, 0);
}

TEST_F(Scripts, ThatWriteToStderrDoNotFail) {
    std::string out;
    const std::string err = stderr_of([&] {
        out = stdout_of(
            [&] { EXPECT_EQ(vrm_system(nullptr, "{ echo told; echo complaint >&2; }"), 0); });
    });
    EXPECT_EQ(out, "told\n");
    EXPECT_EQ(err, "complaint\n");
}

TEST_F(Scripts, AreShownOnlyAfterTheyEnded) {
    // The script looks at where our stdout goes, which must still be empty.
    const std::string seen = dir / "seen";
    const std::string script =
        dir.write("script.sh",
                  "echo early\ncat /proc/" + std::to_string(getpid()) + "/fd/1 > " + seen + "\n");
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(vrm_system(nullptr, ("sh " + script).c_str()), 0); }),
              "early\n");
    EXPECT_EQ(read_all(seen), "");
}

TEST_F(Scripts, AreLoggedAtInfoWhereTheLogGoesToAFile) {
    llog->stderr_levels = LEVEL_INFO;
    const auto run = [&] {
        return stderr_of([&] {
            EXPECT_EQ(stdout_of([&] { vrm_system(nullptr, "{ echo told; echo complaint >&2; }"); }),
                      "told\n");
        });
    };
    EXPECT_THAT(run(), HasSubstr("told"));
    EXPECT_THAT(log.at(LEVEL_INFO), ElementsAre("told", "complaint"));

    llog->file_enabled = 0;
    EXPECT_EQ(run(), "complaint\n");
    llog->file_enabled = 1;
    llog->ready = 0;
    EXPECT_EQ(run(), "complaint\n");
}

TEST_F(Scripts, AreLoggedWholeBeforeTheyAreShown) {
    // Both go to the log's file, in their order.
    const std::string output = stdout_of([&] {
        const own_fd log_file(open(llog->file, O_WRONLY | O_APPEND | O_CREAT, 0600));
        ASSERT_EQ(dup2(log_file.get(), STDOUT_FILENO), STDOUT_FILENO);
        stderr_of([&] { vrm_system(nullptr, "{ echo told; echo complaint >&2; }"); });
        fflush(stdout);
    });
    EXPECT_EQ(output, "");
    EXPECT_THAT(read_all(llog->file),
                testing::MatchesRegex(".*INFO. told\n.*INFO. complaint\n\n?told\n"));
}

TEST_F(Scripts, AreShownWithoutALogToo) {
    log_object *const before = llog;
    llog = nullptr;
    EXPECT_EQ(stdout_of([&] { EXPECT_EQ(vrm_system(nullptr, "echo told"), 0); }), "told\n");
    llog = before;
}

TEST_F(Scripts, AreNotMissedInATransactionWithoutAny) {
    EXPECT_EQ(run_scripts(), "");
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_scripts_exe: no scripts to configure"));
}

TEST_F(Scripts, ConfigureEachPackageFromTheInventory) {
    PackageSpec foo = spec("2.0"), bar = spec("3.0");
    foo.init = {{"99-cfg.sh",
                 "echo $VRK_NAME $VRK_VERSION_NEW $VRM_VRKDIR; pwd; echo $PATH\n"
                 "echo mode:$VRM_MODE\n"}};
    bar.name = "bar";
    bar.init = {{"99-cfg.sh", "echo $VRK_NAME $VRK_VERSION; exit 2\n"}};
    install(foo);
    install(bar);
    add_script("bar", "99-cfg.sh");
    add_script("foo", "99-cfg.sh");
    EXPECT_EQ(run_scripts(), "bar 3.0\nfoo 2.0 " + installed + "/foo\n" + scriptdir + "\n" +
                                 scriptdir + "\nmode:\n");
    EXPECT_THAT(log.at(LEVEL_INFO),
                ElementsAre("Configured bar, rc = 512", "Configured foo, rc = 0"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_scripts_exe: found 2 scripts to configure"));
    EXPECT_TRUE(
        log.has(LEVEL_DEBUG, "vrm_scripts_exe: Found script 99-cfg.sh for vrk foo to execute"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_scripts_exe: cmdline: cd " + scriptdir + " && PATH=" +
                                         scriptdir + " VRM_VRKDIR=" + installed + "/foo " +
                                         scriptdir + "/ash " + installed + "/foo/init/99-cfg.sh"));
    EXPECT_THAT(vrk_environment(), IsEmpty());
}

TEST_F(Scripts, NeverRunWithSomeOfTheirVariables) {
    PackageSpec foo = spec("2.0");
    foo.init = {{"99-cfg.sh", "echo \"$VRK_NAME,$VRK_VERSION,$VRK_DEPENDENCIES_NEW\"\n"}};
    install(foo);
    add_script("foo", "99-cfg.sh");
    const std::string whole = "foo,2.0,libc zlib\n";
    bool refused = false;
    std::string told;
    for (int copies = 0; told != whole && copies < 100; copies++) {
        vrt *pointer = &transaction;
        told = stdout_of([&] {
            strdups_left = copies;
            EXPECT_EQ(vrm_scripts_exe(&handle, &pointer), 0);
            strdups_left = -1;
        });
        // Without a description there are none.
        EXPECT_THAT(told, testing::AnyOf("", ",,\n", whole)) << copies;
        refused = refused || told.empty();
    }
    EXPECT_EQ(told, whole);
    EXPECT_TRUE(refused);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_scripts_exe: out of memory"));
}

TEST_F(Scripts, RunWithoutVariablesWhereTheDescriptionIsMissing) {
    dir.write("installed/foo/init/99-cfg.sh", "echo \"name:$VRK_NAME dir:$VRM_VRKDIR\"\n");
    add_script("foo", "99-cfg.sh");
    EXPECT_EQ(run_scripts(), "name: dir:" + installed + "/foo\n");
    EXPECT_THAT(log.at(LEVEL_WARNING),
                ElementsAre("vrm_scripts_exe: failed to read package description for foo"));
    EXPECT_THAT(log.at(LEVEL_INFO), ElementsAre("Configured foo, rc = 0"));
}

TEST_F(Scripts, RunWithoutVariablesWhereTheDescriptionIsNone) {
    dir.write("installed/foo/desc.txt", "evrkName: foo\n");
    dir.write("installed/foo/init/99-cfg.sh", "echo \"name:$VRK_NAME\"\n");
    add_script("foo", "99-cfg.sh");
    EXPECT_EQ(run_scripts(), "name:\n");
    EXPECT_THAT(log.at(LEVEL_WARNING),
                Contains("vrm_scripts_exe: failed to read package info for foo"));
}

TEST_F(Scripts, RunWithoutVariablesWhereTheDescriptionRefersToAFile) {
    dir.write("secret", "the secret");
    PackageSpec spec;
    spec.name = "foo";
    spec.more = "other:< " + (dir / "secret") + "\n";
    dir.write("installed/foo/desc.txt", description_of(spec));
    dir.write("installed/foo/init/99-cfg.sh", "echo \"name:$VRK_NAME\"\n");
    add_script("foo", "99-cfg.sh");
    EXPECT_EQ(run_scripts(), "name:\n");
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("vrk_info_parse: refusing a reference to another file in attribute "
                            "other"));
}

TEST_F(Scripts, LeaveHookCommandsToTheCaller) {
    add_script("foo", "/bin/echo first");
    add_script("foo", "/bin/echo second");
    add_script("bar", "/bin/echo third");
    EXPECT_EQ(run_scripts(), "");
    ASSERT_EQ(ekva_nument(transaction.hookcmds), 3);
    EXPECT_STREQ(ekva_getone(transaction.hookcmds, "foo", 0), "/bin/echo first");
    EXPECT_STREQ(ekva_getone(transaction.hookcmds, "foo", 1), "/bin/echo second");
    EXPECT_STREQ(ekva_getval(transaction.hookcmds, "bar"), "/bin/echo third");
    EXPECT_TRUE(log.has(LEVEL_DEBUG,
                        "vrm_scripts_exe: Found hook command /bin/echo first for vrk foo to "
                        "execute"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_scripts_exe: Added hook command to vrm_hookcmds"));
    EXPECT_THAT(log.at(LEVEL_INFO), IsEmpty());
}

TEST_F(Scripts, TellOfAHookCommandThatCannotBeKept) {
    add_script("foo", "/bin/echo first");
    vrt *pointer = &transaction;
    strdups_left = 0;
    EXPECT_EQ(vrm_scripts_exe(&handle, &pointer), 0);
    strdups_left = -1;
    EXPECT_THAT(
        log.at(LEVEL_ERROR),
        ElementsAre("vrm_scripts_exe: out of memory, /bin/echo first will not run for foo"));
    EXPECT_FALSE(log.has(LEVEL_DEBUG, "vrm_scripts_exe: Added hook command to vrm_hookcmds"));
}

TEST_F(Scripts, TakeAHookCommandWithoutASlashForOneOfThePackage) {
    install(spec("1.0"));
    const std::string command = "touch " + (dir / "never");
    add_script("foo", command.c_str());
    const std::string told = stderr_of([&] { run_scripts(); });
    EXPECT_THAT(told, HasSubstr("init/touch"));
    EXPECT_FALSE(log.has(LEVEL_INFO, "Configured foo, rc = 0"));
    EXPECT_FALSE(exists(dir / "never"));
    EXPECT_EQ(ekva_nument(transaction.hookcmds), 0);
}

TEST_F(Scripts, HaveALineOfBoundedLength) {
    install(spec("1.0"));
    add_script("foo", ("99-" + std::string(500, 'x')).c_str());
    stderr_of([&] { run_scripts(); });
    const size_t bound = 3 * scriptdir.size() + 2 * (installed + "/foo").size() + 100;
    std::vector<std::string> lines;
    for (const std::string &line : log.at(LEVEL_DEBUG)) {
        if (line.starts_with("vrm_scripts_exe: cmdline: ")) {
            EXPECT_EQ(line.size(), std::string("vrm_scripts_exe: cmdline: ").size() + bound - 1);
            EXPECT_TRUE(line.ends_with("xxx"));
            lines.push_back(line);
        }
    }
    EXPECT_EQ(lines.size(), 1u);
}

TEST_F(Scripts, AreFollowedByTheHooks) {
    transaction.hookcmds = ekva_new(3, 1);
    for (const char *const command : {"/bin/echo one", "/bin/false", "/bin/echo three"}) {
        ekva_addval(&transaction.hookcmds, "foo", command, 0);
    }
    EXPECT_EQ(stdout_of([&] {
                  printf("before\n");
                  EXPECT_EQ(vrm_exe_hooks(transaction.hookcmds), 0);
              }),
              "before\none\nthree\n");
    EXPECT_THAT(log.at(LEVEL_INFO),
                ElementsAre("Configured foo, rc = 0", "Configured foo, rc = 256",
                            "Configured foo, rc = 0"));
    EXPECT_THAT(log.at(LEVEL_DEBUG),
                IsSupersetOf({"vrm_exe_hooks: found 3 hooks to execute",
                              "vrm_exe_hooks: Found hook command /bin/echo one for vrk foo to "
                              "execute",
                              "vrm_exe_hooks: cmdline: /bin/echo one"}));
    EXPECT_EQ(vrm_exe_hooks(nullptr), 0);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_exe_hooks: no hooks to execute"));

    vrt *pointer = &transaction;
    EXPECT_EQ(vrm_hookcmds_del(nullptr, &pointer), 0);
    EXPECT_EQ(transaction.hookcmds, nullptr);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hookcmds_del: found 3 scripts to delete"));
    EXPECT_EQ(vrm_hookcmds_del(nullptr, &pointer), 0);
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hookcmds_del: found 0 scripts to delete"));
}
