// SPDX-License-Identifier: MIT
#include "ShellStep.h"

#include "../support/ForkOnTerminal.h"
#include "../support/TerminalScreen.h"
#include "SetupWorld.h"

#include <cerrno>
#include <cstdio>
#include <sstream>
#include <system_error>

#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KTEST {

namespace {

constexpr unsigned longestStepSeconds = 60;

/// A file without a name, for one stream.
class Stream {
  public:
    explicit Stream(const std::string& bytes = {}) : descriptor(::memfd_create("stream", 0)) {
        if (descriptor < 0) {
            throw std::system_error(errno, std::generic_category(), "memfd_create");
        }
        for (std::size_t sent = 0; sent < bytes.size();) {
            const ssize_t step = ::write(descriptor, bytes.data() + sent, bytes.size() - sent);
            if (step <= 0) {
                throw std::system_error(errno, std::generic_category(), "write");
            }
            sent += static_cast<std::size_t>(step);
        }
        ::lseek(descriptor, 0, SEEK_SET);
    }
    ~Stream() { ::close(descriptor); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    int Get() const { return descriptor; }
    std::string Read() const {
        std::string bytes;
        char buffer[4096];
        ::lseek(descriptor, 0, SEEK_SET);
        for (ssize_t step = 0; (step = ::read(descriptor, buffer, sizeof(buffer))) > 0;) {
            bytes.append(buffer, static_cast<std::size_t>(step));
        }
        return bytes;
    }

  private:
    int descriptor;
};

/// Letters of other scripts stay as they are; what moves a terminal's cursor does not.
std::string Printable(const std::string& line) {
    std::string text;
    for (const char byte : line) {
        const auto code = static_cast<unsigned char>(byte);
        if (byte == '\t') {
            text += "\\t";
        } else if (byte == '\r') {
            text += "\\r";
        } else if (code < ' ' || code == 0x7f) {
            char escape[8];
            std::snprintf(escape, sizeof(escape), "\\x%02x", code);
            text += escape;
        } else {
            text += byte;
        }
    }
    return text;
}

std::vector<std::string> LinesOf(const std::string& bytes) {
    std::vector<std::string> lines;
    std::istringstream stream(bytes);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(Printable(line));
    }
    if (!bytes.empty() && bytes.back() != '\n') {
        lines.back() += " (without a line break)";
    } else if (!lines.empty() && lines.back().empty()) {
        lines.back() = "(a blank line)"; // a case's section would not hold it
    }
    return lines;
}

/// Becomes the shell, of which the streams are in place.
[[noreturn]] void Become(const std::string& text, const char* terminal) {
    ::close_range(STDERR_FILENO + 1, ~0U, 0);
    ::alarm(longestStepSeconds);
    const std::string path =
        std::string("PATH=") + programDirectory + ":/usr/sbin:/usr/bin:/sbin:/bin";
    const char* arguments[] = {"sh", "-c", text.c_str(), nullptr};
    const char* environment[] = {path.c_str(), "HOME=/root", "LANG=C.UTF-8", terminal, nullptr};
    ::execve(
        "/bin/sh",
        const_cast<char* const*>(arguments
        ), // NOLINT(cppcoreguidelines-pro-type-const-cast): as execve has it
        const_cast<char* const*>(environment
        ) // NOLINT(cppcoreguidelines-pro-type-const-cast): as execve has it
    );
    ::_exit(127);
}

/// Whether somebody waits for an answer: the line that stands open ends as questions do.
bool Asks(const std::string& shown) {
    return shown.ends_with(": ") || shown.ends_with("] ");
}

/// What is to be typed at each question, the keys Ctrl-C and Ctrl-D as "^C" and "^D".
std::vector<std::string> AnswersIn(const std::string& keys) {
    std::vector<std::string> answers;
    std::istringstream stream(keys);
    for (std::string line; std::getline(stream, line);) {
        answers.push_back(line == "^C" ? "\x03" : line == "^D" ? "\x04" : line + "\n");
    }
    return answers;
}

int WaitFor(pid_t child) {
    int status = 0;
    // Processes that lost their parent come to this one; nobody asks how they ended.
    while (::waitpid(-1, &status, 0) != child) {
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace

ShellOutcome RunShell(const std::string& text, const std::string& input) {
    const Stream in(input);
    const Stream out;
    const Stream err;
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (child == 0) {
        ::setsid();
        ::dup2(in.Get(), STDIN_FILENO);
        ::dup2(out.Get(), STDOUT_FILENO);
        ::dup2(err.Get(), STDERR_FILENO);
        Become(text, nullptr);
    }
    const int code = WaitFor(child);
    return {code, LinesOf(out.Read()), LinesOf(err.Read())};
}

ShellOutcome
RunShellOnTerminal(const std::string& text, const std::string& keys, unsigned columns) {
    int terminal = -1;
    const pid_t child = ForkOnTerminal(terminal, columns);
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "forkpty");
    }
    if (child == 0) {
        Become(text, "TERM=xterm");
    }
    TerminalScreen screen(columns);
    std::string shown;
    const std::vector<std::string> answers = AnswersIn(keys);
    std::size_t answered = 0;
    char buffer[4096];
    // The last one who has the terminal open ends it.
    for (ssize_t got = 1; got > 0 || (got < 0 && errno == EINTR);) {
        got = ::read(terminal, buffer, sizeof(buffer));
        if (got <= 0) {
            continue;
        }
        shown.append(buffer, static_cast<std::size_t>(got));
        screen.Write({buffer, static_cast<std::size_t>(got)});
        if (answered < answers.size() && Asks(shown)) {
            const std::string& answer = answers[answered++];
            shown.clear();
            if (::write(terminal, answer.data(), answer.size()) < 0) {
                throw std::system_error(errno, std::generic_category(), "write to a terminal");
            }
        }
    }
    const int code = WaitFor(child);
    ::close(terminal);
    std::string lines;
    for (const std::string& line : screen.GetLines()) {
        lines += line + "\n";
    }
    return {code, LinesOf(lines), {}};
}

} // namespace KTEST
