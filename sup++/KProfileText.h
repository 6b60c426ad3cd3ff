// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace KSUP {

/// The text of a profile, by lines. Reading keeps the file's bytes as they are and points into
/// them, so that a script of a million lines costs one pass and a large file is not copied line by
/// line; a line is split into key and value when somebody asks for it. Removed lines stay as marks
/// and added ones are linked in, so that a position stays good until the next Parse.
///
/// Thread   nothing here locks
class KProfileText {
  public:
    KProfileText() { Parse({}); }
    /// A copy shares the bytes and may be changed on its own.
    KProfileText(const KProfileText&) = default;
    KProfileText& operator=(const KProfileText&) = default;
    KProfileText(KProfileText&&) = default;
    KProfileText& operator=(KProfileText&&) = default;

    void Parse(std::string bytes);
    /// The whole text, to the byte what was parsed where nothing was changed.
    std::string Compose() const;

    /// Position of the first line of `key`, or 0.
    unsigned Find(std::string_view section, std::string_view key) const;
    /// Position of the key line of `section` behind `position`, 0 standing before the first; 0 when
    /// there is none left.
    unsigned Next(std::string_view section, unsigned position) const;
    /// As Next in the section of the line at `position`, which is not 0.
    unsigned NextBehind(unsigned position) const;
    /// As Next, and stops at removed lines too.
    unsigned NextOrRemoved(std::string_view section, unsigned position) const;
    /// Whether a key line that was not removed stands there.
    bool IsKey(unsigned position) const noexcept;
    /// Whether the line there is, or was, one of `section`.
    bool IsIn(unsigned position, std::string_view section) const noexcept;
    std::string_view KeyAt(unsigned position) const noexcept;
    std::string_view ValueAt(unsigned position) const noexcept;

    /// The sections, each once, in no order that matters; the unnamed one is always there.
    std::vector<std::string_view> GetSections() const;
    /// All positions are below.
    std::uint32_t GetSize() const noexcept { return static_cast<std::uint32_t>(lines.size()); }

    /// Returns  the position of the line that was added; 0 when there was one of `key`
    unsigned Put(std::string_view section, std::string_view key, std::string_view value);
    void Remove(unsigned position) noexcept;

    /// Without blanks and tabs around it.
    static std::string_view Trim(std::string_view text) noexcept;

  private:
    enum class Kind : std::uint8_t { Other, Key, Header, Removed };
    struct Line {
        std::string_view text; // with its line end
        std::uint32_t next;    // 0 is the end
        std::uint32_t block;
        Kind kind;
    };
    /// What stands between two section headers; the first begins the file and has no name.
    struct Block {
        std::string_view section;
        std::uint32_t header;        // index of the line before its first
        std::uint32_t nextOfSection; // 0 is none
    };

    template <class Predicate>
    unsigned NextLine(std::string_view section, unsigned position, Predicate matches) const;
    static Kind KindOf(std::string_view text) noexcept;
    static std::string_view SectionName(std::string_view header) noexcept;
    void AppendLine(std::string_view text);
    void AddBlock(std::string_view section, std::uint32_t header);
    std::uint32_t LastKeyOrHeader(std::uint32_t block) const;
    void InsertBehind(std::uint32_t index, const std::string& text);
    std::string_view Keep(std::string text);

    /// What the lines point into: never changed, and not moved when the object is, as a short
    /// string's bytes would be.
    std::shared_ptr<const std::string> bytes;
    std::shared_ptr<std::deque<std::string>> added; // only grows
    std::vector<Line> lines;                        // 0 is a mark before the first
    std::vector<Block> blocks;
    std::map<std::string, std::uint32_t, std::less<>> firstBlock;
    std::map<std::string, std::uint32_t, std::less<>> lastBlock;
    std::uint32_t lastLine = 0;
    std::string_view lineEnd;
};

} // namespace KSUP
