// SPDX-License-Identifier: MIT
#include <setup/script/CommandWords.h>

#include <string_view>

namespace KSETUP {

namespace {

constexpr std::string_view separators = " \t\n;|&<>()";
constexpr std::string_view expanded = "$`*?[~{"; // outside quotes
constexpr std::string_view expandedInQuotes = "$`";

bool Has(std::string_view bytes, char byte) {
    return bytes.find(byte) != std::string_view::npos;
}

/// Reads a command byte by byte.
class Reader {
  public:
    explicit Reader(const std::string& toRead) : command(toRead) {}

    std::vector<KCommandWord> Read() {
        for (at = 0; at < command.size(); ++at) {
            Take(command[at]);
        }
        EndWord();
        return words;
    }

  private:
    void Take(char byte) {
        if (quote == '\0' && Has(separators, byte)) {
            EndWord();
            return;
        }
        isWord = true;
        if (quote == '\0' && (byte == '"' || byte == '\'')) {
            quote = byte;
        } else if (quote != '\0' && byte == quote) {
            quote = '\0';
        } else if (byte == '\\' && quote != '\'' && at + 1 < command.size()) {
            word.text += command[++at];
        } else {
            word.isExpanded = word.isExpanded || (quote == '\0' && Has(expanded, byte)) ||
                              (quote == '"' && Has(expandedInQuotes, byte));
            word.text += byte;
        }
    }

    void EndWord() {
        if (isWord) {
            words.push_back(std::move(word));
        }
        word = {};
        isWord = false;
    }

    const std::string& command;
    std::size_t at = 0;
    char quote = '\0';
    bool isWord = false; // an empty one in quotes too
    KCommandWord word;
    std::vector<KCommandWord> words;
};

} // namespace

std::vector<KCommandWord> WordsOf(const std::string& command) {
    return Reader(command).Read();
}

} // namespace KSETUP
