#include "repository/hooks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kit/capture.h"
#include "kit/failing_memory.h"
#include "kit/failing_reads.h"
#include "kit/log_capture.h"
#include "kit/package_maker.h"
#include "kit/records.h"
#include "kit/temp_dir.h"
#include "support/own.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Attributes = std::vector<std::pair<const char *, const char *>>;

static std::string hook_text(const std::string &condition, const std::string &command,
                             const std::string &name = "test") {
    return "evrhType: 99-cfg\nevrhName: " + name + "\nevrhCond: " + condition +
           "\nevrhExec: " + command + "\n";
}

// A null-terminated list of files.
class FileList {
 public:
    explicit FileList(std::vector<std::string> files) : files_(std::move(files)) {
        for (std::string &file : files_) {
            pointers_.push_back(file.data());
        }
        pointers_.push_back(nullptr);
    }
    char *const *get() const {
        return pointers_.data();
    }

 private:
    std::vector<std::string> files_;
    std::vector<char *> pointers_;
};

// A package and hooks in a given order, to be held against each other.
class HooksParse : public testing::Test {
 protected:
    ~HooksParse() override {
        ekva_list_free(handle_.hooks);
    }

    void add(const Attributes &attributes) {
        count_ = ekva_list_add(&handle_.hooks, record(attributes).get(), count_, &capacity_);
    }
    void add_hook(const char *condition, const char *command) {
        add({{"evrhType", "99-cfg"},
             {"evrhName", "test"},
             {"evrhCond", condition},
             {"evrhExec", command}});
    }

    std::vector<std::string> commands(const char *type = "99-cfg") {
        const own_vri info(vrk_info_parse("foo", 3, description_of(package).c_str(), nullptr));
        EXPECT_TRUE(info);
        log.clear();
        const own_array found(
            vrm_hooks_parse(&handle_, info.get(), context, type, data ? data->get() : nullptr,
                            conf ? conf->get() : nullptr, dump ? dump->get() : nullptr));
        std::vector<std::string> result;
        for (char **command = found.get(); command && *command; command++) {
            result.emplace_back(*command);
        }
        EXPECT_EQ(found == nullptr, result.empty()) << "an empty array instead of null";
        return result;
    }

    LogCapture log;
    PackageSpec package;
    int context = 1;
    std::unique_ptr<FileList> data, conf, dump;

 private:
    vrm_handle handle_ = {};
    int count_ = 0;
    int capacity_ = 10;
};

static std::unique_ptr<FileList> files(std::vector<std::string> names) {
    return std::make_unique<FileList>(std::move(names));
}

TEST(FileIsVrh, WantsTheExtensionExactlyAndARegularFile) {
    const TempDir dir;
    EXPECT_EQ(vrm_file_is_vrh(dir.write("a.vrh", "").c_str()), 1);
    EXPECT_EQ(vrm_file_is_vrh(dir.write("a.b.vrh", "").c_str()), 1);
    EXPECT_EQ(vrm_file_is_vrh(dir.write("a.VRH", "").c_str()), 0);
    EXPECT_EQ(vrm_file_is_vrh(dir.write("a.vrh2", "").c_str()), 0);
    EXPECT_EQ(vrm_file_is_vrh(dir.write("vrh", "").c_str()), 0);
    EXPECT_EQ(vrm_file_is_vrh((dir / "missing.vrh").c_str()), 0);
    fs::create_directory(dir / "directory.vrh");
    EXPECT_EQ(vrm_file_is_vrh((dir / "directory.vrh").c_str()), 0);
    fs::create_symlink(dir / "a.vrh", dir / "link.vrh");
    EXPECT_EQ(vrm_file_is_vrh((dir / "link.vrh").c_str()), 1);
}

TEST(HookRead, GivesTheAttributesOfTheFile) {
    const TempDir dir;
    const own_ekva hook(vrm_hook_read(
        dir.write("a.vrh", hook_text("data:/usr/*", "/bin/true $evrkName;")).c_str()));
    ASSERT_TRUE(hook);
    EXPECT_STREQ(ekva_getval(hook.get(), "evrhType"), "99-cfg");
    EXPECT_STREQ(ekva_getval(hook.get(), "evrhName"), "test");
    EXPECT_STREQ(ekva_getval(hook.get(), "evrhCond"), "data:/usr/*");
    EXPECT_STREQ(ekva_getval(hook.get(), "evrhExec"), "/bin/true $evrkName;");
}

