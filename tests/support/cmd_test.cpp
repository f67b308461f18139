#include "support/cmd.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kit/capture.h"
#include "kit/failing_new.h"
#include "kit/records.h"
#include "kit/results.h"
#include "kit/temp_dir.h"
#include "support/own.h"

// The files that were made, and the beginning of the names of those that can't be.
static std::vector<std::string> made_files;
static std::string refused_files;

extern "C" int mkstemp(char *pattern) {
    if (!refused_files.empty() && std::string_view(pattern).starts_with(refused_files)) {
        errno = EMFILE;
        return -1;
    }
    const int fd = mkostemp(pattern, 0);
    made_files.emplace_back(pattern);
    return fd;
}

struct Ran {
    int status;
    std::string out, err;
    bool has_out, has_err;
};

static Ran run(const std::string &command) {
    char *out = nullptr;
    char *err = nullptr;
    size_t out_length = 99;
    size_t err_length = 99;
    const int status = cmd_exec(command.c_str(), &out, &out_length, &err, &err_length);
    const own_string own_out(out), own_err(err);
    return {status, std::string(out ? out : "", out_length),
            std::string(err ? err : "", err_length), out != nullptr, err != nullptr};
}

using Pairs = std::vector<std::pair<const char *, const char *>>;

static std::string parse(const char *mask, const Pairs &pairs, int quote_mode = 1) {
    const own_string line(cmd_mask_parse_ext(mask, record(pairs).get(), quote_mode));
    return line ? line.get() : "(null)";
}

static auto parser_with(const Pairs &pairs) {
    return [pairs](const char *mask) { return parse(mask, pairs); };
}

static const Pairs three = {{"dep", "a"}, {"dep", "b"}, {"other", "x"}, {"dep", "c"}};

TEST(CmdExec, KeepsStdoutAndStderrApart) {
    const Ran ran = run("{ printf out; printf err >&2; }");
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, "out");
    EXPECT_EQ(ran.err, "err");
}

TEST(CmdExec, CatchesOnlyTheLastOfSeveralCommands) {
    EXPECT_EQ(run("true && printf last").out, "last");
    EXPECT_EQ(run("printf '' ; printf last").out, "last");
}

TEST(CmdExec, GivesTheRawWaitStatusAndTheErrorText) {
    const Ran ran = run("sh -c 'echo no good >&2; exit 3'");
    EXPECT_EQ(ran.status, 768);
    EXPECT_EQ(ran.err, "no good\n");
    EXPECT_EQ(run("false").status, 256);
    EXPECT_EQ(run("kill -9 $$").status, 9);
}

TEST(CmdExec, GivesABlockOfLengthZeroWhenNothingIsWritten) {
    const Ran ran = run("true");
    EXPECT_TRUE(ran.has_out);
    EXPECT_TRUE(ran.has_err);
    EXPECT_EQ(ran.out, "");
    EXPECT_EQ(ran.err, "");
}

TEST(CmdExec, HandsBackBinaryOutput) {
    EXPECT_EQ(run("printf 'a\\000b'").out, std::string("a\0b", 3));
}

TEST(CmdExec, CutsTheCommandAt65000Characters) {
    // The cut falls between the two digits.
    std::string command = "echo 1";
    command.insert(0, 65000 - command.size(), ' ');
    EXPECT_EQ(run(command + "2").out, "1\n");
    command.erase(0, 1);
    EXPECT_EQ(run(command + "2").out, "12\n");
}

TEST(CmdExec, LeavesNoFileBehind) {
    made_files.clear();
    run("{ echo text; echo more >&2; }");
    run("exit 1");
    ASSERT_EQ(made_files.size(), 4u);
    EXPECT_THAT(made_files[0], testing::MatchesRegex("/tmp/out\\.cmd_exec......"));
    EXPECT_THAT(made_files[1], testing::MatchesRegex("/tmp/err\\.cmd_exec......"));
    for (const std::string &path : made_files) {
        EXPECT_FALSE(std::filesystem::exists(path)) << path;
    }
}

