// In which order the requests of one command line are carried out.
#pragma once

#include <set>
#include <string>
#include <vector>

struct planned_request {
    std::string request;          // as it stands on the command line
    std::string name;             // of its package
    std::set<std::string> needs;  // names of what is to be done before it, if it is requested too
};

// Puts each request behind those of what it needs, and else leaves the order as it is. Who asks
// for a package and for what it needs wants both in their own right; as a part of the other's plan
// the second would count as a dependency, and a removal of the first would take it away.
std::vector<planned_request> in_order(std::vector<planned_request> requests);
