// Signals, while the system is being changed, and questions that they end.
#pragma once

#include <string>

// From here on a hang-up and a closed pipe are ignored, so that a change goes on to its end when
// nobody watches any more.
void outlive_watchers();

// The same, and INT, QUIT and TERM only ask for an end: a question is left without an answer, and
// the engine ends before the next package.
void hold_signals();

// Waits until something can be read from a file, or its end. False when an end was asked for: a
// signal that comes just ahead of the wait is not missed, and the wait does not outlast it.
bool await_input(int fd);

// Whether an end was asked for; also when a command of a package died of it (`status` is a raw wait
// status, or 0).
bool was_interrupted(int status = 0);

// Asks a question before something is changed; `default_answer` is 1 for yes and 0 for no. False
// too when an end was asked for, before or meanwhile.
bool user_agrees(const std::string &question, int default_answer);
