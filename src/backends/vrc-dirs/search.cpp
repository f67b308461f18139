#include "backends/vrc-dirs/search.h"

#include <fnmatch.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <numeric>

#include "package/variant.h"

namespace vrc_dirs {

namespace {

using record_marks = std::vector<bool>;

bool is_pattern(const char *text) {
    return strpbrk(text, "*?[\\") != nullptr;
}

// As vrm_vri_match compares: the text itself, or as a pattern.
bool fits(const char *wanted, const char *text) {
    return strcmp(wanted, text) == 0 || fnmatch(wanted, text, 0) == 0;
}

// The records of a name, which are side by side: the first one, and the one after the last.
struct record_range {
    uint32_t begin, end;
};

record_range find_name(const catalogue_index &index, std::string_view name) {
    uint32_t low = 0;
    uint32_t high = index.records();
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        if (index.text(text_column::name, middle) < name) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    record_range found = {low, low};
    while (found.end < index.records() && index.text(text_column::name, found.end) == name) {
        found.end++;
    }
    return found;
}

void mark_name(const catalogue_index &index, std::string_view name, record_marks *marks) {
    const record_range found = find_name(index, name);
    std::fill(marks->begin() + found.begin, marks->begin() + found.end, true);
}

// Marks the records whose text in a column fits. One pass over the whole column finds the few
// places that can fit at all; what decides is fnmatch, so the result is its own in every locale.
void mark_fitting(const catalogue_index &index, text_column column, const char *wanted,
                  record_marks *marks) {
    const auto mark_if_fitting = [&](uint32_t number) {
        if (!(*marks)[number] && fits(wanted, index.text(column, number).data())) {
            (*marks)[number] = true;
        }
    };
    const std::string_view literal = required_literal(wanted);
    if (literal.empty()) {
        for (uint32_t number = 0; number < index.records(); number++) {
            mark_if_fitting(number);
        }
        return;
    }
    std::string_view left = index.texts(column);
    const char *const start = left.data();
    while (index.records() > 0) {
        const auto *found = static_cast<const char *>(
            memmem(left.data(), left.size(), literal.data(), literal.size()));
        if (!found) {
            return;
        }
        const auto offset = static_cast<size_t>(found - start);
        mark_if_fitting(index.owner(column, offset));
        // On behind the text's end, which is the next NUL.
        left.remove_prefix(offset - static_cast<size_t>(left.data() - start));
        const size_t end = left.find('\0');
        left.remove_prefix(end == std::string_view::npos ? left.size() : end + 1);
    }
}

void mark_by_name(const catalogue_index &index, const char *name, record_marks *marks) {
    if (is_pattern(name)) {
        mark_fitting(index, text_column::name, name, marks);
    } else {
        mark_name(index, name, marks);
    }
}

// The pairs on the two columns. False when there are other pairs too, which need the records.
bool mark_by_columns(const catalogue_index &index, s_ekva *const *filter, record_marks *marks) {
    bool all = true;
    for (s_ekva *const *slot = ekva_first_pair(filter); *slot; slot++) {
        const s_ekva &pair = **slot;
        if (!pair.val) {
            continue;
        }
        if (strcasecmp(pair.key, "evrkDescription") == 0) {
            mark_fitting(index, text_column::description, pair.val, marks);
        } else if (strcasecmp(pair.key, "evrkName") == 0) {
            mark_by_name(index, pair.val, marks);
        } else {
            all = false;
        }
    }
    return all;
}

void mark_by_records(const catalogue_index &index, const search_request &request,
                     record_marks *marks) {
    for (uint32_t number = 0; number < index.records() && !index.is_damaged(); number++) {
        if ((*marks)[number]) {
            continue;
        }
        index.walked_to(number);
        const own_vri info = index.record(number);
        if (info &&
            vrm_vri_match(info.get(), 1, request.name, nullptr, nullptr, 5, request.filter)) {
            (*marks)[number] = true;
        }
    }
}

bool rest_fits(const catalogue_index &index, uint32_t number, const search_request &request) {
    if (!request.version && !request.variant) {
        return true;
    }
    index.walked_to(number);
    const record_details details = index.details(number);
    return (!request.version || details.version == request.version) &&
           variant_fits(request.variant, details.variant);
}

// Keeps the longest run of ordinary bytes. A byte behind a backslash stands for itself in a
// pattern, but not in a text that equals the pattern, so it ends a run.
void longest_run(std::string_view part, std::string_view *longest) {
    size_t start = 0;
    for (size_t at = 0; at <= part.size(); at++) {
        if (at < part.size() && !strchr("*?[]\\", part[at])) {
            continue;
        }
        if (at - start > longest->size()) {
            *longest = part.substr(start, at - start);
        }
        if (at < part.size() && part[at] == '\\') {
            at++;
        }
        start = at + 1;
    }
}

}  // namespace

std::string_view required_literal(std::string_view pattern) {
    // Where a bracket expression ends takes fnmatch to say, but none reaches beyond the last "]".
    const size_t open = pattern.find('[');
    const size_t close = pattern.rfind(']');
    std::string_view longest;
    longest_run(pattern.substr(0, open), &longest);
    if (open != std::string_view::npos && close != std::string_view::npos && close > open) {
        longest_run(pattern.substr(close + 1), &longest);
    }
    return longest;
}

std::vector<uint32_t> search(const catalogue_index &index, const search_request &request) {
    std::vector<uint32_t> hits;
    // A plan asks for thousands of exact names: none of them may cost a look at each record.
    if (request.name && !request.filter && !is_pattern(request.name)) {
        const record_range named = find_name(index, request.name);
        for (uint32_t number = named.begin; number < named.end; number++) {
            if (rest_fits(index, number, request)) {
                hits.push_back(number);
            }
        }
        return hits;
    }
    record_marks marks(index.records(), !request.name);
    if (request.name) {
        mark_by_name(index, request.name, &marks);
        if (request.filter && !mark_by_columns(index, request.filter, &marks)) {
            mark_by_records(index, request, &marks);
        }
    }
    for (uint32_t number = 0; number < index.records(); number++) {
        if (marks[number] && rest_fits(index, number, request)) {
            hits.push_back(number);
        }
    }
    return hits;
}

}  // namespace vrc_dirs
