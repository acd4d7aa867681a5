// Numbers and times as the commands read and write them.
#pragma once

#include <string>

namespace tool {

// Numbers and times of a command line. False, with a complaint, for other texts.
bool read_number(const std::string& text, double& value);
bool read_time(const std::string& text, double& epoch);

// The shortest text that reads back as the number; null in JSON for what is none.
std::string number_text(double value);
std::string number_json(double value);

// "2014-06-24T12:30:15.500Z"
std::string iso_time(double epoch);

}  // namespace tool
