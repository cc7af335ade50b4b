#pragma once

// CUFileSysytemInfo, what a file and a directory have in common: a full path.

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/strings/CUStringMac.h"

// An entry is a path and is not bound to what lies there: one can be made for a path where nothing
// is. The path is fixed at construction and changed by Rename alone. There is no lock. Error codes
// are thrown as `unsigned int`.
class QUILLMERE_API CUFileSysytemInfo : public CUObject {
 public:
  // Throw error code 1 for an empty path and 2 for a null pointer.
  CUFileSysytemInfo(CUStringMac& path);
  CUFileSysytemInfo(CUSharedPtr<CUStringMac> path);

  // The text of CUObject::Description, followed at once by the path.
  CUSharedPtr<CUStringMac> Description() override;

  // A new copy of the path.
  virtual CUSharedPtr<CUStringMac> GetFullName();

  // Gives the entry a new name in its folder; a symbolic link is itself renamed. Throws error code
  // 2 for a null and 1 for an empty name, 4 for a missing entry, a name that is taken, and any
  // refusal of the system. A path without a parent and a name that cannot be converted change
  // nothing, silently.
  virtual void Rename(CUSharedPtr<CUStringMac> newName);

 protected:
  CUStringMac fullName;
};
