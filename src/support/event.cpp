#include "support/event.h"

#include <sys/wait.h>

#include <cerrno>
#include <cstring>

#include "support/boundary.h"
#include "support/log.h"

namespace {

struct row {
    uint32_t level;
    const char *name;
    std::string_view line;
};

constexpr row rows[] = {
#define VRM_EVENT_ROW(kind, level, line) {level, #kind, line},
    VRM_EVENTS(VRM_EVENT_ROW)
#undef VRM_EVENT_ROW
};

const row &row_of(event_kind kind) {
    return rows[static_cast<size_t>(kind)];
}

event_receiver receiver_function = nullptr;
void *receiver_context = nullptr;

// How a command ended, by its raw wait status.
std::string ending_of(int status) {
    if (status == -1) {
        return "it could not be run";
    }
    if (WIFSIGNALED(status)) {
        return std::string("it was ended by the signal ") + strsignal(WTERMSIG(status));
    }
    return "exit status " + std::to_string(WEXITSTATUS(status));
}

// Appends the value of that name; false when there is none.
bool append_value(std::string *out, std::string_view name, const event &happened) {
    if (name == "package") {
        out->append(happened.package);
    } else if (name == "path") {
        out->append(happened.path);
    } else if (name == "other") {
        out->append(happened.other);
    } else if (name == "found") {
        out->append(happened.found);
    } else if (name == "who") {
        out->append(happened.who);
    } else if (name == "reason") {
        const bool has_text = happened.error == 0 && !happened.other.empty();
        out->append(has_text ? happened.other : strerror(happened.error));
    } else if (name == "status") {
        out->append(std::to_string(happened.status));
    } else if (name == "ending") {
        out->append(ending_of(happened.status));
    } else if (name == "number") {
        out->append(std::to_string(happened.number));
    } else if (name == "total") {
        out->append(std::to_string(happened.total));
    } else {
        return false;
    }
    return true;
}

}  // namespace

std::string fill_in(std::string_view text, const event &happened) {
    std::string out;
    while (!text.empty()) {
        const size_t open = text.find('{');
        const size_t close = open == text.npos ? open : text.find('}', open);
        if (close == text.npos) {
            break;
        }
        out.append(text.substr(0, open));
        if (!append_value(&out, text.substr(open + 1, close - open - 1), happened)) {
            out.append(text.substr(open, close - open + 1));
        }
        text.remove_prefix(close + 1);
    }
    return out.append(text);
}

uint32_t event_level(event_kind kind) {
    return row_of(kind).level;
}

const char *event_name(event_kind kind) {
    return row_of(kind).name;
}

std::string event_line(const event &happened) {
    return fill_in(row_of(happened.kind).line, happened);
}

void report(const event &happened) noexcept {
    const int saved_errno = errno;
    const uint32_t level = event_level(happened.kind);
    if (level != 0 && log_wants(level)) {
        const auto name_only = [&] { log_say(level, "%s", row_of(happened.kind).name); };
        guarded(name_only, [&] { log_say(level, "%s", event_line(happened).c_str()); });
    }
    if (receiver_function) {
        receiver_function(happened, receiver_context);
    }
    errno = saved_errno;
}

void receive_events(event_receiver receiver, void *context) {
    receiver_function = receiver;
    receiver_context = context;
}
