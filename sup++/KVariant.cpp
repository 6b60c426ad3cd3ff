// SPDX-License-Identifier: MIT
#include <sup++/KVariant.h>

namespace KSUP {

namespace {

constexpr const char* heapTag = "Sup++: KVariant heap";

KHeapPtr<unsigned char> CopyText(const char* text, std::size_t bytesWithNul) {
    return {reinterpret_cast<const unsigned char*>(text), bytesWithNul, heapTag};
}

} // namespace

KVariant::KVariant() noexcept : value(heapTag), type(Type::Empty) {}

KVariant::KVariant(const KString& text)
    : value(CopyText(text.c_str(), std::size_t{text.GetSize()} + 1)),
      type(Type::Text) {}

KVariant::KVariant(const char* text) : KVariant(KString(text)) {}

KVariant::~KVariant() = default;
KVariant::KVariant(const KVariant&) = default;
KVariant::KVariant(KVariant&&) noexcept = default;
KVariant& KVariant::operator=(const KVariant&) = default;
KVariant& KVariant::operator=(KVariant&&) noexcept = default;

KString KVariant::GetString() const {
    return type == Type::Text ? KString(reinterpret_cast<const char*>(value.GetData())) : KString();
}

} // namespace KSUP
