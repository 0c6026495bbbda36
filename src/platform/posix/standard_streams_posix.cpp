#include "platform/standard_streams.h"

namespace platform {

// The streams pass bytes through, and a terminal decodes them in the user's (UTF-8) locale.
void UseUtf8StandardStreams() {}

}  // namespace platform
