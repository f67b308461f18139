#include "tools/vrk-build/package_attributes.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <string_view>

#include "package/safe_name.h"
#include "support/arch.h"
#include "support/ldif.h"
#include "support/own.h"
#include "tools/vrk-build/problem.h"

namespace {

// A name of a file ends at 255 bytes, and the package's file bears its unique name and ".vrk".
constexpr size_t longest_unique_name = 251;

// The attributes that stand once.
struct single {
    const char *attribute;
    std::string package_attributes::*field;
    bool required;
};
constexpr single singles[] = {
    {"evrkName", &package_attributes::name, true},
    {"evrkVariant", &package_attributes::variant, false},
    {"evrkVersion", &package_attributes::version, true},
    {"evrkArchitecture", &package_attributes::arch, true},
    {"evrkCreator", &package_attributes::creator, false},
    {"evrkDescription", &package_attributes::description, true},
};

// Those that only vrk-build knows.
constexpr const char *filled_in[] = {"evrmVersion",  "evrkDataSize",   "evrkFileSize",
                                     "evrkFileHash", "evrkRsaSigSubj", "evrkRsaSigData"};

}  // namespace

std::string read_text(const std::filesystem::path &path) {
    // Not to wait at a pipe is why it opens without blocking.
    const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat status;
    if (fd < 0 && errno == ELOOP) {
        throw problem(path.string() + " is a symbolic link, and no regular file");
    }
    if (fd < 0) {
        throw system_problem(path.string() + " can't be read");
    }
    const own_file file(fdopen(fd, "r"));
    if (!file || fstat(fd, &status) != 0) {
        throw system_problem(path.string() + " can't be read");
    }
    if (!S_ISREG(status.st_mode)) {
        throw problem(path.string() + " is no regular file");
    }
    std::string text;
    char block[4096];
    while (const size_t got = fread(block, 1, sizeof block, file.get())) {
        text.append(block, got);
        if (text.size() > INT_MAX / 2) {
            throw problem(path.string() + " is too large");
        }
    }
    if (ferror(file.get())) {
        throw system_problem(path.string() + " can't be read");
    }
    return text;
}

// A tab and a line feed are text; the rest of the control characters is not.
static bool holds_control_character(std::string_view text, bool several_lines) {
    return std::any_of(text.begin(), text.end(), [several_lines](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte == 0x7f || (byte < 0x20 && !(several_lines && (c == '\n' || c == '\t')));
    });
}

static void take_attribute(package_attributes *to, const std::string &name,
                           const std::string &value) {
    if (value.empty()) {
        throw problem("package.ldif: " + name + " has no value");
    }
    if (holds_control_character(value, strcasecmp(name.c_str(), "evrkDescription") == 0)) {
        throw problem("package.ldif: " + name + " holds a control character");
    }
    if (strcasecmp(name.c_str(), "evrkDependency") == 0) {
        to->dependencies.push_back(value);
        return;
    }
    for (const single &known : singles) {
        if (strcasecmp(name.c_str(), known.attribute) == 0) {
            std::string &field = to->*known.field;
            if (!field.empty()) {
                throw problem("package.ldif: " + name + " stands there twice");
            }
            field = value;
            return;
        }
    }
    for (const char *own : filled_in) {
        if (strcasecmp(name.c_str(), own) == 0) {
            throw problem("package.ldif: " + name +
                          " is filled in by vrk-build and must not be given");
        }
    }
    throw problem("package.ldif: " + name + " is no attribute of a package");
}

// The text in logical lines: without the marks and line ends that editors of other systems leave,
// and without folds.
static std::string normalised(std::string text) {
    if (text.starts_with("\xEF\xBB\xBF")) {
        text.erase(0, 3);
    }
    std::erase(text, '\r');
    std::string unfolded;
    unfolded.reserve(text.size());
    for (size_t at = 0; at < text.size(); at++) {
        if (text[at] == '\n' && at + 1 < text.size() && text[at + 1] == ' ') {
            at++;
        } else {
            unfolded += text[at];
        }
    }
    return unfolded;
}

