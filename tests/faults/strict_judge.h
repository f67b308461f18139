// Whether a change that was cut off has happened, or has not: nothing in between.
//
// Each package is, with every path of its own, its entry, its file index and its lines in the
// history, exactly what it was before or exactly what the change makes of it. Nothing that belongs
// to no package has changed, nothing is left over, and a package that was reported as done is done.
// The judge compares trees and asks nothing of the engine.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "faults/packages.h"
#include "faults/tree.h"

enum class fault_sort {
    damaged,    // a file with a content that is neither the one before nor the one after
    missing,    // a path that has to be there
    left_over,  // a path that must not be there
    other,      // of the other version, or with another mode, owner or attribute
    rights,     // a file of the new version with fewer permissions than it should have
    kept,       // a configuration file as before, although the new version has another
    history,    // lines of the history that lack, or that are of no change
    unkept,     // a package that was reported as done, and is not
    not_run,    // a configuration script or a hook that was due and did not run
};

struct strict_finding {
    fault_sort sort;
    std::string path;  // or the name of a package
    std::string what;  // in words
};

// What a change was to do, and what it said.
struct strict_scene {
    std::vector<package_paths> packages;
    tree before, after;
    std::set<std::string> done = {};  // the names of the packages that were reported as done
    bool all_done = false;            // the whole change was
};

std::vector<strict_finding> judge_strictly(const strict_scene &scene, const tree &now);

// Of the findings after an operation on the path `disturbed` has failed those that count: files of
// the old version that are lost or changed. What such a failure may leave is new configuration,
// links, directories, files of the new version with fewer permissions, files that can't be deleted,
// and a history without its line. A configuration file that could not be compared is kept, and so
// is a package whose entry could not be read.
std::vector<strict_finding> losses_among(const std::vector<strict_finding> &findings,
                                         const tree &before, const std::string &disturbed);

// The packages that a program has reported as done, by what it wrote to its standard output.
std::set<std::string> packages_reported(const std::string &output);

const char *name_of(fault_sort sort);
// "damaged /a/b: ..."
std::string text_of(const strict_finding &found);
// Prints a few of them, the worst first, enough to see what is the matter, or all, a line each.
void print_findings(const std::vector<strict_finding> &findings, bool all);
