#include "transaction/recover.h"

#include "transaction/update_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// An update of foo 1.0 to 2.0 that is cut off amidst its swap.
class CutOff : public Update {
 protected:
    // Leaves the inventory as it is after this many of the swap's six steps.
    void leave_after(int steps, const PackageSpec &before, const PackageSpec &after) {
        for (const char *dir : {"installed", "fileindex", "stagearea"}) {
            fs::remove_all(repo.in(dir));
            fs::create_directory(repo.in(dir));
        }
        fs::remove_all(live);
        fs::create_directories(live);
        install_now(before);
        keep("one");
        EXPECT_EQ(update(after), 0);
        keep("two");
        fs::remove_all(entry);
        fs::remove(index);
        put_back("one/entry", entry);
        put_back("two/entry", new_entry);
        put_back("one/index", index);
        put_back("two/index", new_index);
        if (steps >= 2) {
            fs::rename(entry, old_entry);
        }
        if (steps >= 3) {
            fs::rename(new_entry, entry);
        }
        if (steps >= 5 && exists(index)) {
            fs::rename(index, old_index);
        }
        if (steps >= 6 && exists(new_index)) {
            fs::rename(new_index, index);
        }
        log.clear();
    }

    std::vector<std::string> broken() {
        const own_array names(vrm_broken_swaps(repo.handle()));
        return names ? std::vector<std::string>{names.get(), names.get() + arr_count(names.get())}
                     : none;
    }

    const std::vector<std::string> none = {};
    const std::string entry = repo.in("installed/foo"), index = repo.in("fileindex/foo");
    const std::string new_entry = repo.in("installed/.foo.new");
    const std::string old_entry = repo.in("installed/.foo.old");
    const std::string new_index = repo.in("fileindex/.foo.new");
    const std::string old_index = repo.in("fileindex/.foo.old");
    const std::string warning =
        "vrm_undo_broken_swaps: the update of foo was cut off while it was entered, its old entry "
        "is back";

 private:
    void keep(const std::string &as) {
        fs::remove_all(files / as);
        fs::create_directory(files / as);
        fs::copy(entry, files / (as + "/entry"), fs::copy_options::recursive);
        if (exists(index)) {
            fs::copy(index, files / (as + "/index"));
        }
    }
    void put_back(const std::string &kept, const std::string &to) {
        if (exists(files / kept)) {
            fs::copy(files / kept, to, fs::copy_options::recursive);
        }
    }
};

}  // namespace

TEST_F(CutOff, NeedsTheLock) {
    leave_after(2, foo1, foo2);
    repo.handle()->locked = 0;
    EXPECT_EQ(vrm_undo_broken_swaps(repo.handle()), -1);
    EXPECT_TRUE(log.has(LEVEL_ERROR, "vrm_undo_broken_swaps: no lock on local repository"));
    EXPECT_EQ(version_of("foo"), "none");
}

TEST_F(CutOff, IsFoundWithoutTheLockUnlessAnotherProcessHoldsIt) {
    leave_after(2, foo1, foo2);
    const auto as_it_was = tree(repo.in(""));
    repo.handle()->locked = 0;
    EXPECT_THAT(broken(), ElementsAre("foo"));
    EXPECT_EQ(tree(repo.in("")), as_it_was) << "it only looks";
    int ready[2], over[2];
    ASSERT_EQ(pipe(ready) + pipe(over), 0);
    const pid_t other = fork();
    if (other == 0) {
        close(over[1]);
        char c = vrm_lock(repo.handle()) == 0 ? 'y' : 'n';
        const bool told = write(ready[1], &c, 1) == 1 && read(over[0], &c, 1) == 0;
        _exit(told ? 0 : 1);
    }
    close(over[0]);
    char locked = 'n';
    EXPECT_EQ(read(ready[0], &locked, 1), 1);
    EXPECT_EQ(locked, 'y');
    EXPECT_EQ(broken(), none) << "its swap may be under way";
    close(over[1]);
    int status = -1;
    EXPECT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(status, 0);
    close(ready[0]);
    close(ready[1]);
    EXPECT_THAT(broken(), ElementsAre("foo"));
}

