// Package files damaged in every way that is cheap to try: whatever comes of it, the system is
// either as it was or holds one whole package more.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "kit/capture.h"
#include "kit/log_capture.h"
#include "kit/package_maker.h"
#include "kit/scripted_user.h"
#include "kit/test_repo.h"
#include "package/vrf.h"
#include "repository/inventory.h"
#include "transaction/install.h"
#include "transaction/plan_install.h"

namespace fs = std::filesystem;
using testing::IsEmpty;
using testing::Not;

namespace {

const std::string live = "/srv/t";
const std::string action_log = "/var/lib/vrm/install.log";

class DamagedPackage : public testing::Test {
 protected:
    DamagedPackage() {
        fs::remove_all(live);
        fs::remove(action_log);
        fs::create_directories("/var/lib/vrm");
        fs::create_directories(live);
        ScriptedUser::fresh();
        repo.handle()->locked = 1;
        PackageSpec other;
        other.name = "other";
        repo.install(other, {live + "/others"});
        std::ofstream(live + "/others") << "not to be touched\n";
    }
    ~DamagedPackage() override {
        repo.handle()->locked = 0;
    }

    // Tries to install a file as `damaged.vrk`; the result is whether that worked.
    bool install(const std::string &bytes) {
        std::ofstream(file, std::ios::binary) << bytes;
        bool done = false;
        stderr_of([&] {
            vrt *plan = nullptr;
            vrm_pre_install(repo.handle(), nullptr, file.c_str(), nullptr, nullptr, nullptr, &plan);
            const own_vrt owner(plan);
            done = plan && vrm_exe_install(repo.handle(), &plan, nullptr, 0, 0) == 0;
        });
        return done;
    }

    // The system is as it was before: the other package alone, and nothing in the history.
    void expect_untouched(const std::string &what) {
        EXPECT_EQ(names_in(live), std::set<std::string>{"others"}) << what;
        EXPECT_EQ(names_in(repo.in("installed")), std::set<std::string>{"other"}) << what;
        EXPECT_EQ(names_in(repo.in("fileindex")), std::set<std::string>{"other"}) << what;
        EXPECT_FALSE(exists(action_log)) << what;
        expect_other_sound(what);
    }

    void expect_other_sound(const std::string &what) {
        EXPECT_EQ(read_all(live + "/others"), "not to be touched\n") << what;
        EXPECT_TRUE(own_vri(vrm_vrl_info(repo.handle(), "other"))) << what;
    }

    // What is registered is the signed description of the package, whatever its head says.
    void expect_registered_as(const PackageSpec &spec, const std::string &what) {
        EXPECT_EQ(names_in(repo.in("installed")), (std::set<std::string>{"other", spec.name}))
            << what;
        EXPECT_EQ(read_all(repo.in("installed/" + spec.name + "/desc.txt")), description_of(spec))
            << what;
    }

    // After a success: two packages, each readable. Then all of the new one is taken away again.
    void expect_one_more_and_forget_it(const std::string &what) {
        vri **list = nullptr;
        EXPECT_EQ(vrm_list_vri(repo.handle(), nullptr, 0, &list), 2) << what;
        vrm_vri_list_free(list);
        expect_other_sound(what);
        for (const std::string &dir : {repo.in("installed"), repo.in("fileindex"), live}) {
            for (const std::string &name : names_in(dir)) {
                if (!name.starts_with("other")) {
                    fs::remove_all(dir + "/" + name);
                }
            }
        }
        fs::remove(action_log);
    }

    static std::set<std::string> names_in(const std::string &dir) {
        std::set<std::string> names;
        for (const auto &entry : fs::directory_iterator(dir)) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }

    static PackageSpec whole() {
        PackageSpec spec;
        spec.data["srv/t/foo"] = "file of foo\n";
        spec.conf["srv/t/foo.conf"] = "a=1\n";
        spec.dump["note"] = "n\n";
        spec.deps = {};
        return spec;
    }

    std::string bytes_of(const PackageSpec &spec) {
        make_package(spec, files / "whole.vrk");
        return read_all(files / "whole.vrk");
    }

    static size_t head_of(const std::string &bytes) {
        return 11 + std::stoul(bytes.substr(6, 5));
    }

