// Rewriting of configuration files, and value maps.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "kit/capture.h"
#include "kit/lower_limit.h"
#include "kit/temp_dir.h"
#include "support/own.h"
#include "support/vconf.h"

namespace {

namespace fs = std::filesystem;

own_ekva record_of(const std::vector<std::pair<const char *, const char *>> &pairs) {
    s_ekva **rec = ekva_new(10, 2);
    for (const auto &[key, value] : pairs) {
        ekva_addval(&rec, key, value, 0);
    }
    return own_ekva(rec);
}

// What a file of this text becomes.
std::string replaced(const std::string &text,
                     const std::vector<std::pair<const char *, const char *>> &pairs) {
    const TempDir dir;
    const std::string path = dir.write("conf", text);
    EXPECT_EQ(vconf_replace(path.c_str(), record_of(pairs).get(), 0), 0);
    return read_all(path);
}

struct Failure {
    int result = 0;
    std::string told;
};
Failure failure_of(const std::string &path, s_ekva *const *rec) {
    Failure failure;
    failure.told = stderr_of([&] { failure.result = vconf_replace(path.c_str(), rec, 1); });
    return failure;
}

// Within its life the process has the rights of an ordinary user, also when root runs the test.
class OrdinaryUser {
 public:
    OrdinaryUser() : was_root_(geteuid() == 0) {
        EXPECT_TRUE(!was_root_ || seteuid(65534) == 0);
    }
    ~OrdinaryUser() {
        EXPECT_TRUE(!was_root_ || seteuid(0) == 0);
    }
    OrdinaryUser(const OrdinaryUser &) = delete;
    OrdinaryUser &operator=(const OrdinaryUser &) = delete;

    // Makes him the owner of a path.
    static void owns(const std::string &path) {
        EXPECT_TRUE(geteuid() != 0 || chown(path.c_str(), 65534, 65534) == 0);
    }

 private:
    bool was_root_;
};

own_valnum_list booleans() {
    return own_valnum_list(vconf_gen_vnlist("true=1,false=0,yes=1,no=0,1=1,0=0"));
}

std::vector<std::pair<std::string, int>> entries_of(const char *text) {
    const own_valnum_list map(vconf_gen_vnlist(text));
    std::vector<std::pair<std::string, int>> entries;
    for (vconf_valnum **entry = map.get(); entry && *entry; entry++) {
        entries.emplace_back((*entry)->name, (*entry)->num);
    }
    return entries;
}

int bool_of(const char *value, int default_value, int override_value) {
    return vconf_get_bool("k", record_of({{"k", value}}).get(), default_value, override_value);
}

}  // namespace

// ---- Rewriting ----

TEST(VconfReplace, GivesTheKeysOfTheFileTheValuesOfTheRecord) {
    EXPECT_EQ(replaced("a = 1\nb = 2\nc = 3\n", {{"a", "new"}, {"c", "x y"}}),
              "a=new\nb = 2\nc=x y\n");
}

TEST(VconfReplace, KeepsEverythingElseByteByByte) {
    const std::string rest =
        "# a comment = x\n\n  \t\n  spaced\t=  \"quoted\"  # remark\n=no key\nnokey\n"
        "include /etc/other.conf\n'odd = line\r\n";
    EXPECT_EQ(replaced(rest + "a = 1\n" + rest, {{"a", "2"}, {"", "never"}}),
              rest + "a=2\n" + rest);
}

TEST(VconfReplace, LosesSpacingQuotesAndWhatStandsBehindTheValue) {
    EXPECT_EQ(replaced("  a\t=  'old' behind # it\r\n\n", {{"a", "new"}}), "a=new\n\n");
}

TEST(VconfReplace, KeepsTheSpellingOfTheFilesKey) {
    EXPECT_EQ(replaced("Arch_Name second = 1\n\n", {{"arch_name", "2"}}), "Arch_Name=2\n\n");
}

TEST(VconfReplace, ReplacesEveryLineOfAKey) {
    EXPECT_EQ(replaced("a=1\nb=2\na=3\n", {{"a", "x"}}), "a=x\nb=2\na=x\n");
}

TEST(VconfReplace, DoesNotAddAKeyThatTheFileLacks) {
    EXPECT_EQ(replaced("a=1\n", {{"b", "2"}}), "a=1\n");
}

TEST(VconfReplace, TakesAnEmptyValueButNotANullOne) {
    EXPECT_EQ(replaced("a=1\nb=2\n", {{"a", ""}, {"b", nullptr}}), "a=\nb=2\n");
}

