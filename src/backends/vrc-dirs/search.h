// Searching the index, with the results of vrm_vri_match in mode 1.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "backends/vrc-dirs/index.h"

namespace vrc_dirs {

// Each may be null, for no restriction.
struct search_request {
    const char *name;
    const char *variant;
    const char *version;
    s_ekva *const *filter;
};

// The numbers of the records that match, in the index's order. Worth nothing if the index is
// damaged afterwards.
std::vector<uint32_t> search(const catalogue_index &index, const search_request &request);

// The longest run of bytes that stands in every text which fits the pattern, or which is equal to
// it; empty when there is none that can be told easily.
std::string_view required_literal(std::string_view pattern);

}  // namespace vrc_dirs
