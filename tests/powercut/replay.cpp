#include "powercut/replay.h"

#include <fcntl.h>
#include <linux/falloc.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <system_error>

#include "faults/disk.h"
#include "faults/strict_judge.h"
#include "powercut/recording.h"

namespace {

constexpr uint64_t block_size = 4096;

bool is_write(const record_entry &entry) {
    return entry.kind == entry_kind::write || entry.kind == entry_kind::zero;
}

// Each write, or each block of it, with an even chance.
std::vector<written_part> select_parts(const disk_record &record, size_t from, size_t to,
                                       std::mt19937_64 *random) {
    std::vector<written_part> parts;
    const bool in_blocks = ((*random)() & 1) != 0;
    // Now and then most of them are there, or nearly none.
    const uint64_t chance = 1 + (*random)() % 7;
    for (size_t number = from; number < to; number++) {
        const record_entry &entry = record.entries()[number];
        if (!is_write(entry)) {
            continue;
        }
        const uint64_t step = in_blocks ? block_size : std::max<uint64_t>(entry.length, 1);
        for (uint64_t at = 0; at < entry.length; at += step) {
            if ((*random)() % 8 < chance) {
                parts.push_back({number, at, std::min(step, entry.length - at)});
            }
        }
    }
    return parts;
}

}  // namespace

std::vector<disk_state> states_of(const disk_record &record, const state_wishes &wishes) {
    const std::vector<record_entry> &all = record.entries();
    size_t end = 0;
    while (end < all.size() && all[end].bytes != mark_of_end) {
        end++;
    }
    std::mt19937_64 random(wishes.seed);
    std::vector<disk_state> states;
    size_t stretch = 0;
    for (size_t from = 0; from <= end; stretch++) {
        size_t to = from, writes = 0;
        std::vector<size_t> points;
        for (; to < end && all[to].kind != entry_kind::flush; to++) {
            writes += is_write(all[to]) ? size_t{1} : 0;
            if (all[to].bytes == mark_of_point) {
                points.push_back(to);
            }
        }
        const std::string name = "flush " + std::to_string(stretch);
        states.push_back({from, {}, to, name});
        for (const size_t point : points) {
            states.push_back({from, {}, point, name + ", point"});
            for (size_t number = from; number < point; number++) {
                if (is_write(all[number])) {
                    states.back().parts.push_back({number, 0, all[number].length});
                }
            }
        }
        for (unsigned number = 0; writes > 0 && number < wishes.selections; number++) {
            states.push_back({from, select_parts(record, from, to, &random), to,
                              name + ", selection " + std::to_string(number)});
        }
        from = to + 1;
    }
    if (wishes.at_most > 0 && states.size() > wishes.at_most) {
        std::vector<disk_state> some;
        std::sample(states.begin(), states.end(), std::back_inserter(some), wishes.at_most, random);
        return some;
    }
    return states;
}

disk_maker::disk_maker(const std::string &base, const disk_record &record,
                       const std::string &scratch)
    : record_(record), scratch_(scratch) {
    copy_with_holes(base, scratch);
    disk_ = own_fd(open(scratch.c_str(), O_RDWR | O_CLOEXEC));
    if (!disk_.valid()) {
        throw std::system_error(errno, std::generic_category(), "cannot open " + scratch);
    }
}

void disk_maker::apply(int disk, const written_part &part) const {
    const record_entry &entry = record_.entries()[part.entry];
    const auto at = static_cast<off_t>(entry.offset + part.offset);
    const auto length = static_cast<off_t>(part.length);
    bool good = true;
    if (entry.kind == entry_kind::zero) {
        good = fallocate(disk, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, at, length) == 0;
    } else if (entry.kind == entry_kind::write) {
        good = pwrite(disk, entry.bytes.data() + part.offset, part.length, at) == length;
    }
    if (!good) {
        throw std::system_error(errno, std::generic_category(), "cannot write a disk");
    }
}

void disk_maker::make(const disk_state &state, const std::string &file) {
    for (; applied_ < state.prefix; applied_++) {
        apply(disk_.get(), {applied_, 0, record_.entries()[applied_].length});
    }
    copy_with_holes(scratch_, file);
    const own_fd disk(open(file.c_str(), O_WRONLY | O_CLOEXEC));
    for (const written_part &part : state.parts) {
        apply(disk.get(), part);
    }
}

said said_until(const disk_record &record, size_t moment) {
    std::string output;
    said result = {{}, false};
    for (size_t number = 0; number < moment; number++) {
        const record_entry &entry = record.entries()[number];
        if (entry.kind != entry_kind::mark) {
            continue;
        }
        if (entry.bytes == mark_of_success) {
            result.success = true;
        } else if (!entry.bytes.starts_with('\1')) {
            output += entry.bytes;
        }
    }
    result.packages = packages_reported(output);
    return result;
}
