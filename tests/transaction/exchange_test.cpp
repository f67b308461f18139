#include "transaction/exchange.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "kit/capture.h"
#include "kit/log_capture.h"
#include "kit/swapped_file.h"
#include "kit/temp_dir.h"
#include "package/preserved_copy.h"

namespace {

class Exchange : public testing::Test {
 protected:
    const TempDir dir_;
    LogCapture log_;
    const std::string victim_ = dir_.write("victim", "root's\n");
    const std::string source_ = dir_.write("source", "the package's\n", 0755);
};

}  // namespace

TEST_F(Exchange, AFileThatIsWrittenBesideItsPlaceIsNotWrittenThroughALink) {
    ASSERT_EQ(chmod(victim_.c_str(), 0600), 0);
    const std::string target = dir_.write("theirs", "old\n");
    backup_tree backups(dir_ / "old", ".new");
    {
        const SwappedFile swapped(dir_ / ".new", victim_);
        backups.put(target, source_, backup_tree::source_use::stays);
        EXPECT_GT(SwappedFile::count(), 0);
    }
    EXPECT_EQ(read_all(victim_), "root's\n");
    struct stat status = {};
    ASSERT_EQ(stat(victim_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(Exchange, AFileThatIsPutBackIsNotWrittenThroughALink) {
    ASSERT_EQ(chmod(victim_.c_str(), 0600), 0);
    const std::string copy = dir_ / "copy";
    {
        const SwappedFile swapped(copy, victim_);
        copy_preserved(source_.c_str(), copy.c_str());
        EXPECT_GT(SwappedFile::count(), 0);
    }
    EXPECT_EQ(read_all(victim_), "root's\n");
    struct stat status = {};
    ASSERT_EQ(stat(victim_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(Exchange, AFileIsReplacedWhole) {
    const std::string target = dir_.write("target", "old\n", 0600);
    backup_tree backups(dir_ / "old", ".new");
    EXPECT_EQ(backups.put(target, source_, backup_tree::source_use::stays), 14);
    EXPECT_EQ(read_all(target), "the package's\n");
    EXPECT_EQ(read_all(dir_ / ("old" + target)), "old\n");
    struct stat status = {};
    ASSERT_EQ(stat(target.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0755u);
    EXPECT_NE(access((dir_ / ".new").c_str(), F_OK), 0);
}
