// SPDX-License-Identifier: MIT
#include <sup++/KProfileText.h>

#include <algorithm>
#include <utility>

namespace KSUP {

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

std::string_view WithoutLineEnd(std::string_view line) noexcept {
    if (line.ends_with('\n')) {
        line.remove_suffix(1);
    }
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return line;
}

} // namespace

std::string_view KProfileText::Trim(std::string_view text) noexcept {
    // There is hardly ever a blank, and each line is trimmed several times: std::string_view would
    // look each character up in the set of blanks by a call.
    const auto isBlank = [](char byte) { return byte == ' ' || byte == '\t'; };
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

void KProfileText::Parse(std::string fileBytes) {
    bytes = std::make_shared<const std::string>(std::move(fileBytes));
    added = std::make_shared<std::deque<std::string>>();
    lines.assign(1, Line{{}, 0, 0, Kind::Other});
    blocks.clear();
    firstBlock.clear();
    lastBlock.clear();
    lastLine = 0;
    lineEnd = "\n";
    AddBlock({}, 0);
    // A line too many at the most: growing step by step would touch twice the memory.
    lines.reserve(static_cast<std::size_t>(std::count(bytes->begin(), bytes->end(), '\n')) + 2);
    std::string_view rest(*bytes);
    if (rest.starts_with(byteOrderMark)) {
        lines[0].text = rest.substr(0, byteOrderMark.size());
        rest.remove_prefix(byteOrderMark.size());
    }
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        const std::size_t size = end == std::string_view::npos ? rest.size() : end + 1;
        AppendLine(rest.substr(0, size));
        rest.remove_prefix(size);
    }
    if (lines.size() > 1 && lines[1].text.ends_with("\r\n")) {
        lineEnd = "\r\n"; // what is added is written as the file is
    }
}

std::string KProfileText::Compose() const {
    std::string whole;
    whole.reserve(bytes->size() + 256);
    whole += lines[0].text;
    for (std::uint32_t index = lines[0].next; index != 0; index = lines[index].next) {
        if (lines[index].kind != Kind::Removed) {
            whole += lines[index].text;
        }
    }
    return whole;
}

unsigned KProfileText::Find(std::string_view section, std::string_view key) const {
    for (unsigned at = Next(section, 0); at != 0; at = Next(section, at)) {
        if (KeyAt(at) == key) {
            return at;
        }
    }
    return 0;
}

/// The next line of a section for which `matches` says yes, 0 at the end.
template <class Predicate>
unsigned
KProfileText::NextLine(std::string_view section, unsigned position, Predicate matches) const {
    std::uint32_t block = 0;
    std::uint32_t index = 0;
    if (position == 0 || position >= lines.size()) {
        const auto first = firstBlock.find(section);
        if (position != 0 || first == firstBlock.end()) {
            return 0;
        }
        block = first->second;
        index = blocks[block].header;
    } else {
        block = lines[position].block;
        index = position;
    }
    while (true) {
        index = lines[index].next;
        while (index == 0 || lines[index].kind == Kind::Header) {
            block = blocks[block].nextOfSection;
            if (block == 0) {
                return 0;
            }
            index = lines[blocks[block].header].next;
        }
        if (matches(lines[index].kind)) {
            return index;
        }
    }
}

unsigned KProfileText::Next(std::string_view section, unsigned position) const {
    return NextLine(section, position, [](Kind kind) { return kind == Kind::Key; });
}

unsigned KProfileText::NextBehind(unsigned position) const {
    return position == 0 ? 0 : Next({}, position);
}

unsigned KProfileText::NextOrRemoved(std::string_view section, unsigned position) const {
    return NextLine(section, position, [](Kind kind) {
        return kind == Kind::Key || kind == Kind::Removed;
    });
}

bool KProfileText::IsKey(unsigned position) const noexcept {
    return position != 0 && position < lines.size() && lines[position].kind == Kind::Key;
}

bool KProfileText::IsIn(unsigned position, std::string_view section) const noexcept {
    return position < lines.size() && blocks[lines[position].block].section == section;
}

