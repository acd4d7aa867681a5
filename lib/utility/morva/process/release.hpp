// What the library was built as; defined in a source that the build writes.
#pragma once

namespace morva::release {

extern const char* const kProduct;   // "libmorva"
extern const char* const kBuild;     // number, platform, date: "1.0.0 Linux-x86_64 2026-11-22"
extern const char* const kText;      // both
extern const char* const kRevision;  // of the source: 40 hexadecimal digits

}  // namespace morva::release
