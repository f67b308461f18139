#include "powercut/subject.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include "faults/cases.h"
#include "faults/tracer.h"
#include "support/own.h"

subject subject_of_case(const std::string &name) {
    const fault_case &which = case_named(name);
    subject made;
    made.name = name;
    made.prepare = [&which] {
        make_world();
        begin_case(which);
    };
    made.change = execution_of(which.command);
    made.packages = paths_of_all_packages();
    made.recovery = recovery_of_tool();
    return made;
}

// --- Programs that are known
// ----------------------------------------------------------------------

namespace {

constexpr int known_files = 6;
const std::string known_place = "/srv/known";

// Each package is one file. Those of even numbers exist before and are replaced.
std::string file_number(int number) {
    return known_place + "/file" + std::to_string(number);
}

std::string new_content(int number) {
    return std::string(9000, static_cast<char>('a' + number)) + "\n";
}

void write_olds() {
    for (int number = 0; number < known_files; number += 2) {
        write_file(file_number(number), "old " + std::to_string(number) + "\n");
    }
}

bool sync_path(const std::string &path) {
    const own_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file.valid() && fsync(file.get()) == 0;
}

int exchange_files(bool syncs_file, bool syncs_directory) {
    for (int number = 0; number < known_files; number++) {
        const std::string target = file_number(number), beside = target + ".new";
        write_file(beside, new_content(number));
        if ((syncs_file && !sync_path(beside)) || rename(beside.c_str(), target.c_str()) != 0 ||
            (syncs_directory && !sync_path(known_place))) {
            perror(target.c_str());
            return 1;
        }
        const std::string line = "installed file" + std::to_string(number) + "_any_1\n";
        if (write(STDOUT_FILENO, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
            return 1;
        }
    }
    return 0;
}

subject known_subject(const std::string &name, bool syncs_file, bool syncs_directory) {
    subject made;
    made.name = name;
    made.prepare = write_olds;
    made.change = [syncs_file, syncs_directory] {
        return exchange_files(syncs_file, syncs_directory);
    };
    // What lies beside its target when the cut comes is of no use any more.
    made.recovery = {"/bin/sh", "-c", "rm -f " + known_place + "/*.new"};
    for (int number = 0; number < known_files; number++) {
        made.packages.push_back(
            {"file" + std::to_string(number), {file_number(number)}, {}, {}, {}});
    }
    return made;
}

}  // namespace

const std::vector<subject> &known_subjects() {
    static const std::vector<subject> all = {
        known_subject("careless", false, false),
        known_subject("file-only", true, false),
        known_subject("dir-only", false, true),
        known_subject("careful", true, true),
    };
    return all;
}
