// A catalogue backend for system tests. What it knows is a text, one package a line, with a |
// behind each of name, variant, version, architecture id, description, dependencies (with commas
// between) and the path of the package file. A refresh takes /var/lib/vrm/catalogue.txt over to
// /var/lib/vrm/catalogue.known, which is what is searched. Files beside these make it misbehave:
// catalogue.no-connection, catalogue.no-refresh, catalogue.no-list (hits are counted, and the list
// is null), catalogue.short (packages arrive cut), catalogue.no-memory (there is none left to
// connect with). Each line of catalogue.reports, the kind, the errno value, the path and the text
// with a | after each, is reported by a refresh.
//
// By ABI it is built for another version of the interface; ABI=0 leaves the number out.
#include <fnmatch.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "vrm/vrc_backend.h"

#ifndef ABI
#define ABI VRC_ABI
#endif

namespace {

constexpr char base[] = "/var/lib/vrm/catalogue.";

bool asked_to(const char *misbehaviour) {
    struct stat status;
    return stat((std::string(base) + misbehaviour).c_str(), &status) == 0;
}

std::vector<std::string> fields_of(const std::string &line, char separator) {
    std::vector<std::string> fields;
    std::istringstream in(line);
    for (std::string field; std::getline(in, field, separator);) {
        fields.push_back(field);
    }
    return fields;
}

bool fits(const char *pattern, const std::string &text) {
    return text == pattern || fnmatch(pattern, text.c_str(), 0) == 0;
}

vrc_report_function reporter;
void *reporter_context;

void report_all() {
    std::ifstream in(std::string(base) + "reports");
    for (std::string line; reporter && std::getline(in, line);) {
        const auto fields = fields_of(line, '|');
        const auto text = [&](size_t i) {
            return fields.size() > i && !fields[i].empty() ? fields[i].c_str() : nullptr;
        };
        const vrc_report report = {sizeof report,
                                   static_cast<uint32_t>(std::stoi(fields[0])),
                                   std::stoi(fields[1]),
                                   0,
                                   text(2),
                                   text(3),
                                   nullptr};
        reporter(&report, reporter_context);
    }
}

vri *record_of(const std::vector<std::string> &fields) {
    auto *record = static_cast<vri *>(calloc(1, sizeof(vri)));
    record->name = strdup(fields[0].c_str());
    record->variant = fields[1].empty() ? nullptr : strdup(fields[1].c_str());
    record->version = strdup(fields[2].c_str());
    record->arch = atoi(fields[3].c_str());
    record->description = strdup(fields[4].c_str());
    const auto deps = fields_of(fields[5], ',');
    if (!deps.empty()) {
        record->deps = static_cast<char **>(calloc(deps.size() + 1, sizeof(char *)));
        for (size_t i = 0; i < deps.size(); i++) {
            record->deps[i] = strdup(deps[i].c_str());
        }
    }
    if (fields.size() > 6) {
        struct stat status;
        record->absolute_uri = strdup(fields[6].c_str());
        record->filesize =
            stat(record->absolute_uri, &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
    }
    return record;
}

}  // namespace

extern "C" {

#if ABI != 0
const uint32_t vrc_abi = ABI;
#endif

void vrc_set_report(void *, vrc_report_function report, void *context) {
    reporter = report;
    reporter_context = context;
}

void *vrc_connect(s_ekva **, void *) {
    static int connection;
    if (asked_to("no-memory")) {
        throw std::bad_alloc();
    }
    return asked_to("no-connection") ? nullptr : &connection;
}

int vrc_refresh(void *) {
    report_all();
    if (asked_to("no-refresh")) {
        return 1;
    }
    std::error_code failed;
    std::filesystem::copy_file(std::string(base) + "txt", std::string(base) + "known",
                               std::filesystem::copy_options::overwrite_existing, failed);
    return failed ? 1 : 0;
}

int vrc_findpkg(void *, const char *name, const char *, const char *version, int, s_ekva **filter,
                vri ***out) {
    std::vector<vri *> found;
    std::ifstream in(std::string(base) + "known");
    for (std::string line; std::getline(in, line);) {
        const auto fields = fields_of(line, '|');
        const bool by_name = !name || fits(name, fields[0]);
        const bool by_description = filter && filter[1] && fits(filter[1]->val, fields[4]);
        if ((by_name || by_description) && (!version || fields[2] == version)) {
            found.push_back(record_of(fields));
        }
    }
    if (asked_to("no-list")) {
        return 1;
    }
    if (!found.empty()) {
        *out = static_cast<vri **>(calloc(found.size() + 1, sizeof(vri *)));
        memcpy(*out, found.data(), found.size() * sizeof(vri *));
    }
    return static_cast<int>(found.size());
}

int vrc_readpkg(void *, vri *package, FILE *out) {
    std::ifstream in(package->absolute_uri, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    std::string bytes = text.str();
    if (asked_to("short")) {
        bytes.resize(bytes.size() / 2);
    }
    return static_cast<int>(fwrite(bytes.data(), 1, bytes.size(), out));
}

void vrc_release(void *) {}

}  // extern "C"