TEST(HookRead, TellsWhatCannotBeRead) {
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir / "pipe.vrh").c_str(), 0600), 0);
    for (const std::string &path : {dir / "missing.vrh", dir.path(), dir / "pipe.vrh"}) {
        EXPECT_EQ(stderr_of([&] { EXPECT_EQ(vrm_hook_read(path.c_str()), nullptr); }),
                  "vrm_hook_read: failure reading " + path + "\n");
    }
}

static std::vector<std::string> names_of(s_ekva **const *hooks) {
    std::vector<std::string> names;
    for (; hooks && *hooks; hooks++) {
        names.emplace_back(ekva_getval(*hooks, "evrhName"));
    }
    return names;
}

TEST(HooksRead, ReadsTheFilesWithTheExtensionAndNothingElse) {
    const TempDir dir, other;
    dir.write("a.vrh", hook_text("data:/a", "/bin/a", "a"));
    dir.write("b.vrh", hook_text("data:/b", "/bin/b", "b"));
    dir.write("c.vrh.disabled", hook_text("data:/c", "/bin/c", "c"));
    dir.write("README", "not a hook");
    dir.write("sub.vrh/d.vrh", hook_text("data:/d", "/bin/d", "d"));
    fs::create_symlink(other.write("good.vrh", hook_text("data:/e", "/bin/e", "e")),
                       dir / "link.vrh");
    EXPECT_EQ(stderr_of([&] {
                  const own_ekva_list hooks(vrm_hooks_read(dir.path().c_str()));
                  EXPECT_THAT(names_of(hooks.get()), UnorderedElementsAre("a", "b"));
              }),
              "");
}

TEST(HooksRead, GivesNullInSilenceWithoutADirectoryOrWithoutHooks) {
    const TempDir dir;
    EXPECT_EQ(stderr_of([&] {
                  EXPECT_EQ(vrm_hooks_read((dir / "missing").c_str()), nullptr);
                  EXPECT_EQ(vrm_hooks_read(dir.path().c_str()), nullptr);
              }),
              "");
}

TEST(HooksRead, GoesOnBehindAnEmptyFile) {
    const TempDir dir;
    dir.write("a.vrh", hook_text("data:/a", "/bin/a", "a"));
    const std::string empty = dir.write("empty.vrh", "");
    dir.write("z.vrh", hook_text("data:/z", "/bin/z", "z"));
    EXPECT_EQ(stderr_of([&] {
                  const own_ekva_list hooks(vrm_hooks_read(dir.path().c_str()));
                  EXPECT_THAT(names_of(hooks.get()), UnorderedElementsAre("a", "z"));
              }),
              "ldif2ekva: failed to parse ldif buffer\n"
              "vrm_hooks_read: error reading hook from <" +
                  empty + ">\n");
}

TEST(HooksRead, KeepsWhatItReadBeforeTheDirectoryBrokeOff) {
    const TempDir dir;
    dir.write("a.vrh", hook_text("data:/a", "/bin/a", "a"));
    dir.write("b.vrh", hook_text("data:/b", "/bin/b", "b"));
    own_ekva_list hooks;
    EXPECT_EQ(stderr_of([&] {
                  const FailingReaddir failing(3);  // with the dots, so at least one hook is there
                  hooks.reset(vrm_hooks_read(dir.path().c_str()));
              }),
              "vrm_hooks_read: error reading <" + dir.path() + ">: Input/output error\n");
    EXPECT_FALSE(names_of(hooks.get()).empty());
}

TEST(HooksRead, TellsOfAHookThatThereIsNoMemoryFor) {
    const TempDir dir;
    const std::string path = dir.write("a.vrh", hook_text("data:/a", "/bin/a", "a"));
    // The record takes a copy of each key and value, the list another one.
    const int for_one_record = 8;
    own_ekva_list hooks;
    EXPECT_EQ(stderr_of([&] {
                  strdups_left = for_one_record;
                  hooks.reset(vrm_hooks_read(dir.path().c_str()));
                  strdups_left = -1;
              }),
              "vrm_hooks_read: error reading hook from <" + path + ">\n");
    EXPECT_EQ(hooks, nullptr);
}

