// What depends on who asks, and on the fixed path of the index.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include "backends/backend_kit.h"
#include "kit/log_capture.h"
#include "kit/temp_dir.h"

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char default_index[] = "/var/cache/vrm/vrc-dirs.index";
constexpr uid_t user = 4321;
constexpr uid_t other_user = 4322;

class VrcDirsAsRoot : public testing::Test {
 protected:
    VrcDirsAsRoot() {
        fs::remove_all("/var/cache/vrm");
        fs::permissions(dir_.path(), fs::perms{0755});
        fs::create_directory(dir_ / "packages");
        fs::permissions(dir_ / "packages", fs::perms{0755});
        write_head(dir_ / "packages/a.vrk", "a", "1", "");
        fs::permissions(dir_ / "packages/a.vrk", fs::perms{0644});
    }
    std::string packages() const {
        return dir_ / "packages";
    }
    // Whether a check holds for a user.
    static bool holds_for(uid_t uid, const std::function<bool()> &check) {
        const pid_t child = fork();
        if (child == 0) {
            if (setgid(uid) != 0 || setuid(uid) != 0) {
                _exit(2);
            }
            _exit(check() ? 0 : 1);
        }
        int status = 0;
        return waitpid(child, &status, 0) == child && status == 0;
    }

    TempDir dir_;
    LogCapture log_;
    LoadedBackend backend_;
};

}  // namespace

TEST_F(VrcDirsAsRoot, KeepsItsIndexInTheSystemsCache) {
    {
        const Connection connection(packages(), "");
        ASSERT_EQ(connection.refresh(), 0);
    }
    EXPECT_TRUE(fs::is_regular_file(default_index));
    const Connection connection(packages(), "");
    EXPECT_THAT(connection.names(), ElementsAre("a 1"));
}

TEST_F(VrcDirsAsRoot, AnIndexOfAnotherUserIsRefused) {
    {
        const Connection connection(packages(), "");
        ASSERT_EQ(connection.refresh(), 0);
    }
    ASSERT_EQ(chown(default_index, user, user), 0);
    const Connection connection(packages(), "");
    EXPECT_THAT(connection.names(), IsEmpty());
    EXPECT_TRUE(log_.has(LEVEL_WARNING,
                         std::string("vrc-dirs: not using the index ") + default_index +
                             ": it is not a file that only root or the caller can write to"));
    EXPECT_TRUE(holds_for(other_user, [&] {
        return Connection(packages(), "").names() == std::vector<std::string>();
    }));
    EXPECT_TRUE(holds_for(user, [&] {
        return Connection(packages(), "").names() == std::vector<std::string>{"a 1"};
    }));
}

TEST_F(VrcDirsAsRoot, AUserStartsWithRootsIndexAndGoesOnFromMemory) {
    {
        const Connection connection(packages(), "");
        ASSERT_EQ(connection.refresh(), 0);
    }
    const std::string before = read_all(default_index);
    write_head(dir_ / "packages/b.vrk", "b", "1", "");
    fs::permissions(dir_ / "packages/b.vrk", fs::perms{0644});
    EXPECT_TRUE(holds_for(user, [&] {
        const Connection connection(packages(), "");
        return connection.names() == std::vector<std::string>{"a 1"} && connection.refresh() == 0 &&
               connection.names() == std::vector<std::string>{"a 1", "b 1"};
    }));
    EXPECT_EQ(read_all(default_index), before);
}

// A user who may not write there expects nothing else; what root refreshed is lost with the
// process.
TEST_F(VrcDirsAsRoot, ReportsToRootAloneThatTheIndexCannotBeKept) {
    const std::string cache = dir_ / "file/cache";
    dir_.write("file", "no directory");
    Connection connection(packages(), cache);
    ASSERT_EQ(connection.refresh(), 0);
    EXPECT_THAT(connection.reports(),
                testing::ElementsAre("warning: " + cache + ": cannot keep the index in " + cache +
                                     ", working from memory: Not a directory"));
    EXPECT_TRUE(holds_for(user, [&] {
        Connection users(packages(), cache);
        return users.refresh() == 0 && users.reports().empty();
    }));
}

// A file without permission is skipped, and is not taken for a damaged one from then on.
TEST_F(VrcDirsAsRoot, AFileWithoutPermissionIsReadOnceItMay) {
    fs::permissions(dir_ / "packages/a.vrk", fs::perms{0600});
    const std::string mine = dir_ / "mine";
    fs::create_directory(mine);
    ASSERT_EQ(chown(mine.c_str(), user, user), 0);
    EXPECT_TRUE(holds_for(user, [&] {
        const Connection connection(packages(), mine);
        return connection.refresh() == 0 && connection.names().empty();
    }));
    EXPECT_TRUE(fs::is_regular_file(mine + "/vrc-dirs.index"));
    fs::permissions(dir_ / "packages/a.vrk", fs::perms{0644});
    EXPECT_TRUE(holds_for(user, [&] {
        const Connection connection(packages(), mine);
        return connection.refresh() == 0 && connection.names() == std::vector<std::string>{"a 1"};
    }));
}

TEST_F(VrcDirsAsRoot, ADirectoryWithoutPermissionIsALine) {
    fs::create_directory(dir_ / "closed");
    fs::permissions(dir_ / "closed", fs::perms{0700});
    EXPECT_TRUE(holds_for(user, [&] {
        const Connection connection(dir_ / "closed" + "," + packages(), dir_ / "none");
        return connection.refresh() == 0 && connection.names() == std::vector<std::string>{"a 1"};
    }));
    EXPECT_TRUE(
        holds_for(user, [&] { return Connection(dir_ / "closed", dir_ / "none").refresh() != 0; }));
}
