// SPDX-License-Identifier: MIT
#include <sup++/KErrorBase.h>

#include <boost/make_shared.hpp>

#include <string>

namespace KSUP {

struct KErrorBase::Contents {
    TRACE_MESSAGE level;
    unsigned code;
    unsigned subCode;
    unsigned line;
    KString file;
    KString function;
    const KDriver* driver;
    KVariant info;
    KErrorDetail detail;
};

namespace {

/// A summary is one line wherever it is shown: what a path or a script holds cannot break it.
void BlankControlCharacters(std::string& text) {
    for (char& byte : text) {
        if (static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F) {
            byte = ' ';
        }
    }
}

} // namespace

KErrorBase::KErrorBase(
    TRACE_MESSAGE level,
    unsigned code,
    unsigned subCode,
    unsigned line,
    const char* file,
    const char* function,
    const KDriver* driver
)
    : KBase("KErrorBase", true),
      contents(boost::make_shared<const Contents>(Contents{
          level, code, subCode, line, file, function, driver, KVariant(), KErrorDetail()})) {}

KErrorBase::~KErrorBase() = default;
KErrorBase::KErrorBase(const KErrorBase&) noexcept = default;
KErrorBase& KErrorBase::operator=(const KErrorBase&) noexcept = default;

void KErrorBase::SetInfo(const KVariant& info) {
    auto changed = boost::make_shared<Contents>(*contents);
    changed->info = info;
    contents = changed;
}

void KErrorBase::SetDetail(const KErrorDetail& detail) {
    auto changed = boost::make_shared<Contents>(*contents);
    changed->detail = detail;
    contents = changed;
}

TRACE_MESSAGE KErrorBase::GetLevel() const noexcept {
    return contents->level;
}

unsigned KErrorBase::GetCode() const noexcept {
    return contents->code;
}

KErrorKind KErrorBase::GetKind() const noexcept {
    return contents->detail.kind;
}

KOperation KErrorBase::GetOperation() const noexcept {
    return contents->detail.operation;
}

KString KErrorBase::GetPath() const {
    return contents->detail.path;
}

KString KErrorBase::GetReason() const {
    return contents->detail.reason;
}

unsigned KErrorBase::GetSubCode() const noexcept {
    return contents->subCode;
}

unsigned KErrorBase::GetLine() const noexcept {
    return contents->line;
}

const char* KErrorBase::GetFile() const noexcept {
    return contents->file.c_str();
}

const char* KErrorBase::GetFunction() const noexcept {
    return contents->function.c_str();
}

const KDriver* KErrorBase::GetDriver() const noexcept {
    return contents->driver;
}

KVariant KErrorBase::GetInfo() const {
    return contents->info;
}

bool KErrorBase::HasInfo() const noexcept {
    return contents->info.GetType() != static_cast<unsigned>(KVariant::Type::Empty);
}

KString KErrorBase::GetSummary() const {
    std::string summary = "Error " + std::to_string(contents->code);
    if (contents->subCode != 0) {
        summary += "." + std::to_string(contents->subCode);
    }
    summary.append(" (").append(GetFile()).append(":").append(std::to_string(contents->line));
    summary.append(", ").append(GetFunction()).append(")");
    if (HasInfo()) {
        summary.append(": ").append(contents->info.GetString().c_str());
    } else if (!contents->detail.reason.IsEmpty()) {
        summary.append(": ").append(contents->detail.reason.c_str());
    }
    BlankControlCharacters(summary);
    return KString(std::move(summary));
}

} // namespace KSUP
