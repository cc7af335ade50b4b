#pragma once

// CUColor, a colour of red, green and blue, and how opaque it is.

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUSharedPtr.h"

// Each channel is from 0 to 255; alpha is 0 for transparent and 255 for opaque. There is no lock.
class QUILLMERE_API CUColor : public CUObject {
 public:
  // Transparent black.
  CUColor();
  CUColor(CUColor const&) = default;
  CUColor& operator=(CUColor const&) = default;
  using CUObject::operator=;
  ~CUColor() override;

  // A new colour; opaque where no alpha is given. Note that alpha comes first.
  static CUSharedPtr<CUColor> Create(unsigned char a, unsigned char r, unsigned char g,
                                     unsigned char b);
  static CUSharedPtr<CUColor> Create(unsigned char r, unsigned char g, unsigned char b);

  // New opaque colours. DarkGray (169) is lighter than Gray (128), on purpose: these are the values
  // that web pages have under the names.
  static CUSharedPtr<CUColor> Red();
  static CUSharedPtr<CUColor> Black();
  static CUSharedPtr<CUColor> Gray();
  static CUSharedPtr<CUColor> DarkGray();
  static CUSharedPtr<CUColor> LightGray();
  static CUSharedPtr<CUColor> White();

  // Sets all channels. Always true.
  bool Init(unsigned char a, unsigned char r, unsigned char g, unsigned char b);

  unsigned char A() { return m_alpha; }
  unsigned char R() { return m_red; }
  unsigned char G() { return m_green; }
  unsigned char B() { return m_blue; }

 private:
  unsigned char m_alpha;
  unsigned char m_red;
  unsigned char m_green;
  unsigned char m_blue;
};
