// SPDX-License-Identifier: MIT
#include <setup/output/KPrintableOutput.h>
#include <setup/output/TextFormat.h>

#include <cstddef>

namespace KSETUP {

namespace {

constexpr std::size_t mostBytesOfCharacter = 4;

/// How many bytes a UTF-8 sequence has that begins with this one; 1 for what begins none.
std::size_t SequenceSize(unsigned char lead) noexcept {
    return lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
}

/// Where the last character begins, if bytes of it are missing; else the end of the text.
std::size_t EndOfWhole(std::string_view text) noexcept {
    const std::size_t size = text.size();
    for (std::size_t back = 1; back < mostBytesOfCharacter && back <= size; ++back) {
        const auto byte = static_cast<unsigned char>(text[size - back]);
        if ((byte & 0xC0U) != 0x80U) { // no continuation: it begins one, or is one by itself
            return SequenceSize(byte) > back ? size - back : size;
        }
    }
    return size;
}

} // namespace

KPrintableOutput::KPrintableOutput(std::ostream& itsStream)
    : stream(itsStream),
      target(itsStream.rdbuf()) {
    const std::ios::iostate state = stream.rdstate();
    stream.rdbuf(this);
    stream.clear(state);
}

KPrintableOutput::~KPrintableOutput() {
    const std::ios::iostate state = stream.rdstate();
    if (!begun.empty()) {
        target->sputc('?');
    }
    stream.exceptions(std::ios::goodbit); // a destructor raises nothing
    stream.rdbuf(target);
    stream.clear(state);
}

KPrintableOutput::int_type KPrintableOutput::overflow(int_type byte) {
    if (traits_type::eq_int_type(byte, traits_type::eof())) {
        return traits_type::not_eof(byte);
    }
    const char one = traits_type::to_char_type(byte);
    return Write({&one, 1}) ? byte : traits_type::eof();
}

std::streamsize KPrintableOutput::xsputn(const char* bytes, std::streamsize count) {
    return Write({bytes, static_cast<std::size_t>(count)}) ? count : 0;
}

int KPrintableOutput::sync() {
    return target->pubsync();
}

bool KPrintableOutput::Write(std::string_view bytes) {
    std::string text = begun + std::string(bytes);
    const std::size_t end = EndOfWhole(text);
    begun = text.substr(end);
    text.resize(end);
    const std::string shown = Printable(text, KLineEnds::Kept);
    const auto size = static_cast<std::streamsize>(shown.size());
    return target->sputn(shown.data(), size) == size;
}

} // namespace KSETUP
