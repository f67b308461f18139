// What the tests of the reports share: two packages, and the texts that are expected of them, which
// stand in files of their own.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "kit/log_capture.h"
#include "kit/scripted_user.h"
#include "kit/temp_dir.h"
#include "kit/time_zone.h"
#include "maintenance/report.h"
#include "support/arch.h"
#include "ui/vrmui.h"

inline own_vri package_of(const char *name, const char *version, const char *description) {
    own_vri package(static_cast<vri *>(calloc(1, sizeof(vri))));
    package->name = strdup(name);
    package->version = strdup(version);
    package->description = strdup(description);
    package->arch = arch_any;
    return package;
}

// Only what every record has.
inline own_vri bare_package() {
    return package_of("base", "1", "The base");
}

// Everything that a record can have.
inline own_vri full_package() {
    own_vri package = package_of("editor", "2.10", "A small editor");
    package->variant = strdup("small");
    package->creator = strdup("Jane Doe <jane@example.org>");
    package->arch = arch_x86_64;
    package->deps = str2arr("libtext,terminal", ',');
    package->datasize = 1572864;
    package->filesize = 2048;
    package->filehash = strdup("0123456789abcdef0123456789abcdef01234567");
    package->absolute_uri = strdup("/srv/editor_small_x86_64_2.10.vrk");
    package->relative_uri = strdup("editor_small_x86_64_2.10.vrk");
    package->install_time = 1700000000;
    package->install_type = 'D';
    package->install_head = strdup("desk");
    package->update_times = static_cast<int64_t *>(calloc(3, sizeof(int64_t)));
    package->update_times[0] = 1710000000;
    package->update_times[1] = 1720000000;
    package->rsa_sig_subj = strdup("/O=Test/CN=Builder");
    package->rsa_sig_data = static_cast<unsigned char *>(malloc(3));
    memcpy(package->rsa_sig_data, "\x01\x00\xff", 3);
    package->rsa_sig_len = 3;
    package->sig_status = 1;
    return package;
}

// The dates of the expected texts are those of Greenwich.
class Report : public testing::Test {
 protected:
    static std::string expected(const std::string &name) {
        return read_all(std::string(VRM_SOURCE_DIR "/tests/maintenance/reports/") + name);
    }
    // What a piece of code writes to a stream, which it leaves open.
    std::string written(const std::function<void(FILE *)> &code) {
        const std::string path = dir_ / "report";
        FILE *const stream = fopen(path.c_str(), "w");
        code(stream);
        EXPECT_EQ(fclose(stream), 0);
        return read_all(path);
    }

    TimeZone zone_ = TimeZone("UTC");
    ScriptedUser &user_ = ScriptedUser::fresh();
    LogCapture log_;
    TempDir dir_;
};
