// SPDX-License-Identifier: MIT
#pragma once

#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <sup++/KFile.h>

#include <algorithm>
#include <string>

namespace KTEST {

class KFileTest : public testing::Test {
  protected:
    /// Copies as a rule does: chunk by chunk from the front.
    static void
    CopyAll(KSUP::KFile& target, const KSUP::KFile& source, unsigned chunkBytes = 65536) {
        unsigned long long copied = 0;
        while (copied < source.GetLength()) {
            const auto chunk = static_cast<unsigned>(
                std::min<unsigned long long>(chunkBytes, source.GetLength() - copied)
            );
            target.Copy(source, copied, chunk);
            copied += chunk;
        }
    }
    void CopyFile(const std::string& from, const std::string& to) {
        KSUP::KFile source;
        KSUP::KFile target;
        source.OpenForRead(tree.Path(from));
        target.Create(tree.Path(to));
        CopyAll(target, source);
        source.Close();
        target.Close();
    }
    void CreateWith(const std::string& path, const std::string& bytes) {
        tree.Write("bytes", bytes);
        CopyFile("bytes", path);
        tree.Remove("bytes");
    }
    unsigned CodeOfOpen(const std::string& relative) {
        const HangGuard guard;
        KSUP::KFile file;
        return CodeOf([&] { file.OpenForRead(tree.Path(relative)); });
    }
    unsigned CodeOfCreate(const std::string& relative) {
        const HangGuard guard;
        KSUP::KFile file;
        return CodeOf([&] { file.Create(tree.Path(relative)); });
    }

    TemporaryTree tree;
};

} // namespace KTEST
