// SPDX-License-Identifier: MIT
#include "dps/core/KSampler.h"

#include <sup++/KProfile.h>
#include <sup++/KUtil.h>

#include <fstream>
#include <limits>
#include <stdexcept>

using KSUP::KString;

namespace DPS {

namespace {

std::string ReadLoad() {
    std::string load;
    if (!(std::ifstream("/proc/loadavg") >> load)) {
        throw std::runtime_error("/proc/loadavg: cannot be read");
    }
    return load;
}

unsigned long long ReadFreeKib() {
    std::ifstream memory("/proc/meminfo");
    std::string name;
    unsigned long long kib = 0;
    while (memory >> name >> kib) {
        if (name == "MemAvailable:") {
            return kib;
        }
        memory.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    throw std::runtime_error("/proc/meminfo: does not tell the available memory");
}

void Fill(std::string& sentence, const std::string& place, const std::string& value) {
    if (const std::size_t at = sentence.find(place); at != std::string::npos) {
        sentence.replace(at, place.size(), value);
    }
}

} // namespace

KSampler::KSampler(const KString& resources, const KString& language, const KString& unit) {
    const KString root = KSUP::KUtil::AppendPathSep(resources, "/");
    KSUP::KProfile text;
    text.Open(root + "text/" + language + ".ini");
    sentence = text.GetString("Text", "Sample", "{load}, {memory}").c_str();

    KSUP::KProfile memory;
    const KString unitFile = root + "unit/" + unit + ".ini";
    memory.Open(unitFile);
    unitName = memory.GetString("Unit", "Name", unit).c_str();
    unitKib = memory.GetNumber<unsigned>("Unit", "Kib", 0);
    if (unitKib == 0) {
        throw std::runtime_error(
            std::string(unitFile.c_str()) + ": Kib in section [Unit] is no number above 0"
        );
    }
}

std::string KSampler::Take() const {
    std::string sample = sentence;
    Fill(sample, "{load}", ReadLoad());
    Fill(sample, "{memory}", std::to_string(ReadFreeKib() / unitKib) + " " + unitName);
    return sample;
}

} // namespace DPS
