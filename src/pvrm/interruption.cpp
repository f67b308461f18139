#include "pvrm/interruption.h"

#include <sys/wait.h>

#include <csignal>

#include "transaction/interrupt.h"

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