static void take_line(package_attributes *to, const std::string &line) {
    const auto wrong = [&line](const char *what) {
        return problem(std::string("package.ldif: ") + what + ": " + line.substr(0, 100));
    };
    const size_t colon = line.find(':');
    if (colon == std::string::npos) {
        throw wrong("this line has no colon");
    }
    const std::string_view behind = std::string_view(line).substr(colon + 1);
    if (behind.starts_with('<') || line.find(';') < colon) {
        throw wrong("a value must stand in the file itself");
    }
    if (!behind.empty() && behind != ":" && !behind.starts_with(' ') && !behind.starts_with(": ")) {
        throw wrong("a blank must follow the colon in this line");
    }
    char *name = nullptr, *value = nullptr;
    int32_t length = 0, binary = 0;
    const char *rest = ldif_parse((line + "\n").c_str(), 0, &name, &value, &length, &binary);
    const own_string name_owner(name), value_owner(value);
    if (!rest) {
        throw wrong("this line can't be read");
    }
    take_attribute(to, name, std::string(value, static_cast<size_t>(length)));
}

// A name becomes a part of the package's unique name, whose parts stand between underscores.
static void check_name(const std::string &what, const std::string &text) {
    if (!vrk_name_is_safe(text.c_str()) || text.find('_') != std::string::npos) {
        throw problem("package.ldif: " + what + " \"" + text +
                      "\" is not allowed: only letters, digits and + - . , : ~ @ % = are, and "
                      "neither a dot nor a minus sign at the start");
    }
}

static void check_dependencies(const package_attributes &attributes) {
    for (const std::string &dependency : attributes.dependencies) {
        check_name("evrkDependency", dependency);
        if (dependency == attributes.name) {
            throw problem("package.ldif: the package depends on itself");
        }
    }
    std::vector<std::string> sorted = attributes.dependencies;
    std::sort(sorted.begin(), sorted.end());
    const auto twice = std::adjacent_find(sorted.begin(), sorted.end());
    if (twice != sorted.end()) {
        throw problem("package.ldif: evrkDependency " + *twice + " stands there twice");
    }
}

static void check_attributes(const package_attributes &attributes) {
    for (const single &known : singles) {
        if (known.required && (attributes.*known.field).empty()) {
            throw problem(std::string("package.ldif: ") + known.attribute + " is missing");
        }
    }
    check_name("evrkName", attributes.name);
    if (attributes.name.ends_with(".vrk")) {
        throw problem("package.ldif: evrkName \"" + attributes.name +
                      "\" would be taken for a file's name: it must not end in .vrk");
    }
    check_name("evrkVersion", attributes.version);
    if (!attributes.variant.empty()) {
        check_name("evrkVariant", attributes.variant);
    }
    if (attributes.variant == "default") {
        throw problem(
            "package.ldif: the variant \"default\" means no variant: leave evrkVariant out");
    }
    if (vrm_arch_getid(attributes.arch.c_str()) == arch_unknown) {
        throw problem("package.ldif: evrkArchitecture \"" + attributes.arch +
                      "\" is unknown; it is one of any, i686, x86_64 and mips");
    }
    check_dependencies(attributes);
    if (unique_name(attributes).size() > longest_unique_name) {
        throw problem(
            "package.ldif: name, variant, architecture and version are too long together: they "
            "make a file name of more than 255 bytes");
    }
}

package_attributes read_attributes(const std::filesystem::path &path) {
    const std::string text = normalised(read_text(path));
    package_attributes attributes;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        const std::string line = text.substr(at, end - at);
        at = end + 1;
        if (line.find('\0') != std::string::npos) {
            throw problem("package.ldif holds a NUL byte");
        }
        if (!line.empty() && line[0] != '#') {
            take_line(&attributes, line);
        }
    }
    check_attributes(attributes);
    return attributes;
}

std::string unique_name(const package_attributes &attributes) {
    return attributes.name + "_" + (attributes.variant.empty() ? "" : attributes.variant + "_") +
           attributes.arch + "_" + attributes.version;
}
