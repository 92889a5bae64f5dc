// task_output.h: what a child has printed, as a text.
#pragma once

#include <plinth/string.h>

#include <cstdio>
#include <string>

namespace tovan {

// Reads until the end of the stream, 498 bytes at a time at most, or until reading fails. Never an empty holder.
plinth::CStringRef readOutput(std::FILE* stream);

// A text from any bytes, U+0000 included: UTF-8, with U+FFFD for every byte that is not. Never an empty holder.
plinth::CStringRef textFromBytes(const std::string& bytes);

}  // namespace tovan
