// The keys of the configuration that the tool knows, and what may be their values.
#pragma once

#include <span>
#include <string>

struct config_key {
    const char *name;
    const char *default_value;  // null: none
    const char *backend;        // the backend that reads it; null: whichever is configured
    // Why a value can't be used, as the end of a sentence "KEY can't be VALUE: ..."; empty when it
    // can.
    std::string (*refuses)(const std::string &value);
};

std::span<const config_key> config_keys();

// The key of this name, with no regard to case, or null.
const config_key *find_config_key(const std::string &name);