TEST(CmdExec, TellsWhenATemporaryFileCannotBeMade) {
    for (const std::string which : {"out", "err"}) {
        made_files.clear();
        refused_files = "/tmp/" + which;
        Ran ran;
        const std::string told = stderr_of([&] { ran = run("true"); });
        refused_files.clear();
        EXPECT_EQ(told, "cmd_exec: failed to create " + which + "file: Too many open files\n");
        EXPECT_EQ(ran.status, -1);
        EXPECT_FALSE(ran.has_out);
        EXPECT_FALSE(ran.has_err);
        EXPECT_EQ(ran.out + ran.err, "");
        for (const std::string &path : made_files) {
            EXPECT_FALSE(std::filesystem::exists(path)) << path;
        }
    }
}

TEST(CmdExec, GivesMinusOneWhenMemoryFails) {
    const std::string command = "echo " + std::string(2000, 'x');
    char *out, *err;
    size_t out_length, err_length;
    made_files.clear();
    made_files.reserve(10);
    {
        const FailingNew failing(1000);
        EXPECT_EQ(cmd_exec(command.c_str(), &out, &out_length, &err, &err_length), -1);
    }
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(err, nullptr);
    for (const std::string &path : made_files) {
        EXPECT_FALSE(std::filesystem::exists(path)) << path;
    }
}

TEST(CmdExecUser, RunsAsThePresentUser) {
    char *out, *err;
    size_t out_length, err_length;
    EXPECT_EQ(cmd_exec_user("id -u", "nobody", &out, &out_length, &err, &err_length), 0);
    const own_string own_out(out), own_err(err);
    EXPECT_EQ(std::string(out, out_length), std::to_string(getuid()) + "\n");
}

TEST(CmdMaskParse, FillsInBareAndBracedNames) {
    const Pairs pairs = {{"name", "foo"}, {"my key", "bar"}};
    expect_results(parser_with(pairs), {{"run $name now", "run foo now"},
                                        {"run ${name} now", "run foo now"},
                                        {"${my key}", "bar"},
                                        {"$name/$name.${name}$name;", "foo/foo.foofoo;"},
                                        {"no placeholder", "no placeholder"},
                                        {"", ""}});
}

TEST(CmdMaskParse, FindsKeysInAnyCaseAndTakesTheFirstValue) {
    expect_results(parser_with(three), {{"$DEP.", "a."}, {"${Dep}", "a"}});
}

TEST(CmdMaskParse, DropsABareNameAtTheVeryEnd) {
    expect_results(parser_with({{"name", "foo"}}), {{"echo $name", "echo "},
                                                    {"echo ${name} ", "echo foo "},
                                                    {"echo ${name}", "echo foo"},
                                                    {"echo '$name'", "echo 'foo'"},
                                                    {"echo $", "echo "}});
}

TEST(CmdMaskParse, DropsAnUnclosedBrace) {
    const Pairs pairs = {{"name", "foo"}};
    for (const char *const mask :
         {"echo ${name", "echo ${", "echo ${name[", "echo ${name[1", "echo ${name[1]",
          "echo ${name[]", "echo ${name and all that follows"}) {
        EXPECT_EQ(parse(mask, pairs), "echo ") << mask;
    }
}

TEST(CmdMaskParse, EndsABareNameAtTheFirstOtherCharacter) {
    EXPECT_EQ(parse("$a_b", {{"a", "x"}, {"a_b", "y"}}), "x_b");
    EXPECT_EQ(parse("$a$b ", {{"a", "x"}, {"b", "y"}}), "xy ");
    EXPECT_EQ(parse("$a\\$b ", {{"a", "x"}, {"b", "y"}}), "x$b ");
    EXPECT_EQ(parse("$a{b}", {{"a", "x"}}), "x{b}");
    EXPECT_EQ(parse("$a1-", {{"a", "x"}, {"a1", "y"}}), "y-");
    EXPECT_EQ(parse("$a\xc3\xa4", {{"a", "x"}}), "x\xc3\xa4");
}

TEST(CmdMaskParse, TakesAnEmptyNameForNothing) {
    EXPECT_EQ(parse("a $ b", {}), "a  b");
    EXPECT_EQ(parse("$$a ", {{"a", "x"}}), "x ");
    EXPECT_EQ(parse("${}", {}), "}");  // the character that ended the name stays
}

TEST(CmdMaskParse, SelectsOneValueByItsDigit) {
    expect_results(
        parser_with(three),
        {{"${dep[0]}", "a"}, {"${dep[1]}", "b"}, {"${dep[2]}", "c"}, {"<${dep[7]}>", "<>"}});
}

