// The backend as a program has it: loaded, and connected to directories of a test.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "kit/package_maker.h"
#include "repository/vrc.h"
#include "support/log.h"

// Loads the backend for its lifetime.
class LoadedBackend {
 public:
    LoadedBackend() : library_(vrm_vrc_load(VRC_DIRS_SO)) {
        EXPECT_TRUE(library_);
    }
    ~LoadedBackend() {
        if (library_) {
            vrm_vrc_close(library_);
        }
    }
    LoadedBackend(const LoadedBackend &) = delete;
    LoadedBackend &operator=(const LoadedBackend &) = delete;

 private:
    void *library_;
};

struct Found {
    int count = 0;
    vri **list = nullptr;  // as the backend left it, null if it was left alone
};

class Connection {
 public:
    // Keys that are empty are not configured.
    Connection(const std::string &dirs, const std::string &cache) : conf_(ekva_init(10)) {
        if (!dirs.empty()) {
            add("vrc_dirs", dirs);
        }
        if (!cache.empty()) {
            add("vrc_dirs_cache", cache);
        }
        connection_ = pvrm_vrc_connect(conf_.get(), llog);
        EXPECT_TRUE(connection_);
        watch();
    }
    ~Connection() {
        pvrm_vrc_set_report(connection_, nullptr, nullptr);
        pvrm_vrc_release(connection_);
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    void *get() const {
        return connection_;
    }
    void watch() {
        pvrm_vrc_set_report(connection_, take_report, this);
    }
    s_ekva **configuration() const {
        return conf_.get();
    }
    int refresh() const {
        return pvrm_vrc_refresh(connection_);
    }
    // What was reported since the last call: "<kind>: <path>: <text>: <error>", without what a
    // report leaves out.
    std::vector<std::string> reports() {
        return std::exchange(reports_, {});
    }
    own_vri_list all() const {
        return find(nullptr);
    }
    own_vri_list find(const char *name, const char *variant = nullptr,
                      const char *version = nullptr, s_ekva **filter = nullptr) const {
        vri **out = nullptr;
        const int count = pvrm_vrc_findpkg(connection_, name, variant, version, 5, filter, &out);
        int listed = 0;
        while (out && out[listed]) {
            listed++;
        }
        EXPECT_EQ(count, listed);
        EXPECT_EQ(count == 0, out == nullptr);
        return own_vri_list(out);
    }
    // "name version" of each record.
    std::vector<std::string> names(const char *name = nullptr) const {
        std::vector<std::string> result;
        const own_vri_list list = find(name);
        for (vri **info = list.get(); info && *info; info++) {
            result.push_back(std::string((*info)->name) + " " + (*info)->version);
        }
        return result;
    }

 private:
    void add(const char *key, const std::string &value) {
        s_ekva **record = conf_.release();
        ekva_addval(&record, key, value.c_str(), 0);
        conf_.reset(record);
    }
    static void take_report(const vrc_report *report, void *context) {
        static constexpr const char *kinds[] = {"",        "directory", "part", "damaged",
                                                "skipped", "warning",   "error"};
        std::string line = kinds[report->kind];
        for (const char *part : {report->path, report->text, report->package}) {
            line += part ? std::string(": ") + part : "";
        }
        line += report->error ? std::string(": ") + strerror(report->error) : "";
        static_cast<Connection *>(context)->reports_.push_back(line);
        vrm_vrc_report(report, "vrc-dirs");  // as a program has it logged
    }
    std::vector<std::string> reports_;
    own_ekva conf_;
    void *connection_;
};

// A package file with the head alone, which is all that a catalogue reads.
inline void write_head(const std::string &path, const std::string &head,
                       const std::string &magic = "EVRM20") {
    const TempDir dir;
    write_package(path, magic, head, dir.write("empty", ""));
}
inline void write_head(const std::string &path, const std::string &name, const std::string &version,
                       const std::string &more) {
    PackageSpec spec;
    spec.name = name;
    spec.version = version;
    spec.more = more;
    write_head(path, description_of(spec));
}
