#include "powercut/replay.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "faults/disk.h"
#include "faults/tree.h"
#include "kit/temp_dir.h"
#include "powercut/recording.h"

using testing::ElementsAre;

namespace {

// A disk of three blocks, "aaa" at first.
class Replay : public testing::Test {
 protected:
    Replay() {
        dir_.write("base", block('a') + block('a') + block('a'));
        record_ = own_fd(open((dir_ / "record").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600));
    }

    static std::string block(char letter) {
        return std::string(4096, letter);
    }
    void write_blocks(uint64_t number, const std::string &bytes) const {
        append_entry(record_.get(), entry_kind::write, number * 4096, bytes);
    }
    void flush() const {
        append_entry(record_.get(), entry_kind::flush, 0, {});
    }
    void mark(const std::string &name) const {
        append_entry(record_.get(), entry_kind::mark, 0, name);
    }
    // The first letters of the blocks of each state's disk; '.' for zero.
    std::vector<std::string> disks(const std::vector<disk_state> &states,
                                   const disk_record &record) const {
        disk_maker maker(dir_ / "base", record, dir_ / "scratch");
        std::vector<std::string> all;
        for (const disk_state &state : states) {
            maker.make(state, dir_ / "disk");
            const std::string content = read_whole(dir_ / "disk");
            std::string letters;
            for (size_t at = 0; at < content.size(); at += 4096) {
                letters += content[at] == 0 ? '.' : content[at];
            }
            all.push_back(letters);
        }
        return all;
    }

    const TempDir dir_;
    own_fd record_;
};

}  // namespace

TEST_F(Replay, HasTheDiskOfEachFlush) {
    write_blocks(0, block('b'));
    flush();
    write_blocks(1, block('c') + block('c'));
    flush();
    append_entry(record_.get(), entry_kind::zero, 0, {}, 4096);
    mark(mark_of_end);
    write_blocks(0, block('x'));
    flush();
    const disk_record record(dir_ / "record");
    EXPECT_THAT(disks(states_of(record, {.selections = 0}), record),
                ElementsAre("aaa", "baa", "bcc"));
}

TEST_F(Replay, HasTheDiskOfEachPointWithAllThatItHadTaken) {
    write_blocks(0, block('b'));
    mark(mark_of_point);
    append_entry(record_.get(), entry_kind::zero, 4096, {}, 4096);
    mark(mark_of_point);
    flush();
    mark(mark_of_end);
    const disk_record record(dir_ / "record");
    EXPECT_THAT(disks(states_of(record, {.selections = 0}), record),
                ElementsAre("aaa", "baa", "b.a", "b.a"));
}

TEST_F(Replay, SelectsAmongTheWritesAfterAFlushOnly) {
    write_blocks(0, block('b'));
    flush();
    write_blocks(1, block('c') + block('d'));
    flush();
    const disk_record record(dir_ / "record");
    std::set<std::string> seen;
    for (const disk_state &state : states_of(record, {.selections = 60})) {
        if (state.prefix == 2) {
            const std::vector<std::string> letters = disks({state}, record);
            seen.insert(letters[0]);
        }
    }
    // Whole writes, and blocks of them.
    EXPECT_THAT(seen, testing::UnorderedElementsAre("baa", "bcd", "bca", "bad"));
}

TEST_F(Replay, IsTheSameForTheSameSeed) {
    for (int i = 0; i < 20; i++) {
        write_blocks(static_cast<uint64_t>(i % 3), block(static_cast<char>('b' + i)));
    }
    flush();
    const disk_record record(dir_ / "record");
    const state_wishes first = {.selections = 5, .at_most = 3, .seed = 7};
    const state_wishes other = {.selections = 5, .at_most = 3, .seed = 8};
    const std::vector<std::string> once = disks(states_of(record, first), record);
    EXPECT_EQ(once.size(), 3U);
    EXPECT_EQ(disks(states_of(record, first), record), once);
    EXPECT_NE(disks(states_of(record, other), record), once);
}

TEST_F(Replay, HoldsTheChangeToWhatItSaidBeforeTheNextFlush) {
    write_blocks(0, block('b'));
    mark("pvrm: installed p_");
    mark("any_1.0\n");
    flush();
    mark(mark_of_success);
    mark(mark_of_end);
    const disk_record record(dir_ / "record");
    const std::vector<disk_state> states = states_of(record, {.selections = 0});
    ASSERT_EQ(states.size(), 2U);
    const said first = said_until(record, states[0].moment);
    EXPECT_THAT(first.packages, ElementsAre("p"));
    EXPECT_FALSE(first.success);
    EXPECT_TRUE(said_until(record, states[1].moment).success);
}

TEST_F(Replay, RefusesADamagedRecord) {
    write_blocks(0, block('b'));
    const std::string whole = read_whole(dir_ / "record");
    dir_.write("part", whole.substr(0, whole.size() - 1));
    EXPECT_THROW(disk_record(dir_ / "part"), std::runtime_error);
    EXPECT_EQ(disk_record(dir_ / "record").entries().size(), 1U);
}

TEST(CopyWithHoles, CopiesAllAndLeavesOutZeros) {
    const TempDir dir;
    const std::string content = std::string(1 << 20, '\0') + "end";
    dir.write("from", content);
    dir.write("to", std::string(3 << 20, 'x'));
    copy_with_holes(dir / "from", dir / "to");
    EXPECT_EQ(read_whole(dir / "to"), content);
    struct stat status;
    ASSERT_EQ(stat((dir / "to").c_str(), &status), 0);
    EXPECT_LT(status.st_blocks, 200);
}
