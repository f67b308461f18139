#include "pvrm/interruption.h"

#include <poll.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>

#include "transaction/interrupt.h"
#include "ui/vrmui.h"

static void ask_for_an_end(int) {
    vrm_stop_requested = 1;
}

static void set_handler(int signal, void (*handler)(int)) {
    struct sigaction action = {};
    sigemptyset(&action.sa_mask);
    // Without SA_RESTART: the read that waits for an answer must come back.
    action.sa_handler = handler;
    sigaction(signal, &action, nullptr);
}

void outlive_watchers() {
    // Ignored, not handled: the commands of packages inherit that.
    set_handler(SIGHUP, SIG_IGN);
    set_handler(SIGPIPE, SIG_IGN);
}

void hold_signals() {
    outlive_watchers();
    set_handler(SIGINT, ask_for_an_end);
    set_handler(SIGTERM, ask_for_an_end);
    // Its default would end a change half way, and leave the lock.
    set_handler(SIGQUIT, ask_for_an_end);
}

bool await_input(int fd) {
    sigset_t asking, before;
    sigemptyset(&asking);
    for (const int signal : {SIGINT, SIGQUIT, SIGTERM}) {
        sigaddset(&asking, signal);
    }
    // They are let in by the wait alone, which they end.
    pthread_sigmask(SIG_BLOCK, &asking, &before);
    pollfd input = {fd, POLLIN, 0};
    int ready = -1;
    while (!vrm_stop_requested && (ready = ppoll(&input, 1, nullptr, &before)) < 0 &&
           errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return ready > 0;
}

bool was_interrupted(int status) {
    // One from the keyboard reaches us as well, one that was sent to the command alone does not.
    const int signal = status > 0 && WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    const bool killed = signal == SIGINT || signal == SIGQUIT || signal == SIGTERM;
    const int shell = status > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    if (killed || shell == 128 + SIGINT || shell == 128 + SIGQUIT) {
        vrm_stop_requested = 1;
    }
    return vrm_stop_requested;
}

bool user_agrees(const std::string &question, int default_answer) {
    return !was_interrupted() && vrmui_yesno(vrmui, question.c_str(), default_answer) == 1 &&
           !was_interrupted();
}
