#include "support/ekva.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "kit/capture.h"
#include "kit/failing_memory.h"
#include "support/array.h"
#include "support/own.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char *null_value = "(null)";

using Pairs = std::vector<std::pair<std::string, std::string>>;

// All slots, the header's among them.
Pairs slots_of(s_ekva *const *rec) {
    Pairs slots;
    for (size_t i = 0; rec && rec[i]; ++i) {
        slots.emplace_back(rec[i]->key, rec[i]->val ? rec[i]->val : null_value);
    }
    return slots;
}

// A record with a header, grown to what it holds.
class Record {
 public:
    explicit Record(const Pairs &pairs, int capacity = 10, int mode = 4)
        : rec(ekva_new(capacity, mode)) {
        for (const auto &[key, val] : pairs) {
            add(key.c_str(), val == null_value ? nullptr : val.c_str(), 0);
        }
    }
    explicit Record(s_ekva **taken) : rec(taken) {}
    ~Record() {
        ekva_free(rec);
    }
    Record(const Record &) = delete;
    Record &operator=(const Record &) = delete;

    int add(const char *key, const char *val, int mode) {
        return ekva_addval(&rec, key, val, mode);
    }
    std::string header() const {
        return rec[0]->key;
    }
    // The slots behind the header.
    Pairs data() const {
        Pairs slots = slots_of(rec);
        slots.erase(slots.begin());
        return slots;
    }

    s_ekva **rec;
};

s_ekva *pair_by_hand(const char *key, const char *val) {
    s_ekva *const pair = static_cast<s_ekva *>(calloc(1, sizeof(s_ekva)));
    pair->key = strdup(key);
    pair->val = val ? strdup(val) : nullptr;
    return pair;
}

// A record as another program might build it, with exactly `room` slots.
s_ekva **record_by_hand(const std::vector<const char *> &keys, size_t room) {
    s_ekva **const rec = static_cast<s_ekva **>(calloc(room, sizeof(s_ekva *)));
    for (size_t i = 0; i < keys.size(); ++i) {
        rec[i] = pair_by_hand(keys[i], strncmp(keys[i], "#EKVA", 5) == 0 ? nullptr : "v");
    }
    return rec;
}

}  // namespace

TEST(EkvaNew, HoldsOnlyItsHeader) {
    const Record record(ekva_new(7, 3));
    EXPECT_EQ(slots_of(record.rec), (Pairs{{"#EKVA_10:7:3", null_value}}));
    EXPECT_EQ(ekva_nument(record.rec), 0);
}

TEST(EkvaNew, RefusesACapacityBelowOne) {
    EXPECT_EQ(ekva_new(0, 2), nullptr);
    EXPECT_EQ(ekva_new(-5, 2), nullptr);
}

TEST(EkvaNew, RefusesAModeOutsideOneToFour) {
    EXPECT_EQ(ekva_new(1, 0), nullptr);
    EXPECT_EQ(ekva_new(1, 5), nullptr);
    for (int mode = 1; mode <= 4; ++mode) {
        const Record record(ekva_new(1, mode));
        EXPECT_NE(record.rec, nullptr) << mode;
    }
}

TEST(EkvaInit, MakesARecordOfMode2) {
    EXPECT_EQ(Record(ekva_init(12)).header(), "#EKVA_10:12:2");
}

TEST(EkvaFree, AcceptsNull) {
    ekva_free(nullptr);
}

TEST(EkvaHeader, IsParsed) {
    const Record record(ekva_new(20, 4));
    int capacity = 0;
    int mode = 0;
    EXPECT_EQ(_ekva_parse_header(record.rec, &capacity, &mode), 1);
    EXPECT_EQ(capacity, 20);
    EXPECT_EQ(mode, 4);
}

TEST(EkvaHeader, TakesWhatWasWrittenByHand) {
    for (const char *key : {"#EKVA_10: 20:+4", "#EKVA_10:20: 4 and more", "#EKVA_10:020:4"}) {
        int capacity = 0;
        int mode = 0;
        const Record record(record_by_hand({key}, 2));
        EXPECT_EQ(_ekva_parse_header(record.rec, &capacity, &mode), 1) << key;
        EXPECT_EQ(capacity, 20) << key;
        EXPECT_EQ(mode, 4) << key;
    }
    int capacity = 0;
    int mode = 0;
    const Record negative(record_by_hand({"#EKVA_10:-1:-2"}, 2));
    EXPECT_EQ(_ekva_parse_header(negative.rec, &capacity, &mode), 1);
    EXPECT_EQ(capacity, -1);
    EXPECT_EQ(mode, -2);
}

