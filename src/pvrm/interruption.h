// Signals, while the system is being changed.
#pragma once

// From here on a hang-up and a closed pipe are ignored, so that a change goes on to its end when
// nobody watches any more.
void outlive_watchers();

// The same, and INT, QUIT and TERM only ask for an end: a question is left without an answer, and
// the engine ends before the next package.
void hold_signals();

// Whether an end was asked for; also when a command of a package died of it (`status` is a raw wait
// status, or 0).
bool was_interrupted(int status = 0);