TEST(VconfReplace, TakesANullRecord) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a=1\n");
    EXPECT_EQ(vconf_replace(path.c_str(), nullptr, 0), 0);
    EXPECT_EQ(read_all(path), "a=1\n");
}

TEST(VconfReplace, LeavesAMarkInTheFirstColumnAlone) {
    EXPECT_EQ(replaced("#a = 1\n # a = 2\n", {{"a", "x"}, {"#a", "x"}}), "#a = 1\n # a = 2\n");
    EXPECT_EQ(replaced(" # a = 2\nb=1\n", {{"#", "x"}}), "#=x\nb=1\n");
}

TEST(VconfReplace, TakesAnIncludeWithAnEqualsSignForAKey) {
    EXPECT_EQ(replaced("include a=b\n\n", {{"include", "c"}}), "include=c\n\n");
}

TEST(VconfReplace, DoesNotFollowIncludes) {
    const TempDir dir;
    const std::string other = dir.write("other", "a=1\n");
    const std::string path = dir.write("conf", "include " + other + "\n");
    EXPECT_EQ(vconf_replace(path.c_str(), record_of({{"a", "2"}}).get(), 1), 0);
    EXPECT_EQ(read_all(other), "a=1\n");
    EXPECT_EQ(read_all(path), "include " + other + "\n");
}

TEST(VconfReplace, ReadsTheSingleLineOfAFileAsTwo) {
    EXPECT_EQ(replaced("a=1\n", {{"a", "2"}}), "a=2\n\n");
    EXPECT_EQ(replaced("a=1\n", {{"b", "2"}}), "a=1\n");
    EXPECT_EQ(replaced("a=1", {{"a", "2"}}), "a=2\n1");
    EXPECT_EQ(replaced("a=1", {{"b", "2"}}), "a=1");
    EXPECT_EQ(replaced("b=1\na=1", {{"a", "2"}}), "b=1\na=2\n");
    EXPECT_EQ(replaced("x", {{"x", "2"}}), "x");
}

TEST(VconfReplace, CarriesZeroBytesOver) {
    const std::string zero("a\0=1\nb=2\0x\n", 11);
    EXPECT_EQ(replaced(zero, {{"a", "x"}}), zero);
    EXPECT_EQ(replaced(zero, {{"b", "x"}}), zero.substr(0, 5) + "b=x\n");
}

TEST(VconfReplace, KeepsTheOldFileWhenAskedTo) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a=1\nb=1\n");
    dir.write("conf.prev", "older\n");
    EXPECT_EQ(vconf_replace(path.c_str(), record_of({{"a", "2"}}).get(), 1), 0);
    EXPECT_EQ(read_all(path), "a=2\nb=1\n");
    EXPECT_EQ(read_all(path + ".prev"), "a=1\nb=1\n");
    EXPECT_FALSE(exists(path + ".next"));
}

TEST(VconfReplace, LeavesNoOldFileOtherwise) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a=1\nb=1\n");
    dir.write("conf.prev", "older\n");
    EXPECT_EQ(vconf_replace(path.c_str(), record_of({{"a", "2"}}).get(), 0), 0);
    EXPECT_EQ(read_all(path), "a=2\nb=1\n");
    EXPECT_FALSE(exists(path + ".prev"));
    EXPECT_FALSE(exists(path + ".next"));
}

TEST(VconfReplace, KeepsPermissionsAndOwner) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a=1\n", 0640);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(path.c_str(), 1234, 2345), 0);
    }
    struct stat before, after;
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    const mode_t mask = umask(077);
    EXPECT_EQ(vconf_replace(path.c_str(), record_of({{"a", "2"}}).get(), 0), 0);
    umask(mask);
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_EQ(after.st_mode & 07777, 0640U);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
}

TEST(VconfReplace, IsReadBackByTheReader) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a = 1\nb = 'x'\n");
    EXPECT_EQ(vconf_replace(path.c_str(), record_of({{"b", "y=z # q"}}).get(), 0), 0);
    const own_ekva rec(vconf_read(nullptr, path.c_str()));
    EXPECT_STREQ(ekva_getval(rec.get(), "a"), "1");
    EXPECT_STREQ(ekva_getval(rec.get(), "b"), "y=z # q");
}

TEST(VconfReplace, TellsThatThereIsNoPath) {
    int result = 0;
    EXPECT_EQ(stderr_of([&] { result = vconf_replace(nullptr, nullptr, 0); }),
              "No config file specified\n");
    EXPECT_EQ(result, -1);
}

