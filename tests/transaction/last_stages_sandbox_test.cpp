// What is done once a change can't fail any more: whatever fails of it, the change counts as done,
// the rest of it is done, and a recovery does what is missing.
#include <optional>
#include <regex>
#include <set>

#include "kit/event_receiver.h"
#include "kit/failing_memory.h"
#include "kit/failing_new.h"
#include "transaction/change_cases.h"
#include "transaction/recover_change.h"

using testing::ElementsAre;
using testing::IsSupersetOf;

namespace {

class LastStage : public CaseOfChange {
 protected:
    LastStage() {
        put("/sbin/ldconfig.new", "#!/bin/sh\necho ran >>/srv/t/ldconfig\n");
        chmod("/sbin/ldconfig.new", 0755);
        fs::rename("/sbin/ldconfig.new", "/sbin/ldconfig");
    }

    // With something for each of the last stages to do.
    void prepare_rich(operation what) {
        PackageSpec old = rich("1.0"), fresh = rich(what == operation::update ? "2.0" : "1.0");
        old.info["link.txt"] += "/srv/t|foo|left\n";
        fresh.init["99-cfg.sh"] = "echo configured >>/srv/t/configured\n";
        prepare(what, old, fresh);
        fs::remove(action_log);
        fs::remove(live + "/configured");
        fs::remove(live + "/ldconfig");
        // With an open journal nothing of it would be finished.
        ASSERT_FALSE(is_record_left());
    }

    // The packages and their files. How often ldconfig runs does not matter, and what has a dot in
    // front is for a cleanup.
    std::map<std::string, std::string> end_state() {
        std::map<std::string, std::string> all;
        for (const std::string &directory : {live, repo.in("installed"), repo.in("fileindex")}) {
            all.merge(all_of(directory));
        }
        for (auto &[path, content] : all) {
            if (path.ends_with("/inst.txt")) {
                content = std::regex_replace(content, std::regex("[0-9]{9,}"), "TIME");
            }
        }
        std::erase_if(all, [](const auto &one) {
            return one.first == live + "/ldconfig" || one.first.find("/.") != std::string::npos;
        });
        return all;
    }

    // Recovers, if there is something to recover.
    void recover() {
        if (is_record_left()) {
            EXPECT_GE(vrm_recover_change(repo.handle()), 0);
        }
        EXPECT_FALSE(is_record_left());
    }

    bool is_stage_left() {
        return exists(staged(what_ == operation::update ? "foo_any_2.0" : "foo_any_1.0"));
    }

    // The log line after which the change is soon done.
    std::string line_before_the_end() const {
        switch (what_) {
            case operation::install:
                return "vrm_install_vrk: Writing fileindex";
            case operation::update:
                return "New fileindex name";
            default:
                return "vrm_one_delete: rc of vrm_vrf_links";
        }
    }
};

// A directory that can be neither moved nor removed nor replaced.
class FixedDirectory {
 public:
    explicit FixedDirectory(std::string path) : path_(std::move(path)) {
        fs::create_directories(path_);
        EXPECT_EQ(mount(path_.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr), 0)
            << strerror(errno);
    }
    ~FixedDirectory() {
        umount(path_.c_str());
    }
    FixedDirectory(const FixedDirectory &) = delete;
    FixedDirectory &operator=(const FixedDirectory &) = delete;

 private:
    const std::string path_;
};

class LastStages : public LastStage, public testing::WithParamInterface<operation> {};

}  // namespace

TEST_F(LastStage, AnEntryThatCannotBeEnteredIsLeftToARecovery) {
    for (const operation what : {operation::install, operation::update}) {
        prepare(what, plain("1.0"), with_file(plain("2.0"), "srv/t/libfoo.so.2"));
        fs::remove(action_log);
        fs::remove(live + "/ldconfig");
        {
            const FixedDirectory entry(repo.in("installed/foo"));
            EXPECT_EQ(change(), 0);
        }
        EXPECT_THAT(log.at(LEVEL_WARNING), testing::SizeIs(1));
        EXPECT_EQ(version_of("foo"), what == operation::install ? "none" : "1.0");
        EXPECT_EQ(history().size(), 1U) << "the change is done";
        EXPECT_TRUE(exists(live + "/ldconfig")) << "the other stages still run";
        EXPECT_FALSE(is_stage_left());
        EXPECT_TRUE(is_record_left());
        recover();
        EXPECT_EQ(version_of("foo"), "2.0");
        EXPECT_THAT(read_all(repo.in("fileindex/foo")), testing::HasSubstr("libfoo.so.2\n"));
        EXPECT_EQ(history().size(), 1U);
        expect_no_leftovers();
        fs::remove_all(repo.in("installed/foo"));
        fs::remove(repo.in("fileindex/foo"));
        fs::remove_all(live);
        fs::create_directories(live);
    }
}

