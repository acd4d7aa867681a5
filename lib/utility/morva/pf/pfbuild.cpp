#include "pf/pfbuild.hpp"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "base/diagnostics.hpp"
#include "containers/arr.hpp"
#include "morva/pflex.h"

namespace morva::pf {

// One byte more than the register takes, so that it sees when a message is too long for it.
void Messages::add(bool complains, int error, const char* format, va_list arguments) {
    char text[10242];
    std::vsnprintf(text, sizeof text, format, arguments);
    messages_.push_back({complains, error, String(text)});
}

void Messages::reason(bool with_errno, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    add(false, with_errno ? errno : 0, format, arguments);
    va_end(arguments);
}

void Messages::complaint(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    add(true, 0, format, arguments);
    va_end(arguments);
}

void Messages::tell() const {
    for (const Message& message : messages_) {
        errno = message.error;
        if (message.complains)
            elog_complain(0, "%s", message.text.c_str());
        else
            elog_log(message.error != 0, "%s", message.text.c_str());
    }
}

namespace {

// True for the functions that are evaluated relative to the file they stand in.
bool needs_source(std::string_view function) {
    return function.starts_with("&filename(") || function.starts_with("&file(");
}

}  // namespace

// The key is gone after the call of the scanner, the entry may wait for its block to end.
void TreeBuilder::keep_key() {
    char* copy = static_cast<char*>(must_malloc(pending_.size() + 1, "key", MORVA_HERE));
    std::memcpy(copy, pending_.data(), pending_.size());
    resolved_keys_.emplace_back(copy);
    pending_ = {copy, pending_.size()};
}

Pf* TreeBuilder::resolved_node(const Value& value) {
    Pf* node = nodes_.make(PFSTRING, value.where.text().size() + 1);
    const std::string_view text = value_text(value, node->value.string);
    std::memmove(node->value.string, text.data(), text.size());
    node->value.string[text.size()] = '\0';
    return node;
}

void TreeBuilder::warn_of_openers(const char* text) {
    if (std::strstr(text, "&Tbl{") != nullptr)
        messages_.complaint("value contains '&Tbl{'\n\t'%s'\n", text);
    if (std::strstr(text, "&Arr{") != nullptr || std::strstr(text, "&Literal{") != nullptr)
        messages_.complaint("value contains '&Arr{'\n\t'%s'\n", text);
}

void TreeBuilder::literal(const Literal& literal) {
    add(string_node(literal.text));
}

void TreeBuilder::function(const Span& where) {
    Pf* node = nodes_.make(PFFUNCTION);
    node->value.funct = new_function_record();
    node->value.funct->text = new_text(where.text());
    if (needs_source(where.text())) {
        node->value.funct->result = new_array_node(PFFILE);
        node->value.funct->result->filename = source_;
    }
    add(node);
}

// Among gathered entries, one without a node takes away those of its key that came before it.
void TreeBuilder::undef(const Span&) {
    Pf* container = current_.node;
    switch (current_.way) {
        case Way::kList:
            return pffree(static_cast<Pf*>(poptbl(container->value.tbl)));
        case Way::kGathered:
            current_.sorted = false;  // it may be the only one of its key
            return gather(nullptr);
        case Way::kAtOnce:
            replaced_.add(delarr(container->value.arr, String(pending_).c_str()));
    }
}

TreeBuilder::Way TreeBuilder::way_of(Block block) {
    if (block == Block::kList) return Way::kList;
    return Pf_show_replacements == 0 ? Way::kGathered : Way::kAtOnce;
}

// An array that is gathered is made when it ends.
Pf* TreeBuilder::new_block(Way way) {
    Pf* node = nodes_.make(way == Way::kList ? PFTBL : PFARR);
    if (way == Way::kList) node->value.tbl = newtbl(0);
    if (way == Way::kAtOnce) node->value.arr = newarr(nullptr);
    return node;
}

void TreeBuilder::open(const Span&, Block block) {
    const Way way = way_of(block);
    Pf* node = new_block(way);
    add(node);
    enter(node, way);
}

void TreeBuilder::too_deep(const Span& where, Block block) {
    add(new_block(block == Block::kList ? Way::kList : Way::kAtOnce));
    messages_.reason(false, "*stack* too many Lex_levels of nesting at line #%ld in pf file %s",
                     where.line, source_);
}

void TreeBuilder::stray_close(const Span& where) {
    messages_.reason(false, "*stack* invalid right brace at line #%ld in pf file %s", where.line,
                     source_);
}

void TreeBuilder::enter(Pf* node, Way way) {
    if (level_ >= 0) enclosing_[level_] = current_;
    ++level_;
    current_ = {node, way, true, entries_.size()};
}

void TreeBuilder::leave() {
    if (current_.way == Way::kGathered) fill();
    if (level_-- > 0) current_ = enclosing_[level_];
}

void TreeBuilder::finish() {
    while (level_ >= 0) leave();
}

void TreeBuilder::put(Pf* node) {
    Pf* old = static_cast<Pf*>(put_key(current_.node->value.arr, pending_, node));
    if (old == nullptr) return;
    if (Pf_show_replacements != 0)
        std::fprintf(stderr, "replacing key '%.*s' at line #%ld of %s\n",
                     static_cast<int>(pending_.size()), pending_.data(), key_line_, source_);
    replaced_.add(old);
}

namespace {

// Leaves of each run of entries with the same key the last one, if it has a node, and frees the
// nodes of the others. Returns how many are left.
std::size_t drop_replaced(std::span<ArrayEntry> entries) {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const bool last = i + 1 == entries.size() || compare_keys(entries[i], entries[i + 1]) != 0;
        if (!last)
            pffree(static_cast<Pf*>(entries[i].value));
        else if (entries[i].value != nullptr)
            entries[kept++] = entries[i];
    }
    return kept;
}

}  // namespace

void TreeBuilder::fill() {
    std::span<ArrayEntry> entries = std::span(entries_).subspan(current_.first);
    malloced<ArrayEntry> room;
    if (!current_.sorted) {
        entries = sort_entries(entries, room);
        entries = entries.first(drop_replaced(entries));
    }
    Arr*& arr = current_.node->value.arr;
    if (arr == nullptr)
        arr = nodes_.make_array(entries);
    else
        fill_array(arr, entries);
    entries_.erase(entries_.begin() + static_cast<long>(current_.first), entries_.end());
}

}  // namespace morva::pf
