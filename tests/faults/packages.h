// The packages whose changes are disturbed.
#pragma once

#include <map>
#include <string>
#include <vector>

// Where all that the packages touch lies.
inline const std::string live_data = "/srv/faults";
inline const std::string live_conf = "/etc/faults";
// Where the scripts of the packages leave a mark of their run.
inline const std::string marks = live_data + "/marks";

// A version of a package.
struct package_version {
    std::string name;
    std::string version;
    std::vector<std::string> needs;
    std::map<std::string, std::string> files;  // content by "FORK/PATH", such as "data/srv/x"
    std::map<std::string, std::string> links;  // target by absolute path
    std::map<std::string, std::string> perms;  // octal digits by absolute path
};

// What all versions of a package that a case knows can put on the disk.
struct package_paths {
    std::string name;
    std::vector<std::string> data, conf, links, perms;
};

// What a fork has at a path below live_data or live_conf.
std::string data(const std::string &path);
std::string conf(const std::string &path);

// A script that leaves a mark of its run.
std::string marking(const std::string &name);
// Gives a package all the scripts that a package can have.
void add_scripts(package_version *package);
// The same package with a script that fails.
package_version failing(package_version package, const std::string &script);

// A bystander.
package_version other();

// What changes in practice, together: suite needs base, and from version 2 on also fonts.
package_version base_1();
package_version base_2();
package_version fonts();
package_version suite_1();
package_version suite_2();

// What all versions of a package that a case knows can put on the disk, by the packages' names.
std::vector<package_paths> paths_of_all_packages();
