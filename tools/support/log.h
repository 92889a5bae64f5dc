// log.h: lines for people on standard error.
#pragma once

#include <string>

namespace tools {

// "MM/DD/YYYY hh:mm:ss.mmm PROGRAM[PID]: TEXT", written at once and whole. Control characters of the text become "?",
// so that a name from a file cannot forge a line.
void logLine(const std::string& text);

}  // namespace tools
