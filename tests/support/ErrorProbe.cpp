// SPDX-License-Identifier: MIT
#include "ErrorProbe.h"

namespace KTEST {

namespace {

std::string Describe(const KSUP::KErrorBase& error, const std::string& line) {
    std::string place = std::to_string(error.GetLevel()) + ' ' + std::to_string(error.GetCode()) +
                        '.' + std::to_string(error.GetSubCode()) + ' ' + error.GetFile() + ':' +
                        line + ' ' + error.GetFunction();
    if (error.HasInfo()) {
        place += std::string(" \"") + error.GetInfo().GetString().c_str() + '"';
    }
    return place;
}

} // namespace

std::string Place(const KSUP::KErrorBase& error) {
    return Describe(error, std::to_string(error.GetLine()));
}

std::string PlaceWithoutLine(const KSUP::KErrorBase& error) {
    return Describe(error, "?");
}

} // namespace KTEST
