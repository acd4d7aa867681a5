// What is wrong with parameter files.
#include "morva/pfcheck.h"

#include <algorithm>

#include "base/diagnostics.hpp"
#include "morva/pfread.h"
#include "pf/files.hpp"
#include "pf/findings.hpp"

namespace morva::pf {

namespace {

constexpr std::size_t kLongestWord = 127;  // of a literal's terminator

class Checker {
  public:
    explicit Checker(const Outline& outline) : outline_(outline), findings_(outline) {}

    Tbl* check() {
        for (std::size_t i = 0; i < outline_.sources().size(); ++i) check_source(i);
        for (const Statement& statement : outline_.statements()) check_statement(statement);
        check_references(outline_, findings_);
        return findings_.release();
    }

  private:
    void check_source(std::size_t index);
    void check_trouble(std::size_t index, const Trouble& trouble);
    void check_statement(const Statement& statement);
    void check_key(const Statement& statement);
    void check_replacement(const Statement& statement);
    void check_openers(const Statement& statement);
    void check_literal(const Statement& statement);
    void check_rest(const Statement& statement, const char* at, const char* what);

    std::string_view text_of(const Statement& statement) const {
        return outline_.sources()[statement.source].text;
    }
    String name_of(const Statement& statement) const;

    const Outline& outline_;
    Findings findings_;
};

void Checker::check_source(std::size_t index) {
    const Source& source = outline_.sources()[index];
    for (const Trouble& trouble : source.troubles) check_trouble(index, trouble);
    const auto stops = [](const Trouble& t) { return t.kind != Trouble::kDanglingKey; };
    if (std::none_of(source.troubles.begin(), source.troubles.end(), stops))
        for (const std::size_t block : source.open)
            findings_.error(index, outline_[block].value.begin, "this %s is never closed",
                            name_of(outline_[block]).c_str());
    const std::string_view read =
        source.text.substr(0, static_cast<std::size_t>(source.stop - source.text.data()));
    if (const std::size_t zero = read.find('\0'); zero != read.npos)
        findings_.warning(index, read.data() + zero,
                          "a zero byte: the text that it stands in ends here");
    if (const std::size_t cr = read.find("\r\n"); cr != read.npos)
        findings_.warning(index, read.data() + cr,
                          "carriage returns at the ends of lines belong to keys and values");
}

void Checker::check_trouble(std::size_t index, const Trouble& trouble) {
    const char* at = trouble.where.begin;
    switch (trouble.kind) {
        case Trouble::kTooDeep:
            return findings_.error(
                index, at, "blocks are nested more than %d deep; the rest is not read", kDeepest);
        case Trouble::kStrayClose:
            return findings_.error(
                index, at, "a closing brace too many: no block is open; the rest is not read");
        case Trouble::kEndless:
            return findings_.error(index, at, "this literal is never closed");
        case Trouble::kDanglingKey:
            return findings_.warning(index, at,
                                     "the key '%s' gets no value: a brace closes the block",
                                     shown(trouble.where.text()).c_str());
    }
}

String Checker::name_of(const Statement& statement) const {
    const String kind = statement.kind == Statement::kListBlock ? "list" : "array";
    return statement.is_item() ? kind : kind + " '" + shown(statement.key.text()) + "'";
}

void Checker::check_statement(const Statement& statement) {
    if (!statement.is_item()) check_key(statement);
    check_replacement(statement);
    switch (statement.kind) {
        case Statement::kString:
            return check_openers(statement);
        case Statement::kLiteral:
            return check_literal(statement);
        case Statement::kUndef:
            return check_rest(statement, statement.value.end, "'&Undef{}'");
        case Statement::kFunction:
            return;
        default:
            break;
    }
    check_rest(statement, statement.opener, "the opener");
    if (statement.close != nullptr) check_rest(statement, statement.close + 1, "the closing brace");
}

void Checker::check_key(const Statement& statement) {
    const std::string_view key = statement.key.text(), text = text_of(statement);
    const bool quoted =
        key.size() > 1 && (key.front() == '"' || key.front() == '\'') && key.front() == key.back();
    const std::size_t source = statement.source;
    if (quoted && key.find('\n') != key.npos)
        findings_.warning(source, key.data(), "this quoted key goes on over the end of its line");
    if (!quoted && statement.key.end != text.data() + text.size() && *statement.key.end == '#')
        findings_.warning(source, statement.key.end,
                          "the '#' ends the key '%s' and begins a comment", shown(key).c_str());
    if (key.size() <= kLongestKey) return;
    String whole(key.size(), '\0');
    const std::size_t length = quoted
                                   ? key.size() - 2
                                   : scanning::resolve(key, scanning::kBlank | scanning::kNewline,
                                                       whole.data(), whole.size());
    if (length > kLongestKey)
        findings_.warning(source, key.data(), "this key is cut to %zu characters", kLongestKey);
}

void Checker::check_replacement(const Statement& statement) {
    const char* at = statement.key.begin;
    if (statement.kind == Statement::kUndef) {
        if (statement.replaced == kNone)
            findings_.warning(statement.source, at,
                              "there is nothing that '&Undef{}' could remove");
        return;
    }
    if (statement.replaced == kNone) return;
    const Statement& old = outline_[statement.replaced];
    if (old.source == statement.source)
        findings_.warning(statement.source, at,
                          "the key '%s' is given again: line %ld had it before",
                          shown(statement.key.text()).c_str(), old.key.line);
}

void Checker::check_openers(const Statement& statement) {
    const std::string_view value = statement.value.text();
    const std::string_view text = statement.node->value.string;
    for (const char* opener : {"&Tbl{", "&Arr{", "&Literal{"}) {
        if (text.find(opener) == text.npos) continue;
        const std::size_t at = std::min(value.find(opener), value.size());
        findings_.warning(statement.source, value.data() + (at == value.size() ? 0 : at),
                          "'%s' is part of a text here and opens nothing", opener);
    }
}

// Behind "&Literal" come the delimiter and what is ignored, or a word.
void Checker::check_literal(const Statement& statement) {
    constexpr std::size_t kOpener = sizeof "&Literal" - 1;
    const char* delimiter = statement.value.begin + kOpener;
    const char* line_end = scanning::find(delimiter, statement.value.end, '\n');
    if (*delimiter == '"') {
        if (static_cast<std::size_t>(line_end - delimiter) > 1 + kLongestWord)
            findings_.warning(statement.source, statement.value.begin,
                              "this terminator is cut to %zu characters", kLongestWord);
    } else {
        const bool listed =
            std::string_view("{}()[]<>`'").find(*delimiter) != std::string_view::npos;
        check_rest(statement, delimiter + (listed ? 1 : 2), "the opener");
    }
    check_rest(statement, statement.value.end, "the end of the literal");
}

void Checker::check_rest(const Statement& statement, const char* at, const char* what) {
    const std::string_view text = text_of(statement);
    const char* end = text.data() + text.size();
    if (at >= end) return;
    const char* line_end = scanning::find(at, end, '\n');
    at = scanning::skip_blanks(at, line_end);
    while (line_end != at && (line_end[-1] == '\r' || scanning::is(line_end[-1], scanning::kBlank)))
        --line_end;
    if (at == line_end || *at == '#') return;
    const String rest = shown({at, static_cast<std::size_t>(line_end - at)});
    findings_.warning(statement.source, at, "'%s' behind %s is ignored", rest.c_str(), what);
}

}  // namespace

}  // namespace morva::pf

using namespace morva::pf;

extern "C" {

Tbl* pfcheck_text(const char* text, long length, const char* file) {
    Outline outline;
    outline.read({text, static_cast<std::size_t>(length > 0 ? length : 0)}, file);
    return Checker(outline).check();
}

Tbl* pfcheck(const char* name) {
    Files files;
    if (!files.read(name)) return nullptr;
    Outline outline;
    files.merge_into(outline);
    return Checker(outline).check();
}

}  // extern "C"