TEST_F(CutOff, IsPlannedAgainFromTheOldVersion) {
    for (const int steps : {2, 3, 5}) {
        leave_after(steps, foo1, foo2);
        offer(foo2);
        vrt *made = nullptr;
        const own_vrt plan(vrm_pre_update_again(repo.handle(), &catalogue, "foo", &made));
        ASSERT_TRUE(plan) << steps;
        EXPECT_EQ(plan.get(), made);
        EXPECT_EQ(plan->action, 'U');
        EXPECT_STREQ(plan->info->version, "2.0");
    }
    // The old version is as good.
    leave_after(3, foo1, foo2);
    offer(foo1);
    vrt *made = nullptr;
    EXPECT_EQ(vrm_pre_update_again(repo.handle(), &catalogue, "foo", &made), nullptr);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(vrm_pre_update_again(repo.handle(), &catalogue, "bar", &made), nullptr);
    EXPECT_EQ(vrm_pre_update_again(repo.handle(), &catalogue, "../installed/foo", &made), nullptr);
}

TEST_F(CutOff, IsTakenBackAtEachStepAndTheSameUpdateReachesItsEnd) {
    PackageSpec after = foo2;
    after.data["srv/t/fresh"] = "new\n";
    for (int steps = 0; steps <= 6; steps++) {
        leave_after(steps, foo1, after);
        const bool amidst = steps >= 2 && steps <= 5;
        EXPECT_EQ(broken(), amidst ? std::vector<std::string>{"foo"} : none) << steps;
        EXPECT_EQ(vrm_undo_broken_swaps(repo.handle()), amidst ? 1 : 0) << steps;
        EXPECT_EQ(broken(), none) << steps;
        EXPECT_EQ(log.has(LEVEL_WARNING, warning), amidst) << steps;
        EXPECT_EQ(version_of("foo"), steps == 6 ? "2.0" : "1.0") << steps;
        EXPECT_EQ(read_all(index),
                  steps == 6 ? read_all(files / "two/index") : read_all(files / "one/index"))
            << steps;
        EXPECT_EQ(vrm_undo_broken_swaps(repo.handle()), 0) << "once is enough, " << steps;
        if (steps < 6) {
            // The file of the first attempt is nobody's.
            ScriptedUser::fresh().answers = {"r"};
            EXPECT_EQ(update(after), 0) << steps;
            expect_no_leftovers(std::to_string(steps));
        }
        EXPECT_EQ(version_of("foo"), "2.0") << steps;
        EXPECT_EQ(read_all(index), read_all(files / "two/index")) << steps;
    }
}

TEST_F(CutOff, IsTakenBackForAVersionWithoutData) {
    PackageSpec after = foo2;
    after.data.clear();
    for (int steps = 2; steps <= 5; steps++) {
        leave_after(steps, foo1, after);
        const bool amidst = steps < 5;
        EXPECT_EQ(vrm_undo_broken_swaps(repo.handle()), amidst ? 1 : 0) << steps;
        EXPECT_EQ(version_of("foo"), amidst ? "1.0" : "2.0") << steps;
        EXPECT_EQ(exists(index), amidst) << steps;
    }
}

TEST_F(CutOff, OfAPackageThatHadNoDataIsTakenBackToo) {
    PackageSpec before = foo1;
    before.data.clear();
    for (int steps = 2; steps <= 6; steps++) {
        leave_after(steps, before, foo2);
        const bool amidst = steps < 6;
        EXPECT_EQ(vrm_undo_broken_swaps(repo.handle()), amidst ? 1 : 0) << steps;
        EXPECT_EQ(version_of("foo"), amidst ? "1.0" : "2.0") << steps;
        EXPECT_EQ(exists(index), !amidst) << steps;
    }
}

TEST_F(CutOff, WhatIsNoRestOfASwapIsLeftAlone) {
    // A retired entry from before, and an update that died as it built its new entry.
    leave_after(0, foo1, foo2);
    fs::copy(entry, old_entry, fs::copy_options::recursive);
    EXPECT_EQ(broken(), none);
    EXPECT_EQ(vrm_undo_broken_swaps(repo.handle()), 0);
    EXPECT_EQ(version_of("foo"), "1.0");
    // The same without an entry, and with half a new one.
    fs::remove_all(entry);
    fs::remove(new_entry + "/inst.txt");
    EXPECT_EQ(broken(), none);
    EXPECT_EQ(vrm_undo_broken_swaps(repo.handle()), 0);
    fs::remove_all(new_entry);
    EXPECT_EQ(broken(), none);
    EXPECT_EQ(vrm_undo_broken_swaps(repo.handle()), 0);
    EXPECT_EQ(version_of("foo"), "none");
    // What is no entry brings nothing back.
    fs::remove(old_entry + "/desc.txt");
    fs::create_directories(repo.in("installed/.old"));
    EXPECT_EQ(broken(), none);
    EXPECT_EQ(vrm_undo_broken_swaps(repo.handle()), 0);
    EXPECT_THAT(log.at(LEVEL_WARNING), IsEmpty());
}