    // Installs a package with what write_tree made, changed by the code given.
    bool install_tree(const PackageSpec &spec,
                      const std::function<void(const std::string &)> &change) {
        const TempDir tree;
        write_tree(spec, tree / "t");
        change(tree / "t");
        pack_tree(tree / "t", tree / "payload");
        std::string head = description_of(spec) + "evrkRsaSigSubj: " + Signer::standard().subject +
                           "\nevrkRsaSigData:: ";
        std::ofstream(tree / "sig", std::ios::binary) << Signer::standard().sign(tree / "payload");
        head += must_run("openssl base64 -A -in " + (tree / "sig")) + "\n";
        write_package(tree / "p.vrk", "EVRM20", head, tree / "payload");
        return install(read_all(tree / "p.vrk"));
    }

    TestRepo repo;
    TempDir files;
    const std::string file = files / "damaged.vrk";
    LogCapture log;
};

}  // namespace

TEST_F(DamagedPackage, WholeItInstalls) {
    ASSERT_TRUE(install(bytes_of(whole())));
    expect_one_more_and_forget_it("whole");
}

TEST_F(DamagedPackage, CutAnywhereItIsRefusedWithAMessage) {
    const std::string bytes = bytes_of(whole());
    const size_t head = head_of(bytes);
    std::mt19937 random(1);
    std::vector<size_t> lengths;
    for (size_t length = 0; length <= head; length++) {
        lengths.push_back(length);
    }
    for (int i = 0; i < 50; i++) {
        lengths.push_back(head + random() % (bytes.size() - head));
    }
    for (const size_t length : lengths) {
        log.clear();
        EXPECT_FALSE(install(bytes.substr(0, length))) << length;
        EXPECT_THAT(log.at(LEVEL_ERROR), Not(IsEmpty())) << "cut at " << length;
        expect_untouched("cut at " + std::to_string(length));
        if (HasFailure()) {
            break;
        }
    }
}

TEST_F(DamagedPackage, AnyByteOfTheHeadChangedIsRefusedOrInstalledWhole) {
    const std::string bytes = bytes_of(whole());
    const size_t head = head_of(bytes);
    std::mt19937 random(2);
    int installed = 0;
    for (size_t i = 0; i < head; i++) {
        std::string changed = bytes;
        do {
            changed[i] = static_cast<char>(random() & 255);
        } while (changed[i] == bytes[i]);
        if (install(changed)) {
            installed++;
            expect_registered_as(whole(), "byte " + std::to_string(i));
            expect_one_more_and_forget_it("byte " + std::to_string(i));
        } else {
            expect_untouched("byte " + std::to_string(i));
        }
        if (HasFailure()) {
            break;
        }
    }
    // The head is covered by no signature, so changes that mean nothing go through, such as one of
    // an attribute that is not known.
    EXPECT_GT(installed, 0);
}

TEST_F(DamagedPackage, AnyByteOfThePayloadChangedIsRefused) {
    const std::string bytes = bytes_of(whole());
    const size_t head = head_of(bytes);
    std::mt19937 random(3);
    for (int i = 0; i < 100; i++) {
        std::string changed = bytes;
        const size_t at = head + random() % (bytes.size() - head);
        changed[at] = static_cast<char>(changed[at] ^ (1 << random() % 8));
        EXPECT_FALSE(install(changed)) << at;
        expect_untouched("payload byte " + std::to_string(at));
    }
    EXPECT_THAT(log.at(LEVEL_ERROR), testing::Contains("Failure verifiying package signature"));
}

