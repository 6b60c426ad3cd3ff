// SPDX-License-Identifier: MIT
//
// Tests that change the machine they run on.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    const char* const machine = std::getenv("INSPP_THROWAWAY");
    if (machine == nullptr || std::strcmp(machine, "1") != 0) {
        std::cerr << "these tests write to /etc and mount file systems; run them in the throwaway "
                     "machine (tests/machine/throwaway --setenv INSPP_THROWAWAY=1 -- …)\n";
        return 2;
    }
    return RUN_ALL_TESTS();
}
