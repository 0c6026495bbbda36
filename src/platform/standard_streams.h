#pragma once
// The platform seam for the command line's stdout and stderr. The program's text is UTF-8
// throughout; where the console and the C runtime assume another encoding (Windows), the streams
// are set up once at start so that this text reaches the user unchanged.
namespace platform {

// A file or a pipe gets the bytes as they are, "\n" line ends included, exactly as on every other
// system. A console shows the text as the characters it encodes. Nothing to do where the streams
// already pass bytes through and the terminal decodes UTF-8.
void UseUtf8StandardStreams();

}  // namespace platform
