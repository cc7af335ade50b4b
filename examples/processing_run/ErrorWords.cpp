#include "ErrorWords.h"

std::string ErrorWords(unsigned int errorCode) {
  switch (errorCode) {
    case CUError_InvalidArgument:
      return "the path cannot be used";
    case CUError_NullArgument:
      return "a path is missing";
    case CUError_DirectoryNotFound:
      return "there is no such folder";
    case CUError_IOFailure:
      return "the system refuses";
    case CUError_NotSupported:
      return "this cannot be done with it";
    case CUError_PathIsDirectory:
      return "it is a folder";
    case CUError_DeleteFailed:
      return "it cannot be deleted";
    case CUError_FileNotFound:
      return "it is not there, or cannot be read";
    default:
      return "error code " + std::to_string(errorCode);
  }
}

std::string ResultWords(CUResult result) {
  switch (result) {
    case CUResult_Success:
      return "all went well";
    case CUResult_Failed:
      return "the path lacks a folder or a name";
    case CUResult_OperationSetupFailed:
      return "the work could not be set up";
    case CUResult_CopyFailed:
      return "the copy failed on its way, nothing of it is left";
    case CUResult_MoveFailed:
      return "the move failed on its way";
    case CUResult_XmlWriteFailed:
      return "the tree could not be written";
    default:
      return "result " + std::to_string(result);
  }
}
