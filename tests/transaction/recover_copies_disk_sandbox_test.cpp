// Recovery where what is saved can't be a second name of a file: it is a copy then.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>

#include "faults/disk.h"
#include "transaction/cut_off_fixture.h"
#include "transaction/record.h"
#include "transaction/removal.h"
#include "transaction/touched.h"

namespace {

class CutOffChangeWithCopies : public CutOffChange {
 protected:
    ~CutOffChangeWithCopies() override {
        while (umount2(place.c_str(), MNT_DETACH) == 0) {
        }
    }

    PackageSpec with_file(const std::string &version, const std::string &text) {
        PackageSpec spec = foo1;
        spec.version = version;
        spec.data[place.substr(1) + below] = text;
        return spec;
    }

    // Changes the record as if a file had had its present inode before the change.
    void give_recorded_inode(const std::string &path) {
        struct stat is = {};
        ASSERT_EQ(stat(path.c_str(), &is), 0);
        const std::string file = repo.in("change/record"), text = read_all(file);
        std::string changed = text.substr(0, text.find('\n') + 1);
        for (const record_entry &entry : parse_record(text).entries) {
            record_entry copy(entry.kind());
            for (const auto &[name, value] : entry.values()) {
                kept_path kept = {0, S_IFREG | 0755, 0, 0, is.st_dev, is.st_ino, path};
                const bool is_it = name == "kept" && value.ends_with(" " + path);
                copy.add(name.c_str(), is_it ? kept.text() : value);
            }
            changed += copy.text();
        }
        ASSERT_NE(changed, text);
        put(file, changed);
    }

    // Where the update dies: once every file of the new version is in its place.
    const std::string late = "Registering foo";
    const std::string place = live + "/place";
    std::string below;
};

}  // namespace

TEST_F(CutOffChangeWithCopies, AMountPointThatWasWrittenOverIsPutBack) {
    install_now(with_file("1.0", "old\n"));
    // Over a file with the mode and the size of the new one.
    const std::string outside = "/srv/outside";
    put(outside, "own\n");
    ASSERT_EQ(chmod(outside.c_str(), 0640), 0);
    ASSERT_EQ(mount(outside.c_str(), place.c_str(), nullptr, MS_BIND, nullptr), 0);
    ASSERT_TRUE(cut_off(late, [&] { return update(with_file("2.0", "new\n")); }));
    EXPECT_EQ(read_all(place), "new\n") << "it was not written over";
    EXPECT_EQ(recover(), 1);
    EXPECT_EQ(read_all(place), "own\n");
    EXPECT_EQ(mode_of(place), 0640u);
    expect_nothing_left();
    EXPECT_EQ(read_all(outside), "own\n");
    ASSERT_EQ(umount2(place.c_str(), 0), 0);
    EXPECT_EQ(read_all(place), "old\n");
}

TEST_F(CutOffChangeWithCopies, FilesWhoseInodesHaveNewNumbersArePutBack) {
    below = "/vmlinuz";
    const std::string disk = "/srv/disk", kernel = place + below;
    make_file_system(format_named("ext4"), disk);
    fs::create_directory(place);
    {
        const mounted_disk before(format_named("ext4"), disk, place);
        install_now(with_file("1.0", "old\n"));
        ASSERT_TRUE(cut_off(late, [&] { return update(with_file("2.0", "new\n")); }));
    }
    // As on vfat after a boot, at which the numbers begin anew. Not every kernel has that.
    const mounted_disk after(format_named("ext4"), disk, place);
    give_recorded_inode(kernel);
    EXPECT_EQ(read_all(kernel), "new\n");
    EXPECT_EQ(recover(), 1);
    EXPECT_EQ(read_all(kernel), "old\n");
    EXPECT_THAT(tree(place), testing::ElementsAre("lost+found/", "vmlinuz"));
    expect_nothing_left();
}

// A file or directory that nobody may change, as long as the object exists.
class Immutable {
 public:
    explicit Immutable(std::string path, int flag = FS_IMMUTABLE_FL) : path_(std::move(path)) {
        EXPECT_TRUE(set(flag)) << path_ << ": " << strerror(errno);
    }
    ~Immutable() {
        set(0);
    }
    Immutable(const Immutable &) = delete;
    Immutable &operator=(const Immutable &) = delete;

