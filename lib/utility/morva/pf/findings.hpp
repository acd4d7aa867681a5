// Findings as they are gathered, and the list that they become.
#pragma once

#include "morva/pfcheck.h"
#include "pf/outline.hpp"

namespace morva::pf {

class Findings {
  public:
    explicit Findings(const Outline& outline) : outline_(outline) {}

    // `at` is a byte of the source. A source can have only so many warnings.
    void error(std::size_t source, const char* at, const char* format, ...)
        __attribute__((format(printf, 4, 5)));
    void warning(std::size_t source, const char* at, const char* format, ...)
        __attribute__((format(printf, 4, 5)));

    // The findings as a list of Pffinding, in the order of the sources and their lines.
    Tbl* release();

  private:
    struct Finding {
        std::size_t source;
        const char* at;
        int severity;
        String text;
    };
    void add(std::size_t source, const char* at, int severity, const char* format,
             va_list arguments) __attribute__((format(printf, 5, 0)));

    const Outline& outline_;
    Vector<Finding> findings_;
    Vector<std::size_t> warnings_;  // of each source
};

// A key or value for a message: on one line, not too long.
String shown(std::string_view text);

// Adds what is wrong with the references of the tree.
void check_references(const Outline& outline, Findings& findings);

}  // namespace morva::pf
