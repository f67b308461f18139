#include "kit/capture.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "kit/temp_dir.h"

namespace {

// Sends one descriptor to a file as long as it lives.
class Diverted {
 public:
    Diverted(int descriptor, FILE *stream) : descriptor_(descriptor), stream_(stream) {
        flush();
        kept_ = dup(descriptor_);
        FILE *file = fopen(path().c_str(), "wb");
        if (kept_ < 0 || !file || dup2(fileno(file), descriptor_) < 0) {
            perror("cannot divert a stream");
            abort();
        }
        fclose(file);
    }
    ~Diverted() {
        end();
    }
    void end() {
        if (kept_ < 0) {
            return;
        }
        flush();
        dup2(kept_, descriptor_);
        close(kept_);
        kept_ = -1;
    }
    std::string path() const {
        return dir_ / "stream";
    }

 private:
    void flush() {
        fflush(stream_);
        std::cout.flush();
    }
    TempDir dir_;
    int descriptor_;
    FILE *stream_;
    int kept_;
};

std::string output_of(int descriptor, FILE *stream, const std::function<void()> &code) {
    Diverted diverted(descriptor, stream);
    code();
    diverted.end();
    return read_all(diverted.path());
}

}  // namespace

std::string stderr_of(const std::function<void()> &code) {
    return output_of(STDERR_FILENO, stderr, code);
}

std::string stdout_of(const std::function<void()> &code) {
    return output_of(STDOUT_FILENO, stdout, code);
}

ShellResult shell(const std::string &command) {
    fflush(nullptr);
    FILE *pipe = popen(("exec 2>&1\n" + command).c_str(), "r");
    if (!pipe) {
        return {-1, "cannot start a shell"};
    }
    ShellResult result{-1, ""};
    char block[4096];
    for (size_t got; (got = fread(block, 1, sizeof block, pipe)) > 0;) {
        result.out.append(block, got);
    }
    const int status = pclose(pipe);
    if (status != -1 && WIFEXITED(status)) {
        result.status = WEXITSTATUS(status);
    }
    return result;
}

std::string must_run(const std::string &command) {
    const ShellResult result = shell(command);
    EXPECT_EQ(result.status, 0) << command << "\n" << result.out;
    return result.out;
}

std::string shell_word(const std::string &word) {
    std::string out = "'";
    for (const char c : word) {
        if (c == '\'') {
            out += "'\\''";
        } else {
            out += c;
        }
    }
    return out + "'";
}
