// References of a whole tree: those that lead nowhere, round in a circle, or on too often.
// Functions are not evaluated; what they would give is taken to exist.
#include <algorithm>

#include "pf/evaluation.hpp"
#include "pf/findings.hpp"
#include "pf/pfexpand.hpp"
#include "pf/pfinterpret.hpp"

namespace morva::pf {

namespace {

// The name of the function that a text calls, "&name(".
std::string_view function_name(std::string_view call) {
    return call.substr(1, call.find('(') - 1);
}

std::string_view argument_of(std::string_view call) {
    const std::size_t open = call.find('(');
    return bare_argument(call.substr(open + 1, call.size() - open - 2));
}

// Openers that open nothing are another matter.
bool is_opener(std::string_view text) {
    return text.starts_with("&Tbl{") || text.starts_with("&Arr{") || text.starts_with("&Literal{");
}

class References {
  public:
    References(const Outline& outline, Findings& findings)
        : outline_(outline), findings_(findings), marks_(outline.statements().size()) {}

    void check() {
        mark_replaced();
        const std::size_t count = outline_.statements().size();
        for (std::size_t i = 0; i < count; ++i)
            if (!marks_[i].gone) collect(i);
        for (std::size_t i = 0; i < count; ++i)
            if (!marks_[i].gone) follow(i);
    }

  private:
    enum Progress : unsigned char { kFresh, kUnderWay, kDone };
    struct Mark {
        bool gone;
        Progress progress;
        int depth;               // of references that lead on from here
        Vector<std::size_t> to;  // statements
    };

    void mark_replaced();
    void collect(std::size_t i);
    void collect_from(std::size_t i, std::string_view text);
    void refer(std::size_t i, std::string_view reference, std::string_view path, bool braced);
    void follow(std::size_t start);
    void finish(std::size_t i);
    const char* place_of(const Statement& statement, std::string_view piece);

    const Outline& outline_;
    Findings& findings_;
    Vector<Mark> marks_;
    std::size_t searched_ = kNone;  // the statement in which places were last looked for
    const char* from_ = nullptr;    // where the next one is to be looked for
};

// What was replaced, and what stands in a block that was, has no say. Blocks come before what is in
// them.
void References::mark_replaced() {
    const auto& statements = outline_.statements();
    for (const Statement& statement : statements)
        if (statement.replaced != kNone) marks_[statement.replaced].gone = true;
    for (std::size_t i = 0; i < statements.size(); ++i) {
        const Statement& statement = statements[i];
        const bool in_gone = statement.block != kNone && marks_[statement.block].gone;
        marks_[i].gone |= in_gone || statement.node == nullptr;
    }
}

// Where a piece of the value stands in the file, as far as that can be told.
const char* References::place_of(const Statement& statement, std::string_view piece) {
    const auto index = static_cast<std::size_t>(&statement - outline_.statements().data());
    if (searched_ != index) from_ = statement.value.begin;
    searched_ = index;
    const std::string_view rest{from_, static_cast<std::size_t>(statement.value.end - from_)};
    const std::size_t found = rest.find(piece);
    if (found == rest.npos) return statement.value.begin;
    const char* place = from_ + found;
    from_ = place + piece.size();
    return place;
}

void References::collect(std::size_t i) {
    const Pf* node = outline_[i].node;
    if (node->type == PFSTRING) return collect_from(i, node->value.string);
    if (node->type != PFFUNCTION) return;
    const std::string_view call = node->value.funct->text;
    const std::string_view name = function_name(call);
    if (!is_function(name))
        return findings_.warning(outline_[i].source, outline_[i].value.begin,
                                 "there is no function '&%s'", shown(name).c_str());
    if (name == "exec") return;
    const std::string_view argument = argument_of(call);
    if (name == "ref" && argument.find('&') == argument.npos)
        return refer(i, argument, argument, true);
    collect_from(i, argument);
}

void References::collect_from(std::size_t i, std::string_view text) {
    Reference found;
    for (std::size_t at = 0; next_reference(text, at, &found);) {
        at = static_cast<std::size_t>(found.text.data() - text.data()) + found.text.size();
        if (found.path.empty() || is_opener(text.substr(at - found.text.size()))) continue;
        refer(i, found.text, found.path, found.braced);
    }
}

void References::refer(std::size_t i, std::string_view reference, std::string_view path,
                       bool braced) {
    const Statement& statement = outline_[i];
    Search result = Search::kMissing;
    Pf* target = nullptr;
    for (const Pf* around = statement.node->parent; around != nullptr; around = around->parent) {
        if (!is_array(around)) continue;
        result = braced ? search(around, path, &target) : search_key(around, path, &target);
        if (result != Search::kMissing) break;
    }
    const char* place = place_of(statement, reference);
    if (result == Search::kMissing)
        return findings_.warning(statement.source, place,
                                 "'%s' refers to nothing and stays as written",
                                 shown(reference).c_str());
    if (result == Search::kMalformed)
        return findings_.warning(statement.source, place, "'%s' is no path", shown(path).c_str());
    if (target == nullptr) return;
    const bool block = is_array(target) || target->type == PFTBL;
    if (block && statement.node->type == PFSTRING)
        return findings_.warning(statement.source, place,
                                 "'%s' refers to a whole block and stays as written",
                                 shown(reference).c_str());
    if (const std::size_t to = outline_.statement_of(target); !block && to != kNone)
        marks_[i].to.push_back(to);
}

// Depth first, with a stack of its own: chains may be as long as the file.
void References::follow(std::size_t start) {
    struct Visit {
        std::size_t statement, next;
    };
    if (marks_[start].progress != kFresh) return;
    Vector<Visit> stack{{start, 0}};
    marks_[start].progress = kUnderWay;
    while (!stack.empty()) {
        Visit& visit = stack.back();
        Mark& mark = marks_[visit.statement];
        if (visit.next == mark.to.size()) {
            finish(visit.statement);
            stack.pop_back();
            continue;
        }
        const std::size_t to = mark.to[visit.next++];
        if (marks_[to].progress == kUnderWay)
            findings_.warning(outline_[visit.statement].source,
                              outline_[visit.statement].value.begin,
                              "this value refers back to itself and stays as written");
        if (marks_[to].progress != kFresh) continue;
        marks_[to].progress = kUnderWay;
        stack.push_back({to, 0});
    }
}

void References::finish(std::size_t i) {
    Mark& mark = marks_[i];
    mark.progress = kDone;
    for (const std::size_t to : mark.to) mark.depth = std::max(mark.depth, marks_[to].depth + 1);
    if (mark.depth == kMostReferences + 1)
        findings_.warning(outline_[i].source, outline_[i].value.begin,
                          "references lead on from here more than %d times", kMostReferences);
}

}  // namespace

void check_references(const Outline& outline, Findings& findings) {
    References(outline, findings).check();
}

}  // namespace morva::pf
