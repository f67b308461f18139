#include "support/cmd.h"

#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "support/boundary.h"
#include "support/file.h"
#include "support/ldif.h"
#include "support/own.h"
#include "support/shell.h"

// A file under /tmp that nobody else can read, removed at the end.
class temp_file {
 public:
    explicit temp_file(const char *pattern) : path_(pattern) {
        const int fd = mkstemp(path_.data());
        made_ = fd >= 0;
        if (made_) {
            close(fd);
        }
    }
    ~temp_file() {
        if (made_) {
            remove(path_.c_str());
        }
    }
    temp_file(const temp_file &) = delete;
    temp_file &operator=(const temp_file &) = delete;

    bool made() const {
        return made_;
    }
    const std::string &path() const {
        return path_;
    }

 private:
    std::string path_;
    bool made_;
};

int cmd_exec(const char *command, char **out, size_t *out_length, char **err, size_t *err_length) {
    return guarded(-1, [&] {
        static constexpr size_t command_limit = 65000;
        *out = *err = nullptr;
        *out_length = *err_length = 0;

        const temp_file out_file("/tmp/out.cmd_execXXXXXX");
        if (!out_file.made()) {
            fprintf(stderr, "cmd_exec: failed to create outfile: %s\n", strerror(errno));
            return -1;
        }
        const temp_file err_file("/tmp/err.cmd_execXXXXXX");
        if (!err_file.made()) {
            fprintf(stderr, "cmd_exec: failed to create errfile: %s\n", strerror(errno));
            return -1;
        }
        std::string line(command, strnlen(command, command_limit));
        line += " 1>" + out_file.path() + " 2>" + err_file.path();
        const int status = run_shell(line.c_str()).value_or(-1);
        *out = _read_file(out_file.path().c_str(), out_length);
        *err = _read_file(err_file.path().c_str(), err_length);
        return status;
    });
}

int cmd_exec_user(const char *command, const char *, char **out, size_t *out_length, char **err,
                  size_t *err_length) {
    return cmd_exec(command, out, out_length, err, err_length);
}

namespace {

// One pass over a mask.
class mask_parser {
 public:
    mask_parser(std::string_view mask, s_ekva *const *rec, int quote_mode)
        : rest_(mask), rec_(rec), quote_(quote_mode == 2 ? "''" : R"('"'"')") {
        out_.reserve(mask.size());
    }

    const std::string &parse() {
        while (!rest_.empty()) {
            const char c = take();
            if (c == '$') {
                placeholder();
            } else if (c != '\\') {
                out_ += c;
            } else if (!rest_.empty()) {
                out_ += take();
            }
        }
        return out_;
    }

 private:
    char take() {
        const char c = rest_.front();
        rest_.remove_prefix(1);
        return c;
    }

    void placeholder() {
        if (rest_.starts_with('{')) {
            take();
            braced();
        } else {
            bare();
        }
    }

    void bare() {
        size_t end = 0;
        while (end < rest_.size() && isalnum(static_cast<unsigned char>(rest_[end]))) {
            end++;
        }
        const std::string name(rest_.substr(0, end));
        rest_.remove_prefix(end);
        // Only the character behind a name ends it: at the end of the mask the name is dropped.
        if (!rest_.empty()) {
            value(ekva_getval(rec_, name.c_str()));
        }
    }

    void braced() {
        std::string name;
        while (!rest_.empty()) {
            const bool selector = selects();
            if (!selector && rest_.front() != '}') {
                // A bracket that opens no selector is dropped; what follows it belongs to the name.
                const char c = take();
                if (c != '[') {
                    name += c;
                }
                continue;
            }
            // An empty name ends the placeholder, but what ended it stays as text.
            if (name.empty()) {
                return;
            }
            if (selector) {
                selected(name);
            } else {
                take();
                value(ekva_getval(rec_, name.c_str()));
            }
            return;
        }
    }

    // Whether "[]}" comes next, or "[c]}".
    bool selects() const {
        return rest_.starts_with("[]}") ||
               (rest_.starts_with('[') && rest_.size() >= 4 && rest_.substr(2, 2) == "]}");
    }

    void selected(const std::string &name) {
        const bool plain = rest_.starts_with("[]}");
        const char c = plain ? ',' : rest_[1];
        rest_.remove_prefix(plain ? 3 : 4);
        if (isdigit(static_cast<unsigned char>(c))) {
            value(ekva_getone(rec_, name.c_str(), c - '0'));
        } else {
            value(own_string(ekva_getvals_str(rec_, name.c_str(), c)).get());
        }
    }

    void value(const char *text) {
        for (; text && *text; text++) {
            if (*text == '\'') {
                out_ += quote_;
            } else {
                out_ += *text;
            }
        }
    }

    std::string_view rest_;
    s_ekva *const *rec_;
    std::string_view quote_;
    std::string out_;
};

}  // namespace

char *cmd_mask_parse_ext(const char *mask, s_ekva *const *rec, int quote_mode) {
    return guarded(nullptr, [&] {
        return mask ? strdup(mask_parser(mask, rec, quote_mode).parse().c_str()) : nullptr;
    });
}

char *cmd_mask_parse(const char *mask, s_ekva *const *rec) {
    return cmd_mask_parse_ext(mask, rec, 1);
}

char *cmd_mask_parse_ldif_ext(const char *mask, const char *ldif, int quote_mode) {
    if (!ldif || strlen(ldif) > INT32_MAX) {
        return nullptr;
    }
    const own_ekva rec(ldif2ekva(ldif, static_cast<int32_t>(strlen(ldif))));
    return rec ? cmd_mask_parse_ext(mask, rec.get(), quote_mode) : nullptr;
}

char *cmd_mask_parse_ldif(const char *mask, const char *ldif) {
    return cmd_mask_parse_ldif_ext(mask, ldif, 1);
}
