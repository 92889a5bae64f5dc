// output.h: where results and messages go. Results to standard output, everything else to standard error.
#pragma once

#include <string>

#include "tools/tovanctl/values.h"

namespace tovanctl {

// The number "schema" of every JSON document; it grows when a member changes its meaning.
inline constexpr int kSchema = 1;

// One JSON document: {"schema": 1, ...members}.
void printJson(const Json& members);
// The same on one line, for a stream of documents.
void printJsonLine(const Json& members);
void print(const std::string& text);
void message(const std::string& text);
// Ends the output: a full disk or a closed pipe is a failure, not silence.
void finishOutput();

}  // namespace tovanctl
