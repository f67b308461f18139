// Lines of a description that refer to another file, and lines that only look like it.
#pragma once

#include <string>
#include <vector>

// Each is one logical line with its line end, folded or not, in which a reader that follows
// references would open `path`.
inline std::vector<std::string> references_to(const std::string &path) {
    return {
        "evrkDescription:< file://" + path + "\n",
        "evrkDescription:< " + path + "\n",
        "EVRKDESCRIPTION:< file://" + path + "\n",
        "evrkDescription;binary: file://" + path + "\n",
        "evrkDescription;binary: " + path + "\n",
        "evrkName:< " + path + "\n",
        "evrkRsaSigData:< " + path + "\n",
        "evrkRsaSigData;binary: " + path + "\n",
        "evrkUnknown:< file://" + path + "\n",
        "evrkUnknown;binary: " + path + "\n",
        "evrkUnknown;lang-de;binary;more: " + path + "\n",
        ":< " + path + "\n",
        ";binary: " + path + "\n",
        // Folded at every place that the separator could hide at.
        "evrkDescrip\n tion:< file://" + path + "\n",
        "evrkDescription\n :< file://" + path + "\n",
        "evrkDescription:\n < file://" + path + "\n",
        "evrkDescription:<\n  fi\n le://" + path + "\n",
        "evrkUnknown;bin\n ary: " + path + "\n",
        "evrkUnknown;binary\n : " + path + "\n",
        "evrkUnknown;binary:\n  " + path + "\n",
        // Carriage returns vanish.
        "evrkDescription:\r< file://" + path + "\n",
        "evrkUnknown;bin\rary: " + path + "\n",
    };
}

// Lines that hold their value themselves.
inline std::vector<std::string> lines_without_reference(const std::string &path) {
    return {
        "evrkUnknown: < file://" + path + "\n",
        "evrkUnknown: evrkDescription:< file://" + path + "\n",
        "evrkUnknown: x;binary: " + path + "\n",
        "evrkUnknown;filename: " + path + "\n",
        "evrkUnknown;BINARY: " + path + "\n",
        "evrkUnknown:: PCBmaWxlOi8vL2V0Yy9zaGFkb3c=\n",
        "evrkRsaSigData:: AAAA\n",
        "evrkRsaSigData;binary:: AAAA\n",
        "# evrkDescription:< file://" + path + "\n",
        "evrkUnknown: folded\n :< file://" + path + "\n",
    };
}
