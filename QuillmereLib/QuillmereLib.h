#pragma once

// The whole of the library. Each header below can also be included by itself.

// core: objects, their pointer, failure codes, locks, events and threads
#include "QuillmereLib/core/CUErrorContents.h"
#include "QuillmereLib/core/CUEventWaitHandle.h"
#include "QuillmereLib/core/CULiveObjects.h"
#include "QuillmereLib/core/CULock.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUObjectAllocator.h"
#include "QuillmereLib/core/CURange.h"
#include "QuillmereLib/core/CUResult.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/core/CUThread.h"
#include "QuillmereLib/core/CUWaitHandle.h"
// strings
#include "QuillmereLib/strings/CUNewline.h"
#include "QuillmereLib/strings/CUStringMac.h"
// collections
#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/collections/CUDictionary.h"
#include "QuillmereLib/collections/CUIndexSet.h"
#include "QuillmereLib/collections/CUSortDescriptor.h"
#include "QuillmereLib/collections/CUSynchronizedQueue.h"
#include "QuillmereLib/collections/CUVector.h"
// streams
#include "QuillmereLib/streams/CUFileStream.h"
#include "QuillmereLib/streams/CUMemoryStream.h"
#include "QuillmereLib/streams/CUStream.h"
// filesystem
#include "QuillmereLib/filesystem/CUDirectory.h"
#include "QuillmereLib/filesystem/CUDirectoryInfo.h"
#include "QuillmereLib/filesystem/CUDriveInfo.h"
#include "QuillmereLib/filesystem/CUFile.h"
#include "QuillmereLib/filesystem/CUFileInfo.h"
#include "QuillmereLib/filesystem/CUFileSysytemInfo.h"
// values: colours, dates, identifiers and time measurement
#include "QuillmereLib/values/CUColor.h"
#include "QuillmereLib/values/CUDateTime.h"
#include "QuillmereLib/values/CUIdentifierGenerator.h"
#include "QuillmereLib/values/CUPerformanceCounter.h"
#include "QuillmereLib/values/CUUUID.h"
// xml
#include "QuillmereLib/xml/CUXmlDomDocumentNode.h"
#include "QuillmereLib/xml/CUXmlDomNode.h"
// logging
#include "QuillmereLib/logging/CULog.h"
#include "QuillmereLib/logging/CUPerformanceLogger.h"
