// Identifiers and the clock beside their peers.

#include <sys/random.h>
#include <time.h>

#include <QUuid>

#include "QuillmereLib/values/CUPerformanceCounter.h"
#include "QuillmereLib/values/CUUUID.h"
#include "benchmarks/Cases.h"

namespace {

void RegisterAll() {
  Measure("values/uuid/quillmere", [] { return CUUUID::Create(); });
  Measure("values/uuid/getrandom", [] {
    CFUUIDBytes bytes;
    if (getrandom(&bytes, sizeof bytes, 0) != sizeof bytes) std::abort();
    return bytes;
  });
  Measure("values/uuid/quuid", [] { return QUuid::createUuid(); });

  Measure("values/measure_time/quillmere", [] {
    CUPerformanceCounter counter;
    counter.StartCounter();
    counter.EndCounter();
    return counter.GetProcessingTime();
  });
  Measure("values/measure_time/clock_gettime", [] {
    timespec start, end;
    clock_gettime(CLOCK_MONOTONIC, &start);
    clock_gettime(CLOCK_MONOTONIC, &end);
    return end.tv_nsec - start.tv_nsec;
  });
}

}  // namespace

int main(int argc, char** argv) { return RunCases(argc, argv, RegisterAll); }
