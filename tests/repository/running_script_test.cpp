#include "repository/running_script.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "kit/log_capture.h"
#include "kit/temp_dir.h"
#include "kit/test_repo.h"
#include "support/own.h"

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

std::string boot_of_now() {
    std::string id;
    std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), id);
    return id;
}

// Field 22 of a process whose name is one word.
uint64_t start_of(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    const std::vector<std::string> fields{std::istream_iterator<std::string>(file), {}};
    return fields.size() > 21 ? std::stoull(fields[21]) : 0;
}

// A process that waits until the end of this object.
class OtherProcess {
 public:
    OtherProcess() : id_(fork()) {
        if (id_ == 0) {
            pause();
            _exit(0);
        }
    }
    ~OtherProcess() {
        end();
        waitpid(id_, nullptr, 0);
    }
    OtherProcess(const OtherProcess &) = delete;
    OtherProcess &operator=(const OtherProcess &) = delete;

    pid_t id() const {
        return id_;
    }
    // Ends it; nobody has waited for it then.
    void end() const {
        kill(id_, SIGKILL);
        siginfo_t ended;
        waitid(P_PID, static_cast<id_t>(id_), &ended, WEXITED | WNOWAIT);
    }

 private:
    const pid_t id_;
};

class RunningScript : public testing::Test {
 protected:
    std::string path() const {
        return repo_.in("script.running");
    }
    void write(const std::string &text) const {
        std::ofstream(path()) << text;
    }
    std::optional<running_script> read() {
        return read_running_script(repo_.handle(), &why_);
    }
    // What the file said while a command ran.
    std::string noted_during(const char *package, const char *command) const {
        const script_note note(package, command);
        EXPECT_EQ(run_shell(("cat " + path() + " >" + copy()).c_str()), 0);
        return read_all(copy());
    }
    std::string copy() const {
        return repo_.dir() / "copy";
    }

    TestRepo repo_;
    LogCapture log_;
    std::string why_;
};

}  // namespace

TEST_F(RunningScript, IsNotedWhileItsShellRuns) {
    ASSERT_EQ(vrm_lock(repo_.handle()), 0);
    running_script noted = {};
    mode_t mode = 0;
    {
        const script_note note("hello", "99-add.sh");
        const std::string look =
            "echo $$ >" + copy() + "; cp -p " + path() + " " + copy() + ".note";
        ASSERT_EQ(run_shell(look.c_str()), 0);
        EXPECT_FALSE(exists(path()));
    }
    fs::rename(copy() + ".note", path());
    const auto found = read();
    ASSERT_TRUE(found) << why_;
    noted = *found;
    struct stat status;
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    mode = status.st_mode & 07777;
    EXPECT_EQ(std::to_string(noted.process) + "\n", read_all(copy()));
    EXPECT_GE(noted.started, start_of(getpid()));
    EXPECT_EQ(noted.boot, boot_of_now());
    EXPECT_EQ(noted.package, "hello");
    EXPECT_EQ(noted.command, "99-add.sh");
    EXPECT_EQ(mode, 0644u);
    EXPECT_FALSE(still_runs(noted));
}

TEST_F(RunningScript, IsNotedOnlyUnderTheLock) {
    const std::string look = "test ! -e " + path();
    const script_note note("hello", "99-add.sh");
    EXPECT_EQ(run_shell(look.c_str()), 0);
    ASSERT_EQ(vrm_lock(repo_.handle()), 0);
    EXPECT_EQ(run_shell(look.c_str()), 1 << 8);
    ASSERT_EQ(vrm_unlock(repo_.handle()), 0);
    EXPECT_EQ(run_shell(look.c_str()), 0);
}

