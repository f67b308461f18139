#include "faults/tree.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "kit/temp_dir.h"

namespace fs = std::filesystem;

TEST(TreeIsIn, TakesAPlaceAsAPathAndAStarAsABeginning) {
    EXPECT_TRUE(is_in({"/a/b"}, "/a/b"));
    EXPECT_TRUE(is_in({"/a/b"}, "/a/b/c"));
    EXPECT_FALSE(is_in({"/a/b"}, "/a/bc"));
    EXPECT_TRUE(is_in({"/x", "/a/b*"}, "/a/bc"));
    EXPECT_FALSE(is_in({"/a/b*"}, "/a/c"));
}

TEST(TreePutBack, UndoesWhateverHappenedInThePlaces) {
    const TempDir dir;
    dir.write("in/file", "content", 0640);
    dir.write("in/sub/other", "more");
    fs::create_symlink("file", dir / "in/link");
    dir.write("outside", "left alone");
    const std::vector<std::string> places = {dir / "in", dir / "part*"};
    const tree before = take_tree(places);
    EXPECT_EQ(before.size(), 5U);
    EXPECT_EQ(at(before, dir / "in/file")->mode, 0640U);
    EXPECT_EQ(at(before, dir / "in/link")->content, "file");

    fs::remove_all(dir / "in/sub");
    dir.write("in/sub", "a file now");
    dir.write("in/file", "changed", 0600);
    dir.write("part.1", "new");
    dir.write("outside", "changed");
    EXPECT_NE(take_tree(places), before);

    put_back(before, places);
    EXPECT_EQ(take_tree(places), before);
    EXPECT_EQ(read_all(dir / "outside"), "changed");
}

TEST(TreeWithoutTimes, TakesOnlyTheTimesOut) {
    const auto record = [](const char *time, const char *type) {
        return tree{
            {"/r/inst.txt",
             {'f', 0644,
              std::string("evrkInstallTime: ") + time + "\nevrkInstallType: " + type + "\n"}}};
    };
    EXPECT_EQ(without_times(record("1", "X")), without_times(record("22", "X")));
    EXPECT_NE(without_times(record("1", "X")), without_times(record("1", "D")));
    const auto log = [](const char *line) { return tree{{"/r/install.log", {'f', 0644, line}}}; };
    EXPECT_EQ(without_times(log("2001-01-01 00:00:00: installed a_any_1 as requested\n")),
              without_times(log("2002-02-02 11:11:11: installed a_any_1 as requested\n")));
    EXPECT_NE(without_times(log("2001-01-01 00:00:00: installed a_any_1 as requested\n")),
              without_times(log("2001-01-01 00:00:00: installed a_any_1 as requested")));
}
