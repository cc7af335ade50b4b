#include "QuillmereLib/strings/TextBuilder.h"

#include <cstring>
#include <new>

namespace {

constexpr CFIndex kUsualPieces = 16;

}  // namespace

TextBuilder::TextBuilder()
    : m_pieces(CFArrayCreateMutable(kCFAllocatorDefault, kUsualPieces, &kCFTypeArrayCallBacks)) {
  if (!m_pieces) throw std::bad_alloc();
}

void TextBuilder::Append(CFStringRef piece) {
  if (piece == nullptr) return;
  CFIndex const count = CFArrayGetCount(m_pieces.Get());
  CFArrayAppendValue(m_pieces.Get(), piece);
  if (CFArrayGetCount(m_pieces.Get()) == count) throw std::bad_alloc();
}

void TextBuilder::Append(char const* text) {
  CFHolder<CFStringRef> const piece(CFStringCreateWithBytes(
      kCFAllocatorDefault, reinterpret_cast<UInt8 const*>(text),
      static_cast<CFIndex>(std::strlen(text)), kCFStringEncodingUTF8, false));
  if (!piece) throw std::bad_alloc();
  Append(piece.Get());
}

void TextBuilder::AppendDescription(CUObject* object) {
  CUSharedPtr<CUStringMac> const text = object != nullptr ? object->Description() : nullptr;
  if (text != nullptr) {
    Append(static_cast<CFStringRef>(*text));
  } else {
    Append("<NULL>");
  }
}

CUSharedPtr<CUStringMac> TextBuilder::Text() const { return Join(m_pieces.Get()); }

CUSharedPtr<CUStringMac> TextBuilder::Join(void const** pieces, CFIndex count) {
  CFHolder<CFArrayRef> const array(CFArrayCreate(kCFAllocatorDefault, pieces, count, nullptr));
  if (!array) throw std::bad_alloc();
  return Join(array.Get());
}

CUSharedPtr<CUStringMac> TextBuilder::Join(CFArrayRef pieces) {
  CFHolder<CFStringRef> text(
      CFStringCreateByCombiningStrings(kCFAllocatorDefault, pieces, CFSTR("")));
  if (!text) throw std::bad_alloc();
  auto result =
      CUSharedPtr<CUStringMac>::OfNew(new CUStringMac(nullptr, CUStringMac::Adopted::yes));
  result->m_string = text.Release();
  return result;
}
