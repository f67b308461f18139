#include "support/boundary.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include "kit/event_receiver.h"

TEST(Guarded, HandsOnTheResultOfTheBody) {
    EXPECT_EQ(guarded(-1, [] { return 7; }), 7);
    EXPECT_EQ(*guarded(nullptr, [] { return std::make_unique<int>(7); }), 7);
}

TEST(Guarded, GivesTheFailureWhenMemoryFails) {
    errno = 0;
    EXPECT_EQ(guarded(-1, []() -> int { throw std::bad_alloc(); }), -1);
    EXPECT_EQ(errno, ENOMEM);
}

TEST(Guarded, CallsAFailureThatIsAFunction) {
    std::string seen;
    guarded([&] { seen = "failed"; }, [] { throw std::bad_alloc(); });
    EXPECT_EQ(seen, "failed");
}

TEST(Guarded, LetsOtherExceptionsPass) {
    EXPECT_THROW(guarded(-1, []() -> int { throw std::string("other"); }), std::string);
}

TEST(Guarded, ReportsThePublicFunction) {
    std::string seen;
    const EventReceiver receiver([&](const event &happened) { seen = event_line(happened); });
    EXPECT_EQ(guarded("vrm_chkhash", -1, [] { return 3; }), 3);
    EXPECT_EQ(seen, "");
    EXPECT_EQ(guarded("vrm_chkhash", -1, []() -> int { throw std::bad_alloc(); }), -1);
    EXPECT_EQ(seen, "vrm_chkhash: there is not enough memory");
}
