// log_text.h: records of a log for people and for programs.
#pragma once

#include <string>

#include "tools/tovanctl/log_record.h"
#include "tools/tovanctl/log_scopes.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {

// The text with its percent escapes resolved; the text itself when that would make no UTF-8. A guess: the caller may
// have written the escapes.
std::string withoutPercentEscapes(const std::string& text);

// The text with "?" for each control character, which would act on the terminal; line breaks too.
std::string harmless(const std::string& text);

// The columns time, process, level and text, a line break at the end. Control characters are shown as
// "?"; a line break of a message begins a line below the message's beginning. With a place the text is indented by its
// depth, and an end mark has its duration.
std::string logRecordText(const LogRecord& record, const LogPlace* place, bool colour);

// docs/tovanctl.md has the members. With a place, "depth" and "duration" too.
Json logRecordJson(const LogRecord& record, const LogPlace* place);

}  // namespace tovanctl
