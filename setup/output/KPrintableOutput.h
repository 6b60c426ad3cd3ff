// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KWordWrap.h>

#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

namespace KSETUP {

/// The one way out to a terminal: while it lives, all that is written to a stream is printable when
/// it leaves (Printable, ends of lines kept), whoever wrote it: a name, a record or a script that
/// somebody else made holds no sequence that moves the cursor or sets the title. Where a terminal reads it, lines
/// are broken between words (KWordWrap).
///
/// Borrows the stream, and gives it back as it was.
/// Thread   that of the stream's writers
///
///     const KSETUP::KPrintableOutput out(std::cout);
class KPrintableOutput : public std::streambuf {
  public:
    /// `descriptor` is where the stream leads to; without one nothing is broken.
    explicit KPrintableOutput(std::ostream& itsStream, int descriptor = -1);
    ~KPrintableOutput() override;
    KPrintableOutput(const KPrintableOutput&) = delete;
    KPrintableOutput& operator=(const KPrintableOutput&) = delete;

    /// Writes a text between two sequences that are not taken away, as those of colours.
    void WriteBetween(const std::string& before, const std::string& text, const std::string& after);

  protected:
    int_type overflow(int_type byte) override;
    std::streamsize xsputn(const char* bytes, std::streamsize count) override;
    int sync() override;

  private:
    bool Write(std::string_view bytes);
    /// ASCII, and "?" for all else.
    bool PutWithoutMemory(std::string_view bytes);
    bool Put(std::string_view bytes);
    bool PutHeld();

    std::ostream& stream;
    std::streambuf* target;
    KWordWrap wrap;
    std::string begun; // of a character whose other bytes are still to come
};

} // namespace KSETUP
