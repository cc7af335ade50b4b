#include "QuillmereLib/collections/CUSortDescriptor.h"

int CUSortDescriptor::CompareObject(CUSharedPtr<CUObject>, CUSharedPtr<CUObject>) { return 0; }
