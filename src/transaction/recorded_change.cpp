#include "transaction/recorded_change.h"

#include <algorithm>
#include <cstdio>
#include <optional>

static recorded_change begun(const record_entry &entry) {
    recorded_change change;
    change.operation = entry.value("operation");
    change.name = entry.value("name");
    change.puname = entry.value(change.operation == "remove" ? "old" : "new");
    change.stage = entry.value("stage");
    change.absent = entry.all("absent");
    return change;
}

recorded_command command_of(const read_record &record) {
    recorded_command command;
    for (const record_entry &entry : record.entries) {
        const std::string &kind = entry.kind();
        if (kind == "command") {
            command.temporary = entry.value("temporary");
        } else if (kind == "begin") {
            command.changes.push_back(begun(entry));
        } else if (kind == "did") {
            for (recorded_change &change : command.changes) {
                const auto found =
                    std::find(change.due.begin(), change.due.end(), entry.value("due"));
                if (change.name == entry.value("name") && found != change.due.end()) {
                    change.due.erase(found);
                }
            }
        } else if (!command.changes.empty()) {
            recorded_change &change = command.changes.back();
            if (kind == "script") {
                change.scripts.push_back(entry.value("name"));
            } else if (kind == "replaced") {
                change.saved_sets.push_back(entry.value("saved_set"));
            } else if (kind == "touch") {
                change.touch = &entry;
            } else if (kind == "commit") {
                change.commit = &entry;
                change.due = entry.all("due");
            } else if (kind == "undone") {
                change.undone = true;
            } else if (kind == "done") {
                change.done = true;
            }
        }
    }
    return command;
}

// "<number> <mode> <owner> <group> <device> <inode> <path>"
static std::optional<kept_path> kept_of(const std::string &text) {
    kept_path kept = {};
    unsigned long long device = 0, inode = 0;
    int path_at = 0;
    if (sscanf(text.c_str(), "%d %o %u %u %llu %llu %n", &kept.number, &kept.mode, &kept.owner,
               &kept.group, &device, &inode, &path_at) != 6) {
        return std::nullopt;
    }
    kept.device = device;
    kept.inode = inode;
    kept.path = text.substr(static_cast<size_t>(path_at));
    return kept.path.starts_with('/') ? std::optional(kept) : std::nullopt;
}

touched_paths touched_of(const recorded_change &change, const std::string &temporary) {
    touched_paths touched;
    touched.keep = change.stage + "/keep";
    touched.temporary = temporary;
    for (const auto &[name, value] : change.touch->values()) {
        if (name == "kept") {
            if (const auto kept = kept_of(value)) {
                touched.kept.push_back(*kept);
            }
        } else if (name == "absent") {
            touched.absent.push_back(value);
        } else if (name == "gone") {
            touched.gone_links.push_back(value);
        } else if (name == "mode") {
            const size_t blank = value.find(' ');
            touched.modes.emplace_back(leading_number<mode_t>(value.substr(0, blank), 8),
                                       value.substr(blank + 1));
        }
    }
    return touched;
}

const char *noun_of(std::string_view operation) {
    return operation == "update" ? "upgrade" : operation == "remove" ? "removal" : "installation";
}
