// SPDX-License-Identifier: MIT
#include <setup/output/KPrintableOutput.h>

#include <gtest/gtest.h>

#include <new>
#include <sstream>
#include <string>

namespace {

using KSETUP::KPrintableOutput;

TEST(KPrintableOutputTest, WhatATerminalWouldObeyDoesNotGoOut) {
    std::ostringstream stream;
    const KPrintableOutput output(stream);
    stream << "a\x1b[2J" << '\x07' << "b\r\n\xC2\x9B" << std::string("\0", 1) << '\n' << 12;
    EXPECT_EQ(stream.str(), "a?[2J?b?\n??\n12");
}

TEST(KPrintableOutputTest, ACharacterThatComesInPiecesStaysWhole) {
    std::ostringstream stream;
    const KPrintableOutput output(stream);
    for (const char byte : std::string("Gr\xC3\xB6\xC3\x9F"
                                       "e \xE2\x82\xAC\xF0\x9F\x98\x80")) {
        stream << byte << std::flush;
    }
    EXPECT_EQ(
        stream.str(),
        "Gr\xC3\xB6\xC3\x9F"
        "e \xE2\x82\xAC\xF0\x9F\x98\x80"
    );
}

TEST(KPrintableOutputTest, AControlThatComesInPiecesDoesNotGoOut) {
    std::ostringstream stream;
    const KPrintableOutput output(stream);
    stream << '\xC2' << '\x9B' << "x" << '\xC2' << "y";
    EXPECT_EQ(stream.str(), "?x?y");
}

/// Has no memory for whole texts, only for letters.
class PoorBuffer : public std::stringbuf {
  protected:
    std::streamsize xsputn(const char* /*bytes*/, std::streamsize /*count*/) override {
        throw std::bad_alloc();
    }
};

TEST(KPrintableOutputTest, WhatThereIsNoMemoryForIsWrittenPlainly) {
    PoorBuffer buffer;
    std::ostream stream(&buffer);
    {
        const KPrintableOutput output(stream);
        stream << "a\x1b[2J\tGr\xC3\xB6\n"
               << "b";
        EXPECT_TRUE(stream.good());
    }
    EXPECT_EQ(buffer.str(), "a?[2J\tGr??\nb");
}

TEST(KPrintableOutputTest, TheStreamIsGivenBackAsItWas) {
    std::ostringstream stream;
    {
        const KPrintableOutput output(stream);
        stream << "\xC3";
    }
    stream << "\x1b";
    EXPECT_EQ(stream.str(), "?\x1b");
}

/// A stream whose reader takes nothing.
class FullBuffer : public std::streambuf {};

TEST(KPrintableOutputTest, WhatCannotBeWrittenIsKnown) {
    FullBuffer full;
    std::ostream stream(&full);
    {
        const KPrintableOutput output(stream);
        stream << "lost";
    }
    EXPECT_FALSE(stream.good());
}

} // namespace
