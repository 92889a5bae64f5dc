// console.h: the console line, for what the centre and the run loop have to tell a person at the machine.
//
// The console belongs to the layer above, platform/system, which defines the function; both are parts of one library.
#pragma once

namespace cf {

// One line, without the newline. It may get lost; nothing is thrown and errno is kept. Any thread.
void consoleLine(const char* text) noexcept;

}  // namespace cf
