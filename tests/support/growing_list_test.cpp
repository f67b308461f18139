#include "support/growing_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kit/failing_memory.h"
#include "support/own.h"

using testing::ElementsAre;

namespace {

using text_list = growing_list<char, arr_free>;

bool add(text_list &list, const char *text) {
    own_string copy(strdup(text));
    if (!list.add(copy.get())) {
        return false;
    }
    static_cast<void>(copy.release());
    return true;
}

std::vector<std::string> texts_of(const own_array &array) {
    return {array.get(), array.get() + arr_count(array.get())};
}

std::vector<int> rooms;
void note_room(int capacity, bool again) {
    rooms.push_back(again ? capacity : -capacity);
}

}  // namespace

TEST(GrowingList, StaysTerminatedAndDoubles) {
    rooms.clear();
    text_list list(2, note_room);
    const std::vector<std::string> texts{"a", "b", "c", "d", "e"};
    for (size_t i = 0; i < texts.size(); ++i) {
        ASSERT_TRUE(add(list, texts[i].c_str()));
        EXPECT_EQ(arr_count(*list.address()), static_cast<int>(i) + 1);
    }
    EXPECT_EQ(list.count(), 5);
    EXPECT_EQ(texts_of(own_array(list.release())), texts);
    EXPECT_THAT(rooms, ElementsAre(-2, 4, 8));
}

TEST(GrowingList, HandsOutNullWhenNothingWasAdded) {
    text_list list(2);
    EXPECT_EQ(list.release(), nullptr);
}

TEST(GrowingList, FreesWhatWasNotHandedOut) {
    text_list list(2);
    EXPECT_TRUE(add(list, "a"));
}

TEST(GrowingList, RefusesEachEntryForWhichThereIsNoMemory) {
    text_list list(2);
    growing_fails = true;
    EXPECT_FALSE(add(list, "a"));
    EXPECT_FALSE(add(list, "b"));
    growing_fails = false;
    EXPECT_TRUE(add(list, "c"));
    EXPECT_TRUE(add(list, "d"));
    growing_fails = true;
    EXPECT_FALSE(add(list, "e"));
    EXPECT_EQ(list.capacity(), 4) << "what could not be had";
    // The list is as full as it was.
    EXPECT_FALSE(add(list, "f"));
    growing_fails = false;
    EXPECT_TRUE(add(list, "g"));
    EXPECT_THAT(texts_of(own_array(list.release())), ElementsAre("c", "d", "g"));
}
