// Takes an LDIF text apart into its logical lines. Private to the library: what reads line by line
// does so by this one reader, which goes through a text once and keeps its buffers from line to
// line.
#pragma once

#include <string>

// Puts the logical line at `text` into `line`: a line feed with one blank behind it vanishes,
// carriage returns stay. Returns the position of the line feed or terminator that ends the line.
const char *ldif_unfold(const char *text, std::string &line);

class ldif_reader {
 public:
    // What happens at a line whose value is the content of another file, in either form (":<", or
    // ":" after a name with ";binary"). Each reader has to choose: a text that comes from outside,
    // such as the description of a package, must never make a program read a file for its author.
    enum class references {
        followed,  // the file is read; one that cannot be read gives an empty value
        refused,   // nothing is opened, the line is of the kind `reference`
    };

    // Null is an empty text.
    ldif_reader(const char *text, references policy) : at_(text ? text : ""), policy_(policy) {}

    // A line of the kind `reference` has a name and no value. Only a reader that refuses references
    // has such lines.
    enum class kind { empty, comment, attribute, reference };

    // Takes the next line. False at the end of the text and at a line that ends the parse, which
    // is one whose base64 value is malformed or empty. After such a line the next call would go on
    // with the line that follows.
    bool next();

    bool at_end() const {
        return *at_ == '\0';
    }

    kind line_kind() const {
        return kind_;
    }
    // The name with its options; "#" for a comment, "" for an empty line.
    const std::string &name() const {
        return name_;
    }
    // The decoded value; "#" for a comment.
    const std::string &value() const {
        return value_;
    }
    // Whether the value came by base64 or by reference.
    bool binary() const {
        return binary_;
    }
    // The position behind the byte that ended the line. Behind the last line of a text without a
    // closing line feed this is one behind the terminator.
    const char *behind() const {
        return end_ + 1;
    }

 private:
    bool take_apart();
    bool decode(size_t from);
    void take_reference(size_t from);
    // The line's text from a position on, empty when the line ends before it.
    const char *text_from(size_t from) const;

    const char *at_;
    references policy_;
    const char *end_ = nullptr;
    std::string line_, name_, value_;
    kind kind_ = kind::empty;
    bool binary_ = false;
};
