// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/CatalogueDirectory.h>
#include <setup/process/PrepareProcess.h>
#include <setup/script/SecretNames.h>
#include <setup/text/Translation.h>
#include <sup++/SvcData.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <sys/processes/ProcessIsolation.h>

namespace KSETUP {

namespace {

/// What a run may follow: how to speak and to whom. Nothing here names a file.
constexpr std::array keptVariables = std::to_array<std::string_view>(
    {"TERM", "NO_COLOR", "LANG", "LANGUAGE", "LC_ALL", "LC_CTYPE", "LC_MESSAGES", "TZ", "SUDO_UID"}
);

KSYS::EnvironmentVariables ReducedEnvironment() {
    KSYS::EnvironmentVariables kept{{"PATH", "/usr/sbin:/usr/bin:/sbin:/bin"}, {"HOME", "/root"}};
    for (const std::string_view name : keptVariables) {
        const char* value = std::getenv(std::string(name).c_str()); // NOLINT: one thread yet
        // A locale's name with a separator is a path of files to load.
        if (value != nullptr && std::string_view(value).find('/') == std::string_view::npos) {
            kept.emplace_back(name, value);
        }
    }
    return kept;
}

} // namespace

std::string PrepareProcess() {
    if (KSYS::HasRaisedRights()) {
        throw KSetupFailure(
            ExitCode::notRoot,
            Text(
                "ins-setup does not run set-uid or set-gid. Take the bit away and start it as root."
            )
        );
    }
    std::error_code gone; // an empty path then
    const std::string former = std::filesystem::current_path(gone).string();
    if (KSYS::IsolateProcess(ReducedEnvironment()) != 0) {
        throw KSetupFailure(
            ExitCode::internal, Text("/dev/null cannot be opened: the system lacks its devices.")
        );
    }
    if (const std::string catalogues = CatalogueDirectory(); !catalogues.empty()) {
        StartTranslation(catalogues);
    }
    if (KSYS::EnterDirectory("/") != 0) {
        throw KSetupFailure(ExitCode::internal, Text("the root directory cannot be entered."));
    }
    return former;
}

void HideSecrets(const std::vector<std::string>& words, char** argv) {
    static_cast<void>(SvcGetGlobalDataEx()); // reads it when it is called first
    const std::vector<std::string> masked = MaskedArguments(words);
    for (std::size_t at = 0; at < words.size(); ++at) {
        const std::string& word = words[at];
        const auto differ =
            std::mismatch(word.begin(), word.end(), masked[at].begin(), masked[at].end());
        // As long as before, for what stands behind it does not move. Also where they are the same.
        std::fill(argv[at] + (differ.first - word.begin()), argv[at] + word.size(), '*');
    }
}

std::string FromDirectory(const std::string& directory, const std::string& path) {
    return path.empty() || path.front() == '/' || directory.empty()
               ? path
               : (std::filesystem::path(directory) / path).string();
}

} // namespace KSETUP
