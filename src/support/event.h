// Events: what happens in the engine, as values.
//
// Whoever finds a failure or takes a step reports it once, by its kind. The log line is made from
// the event (support/event_table.h), and so is the sentence for a user (ui/sentences.h): nothing
// needs to read a text to learn what happened.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "support/event_table.h"

enum class event_kind : uint16_t {
#define VRM_EVENT_KIND(kind, level, line) kind,
    VRM_EVENTS(VRM_EVENT_KIND)
#undef VRM_EVENT_KIND
};

#define VRM_EVENT_COUNT(kind, level, line) +1  // NOLINT(bugprone-macro-parentheses)
inline constexpr size_t number_of_event_kinds = 0 VRM_EVENTS(VRM_EVENT_COUNT);
#undef VRM_EVENT_COUNT

// A text of an event. A null pointer is "(null)", as printf writes it.
class event_text : public std::string_view {
 public:
    constexpr event_text() = default;
    event_text(const char *text) : std::string_view(text ? text : "(null)") {}  // NOLINT
    event_text(const std::string &text) : std::string_view(text) {}             // NOLINT
    constexpr event_text(std::string_view text) : std::string_view(text) {}     // NOLINT
};

// One event. The texts belong to whoever reports it and are valid during the report only. What a
// value means depends on the kind; what a kind does not need stays empty.
struct event {
    event_kind kind;
    event_text who = {};      // the public function, where several share a kind
    event_text package = {};  // a name or a unique name
    event_text path = {};     // what it is about
    event_text other = {};    // a second path or a text
    event_text found = {};    // what was found in place of `other`
    int error = 0;            // errno, 0 for none
    int status = 0;           // a raw wait status or a function's result
    int64_t number = 0;       // a count, a size in bytes or the number of a line
    int64_t total = 0;        // what `number` is of
};

// Writes the event to the log, at the level and with the line of its kind, and then gives it to the
// receiver. Keeps errno. Without memory for the line the event still reaches the receiver.
void report(const event &happened) noexcept;

// A function that gets each event. It must not throw.
using event_receiver = void (*)(const event &happened, void *context);

// Sets the one receiver of the process; null takes it away. `context` is passed on to it.
void receive_events(event_receiver receiver, void *context);

// The level of a kind, of support/log.h; 0 for one that is not logged.
uint32_t event_level(event_kind kind);

// The name of a kind as it is written in the source, for tests and debugging.
const char *event_name(event_kind kind);

// The log line of an event.
std::string event_line(const event &happened);

// A text with the event's values in place of {package}, {path}, {other}, {found}, {who}, {reason},
// {ending}, {status}, {number} and {total}. Other text in braces stays as it is.
std::string fill_in(std::string_view text, const event &happened);
