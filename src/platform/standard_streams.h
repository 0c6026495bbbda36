#pragma once
// The platform seam for the command line's stdout and stderr. The program's text is UTF-8
// throughout; on a system whose console and C runtime assume another encoding (Windows), the
// streams are set up once at start so that this text reaches the user unchanged.
namespace platform {

// A console shows the UTF-8 text as such for the rest of the run (its code page is put back at
// exit); a file or a pipe gets the bytes as they are, "\n" line ends included, exactly as on every
// other system. Nothing to do where the streams already pass bytes through.
void UseUtf8StandardStreams();

}  // namespace platform
