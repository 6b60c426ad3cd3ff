// SPDX-License-Identifier: MIT
//
// What is in the sources and the binaries stands in THIRD-PARTY.md, and its notice goes along.
#include <setup/output/Licences.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <link.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

std::string TextOfFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::set<std::string> ListItems(const std::string& text) {
    std::set<std::string> items;
    const std::regex item("[^, ][^,]*");
    for (std::sregex_iterator at(text.begin(), text.end(), item), end; at != end; ++at) {
        std::string one = at->str();
        one.erase(one.find_last_not_of(' ') + 1);
        if (!one.empty()) {
            items.insert(one);
        }
    }
    return items;
}

struct KThirdParty {
    std::string work;
    std::string notice;
    std::string headers;
    std::set<std::string> libraries;
    std::set<std::string> components;
};

std::vector<KThirdParty> ReadTable() {
    std::vector<KThirdParty> rows;
    std::istringstream page(TextOfFile(fs::path(INSPP_SOURCE) / "THIRD-PARTY.md"));
    for (std::string line; std::getline(page, line);) {
        std::vector<std::string> cells;
        std::istringstream parts(line);
        for (std::string cell; std::getline(parts, cell, '|');) {
            const std::size_t begin = cell.find_first_not_of(' ');
            cells.push_back(
                begin == std::string::npos
                    ? ""
                    : cell.substr(begin, cell.find_last_not_of(' ') - begin + 1)
            );
        }
        if (cells.size() >= 8 && cells[1] != "Work" && cells[1] != "---") {
            rows.push_back({cells[1], cells[3], cells[5], ListItems(cells[6]), ListItems(cells[7])}
            );
        }
    }
    return rows;
}

/// What the product's sources include that is neither ours nor the C++ library's or the system's.
std::set<std::string> IncludedFromElsewhere() {
    const std::regex include("(?:^|\n)#include <([^>]*)>");
    const std::regex ours("(sup\\+\\+|ins|setup|sys|linux|bundle)/.*|[a-z_0-9]+|[a-z_]+\\.h");
    std::set<std::string> found;
    for (const char* folder : {"sup++", "ins", "setup", "sys", "bundle"}) {
        for (const auto& entry :
             fs::recursive_directory_iterator(fs::path(INSPP_SOURCE) / folder)) {
            const std::string text = entry.is_regular_file() ? TextOfFile(entry.path()) : "";
            for (std::sregex_iterator at(text.begin(), text.end(), include), end; at != end; ++at) {
                const std::string name = (*at)[1];
                if (!std::regex_match(name, ours) || name.starts_with("utf8")) {
                    found.insert(name);
                }
            }
        }
    }
    return found;
}

int AddObjectPath(dl_phdr_info* info, std::size_t /*size*/, void* list) {
    static_cast<std::vector<std::string>*>(list)->emplace_back(info->dlpi_name);
    return 0;
}

/// What this program, which is ins-setup without its main and with tests, and our libraries were
/// linked with, as readelf(1) tells.
std::set<std::string> LinkedLibraries() {
    std::vector<std::string> objects;
    ::dl_iterate_phdr(&AddObjectPath, &objects);
    std::string command = "readelf -d /proc/" + std::to_string(::getpid()) + "/exe";
    for (const std::string& object : objects) {
        if (object.find("/libins++") != std::string::npos ||
            object.find("/libdplinsup") != std::string::npos) {
            command += " '" + object + "'";
        }
    }
    const std::unique_ptr<FILE, int (*)(FILE*)> output(::popen(command.c_str(), "r"), ::pclose);
    std::string text;
    for (int letter = 0; (letter = std::fgetc(output.get())) != EOF;) {
        text += static_cast<char>(letter);
    }
    const std::regex needed("Shared library: \\[([^\\]]*)\\]");
    std::set<std::string> libraries;
    for (std::sregex_iterator at(text.begin(), text.end(), needed), end; at != end; ++at) {
        const std::string name = (*at)[1];
        static const std::regex ours("libins\\+\\+|libdplinsup");
        static const std::regex ofTests("libg(test|mock)|lib(a|t|ub)san|libfailcall"
        ); // not shipped
        if (!std::regex_search(name, ours) && !std::regex_search(name, ofTests)) {
            libraries.insert(name);
        }
    }
    return libraries;
}

TEST(LicencesTest, EveryIncludedHeaderIsOfAWorkInTheTable) {
    const std::set<std::string> included = IncludedFromElsewhere();
    EXPECT_GE(included.size(), 8U) << "nothing is found any more";
    for (const std::string& header : included) {
        bool isKnown = false;
        for (const KThirdParty& row : ReadTable()) {
            isKnown = isKnown || (!row.headers.empty() && header.starts_with(row.headers));
        }
        EXPECT_TRUE(isKnown) << "<" << header << ">: whose is it? Put it into THIRD-PARTY.md";
    }
}

TEST(LicencesTest, EveryLinkedLibraryIsOfAWorkInTheTable) {
    const std::set<std::string> linked = LinkedLibraries();
    EXPECT_TRUE(linked.contains("libcrypto.so.3")) << "nothing is found any more";
    std::set<std::string> listed;
    for (const KThirdParty& row : ReadTable()) {
        listed.insert(row.libraries.begin(), row.libraries.end());
    }
    for (const std::string& library : linked) {
        EXPECT_TRUE(listed.contains(library))
            << library << ": whose is it? Put it into THIRD-PARTY.md";
    }
}

TEST(LicencesTest, EveryNoticeIsInTheProgram) {
    std::map<std::string, std::string> notices;
    for (const KSETUP::KLicence& licence : KSETUP::GetLicences()) {
        notices.emplace(licence.name, licence.text);
        EXPECT_THAT(KSETUP::LicencesToText(), HasSubstr(std::string(licence.text)));
    }
    EXPECT_THAT(notices["Ins++"], HasSubstr(TextOfFile(fs::path(INSPP_SOURCE) / "LICENSE")));
    for (const KThirdParty& row : ReadTable()) {
        if (!row.notice.empty()) {
            EXPECT_THAT(notices[row.notice], HasSubstr("\nCopyright ")) << row.work;
        }
        EXPECT_EQ(row.components.empty(), row.notice.empty()) << row.work;
    }
}

TEST(LicencesTest, EveryPackagesCopyrightNamesTheHoldersOfWhatIsInIt) {
    const std::regex holder("\nCopyright (?:\\(c\\) )?[-0-9, ]*([^\n]*[^.\n])");
    for (const KThirdParty& row : ReadTable()) {
        if (row.components.empty()) {
            continue; // nothing of it is in what is given away
        }
        const std::string notice = TextOfFile(fs::path(INSPP_SOURCE) / "licences" / row.notice);
        for (const std::string& component : row.components) {
            const std::string copyright = TextOfFile(
                fs::path(INSPP_SOURCE) / "cmake" / "package" / ("copyright." + component)
            );
            if (component == "bundles") {
                continue; // no package holds it
            }
            for (std::sregex_iterator at(notice.begin(), notice.end(), holder), end; at != end;
                 ++at) {
                EXPECT_THAT(copyright, HasSubstr((*at)[1].str()))
                    << row.work << " in " << component;
            }
            EXPECT_THAT(notice, Not(IsEmpty())) << row.work;
        }
    }
}

} // namespace
