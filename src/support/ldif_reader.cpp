#include "support/ldif_reader.h"

#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "support/base64.h"
#include "support/file.h"
#include "support/own.h"

// Lengths of names and values are 32-bit signed numbers outside.
static constexpr size_t longest = INT_MAX - 1;
static constexpr size_t longest_bare_path = 1999;
static constexpr std::string_view file_scheme = "file://";

const char *ldif_unfold(const char *text, std::string &line) {
    line.clear();
    for (;;) {
        const char *const end = strchrnul(text, '\n');
        line.append(text, end);
        text = end;
        if (text[0] != '\n' || text[1] != ' ') {
            return text;
        }
        text += 2;
    }
}

bool ldif_reader::next() {
    if (*at_ == '\0') {
        return false;
    }
    end_ = ldif_unfold(at_, line_);
    const bool cut = end_ != at_ && end_[-1] == '\r';
    if (line_.find('\r') != std::string::npos) {
        line_.erase(std::remove(line_.begin(), line_.end(), '\r'), line_.end());
    }
    // A line that ends in a carriage return loses the character before it along with it. Texts
    // whose line ends may be of that kind go through ldif_get_entry first, which loses nothing.
    if (cut && !line_.empty()) {
        line_.pop_back();
    }
    // A text must not be parsed behind its terminator.
    at_ = *end_ == '\0' ? end_ : end_ + 1;
    return line_.size() <= longest && take_apart();
}

bool ldif_reader::take_apart() {
    binary_ = false;
    value_.clear();
    name_.clear();
    if (line_.empty()) {
        kind_ = kind::empty;
        return true;
    }
    if (line_[0] == '#') {
        kind_ = kind::comment;
        name_ = value_ = "#";
        return true;
    }
    kind_ = kind::attribute;
    const size_t colon = line_.find(':');
    name_.assign(line_, 0, colon);
    if (colon == std::string::npos) {
        return true;
    }
    const char separator = line_.c_str()[colon + 1];
    if (separator == ':') {
        return decode(colon + 3);
    }
    if (separator == '<') {
        take_reference(colon + 3);
    } else if (name_.find(";binary") != std::string::npos) {
        take_reference(colon + 2);
    } else {
        value_ = text_from(colon + 2);
    }
    return true;
}

const char *ldif_reader::text_from(size_t from) const {
    return line_.c_str() + std::min(from, line_.size());
}

bool ldif_reader::decode(size_t from) {
    binary_ = true;
    const char *const source = text_from(from);
    value_.resize(std::strlen(source) / 4 * 3 + 3);
    const int count =
        lutil_b64_pton(source, reinterpret_cast<unsigned char *>(value_.data()), value_.size());
    value_.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return count > 0;
}

void ldif_reader::take_reference(size_t from) {
    if (policy_ != references::followed) {
        kind_ = kind::reference;
        return;
    }
    binary_ = true;
    const std::string_view reference = text_from(from);
    const std::string path(reference.starts_with(file_scheme)
                               ? reference.substr(file_scheme.size())
                               : reference.substr(0, longest_bare_path));
    struct stat info;
    const own_file file(fopen_regular(path.c_str(), &info));
    if (!file || info.st_size > static_cast<off_t>(longest)) {
        return;
    }
    value_.resize(static_cast<size_t>(info.st_size));
    if (fread(value_.data(), 1, value_.size(), file.get()) != value_.size()) {
        value_.clear();
    }
}
