#include "tools/vrk-build/payload.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <exception>
#include <memory>

#include "support/digest.h"
#include "support/own.h"
#include "tools/vrk-build/problem.h"

namespace {

// A member as it was found in the first reading, or was made here.
struct member {
    const source_file *file = nullptr;  // null: `content` is the member
    std::string content;
    std::string digest;  // of a file
};

// In the order of the archive.
using member_map = std::map<std::string, member>;

// What the archive library calls back into. An exception must not cross it, and it is never told of
// a failure, as a writer that failed can't be freed as a whole: the rest is passed over.
struct sink_state {
    const payload_sink &sink;
    bool given_up = false;
    std::exception_ptr failure = nullptr;
};

using own_writer = std::unique_ptr<archive, release_with<archive_write_free>>;
using own_entry = std::unique_ptr<archive_entry, release_with<archive_entry_free>>;

}  // namespace

static problem changed(const source_file &file) {
    return problem(file.path + " changed while it was packed");
}

// Hands the content of a file to `take` in pieces. Result: its digest.
template <typename Take>
static std::string read_file(const source_file &file, Take take) {
    // It may have become a pipe, at which an opening would wait.
    const int fd = open(file.path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    const own_file in(fd < 0 ? nullptr : fdopen(fd, "r"));
    struct stat status;
    if (!in || fstat(fd, &status) != 0) {
        throw system_problem(file.path);
    }
    if (!S_ISREG(status.st_mode)) {
        throw changed(file);
    }
    SHA1_CTX context;
    SHA1Init(&context);
    uint64_t total = 0;
    std::vector<unsigned char> block(1 << 16);
    while (const size_t got = fread(block.data(), 1, block.size(), in.get())) {
        total += got;
        if (total > file.size) {
            throw changed(file);
        }
        SHA1Update(&context, block.data(), got);
        take(block.data(), got);
    }
    if (ferror(in.get())) {
        throw system_problem(file.path);
    }
    if (total != file.size) {
        throw changed(file);
    }
    std::array<unsigned char, 20> digest;
    SHA1Final(digest.data(), &context);
    std::string text;
    for (const unsigned char byte : digest) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

static std::string digest_of(const std::string &text) {
    char digest[41];
    return sha1_data(reinterpret_cast<const unsigned char *>(text.data()), text.size(), 'x',
                     digest);
}

// All members: the files, the description, and the list of each fork that has files. The list of
// the lists' own fork doesn't exist.
static member_map list_members(const source_tree &tree, const std::string &description) {
    member_map members;
    for (const auto &[name, file] : tree.files) {
        members[name] = {&file, "", read_file(file, [](const unsigned char *, size_t) {})};
    }
    members["info/desc.txt"] = {nullptr, description, digest_of(description)};
    std::map<std::string, std::string> lists;
    for (const auto &[name, one] : members) {
        const size_t slash = name.find('/');
        lists["hash/" + name.substr(0, slash) + ".txt"] +=
            one.digest + ":" + name.substr(slash + 1) + "\n";
    }
    for (const auto &[name, list] : lists) {
        members[name] = {nullptr, list, ""};
    }
    return members;
}

static void must(archive *writer, const sink_state &state, int result, const std::string &what) {
    if (state.failure) {
        std::rethrow_exception(state.failure);
    }
    if (result != ARCHIVE_OK) {
        const char *reason = archive_error_string(writer);
        throw problem(what + " can't be packed: " + (reason ? reason : "unknown failure"));
    }
}

static la_ssize_t hand_to_sink(archive *, void *state, const void *bytes, size_t count) {
    auto *to = static_cast<sink_state *>(state);
    if (!to->given_up) {
        try {
            to->sink(bytes, count);
        } catch (...) {
            to->failure = std::current_exception();
            to->given_up = true;
        }
    }
    return static_cast<la_ssize_t>(count);
}

static void write_bytes(archive *writer, const sink_state &state, const void *bytes, size_t count,
                        const std::string &name) {
    const auto *from = static_cast<const unsigned char *>(bytes);
    while (count > 0) {
        const la_ssize_t written = archive_write_data(writer, from, count);
        must(writer, state, written > 0 ? ARCHIVE_OK : ARCHIVE_FATAL, name);
        from += written;
        count -= static_cast<size_t>(written);
    }
}

// Nothing of the machine or the moment goes into a header: owner 0, time 0, numbered inodes, and of
// the mode only whether the file may be executed.
static void write_header(archive *writer, const sink_state &state, const std::string &name,
                         const member &one, int64_t number) {
    own_entry entry(archive_entry_new());
    if (!entry) {
        throw std::bad_alloc();
    }
    archive_entry_set_pathname(entry.get(), name.c_str());
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), one.file && one.file->executable ? 0755 : 0644);
    archive_entry_set_size(entry.get(),
                           static_cast<la_int64_t>(one.file ? one.file->size : one.content.size()));
    archive_entry_set_mtime(entry.get(), 0, 0);
    archive_entry_set_ino64(entry.get(), number);
    archive_entry_set_nlink(entry.get(), 1);
    must(writer, state, archive_write_header(writer, entry.get()), name);
}

static void write_member(archive *writer, const sink_state &state, const std::string &name,
                         const member &one, int64_t number) {
    write_header(writer, state, name, one, number);
    if (!one.file) {
        write_bytes(writer, state, one.content.data(), one.content.size(), name);
        return;
    }
    const std::string digest = read_file(*one.file, [&](const unsigned char *bytes, size_t count) {
        write_bytes(writer, state, bytes, count, name);
    });
    if (digest != one.digest) {
        throw changed(*one.file);
    }
}

void write_payload(const source_tree &tree, const std::string &description,
                   const payload_sink &sink) {
    const member_map members = list_members(tree, description);
    sink_state state{sink};
    // Freed, the writer brings its archive to an end, which is nobody's when this isn't reached.
    const auto pass_over = [](sink_state *unfinished) { unfinished->given_up = true; };
    own_writer writer(archive_write_new());
    const std::unique_ptr<sink_state, decltype(pass_over)> guard(&state, pass_over);
    if (!writer) {
        throw std::bad_alloc();
    }
    archive *raw = writer.get();
    const std::string what = "the payload";
    must(raw, state, archive_write_set_format_cpio_newc(raw), what);
    must(raw, state, archive_write_add_filter_gzip(raw), what);
    // No time and no name in the gzip header either.
    must(raw, state, archive_write_set_filter_option(raw, "gzip", "timestamp", nullptr), what);
    must(raw, state, archive_write_set_filter_option(raw, "gzip", "compression-level", "9"), what);
    // The file ends with the compressed data: no padding to a block of a tape.
    must(raw, state, archive_write_set_bytes_in_last_block(raw, 1), what);
    must(raw, state, archive_write_open(raw, &state, nullptr, hand_to_sink, nullptr), what);
    int64_t number = 1;
    for (const auto &[name, one] : members) {
        write_member(raw, state, name, one, number++);
    }
    must(raw, state, archive_write_close(raw), what);
}
