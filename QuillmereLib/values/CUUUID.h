#pragma once

// CUUUID, a universally unique identifier of sixteen bytes.

#include <CoreFoundation/CFUUID.h>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUSharedPtr.h"

class CUStringMac;

// Sixteen bytes, or none where the object was made from a null platform object or setting failed;
// then its bytes are zeroes to whoever asks. Bytes 11 to 15 are its serial area. Only assignment
// and the operations that set change an object: threads may read one together, but nothing may run
// beside a change.
class QUILLMERE_API CUUUID : public CUObject {
 public:
  // A new random identifier of version 4. This and the next two throw CUError_NullArgument where
  // the platform makes none.
  CUUUID();

  // Of sixteen bytes, which must be there.
  CUUUID(unsigned char const* bytes);
  CUUUID(CFUUIDBytes const& bytes);

  // Of the same bytes, by SetUUIDRef: the argument is only read, and a null one gives an object
  // without bytes.
  CUUUID(__CFUUID const* uuid);
  CUUUID(CUUUID const& other);

  ~CUUUID() override;

  // The constructors, with a null pointer for every failure.
  static CUSharedPtr<CUUUID> Create();
  static CUSharedPtr<CUUUID> Create(unsigned char const* bytes);
  static CUSharedPtr<CUUUID> Create(CFUUIDBytes const& bytes);
  static CUSharedPtr<CUUUID> Create(__CFUUID const* uuid);
  static CUSharedPtr<CUUUID> Create(CUUUID const& other);

  // The identifier of sixteen zeroes; a null pointer when memory runs out.
  static CUSharedPtr<CUUUID> CreateNull();

  // The default text of objects, a blank and the identifier, as in
  // "6CUUUID(0x0x7f...) 68753A44-4D6F-1226-9C60-0050E4C00067"; the default text alone without
  // bytes.
  CUSharedPtr<CUStringMac> Description() override;
  using CUObject::operator=;

  // The platform object, lent; null without bytes.
  virtual operator __CFUUID const*() const;

  virtual operator CFUUIDBytes() const;

  // Whether all sixteen bytes are equal.
  virtual bool operator==(CUUUID const& other) const;
  virtual bool operator==(__CFUUID const* uuid) const;
  virtual bool operator==(CFUUIDBytes const& bytes) const;

  // SetUUIDRef with what `other` holds.
  virtual CUUUID& operator=(CUUUID const& other);

  // Writes sixteen bytes to the buffer.
  virtual void GetBytes(unsigned char* bytes);

  // The platform object, lent; null without bytes.
  virtual __CFUUID const* GetUUIDRef();

  // Takes over the bytes, and never the object itself. The object that is held changes nothing;
  // null in place of one sets zeroes. Throws as SetUUIDBytes.
  virtual void SetUUIDRef(__CFUUID const* uuid);

  virtual CFUUIDBytes GetUUIDBytes();

  // Throws CUError_NullArgument where the platform makes no identifier, and leaves none.
  virtual void SetUUIDBytes(CFUUIDBytes const& bytes);

  // Whether the serial area is all zeroes.
  bool IsNotFillSerialArea();

  // Puts five bytes into the serial area; null does nothing. Throws nothing: on failure the object
  // has no bytes any more.
  void CorrectSerialArea(unsigned char* serial);

 private:
  CFUUIDRef m_uuid;  // owned, or null
};