std::vector<std::string_view> KProfileText::GetSections() const {
    std::vector<std::string_view> names;
    for (const auto& [name, block] : firstBlock) {
        names.push_back(name);
    }
    return names;
}

std::string_view KProfileText::KeyAt(unsigned position) const noexcept {
    const std::string_view text = WithoutLineEnd(lines[position].text);
    return Trim(text.substr(0, text.find('=')));
}

std::string_view KProfileText::ValueAt(unsigned position) const noexcept {
    const std::string_view text = WithoutLineEnd(lines[position].text);
    const std::size_t equals = text.find('=');
    return equals == std::string_view::npos ? std::string_view() : Trim(text.substr(equals + 1));
}

unsigned KProfileText::Put(std::string_view section, std::string_view key, std::string_view value) {
    std::string line = std::string(key).append("=").append(value);
    if (const unsigned at = Find(section, key); at != 0) {
        const std::string_view former = lines[at].text;
        lines[at].text = Keep(line.append(former.substr(WithoutLineEnd(former).size())));
        return 0;
    }
    const auto last = lastBlock.find(section);
    if (last != lastBlock.end()) {
        InsertBehind(LastKeyOrHeader(last->second), line.append(lineEnd));
    } else {
        const std::string header = std::string("[").append(section).append("]").append(lineEnd);
        InsertBehind(lastLine, header);
        InsertBehind(lastLine, line.append(lineEnd));
    }
    return GetSize() - 1;
}

void KProfileText::Remove(unsigned position) noexcept {
    lines[position].kind = Kind::Removed;
}

KProfileText::Kind KProfileText::KindOf(std::string_view text) noexcept {
    const std::string_view bare = Trim(WithoutLineEnd(text));
    if (bare.empty() || bare.front() == ';' || bare.front() == '#') {
        return Kind::Other;
    }
    return bare.front() == '[' && bare.back() == ']' ? Kind::Header : Kind::Key;
}

std::string_view KProfileText::SectionName(std::string_view header) noexcept {
    const std::string_view bare = Trim(WithoutLineEnd(header));
    return Trim(bare.substr(1, bare.size() - 2));
}

/// Links a line in at the end of the file.
void KProfileText::AppendLine(std::string_view text) {
    const auto index = static_cast<std::uint32_t>(lines.size());
    const Kind kind = KindOf(text);
    if (kind == Kind::Header) {
        AddBlock(SectionName(text), index);
    }
    lines.push_back({text, 0, static_cast<std::uint32_t>(blocks.size() - 1), kind});
    lines[lastLine].next = index;
    lastLine = index;
}

void KProfileText::AddBlock(std::string_view section, std::uint32_t header) {
    const auto block = static_cast<std::uint32_t>(blocks.size());
    blocks.push_back({section, header, 0});
    const auto last = lastBlock.find(section);
    if (last == lastBlock.end()) {
        firstBlock.emplace(section, block);
        lastBlock.emplace(section, block);
    } else {
        blocks[last->second].nextOfSection = block;
        last->second = block;
    }
}

/// Behind this line a key is added: blank lines and comments before the next section belong to
/// that.
std::uint32_t KProfileText::LastKeyOrHeader(std::uint32_t block) const {
    std::uint32_t place = blocks[block].header;
    for (std::uint32_t index = lines[place].next; index != 0 && lines[index].kind != Kind::Header;
         index = lines[index].next) {
        if (lines[index].kind != Kind::Other) {
            place = index;
        }
    }
    return place;
}

void KProfileText::InsertBehind(std::uint32_t index, const std::string& text) {
    Line& before = lines[index];
    if (index != 0 && !before.text.ends_with('\n')) {
        // The file's last line. It may have the first half of its end already.
        const std::string_view end = before.text.ends_with('\r') ? "\n" : lineEnd;
        before.text = Keep(std::string(before.text).append(end));
    }
    if (index == lastLine) {
        AppendLine(Keep(text));
        return;
    }
    const auto made = static_cast<std::uint32_t>(lines.size());
    lines.push_back({Keep(text), before.next, before.block, Kind::Key});
    lines[index].next = made;
}

std::string_view KProfileText::Keep(std::string text) {
    return added->emplace_back(std::move(text));
}

} // namespace KSUP
