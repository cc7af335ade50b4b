#pragma once

// Contents of files and streams as text.

#include <fstream>
#include <sstream>
#include <string>

#include "QuillmereLib/streams/CUStream.h"

inline void WriteFile(std::string const& path, std::string const& contents) {
  std::ofstream(path, std::ios::binary) << contents;
}

inline std::string ReadFile(std::string const& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

// What a stream reads, of at most 63 bytes; "?" in front where its count tells otherwise.
inline std::string ReadText(CUStream& stream, unsigned long long size, long long offset,
                            CUStream_Seek_Origin origin = CUStream_Seek_Origin_Begin) {
  std::string text(64, '\n');
  auto const count = stream.Read(reinterpret_cast<unsigned char*>(&text[0]), size, offset, origin);
  text.resize(text.find('\n'));
  return text.size() == count ? text : "?" + text;
}

inline unsigned long long WriteText(CUStream& stream, std::string text, long long offset,
                                    CUStream_Seek_Origin origin = CUStream_Seek_Origin_Begin) {
  return stream.Write(reinterpret_cast<unsigned char*>(&text[0]), text.size(), offset, origin);
}
