#pragma once

// A job, an XML file that says what a command line would: an element <job> with elements that bear
// the names of options, their values inside, and <path> for each path.

#include <string>
#include <vector>

// Fills `arguments` with what the job at `path` asks for, as words of a command line. Returns what
// is wrong with the job, or an empty text.
std::string ReadJob(std::string const& path, std::vector<std::string>& arguments);
