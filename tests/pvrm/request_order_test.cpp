#include "pvrm/request_order.h"

#include <gtest/gtest.h>

static std::string order_of(std::vector<planned_request> requests) {
    std::string order;
    for (const planned_request &request : in_order(std::move(requests))) {
        order += request.name + " ";
    }
    return order;
}

TEST(RequestOrder, StaysWhereNothingDependsOnAnything) {
    EXPECT_EQ(order_of({{"c", "c", {}}, {"a", "a", {"x"}}, {"b", "b", {}}}), "c a b ");
    EXPECT_EQ(order_of({}), "");
}

TEST(RequestOrder, WhatIsNeededComesFirst) {
    EXPECT_EQ(order_of({{"a", "a", {"b", "c"}}, {"d", "d", {}}, {"b", "b", {"c"}}, {"c", "c", {}}}),
              "c b a d ");
}

TEST(RequestOrder, ACircleEndsWhereItBegan) {
    EXPECT_EQ(order_of({{"a", "a", {"b"}}, {"b", "b", {"a"}}}), "b a ");
}

TEST(RequestOrder, AFileIsKnownByTheNameOfItsPackage) {
    EXPECT_EQ(order_of({{"a", "a", {"b"}}, {"./b.vrk", "b", {}}}), "b a ");
}

TEST(RequestOrder, ACircleComesAsAWholeBehindWhatAPartOfItNeedsFromAfar) {
    EXPECT_EQ(order_of({{"c", "c", {"b", "d"}}, {"b", "b", {"c", "d"}}, {"d", "d", {}}}), "d b c ");
}
