// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace KTEST {

/// A kit made by chance, and what stands on the machine before it is installed: the same for the same
/// seed. Its rules are of all types, more right than wrong, and no command is among them, because no
/// plan knows what commands do.
///
///     RandomKit kit(7, "/tmp/x/kit");
///     kit.WriteKit();
///     kit.WriteMachine();
class RandomKit {
  public:
    /// Where the product goes, and what is compared.
    static constexpr const char* product = "/opt/inspp-random";

    RandomKit(std::uint32_t seed, std::string kitDirectory);

    void WriteKit() const;
    /// What was there before. Made anew at each call.
    void WriteMachine() const;
    /// Takes away what WriteMachine or a run left.
    static void Wipe();

    const std::string& GetScript() const noexcept { return script; }
    /// The steps by which WriteMachine goes, for a failure's message.
    const std::string& GetMachine() const noexcept { return machine; }
    bool HasServices() const noexcept { return hasServices; }

  private:
    unsigned Below(unsigned end);
    bool OneIn(unsigned count) { return Below(count) == 0; }
    std::string OneOf(const std::vector<std::string>& all) {
        return all[Below(unsigned(all.size()))];
    }
    std::string Name();
    std::string Directory();
    std::string KitDirectory();
    std::string KitName();
    std::string Profile();
    std::string AnyPath();
    std::string Copy();
    std::string Delete();
    std::string Symlink();
    std::string DirectoryRule();
    std::string ProfileRule();
    std::string Service();
    std::string Rule();
    std::string Record();
    void MakeMachine();
    void MakeScript();

    std::mt19937 numbers;
    std::string kit;
    std::string script;
    std::string
        machine; ///< a line each: "d PATH", "w PATH" (others may write), "f PATH", "l PATH TARGET", "p PATH", "u NAME"
    unsigned programMode = 0755;
    bool hasServices = false;
};

} // namespace KTEST
