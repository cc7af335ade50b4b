#include "QuillmereLib/values/CUColor.h"

CUColor::CUColor() : m_alpha(0), m_red(0), m_green(0), m_blue(0) {}

CUColor::~CUColor() = default;

CUSharedPtr<CUColor> CUColor::Create(unsigned char a, unsigned char r, unsigned char g,
                                     unsigned char b) {
  CUSharedPtr<CUColor> color = new CUColor;
  color->Init(a, r, g, b);
  return color;
}

CUSharedPtr<CUColor> CUColor::Create(unsigned char r, unsigned char g, unsigned char b) {
  return Create(255, r, g, b);
}

CUSharedPtr<CUColor> CUColor::Red() { return Create(255, 0, 0); }
CUSharedPtr<CUColor> CUColor::Black() { return Create(0, 0, 0); }
CUSharedPtr<CUColor> CUColor::Gray() { return Create(128, 128, 128); }
CUSharedPtr<CUColor> CUColor::DarkGray() { return Create(169, 169, 169); }
CUSharedPtr<CUColor> CUColor::LightGray() { return Create(211, 211, 211); }
CUSharedPtr<CUColor> CUColor::White() { return Create(255, 255, 255); }

bool CUColor::Init(unsigned char a, unsigned char r, unsigned char g, unsigned char b) {
  m_alpha = a;
  m_red = r;
  m_green = g;
  m_blue = b;
  return true;
}
