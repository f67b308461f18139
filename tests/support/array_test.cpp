#include "support/array.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kit/failing_memory.h"
#include "kit/strings.h"
#include "support/own.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Texts = std::vector<std::string>;

// A heap array as callers build it.
char **array_of(const Texts &texts) {
    char **const array = static_cast<char **>(calloc(texts.size() + 1, sizeof(char *)));
    for (size_t i = 0; i < texts.size(); ++i) {
        array[i] = strdup(texts[i].c_str());
    }
    return array;
}

own_array owned(const Texts &texts) {
    return own_array(array_of(texts));
}

}  // namespace

TEST(ArraySearch, FindsTheFirstEqualEntry) {
    const own_array array = owned({"a", "b", "B", "b"});
    EXPECT_EQ(pos_array(array.get(), "b"), 1);
    EXPECT_EQ(pos_array(array.get(), "B"), 2);
    EXPECT_EQ(pos_array(array.get(), "c"), -1);
    EXPECT_EQ(in_array(array.get(), "b"), 1);
    EXPECT_EQ(in_array(array.get(), "A"), 0);
    EXPECT_EQ(in_array_i(array.get(), "A"), 1);
    EXPECT_EQ(in_array_i(array.get(), "c"), 0);
}

TEST(ArraySearch, FindsNothingInNoArray) {
    const own_array empty = owned({});
    for (char *const *array : {static_cast<char **>(nullptr), empty.get()}) {
        EXPECT_EQ(pos_array(array, "a"), -1);
        EXPECT_EQ(in_array(array, "a"), 0);
        EXPECT_EQ(in_array_i(array, "a"), 0);
        EXPECT_EQ(arr_count(array), 0);
    }
}

TEST(ArrCount, CountsEntries) {
    EXPECT_EQ(arr_count(owned({"a", "", "b"}).get()), 3);
}

TEST(ArrCopy, IsDeep) {
    const own_array array = owned({"a", "b"});
    const own_array copy(arr_copy(array.get()));
    EXPECT_THAT(strings(copy.get()), ElementsAre("a", "b"));
    EXPECT_NE(copy.get()[0], array.get()[0]);
}

TEST(ArrCopy, KeepsAnEmptyArrayAndNull) {
    const own_array copy(arr_copy(owned({}).get()));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(arr_count(copy.get()), 0);
    EXPECT_EQ(arr_copy(nullptr), nullptr);
}

TEST(ArrCopy, GivesNullWhenMemoryFails) {
    const own_array array = owned({"a", "b"});
    strdups_left = 1;
    char **const copy = arr_copy(array.get());
    strdups_left = -1;
    EXPECT_EQ(copy, nullptr);
}

TEST(ArrTail, AppendsAllEntries) {
    const own_array array(arr_tail(array_of({"a", "b"}), owned({"b", "c", "c"}).get()));
    EXPECT_THAT(strings(array.get()), ElementsAre("a", "b", "b", "c", "c"));
}

TEST(ArrTail, ToNullGivesNull) {
    EXPECT_EQ(arr_tail(nullptr, owned({"a"}).get()), nullptr);
    EXPECT_EQ(arr_tailx(nullptr, owned({"a"}).get()), nullptr);
}

TEST(ArrTail, OfNullLeavesTheArrayAsItIs) {
    own_array array = owned({"a"});
    EXPECT_EQ(arr_tail(array.get(), nullptr), array.get());
    EXPECT_EQ(arr_tailx(array.get(), nullptr), array.get());
    EXPECT_THAT(strings(array.get()), ElementsAre("a"));
}

TEST(ArrTail, TakesTheArrayItself) {
    char **array = array_of({"a", "b"});
    array = arr_tail(array, array);
    EXPECT_THAT(strings(array), ElementsAre("a", "b", "a", "b"));
    array = arr_tailx(array, array);
    EXPECT_THAT(strings(array), ElementsAre("a", "b", "a", "b"));
    arr_free(array);
}

TEST(ArrTail, GivesNullWhenMemoryFails) {
    const own_array other = owned({"c", "d"});
    for (auto append : {arr_tail, arr_tailx}) {
        char **const first = array_of({"a"});
        strdups_left = 1;
        EXPECT_EQ(append(first, other.get()), nullptr);
        strdups_left = -1;
        char **const second = array_of({"a"});
        growing_fails = true;
        EXPECT_EQ(append(second, other.get()), nullptr);
        growing_fails = false;
    }
}

TEST(ArrTailx, SkipsWhatIsThereAlready) {
    const own_array array(arr_tailx(array_of({"a", "b", "a"}), owned({"b", "c", "C", "c"}).get()));
    EXPECT_THAT(strings(array.get()), ElementsAre("a", "b", "a", "c", "C"));
}