TEST_F(DamagedPackage, DeviceInTheDataIsRefused) {
    EXPECT_FALSE(install_tree(whole(), [](const std::string &tree) {
        ASSERT_EQ(mknod((tree + "/data/srv/t/null").c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
    }));
    expect_untouched("device");
    EXPECT_THAT(log.at(LEVEL_ERROR), Not(IsEmpty()));
}

TEST_F(DamagedPackage, FifoInTheDataIsRefusedAndNeverBlocks) {
    EXPECT_FALSE(install_tree(whole(), [](const std::string &tree) {
        ASSERT_EQ(mkfifo((tree + "/data/srv/t/fifo").c_str(), 0666), 0);
    }));
    expect_untouched("fifo");
    EXPECT_THAT(log.at(LEVEL_ERROR), Not(IsEmpty()));
}

TEST_F(DamagedPackage, DanglingLinkInTheDataIsRefused) {
    EXPECT_FALSE(install_tree(whole(), [](const std::string &tree) {
        fs::create_symlink("/nowhere", tree + "/data/srv/t/dangling");
    }));
    expect_untouched("dangling link");
    EXPECT_THAT(log.at(LEVEL_ERROR), Not(IsEmpty()));
}

TEST_F(DamagedPackage, LinkToAFileIsFollowed) {
    PackageSpec spec = whole();
    spec.data["srv/t/target"] = "content\n";
    spec.data["srv/t/link"] = "content\n";  // for its line in the hash list
    EXPECT_TRUE(install_tree(spec, [](const std::string &tree) {
        fs::remove(tree + "/data/srv/t/link");
        fs::create_symlink("target", tree + "/data/srv/t/link");
    }));
    EXPECT_EQ(read_all(live + "/link"), "content\n");
    EXPECT_FALSE(fs::is_symlink(live + "/link"));
    expect_one_more_and_forget_it("link");
}

TEST_F(DamagedPackage, HardLinksAreInstalledAsFiles) {
    PackageSpec spec = whole();
    spec.data["srv/t/first"] = "content\n";
    spec.data["srv/t/second"] = "content\n";
    EXPECT_TRUE(install_tree(spec, [](const std::string &tree) {
        fs::remove(tree + "/data/srv/t/second");
        fs::create_hard_link(tree + "/data/srv/t/first", tree + "/data/srv/t/second");
    }));
    EXPECT_EQ(read_all(live + "/first"), "content\n");
    EXPECT_EQ(read_all(live + "/second"), "content\n");
    expect_one_more_and_forget_it("hard link");
}

TEST_F(DamagedPackage, HashListOfGarbageIsRefused) {
    PackageSpec spec = whole();
    for (const std::string &garbage :
         {std::string("garbage\n"), std::string(5000, 'x'),
          std::string("\0\0\0\0", 4) + std::string(60, '\0'), std::string(40, 'z') + ":srv/t/foo\n",
          std::string("\n\n\n"), std::string()}) {
        spec.hash_lists["data"] = garbage;
        log.clear();
        EXPECT_FALSE(install(bytes_of(spec))) << garbage.substr(0, 50);
        expect_untouched("hash list");
        EXPECT_THAT(log.at(LEVEL_ERROR), Not(IsEmpty()));
        fs::remove_all(repo.in("stagearea/foo_any_1.0"));
    }
}

TEST_F(DamagedPackage, LongestDescriptionInstalls) {
    PackageSpec spec = whole();
    const std::string plain = bytes_of(spec);
    // The signature takes its room in the head, and what is folded takes a little more.
    const size_t room = 99999 - (head_of(plain) - 11);
    spec.more = "x-filler: " + std::string(room - 11, 'x') + "\n";
    const std::string bytes = bytes_of(spec);
    ASSERT_EQ(head_of(bytes), 11u + 99999u);
    ASSERT_TRUE(install(bytes));
    expect_one_more_and_forget_it("long description");
}

TEST_F(DamagedPackage, GarbageInTheStoreTrustsNobody) {
    const std::string bytes = bytes_of(whole());
    std::string certificate;
    for (const auto &entry : fs::directory_iterator(repo.in("certstore"))) {
        certificate = entry.path().string();
    }
    const std::string good = read_all(certificate);
    for (const std::string &garbage :
         {std::string(), std::string("garbage\n"), good.substr(0, good.size() / 2),
          std::string("-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n"),
          std::string(100000, '\0')}) {
        std::ofstream(certificate, std::ios::binary) << garbage;
        EXPECT_FALSE(install(bytes));
        expect_untouched("store");
    }
    fs::remove(certificate);
    fs::create_directory(certificate);
    EXPECT_FALSE(install(bytes));
    expect_untouched("store with a directory");
    fs::remove(certificate);
    std::ofstream(certificate) << good;
    std::ofstream(repo.in("certstore/00000000.crt")) << "garbage of nobody's\n";
    EXPECT_TRUE(install(bytes));
}
