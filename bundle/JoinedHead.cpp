// SPDX-License-Identifier: MIT
#include <bundle/JoinedHead.h>

namespace KBUNDLE {

namespace {

void Replace(std::string& text, std::string_view what, const std::string& by) {
    for (std::size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + by.size())) {
        text.replace(at, what.size(), by);
    }
}

std::uint64_t BlocksOf(std::uint64_t bytes) {
    return (bytes + headBlockBytes - 1) / headBlockBytes;
}

/// With the first program behind so many blocks of it.
std::string ScriptFor(std::vector<KBundleHead>& heads, std::uint64_t blocks) {
    std::string numbers;
    for (KBundleHead& head : heads) {
        head.offset = blocks * headBlockBytes;
        const std::uint64_t count = BlocksOf(head.byteCount);
        numbers += numbers.empty() ? "" : " ";
        numbers += head.architecture + " " + std::to_string(blocks) + " " + std::to_string(count);
        blocks += count;
    }
    std::string script(GetChoosingScript());
    Replace(script, "@HEADS@", numbers);
    Replace(script, "@NAMES@", NamesOf(heads));
    return script;
}

} // namespace

std::string JoinedHead(std::vector<KBundleHead>& heads) {
    std::size_t blocks = 1;
    std::string script = ScriptFor(heads, blocks);
    while (script.size() > blocks * headBlockBytes) {
        script = ScriptFor(heads, ++blocks);
    }
    script.resize(blocks * headBlockBytes, '\n');
    return script;
}

std::string NamesOf(const std::vector<KBundleHead>& heads) {
    std::string names;
    for (std::size_t at = 0; at < heads.size(); ++at) {
        names += at == 0 ? "" : at + 1 == heads.size() ? " and " : ", ";
        names += heads[at].architecture;
    }
    return names;
}

} // namespace KBUNDLE