TEST_F(RunningScript, HasALineForEachThing) {
    ASSERT_EQ(vrm_lock(repo_.handle()), 0);
    EXPECT_THAT(noted_during("hello", "99-add.sh"),
                testing::MatchesRegex("process [0-9]+\nstarted [0-9]+\nboot [-0-9a-f]+\n"
                                      "package hello\ncommand 99-add.sh\n"));
    EXPECT_THAT(noted_during(nullptr, "/bin/x 'a\nprocess 1\n'"),
                HasSubstr("\npackage \ncommand /bin/x 'a process 1 '\n"));
    const std::string longest(10'000, 'x');
    EXPECT_LT(noted_during(longest.c_str(), longest.c_str()).size(), 1000u);
}

TEST_F(RunningScript, TakesThePlaceOfWhatIsThere) {
    ASSERT_EQ(vrm_lock(repo_.handle()), 0);
    const std::string other = repo_.dir().write("other", "text\n");
    for (const char *name : {"script.running", "script.running.new"}) {
        fs::create_symlink(other, repo_.in(name));
    }
    EXPECT_THAT(noted_during("hello", "99-add.sh"), HasSubstr("package hello\n"));
    EXPECT_EQ(read_all(other), "text\n");
}

TEST_F(RunningScript, RunsAllTheSameWhereItCannotBeNoted) {
    ASSERT_EQ(vrm_lock(repo_.handle()), 0);
    fs::create_directory(path());
    {
        const script_note note("hello", "99-add.sh");
        EXPECT_EQ(run_shell("exit 3"), 3 << 8);
    }
    EXPECT_TRUE(log_.has(LEVEL_WARNING,
                         "cannot write " + path() +
                             ": Is a directory; if the program is killed while 99-add.sh runs, the "
                             "next change does not wait for it"));
    EXPECT_TRUE(fs::is_directory(path()));
    EXPECT_FALSE(exists(path() + ".new"));
}

TEST_F(RunningScript, IsReadFromItsNote) {
    write(
        "process 1234\nstarted 18446744073709551615\nboot b\npackage hello\ncommand /bin/x 'a "
        "b'\n");
    const auto script = read();
    ASSERT_TRUE(script) << why_;
    EXPECT_EQ(script->process, 1234);
    EXPECT_EQ(script->started, UINT64_MAX);
    EXPECT_EQ(script->boot, "b");
    EXPECT_EQ(script->package, "hello");
    EXPECT_EQ(script->command, "/bin/x 'a b'");
}

TEST_F(RunningScript, MayLackWhatIsForMessagesOnlyAndHaveMore) {
    write("process 1234\nstarted 0\nboot \npackage \nlater 1\ncommand x\n");
    ASSERT_TRUE(read()) << why_;
    EXPECT_EQ(read()->package, "");
}

TEST_F(RunningScript, IsNotReadFromAnythingElse) {
    const std::string rest = "started 1\nboot b\npackage p\ncommand c\n";
    const std::string too_long = "process 1\n" + rest + std::string(5000, 'x') + "\n";
    const std::string zeros(100, '\0');
    for (const std::string &text :
         {std::string("\n"), std::string("garbage"), zeros, "\xff\xfe" + rest, rest,
          "process \n" + rest, "process 0\n" + rest, "process -1\n" + rest, "process 1x\n" + rest,
          "process  1\n" + rest, "process 2147483648\n" + rest,
          "process 99999999999999999999999999\n" + rest,
          std::string("process 1\nboot b\npackage p\ncommand c\n"),
          std::string("process 1\nstarted -1\ncommand c\n"),
          std::string("process 1\nstarted 18446744073709551616\ncommand c\n"),
          std::string("process 1\nstarted 1\nboot b\npackage p\n"),
          std::string("process 1\nstarted 1\nboot b\npackage p\ncommand c"), too_long}) {
        write(text);
        EXPECT_FALSE(read()) << text;
        EXPECT_NE(why_, "") << text;
    }
}

TEST_F(RunningScript, IsSilentlyNoneWithoutANoteOrWithAnEmptyOne) {
    EXPECT_FALSE(read());
    EXPECT_EQ(why_, "");
    write("");
    EXPECT_FALSE(read());
    EXPECT_EQ(why_, "");
}

TEST_F(RunningScript, IsNotBelievedOfAFileThatOthersCanMake) {
    const std::string good = "process 1234\nstarted 1\nboot b\npackage p\ncommand c\n";
    write(good);
    ASSERT_TRUE(read());
    for (const mode_t mode : {0664u, 0646u, 0666u}) {
        chmod(path().c_str(), mode);
        EXPECT_FALSE(read()) << mode;
        EXPECT_EQ(why_, "others may write to it");
    }
    chmod(path().c_str(), 0644);
    // As another user sees a file of ours, unless we are root.
    if (getuid() == 0) {
        ASSERT_EQ(chown(path().c_str(), 65534, 65534), 0);
        EXPECT_FALSE(read());
        EXPECT_EQ(why_, "it belongs to another user");
    }
    const auto expect_refused = [this](const char *reason) {
        EXPECT_FALSE(read());
        EXPECT_EQ(why_, reason);
    };
    fs::remove(path());
    fs::create_symlink(repo_.dir().write("elsewhere", good), path());
    expect_refused("it is a link");
    fs::remove(path());
    ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
    expect_refused("it is not a regular file");
    fs::remove(path());
    fs::create_directory(path());
    expect_refused("it is not a regular file");
}

TEST_F(RunningScript, IsDroppedWhateverHasItsName) {
    drop_running_script(repo_.handle());
    ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
    drop_running_script(repo_.handle());
    EXPECT_FALSE(exists(path()));
}

TEST_F(RunningScript, RunsAsLongAsItsProcess) {
    const OtherProcess other;
    const running_script script = {other.id(), start_of(other.id()), boot_of_now(), "p", "c"};
    EXPECT_TRUE(still_runs(script));
    running_script changed = script;
    changed.started++;
    EXPECT_FALSE(still_runs(changed));
    changed = script;
    changed.boot = "another";
    EXPECT_FALSE(still_runs(changed));
    changed = script;
    changed.started = 0;
    changed.boot = "";
    EXPECT_TRUE(still_runs(changed));
    // It is not gone before its parent waits for it.
    other.end();
    EXPECT_FALSE(still_runs(script));
}

TEST_F(RunningScript, DoesNotRunWithoutItsProcess) {
    pid_t gone;
    {
        const OtherProcess other;
        gone = other.id();
    }
    EXPECT_FALSE(still_runs({gone, 0, "", "p", "c"}));
    EXPECT_FALSE(still_runs({INT32_MAX, 0, "", "p", "c"}));
}

TEST_F(RunningScript, IsNeverTheProgramItself) {
    EXPECT_FALSE(still_runs({getpid(), 0, "", "p", "c"}));
    EXPECT_FALSE(still_runs({getpid(), start_of(getpid()), boot_of_now(), "p", "c"}));
}

TEST_F(RunningScript, IsFoundUnderANameWithBlanksAndBrackets) {
    const std::string program = repo_.dir() / ") S 1 (x";
    fs::copy_file("/bin/sleep", program);
    const pid_t process = fork();
    if (process == 0) {
        execl(program.c_str(), program.c_str(), "1000", nullptr);
        _exit(127);
    }
    const auto name = [process] {
        std::string line;
        std::getline(std::ifstream("/proc/" + std::to_string(process) + "/comm"), line);
        return line;
    };
    while (name() != ") S 1 (x") {
        usleep(1000);
    }
    EXPECT_FALSE(still_runs({process, 1, boot_of_now(), "p", "c"}));
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::stringstream text;
    text << file.rdbuf();
    std::istringstream rest(text.str().substr(text.str().rfind(')') + 1));
    const std::vector<std::string> fields{std::istream_iterator<std::string>(rest), {}};
    EXPECT_TRUE(still_runs({process, std::stoull(fields[19]), boot_of_now(), "p", "c"}));
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}
