#include "QuillmereLib/values/CUPerformanceCounter.h"

#include <cstdio>

#include "QuillmereLib/strings/CUStringMac.h"

CUPerformanceCounter::CUPerformanceCounter() : m_startTime(0), m_endTime(0), m_timebaseInfo{0, 0} {
  mach_timebase_info(&m_timebaseInfo);
}

CUPerformanceCounter::~CUPerformanceCounter() = default;

void CUPerformanceCounter::StartCounter() { m_startTime = mach_absolute_time(); }

void CUPerformanceCounter::EndCounter() { m_endTime = mach_absolute_time(); }

std::uint64_t CUPerformanceCounter::Nanoseconds() const {
  if (m_timebaseInfo.numer == 0 || m_timebaseInfo.denom == 0) return 0;
  if (m_startTime == 0 || m_endTime == 0) return 0;
  return (m_endTime - m_startTime) * m_timebaseInfo.numer / m_timebaseInfo.denom;
}

std::uint64_t CUPerformanceCounter::GetProcessingTime() { return Nanoseconds() / 1000; }

CUSharedPtr<CUStringMac> CUPerformanceCounter::Description() {
  char text[256] = "";
  std::uint64_t const nanoseconds = Nanoseconds();
  if (nanoseconds >= 1000) {
    std::snprintf(text, sizeof text, "Processing time:%lldmicro sec, %lldmsec, %lldsec.",
                  static_cast<long long>(nanoseconds / 1000),
                  static_cast<long long>(nanoseconds / 1000000),
                  static_cast<long long>(nanoseconds / 1000000000));
  }
  return new CUStringMac(text, CUString_CharCode_UTF8);
}

void CUPerformanceCounter::CopyCounter(CUSharedPtr<CUPerformanceCounter> other) {
  m_startTime = other->m_startTime;
  m_endTime = other->m_endTime;
  m_timebaseInfo = other->m_timebaseInfo;
}
