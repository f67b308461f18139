// Collects what audits report as events of the level 0, in the engine's own words.
#pragma once

#include <string>
#include <vector>

#include "kit/event_receiver.h"

struct FindingCapture {
    std::vector<std::string> lines;

    const EventReceiver receiver = EventReceiver([this](const event &happened) {
        if (event_level(happened.kind) == 0) {
            lines.push_back(event_line(happened));
        }
    });
};