TEST(VconfReplace, TellsThatTheFileCannotBeOpened) {
    const TempDir dir;
    const Failure failure = failure_of(dir / "none", nullptr);
    EXPECT_EQ(failure.result, -1);
    EXPECT_EQ(failure.told, "Failed to open <" + (dir / "none") + ">: No such file or directory\n");
    EXPECT_EQ(failure_of(dir.path(), nullptr).told,
              "Failed to open <" + dir.path() + ">: Is a directory\n");
}

TEST(VconfReplace, TellsThatTheNextFileCannotBeMade) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a=1\n");
    dir.write("conf.prev", "older\n");
    fs::create_directory(path + ".next");
    const Failure failure = failure_of(path, record_of({{"a", "2"}}).get());
    EXPECT_EQ(failure.result, -1);
    EXPECT_EQ(failure.told, "Failed to create new config as <" + path + ".next>: Is a directory\n");
    EXPECT_EQ(read_all(path), "a=1\n");
    EXPECT_EQ(read_all(path + ".prev"), "older\n");
}

TEST(VconfReplace, RefusesAnEmptyFile) {
    const TempDir dir;
    const std::string path = dir.write("conf", "");
    const Failure failure = failure_of(path, nullptr);
    EXPECT_EQ(failure.result, -1);
    EXPECT_EQ(failure.told, "Failed to create new config as <" + path + ".next>: Success\n");
    EXPECT_TRUE(exists(path));
    EXPECT_FALSE(exists(path + ".next"));
}

TEST(VconfReplace, TellsThatTheNextFileCannotBeOpened) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a=1\n", 0444);
    OrdinaryUser::owns(dir.path());
    OrdinaryUser::owns(path);
    const OrdinaryUser user;
    // The copy has the old file's permissions, which let nobody write.
    const Failure failure = failure_of(path, record_of({{"a", "2"}}).get());
    EXPECT_EQ(failure.result, -1);
    EXPECT_EQ(failure.told, "Failed to open <" + path + ".next> for reading: Permission denied\n");
    EXPECT_EQ(read_all(path), "a=1\n");
    EXPECT_FALSE(exists(path + ".next"));
}

TEST(VconfReplace, LeavesTheFileAloneWhenTheNextOneCannotBeWritten) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a=1\n");
    dir.write("conf.prev", "older\n");
    const std::string value(5000, 'x');
    const own_ekva rec = record_of({{"a", value.c_str()}});
    Failure failure;
    {
        // The messages go to a file as well.
        const LowerLimit limit(RLIMIT_FSIZE, 1000);
        failure = failure_of(path, rec.get());
    }
    EXPECT_EQ(failure.result, -1);
    EXPECT_EQ(failure.told, "Failed to write <" + path + ".next>: File too large\n");
    EXPECT_EQ(read_all(path), "a=1\n");
    EXPECT_EQ(read_all(path + ".prev"), "older\n");
    EXPECT_FALSE(exists(path + ".next"));
}

// ---- Value maps ----

TEST(VconfValueMap, HasNamesAndNumbersInOrder) {
    using Entries = std::vector<std::pair<std::string, int>>;
    EXPECT_EQ(entries_of("true=1,false=0,yes=1"), (Entries{{"true", 1}, {"false", 0}, {"yes", 1}}));
    EXPECT_EQ(entries_of(" a b = ' -7' ,,c=0x10,"), (Entries{{"a", -7}, {"c", 0}}));
}

TEST(VconfValueMap, AFieldWithoutANumberHasTheOneBefore) {
    using Entries = std::vector<std::pair<std::string, int>>;
    EXPECT_EQ(entries_of("a=,b=x,c=5,d=,e=x,f=6"),
              (Entries{{"a", 0}, {"b", 0}, {"c", 5}, {"d", 5}, {"e", 5}, {"f", 6}}));
    EXPECT_EQ(entries_of("a=3,b"), (Entries{{"a", 3}, {"", 3}}));
}

TEST(VconfValueMap, OfATextWithoutAFieldIsNull) {
    EXPECT_EQ(vconf_gen_vnlist(""), nullptr);
    EXPECT_EQ(vconf_gen_vnlist(",,"), nullptr);
    EXPECT_EQ(vconf_gen_vnlist(nullptr), nullptr);
}

TEST(VconfValueMap, IsLookedUpByNameWithRegardToCase) {
    const own_valnum_list map = booleans();
    EXPECT_EQ(vconf_getvalnum(map.get(), "yes"), 1);
    EXPECT_EQ(vconf_getvalnum(map.get(), "0"), 0);
    EXPECT_EQ(vconf_getvalnum(map.get(), "Yes"), -1);
    EXPECT_EQ(vconf_getvalnum(map.get(), "ye"), -1);
    EXPECT_EQ(vconf_getvalnum(map.get(), nullptr), -1);
    EXPECT_EQ(vconf_getvalnum(nullptr, "yes"), -1);
}

