// What the programs open of the files that a description refers to: nothing. The kernel reports
// each call, so that no library and no detour escapes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "faults/tracer.h"
#include "kit/capture.h"
#include "kit/package_maker.h"
#include "kit/references.h"
#include "package/vrf.h"
#include "support/ldif.h"

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr char index_file[] = "/var/cache/vrm/vrc-dirs.index";

std::vector<std::string> texts_of(const watched_run &run) {
    std::vector<std::string> texts;
    for (const operation &op : run.trace) {
        texts.push_back(text_of(op));
    }
    return texts;
}

int exit_status(const watched_run &run) {
    return WIFEXITED(run.status) ? WEXITSTATUS(run.status) : -1;
}

class ReferencesWatched : public testing::Test {
 protected:
    ReferencesWatched() {
        fs::create_directory(dir_ / "packages");
        make_package({.name = "good"}, dir_ / "packages/good.vrk");
        must_run("mkdir -p /usr/lib/vrm && cp " VRC_DIRS_SO " /usr/lib/vrm/");
        std::ofstream("/etc/vrm.conf")
            << "arch_name=x86_64\ndist_name=test\ndist_vers=1\nvrc_dirs=" << dir_ / "packages\n";
    }

    // A package file for each line that refers to the bait.
    std::vector<std::string> baited_packages() const {
        std::vector<std::string> files;
        for (const std::string &line : references_to(bait_)) {
            const std::string name = "evil" + std::to_string(files.size());
            files.push_back(dir_ / ("packages/" + name + ".vrk"));
            make_package({.name = name, .more = line}, files.back());
        }
        return files;
    }

    TempDir dir_;
    // In a directory of its own, of which nothing may be looked at either.
    const std::string bait_ = dir_.write("bait/secret", "the secret text\n");
    const std::vector<std::string> bait_place_ = {dir_ / "bait"};
};

}  // namespace

TEST_F(ReferencesWatched, AReaderThatFollowsThemIsSeen) {
    const watched_run run = run_watched(
        [this] {
            const std::string text = "evrkDescription:< file://" + bait_ + "\n";
            const own_ekva record(ldif2ekva(text.c_str(), 0));
            return record ? 0 : 1;
        },
        bait_place_);
    EXPECT_EQ(exit_status(run), 0) << run.output;
    EXPECT_THAT(texts_of(run), Contains("look into " + bait_));
}

TEST_F(ReferencesWatched, ParsingADescriptionOpensNothingAtAll) {
    const watched_run run = run_watched(
        [this] {
            int parsed = 0;
            for (const std::string &line : references_to(bait_)) {
                const std::string text = description_of({.more = line});
                for (const int mode : {1, 2, 3}) {
                    const own_vri info(vrk_info_parse("", mode, text.c_str(), line.c_str()));
                    parsed += info ? 1 : 0;
                }
            }
            return parsed;
        },
        {"/"});
    EXPECT_EQ(exit_status(run), 0) << run.output;
    EXPECT_THAT(texts_of(run), Not(Contains(HasSubstr("look into"))));
    const watched_run all = run_watched(
        [] {
            const std::string text = description_of({});
            return own_vri(vrk_info_parse("", 3, text.c_str(), nullptr)) ? 0 : 1;
        },
        {"/"});
    EXPECT_EQ(exit_status(all), 0) << all.output;
}

TEST_F(ReferencesWatched, ReadingAPackageFileOpensThatFileAlone) {
    for (const std::string &file : baited_packages()) {
        const watched_run run = run_watched(
            [&file] {
                const own_vri info(vrm_vrf_info(nullptr, file.c_str(), 1));
                return info || vrm_vrf_index(nullptr, file.c_str()) ? 1 : 0;
            },
            {dir_.path(), "/etc", "/var"});
        EXPECT_EQ(exit_status(run), 0) << run.output;
        for (const operation &op : run.trace) {
            EXPECT_EQ(op.path, file) << text_of(op);
        }
        EXPECT_THAT(texts_of(run), Contains("look into " + file));
    }
}

TEST_F(ReferencesWatched, ARefreshReadsThePackagesAndNothingTheyReferTo) {
    baited_packages();
    const std::string packages = dir_ / "packages";
    const watched_run run =
        run_watched({PVRM_PROGRAM, "refresh"}, {packages, bait_place_[0]}, nullptr);
    EXPECT_EQ(exit_status(run), 0) << run.output;
    EXPECT_THAT(texts_of(run), Contains("look into " + packages + "/evil0.vrk"));
    for (const operation &op : run.trace) {
        EXPECT_TRUE(op.path.starts_with(packages)) << text_of(op);
    }
    EXPECT_THAT(read_all(index_file), HasSubstr("good"));
    EXPECT_THAT(read_all(index_file), Not(HasSubstr("the secret")));
}

TEST_F(ReferencesWatched, ARefreshOpensNoFileThatIsTooLarge) {
    const std::string large = dir_ / "packages/large.vrk";
    make_package({.name = "large"}, large);
    fs::resize_file(large, uint64_t{1} << 31);
    for (int i = 0; i < 2; i++) {
        fs::remove("/var/log/pvrm.log");
        const watched_run run = run_watched({PVRM_PROGRAM, "refresh"}, {large}, nullptr);
        EXPECT_EQ(exit_status(run), 0) << run.output;
        EXPECT_THAT(texts_of(run), ElementsAre("stat " + large));
        EXPECT_THAT(read_all("/var/log/pvrm.log"), HasSubstr("too large: 2147483648 bytes"));
    }
}

TEST_F(ReferencesWatched, TheProgramsThatShowAPackageOpenNothingElse) {
    for (const std::string &file : baited_packages()) {
        for (const std::vector<std::string> &command : {
                 std::vector<std::string>{PVRM_PROGRAM, "info", file},
                 std::vector<std::string>{VRK_BUILD_PROGRAM, "show", file},
             }) {
            const watched_run run = run_watched(command, bait_place_, nullptr);
            EXPECT_EQ(exit_status(run), 1) << run.output;
            EXPECT_THAT(texts_of(run), IsEmpty()) << command[1] << " " << file;
            EXPECT_THAT(run.output, HasSubstr("another file"));
        }
    }
}

TEST_F(ReferencesWatched, AnInstallationOpensNothingElse) {
    const std::string file = baited_packages().front();
    const watched_run run =
        run_watched({PVRM_PROGRAM, "--yes", "install", file}, bait_place_, nullptr);
    EXPECT_EQ(exit_status(run), 1) << run.output;
    EXPECT_THAT(texts_of(run), IsEmpty());
    EXPECT_FALSE(exists("/var/lib/vrm/installed/evil0"));
}