TEST(HooksRead, GrowsBeyondItsFirstTen) {
    const TempDir dir;
    for (int i = 0; i < 45; i++) {
        const std::string name = std::to_string(i);
        dir.write(name + ".vrh", hook_text("data:/x", "/bin/x", name));
    }
    const own_ekva_list hooks(vrm_hooks_read(dir.path().c_str()));
    EXPECT_EQ(names_of(hooks.get()).size(), 45u);
}

TEST(HooksRead, SkipsAPathThatIsTooLong) {
    const TempDir dir;
    dir.write("hook.vrh", hook_text("data:/a", "/bin/a", "long"));
    dir.write("a.vrh", hook_text("data:/a", "/bin/a", "short"));
    // Slashes are free in a path: with these the path of a.vrh has 4096 characters.
    std::string path = dir.path();
    path.append(4096 - path.size() - strlen("/a.vrh"), '/');
    EXPECT_EQ(stderr_of([&] {
                  const own_ekva_list hooks(vrm_hooks_read(path.c_str()));
                  EXPECT_THAT(names_of(hooks.get()), IsEmpty());
              }),
              "vrm_hooks_read: Filename <" + path + "/hook.vrh> too long, skipping entry");
    path.pop_back();
    EXPECT_EQ(stderr_of([&] {
                  const own_ekva_list hooks(vrm_hooks_read(path.c_str()));
                  EXPECT_THAT(names_of(hooks.get()), ElementsAre("short"));
              }),
              "vrm_hooks_read: Filename <" + path + "/hook.vrh> too long, skipping entry");
}

TEST(HookMatchFile, TakesTheFirstFileThatFits) {
    LogCapture log;
    const own_ekva package = record({{"evrkName", "foo"}});
    const FileList list({"/usr/bin/a", "/usr/lib/foo/deep/below.so", "/usr/lib/foo/other"});
    EXPECT_EQ(vrm_hook_match_file(package.get(), "/usr/lib/${evrkName}/*", list.get()), 1);
    EXPECT_TRUE(log.has(LEVEL_DEBUG,
                        "vrm_hook_match_file: parsed cond: </usr/lib/${evrkName}/*> = "
                        "</usr/lib/foo/*>"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG,
                        "vrm_hook_match_file: bingo, </usr/lib/foo/deep/below.so> matches "
                        "</usr/lib/foo/*>"));
    EXPECT_EQ(log.at(LEVEL_DEBUG).size(), 2u);
}

