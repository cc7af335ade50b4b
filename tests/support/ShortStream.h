#pragma once

// A stream over bytes in memory that moves at most so many bytes a call, in either direction.

#include <algorithm>
#include <string>
#include <utility>

#include "QuillmereLib/streams/CUStream.h"

class ShortStream : public CUStream {
 public:
  ShortStream(std::string bytes, unsigned long long most)
      : m_bytes(std::move(bytes)), m_most(most) {
    streamLength = m_bytes.size();
    readableRange = {0, streamLength};
  }

  bool CanRead() override { return true; }
  bool CanWrite() override { return true; }

  unsigned long long Read(unsigned char* buffer, unsigned long long size, long long offset,
                          CUStream_Seek_Origin origin) override {
    _CURange const range = CalcReadRange(std::min(size, m_most), offset, origin);
    if (buffer == nullptr || range.length == 0) return 0;
    std::copy_n(m_bytes.begin() + static_cast<std::ptrdiff_t>(range.location), range.length,
                buffer);
    return range.length;
  }

  // Appends, wherever the call says.
  unsigned long long Write(unsigned char* buffer, unsigned long long size, long long,
                           CUStream_Seek_Origin) override {
    unsigned long long const count = std::min(size, m_most);
    m_bytes.append(buffer, buffer + count);
    streamLength = m_bytes.size();
    return count;
  }

  std::string const& Bytes() const { return m_bytes; }

 private:
  std::string m_bytes;
  unsigned long long m_most;
};
