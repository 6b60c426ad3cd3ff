// SPDX-License-Identifier: MIT
#include <setup/output/EarlyRefusal.h>
#include <setup/output/KEventStream.h>
#include <setup/output/KRunReport.h>

#include <charconv>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include <sys/files/FileContent.h>

namespace KSETUP {

namespace {

constexpr std::string_view descriptorOption = "--progress-fd";

/// A descriptor of this number that is open; else -1.
int OpenDescriptor(std::string_view text) {
    int number = -1;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = read.ec == std::errc() && read.ptr == text.data() + text.size();
    return isNumber && number > STDIN_FILENO && KSYS::IsOpenDescriptor(number) ? number : -1;
}

/// Whether the word behind this one is part of the command.
bool HasCommandsBelow(std::string_view word) {
    return word == "plan" || word == "kit";
}

} // namespace

void TellEarlyRefusal(int argc, const char* const* argv, int exitCode, const std::string& why) {
    KRunReport report;
    report.result = KRunResult::Refused;
    report.exitCode = exitCode;
    report.error = why;
    bool json = false;
    bool events = false;
    int descriptor = STDOUT_FILENO;
    const std::vector<std::string_view> words(argv + (argc > 0 ? 1 : 0), argv + argc);
    for (std::size_t index = 0; index < words.size(); ++index) {
        const std::string_view word = words[index];
        if (index == 0 && !word.starts_with('-')) {
            report.command = word;
        } else if (index == 1 && HasCommandsBelow(words[0]) && !word.starts_with('-')) {
            report.command += " " + std::string(word);
        }
        json = json || word == "--json";
        events = events || word == "--json-events" || word.starts_with(descriptorOption);
        if (word == descriptorOption && index + 1 < words.size()) {
            descriptor = OpenDescriptor(words[index + 1]);
        } else if (word.starts_with(descriptorOption) && word.size() > descriptorOption.size()) {
            descriptor = OpenDescriptor(word.substr(descriptorOption.size() + 1));
        }
    }
    if (events && descriptor >= 0) {
        KEventStream(descriptor).Result(report);
    }
    if (json) {
        std::cout << ToJson(report) << std::endl;
    }
}

} // namespace KSETUP
