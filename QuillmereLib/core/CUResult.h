#pragma once

// The result codes of operations that report failure without throwing.
enum CUResult : unsigned int {
  CUResult_Success = 0,
  CUResult_Failed = 0x10001,                // absent or unusable operand, or not found
  CUResult_OperationSetupFailed = 0x10002,  // a file operation could not be started
  CUResult_CopyFailed = 0x10003,            // a copy failed on its way
  CUResult_MoveFailed = 0x10004,            // a move failed on its way
  CUResult_XmlWriteFailed = 0x10005         // an XML tree could not be built or written in full
};

// Whether a result is a failure. Only its low 16 bits decide.
constexpr bool CUFailed(unsigned int result) { return (result & 0xFFFFu) != 0; }
