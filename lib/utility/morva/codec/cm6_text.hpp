// Where things stand in a message: header lines, data, and the line with the checksum.
//
//     WID2 2007/03/21 22:23:00.004 IDI   HHZ ...       any number of header lines
//     DAT2
//     UIK2VUIJ...                                      data, lines of 80 characters
//     CHK2 24056294                                    checksum line
#pragma once

#include <cstdint>
#include <string_view>

namespace morva {

inline constexpr int kLineLength = 80;

struct MessageParts {
    std::string_view data;  // between the header lines and the checksum line, else to the end
    bool has_checksum_line = false;
    bool has_number = false;  // the checksum line states one
    std::int64_t stored = 0;  // that number, at the limits of 64 bits when it lies beyond them
};

MessageParts split_message(std::string_view text);

}  // namespace morva