TEST(ArrAdds, SplitsAtCommas) {
    const own_array all(arr_adds(array_of({"a"}), 0, "b,,a,b"));
    EXPECT_THAT(strings(all.get()), ElementsAre("a", "b", "a", "b"));
    const own_array once(arr_adds(array_of({"a"}), 1, "b,,a,b"));
    EXPECT_THAT(strings(once.get()), ElementsAre("a", "b"));
}

TEST(ArrAdds, AcceptsNoText) {
    for (const char *text : {static_cast<const char *>(nullptr), "", ",,"}) {
        const own_array array(arr_adds(array_of({"a"}), 1, text));
        EXPECT_THAT(strings(array.get()), ElementsAre("a"));
    }
    EXPECT_EQ(arr_adds(nullptr, 0, "a"), nullptr);
}

TEST(Arr2str, JoinsEntries) {
    EXPECT_STREQ(own_string(arr2str(owned({"a", "", "c d"}).get(), ',')).get(), "a,,c d");
    EXPECT_STREQ(own_string(arr2str(owned({}).get(), ',')).get(), "");
    EXPECT_EQ(arr2str(nullptr, ','), nullptr);
}

TEST(Str2arr, DropsEmptyFields) {
    EXPECT_THAT(strings(own_array(str2arr(",,a,,b,", ',')).get()), ElementsAre("a", "b"));
    EXPECT_THAT(strings(own_array(str2arr("a, b", ',')).get()), ElementsAre("a", " b"));
    EXPECT_THAT(strings(own_array(str2arr("a,b", ';')).get()), ElementsAre("a,b"));
}

TEST(Str2arr, GivesNullForNoField) {
    EXPECT_EQ(str2arr("", ','), nullptr);
    EXPECT_EQ(str2arr(",,,", ','), nullptr);
    EXPECT_EQ(str2arr(nullptr, ','), nullptr);
}

TEST(Str2arr, LosesWhatIsBehindTheThousandthField) {
    std::string text;
    for (int i = 1; i <= 1001; ++i) {
        text += std::to_string(i) + ",";
    }
    const own_array fields(str2arr(text.c_str(), ','));
    ASSERT_EQ(arr_count(fields.get()), 1000);
    EXPECT_STREQ(fields.get()[0], "1");
    EXPECT_STREQ(fields.get()[999], "1000");
}

TEST(Str2arr, GivesNullWhenMemoryFails) {
    strdups_left = 1;
    char **const fields = str2arr("a,b", ',');
    strdups_left = -1;
    EXPECT_EQ(fields, nullptr);
}

TEST(Str2arrTrim, CutsFieldsDownToTheirFirstWord) {
    EXPECT_THAT(strings(own_array(str2arr_trim("  a b,\tc\t, ,d", ',')).get()),
                ElementsAre("a", "c", "", "d"));
    EXPECT_EQ(str2arr_trim("", ','), nullptr);
}

TEST(ArrFree, AcceptsNull) {
    arr_free(nullptr);
}

TEST(ArrT21Add, GrowsByDoubling) {
    char *nowhere = nullptr;
    char **array = &nowhere;  // a first addition doesn't look at it
    int capacity = 2;
    int count = 0;
    const std::vector<int> capacities = {2, 2, 4, 4, 8};
    for (int i = 0; i < 5; ++i) {
        count = arr_t21_add(&array, std::to_string(i).c_str(), count, &capacity);
        EXPECT_EQ(count, i + 1);
        EXPECT_EQ(capacity, capacities[static_cast<size_t>(i)]);
        EXPECT_EQ(array[count], nullptr);
    }
    EXPECT_THAT(strings(array), ElementsAre("0", "1", "2", "3", "4"));
    arr_free(array);
}

TEST(ArrT21Add, AppendsNothingForNullOrWithoutMemory) {
    char **array = nullptr;
    int capacity = 1;
    int count = arr_t21_add(&array, "a", 0, &capacity);
    EXPECT_EQ(arr_t21_add(&array, nullptr, count, &capacity), 1);
    growing_fails = true;
    EXPECT_EQ(arr_t21_add(&array, "b", count, &capacity), 1);
    growing_fails = false;
    EXPECT_THAT(strings(array), ElementsAre("a"));
    arr_free(array);
}

TEST(AarrT21Add, AppendsCopiesOfArrays) {
    char ***arrays = nullptr;
    int capacity = 1;
    int count = 0;
    const own_array one = owned({"a", "b"});
    const own_array empty = owned({});
    for (char *const *array : {one.get(), empty.get(), one.get()}) {
        count = aarr_t21_add(&arrays, array, count, &capacity);
    }
    ASSERT_EQ(count, 3);
    EXPECT_EQ(capacity, 4);
    EXPECT_EQ(arrays[3], nullptr);
    EXPECT_THAT(strings(arrays[0]), ElementsAre("a", "b"));
    EXPECT_NE(arrays[0], one.get());
    EXPECT_THAT(strings(arrays[1]), IsEmpty());
    EXPECT_THAT(strings(arrays[2]), ElementsAre("a", "b"));
    for (int i = 0; i < count; ++i) {
        arr_free(arrays[i]);
    }
    free(arrays);
}

