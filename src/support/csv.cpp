#include "support/csv.h"

#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "support/array.h"
#include "support/boundary.h"
#include "support/own.h"
#include "support/text.h"

static void append_field(std::string &line, std::string_view text, char separator, bool always) {
    const bool quoted = always || text.find(separator) != std::string_view::npos;
    if (quoted) {
        line += '"';
    }
    for (const char c : text) {
        if (c == '"') {
            line += "\"\"";
        } else if (c == '\n') {
            line += "\\n";
        } else {
            line += c;
        }
    }
    if (quoted) {
        line += '"';
    }
}

char *csv_quote(const char *text, char separator, int always) {
    return guarded(nullptr, [&]() -> char * {
        if (!text) {
            return nullptr;
        }
        std::string field;
        append_field(field, text, separator, always != 0);
        return strdup(field.c_str());
    });
}

char *arr2csv(char *const *array, char separator, int always) {
    return guarded(nullptr, [&]() -> char * {
        if (!array) {
            return nullptr;
        }
        std::string line;
        for (char *const *entry = array; *entry; ++entry) {
            if (entry != array) {
                line += separator;
            }
            append_field(line, *entry, separator, always != 0);
        }
        return strdup(line.c_str());
    });
}

// The field parser: what all three readers run over a line without its end.
namespace {

class field_machine {
 public:
    field_machine(std::string_view line, char separator) : line_(line), separator_(separator) {}

    // The fields; null when memory fails.
    char **run() {
        while (at_ < line_.size()) {
            step();
        }
        if (!complete_) {
            end_field();
        }
        return to_c_array(fields_).release();
    }

 private:
    bool next_is(char c) const {
        return at_ + 1 < line_.size() && line_[at_ + 1] == c;
    }

    void step() {
        const char c = line_[at_];
        if (c == '"' && quoted_) {
            quote_in_quotes();
            return;
        }
        if (c == '"' && field_.empty()) {
            quoted_ = true;
        } else if (c == separator_ && !quoted_) {
            end_field();
        } else if (c == '\\' && stands_for_newline()) {
            field_ += '\n';
            ++at_;
        } else {
            field_ += c;
        }
        ++at_;
    }

    void quote_in_quotes() {
        if (next_is('"')) {
            field_ += '"';
            at_ += 2;
        } else if (next_is(separator_)) {
            at_ += 2;
            end_field();
        } else if (++at_ == line_.size()) {
            complete_ = true;
            end_field();
        } else {
            field_ += '"';
        }
    }

    // Whether backslash and n are here. A line can't start with a newline, and of two backslashes
    // the second is none that says anything.
    bool stands_for_newline() const {
        return next_is('n') && at_ > 0 && line_[at_ - 1] != '\\';
    }

    void end_field() {
        fields_.push_back(std::exchange(field_, {}));
        quoted_ = false;
    }

    std::string_view line_;
    char separator_;
    size_t at_ = 0;
    std::string field_;
    bool quoted_ = false;
    bool complete_ = false;  // a closing quote has ended the line's last field
    std::vector<std::string> fields_;
};

}  // namespace

char **lgetcsv(const char *line, char separator) {
    return guarded(nullptr, [&] { return line ? field_machine(line, separator).run() : nullptr; });
}

static void drop_suffix(std::string_view &line, char c) {
    if (line.ends_with(c)) {
        line.remove_suffix(1);
    }
}

const char *sgetcsv(const char *text, size_t /*length*/, char separator, char ***array) {
    return guarded(nullptr, [&]() -> const char * {
        if (!text || !*text) {
            return nullptr;
        }
        std::string_view line(text, strcspn(text, "\n"));
        const char *const behind = text + line.size() + 1;
        drop_suffix(line, '\r');
        if (!line.empty()) {
            char **const fields = field_machine(line, separator).run();
            if (!fields) {
                return nullptr;
            }
            *array = fields;
        }
        return behind;
    });
}

char **fgetcsv(FILE *stream, char separator, int bom) {
    return guarded(nullptr, [&]() -> char ** {
        char *block = nullptr;
        size_t size = 0;
        const ssize_t length = getline(&block, &size, stream);
        const own_string owner(block);
        if (length < 1) {
            return nullptr;
        }
        std::string_view line(block, static_cast<size_t>(length));
        // A last line that the end of the stream cut off has no line end to drop.
        if (!feof(stream)) {
            drop_suffix(line, '\n');
            drop_suffix(line, '\r');
        }
        if (line.empty()) {
            return nullptr;
        }
        if (bom && line.size() >= 4 && line.starts_with("\xEF\xBB\xBF")) {
            line.remove_prefix(3);
        }
        return field_machine(line, separator).run();
    });
}

char **csv2arr(const char *text, char separator) {
    return str2arr(text, separator);
}

namespace {

// What a record holds of one key, in any case of letters.
struct key_values {
    int count = 0;
    std::string joined;  // the values that aren't null
    bool any = false;
};

// All keys of a record, gathered in one walk.
std::unordered_map<std::string, key_values> gather(s_ekva *const *first) {
    std::unordered_map<std::string, key_values> keys;
    for (; *first; ++first) {
        key_values &values = keys[lower_case((*first)->key)];
        ++values.count;
        if ((*first)->val) {
            values.joined.append(values.any ? "|" : "").append((*first)->val);
            values.any = true;
        }
    }
    return keys;
}

}  // namespace

char *ekva2csv(s_ekva *const *rec, char separator, int quote, int header) {
    return guarded(nullptr, [&]() -> char * {
        if (!rec) {
            return nullptr;
        }
        s_ekva *const *const first = ekva_first_pair(rec);
        const auto keys = gather(first);
        std::string line;
        for (s_ekva *const *slot = first; *slot; ++slot) {
            const s_ekva &pair = **slot;
            if (strstr(pair.key, ";binary")) {
                continue;
            }
            if (slot != first) {
                line += separator;
            }
            if (header) {
                append_field(line, pair.key, separator, quote != 0);
            } else if (pair.val) {
                const key_values &values = keys.at(lower_case(pair.key));
                append_field(line, values.joined, separator, quote != 0);
                while (values.count > 1 && slot[1] && strcmp(slot[1]->key, pair.key) == 0) {
                    ++slot;
                }
            }
        }
        return strdup(line.c_str());
    });
}
