#include <SystemReport.h>

char const* SystemReportTool() { return "/usr/sbin/system_profiler"; }
