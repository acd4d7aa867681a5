// Evaluation of functions: taking the call apart, and keeping its result. With the result goes a
// hook that holds the text of the call; as long as that is the text of the node, the result stands.
// (Without a hook, what lies in the place of the result comes from the reader and serves only to
// name the source.)
#include "pf/pfinterpret.hpp"

#include <cstdlib>
#include <cstring>

#include "base/diagnostics.hpp"
#include "morva/pfexpand.h"
#include "pf/evaluation.hpp"
#include "pf/pfexpand.hpp"

namespace morva::pf {
namespace {

enum Argument { kNone, kOptional, kNeeded, kForShell };

struct Function {
    std::string_view name;
    bool (*evaluate)(const Call& call, Pf** result);
    Argument argument;
};
constexpr Function kFunctions[] = {
    {"ask", evaluate_ask, kOptional},
    {"datafile", evaluate_datafile, kNeeded},
    {"datafilename", evaluate_datafilename, kNeeded},
    {"env", evaluate_env, kNeeded},
    {"exec", evaluate_exec, kForShell},
    {"file", evaluate_file, kNeeded},
    {"filename", evaluate_filename, kNeeded},
    {"glob", evaluate_glob, kNeeded},
    {"ref", evaluate_ref, kNeeded},
    {"undef", evaluate_undef, kNone},
};

const Function* function_called(std::string_view name) {
    for (const Function& function : kFunctions)
        if (function.name == name) return &function;
    return nullptr;
}

bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_space(text.back())) text.remove_suffix(1);
    return text;
}

// "&name(argument)"; the parentheses may be missing when there is no argument.
bool take_apart(std::string_view text, std::string_view* name, std::string_view* argument) {
    text = trimmed(text);
    if (text.empty() || text.front() != '&') return false;
    text.remove_prefix(1);
    const std::size_t open = text.find('(');
    *name = trimmed(text.substr(0, open));
    *argument = {};
    if (open == text.npos) return true;
    if (text.back() != ')') return false;
    *argument = text.substr(open + 1, text.size() - open - 2);
    return true;
}

bool expand_argument(const Function& function, Call* call, std::string_view argument) {
    if (function.argument == kForShell) {
        call->argument = trimmed(argument);
        return true;
    }
    return expand_text(call->node, bare_argument(argument), &call->argument);
}

bool evaluate(const Pf* node, Pf** result) {
    const char* text = node->value.funct->text;
    std::string_view name, argument;
    if (text == nullptr || !take_apart(text, &name, &argument))
        return fail_evaluation(node, "it is no function call");
    const Function* function = function_called(name);
    if (function == nullptr) return fail_evaluation(node, "there is no such function");
    Call call{node, {}};
    if (!expand_argument(*function, &call, argument)) return false;
    if (call.argument.empty() && function->argument >= kNeeded)
        return fail_evaluation(node, "its argument is empty");
    return function->evaluate(call, result);
}

bool is_kept(const Pffunct* function) {
    return function->hook != nullptr && function->text != nullptr &&
           std::strcmp(static_cast<const char*>(function->hook->pvt), function->text) == 0;
}

void keep(Pf* node, Pf* result) {
    Pffunct* function = node->value.funct;
    result->parent = node;
    result->filename = node->filename;
    pffree(function->result);
    free_hook(&function->hook);
    function->result = result;
    function->hook = new_hook(std::free);
    function->hook->pvt = must_strdup(function->text, "text", MORVA_HERE);
}

// The reader's small tree names the source, in case the node does not.
void take_filename(Pf* node) {
    const Pffunct* function = node->value.funct;
    if (node->filename == nullptr && function->result != nullptr && function->hook == nullptr)
        node->filename = function->result->filename;
}

}  // namespace

bool is_function(std::string_view name) {
    return function_called(name) != nullptr;
}

std::string_view bare_argument(std::string_view argument) {
    argument = trimmed(argument);
    const bool quoted = argument.size() > 1 && (argument[0] == '"' || argument[0] == '\'') &&
                        argument.find(argument[0], 1) == argument.size() - 1;
    return quoted ? argument.substr(1, argument.size() - 2) : argument;
}

bool interpret(Pf* node, Pf** result) {
    *result = node;
    if (node->type != PFFUNCTION) return true;
    *result = nullptr;
    Pffunct* function = node->value.funct;
    if (is_kept(function)) {
        *result = function->result;
        return true;
    }
    const Evaluation evaluation(node);
    if (evaluation.refused()) return false;
    take_filename(node);
    if (!evaluate(node, result)) return false;
    if (*result != nullptr) keep(node, *result);
    return true;
}

}  // namespace morva::pf

extern "C" Pf* pfinterpret(Pf* node) {
    Pf* result = nullptr;
    return node != nullptr && morva::pf::interpret(node, &result) ? result : nullptr;
}
