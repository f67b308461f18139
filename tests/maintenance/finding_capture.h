// Collects what audits report as events of the level 0, in the engine's own words.
#pragma once

#include <string>
#include <vector>

#include "support/event.h"

class FindingCapture {
 public:
    FindingCapture() {
        receive_events(take, this);
    }
    ~FindingCapture() {
        receive_events(nullptr, nullptr);
    }
    FindingCapture(const FindingCapture &) = delete;
    FindingCapture &operator=(const FindingCapture &) = delete;

    std::vector<std::string> lines;

 private:
    static void take(const event &happened, void *self) {
        if (event_level(happened.kind) == 0) {
            static_cast<FindingCapture *>(self)->lines.push_back(event_line(happened));
        }
    }
};
