// SPDX-License-Identifier: MIT
//
// The support library alone. It also includes every public header, so that one which is missing
// from the installation, or does not compile outside, is found.

#include <iostream>

#include <every_header.h> // made by CMakeLists.txt

int main() {
    KSUP::KString greeting = "of the thread";
    KSUP::KThread thread("consumer");
    thread.Start([&] { greeting = "from the thread"; }); // a boost::function
    while (thread.IsThreadActive()) {
        SvcPollingDispatch();
    }
    std::cout << greeting.c_str() << "\n";
}
