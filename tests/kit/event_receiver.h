// Receives the engine's events for a test, for as long as it exists.
#pragma once

#include <functional>
#include <utility>

#include "support/event.h"
#include "support/log.h"

class EventReceiver {
 public:
    explicit EventReceiver(std::function<void(const event &)> take) : take_(std::move(take)) {
        receive_events([](const event &happened,
                          void *self) { static_cast<EventReceiver *>(self)->take_(happened); },
                       this);
    }
    ~EventReceiver() {
        receive_events(nullptr, nullptr);
    }
    EventReceiver(const EventReceiver &) = delete;
    EventReceiver &operator=(const EventReceiver &) = delete;

 private:
    const std::function<void(const event &)> take_;
};
