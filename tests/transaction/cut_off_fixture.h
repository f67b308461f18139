// What the tests of changes that are cut off share.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "kit/at_log_line.h"
#include "transaction/recover_change.h"
#include "transaction/update_fixture.h"

class CutOffChange : public Update {
 protected:
    // Runs a change in a process that dies at a log line. Result: whether it died.
    bool cut_off(const std::string &line, const std::function<int()> &change) {
        const pid_t child = fork();
        if (child == 0) {
            const AtLogLine death(line, [] { _exit(137); });
            change();
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) && WEXITSTATUS(status) == 137;
    }

    int recover() {
        log.clear();
        return vrm_recover_change(repo.handle());
    }

    void expect_nothing_left() {
        EXPECT_FALSE(exists(repo.in("change/record")));
        EXPECT_FALSE(exists(repo.in("change.status")));
        for (const auto &left : fs::directory_iterator(repo.in("stagearea"))) {
            EXPECT_EQ(left.path().extension(), ".vrk") << left.path();
        }
        for (const std::string dir : {"installed", "fileindex"}) {
            for (const auto &left : fs::directory_iterator(repo.in(dir))) {
                EXPECT_NE(left.path().filename().string()[0], '.') << left.path();
            }
        }
    }

    PackageSpec rich(const PackageSpec &base, const std::string &version) {
        PackageSpec spec = base;
        spec.data["srv/t/foo"] = "foo " + version + "\n";
        spec.data["srv/t/deep/in/" + version] = "only in " + version + "\n";
        spec.conf["srv/t/foo.conf"] = "shipped " + version + "\n";
        spec.info["link.txt"] = "/srv/t/links|to " + version + "|name\n||\n/srv/t|x" + version +
                                "|only" + version + "\n";
        spec.info["perm.txt"] = "/srv/t/mode|0600\n";
        return spec;
    }
};
