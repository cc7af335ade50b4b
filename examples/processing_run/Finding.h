#pragma once

// Finding, what the run learnt about one file, and the order in which findings are shown.

#include <QuillmereLib/QuillmereLib.h>

#include <cstdint>
#include <string>

#include "PathParts.h"

class Finding : public CUObject {
 public:
  Finding(CUStringMac& path, unsigned long long size, std::string type, std::uint64_t checksum);

  // "GPL-3: text, 35149 bytes, 0123456789abcdef"
  CUSharedPtr<CUStringMac> Description() override;

  PathParts const& Parts() const { return m_parts; }
  unsigned long long Size() const { return m_size; }
  std::string const& Type() const { return m_type; }

  // Sixteen hexadecimal digits.
  std::string ChecksumText() const;

 private:
  PathParts m_parts;
  unsigned long long m_size;
  std::string m_type;
  std::uint64_t m_checksum;
};

enum class FindingKey { kName, kSize, kType };

// Orders an array of findings, in which nothing else may stand. What is equal by the key stays in
// the order of the walk.
class FindingOrder : public CUSortDescriptor {
 public:
  FindingOrder(FindingKey key, bool descending) : CUSortDescriptor(!descending), m_key(key) {}

  // Positive where `first` goes first in ascending order, as the arrays want it.
  int CompareObject(CUSharedPtr<CUObject> first, CUSharedPtr<CUObject> second) override;

 private:
  bool IsBefore(Finding const& first, Finding const& second) const;

  FindingKey m_key;
};
