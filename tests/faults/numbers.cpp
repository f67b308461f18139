#include "faults/numbers.h"

#include <algorithm>

// What the operations of a range have in common: the call, or several, and the path if it is one.
static std::string text_of_range(const std::vector<size_t> &range,
                                 const std::vector<operation> &trace) {
    const operation &first = trace.at(range.front());
    if (std::all_of(range.begin(), range.end(),
                    [&](size_t number) { return text_of(trace.at(number)) == text_of(first); })) {
        return text_of(first);
    }
    std::vector<std::string> calls;
    bool is_one_path = true;
    for (const size_t number : range) {
        const operation &op = trace.at(number);
        if (std::find(calls.begin(), calls.end(), op.call) == calls.end()) {
            calls.push_back(op.call);
        }
        is_one_path = is_one_path && op.path == first.path && op.other.empty();
    }
    std::string text;
    for (const std::string &call : calls) {
        text.append(text.empty() ? "" : ", ").append(call);
    }
    return is_one_path ? text + " " + first.path : text;
}

std::string text_of_numbers(const std::vector<size_t> &numbers, const std::vector<size_t> &tried,
                            const std::vector<operation> &trace) {
    std::string text;
    auto next = numbers.begin();
    while (next != numbers.end()) {
        std::vector<size_t> range;
        auto at = std::find(tried.begin(), tried.end(), *next);
        while (next != numbers.end() && at != tried.end() && *next == *at) {
            range.push_back(*next);
            ++next;
            ++at;
        }
        if (range.empty()) {
            range.push_back(*next++);  // not tried at all: that is the caller's mistake
        }
        text.append(text.empty() ? "" : ", ").append(std::to_string(range.front()));
        if (range.size() > 1) {
            text.append("-").append(std::to_string(range.back()));
        }
        text.append(" (").append(text_of_range(range, trace)).append(")");
    }
    return text;
}
