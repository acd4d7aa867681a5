// Ports: what a lower family needs from a higher one. Each is declared here and defined in a source
// of the upper family, so that no include runs upward.
#pragma once

#include <cstddef>

namespace morva::port {

// Creates the missing folders of a file path. 0, or -1 with the reason registered. (paths/)
int make_pathdirs(const char* path);

// Reads the parameter file `elog` and hands its settings on, one call each: a text with its key and
// no entry; for an array first its key with an empty entry and no value, then every entry of it.
// False when there is no such file.
using TakeSetting = void (*)(void* taker, const char* key, const char* entry, const char* value);
bool read_register_settings(TakeSetting take, void* taker);

// A time as text. False when the text does not fit. (time/)
bool format_time(double epoch, const char* format, bool local, char* text, std::size_t size);

// Writes the gravesite, if there is one. 0, or -1 with the reason told. (process/)
int bury();

}  // namespace morva::port