TEST(CmdMaskParse, JoinsAllValues) {
    expect_results(parser_with(three), {{"${dep[]}", "a,b,c"},
                                        {"${dep[:]}", "a:b:c"},
                                        {"${dep[ ]}", "a b c"},
                                        {"${dep[]]}", "a]b]c"},
                                        {"<${none[]}>", "<>"},
                                        {"${other[]}", "x"}});
}

TEST(CmdMaskParse, TakesAnyOtherBracketForAPartOfTheName) {
    expect_results(parser_with(three), {{"<${dep[12]}>", "<>"}, {"<${dep[x}>", "<>"}});
    EXPECT_EQ(parse("<${dep[12]}>", {{"dep12]", "odd"}}), "<odd>");
    EXPECT_EQ(parse("<${de[p}>", three), "<a>");
}

TEST(CmdMaskParse, LetsAPlaceholderWithoutValueVanish) {
    EXPECT_EQ(parse("<$none><${none}>", three), "<><>");
    EXPECT_EQ(parse("<$empty>", {{"empty", nullptr}}), "<>");
    const own_string line(cmd_mask_parse("<$a><${a}><${a[]}><${a[1]}>", nullptr));
    EXPECT_STREQ(line.get(), "<><><><>");
}

TEST(CmdMaskParse, TakesABackslashFromTheNextCharacter) {
    EXPECT_EQ(parse("\\$x", {{"x", "v"}}), "$x");
    EXPECT_EQ(parse("\\x", {}), "x");
    EXPECT_EQ(parse("\\\\", {}), "\\");
    EXPECT_EQ(parse("\\\\$x ", {{"x", "v"}}), "\\v ");
    EXPECT_EQ(parse("end\\", {}), "end");
}

TEST(CmdMaskParse, EscapesQuotesInValuesAndNowhereElse) {
    const Pairs pairs = {{"name", "it's"}};
    EXPECT_EQ(parse("echo '$name'", pairs), R"(echo 'it'"'"'s')");
    EXPECT_EQ(parse("echo '$name'", pairs, 0), R"(echo 'it'"'"'s')");
    EXPECT_EQ(parse("echo '$name'", pairs, 2), "echo 'it''s'");
    EXPECT_EQ(parse("don't", pairs), "don't");
    EXPECT_EQ(parse("${name[0]}${name[]}", pairs, 2), "it''sit''s");
}

TEST(CmdMaskParse, GivesALineThatIsSafeInSingleQuotes) {
    const std::string hostile(100, '\'');
    const std::string value = hostile + "; $(touch x) `id` \\ \" \n" + hostile;
    EXPECT_EQ(run(parse("printf %s '$name'", {{"name", value.c_str()}})).out, value);
}

TEST(CmdMaskParse, DoesNotExpandTheValuesThemselves) {
    EXPECT_EQ(parse("<$a>", {{"a", "$b\\"}, {"b", "no"}}), "<$b\\>");
}

TEST(CmdMaskParse, GivesNullWhenMemoryFails) {
    const std::string mask(2000, 'x');
    const FailingNew failing(1000);
    EXPECT_EQ(cmd_mask_parse(mask.c_str(), nullptr), nullptr);
}

TEST(CmdMaskParse, GivesNullForANullMask) {
    EXPECT_EQ(cmd_mask_parse(nullptr, nullptr), nullptr);
    EXPECT_EQ(cmd_mask_parse_ext(nullptr, record(three).get(), 2), nullptr);
}

TEST(CmdMaskParseLdif, TakesTheRecordFromText) {
    const char text[] = "dep: a\ndep: it's\n";
    const own_string line(cmd_mask_parse_ldif("'${dep[1]}'", text));
    EXPECT_STREQ(line.get(), R"('it'"'"'s')");
    const own_string other(cmd_mask_parse_ldif_ext("'${dep[1]}'", text, 2));
    EXPECT_STREQ(other.get(), "'it''s'");
}

TEST(CmdMaskParseLdif, GivesNullWithoutARecord) {
    stderr_of([] {
        EXPECT_EQ(cmd_mask_parse_ldif("mask", ""), nullptr);
        EXPECT_EQ(cmd_mask_parse_ldif_ext("mask", "", 2), nullptr);
    });
    EXPECT_EQ(cmd_mask_parse_ldif("mask", nullptr), nullptr);
}
