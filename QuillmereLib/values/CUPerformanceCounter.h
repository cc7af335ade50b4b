#pragma once

// CUPerformanceCounter, which measures the time between two marks:
//   CUPerformanceCounter counter;
//   counter.StartCounter();
//   ...
//   counter.EndCounter();
//   counter.GetProcessingTime();  // in microseconds

#include <mach/mach_time.h>

#include <cstdint>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUSharedPtr.h"

class CUStringMac;

// Marks are set anew by each call. There is no lock.
class QUILLMERE_API CUPerformanceCounter : public CUObject {
 public:
  CUPerformanceCounter();
  CUPerformanceCounter(CUPerformanceCounter const&) = default;
  CUPerformanceCounter& operator=(CUPerformanceCounter const&) = default;
  using CUObject::operator=;
  ~CUPerformanceCounter() override;

  void StartCounter();
  void EndCounter();

  // Microseconds between the marks, rounded down; 0 unless both are set. An end before its start
  // gives a huge number.
  std::uint64_t GetProcessingTime();

  // "Processing time:1500micro sec, 1msec, 0sec.": one duration in three units. With less than a
  // microsecond, or no measurement, the text is not defined.
  CUSharedPtr<CUStringMac> Description() override;

  // Takes over the marks of `other`, which must not be null.
  void CopyCounter(CUSharedPtr<CUPerformanceCounter> other);

 private:
  // Between the marks; 0 unless both are set.
  std::uint64_t Nanoseconds() const;

  std::uint64_t m_startTime;                 // in ticks, 0 for not set
  std::uint64_t m_endTime;                   // the same
  mach_timebase_info_data_t m_timebaseInfo;  // from ticks to nanoseconds
};
