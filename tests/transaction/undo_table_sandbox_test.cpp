// What a change leaves that failed in one of its stages: the stage directory, the files of the live
// system and the registration, as the table of the stages has it.
#include <map>
#include <set>

#include "kit/event_receiver.h"
#include "kit/failing_memory.h"
#include "kit/failing_new.h"
#include "transaction/change_cases.h"

using testing::IsEmpty;

namespace {

// What is left of the stage directory; the rest is as before in all stages.
enum class stage_directory { none, stays, any };

stage_directory left_by(const std::string &stage) {
    // A package that can't be proven is left for a look at it. What becomes of the directory of a
    // removal that can't be made is not promised.
    return stage == "unpack"    ? stage_directory::stays
           : stage == "backups" ? stage_directory::any
                                : stage_directory::none;
}

class UndoTable : public CaseOfChange {
 protected:
    // What is to be as before.
    struct state {
        std::map<std::string, std::string> files, entries, indexes;
    };
    state present_state() {
        return {all_of(live), all_of(repo.in("installed")), all_of(repo.in("fileindex"))};
    }

    // New configuration files and new links stay, as a user may have noticed them.
    void expect_taken_back(const state &before, const std::string &stage, const std::string &what) {
        state now = present_state();
        for (const std::string &may_stay : {live + "/foo.conf", live + "/link"}) {
            if (!before.files.contains(may_stay)) {
                now.files.erase(may_stay);
            }
        }
        EXPECT_EQ(now.files, before.files) << what;
        EXPECT_EQ(now.entries, before.entries) << what;
        EXPECT_EQ(now.indexes, before.indexes) << what;
        const std::string directory =
            staged(what_ == operation::update ? "foo_any_2.0" : "foo_any_1.0");
        if (left_by(stage) != stage_directory::any) {
            EXPECT_EQ(exists(directory), left_by(stage) == stage_directory::stays) << what;
        }
        EXPECT_FALSE(is_record_left()) << what;
        EXPECT_FALSE(exists(repo.in("change.status"))) << what;
        EXPECT_THAT(history(), IsEmpty()) << what;
    }
};

// ---- Memory ----

// Where memory fails, and so the stage that does.
struct memory_case {
    operation what;
    std::string stage;
    // A log line ahead of the stage or in it. Blocks from there on fail one by one, until it is one
    // of the stage.
    std::string line;
};

void PrintTo(const memory_case &printed, std::ostream *out) {
    *out << name_of(printed.what) << ", " << printed.stage;
}

std::vector<memory_case> memory_cases() {
    const std::string install = "vrm_install_vrk: ", update = "vrm_update_vrk: ",
                      removal = "vrm_one_delete: ";
    return {
        {operation::install, "record", ""},
        {operation::install, "unpack", install + "Will unpack"},
        {operation::install, "first script", install + "Found pre-install script"},
        {operation::install, "conflicts", "vrm_chk_local_insert: Checking"},
        {operation::install, "save", "installing foo_any_1.0"},
        {operation::install, "place", install + "copying"},
        {operation::install, "last script", install + "Found post-install script"},
        {operation::install, "register", "registering foo"},
        {operation::install, "due", install + "Writing fileindex"},
        {operation::install, "commit", "vrm_hooks_parse: "},
        {operation::update, "record", ""},
        {operation::update, "unpack", update + "Will unpack"},
        {operation::update, "first script", update + "Found pre-install script"},
        {operation::update, "conflicts", "vrm_chk_local_update: Checking"},
        {operation::update, "save", "updating foo_any_2.0"},
        {operation::update, "take away", update + "Found /srv/t/gone to delete"},
        {operation::update, "place", update + "copying"},
        {operation::update, "last script", update + "Found post-install script"},
        {operation::update, "register", "Registering foo"},
        {operation::update, "due", "New fileindex name"},
        {operation::update, "commit", "vrm_hooks_parse: "},
        {operation::removal, "record", ""},
        {operation::removal, "old side", ""},
        {operation::removal, "first script", removal + "looking for pre-delete script"},
        {operation::removal, "backups", "vrm_scriptenv_del: removing VRK_DEPENDENCIES from"},
        {operation::removal, "save", "vrm_scriptenv_del: removing VRK_DEPENDENCIES from"},
        {operation::removal, "take away", removal + "Found /srv/t/foo to delete"},
        {operation::removal, "last script", removal + "looking for post-delete script"},
        {operation::removal, "links", "99-del.sh of 1.0"},
        {operation::removal, "commit", removal + "rc of vrm_vrf_links"},
    };
}

std::string name_of_memory_case(const testing::TestParamInfo<memory_case> &info) {
    std::string name = std::string(name_of(info.param.what)) + "_" + info.param.stage;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
}

// The change alone, without an executor around it: the package is staged.
class LonelyChange : public UndoTable {
 protected:
    void prepare_alone(operation what) {
        PackageSpec old = rich("1.0"), fresh = rich(what == operation::update ? "2.0" : "1.0");
        old.data["srv/t/gone"] = "of 1.0\n";
        fs::create_directories(live + "/lib");
        prepare(what, old, fresh);
        if (what != operation::removal) {
            const vri *package = plan_->info;
            fs::copy_file(package->absolute_uri, staged(vrk_puname(package)) + ".vrk");
        }
        fs::remove(action_log);
    }

