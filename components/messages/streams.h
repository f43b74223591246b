// The stream lists as the other sources of the message library reach them.
#pragma once

#include <orv/msg.h>

namespace orv::messages {

// The streams of one type, set up on first use; a value that is no single type is a fatal error.
[[nodiscard]] msg_stream_desc *streams_of_type(int type);

} // namespace orv::messages