TEST(ArrSortx, SortsByStrcmp) {
    char **array = array_of({"b", "a", "B", "10", "9", "a"});
    arr_sortx(&array, nullptr);
    EXPECT_THAT(strings(array), ElementsAre("10", "9", "B", "a", "a", "b"));
    arr_free(array);
}

TEST(ArrSortx, TakesACompareFunction) {
    char **array = array_of({"10", "9", "100"});
    arr_sortx(&array, list_cmp_num);
    EXPECT_THAT(strings(array), ElementsAre("9", "10", "100"));
    arr_free(array);
    array = array_of({"10.0.0.2", "9.255.255.255", "10.0.0.1"});
    arr_sortx(&array, list_cmp_addr);
    EXPECT_THAT(strings(array), ElementsAre("9.255.255.255", "10.0.0.1", "10.0.0.2"));
    arr_free(array);
}

TEST(ArrSortx, LeavesShortArraysAlone) {
    char **none = nullptr;
    arr_sortx(&none, nullptr);
    char **empty = array_of({});
    arr_sortx(&empty, nullptr);
    EXPECT_THAT(strings(empty), IsEmpty());
    arr_free(empty);
}

TEST(ArrSortx, GivesTheOrderOfABubbleSortForAnyCompareFunction) {
    const auto by_length = [](const char *a, const char *b) {
        return static_cast<int>(strlen(a)) - static_cast<int>(strlen(b));
    };
    std::mt19937 random(1);
    for (int round = 0; round < 200; ++round) {
        Texts texts;
        for (size_t i = 0, size = random() % 30; i < size; ++i) {
            texts.push_back(std::to_string(random() % 5) + "." + std::to_string(random() % 100));
        }
        for (auto compare :
             {static_cast<int (*)(const char *, const char *)>(strcmp), list_cmp_num, list_cmp_addr,
              static_cast<int (*)(const char *, const char *)>(by_length)}) {
            Texts expected = texts;
            for (size_t length = expected.size(); length > 1; --length) {
                for (size_t i = 0; i + 1 < length; ++i) {
                    if (compare(expected[i].c_str(), expected[i + 1].c_str()) > 0) {
                        std::swap(expected[i], expected[i + 1]);
                    }
                }
            }
            char **array = array_of(texts);
            arr_sortx(&array, compare);
            EXPECT_EQ(strings(array), expected);
            arr_free(array);
        }
    }
}

TEST(ListCmpNum, CutsTheDifferenceToAnInt) {
    EXPECT_EQ(list_cmp_num("1.2", "1.9"), 0);
    EXPECT_EQ(list_cmp_num("9", "2"), 7);
    EXPECT_EQ(list_cmp_num("2", "9.5"), -7);
    EXPECT_EQ(list_cmp_num("1e3", "-1"), 1001);
}

TEST(ListCmpNum, TakesWhatIsNoNumberForZero) {
    EXPECT_EQ(list_cmp_num("x", "5"), -5);
    EXPECT_EQ(list_cmp_num("", "x"), 0);
    EXPECT_EQ(list_cmp_num("7 apples", ""), 7);
}

TEST(ListCmpNum, StaysWithinAnInt) {
    EXPECT_EQ(list_cmp_num("1e300", "0"), INT_MAX);
    EXPECT_EQ(list_cmp_num("0", "inf"), INT_MIN);
    EXPECT_EQ(list_cmp_num("inf", "inf"), 0);
}

TEST(ListCmpAddr, ComparesFieldByField) {
    EXPECT_EQ(list_cmp_addr("1.2.3.4", "1.2.3.4"), 0);
    EXPECT_EQ(list_cmp_addr("10.0.0.0", "9.9.9.9"), 1);
    EXPECT_EQ(list_cmp_addr("1.2.3.4", "1.2.3.10"), -1);
    EXPECT_EQ(list_cmp_addr("1.2.10.4", "1.2.9.10"), 1);
}

TEST(ListCmpAddr, TakesMissingFieldsForZero) {
    EXPECT_EQ(list_cmp_addr("1.2", "1.2.0.0"), 0);
    EXPECT_EQ(list_cmp_addr("1.2", "1.2.0.1"), -1);
    EXPECT_EQ(list_cmp_addr("x", "0.0.0.0"), 0);
}

TEST(ToCArray, CopiesEachString) {
    const Texts texts = {"a", "", "b"};
    const own_array array = to_c_array(texts);
    EXPECT_EQ(strings(array.get()), texts);
    EXPECT_NE(to_c_array(Texts()), nullptr);
}

TEST(ToCArray, GivesNothingWhenOneEntryFails) {
    strdups_left = 1;
    const own_array array = to_c_array(Texts{"a", "b"});
    strdups_left = -1;
    EXPECT_EQ(array, nullptr);
}
