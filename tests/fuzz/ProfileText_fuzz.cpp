// SPDX-License-Identifier: MIT
// A profile is read, changed, written and read again: it says the same, all comments are there, and
// what nobody changed is as it was to the byte.
#include "Fuzz.h"
#include "PlainProfile.h"

#include <sup++/KProfileText.h>

#include <algorithm>

namespace {

using KSUP::KProfileText;
using KTEST::KPlainProfile;
using KTEST::Require;

using Meaning = std::map<std::string, KPlainProfile::Options>;

Meaning MeaningOf(const KProfileText& text) {
    Meaning meaning;
    for (const std::string_view section : text.GetSections()) {
        for (unsigned at = text.Next(section, 0); at != 0; at = text.Next(section, at)) {
            meaning[std::string(section)].emplace_back(text.KeyAt(at), text.ValueAt(at));
            Require(text.IsKey(at) && text.IsIn(at, section), "a line is where it is met");
        }
    }
    return meaning;
}

bool HasControl(const std::string& text) {
    return std::any_of(text.begin(), text.end(), [](char letter) {
        const auto byte = static_cast<unsigned char>(letter);
        return byte < 0x20 || byte == 0x7F;
    });
}

/// What KProfile lets through: the rest would not read back.
bool IsTaken(const std::string& section, const std::string& key, const std::string& value) {
    return !HasControl(section) && !HasControl(key) && !HasControl(value) &&
           key.find('=') == std::string::npos && key.substr(0, 3) != "\xEF\xBB\xBF" &&
           (key.empty() || std::string("[;#").find(key[0]) == std::string::npos);
}

void Put(KProfileText& text, Meaning& expected, const std::vector<std::string>& what) {
    const std::string section = KTEST::PlainTrimmed(what[0]);
    const std::string key = KTEST::PlainTrimmed(what[1]);
    const std::string value = KTEST::PlainTrimmed(what[2]);
    if (!IsTaken(section, key, value)) {
        return;
    }
    KPlainProfile::Options& options = expected[section];
    const auto there = std::find_if(options.begin(), options.end(), [&](const auto& option) {
        return option.first == key;
    });
    const unsigned added = text.Put(section, key, value);
    Require((added == 0) == (there != options.end()), "a key is added where there is none");
    if (there != options.end()) {
        there->second = value;
    } else {
        options.emplace_back(key, value);
        Require(text.IsKey(added) && text.KeyAt(added) == key, "what was added is at its place");
    }
}

void Delete(KProfileText& text, Meaning& expected, const std::vector<std::string>& what) {
    const unsigned at = text.Find(what[0], what[1]);
    KPlainProfile::Options& options = expected[what[0]];
    const auto there = std::find_if(options.begin(), options.end(), [&](const auto& option) {
        return option.first == what[1];
    });
    Require((at != 0) == (there != options.end()), "a key is found when there is one");
    if (at != 0) {
        options.erase(there);
        text.Remove(at);
    }
}

} // namespace

/// A profile and changes; the fields of a change are apart by \x1F: "section key value" puts, "section
/// key" deletes.
FUZZ_TARGET(ProfileText) {
    const std::vector<std::string> pieces = KTEST::PiecesOf(input);
    const KPlainProfile plain(pieces[0]);
    KProfileText text;
    text.Parse(pieces[0]);
    Require(text.Compose() == pieces[0], "what nobody changed is as it was");
    Meaning expected = plain.GetMeaning();
    Require(MeaningOf(text) == expected, "both readers read the same");
    for (std::size_t index = 1; index < pieces.size(); ++index) {
        const std::vector<std::string> fields = KTEST::PiecesOf(pieces[index], '\x1F');
        if (fields.size() == 3) {
            Put(text, expected, fields);
        } else if (fields.size() == 2) {
            Delete(text, expected, fields);
        }
    }
    std::erase_if(expected, [](const auto& section) { return section.second.empty(); });
    Require(MeaningOf(text) == expected, "the changed text says what was put");
    const KPlainProfile written(text.Compose());
    Require(written.GetMeaning() == expected, "what is written says the same");
    Require(written.comments == plain.comments, "all comments are there");
    KProfileText again;
    again.Parse(text.Compose());
    Require(MeaningOf(again) == expected, "what is read again says the same");
}
