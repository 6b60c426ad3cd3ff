// SPDX-License-Identifier: MIT
#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <spawn.h>
#include <sys/Retry.h>
#include <sys/files/FileContent.h>
#include <sys/files/KDescriptor.h>
#include <sys/mman.h>
#include <sys/processes/ProgramRun.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KSYS {

namespace {

/// Ends `actions`, which are done in the new process before the program begins.
unsigned SpawnAndWait(
    std::vector<std::string>& words, posix_spawn_file_actions_t& actions, bool& succeeded
) {
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawnattr_t attributes;
    sigset_t ignored;
    sigemptyset(&ignored);
    // A program expects those that this process ignores as a login gives them.
    sigaddset(&ignored, SIGPIPE);
    sigaddset(&ignored, SIGXFSZ);
    ::posix_spawnattr_init(&attributes);
    ::posix_spawnattr_setsigdefault(&attributes, &ignored);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t child = 0;
    const int error =
        ::posix_spawnp(&child, arguments[0], &actions, &attributes, arguments.data(), environ);
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        return static_cast<unsigned>(error);
    }
    int status = 0;
    const pid_t ended = Retry([&] { return ::waitpid(child, &status, 0); });
    succeeded = ended == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return 0;
}

} // namespace

unsigned RunProgram(
    std::vector<std::string> words,
    const std::string& directory,
    const char* output,
    bool& succeeded
) {
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(
        &actions, STDOUT_FILENO, output, O_WRONLY | O_CREAT | O_TRUNC, 0600
    );
    ::posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    return SpawnAndWait(words, actions, succeeded);
}

/// Into memory: a pipe that is full would hold the program up.
unsigned ReadProgram(std::vector<std::string> words, std::string& output) {
    const KDescriptor memory(::memfd_create("output", MFD_CLOEXEC));
    if (!memory.IsOpen()) {
        return static_cast<unsigned>(errno);
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, memory.Get(), STDOUT_FILENO);
    ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    bool succeeded = false;
    unsigned failed = SpawnAndWait(words, actions, succeeded);
    if (failed == 0 && ::lseek(memory.Get(), 0, SEEK_SET) < 0) {
        failed = static_cast<unsigned>(errno);
    }
    std::array<char, 4096> bytes{};
    for (std::size_t count = 1; failed == 0 && count != 0;) {
        failed = ReadSome(memory.Get(), bytes.data(), bytes.size(), count);
        output.append(bytes.data(), failed == 0 ? count : 0);
    }
    return failed;
}

unsigned RunProgramHere(std::vector<std::string> words, bool& succeeded) {
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    return SpawnAndWait(words, actions, succeeded);
}

} // namespace KSYS
