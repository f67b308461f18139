// A locked repository, for the tests of what looks at all of it and may change it.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "kit/log_capture.h"
#include "kit/scripted_user.h"
#include "kit/test_repo.h"
#include "maintenance/upkeep.h"
#include "repository/repository.h"
#include "support/log.h"
#include "transaction/interrupt.h"

class LockedRepo : public testing::Test {
 protected:
    LockedRepo() {
        EXPECT_EQ(vrm_lock(repo_.handle()), 0);
    }
    ~LockedRepo() override {
        dry_run = false;
        vrm_stop_requested = 0;
    }

    // Without the lock a function does nothing, and says so.
    template <typename Function>
    void expect_lock_needed(const std::string &name, Function function) {
        ASSERT_EQ(vrm_unlock(repo_.handle()), 0);
        EXPECT_EQ(function(), -1);
        EXPECT_EQ(
            log_.lines(),
            (std::vector<LogCapture::Line>{{"ERROR", name + ": no lock on local repository"}}));
    }

    TestRepo repo_;
    LogCapture log_;
    ScriptedUser &user_ = ScriptedUser::fresh();
};
