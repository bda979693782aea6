// Reading a stream to its end. Any thread.
#pragma once

#include <cstdio>
#include <string>

/// Appends everything that is left in the stream; false, with errno, when reading fails. A signal handler that returns
/// is no failure.
bool readStream(FILE* stream, std::string& text);