TEST(HookMatchFile, GivesZeroWithoutAMatchOrAList) {
    LogCapture log;
    const own_ekva package = record({{"evrkName", "foo"}});
    const FileList list({"/usr/bin/a"}), none({});
    EXPECT_EQ(vrm_hook_match_file(package.get(), "usr/*", list.get()), 0);
    EXPECT_EQ(vrm_hook_match_file(package.get(), "*", none.get()), 0);
    log.clear();
    EXPECT_EQ(vrm_hook_match_file(package.get(), "*", nullptr), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST(HookMatchAttr, TriesEachValueOfTheAttribute) {
    LogCapture log;
    const own_ekva package =
        record({{"evrkName", "foo"}, {"evrkDependency", "libc"}, {"evrkDependency", "gtk-3"}});
    EXPECT_EQ(vrm_hook_match_attr(package.get(), "evrkdependency=gtk*"), 1);
    EXPECT_TRUE(log.has(LEVEL_DEBUG,
                        "vrm_hook_match_attr: parsed cond: <evrkdependency=gtk*> = "
                        "<evrkdependency=gtk*>"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hook_match_attr: bongo, <libc> does not match <gtk*>"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hook_match_attr: bingo, <gtk-3> matches <gtk*>"));
    EXPECT_EQ(vrm_hook_match_attr(package.get(), "evrkDependency=qt*"), 0);
    EXPECT_EQ(vrm_hook_match_attr(package.get(), "evrkNothing=*"), 0);
}

TEST(HookMatchAttr, SplitsAtTheFirstEqualsSign) {
    LogCapture log;
    const own_ekva package =
        record({{"evrkName", "foo"}, {"evrkDescription", "a=b"}, {"evrkVariant", nullptr}});
    EXPECT_EQ(vrm_hook_match_attr(package.get(), "evrkDescription=a=b"), 1);
    EXPECT_EQ(vrm_hook_match_attr(package.get(), "evrkDescription=a"), 0);
    EXPECT_EQ(vrm_hook_match_attr(package.get(), "evrkName=${evrkName}"), 1);
    EXPECT_EQ(vrm_hook_match_attr(package.get(), "evrkVariant=*"), 0);
    EXPECT_TRUE(log.at(LEVEL_ERROR).empty());
}

TEST(HookMatchAttr, RefusesAnEmptyTextAndOneWithoutEqualsSign) {
    LogCapture log;
    const own_ekva package = record({{"evrkName", "foo"}});
    EXPECT_EQ(vrm_hook_match_attr(package.get(), ""), 0);
    EXPECT_EQ(vrm_hook_match_attr(package.get(), "evrkName"), 0);
    EXPECT_EQ(vrm_hook_match_attr(package.get(), "$nothing;"), 0);
    EXPECT_THAT(log.at(LEVEL_ERROR),
                ElementsAre("vrm_hook_match_attr: parsed cond: <> is not a valid attribute "
                            "condition",
                            "vrm_hook_match_attr: parsed cond: <evrkName> is not a valid "
                            "attribute condition",
                            "vrm_hook_match_attr: parsed cond: <;> is not a valid attribute "
                            "condition"));
}

TEST_F(HooksParse, SaysThatThereAreNoHooks) {
    EXPECT_TRUE(commands().empty());
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hooks_parse: starting"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hooks_parse: no hooks."));
}

