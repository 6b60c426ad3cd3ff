// SPDX-License-Identifier: MIT
#include "Marks.h"

#include "Calls.h"

#include <sup++/SvcData.h>

#include <regex>

namespace KTEST {

std::string WithMarks(std::string line) {
    static const std::regex version("ins-setup [0-9]+\\.[0-9]+\\.[0-9]+");
    static const std::regex seconds("in [0-9]+[.,][0-9] s\\b");
    static const std::regex time("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:.]+Z");
    line = Replaced(line, SvcGetGlobalDataEx()->architecture, "@ARCH@");
    line = std::regex_replace(line, time, "@TIME@");
    line = std::regex_replace(line, seconds, "in @SECONDS@ s");
    return std::regex_replace(line, version, "ins-setup @VERSION@");
}

} // namespace KTEST