TEST_F(LastStage, AnEntryThatCannotGoIsNoPackageAnyMore) {
    prepare(operation::removal, plain("1.0"), {});
    fs::remove(action_log);
    {
        const FixedDirectory entry(repo.in("installed/foo"));
        EXPECT_EQ(change(), 0);
    }
    EXPECT_FALSE(is_installed("foo"));
    EXPECT_FALSE(exists(live + "/foo"));
    EXPECT_FALSE(exists(repo.in("fileindex/foo")));
    EXPECT_FALSE(is_stage_left());
    EXPECT_THAT(history(), ElementsAre("deleted foo_any_1.0 as requested by user"));
    recover();
}

TEST_F(LastStage, AScriptThatCannotBeNotedIsRunByARecovery) {
    prepare_rich(operation::update);
    const EventReceiver receiver([](const event &happened) {
        if (happened.kind == event_kind::configuration_lost) {
            strdups_left = -1;
        }
    });
    {
        const AtLogLine failing("vrm_update_vrk: calling ldconfig", [] { strdups_left = 0; });
        EXPECT_EQ(change(), 0);
        EXPECT_TRUE(failing.reached());
    }
    EXPECT_EQ(strdups_left, -1);
    EXPECT_FALSE(exists(live + "/configured"));
    EXPECT_EQ(version_of("foo"), "2.0");
    EXPECT_FALSE(is_stage_left());
    expect_no_leftovers();
    EXPECT_TRUE(is_record_left());
    recover();
    EXPECT_EQ(read_all(live + "/configured"), "configured\n");
}

// Every second block of memory from shortly ahead of the commit until the success is reported: the
// change is done in full, at the latest by a recovery, or failed.
TEST_P(LastStages, AreFinishedWhateverMemoryFails) {
    prepare_rich(GetParam());
    const Snapshot all(changed_directories());
    ASSERT_EQ(change(), 0);
    forget_hooks();
    const auto after = end_state();

    std::set<std::string> failed;
    bool was_had = false;
    const EventReceiver receiver([&](const event &happened) {
        switch (happened.kind) {
            case event_kind::change_memory_exhausted:
                failed.emplace(happened.other);
                break;
            case event_kind::installed:
            case event_kind::updated:
            case event_kind::removed:
                was_had = FailingNew::is_armed();
                FailingNew::fail_nth(-1);
                break;
            default:
                break;
        }
    });
    for (int block = 0;; block += 2) {
        all.restore();
        fs::remove(action_log);
        plan_anew();
        int code = -1000;
        {
            const AtLogLine failing(line_before_the_end(), [&] { FailingNew::fail_nth(block); });
            code = change();
        }
        FailingNew::fail_nth(-1);
        forget_hooks();
        const std::string what = "block " + std::to_string(block);
        recover();
        if (code == 0 || !history().empty()) {
            EXPECT_EQ(end_state(), after) << what;
        } else {
            EXPECT_EQ(version_of("foo"), what_ == operation::install ? "none" : "1.0") << what;
        }
        if (was_had) {
            break;
        }
    }
    // That it reached from the commit to the last stage of an update.
    std::set<std::string> expected = {"commit"};
    if (what_ == operation::update) {
        expected.insert("old side");
    }
    EXPECT_THAT(failed, IsSupersetOf(expected));
}

INSTANTIATE_TEST_SUITE_P(, LastStages,
                         testing::Values(operation::install, operation::update, operation::removal),
                         [](const auto &one) { return std::string(name_of(one.param)); });