 private:
    bool set(int flag) {
        const own_fd file(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
        int flags = 0;
        if (!file.valid() || ioctl(file.get(), FS_IOC_GETFLAGS, &flags) != 0) {
            return false;
        }
        flags = (flags & ~(FS_IMMUTABLE_FL | FS_APPEND_FL)) | flag;
        return ioctl(file.get(), FS_IOC_SETFLAGS, &flags) == 0;
    }

    const std::string path_;
};

TEST_F(CutOffChangeWithCopies, WhatIsImmutableIsRefusedBeforeAnythingIsTouched) {
    const std::string disk = "/srv/disk";
    make_file_system(format_named("ext4"), disk);
    fs::create_directory(place);
    const mounted_disk mounted(format_named("ext4"), disk, place);
    fs::create_directories(place + "/dir");
    PackageSpec before = foo1, after = foo2;
    before.data["srv/t/place/a"] = "old\n";
    before.data["srv/t/place/dir/b"] = "old\n";
    before.conf["srv/t/place/conf"] = "old\n";
    before.conf["srv/t/place/edited"] = "old\n";
    after.data["srv/t/place/dir/b"] = "new\n";
    after.conf["srv/t/place/conf"] = "new\n";
    after.conf["srv/t/place/edited"] = "new\n";
    install_now(before);
    put(place + "/edited", "edited\n");
    const auto all = tree(live);
    const std::pair<std::string, int> cases[] = {{"/a", FS_IMMUTABLE_FL},
                                                 {"/dir/b", FS_IMMUTABLE_FL},
                                                 {"/dir/b", FS_APPEND_FL},
                                                 {"/dir", FS_IMMUTABLE_FL},
                                                 {"/conf", FS_IMMUTABLE_FL}};
    for (const auto &[path, flag] : cases) {
        const Immutable immutable(place + path, flag);
        log.clear();
        EXPECT_EQ(update(after), -1) << path;
        EXPECT_THAT(log.at(LEVEL_ERROR),
                    testing::Contains("vrm_update_vrk: " + place + path +
                                      " is immutable or append-only, not going on"))
            << path;
        EXPECT_FALSE(log.has(LEVEL_DEBUG, "vrm_update_vrk: rollback")) << path;
        EXPECT_EQ(tree(live), all) << path;
        EXPECT_EQ(read_all(place + "/dir/b"), "old\n") << path;
        EXPECT_EQ(version_of("foo"), "1.0") << path;
        expect_nothing_left();
    }
    {
        const Immutable immutable(place + "/a");
        log.clear();
        const own_vri installed(vrm_vrl_info(repo.handle(), "foo"));
        EXPECT_EQ(vrm_one_delete(repo.handle(), installed.get()), -1);
        EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_one_delete: " + place +
                                             "/a is immutable or append-only, not going on"));
        EXPECT_EQ(tree(live), all);
        expect_nothing_left();
    }
    // What is left alone anyway.
    const Immutable immutable(place + "/edited");
    EXPECT_EQ(update(after), 0);
    EXPECT_EQ(read_all(place + "/edited"), "edited\n");
    EXPECT_EQ(read_all(place + "/conf"), "new\n");
}

TEST_F(CutOffChangeWithCopies, AFileThatWasNotTouchedStaysTheSame) {
    below = "/file";
    fs::create_directory(place);
    ASSERT_EQ(mount("tmpfs", place.c_str(), "tmpfs", 0, nullptr), 0);
    install_now(with_file("1.0", "old\n"));
    struct stat before = {}, after = {};
    ASSERT_EQ(stat((place + below).c_str(), &before), 0);
    ASSERT_TRUE(cut_off("vrm_update_vrk: Processing add_files[0]",
                        [&] { return update(with_file("2.0", "new\n")); }));
    EXPECT_EQ(recover(), 1);
    ASSERT_EQ(stat((place + below).c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(read_all(place + below), "old\n");
    expect_nothing_left();
}
