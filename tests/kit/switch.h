// What is on within the life of an object: a fault that is caused, say. Each subject has its own.
#pragma once

template <typename Subject>
class Switch {
 public:
    Switch() {
        active_ = true;
    }
    ~Switch() {
        active_ = false;
    }
    Switch(const Switch &) = delete;
    Switch &operator=(const Switch &) = delete;

    static bool active() {
        return active_;
    }

 private:
    static inline bool active_ = false;
};
