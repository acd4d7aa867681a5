// Cleaned and absolute paths without a word in the register, for routines that may fail quietly.
#pragma once

#include "paths/path.hpp"

namespace morva::paths {

enum class Cleaned { kDone, kTooLong, kNoHome, kTooManyLinks, kUnreadableLink, kNoDirectory };

// As cleanpath and abspath. After kUnreadableLink, the result holds the link and errno the reason;
// kNoDirectory (the current directory is unknown) comes from make_absolute only. After any other
// failure the result means nothing. The path lies elsewhere than the result.
Cleaned clean(std::string_view path, bool follow_links, Path* result);
Cleaned make_absolute(std::string_view path, bool follow_links, Path* result);

// Puts a user's home directory behind what `result` holds; the current user's for an empty name.
Cleaned append_home(std::string_view user, Path* result);

// Registers why `path` could not be cleaned.
void register_failure(Cleaned failure, const char* path, const Path& result);

}  // namespace morva::paths
