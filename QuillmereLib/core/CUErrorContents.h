#pragma once

// The error codes that constructors and file-system operations throw.
//
// A code is thrown as a bare value; there is no exception class. Every site throws it as
// `unsigned int`, but for one: a CUMemoryStream that cannot take its bytes from another stream
// throws a `_CUErrorContents`. A handler for all failures catches both, and `std::bad_alloc`.
enum _CUErrorContents : unsigned int {
  CUError_InvalidArgument = 1,    // an argument or the object's state cannot be used
  CUError_NullArgument = 2,       // a required pointer is null
  CUError_DirectoryNotFound = 3,  // the directory does not exist
  CUError_IOFailure = 4,          // the system refused, or the file's state forbids the open mode
  CUError_NotSupported = 5,       // the stream does not offer this operation
  CUError_PathIsDirectory = 7,    // a file operation met a directory
  CUError_DeleteFailed = 8,       // the system refused to delete a file
  CUError_FileNotFound = 9        // the file does not exist or cannot be read
};