    int change_alone(
        const std::string &line = "", const std::function<void()> &fail = [] {}) {
        vrt *raw = plan_.get();
        const own_vri old(vrm_vrl_info(repo.handle(), "foo"));
        const AtLogLine failing(line, fail);
        switch (what_) {
            case operation::install:
                return vrm_install_vrk(repo.handle(), &raw, raw->info, "foo", &catalogue, 1);
            case operation::update:
                return vrm_update_vrk(repo.handle(), &raw, old.get(), raw->info, &catalogue, 1);
            default:
                return vrm_one_delete(repo.handle(), old.get());
        }
    }
};

class UndoTableOfMemory : public LonelyChange, public testing::WithParamInterface<memory_case> {};

// Memory that fails from a log line on, for copies of texts, to the end of the change.
class UndoTableOfCopies : public LonelyChange, public testing::WithParamInterface<memory_case> {};

std::vector<memory_case> copy_cases() {
    return {
        {operation::install, "first script", "vrm_install_vrk: Found pre-install script"},
        {operation::install, "conflicts", "vrm_chk_local_insert: Checking"},
        {operation::install, "last script", "vrm_install_vrk: Found post-install script"},
        {operation::install, "due", "vrm_install_vrk: Writing fileindex"},
        {operation::update, "old side", "vrm_vrl_file_list: Found"},
        {operation::update, "conflicts", "vrm_chk_local_update: Checking"},
        {operation::update, "last script", "vrm_update_vrk: Found post-install script"},
        {operation::update, "due", "New fileindex name"},
        {operation::removal, "first script", "vrm_one_delete: looking for pre-delete script"},
        {operation::removal, "last script", "vrm_one_delete: looking for post-delete script"},
    };
}

class UndoTableOfFailures : public UndoTable, public testing::WithParamInterface<change_case> {};

std::vector<change_case> failures() {
    std::vector<change_case> all = all_cases();
    std::erase_if(all, [](const change_case &one) { return one.result == 0; });
    return all;
}

}  // namespace

TEST_P(UndoTableOfFailures, IsKept) {
    const change_case &wanted = GetParam();
    prepare_case(wanted);
    const state before = present_state();
    EXPECT_EQ(run_case(wanted), wanted.result);
    expect_taken_back(before, failing_stage(wanted), wanted.name);
}

INSTANTIATE_TEST_SUITE_P(, UndoTableOfFailures, testing::ValuesIn(failures()), name_of_case);

TEST_P(UndoTableOfMemory, IsKept) {
    const memory_case &wanted = GetParam();
    prepare_alone(wanted.what);
    const state before = present_state();
    const Snapshot all(changed_directories());
    std::string stage;
    const EventReceiver receiver([&](const event &happened) {
        if (happened.kind == event_kind::change_memory_exhausted) {
            stage = happened.other;
        }
    });
    int blocks = 0, code = -1;
    for (; stage != wanted.stage; blocks++) {
        all.restore();
        stage.clear();
        code = change_alone(wanted.line, [&] { FailingNew::fail_nth(blocks); });
        const bool was_reached = !FailingNew::is_armed();
        FailingNew::fail_nth(-1);
        ASSERT_TRUE(was_reached) << "the stage needs no memory";
        if (code == 0) {
            forget_hooks();
        }
    }
    EXPECT_EQ(code, -1);
    expect_taken_back(before, wanted.stage, "block " + std::to_string(blocks));
    EXPECT_EQ(change_alone(), 0) << "nothing is in the way of the next attempt";
    EXPECT_FALSE(exists(staged(vrk_puname(plan_->info))));
    forget_hooks();
}

INSTANTIATE_TEST_SUITE_P(, UndoTableOfMemory, testing::ValuesIn(memory_cases()),
                         name_of_memory_case);

TEST_P(UndoTableOfCopies, IsKept) {
    const memory_case &wanted = GetParam();
    prepare_alone(wanted.what);
    const state before = present_state();
    const int code = change_alone(wanted.line, [] { strdups_left = 0; });
    strdups_left = -1;
    EXPECT_EQ(code, -1);
    expect_taken_back(before, wanted.stage, wanted.line);
    EXPECT_EQ(change_alone(), 0) << "nothing is in the way of the next attempt";
    forget_hooks();
}

INSTANTIATE_TEST_SUITE_P(, UndoTableOfCopies, testing::ValuesIn(copy_cases()), name_of_memory_case);
