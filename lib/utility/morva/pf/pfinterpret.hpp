// The evaluator of functions, inside.
#pragma once

#include <string_view>

#include "base/memory.hpp"
#include "pf/pf.hpp"

namespace morva::pf {

// As pfinterpret, but tells a function that gives nothing (true) from one that failed, with the
// reason registered (false). `node` may be `*result`.
bool interpret(Pf* node, Pf** result);

// True for the names of the functions that there are.
bool is_function(std::string_view name);

// A call taken apart. The argument is trimmed, and expanded unless it belongs to the shell.
struct Call {
    const Pf* node;
    String argument;
};

// Each gives a new node, or null for nothing, or registers a reason and gives false. Parent links
// and file names inside of the result are set; those of its top are the caller's to set.
bool evaluate_env(const Call& call, Pf** result);
bool evaluate_ref(const Call& call, Pf** result);
bool evaluate_file(const Call& call, Pf** result);
bool evaluate_filename(const Call& call, Pf** result);
bool evaluate_datafile(const Call& call, Pf** result);
bool evaluate_datafilename(const Call& call, Pf** result);
bool evaluate_glob(const Call& call, Pf** result);
bool evaluate_exec(const Call& call, Pf** result);
bool evaluate_ask(const Call& call, Pf** result);
bool evaluate_undef(const Call& call, Pf** result);

// Without blanks around it, and without quotes around the whole of it.
std::string_view bare_argument(std::string_view argument);

// Reads the rest of a descriptor, up to 16 MB and without zero bytes. False when that fails, with
// the reason registered.
bool read_text(const Call& call, int fd, String* text);

}  // namespace morva::pf