TEST(VconfValueMap, IsLookedUpByNumber) {
    const own_valnum_list map = booleans();
    EXPECT_STREQ(vconf_getnumval(map.get(), 1), "true");
    EXPECT_STREQ(vconf_getnumval(map.get(), 0), "false");
    EXPECT_EQ(vconf_getnumval(map.get(), 2), nullptr);
    EXPECT_EQ(vconf_getnumval(nullptr, 0), nullptr);
}

TEST(VconfValueMap, NullIsFreed) {
    vconf_valnum_free(nullptr);
    vconf_valnum_list_free(nullptr);
}

TEST(VconfValueMap, AnEntryIsFreedByItself) {
    own_valnum_list map = booleans();
    size_t last = 0;
    while (map.get()[last + 1]) {
        last++;
    }
    vconf_valnum_free(map.get()[last]);
    map.get()[last] = nullptr;
    EXPECT_EQ(vconf_getvalnum(map.get(), "0"), -1);
}

TEST(VconfGetOptval, WithoutAMapIsTheDefault) {
    EXPECT_EQ(vconf_get_optval_vl("k", nullptr, record_of({{"k", "1"}}).get(), 7, 1), 7);
}

TEST(VconfGetOptval, AnOverrideThatTheMapHasOutranksTheFile) {
    const own_valnum_list map(vconf_gen_vnlist("low=1,high=2"));
    const own_ekva rec = record_of({{"k", "low"}});
    EXPECT_EQ(vconf_get_optval_vl("k", map.get(), rec.get(), 7, 2), 2);
    EXPECT_EQ(vconf_get_optval_vl("k", map.get(), rec.get(), 7, 3), 1);
    EXPECT_EQ(vconf_get_optval_vl("none", map.get(), rec.get(), 7, 2), 2);
    EXPECT_EQ(vconf_get_optval_vl("k", map.get(), nullptr, 7, 2), 2);
}

TEST(VconfGetOptval, WithoutAValueIsTheDefault) {
    const own_valnum_list map = booleans();
    EXPECT_EQ(vconf_get_optval_vl("k", map.get(), nullptr, 7, -1), 7);
    EXPECT_EQ(vconf_get_optval_vl("k", map.get(), record_of({{"x", "1"}}).get(), 7, -1), 7);
    EXPECT_EQ(vconf_get_optval_vl("k", map.get(), record_of({{"k", nullptr}}).get(), 7, -1), 7);
}

TEST(VconfGetOptval, TheNumberMinusOneIsTheDefault) {
    const own_valnum_list map(vconf_gen_vnlist("off=-1,on=1"));
    EXPECT_EQ(vconf_get_optval_vl("k", map.get(), record_of({{"k", "off"}}).get(), 7, 5), 7);
    EXPECT_EQ(vconf_get_optval_vl("k", map.get(), record_of({{"k", "on"}}).get(), 7, 5), 1);
    // As a number of the map it still is an override.
    EXPECT_EQ(vconf_get_optval_vl("k", map.get(), record_of({{"k", "on"}}).get(), 7, -1), -1);
}

TEST(VconfGetOptval, TheKeyIsFoundWithoutRegardToCase) {
    const own_valnum_list map = booleans();
    EXPECT_EQ(vconf_get_optval_vl("KEY", map.get(), record_of({{"key", "no"}}).get(), 7, -1), 0);
}

TEST(VconfGetBool, KnowsTheBooleansAndNothingElse) {
    EXPECT_EQ(bool_of("yes", 7, -1), 1);
    EXPECT_EQ(bool_of("true", 7, -1), 1);
    EXPECT_EQ(bool_of("1", 7, -1), 1);
    EXPECT_EQ(bool_of("no", 7, -1), 0);
    EXPECT_EQ(bool_of("false", 7, -1), 0);
    EXPECT_EQ(bool_of("0", 7, -1), 0);
    EXPECT_EQ(bool_of("maybe", 7, -1), 7);
    EXPECT_EQ(bool_of("True", 7, -1), 7);
    EXPECT_EQ(bool_of("", 7, -1), 7);
}

TEST(VconfGetBool, AnOverrideOfZeroOrOneWins) {
    EXPECT_EQ(bool_of("yes", 7, 0), 0);
    EXPECT_EQ(bool_of("no", 7, 1), 1);
    EXPECT_EQ(bool_of("maybe", 7, 0), 0);
    EXPECT_EQ(bool_of("yes", 7, 2), 1);
}
