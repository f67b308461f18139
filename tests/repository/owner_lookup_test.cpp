#include "repository/owner_lookup.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "kit/log_capture.h"
#include "kit/test_repo.h"
#include "repository/inventory.h"

namespace {

namespace fs = std::filesystem;

// A few files and indexes; what one lookup says of all of them must be what asking for each says.
class OwnerLookup : public testing::Test {
 protected:
    OwnerLookup() {
        for (const char *name : {"a", "b", "shared", "nobodys"}) {
            dir_.write(name, "x");
        }
        fs::create_symlink(dir_ / "b", dir_ / "link");
        fs::create_symlink(dir_ / "nowhere", dir_ / "dangling");
        index("one", (dir_ / "a") + "\n" + (dir_ / "shared") + "\n");
        index("two", "\n" + (dir_ / "shared") + "\n" + (dir_ / "b"));  // no line end at the end
        index(".two.old", (dir_ / "nobodys") + "\n");
        index("long", std::string(4096, 'x') + (dir_ / "nobodys") + "\n");
    }
    void index(const std::string &name, const std::string &lines) {
        repo_.dir().write("repo/fileindex/" + name, lines);
    }
    static std::string text(const own_string &owner) {
        return owner ? owner.get() : "-";
    }
    std::vector<std::string> paths() const {
        return {dir_ / "a",    dir_ / "b",        dir_ / "shared", dir_ / "nobodys",
                dir_ / "link", dir_ / "dangling", dir_ / "gone",   dir_ / "a"};
    }
    // Owners and log lines, by one road and by the other.
    void expect_the_same() {
        log_.clear();
        std::vector<std::string> single;
        for (const std::string &path : paths()) {
            single.push_back(text(own_string(vrm_file_owner(repo_.handle(), path.c_str()))));
        }
        const std::vector<LogCapture::Line> single_lines = log_.lines();
        log_.clear();
        std::vector<std::string> together;
        owner_lookup owners(repo_.handle());
        for (const std::string &path : paths()) {
            together.push_back(text(owners.owner(path.c_str())));
        }
        EXPECT_EQ(together, single);
        EXPECT_TRUE(log_.lines() == single_lines);
    }

    TempDir dir_;
    TestRepo repo_;
    LogCapture log_;
};

}  // namespace

TEST_F(OwnerLookup, NamesTheOwners) {
    llog->file_levels = LEVEL_ERROR | LEVEL_WARNING | LEVEL_INFO;
    owner_lookup owners(repo_.handle());
    EXPECT_EQ(text(owners.owner((dir_ / "a").c_str())), "one");
    EXPECT_EQ(text(owners.owner((dir_ / "b").c_str())), "two");
    EXPECT_EQ(text(owners.owner((dir_ / "link").c_str())), "two");
    EXPECT_EQ(text(owners.owner((dir_ / "dangling").c_str())), "-");
    EXPECT_EQ(text(owners.owner((dir_ / "gone").c_str())), "-");
    // A line counts in pieces of 4096 characters.
    EXPECT_EQ(text(owners.owner((dir_ / "nobodys").c_str())), "long");
}

TEST_F(OwnerLookup, SaysWhatAskingForEachSays) {
    expect_the_same();  // every level is taken
    llog->file_levels = LEVEL_ERROR | LEVEL_WARNING | LEVEL_INFO;
    expect_the_same();
    EXPECT_TRUE(log_.has(LEVEL_INFO, (dir_ / "link") + " is a symbolic link to " + (dir_ / "b")));
    EXPECT_TRUE(
        log_.has(LEVEL_ERROR, (dir_ / "dangling") + " is a symbolic link, but cannot be resolved"));
    EXPECT_TRUE(log_.has(LEVEL_ERROR,
                         "Failure opening <" + (dir_ / "gone") + ">: No such file or directory"));
}

TEST_F(OwnerLookup, ComplainsOfAnIndexInEachSearchThatComesToIt) {
    // The superuser can read everything, so this goes on as another user.
    ASSERT_EQ(geteuid(), 0U) << "the tests are run as root";
    fs::permissions(repo_.in("fileindex/one"), fs::perms::none);
    for (const std::string &open :
         {dir_.path(), repo_.dir().path(), fs::path(llog->file).parent_path().string()}) {
        ASSERT_EQ(chmod(open.c_str(), 0777), 0);
    }
    llog->file_levels = LEVEL_ERROR | LEVEL_WARNING | LEVEL_INFO;
    ASSERT_EQ(seteuid(65534), 0);
    expect_the_same();
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "Failure opening <one> for reading: Permission denied"));
    ASSERT_EQ(seteuid(0), 0);
}

TEST_F(OwnerLookup, MissingDirectoryIsComplainedOfEachTime) {
    fs::remove_all(repo_.in("fileindex"));
    llog->file_levels = LEVEL_ERROR | LEVEL_WARNING | LEVEL_INFO;
    expect_the_same();
    EXPECT_TRUE(log_.has(LEVEL_ERROR, "Failure opening <" + repo_.in("fileindex") +
                                          "> for reading: No such file or directory"));
}

TEST_F(OwnerLookup, OwnersOfPlacesAreFoundHoweverAnIndexSpellsThem) {
    fs::create_directory(dir_ / "real");
    fs::create_directory_symlink("real", dir_ / "alias");
    index("three", (dir_ / "alias/x") + "\n" + (dir_ / "real/../alias//y") + "\n");
    const std::string real = fs::canonical(dir_ / "real").string();
    const auto owners =
        owners_of_places(repo_.handle(), {real + "/x", real + "/y", real + "/z", dir_ / "a"});
    EXPECT_EQ(owners, (std::unordered_map<std::string, std::string>{
                          {real + "/x", "three"}, {real + "/y", "three"}, {dir_ / "a", "one"}}));
    EXPECT_TRUE(owners_of_places(repo_.handle(), {}).empty());
}
