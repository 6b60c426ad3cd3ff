// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/AccountNames.h>
#include <setup/kit/KitFile.h>
#include <setup/kit/KitFiles.h>
#include <setup/kit/KitNew.h>
#include <setup/kit/ProductData.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <array>
#include <map>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view payloadOfAFirstKit = "payload/";

constexpr std::array files = std::to_array<KKitFile>({
    {"product.ini",
     0644,
     R"(; What the setup program, and the script by its macros, know about the product.
; Change all of it before you give the kit away.
[product]
; As people read it.
name=@NAME@
; The product's directory below /etc, and the name of its service if it has one. A removal empties
; that directory, so it has to be the product's own: no other program may have this name.
serviceName=@SERVICE@
; The configuration file in the directory config/ below the product path.
iniFile=@INI@
version=1.0
buildNumber=1
)"},
    {"install.ini",
     0644,
     R"(; How the product is installed and removed. A line is a rule, the rules run in the order of the lines,
; and the first that fails ends the run. Names between dollar signs are macros; "ins-setup macros"
; lists them, ins-script(5) tells the whole language. After each change: "ins-setup check".
;
; Commas separate the fields of a rule. Put no blank behind them: it would belong to the field.

[install]
; Where the product goes on a machine that does not have it yet, unless the setup program is told a
; path.
defaultPath.$os$=/opt/@SERVICE@

; 1. Directories. A copy does not make the directory that it goes to.
directory=create,$pathTargetBin$
directory=create,$pathTargetConfig$

; 2. Files: name, from, to. A copy replaces what is there, and keeps the permission bits.
file=copy,hello,$pathSource$payload,$pathTargetBin$

; 3. The configuration. It belongs to the administrator, so nothing is ever copied onto it: the defaults
; go beside it under another name. "put" makes the file where it is missing, and otherwise changes
; this one line. The file has to be there at the end, because the engine keeps its record in it.
file=copy,$iniFile$,$pathSource$payload,$pathTargetConfig$,$iniFile$.default
profile=put,$pathTargetConfig$$iniFile$,Product,Defaults,$pathTargetConfig$$iniFile$.default

; 4. What "ins-setup kit add TREE" brings along; it writes to section [files] below.
section=files

; 5. The link, last: by it the product is found again. It leads to a program three levels below the
; product path, here to lin/x86_64/hello.
directory=create,/etc/$serviceName$
file=symlink,hello,$pathTargetBin$,/etc/$serviceName$,$serviceName$

; A removal undoes all this from the inside out: files before their directory, a directory before the one
; that it is in. A directory in which somebody has put something below stays.
[remove]
section=remove files
file=delete,hello,$pathTargetBin$
directory=delete,$pathTargetBin$
directory=delete,$pathTargetLin$
file=delete,$iniFile$,$pathTargetConfig$
file=delete,$iniFile$.default,$pathTargetConfig$
directory=delete,$pathTargetConfig$
directory=delete,$pathTarget$
; The link last here too: while it stands, a removal that was stopped can be repeated.
file=delete,$serviceName$,/etc/$serviceName$
directory=delete,/etc/$serviceName$

; Filled by "ins-setup kit add TREE".
[files]

[remove files]
)"},
    {"payload/hello", 0755, R"(#!/bin/sh
# The product: says what its configuration tells it to.
config=${0%/*}/../../config/hello.ini
sed -n 's/^Greeting=//p' "$config" "$config.default" | head -n 1
)"},
    {"payload/hello.ini",
     0644,
     R"(; The settings of Hello and their defaults. An upgrade replaces this file. To change a setting, put its line
; into hello.ini beside it.
[General]
Greeting=Hello, world.
)"},
});

/// The product of a directory without a name of its own, as "/", is called as its program is.
std::string NameOf(const fs::path& kit) {
    std::error_code error;
    const fs::path whole = fs::weakly_canonical(kit, error);
    const std::string name = whole.filename().string();
    return error || name.empty() || HasControlCharacter(name) ? "hello" : name;
}

/// The nearest name that a service can have.
std::string ServiceNameOf(const std::string& name) {
    std::string service = name;
    std::replace_if(
        service.begin(), service.end(), [](char byte) { return !IsServiceNameByte(byte); }, '-'
    );
    service.erase(0, service.find_first_not_of("-."));
    return service.empty() ? "hello" : service;
}

/// The nearest name that a user can have.
std::string UserNameOf(const std::string& name) {
    constexpr std::size_t mostLetters = 31;
    std::string user = Lowered(ServiceNameOf(name)).substr(0, mostLetters - 1);
    std::replace_if(
        user.begin(),
        user.end(),
        [](char byte) {
            return !IsAccountName({'a', byte});
        },
        '-'
    );
    return IsAccountName(user) ? user : "u" + user;
}

std::string Filled(std::string text, const std::string& name, KKitKind kind) {
    const std::array<std::pair<std::string, std::string>, 4> values{
        {{"@NAME@", name},
         {"@SERVICE@", ServiceNameOf(name)},
         {"@USER@", UserNameOf(name)},
         {"@INI@", kind == KKitKind::Service ? ServiceNameOf(name) + ".ini" : "hello.ini"}}};
    for (const auto& [mark, value] : values) {
        for (std::size_t at = text.find(mark); at != std::string::npos;
             at = text.find(mark, at + value.size())) {
            text.replace(at, mark.size(), value);
        }
    }
    return text;
}

/// What the kit of a kind of product has: of two files of one name the later.
std::map<std::string, const KKitFile*> FilesOf(KKitKind kind, const std::string& name) {
    std::map<std::string, const KKitFile*> all;
    for (const KKitFile& file : files) {
        const bool isOfFirstKit = std::string_view(file.name).starts_with(payloadOfAFirstKit);
        if (kind != KKitKind::Service || !isOfFirstKit) {
            all[file.name] = &file;
        }
    }
    if (kind == KKitKind::Service) {
        for (const KKitFile& file : ServiceKitFiles()) {
            all[Filled(file.name, name, kind)] = &file;
        }
    }
    return all;
}

} // namespace

void MakeNewKit(const std::string& directory, KKitKind kind) {
    const fs::path kit(directory);
    std::error_code error;
    const fs::file_status status = fs::status(kit, error);
    if (fs::exists(status) || fs::is_symlink(fs::symlink_status(kit, error))) {
        if (!fs::is_directory(status)) {
            throw KSetupFailure(
                ExitCode::usage,
                Text(
                    "%s: there is something that is no directory. Name a directory that is not "
                    "there yet, or empty.",
                    directory
                )
            );
        }
        const bool isEmpty = fs::is_empty(kit, error);
        if (error) {
            FailOn(kit, error.value(), "Name a directory that is not there yet, or empty.");
        }
        if (!isEmpty) {
            throw KSetupFailure(
                ExitCode::usage,
                Text(
                    "%s: the directory is not empty, so it is left alone. Name one that is not "
                    "there yet, or empty.",
                    directory
                )
            );
        }
    }
    const std::string name = NameOf(kit);
    for (const auto& [fileName, file] : FilesOf(kind, name)) {
        const fs::path path = kit / fileName;
        MakeDirectories(path.parent_path());
        WriteBytes(path, Filled(file->text, name, kind), file->mode);
    }
}

} // namespace KSETUP
