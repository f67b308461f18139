#include "pvrm/config_change.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kit/capture.h"
#include "kit/mode.h"
#include "kit/results.h"
#include "kit/temp_dir.h"
#include "support/own.h"
#include "support/vconf.h"

TEST(ConfigText, PlainValuesStandAsTheyAre) {
    for (const char *value : {"x86_64", "", "a b", "/srv/a, /srv/b", "a#b = c", "it's", "a\tb",
                              "say \"x\"", "a\\", "\\", "tab at the end\t", "\xC3\xA9"}) {
        EXPECT_EQ(config_text(value), value);
    }
}

TEST(ConfigText, WhatTheReaderWouldCutStandsInQuotes) {
    expect_results(config_text, {{" a ", "\" a \""},
                                 {"a ", "\"a \""},
                                 {"\ta", "\"\ta\""},
                                 {"'a'", "\"\\'a\\'\""},
                                 {"\"it's\"", "\"\\\"it\\'s\\\"\""},
                                 {" a\\", "\" a\\"}});
}

TEST(ConfigText, EveryValueIsReadBackAsItIs) {
    // All texts of up to three characters that mean something to the reader.
    static constexpr char letters[] = {'a', ' ', '\t', '"', '\'', '\\', '#', '='};
    std::vector<std::string> values;
    std::string content;
    for (unsigned number = 0; number < 8 * 8 * 8; number++) {
        std::string value;
        for (unsigned left = number; left > 0; left /= 8) {
            value += letters[left % 8];
        }
        const auto text = config_text(value);
        ASSERT_TRUE(text.has_value()) << value;
        values.push_back(value);
        content += "key" + std::to_string(number) + "=" + *text + "\n";
    }
    const TempDir dir;
    const own_ekva rec(vconf_read(nullptr, dir.write("conf", content).c_str()));
    ASSERT_EQ(ekva_nument(rec.get()), static_cast<int>(values.size()));
    for (size_t i = 0; i < values.size(); i++) {
        EXPECT_EQ(rec.get()[i + 1]->val, values[i]);
    }
}

TEST(ConfigText, ControlCharactersAreRefused) {
    for (const char *value : {"a\nb", "a\r", "\x1B[31m", "\x7F", "\n"}) {
        EXPECT_EQ(config_text(value), std::nullopt);
    }
}

TEST(AddToConfig, AddsALineAndKeepsTheOldFile) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a = 1\n# end\n", 0640);
    dir.write("conf.prev", "older");
    dir.write("conf.next", "left by a process that was killed", 0600);
    ASSERT_TRUE(add_to_config(path, "b", "x y"));
    EXPECT_EQ(read_all(path), "a = 1\n# end\nb=x y\n");
    EXPECT_EQ(read_all(path + ".prev"), "a = 1\n# end\n");
    EXPECT_FALSE(exists(path + ".next"));
    EXPECT_EQ(mode_of(path), 0640U);
}

TEST(AddToConfig, EndsTheLastLineFirst) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a=12");
    ASSERT_TRUE(add_to_config(path, "b", "2"));
    EXPECT_EQ(read_all(path), "a=12\nb=2\n");
    const std::string empty = dir.write("empty", "");
    ASSERT_TRUE(add_to_config(empty, "b", "2"));
    EXPECT_EQ(read_all(empty), "b=2\n");
}

TEST(AddToConfig, KeepsTheOwner) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a=1\n");
    if (geteuid() == 0) {
        ASSERT_EQ(chown(path.c_str(), 1234, 2345), 0);
    }
    struct stat before, after;
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    ASSERT_TRUE(add_to_config(path, "b", "2"));
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
}

TEST(AddToConfig, AFailureIsToldAndLeavesTheFile) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a=1\n");
    std::filesystem::create_directory(path + ".next");
    bool added = true;
    EXPECT_EQ(stderr_of([&] { added = add_to_config(path, "b", "2"); }),
              "pvrm: " + path + ".next can't be written: File exists\n");
    EXPECT_FALSE(added);
    EXPECT_EQ(read_all(path), "a=1\n");
    EXPECT_EQ(stderr_of([&] { added = add_to_config(dir / "none", "b", "2"); }),
              "pvrm: " + (dir / "none") + " can't be read: No such file or directory\n");
    EXPECT_FALSE(added);
}

using Change = bool (*)(const std::string &, const std::string &, const std::string &);

TEST(ConfigChange, WhatIsInTheWayOfTheOldFileStops) {
    for (const Change change : {replace_in_config, add_to_config}) {
        const TempDir dir;
        const std::string path = dir.write("conf", "a=1\n");
        const std::string prev = path + ".prev";
        for (const bool pipe : {false, true}) {
            if (pipe) {
                ASSERT_EQ(mkfifo(prev.c_str(), 0600), 0);
            } else {
                std::filesystem::create_directory(prev);
            }
            bool changed = true;
            EXPECT_EQ(stderr_of([&] { changed = change(path, "a", "2"); }),
                      "pvrm: " + prev + " is in the way of the old file, and is no regular file\n");
            EXPECT_FALSE(changed);
            EXPECT_EQ(read_all(path), "a=1\n");
            EXPECT_TRUE(exists(prev));
            EXPECT_FALSE(exists(path + ".next"));
            std::filesystem::remove(prev);
        }
    }
}

TEST(ConfigChange, OldFileIsKeptInThePlaceOfALink) {
    for (const Change change : {replace_in_config, add_to_config}) {
        const TempDir dir;
        const std::string path = dir.write("conf", "a=1\n");
        const std::string other = dir.write("other", "other");
        std::filesystem::create_symlink(other, path + ".prev");
        EXPECT_TRUE(change(path, "a", "2"));
        EXPECT_NE(read_all(path), "a=1\n");
        EXPECT_EQ(read_all(path + ".prev"), "a=1\n");
        EXPECT_EQ(read_all(other), "other");
    }
}

TEST(ReplaceInConfig, ReplacesWhateverAKilledProcessLeft) {
    const TempDir dir;
    const std::string path = dir.write("conf", "a = 1\n# end", 0640);
    dir.write("conf.next", "left", 0600);
    dir.write("conf.next.next", "left", 0600);
    ASSERT_TRUE(replace_in_config(path, "a", "x y"));
    EXPECT_EQ(read_all(path), "a=x y\n# end");
    EXPECT_EQ(read_all(path + ".prev"), "a = 1\n# end");
    EXPECT_FALSE(exists(path + ".next"));
    EXPECT_FALSE(exists(path + ".next.next"));
    EXPECT_EQ(mode_of(path), 0640U);
}

TEST(ConfigLock, IsHeldByOneAtATime) {
    const TempDir dir;
    const std::string path = dir / "conf";
    {
        const config_lock first(path);
        EXPECT_TRUE(first.held());
        EXPECT_FALSE(config_lock(path).held());
    }
    EXPECT_TRUE(config_lock(path).held());
}
