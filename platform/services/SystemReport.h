#pragma once

// The tool that reports on the machine, of which every system has its own.

// A shell word, quoted where it has to be, that runs the tool. The tool takes no argument, writes a
// report in plain text to its standard output and ends by itself. The text lives as long as the
// process and is never null; whether the tool is there is found out by running it. Any thread may
// call this.
extern "C" char const* SystemReportTool(void);