TEST(EkvaHeader, IsNoneWhenTheKeyIsAnother) {
    int capacity = 77;
    int mode = 78;
    for (const char *key : {"name", "#EKVA_10", "#EKVA_10:", "#EKVA_10:5", "#EKVA_10:a:b",
                            " #EKVA_10:5:2", "#EKVA_11:5:2"}) {
        const Record record(record_by_hand({key}, 2));
        EXPECT_EQ(_ekva_parse_header(record.rec, &capacity, &mode), 0) << key;
    }
    s_ekva *nothing[1] = {};
    EXPECT_EQ(_ekva_parse_header(nothing, &capacity, &mode), 0);
    EXPECT_EQ(_ekva_parse_header(nullptr, &capacity, &mode), 0);
    EXPECT_EQ(capacity, 77);
    EXPECT_EQ(mode, 78);
}

TEST(EkvaHeader, LetsACallerReplaceItsKey) {
    Record record(Pairs{{"a", "1"}, {"b", "2"}}, 2);
    free(record.rec[0]->key);
    record.rec[0]->key = strdup("#EKVA_10:2:1");
    EXPECT_EQ(record.add("c", "3", 0), 4);
    EXPECT_EQ(record.header(), "#EKVA_10:4:1");
    EXPECT_EQ(record.data(), (Pairs{{"a", "1"}, {"b", "2"}, {"c", "3"}}));
}

TEST(EkvaHeader, LetsACallerReplaceItsPair) {
    Record record(Pairs{{"a", "1"}}, 2);
    free(record.rec[0]->key);
    free(record.rec[0]);
    record.rec[0] = pair_by_hand("#EKVA_10:2:3", nullptr);
    EXPECT_EQ(record.add("b", "2", 0), 3);
    EXPECT_EQ(record.add("c", "3", 0), 4);
    EXPECT_EQ(record.header(), "#EKVA_10:4:3");
    EXPECT_EQ(record.data(), (Pairs{{"a", "1"}, {"b", "2"}, {"c", "3"}}));
}

TEST(EkvaHeader, LetsACallerTakeTheRecordApart) {
    s_ekva **const rec = ekva_new(2, 4);
    free(rec[0]->key);
    free(rec[0]->val);
    free(rec[0]);
    free(rec);
}

TEST(EkvaFirstPair, IsBehindTheHeaderIfThereIsOne) {
    const Record with(Pairs{{"a", "1"}});
    EXPECT_EQ(ekva_first_pair(with.rec), with.rec + 1);
    const Record without(record_by_hand({"a"}, 2));
    EXPECT_EQ(ekva_first_pair(without.rec), without.rec);
    EXPECT_EQ(ekva_first_pair(nullptr), nullptr);
}

TEST(EkvaNument, CountsDataEntriesOnly) {
    EXPECT_EQ(ekva_nument(nullptr), 0);
    EXPECT_EQ(ekva_nument(Record(Pairs{{"a", "1"}, {"b", null_value}}).rec), 2);
    EXPECT_EQ(ekva_nument(Record(record_by_hand({"a", "b", "c"}, 4)).rec), 3);
}

TEST(EkvaAddval, FailsOnANullRecord) {
    s_ekva **rec = nullptr;
    EXPECT_EQ(ekva_addval(&rec, "a", "1", 0), 0);
    EXPECT_EQ(rec, nullptr);
}

TEST(EkvaAddval, FailsOnANullKey) {
    Record record(ekva_new(2, 4));
    EXPECT_LT(record.add(nullptr, "1", 0), 1);
    EXPECT_THAT(record.data(), IsEmpty());
}

TEST(EkvaAddval, TakesSlot0OfARecordWithoutAny) {
    Record record(record_by_hand({}, 3));
    EXPECT_EQ(record.add("a", "1", 2), 1);
    EXPECT_EQ(record.add("b", "2", 2), 2);
    EXPECT_EQ(slots_of(record.rec), (Pairs{{"a", "1"}, {"b", "2"}}));
}

TEST(EkvaAddval, ReportsTheNewSlotPlusOne) {
    Record record(ekva_new(4, 4));
    EXPECT_EQ(record.add("a", "1", 0), 2);
    EXPECT_EQ(record.add("b", "2", 0), 3);
    EXPECT_EQ(record.add("a", "3", 0), 4);
    EXPECT_EQ(record.data(), (Pairs{{"a", "1"}, {"b", "2"}, {"a", "3"}}));
}

