// The change of one key in a configuration file.
#pragma once

#include <optional>
#include <string>

// The text that stands for a value in a line of the configuration, in quotes if it takes them.
// Nothing when no text is read back as this value, or when it holds a control character.
std::optional<std::string> config_text(const std::string &value);

// Holds other processes of this tool off a configuration file, until the end of this object.
class config_lock {
 public:
    explicit config_lock(const std::string &path);
    ~config_lock();
    config_lock(const config_lock &) = delete;
    config_lock &operator=(const config_lock &) = delete;
    bool held() const;

 private:
    int dir_;
};

// Gives every line of a key in the file this text as its value. The old file is kept as
// "<path>.prev", and owner and permissions stay. False with the reason on stderr, and the file as
// it was; an older "<path>.prev" may be gone then.
bool replace_in_config(const std::string &path, const std::string &key, const std::string &text);

// The same with a new line at the end of the file.
bool add_to_config(const std::string &path, const std::string &key, const std::string &text);
