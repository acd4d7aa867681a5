// Parameter text laid out anew. Keys and values are copied byte by byte; only the white space
// around them is made anew. In lists, where lines without anything and comments that do not begin
// their line are items, these keep their places.
#include <algorithm>

#include "base/diagnostics.hpp"
#include "morva/pfcheck.h"
#include "pf/files.hpp"

namespace morva::pf {

namespace {

constexpr std::size_t kIndent = 4;

std::string_view trimmed(std::string_view text) {
    const auto blank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}

class Layout {
  public:
    explicit Layout(const Outline& outline)
        : outline_(outline), source_(outline.sources().front()), at_(source_.text.data()) {}

    String make();

  private:
    bool in_list() const {
        return !blocks_.empty() && outline_[blocks_.back()].kind == Statement::kListBlock;
    }
    void close_before(std::size_t block);
    void close();
    void put_statement(const Statement& statement);
    void put_between(const char* end);
    void put_line(std::string_view line);
    void put(std::string_view text) { result_.append(text); }
    void indent() { result_.append(kIndent * blocks_.size(), ' '); }

    const Outline& outline_;
    const Source& source_;
    const char* at_;              // the end of what has been put
    Vector<std::size_t> blocks_;  // that are open
    String result_;
};

String Layout::make() {
    const auto& statements = outline_.statements();
    for (std::size_t i = 0; i < statements.size(); ++i) {
        close_before(statements[i].block);
        put_statement(statements[i]);
        if (statements[i].is_block()) blocks_.push_back(i);
    }
    close_before(kNone);
    put_between(source_.stop);
    const char* end = source_.text.data() + source_.text.size();
    put({source_.stop, static_cast<std::size_t>(end - source_.stop)});
    return std::move(result_);
}

// Closes blocks until `block` is the innermost one that is open.
void Layout::close_before(std::size_t block) {
    while (!blocks_.empty() && blocks_.back() != block) close();
}

void Layout::close() {
    const Statement& block = outline_[blocks_.back()];
    put_between(block.close);
    blocks_.pop_back();
    indent();
    put("}");
    at_ = block.value.end;
}

void Layout::put_statement(const Statement& statement) {
    put_between(statement.key.begin);
    const char* end = statement.is_block() ? statement.opener : statement.value.end;
    const std::string_view value{statement.value.begin,
                                 static_cast<std::size_t>(end - statement.value.begin)};
    at_ = end;
    if (statement.is_item()) {
        // An item without text that a comment follows must not begin its line.
        const bool comment = end != source_.stop && *end == '#';
        if (!value.empty() || comment) indent();
        return put(value);
    }
    indent();
    put(statement.key.text());
    if (value.empty()) return;
    put("\t");
    put(value);
}

// What stands between two tokens: the rest of the line of the first one, then lines without tokens.
void Layout::put_between(const char* end) {
    std::string_view gap{at_, static_cast<std::size_t>(end - at_)};
    const bool at_start = at_ == source_.text.data();
    at_ = end;
    if (!at_start) {
        const std::size_t newline = gap.find('\n');
        const std::string_view rest = trimmed(gap.substr(0, newline));
        const bool after_indent = !result_.empty() && result_.back() == ' ';
        if (!rest.empty() && !after_indent) put(" ");
        put(rest);
        // A backslash that ends the text would escape a newline.
        if (newline == gap.npos && !result_.empty() && result_.back() == '\\') return;
        put("\n");
        if (newline == gap.npos) return;
        gap.remove_prefix(newline + 1);
    }
    for (std::size_t newline; (newline = gap.find('\n')) != gap.npos;
         gap.remove_prefix(newline + 1))
        put_line(trimmed(gap.substr(0, newline)));
    if (!trimmed(gap).empty()) put_line(trimmed(gap));
}

// A line that is blank or a comment.
void Layout::put_line(std::string_view line) {
    if (!line.empty() && !in_list()) indent();
    put(line);
    put("\n");
}

bool format(std::string_view text, String* result) {
    Outline outline;
    const Source& source = outline.read(text, "");
    if (!source.clean()) {
        elog_log(0, "can't lay out a text with errors, before line %ld\n", source.ending.line + 1);
        return false;
    }
    *result = Layout(outline).make();
    Outline again;
    if (again.read(*result, "").clean() && pfcmp(outline.root(), again.root()) == 0) return true;
    elog_log(0, "can't lay out the text such that it reads back the same\n");
    return false;
}

}  // namespace

}  // namespace morva::pf

using namespace morva::pf;

extern "C" {

char* pfformat(const char* text, long length, long* result_length) {
    morva::String result;
    if (!format({text, static_cast<std::size_t>(length > 0 ? length : 0)}, &result)) return nullptr;
    return handed_out(result, result_length);
}

int pfformat_file(const char* file) {
    morva::String text, result;
    if (!read_whole(file, &text) || !format(text, &result)) return -1;
    return rewrite(file, text, result);
}

}  // extern "C"
