// The formatting of messages and of trace lines.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace orv::messages {

// Does what vsnprintf does, with a short way for the conversions that most texts are made of. Uses
// up the arguments, as vsnprintf does.
[[nodiscard, gnu::format(printf, 3, 0)]] int format_text(char *text, size_t size,
                                                         const char *format, va_list args);

} // namespace orv::messages
