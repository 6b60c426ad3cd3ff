// SPDX-License-Identifier: MIT
// minimal_copy SOURCE TARGET [digests]: copies a tree of regular files and directories; TARGET is made.
// The measure of all other rows: see MinimalCopy.h. With "digests" a thread makes a SHA-256 of each copy
// meanwhile, and throws it away: the least that an install with a manifest can cost.
#include "MinimalCopy.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>

#include <openssl/evp.h>

namespace {

/// Digests what it is given on a thread of its own.
class KDigests {
  public:
    KDigests() : thread([this] { Run(); }) {}
    ~KDigests() {
        Add(atEnd);
        thread.join();
    }
    KDigests(const KDigests&) = delete;
    KDigests& operator=(const KDigests&) = delete;

    /// Takes the descriptor. Waits while there are too many.
    void Add(int file) {
        std::unique_lock hold(guard);
        changed.wait(hold, [this] { return files.size() < mostOpen; });
        files.push_back(file);
        changed.notify_all();
    }

  private:
    static constexpr int atEnd = -1;
    static constexpr std::size_t mostOpen = 500;
    static constexpr std::size_t roomBytes = std::size_t{1} << 20U;

    void Run() {
        const auto room = std::make_unique_for_overwrite<char[]>(roomBytes);
        const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> sum{
            ::EVP_MD_CTX_new(), ::EVP_MD_CTX_free};
        for (int file = Next(); file != atEnd; file = Next()) {
            std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
            ::EVP_DigestInit_ex(sum.get(), ::EVP_sha256(), nullptr);
            for (off_t at = 0;;) {
                const ssize_t bytes = ::pread(file, room.get(), roomBytes, at);
                if (bytes <= 0) {
                    KBENCH::Checked(static_cast<int>(bytes), "pread");
                    break;
                }
                ::EVP_DigestUpdate(sum.get(), room.get(), static_cast<std::size_t>(bytes));
                at += bytes;
            }
            ::EVP_DigestFinal_ex(sum.get(), digest.data(), nullptr);
            KBENCH::Checked(::close(file), "close");
        }
    }

    int Next() {
        std::unique_lock hold(guard);
        changed.wait(hold, [this] { return !files.empty(); });
        const int file = files.front();
        files.pop_front();
        changed.notify_all();
        return file;
    }

    std::mutex guard;
    std::condition_variable changed;
    std::deque<int> files;
    std::thread thread;
};

} // namespace

int main(int count, char** arguments) {
    const bool digests = count == 4 && std::string_view(arguments[3]) == "digests";
    if (count != 3 && !digests) {
        std::fputs("usage: minimal_copy SOURCE TARGET [digests]\n", stderr);
        return 64;
    }
    const char* source = arguments[1];
    const char* target = arguments[2];
    double last = 0;
    KBENCH::MinimalProgress progress([&last](const std::string&, double percent) { last = percent; }
    );
    KBENCH::Checked(::mkdir(target, 0755), target);
    if (digests) {
        KDigests sums;
        KBENCH::MinimalCopyTree(source, target, progress, [&sums](int file) { sums.Add(file); });
    } else {
        KBENCH::MinimalCopyTree(source, target, progress);
    }
    return 0;
}
