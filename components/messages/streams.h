// The stream lists as the other sources of the message library reach them.
#pragma once

#include <orv/msg.h>

namespace orv::messages {

// The streams of one type, set up on first use; a value that is no single type is a fatal error.
[[nodiscard]] msg_stream_desc *streams_of_type(int type);

// Whether what is written to any stream of any type goes to the system, and nowhere in the program.
[[nodiscard]] bool every_stream_has_a_descriptor();

} // namespace orv::messages
