// Expansion of references. The text of a value is read once from front to back, and what its
// references stand for goes straight into the one result, however deep they lead.
#include "pf/pfexpand.hpp"

#include <cstdlib>
#include <cstring>

#include "containers/arr.hpp"
#include "morva/pfexpand.h"
#include "pf/evaluation.hpp"
#include "pf/pfinterpret.hpp"
#include "pf/pfresolve.hpp"

namespace morva::pf {
namespace {

bool names(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

// The length of "&{...}" with its braces in balance, quoted keys left out; 0 when they are not
// before the next "&". (So no text is read twice.)
std::size_t braced_length(std::string_view text) {
    text = text.substr(0, text.find('&', 1));
    int depth = 0;
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '{') ++depth;
        if (text[i] == '}' && --depth == 0) return i + 1;
        const bool quoted = depth > 1 && text[i - 1] == '{' && (text[i] == '"' || text[i] == '\'');
        const std::size_t closing = quoted ? text.find(text[i], i + 1) : text.npos;
        if (closing != text.npos) i = closing;
    }
    return 0;
}

// The reference that `text`, which begins with "&", begins with.
bool reference_at(std::string_view text, Reference* found) {
    std::size_t length = 1;
    while (length < text.size() && names(text[length])) ++length;
    if (length > 1) {
        *found = {text.substr(0, length), text.substr(1, length - 1), false};
        return true;
    }
    if (text.size() > 1 && text[1] == '&') {
        *found = {text.substr(0, 2), {}, false};
        return true;
    }
    if (text.size() < 2 || text[1] != '{') return false;
    length = braced_length(text);
    if (length < 4) return false;
    *found = {text.substr(0, length), text.substr(2, length - 3), true};
    return true;
}

// What a function brought in is no text of the parameter file.
bool is_from_function(const Pf* node) {
    for (; node != nullptr; node = node->parent)
        if (node->type == PFFUNCTION) return true;
    return false;
}

class Expansion {
  public:
    explicit Expansion(String* text) : text_(text) {}
    bool add(Pf* node);
    bool add_references(const Pf* node, std::string_view text);

  private:
    bool add_reference(const Pf* node, const Reference& reference);
    bool add_text(std::string_view piece);

    String* text_;
    int depth_ = 0;
};

// The text of the value itself does not count as made.
bool Expansion::add_text(std::string_view piece) {
    if (depth_ > 0 && !Evaluation::charge(piece.size())) return false;
    text_->append(piece);
    return true;
}

bool Expansion::add_reference(const Pf* node, const Reference& reference) {
    if (reference.path.empty()) return add_text("&");
    Pf* target = nullptr;
    if (look_up(node, reference.path, reference.braced, &target) == kRefused) return false;
    if (target != nullptr && !interpret(target, &target)) return false;
    if (target == nullptr || !has_string(target)) return add_text(reference.text);
    if (!Evaluation::charge(kReferenceCost)) return false;
    ++depth_;
    const bool added = add(target);
    --depth_;
    return added;
}

bool Expansion::add_references(const Pf* node, std::string_view text) {
    std::size_t done = 0;
    for (Reference reference; next_reference(text, done, &reference);) {
        const auto start = static_cast<std::size_t>(reference.text.data() - text.data());
        if (!add_text(text.substr(done, start - done)) || !add_reference(node, reference))
            return false;
        done = start + reference.text.size();
    }
    return add_text(text.substr(done));
}

bool Expansion::add(Pf* node) {
    const std::string_view text = node->value.string;
    const bool plain = text.find('&') == text.npos || is_from_function(node);
    if (plain) return add_text(text);
    const Evaluation evaluation(node);
    return !evaluation.refused() && add_references(node, text);
}

// Makes the text the node's expansion. One that is there already stays where it is.
char* keep(Pf* node, const char* text) {
    if (node->expanded != nullptr && std::strcmp(node->expanded, text) == 0) return node->expanded;
    char* copy = must_strdup(text, "expanded", MORVA_HERE);
    std::free(node->expanded);
    return node->expanded = copy;
}

}  // namespace

bool next_reference(std::string_view text, std::size_t at, Reference* found) {
    for (at = text.find('&', at); at != text.npos; at = text.find('&', at + 1))
        if (reference_at(text.substr(at), found)) return true;
    return false;
}

int look_up(const Pf* node, std::string_view path, bool braced, Pf** target) {
    *target = nullptr;
    for (Pf* around = node->parent; around != nullptr; around = around->parent) {
        if (!is_array(around)) continue;
        if (!braced) {
            *target = found_in(around, find_key(around->value.arr, path));
        } else if (resolve_in_array(around, path, target) == kRefused) {
            return kRefused;
        }
        if (*target != nullptr) return (*target)->type;
    }
    return kNotFound;
}

bool append_expanded(Pf* node, String* text) {
    return Expansion(text).add(node);
}

bool expand_text(const Pf* node, std::string_view value, String* text) {
    return Expansion(text).add_references(node, value);
}

}  // namespace morva::pf

using namespace morva::pf;

extern "C" char* pfexpand(Pf* node) {
    node = pfinterpret(node);
    if (node == nullptr || !has_string(node)) return nullptr;
    if (std::strchr(node->value.string, '&') == nullptr) return keep(node, node->value.string);
    morva::String text;
    return keep(node, append_expanded(node, &text) ? text.c_str() : node->value.string);
}
