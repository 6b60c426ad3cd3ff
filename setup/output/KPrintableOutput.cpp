// SPDX-License-Identifier: MIT
#include <setup/output/KPrintableOutput.h>
#include <setup/output/TextFormat.h>

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>

#include <sys/processes/Terminal.h>

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

KPrintableOutput::KPrintableOutput(std::ostream& itsStream, int descriptor)
    : stream(itsStream),
      target(itsStream.rdbuf()),
      wrap(
          descriptor >= 0 && KSYS::IsTerminal(descriptor) ? KSYS::TerminalColumns(descriptor) : 0
      ) {
    const std::ios::iostate state = stream.rdstate();
    stream.rdbuf(this);
    stream.clear(state);
}

KPrintableOutput::~KPrintableOutput() {
    const std::ios::iostate state = stream.rdstate();
    static_cast<void>(PutHeld());
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

/// A stream that is flushed after each piece may be in the midst of a word.
int KPrintableOutput::sync() {
    const bool isPut = (stream.flags() & std::ios::unitbuf) != 0 || PutHeld();
    return isPut ? target->pubsync() : -1;
}

/// The words that may yet have to go to the next line.
bool KPrintableOutput::PutHeld() try { return Put(wrap.Flush()); } catch (const std::bad_alloc&) {
    return false;
}

bool KPrintableOutput::Put(std::string_view bytes) {
    const auto size = static_cast<std::streamsize>(bytes.size());
    return target->sputn(bytes.data(), size) == size;
}

void KPrintableOutput::WriteBetween(
    const std::string& before, const std::string& text, const std::string& after
) {
    // A reader who is gone is no reason to stop.
    static_cast<void>(Put(wrap.Flush() + before));
    static_cast<void>(Write(text));
    static_cast<void>(Put(wrap.Flush() + after));
    target->pubsync();
}

bool KPrintableOutput::Write(std::string_view bytes) try {
    std::string text = begun + std::string(bytes);
    const std::size_t end = EndOfWhole(text);
    std::string rest = text.substr(end);
    text.resize(end);
    const std::string whole = wrap.Take(Printable(text, KLineEnds::Kept));
    begun = std::move(rest);
    return Put(whole);
} catch (const std::bad_alloc&) {
    // A stream keeps such an error to itself, and what is to be told of it would be lost.
    return PutWithoutMemory(bytes);
}

bool KPrintableOutput::PutWithoutMemory(std::string_view bytes) {
    const auto put = [&](char letter) {
        const bool isPlain = (letter >= ' ' && letter <= '~') || letter == '\n' || letter == '\t';
        return target->sputc(isPlain ? letter : '?') != traits_type::eof();
    };
    return std::all_of(bytes.begin(), bytes.end(), put);
}

} // namespace KSETUP
