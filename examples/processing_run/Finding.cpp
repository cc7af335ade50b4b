#include "Finding.h"

#include <utility>

#include "VisibleText.h"

Finding::Finding(CUStringMac& path, unsigned long long size, std::string type,
                 std::uint64_t checksum)
    : m_parts(SplitPath(path)), m_size(size), m_type(std::move(type)), m_checksum(checksum) {}

CUSharedPtr<CUStringMac> Finding::Description() {
  CUSharedPtr<CUStringMac> const format =
      new CUStringMac("%s: %s, %llu bytes, %s", CUString_CharCode_UTF8);
  return CUStringMac::CreateWithFormat(format, VisibleText(Utf8Of(*m_parts.name)).c_str(),
                                       m_type.c_str(), m_size, ChecksumText().c_str());
}

std::string Finding::ChecksumText() const {
  CUSharedPtr<CUStringMac> const format = new CUStringMac("%016llx", CUString_CharCode_UTF8);
  return Utf8Of(
      *CUStringMac::CreateWithFormat(format, static_cast<unsigned long long>(m_checksum)));
}

int FindingOrder::CompareObject(CUSharedPtr<CUObject> first, CUSharedPtr<CUObject> second) {
  auto const* const one = dynamic_cast<Finding*>(first.Get());
  auto const* const other = dynamic_cast<Finding*>(second.Get());
  if (one == nullptr || other == nullptr) return 0;
  if (IsBefore(*one, *other)) return 1;
  return IsBefore(*other, *one) ? -1 : 0;
}

bool FindingOrder::IsBefore(Finding const& first, Finding const& second) const {
  switch (m_key) {
    case FindingKey::kName:
      return *first.Parts().name < *second.Parts().name;
    case FindingKey::kSize:
      return first.Size() < second.Size();
    case FindingKey::kType:
      return first.Type() < second.Type();
  }
  return false;
}
