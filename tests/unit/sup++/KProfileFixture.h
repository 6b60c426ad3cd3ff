// SPDX-License-Identifier: MIT
#pragma once

#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <sup++/KProfile.h>

#include <string>

namespace KTEST {

class KProfileTest : public testing::Test {
  protected:
    KSUP::KProfile Given(const std::string& bytes) {
        tree.Write("p.ini", bytes);
        return KSUP::KProfile(Path());
    }
    KSUP::KProfile Opened(const std::string& bytes) {
        tree.Write("p.ini", bytes);
        KSUP::KProfile profile;
        profile.Open(Path());
        return profile;
    }
    std::string Path() const { return tree.Path("p.ini"); }
    std::string Bytes() const { return tree.Read("p.ini"); }
    /// As another object reads the file.
    std::string Reread(const std::string& section, const std::string& key) const {
        KSUP::KProfile other;
        other.Open(Path());
        return other.GetString(section, key, "(default)").c_str();
    }

    TemporaryTree tree;
};

} // namespace KTEST