TEST_F(HooksParse, SelectsByTypeExactly) {
    data = files({"/usr/bin/a"});
    add({{"evrhType", "99-CFG"}, {"evrhCond", "data:*"}, {"evrhExec", "/bin/case"}});
    add({{"evrhtype", "99-cfg"}, {"evrhCond", "data:*"}, {"evrhExec", "/bin/key"}});
    add({{"evrhType", "00-add"}, {"evrhCond", "data:*"}, {"evrhExec", "/bin/other"}});
    EXPECT_TRUE(commands().empty());
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hooks_parse: found 0 hook(-s) of type 99-cfg"));
    EXPECT_THAT(commands("00-add"), ElementsAre("/bin/other"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hooks_parse: found 1 hook(-s) of type 00-add"));
}

TEST_F(HooksParse, GivesOneCommandForEachHookInOrder) {
    data = files({"/usr/share/icons/a.png", "/usr/share/icons/deep/below/b.png", "/usr/bin/c"});
    add_hook("data:/usr/share/icons/*", "/bin/first '$evrkName' '$evrkVersion'");
    add_hook("data:/no/such/*", "/bin/never");
    add_hook("data:/usr/bin/c", "/bin/second");
    EXPECT_THAT(commands(), ElementsAre("/bin/first 'foo' '1.0'", "/bin/second"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hooks_parse: found 3 hook(-s) of type 99-cfg"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hooks_parse: found hook named test"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hooks_parse: got data cond: </usr/share/icons/*>"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG,
                        "vrm_hooks_parse: we got a match, will add command: </bin/first 'foo' "
                        "'1.0'>"));
    context = 2;
    EXPECT_EQ(commands().size(), 2u);
}

TEST_F(HooksParse, MatchesDeepBelowADirectory) {
    data = files({"/usr/share/icons/deep/below/b.png"});
    add_hook("data:/usr/share/icons/*", "/bin/x");
    EXPECT_THAT(commands(), ElementsAre("/bin/x"));
}

TEST_F(HooksParse, HoldsEachKindAgainstItsOwnFork) {
    data = files({"/data"});
    conf = files({"/conf"});
    dump = files({"/dump"});
    for (const char *const condition :
         {"data:/data", "conf:/conf", "dump:/dump", "data:/conf", "conf:/dump", "dump:/data"}) {
        add_hook(condition, (std::string("/bin/") + condition).c_str());
    }
    EXPECT_THAT(commands(), ElementsAre("/bin/data:/data", "/bin/conf:/conf", "/bin/dump:/dump"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hooks_parse: got conf cond: </conf>"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hooks_parse: got dump cond: </dump>"));
}

TEST_F(HooksParse, FiresNoFileHookForAForkThatIsNotThere) {
    add_hook("data:*", "/bin/data");
    add_hook("conf:*", "/bin/conf");
    add_hook("dump:*", "/bin/dump");
    EXPECT_TRUE(commands().empty());
}

TEST_F(HooksParse, HoldsAttrConditionsAgainstThePackage) {
    package.deps = {"libc", "gtk-3"};
    add_hook("attr:evrkDependency=gtk*", "/bin/gtk '${evrkDependency[]}'");
    add_hook("attr:evrkArchitecture=any", "/bin/any");
    add_hook("attr:evrkName=bar", "/bin/never");
    EXPECT_THAT(commands(), ElementsAre("/bin/gtk 'libc,gtk-3'", "/bin/any"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hooks_parse: got attr cond: <evrkDependency=gtk*>"));
}

TEST_F(HooksParse, NeverFiresOnInfoOrAnUnknownKindAndGoesOn) {
    data = files({"/a"});
    add_hook("info:*", "/bin/info");
    add_hook("DATA:*", "/bin/upper");
    add_hook("data:*", "/bin/good");
    EXPECT_TRUE(commands("none").empty());
    add_hook("what:ever", "/bin/what");
    EXPECT_THAT(commands(), ElementsAre("/bin/good"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hooks_parse: got info cond: <*>"));
    EXPECT_TRUE(log.has(LEVEL_INFO, "vrm_hooks_parse: unknown cond type: <DATA>"));
    EXPECT_TRUE(log.has(LEVEL_INFO, "vrm_hooks_parse: unknown cond type: <what>"));
}

TEST_F(HooksParse, SkipsFaultyHooksWithAMessage) {
    data = files({"/a"});
    add({{"evrhType", "99-cfg"}});
    add({{"evrhType", "99-cfg"}, {"evrhCond", "data"}});
    add_hook("data:", "/bin/five");
    add_hook("data;*", "/bin/colon");
    add_hook("data:*", "/bin/good");
    EXPECT_THAT(commands(), ElementsAre("/bin/good"));
    EXPECT_THAT(
        log.at(LEVEL_INFO),
        ElementsAre("vrm_hooks_parse: no hook cond", "vrm_hooks_parse: no hook exec",
                    "vrm_hooks_parse: invalid cond", "vrm_hooks_parse: invalid cond <data;*>"));
    EXPECT_THAT(log.at(LEVEL_DEBUG), Contains("vrm_hooks_parse: found hook named (null)"));
}

TEST_F(HooksParse, CountsOnlyTheFirstConditionAndTheFirstCommand) {
    data = files({"/a"});
    add({{"evrhType", "99-cfg"},
         {"evrhCond", "data:/a"},
         {"evrhCond", "data:/no"},
         {"evrhExec", "/bin/first"},
         {"evrhExec", "/bin/second"}});
    add({{"evrhType", "99-cfg"},
         {"evrhCond", "data:/no"},
         {"evrhCond", "data:/a"},
         {"evrhExec", "/bin/third"}});
    EXPECT_THAT(commands(), ElementsAre("/bin/first"));
}

TEST_F(HooksParse, CountsAHookOnceForEachLineThatNamesTheType) {
    data = files({"/a"});
    add({{"evrhType", "99-cfg"},
         {"evrhType", "99-cfg"},
         {"evrhType", "other"},
         {"evrhCond", "data:/a"},
         {"evrhExec", "/bin/twice"}});
    EXPECT_THAT(commands(), ElementsAre("/bin/twice", "/bin/twice"));
    EXPECT_TRUE(log.has(LEVEL_DEBUG, "vrm_hooks_parse: found 2 hook(-s) of type 99-cfg"));
}

TEST_F(HooksParse, QuotesHostileValues) {
    package.description = "it's $(touch x)";
    data = files({"/a"});
    add_hook("data:/a", "/bin/echo '$evrkDescription'");
    EXPECT_THAT(commands(), ElementsAre(R"(/bin/echo 'it'"'"'s $(touch x)')"));
}
