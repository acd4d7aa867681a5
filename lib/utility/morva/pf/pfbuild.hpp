// The sink that makes a tree of what the scanner finds.
#pragma once

#include <string_view>

#include "base/memory.hpp"
#include "pf/pf.hpp"
#include "pf/pfpool.hpp"
#include "pf/pfscan.hpp"

namespace morva::pf {

// Messages that wait until no lock is held.
class Messages {
  public:
    // Formats as printf does; a reason keeps the error number when `with_errno` is set.
    void reason(bool with_errno, const char* format, ...) __attribute__((format(printf, 3, 4)));
    void complaint(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Hands all of them to the register, in their order.
    void tell() const;

  private:
    struct Message {
        bool complains;
        int error;  // the error number that belongs to it, or 0
        String text;
    };
    void add(bool complains, int error, const char* format, va_list arguments)
        __attribute__((format(printf, 4, 0)));
    Vector<Message> messages_;
};

class TreeBuilder {
  public:
    // `root` is an array, `length` that of the text, `source` a lasting name.
    TreeBuilder(Pf* root, std::size_t length, char* source, Messages& messages)
        : nodes_(kNodeBytes * length), current_(root), source_(source), messages_(messages) {}

    void key(const Key& key);
    void value(const Value& value);
    void literal(const Literal& literal);
    void function(const Span& where);
    void undef(const Span&);
    void open(const Span& where, Block block);
    void close(const Span&) { current_ = current_->parent; }
    void end_marker(const Span&) {}
    void too_deep(const Span& where, Block block);
    void stray_close(const Span& where);
    void endless(const Span&) {}

  private:
    // What a byte of text becomes.
    static constexpr std::size_t kNodeBytes = 3;

    Pf* string_node(std::string_view text);
    Pf* resolved_node(const Value& value);
    Pf* new_block(Block block);
    void add(Pf* node);
    void replaced(Pf* old);
    void warn_of_openers(const char* text);

    NodeMaker nodes_;
    Pf* current_;
    std::string_view pending_;  // key
    long key_line_ = 0;
    char* source_;
    Messages& messages_;
    char resolved_[kLongestKey];  // holds the pending key when the text does not
};

}  // namespace morva::pf