TEST(EkvaAddval, CopiesBothStrings) {
    char key[] = "key";
    char val[] = "val";
    Record record(ekva_new(1, 4));
    record.add(key, val, 0);
    key[0] = val[0] = 'X';
    EXPECT_EQ(record.data(), (Pairs{{"key", "val"}}));
}

TEST(EkvaAddval, DoublesTheCapacityOfAFullRecord) {
    Record record(ekva_new(2, 3));
    record.add("a", "1", 0);
    record.add("b", "2", 0);
    EXPECT_EQ(record.header(), "#EKVA_10:2:3");
    EXPECT_EQ(record.add("c", "3", 0), 4);
    EXPECT_EQ(record.header(), "#EKVA_10:4:3");
    record.add("d", "4", 0);
    EXPECT_EQ(record.header(), "#EKVA_10:4:3");
    record.add("e", "5", 0);
    EXPECT_EQ(record.header(), "#EKVA_10:8:3");
    EXPECT_EQ(record.data(), (Pairs{{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4"}, {"e", "5"}}));
}

TEST(EkvaAddval, GrowsAFullRecordThoughNothingIsAdded) {
    Record record(Pairs{{"a", "1"}}, 1);
    EXPECT_EQ(record.header(), "#EKVA_10:1:4");
    EXPECT_EQ(record.add("a", "2", 1), 2);
    EXPECT_EQ(record.header(), "#EKVA_10:2:4");
}

TEST(EkvaAddval, Modes0And3And4KeepDuplicates) {
    for (const int mode : {0, 3, 4}) {
        Record record(Pairs{{"a", "1"}});
        EXPECT_EQ(record.add("A", "2", mode), 3) << mode;
        EXPECT_EQ(record.data(), (Pairs{{"a", "1"}, {"A", "2"}})) << mode;
    }
}

TEST(EkvaAddval, Mode1LeavesThePairThatIsThere) {
    Record record(Pairs{{"a", "1"}, {"b", "2"}});
    EXPECT_EQ(record.add("A", "9", 1), 3);
    EXPECT_EQ(record.data(), (Pairs{{"a", "1"}, {"b", "2"}}));
    EXPECT_EQ(record.add("c", "3", 1), 4);
    EXPECT_EQ(record.data(), (Pairs{{"a", "1"}, {"b", "2"}, {"c", "3"}}));
}

TEST(EkvaAddval, Mode2ReplacesEveryMatchingValue) {
    Record record(Pairs{{"a", "1"}, {"b", "2"}, {"A", "3"}, {"a", "4"}});
    EXPECT_EQ(record.add("a", "new", 2), 5);
    EXPECT_EQ(record.data(), (Pairs{{"a", "new"}, {"b", "2"}, {"A", "new"}, {"a", "new"}}));
}

TEST(EkvaAddval, Mode2WithANullValueMakesAllNull) {
    Record record(Pairs{{"a", "1"}, {"a", "2"}, {"a", "3"}});
    EXPECT_EQ(record.add("a", nullptr, 2), 4);
    EXPECT_EQ(record.data(), (Pairs{{"a", null_value}, {"a", null_value}, {"a", null_value}}));
}

TEST(EkvaAddval, Mode2LeavesANullValueNull) {
    Record record(Pairs{{"a", null_value}, {"b", "2"}});
    EXPECT_EQ(record.add("a", "1", 2), 3);
    EXPECT_EQ(record.data(), (Pairs{{"a", null_value}, {"b", "2"}}));
}

TEST(EkvaAddval, Mode2AddsAKeyThatIsNew) {
    Record record(Pairs{{"a", "1"}});
    EXPECT_EQ(record.add("b", "2", 2), 3);
    EXPECT_EQ(record.data(), (Pairs{{"a", "1"}, {"b", "2"}}));
}

TEST(EkvaAddval, TakesStringsOfTheRecordItself) {
    Record record(Pairs{{"a", "1"}, {"a", "2"}}, 2);
    record.add("a", ekva_getval(record.rec, "a"), 2);
    record.add(record.rec[1]->key, record.rec[2]->val, 0);
    EXPECT_EQ(record.data(), (Pairs{{"a", "1"}, {"a", "1"}, {"a", "1"}}));
}

TEST(EkvaAddval, LosesTheRecordWhenGrowingFails) {
    s_ekva **rec = ekva_new(1, 4);
    ekva_addval(&rec, "a", "1", 0);
    growing_fails = true;
    const int result = ekva_addval(&rec, "b", "2", 0);
    growing_fails = false;
    EXPECT_EQ(result, 0);
    EXPECT_EQ(rec, nullptr);
}

TEST(EkvaAddval, KeepsTheRecordWhenCopyingFails) {
    Record record(Pairs{{"a", "1"}});
    strdups_left = 1;  // the key's, not the value's
    const int added = record.add("b", "2", 0);
    strdups_left = 2;  // not the one that would replace the value
    const int replaced = record.add("a", "2", 2);
    strdups_left = -1;
    EXPECT_EQ(added, 0);
    EXPECT_EQ(replaced, 0);
    EXPECT_EQ(record.data(), (Pairs{{"a", "1"}}));
}

TEST(EkvaAddval, TakesAHundredThousandPairsInNoTime) {
    Record record(ekva_new(1, 4));
    for (int i = 0; i < 100000; ++i) {
        ASSERT_EQ(record.add("evrkHash", "path", 0), i + 2);
    }
    EXPECT_EQ(ekva_nument(record.rec), 100000);
    EXPECT_EQ(record.header(), "#EKVA_10:131072:4");
}

TEST(EkvaAddval, GrowsARecordWhoseHeaderWasMadeByHand) {
    Record record(record_by_hand({"#EKVA_10:2:3", "a", "b"}, 4));
    EXPECT_EQ(record.add("c", "v", 0), 4);
    EXPECT_EQ(record.header(), "#EKVA_10:4:3");
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(record.add("d", "v", 0), 5 + i);
    }
    EXPECT_EQ(record.header(), "#EKVA_10:16:3");
    EXPECT_EQ(ekva_nument(record.rec), 13);
}

TEST(EkvaAddval, FillsARecordWhoseHeaderWasMadeByHand) {
    Record record(record_by_hand({"#EKVA_10:2:1"}, 4));
    EXPECT_EQ(record.add("a", "1", 0), 2);
    EXPECT_EQ(record.add("b", "2", 0), 3);
    EXPECT_EQ(slots_of(record.rec), (Pairs{{"#EKVA_10:2:1", null_value}, {"a", "1"}, {"b", "2"}}));
}

TEST(EkvaAddval, SeesPairsThatACallerPutInOrTookOut) {
    Record record(Pairs{{"a", "1"}, {"b", "2"}});
    record.rec[3] = pair_by_hand("c", "3");
    EXPECT_EQ(record.add("d", "4", 0), 5);
    for (const int i : {4, 3}) {
        free(record.rec[i]->key);
        free(record.rec[i]->val);
        free(record.rec[i]);
        record.rec[i] = nullptr;
    }
    EXPECT_EQ(record.add("e", "5", 0), 4);
    EXPECT_EQ(record.data(), (Pairs{{"a", "1"}, {"b", "2"}, {"e", "5"}}));
}

TEST(EkvaLookup, IgnoresCase) {
    const Record record(Pairs{{"key", "1"}, {"Key", "2"}, {"other", "3"}});
    EXPECT_STREQ(ekva_getval(record.rec, "KEY"), "1");
    EXPECT_STREQ(ekva_getone(record.rec, "KEY", 0), "1");
    EXPECT_STREQ(ekva_getone(record.rec, "KEY", 1), "2");
    EXPECT_EQ(ekva_cntval(record.rec, "KEY"), 2);
}

TEST(EkvaLookup, GivesNothingForAnUnknownKey) {
    const Record record(Pairs{{"key", "1"}});
    EXPECT_EQ(ekva_getval(record.rec, "ke"), nullptr);
    EXPECT_EQ(ekva_getone(record.rec, "key", 1), nullptr);
    EXPECT_EQ(ekva_getone(record.rec, "key", -1), nullptr);
    EXPECT_EQ(ekva_cntval(record.rec, "none"), 0);
    EXPECT_EQ(ekva_getvals(record.rec, "none"), nullptr);
    EXPECT_EQ(ekva_getvals_str(record.rec, "none", ','), nullptr);
}

TEST(EkvaLookup, AcceptsANullRecord) {
    EXPECT_EQ(ekva_getval(nullptr, "a"), nullptr);
    EXPECT_EQ(ekva_getone(nullptr, "a", 0), nullptr);
    EXPECT_EQ(ekva_cntval(nullptr, "a"), 0);
    EXPECT_EQ(ekva_getvals(nullptr, "a"), nullptr);
}

TEST(EkvaLookup, HandsOutTheRecordsOwnString) {
    const Record record(Pairs{{"key", "1"}});
    EXPECT_EQ(ekva_getval(record.rec, "key"), record.rec[1]->val);
}

TEST(EkvaLookup, TakesANullValueForTheFirstPairs) {
    const Record record(Pairs{{"key", null_value}, {"key", "2"}});
    EXPECT_EQ(ekva_getval(record.rec, "key"), nullptr);
    EXPECT_STREQ(ekva_getone(record.rec, "key", 1), "2");
    EXPECT_EQ(ekva_cntval(record.rec, "key"), 2);
}

TEST(EkvaGetkey, FindsTheFirstValueWithoutRegardToCase) {
    const Record record(Pairs{{"a", "One"}, {"b", "two"}, {"c", "TWO"}});
    EXPECT_STREQ(ekva_getkey(record.rec, "Two"), "b");
    EXPECT_EQ(ekva_getkey(record.rec, "three"), nullptr);
}

TEST(EkvaGetkey, StartsAtSlot1) {
    const Record record(record_by_hand({"first", "second"}, 3));
    EXPECT_STREQ(ekva_getkey(record.rec, "v"), "second");
}

TEST(EkvaGetvals, CopiesValuesInOrderWithoutNulls) {
    const Record record(Pairs{{"a", "1"}, {"b", "2"}, {"A", null_value}, {"A", "3"}});
    const own_array values(ekva_getvals(record.rec, "a"));
    ASSERT_EQ(arr_count(values.get()), 2);
    EXPECT_STREQ(values.get()[0], "1");
    EXPECT_STREQ(values.get()[1], "3");
    EXPECT_NE(values.get()[0], record.rec[1]->val);
}

TEST(EkvaGetvals, JoinsValues) {
    const Record record(Pairs{{"a", "1"}, {"b", "2"}, {"a", "3"}});
    EXPECT_STREQ(own_string(ekva_getvals_str(record.rec, "a", '|')).get(), "1|3");
}

TEST(EkvaDup, CopiesSlotBySlot) {
    const Record record(Pairs{{"a", "1"}, {"b", null_value}}, 30, 3);
    const Record copy(ekva_dup(record.rec));
    EXPECT_EQ(slots_of(copy.rec),
              (Pairs{{"#EKVA_10:30:3", null_value}, {"a", "1"}, {"b", null_value}}));
    EXPECT_EQ(ekva_dup(nullptr), nullptr);
}

TEST(EkvaDup, OfAHeaderAloneHasAHeader) {
    const Record record(ekva_new(5, 1));
    const Record copy(ekva_dup(record.rec));
    EXPECT_EQ(slots_of(copy.rec), (Pairs{{"#EKVA_10:5:1", null_value}}));
}

TEST(EkvaDup, TakesAdditionsUpToTheCapacityThatItsHeaderTells) {
    const Record record(Pairs{{"a", "1"}}, 500);
    Record copy(ekva_dup(record.rec));
    for (int i = 0; i < 600; ++i) {
        ASSERT_EQ(copy.add("b", "2", 0), i + 3);
    }
    EXPECT_EQ(copy.header(), "#EKVA_10:1000:4");
    EXPECT_EQ(ekva_nument(record.rec), 1);
}

TEST(EkvaDup, KeepsARecordWithoutHeaderWithoutOne) {
    const Record record(record_by_hand({"a", "b"}, 3));
    Record copy(ekva_dup(record.rec));
    EXPECT_EQ(copy.add("c", "v", 0), 3);
    EXPECT_EQ(slots_of(copy.rec), (Pairs{{"a", "v"}, {"b", "v"}, {"c", "v"}}));
}

TEST(EkvaDup, KeepsALongHeaderAsItStands) {
    const std::string header = "#EKVA_10:3:2" + std::string(100, 'x');
    const Record record(record_by_hand({header.c_str(), "a"}, 5));
    const Record copy(ekva_dup(record.rec));
    EXPECT_EQ(copy.header(), header);
}

TEST(EkvaDup, GivesNullWhenMemoryFails) {
    const Record record(Pairs{{"a", "1"}, {"b", "2"}});
    strdups_left = 3;
    s_ekva **const copy = ekva_dup(record.rec);
    strdups_left = -1;
    EXPECT_EQ(copy, nullptr);
}

TEST(EkvaCopy, IsAsLargeAsItsEntriesAndKeepsTheMode) {
    const Record record(Pairs{{"a", "1"}, {"a", null_value}, {"b", "2"}}, 30, 3);
    const Record copy(ekva_copy(record.rec));
    EXPECT_EQ(copy.header(), "#EKVA_10:3:3");
    EXPECT_EQ(copy.data(), record.data());
}

TEST(EkvaCopy, OfARecordWithoutEntriesIsNull) {
    const Record record(ekva_new(5, 1));
    EXPECT_EQ(ekva_copy(record.rec), nullptr);
    EXPECT_EQ(ekva_copy(nullptr), nullptr);
}

TEST(EkvaCopy, GivesARecordWithoutHeaderOne) {
    const Record record(record_by_hand({"a"}, 2));
    const Record copy(ekva_copy(record.rec));
    EXPECT_EQ(slots_of(copy.rec), (Pairs{{"#EKVA_10:1:2", null_value}, {"a", "v"}}));
}

TEST(EkvaCopy, GivesNullWhenMemoryFails) {
    const Record record(Pairs{{"a", "1"}, {"b", "2"}});
    strdups_left = 3;
    s_ekva **const copy = ekva_copy(record.rec);
    strdups_left = -1;
    EXPECT_EQ(copy, nullptr);
}

TEST(EkvaPrint, WritesALineAPair) {
    const Record record(Pairs{{"a", "1"}, {"bb", null_value}});
    int lines = 0;
    EXPECT_EQ(stdout_of([&] { lines = ekva_print(record.rec); }), "a: <1>\nbb: NULL\n");
    EXPECT_EQ(lines, 2);
}

TEST(EkvaPrint, WritesNothingOfAnEmptyRecord) {
    const Record record(ekva_new(1, 1));
    int lines = -1;
    EXPECT_EQ(stdout_of([&] { lines = ekva_print(record.rec); }), "");
    EXPECT_EQ(lines, 0);
}

TEST(EkvaFprint, PadsTheKey) {
    const Record record(Pairs{{"a", "1"}, {"long key", null_value}});
    char *text = nullptr;
    size_t size = 0;
    FILE *const stream = open_memstream(&text, &size);
    EXPECT_EQ(ekva_fprint(record.rec, stream, 5), 2);
    fclose(stream);
    EXPECT_STREQ(own_string(text).get(), "a    : <1>\nlong key: <NULL>\n");
}

TEST(Ekva2str, JoinsPairs) {
    const Record record(Pairs{{"a", "1"}, {"b", null_value}, {"a", "x y"}});
    EXPECT_STREQ(own_string(ekva2str(record.rec, ',')).get(), "a=1,b=,a=x y");
}

TEST(Ekva2str, GivesNothingOfNothing) {
    const Record record(ekva_new(1, 1));
    EXPECT_STREQ(own_string(ekva2str(record.rec, ',')).get(), "");
    EXPECT_EQ(ekva2str(nullptr, ','), nullptr);
}

TEST(Ekva2str, StartsAtSlot1WhateverStandsBeforeIt) {
    const Record record(record_by_hand({"first", "second"}, 3));
    EXPECT_STREQ(own_string(ekva2str(record.rec, ',')).get(), "second=v");
}

TEST(Ekva2str, TakesEntriesOfAnyLength) {
    const std::string value(5000, 'v');
    const Record record(Pairs{{"a", value}, {"b", value}});
    EXPECT_EQ(std::string(own_string(ekva2str(record.rec, ';')).get()),
              "a=" + value + ";b=" + value);
}

TEST(Str2ekva, ReadsFieldsAsLinesOfAConfiguration) {
    const std::string text = " k = keep entry ,,d='two words' x,k=again,=none,word, a b=c=d";
    const Record record(str2ekva(text.c_str(), ','));
    EXPECT_EQ(record.header(), "#EKVA_10:" + std::to_string(text.size()) + ":3");
    EXPECT_EQ(record.data(),
              (Pairs{{"k", "keep entry"}, {"d", "two words"}, {"k", "again"}, {"a", "c=d"}}));
}

TEST(Str2ekva, GivesNullForNoText) {
    EXPECT_EQ(str2ekva("", ','), nullptr);
    EXPECT_EQ(str2ekva(nullptr, ','), nullptr);
}

TEST(Str2ekva, GivesAnEmptyRecordForTextWithoutPairs) {
    const Record record(str2ekva(",x,", ','));
    EXPECT_EQ(record.header(), "#EKVA_10:3:3");
    EXPECT_THAT(record.data(), IsEmpty());
}

TEST(Str2ekva, TellsAPairThatCannotBeAdded) {
    s_ekva **rec = nullptr;
    const std::string told = stderr_of([&] {
        strdups_left = 2;
        rec = str2ekva("a=1,b=2", ',');
        strdups_left = -1;
    });
    EXPECT_EQ(told, "failed to add value <b> for key <2>");
    EXPECT_EQ(Record(rec).data(), (Pairs{{"a", "1"}}));
}

namespace {

// A list of records made from pairs.
class List {
 public:
    explicit List(const std::vector<Pairs> &records, int capacity = 1) : capacity_(capacity) {
        for (const Pairs &pairs : records) {
            add(Record(pairs).rec);
        }
    }
    ~List() {
        ekva_list_free(list);
    }
    List(const List &) = delete;
    List &operator=(const List &) = delete;

    void add(s_ekva *const *rec) {
        count = ekva_list_add(&list, rec, count, &capacity_);
    }
    // The value of `id` of each record.
    std::vector<std::string> ids() const {
        std::vector<std::string> found;
        for (size_t i = 0; list && list[i]; ++i) {
            found.emplace_back(ekva_getval(list[i], "id"));
        }
        return found;
    }

    s_ekva ***list = nullptr;
    int count = 0;
    int capacity() const {
        return capacity_;
    }

 private:
    int capacity_;
};

}  // namespace

TEST(EkvaListAdd, AppendsCopiesAndStaysTerminated) {
    List list({});
    const Record record(Pairs{{"id", "1"}}, 20);
    for (int i = 1; i <= 5; ++i) {
        list.add(record.rec);
        EXPECT_EQ(list.count, i);
        EXPECT_EQ(list.list[i], nullptr);
    }
    EXPECT_STREQ(list.list[4][0]->key, "#EKVA_10:1:4");
    EXPECT_EQ(list.capacity(), 8);
}

TEST(EkvaListAdd, AllocatesForTheFirstRecordWhateverTheVariableHeld) {
    s_ekva **nowhere = nullptr;
    s_ekva ***list = &nowhere;
    int capacity = 3;
    const Record record(Pairs{{"id", "1"}});
    EXPECT_EQ(ekva_list_add(&list, record.rec, 0, &capacity), 1);
    EXPECT_NE(list, &nowhere);
    ekva_list_free(list);
}

TEST(EkvaListAdd, LeavesNoHoleForARecordWithoutEntries) {
    List list({Pairs{{"id", "1"}}});
    const Record empty(ekva_new(1, 1));
    list.add(empty.rec);
    EXPECT_EQ(list.count, 1);
    list.add(Record(Pairs{{"id", "2"}}).rec);
    EXPECT_THAT(list.ids(), ElementsAre("1", "2"));
}

TEST(EkvaListAdd, KeepsTheListWhenGrowingFails) {
    List list({Pairs{{"id", "1"}}}, 1);
    const Record record(Pairs{{"id", "2"}});
    growing_fails = true;
    list.add(record.rec);
    growing_fails = false;
    EXPECT_EQ(list.count, 1);
    EXPECT_THAT(list.ids(), ElementsAre("1"));
}

TEST(EkvaListFree, AcceptsNull) {
    ekva_list_free(nullptr);
}

TEST(EkvaListSearch, MindsCase) {
    const List list({Pairs{{"key", "One"}}});
    EXPECT_EQ(ekva_list_get_ekva(list.list, "KEY", "One"), nullptr);
    EXPECT_EQ(ekva_list_get_ekva(list.list, "key", "one"), nullptr);
    EXPECT_EQ(ekva_list_get_ekva(list.list, "key", "One"), list.list[0]);
    EXPECT_EQ(ekva_list_cnt_ekva(list.list, "KEY", "One"), 0);
    EXPECT_EQ(ekva_list_cnt_ekva(list.list, "KEY", nullptr), 0);
}

TEST(EkvaListSearch, FindsTheNthMatch) {
    const List list({Pairs{{"a", "2"}}, {{"a", "1"}, {"b", "x"}, {"a", "1"}}, {{"a", "1"}}});
    EXPECT_EQ(ekva_list_get_ekva(list.list, "a", "1"), list.list[1]);
    EXPECT_EQ(ekva_list_get_ekva_seq(list.list, "a", "1", 0), list.list[1]);
    EXPECT_EQ(ekva_list_get_ekva_seq(list.list, "a", "1", 1), list.list[1]);
    EXPECT_EQ(ekva_list_get_ekva_seq(list.list, "a", "1", 2), list.list[2]);
    EXPECT_EQ(ekva_list_get_ekva_seq(list.list, "a", "1", 3), nullptr);
}

TEST(EkvaListSearch, CountsPairs) {
    const List list({Pairs{{"a", "1"}, {"a", "1"}, {"a", null_value}}, {{"a", "2"}}, {{"b", "1"}}});
    EXPECT_EQ(ekva_list_cnt_ekva(list.list, "a", "1"), 2);
    EXPECT_EQ(ekva_list_cnt_ekva(list.list, "a", nullptr), 4);
    EXPECT_EQ(ekva_list_cnt_ekva(nullptr, "a", nullptr), 0);
    EXPECT_EQ(ekva_list_get_ekva(nullptr, "a", "1"), nullptr);
}

TEST(EkvaListSort, OrdersByTheFirstValueOfTheKey) {
    List list({Pairs{{"id", "1"}, {"Name", "b"}, {"name", "a"}},
               {{"id", "2"}, {"NAME", "a"}},
               {{"id", "3"}, {"name", "B"}}});
    ekva_list_sort(&list.list, "name");
    EXPECT_THAT(list.ids(), ElementsAre("3", "2", "1"));
}

TEST(EkvaListSort, KeepsTheOrderOfEqualRecords) {
    List list({Pairs{{"id", "1"}, {"n", "b"}},
               {{"id", "2"}, {"n", "a"}},
               {{"id", "3"}, {"n", "b"}},
               {{"id", "4"}, {"n", "a"}}});
    ekva_list_sort(&list.list, "n");
    EXPECT_THAT(list.ids(), ElementsAre("2", "4", "1", "3"));
}

TEST(EkvaListSort, LeavesRecordsWithoutAValueInTheWay) {
    List list({Pairs{{"id", "1"}, {"n", "c"}},
               {{"id", "2"}, {"n", "b"}},
               {{"id", "3"}},
               {{"id", "4"}, {"n", "z"}},
               {{"id", "5"}, {"n", "a"}},
               {{"id", "6"}, {"n", null_value}},
               {{"id", "7"}, {"n", "a"}}});
    ekva_list_sort(&list.list, "n");
    EXPECT_THAT(list.ids(), ElementsAre("2", "1", "3", "5", "4", "6", "7"));
}

TEST(EkvaListSort, AcceptsShortLists) {
    s_ekva ***none = nullptr;
    ekva_list_sort(&none, "n");
    List one({Pairs{{"id", "1"}, {"n", "c"}}});
    ekva_list_sort(&one.list, "n");
    EXPECT_THAT(one.ids(), ElementsAre("1"));
}

TEST(EkvaListSortx, TakesACompareFunction) {
    List list(
        {Pairs{{"id", "1"}, {"n", "10"}}, {{"id", "2"}, {"n", "9"}}, {{"id", "3"}, {"n", "9.5"}}});
    ekva_list_sortx(&list.list, "n", list_cmp_num);
    EXPECT_THAT(list.ids(), ElementsAre("2", "1", "3"));
    ekva_list_sortx(&list.list, "n", nullptr);
    EXPECT_THAT(list.ids(), ElementsAre("1", "2", "3"));
}

// The order that is promised, by the method that defines it.
static std::vector<std::string> bubble_sorted(std::vector<Pairs> records,
                                              int (*compare)(const char *, const char *)) {
    for (size_t length = records.size(); length > 1; --length) {
        for (size_t i = 0; i + 1 < length; ++i) {
            const bool both = records[i].size() > 1 && records[i + 1].size() > 1;
            if (both &&
                compare(records[i][1].second.c_str(), records[i + 1][1].second.c_str()) > 0) {
                std::swap(records[i], records[i + 1]);
            }
        }
    }
    std::vector<std::string> ids;
    for (const Pairs &record : records) {
        ids.push_back(record[0].second);
    }
    return ids;
}

TEST(EkvaListSortx, GivesTheOrderOfABubbleSortOnAnyList) {
    std::mt19937 random(1);
    for (int round = 0; round < 200; ++round) {
        std::vector<Pairs> records;
        for (size_t i = 0, size = random() % 30; i < size; ++i) {
            records.push_back({{"id", std::to_string(i)}});
            if (random() % 6 != 0) {
                const std::string value =
                    std::to_string(random() % 4) + "." + std::to_string(random() % 10);
                records.back().emplace_back("n", value);
            }
        }
        for (auto compare : {static_cast<int (*)(const char *, const char *)>(strcmp), list_cmp_num,
                             list_cmp_addr}) {
            List list(records);
            ekva_list_sortx(&list.list, "n", compare);
            EXPECT_EQ(list.ids(), bubble_sorted(records, compare));
        }
    }
}
