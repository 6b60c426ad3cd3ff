// SPDX-License-Identifier: MIT
#include "KReport.h"

#include <iostream>

#include <nlohmann/json.hpp>

namespace KSWEEP {

bool KSelection::HasWay(const std::string& way) const {
    return only.empty() || only == way || only.starts_with(way + ":");
}

bool KSelection::Has(unsigned number, const std::string& name) const {
    if (only == name) {
        return true;
    }
    if (only.find(':') != std::string::npos && !name.starts_with(only + "/")) {
        return false;
    }
    return number >= from && (number - from) % every == 0 &&
           (number - from) / every % slices == slice;
}

bool KSelection::HasCall(const std::string& call, const std::string& named) const {
    return call.find(at) != std::string::npos || named.find(at) != std::string::npos;
}

bool KSelection::HasBelow(const std::string& begin) const {
    return only.find(':') == std::string::npos || only.starts_with(begin) ||
           begin.starts_with(only + "/");
}

void KReport::Begin(const std::string& itsWay) {
    way = itsWay;
    triedHere = 0;
    failedHere = 0;
}

void KReport::Add(const std::string& name, const std::string& at, const std::string& wrong) {
    ++triedHere;
    if (wrong.empty()) {
        return;
    }
    ++failedHere;
    if (isJson) {
        std::cout << nlohmann::json{{"sweep", sweep}, {"point", name}, {"at", at}, {"wrong", wrong}}
                  << '\n';
    } else {
        std::cout << "FAILED " << name << " at " << at << ": " << wrong
                  << "\n    again: ./dev faults " << sweep << " --only " << name << '\n';
    }
    std::cout.flush();
}

void KReport::Tell(const std::string& text) const {
    if (isJson) {
        std::cout << nlohmann::json{{"sweep", sweep}, {"way", way}, {"told", text}} << std::endl;
    } else {
        std::cout << sweep << ' ' << way << ": " << text << std::endl;
    }
}

void KReport::Skip(const std::string& what, const std::string& why) const {
    if (isJson) {
        std::cout << nlohmann::json{{"sweep", sweep}, {"skipped", what}, {"why", why}} << std::endl;
    } else {
        std::cout << "SKIPPED " << sweep << ' ' << what << ": " << why << std::endl;
    }
}

void KReport::End() {
    tried += triedHere;
    failed += failedHere;
    if (isJson) {
        std::cout
            << nlohmann::
                   json{{"sweep", sweep}, {"way", way}, {"tried", triedHere}, {"held", triedHere - failedHere}, {"failed", failedHere}}
            << std::endl;
    } else {
        std::cout << sweep << ' ' << way << ": " << triedHere << " tried, "
                  << triedHere - failedHere << " held, " << failedHere << " failed" << std::endl;
    }
}

void KReport::Finish() const {
    if (!isJson) {
        std::cout << tried - failed << " passed, " << failed << " failed" << std::endl;
    }
}

} // namespace KSWEEP
