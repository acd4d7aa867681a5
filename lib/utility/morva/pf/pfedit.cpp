// Changes to parameter text that touch only the bytes of one value. A change is tried in the plain
// form first; what does not read back as it should is tried in the next one. No result is handed
// out that has not been read back and compared with the tree that was wanted.
#include <algorithm>

#include "base/diagnostics.hpp"
#include "containers/arr.hpp"
#include "morva/pfcheck.h"
#include "morva/pfresolve.h"
#include "morva/pfwrite.h"
#include "pf/files.hpp"

namespace morva::pf {

namespace {

constexpr std::size_t kIndent = 4;

struct FreeTree {
    void operator()(Pf* pf) const { pffree(pf); }
};
using Tree = std::unique_ptr<Pf, FreeTree>;

bool refuse(const char* path, const char* reason) {
    elog_log(0, "can't set '%s': %s\n", path, reason);
    return false;
}

// ---- Forms of a value ----

struct Wanted {
    Tree node;             // what is to be read back
    Vector<String> forms;  // texts for it, the plainest first
};

// The values of a text of one entry; null when it is anything else.
Tree only_value(std::string_view value) {
    String text = "k\t";
    text.append(value).append("\n");
    Outline outline;
    const Source& source = outline.read(text, "");
    Pf* node = static_cast<Pf*>(getarr(outline.root()->value.arr, "k"));
    const auto at_root = [](const Statement& s) { return s.block == kNone; };
    const auto count =
        std::count_if(outline.statements().begin(), outline.statements().end(), at_root);
    const bool whole = source.clean() && source.stop == text.data() + text.size();
    if (!whole || count != 1 || node == nullptr) return nullptr;
    return Tree(static_cast<Pf*>(delarr(outline.root()->value.arr, "k")));
}

// Openers in an ordinary value are read, but with a complaint.
bool holds_opener(std::string_view value) {
    const auto holds = [=](std::string_view opener) { return value.find(opener) != value.npos; };
    return holds("&Tbl{") || holds("&Arr{") || holds("&Literal{");
}

bool want(const char* path, const char* value, int flags, Wanted* wanted) {
    if ((flags & PFEDIT_VERBATIM) != 0) {
        wanted->node = only_value(value);
        wanted->forms = {value};
        return wanted->node != nullptr || refuse(path, "the text is not that of one value");
    }
    wanted->node.reset(new_string_node(value));
    const malloced<char> plain(str2pf(value)), literal(pfoutput_literal(value, 2));
    wanted->forms = {literal.get(), String(1, '\\').append(plain.get())};
    if (!holds_opener(value)) wanted->forms.insert(wanted->forms.begin(), plain.get());
    return true;
}

// ---- Keys ----

bool is_plain_key(std::string_view key) {
    constexpr std::string_view kMarks[] = {"__END__", "__DATA__", "__EOF__"};
    return key.front() != '}' && key.front() != '"' && key.front() != '\'' &&
           key.find_first_of(" \t\n#\\") == key.npos &&
           std::find(std::begin(kMarks), std::end(kMarks), key) == std::end(kMarks);
}

// A key as it stands in the text: bare, in quotes, or with each odd character as octal digits.
String key_form(std::string_view key) {
    if (key.empty()) return "\\000";
    if (is_plain_key(key)) return String(key);
    for (const char quote : {'"', '\''})
        if (key.find(quote) == key.npos) return String(1, quote).append(key).append(1, quote);
    String form;
    for (const char c : key) {
        char digits[8] = {c, '\0'};
        if (std::string_view(" \t\n#\\}\"'").find(c) != std::string_view::npos)
            std::snprintf(digits, sizeof digits, "\\%03o", static_cast<unsigned>(c));
        form += digits;
    }
    return form;
}

std::string_view key_of(Pf* container, const Pf* child) {
    std::string_view found;
    Tbl* keys = keysarr(container->value.arr);
    for (long i = 0; i < maxtbl(keys) && found.data() == nullptr; ++i) {
        const char* key = static_cast<char*>(gettbl(keys, i));
        if (getarr(container->value.arr, key) == child) found = key;
    }
    freetbl(keys, nullptr);
    return found;
}

// ---- Places ----

// Bytes to be replaced, and what goes before and behind the new form.
struct Cut {
    std::size_t begin, end;
    String before, behind;
};

class Editor {
  public:
    Editor(std::string_view text, const char* path) : text_(text), path_(path) {
        outline_.read(text, "");
    }

    bool edit(const char* value, int flags, String* result);

  private:
    bool is_readable() const;
    bool find(int flags, bool* exists);
    bool create();
    bool unchanged(const Wanted& wanted) const { return pfcmp(node_, wanted.node.get()) == 0; }
    void expect(Wanted& wanted);
    bool reads_back(const String& text) const;
    Vector<Cut> cuts() const;
    void replacing(Vector<Cut>& cuts) const;
    Cut adding() const;
    const Statement* last_in(std::size_t block) const;
    String indent_in(std::size_t block, const Statement* sibling) const;
    String gap_behind(const Statement* sibling, std::size_t key_length) const;
    std::size_t line_start(const char* at) const {
        return text_.substr(0, offset(at)).rfind('\n') + 1;
    }
    std::string_view indent_of(const char* at) const;
    std::size_t offset(const char* at) const { return static_cast<std::size_t>(at - text_.data()); }

    std::string_view text_;
    const char* path_;
    Outline outline_;
    Pf* node_ = nullptr;        // what is to become the value
    Pf* branch_ = nullptr;      // the topmost node that had to be created, down to node_
    std::size_t made_ = kNone;  // the statement of the value; kNone when it was created
};

bool Editor::is_readable() const {
    const Source& source = outline_.sources().front();
    if (source.clean()) return true;
    elog_log(0, "can't set '%s': the text has errors before line %ld\n", path_,
             source.ending.line + 1);
    return false;
}

bool Editor::find(int flags, bool* exists) {
    const Search result = search(outline_.root(), path_, &node_);
    *exists = result == Search::kFound;
    if (result == Search::kThroughFunction) return refuse(path_, "it leads through a function");
    if (!*exists) return true;
    made_ = outline_.statement_of(node_);
    if (made_ == kNone) return refuse(path_, "it is the whole file");
    const bool block = outline_[made_].is_block();
    return !block || (flags & PFEDIT_BLOCKS) != 0 || refuse(path_, "it is a whole list or array");
}

// Makes what is missing of the path in the tree.
bool Editor::create() {
    if (pfresolve(outline_.root(), path_, 1, &node_) < 0 || node_ == nullptr) return false;
    std::size_t steps = 0;
    branch_ = node_;
    while (branch_->parent != outline_.root() && outline_.statement_of(branch_->parent) == kNone) {
        branch_ = branch_->parent;
        if (++steps > kDeepest) return refuse(path_, "blocks would be nested too deeply");
    }
    return true;
}

// Gives the node of the tree the contents that are wanted.
void Editor::expect(Wanted& wanted) {
    if (node_->type == PFPLACEHOLDER) node_->type = PFSTRING;
    clear_node(node_);
    node_->type = std::exchange(wanted.node->type, PFSTRING);
    node_->value = std::exchange(wanted.node->value, {});
}

bool Editor::reads_back(const String& text) const {
    Outline outline;
    const Source& source = outline.read(text, "");
    return source.clean() && pfcmp(outline.root(), outline_.root()) == 0;
}

std::string_view Editor::indent_of(const char* at) const {
    const std::size_t start = line_start(at);
    const std::size_t end = std::min(text_.find_first_not_of(" \t", start), offset(at));
    return text_.substr(start, end - start);
}

// ---- Replacing ----

// What is ignored behind a value must go when it would become part of the new one.
void Editor::replacing(Vector<Cut>& cuts) const {
    const Statement& statement = outline_[made_];
    Cut cut{offset(statement.value.begin), offset(statement.value.end), "", ""};
    const bool empty = cut.begin == cut.end;
    const bool after_key = cut.begin > 0 && std::string_view(" \t\n").find(text_[cut.begin - 1]) ==
                                                std::string_view::npos;
    if (empty && !statement.is_item() && after_key) cut.before.push_back('\t');
    if (empty && cut.end < text_.size() && text_[cut.end] == '#') cut.behind.push_back(' ');
    cuts.push_back(cut);
    cut.end = std::min(text_.find('\n', cut.end), text_.size());
    cut.behind.clear();
    cuts.push_back(cut);
}

// ---- Adding ----

// The last statement of a block that shows how it is indented.
const Statement* Editor::last_in(std::size_t block) const {
    const auto& statements = outline_.statements();
    for (std::size_t i = statements.size(); i-- > 0;)
        if (statements[i].block == block && statements[i].key.begin != statements[i].value.end)
            return &statements[i];
    return nullptr;
}

String Editor::indent_in(std::size_t block, const Statement* sibling) const {
    if (sibling != nullptr) return String(indent_of(sibling->key.begin));
    if (block == kNone) return "";
    return String(indent_of(outline_[block].key.begin)) + String(kIndent, ' ');
}

// Values that stand in one column with blanks go on doing so.
String Editor::gap_behind(const Statement* sibling, std::size_t key_length) const {
    if (sibling == nullptr || sibling->is_item()) return "\t";
    const std::string_view gap{sibling->key.end,
                               static_cast<std::size_t>(sibling->value.begin - sibling->key.end)};
    if (gap.empty() || gap.find_first_not_of(' ') != gap.npos) return "\t";
    if (gap.size() == 1) return " ";
    const std::size_t column = sibling->key.text().size() + gap.size();
    return String(column > key_length ? column - key_length : 1, ' ');
}

// The place of the value is where the blocks that lead to it have been opened.
Cut Editor::adding() const {
    const std::size_t block = outline_.statement_of(branch_->parent);
    const Statement* sibling = last_in(block);
    String indent = indent_in(block, sibling);
    Cut cut{};
    const char* end = block == kNone ? outline_.sources().front().stop : outline_[block].close;
    const bool blank = line_start(end) + indent_of(end).size() == offset(end);
    cut.begin = cut.end = blank || block != kNone ? line_start(end) : offset(end);
    if (cut.begin > 0 && text_[cut.begin - 1] != '\n') cut.before.push_back('\n');
    Vector<String> closers;  // the indents of the blocks that are opened
    Vector<Pf*> way{node_};
    while (way.back() != branch_) way.push_back(way.back()->parent);
    for (std::size_t i = way.size(); i-- > 0;) {
        Pf* container = way[i]->parent;
        cut.before += indent;
        if (is_array(container)) {
            const String key = key_form(key_of(container, way[i]));
            const bool beside = i + 1 == way.size();
            cut.before += key + gap_behind(beside ? sibling : nullptr, key.size());
        }
        if (i == 0) break;
        cut.before += is_array(way[i]) ? "&Arr{\n" : "&Tbl{\n";
        closers.push_back(indent);
        indent += String(kIndent, ' ');
    }
    cut.behind.push_back('\n');
    for (std::size_t i = closers.size(); i-- > 0;) cut.behind.append(closers[i]).append("}\n");
    return cut;
}

Vector<Cut> Editor::cuts() const {
    Vector<Cut> cuts;
    if (made_ != kNone)
        replacing(cuts);
    else
        cuts.push_back(adding());
    return cuts;
}

// No line that is added ends in blanks.
void drop_blanks(String& text, std::size_t start) {
    while (text.size() > start && (text.back() == ' ' || text.back() == '\t')) text.pop_back();
}

bool Editor::edit(const char* value, int flags, String* result) {
    Wanted wanted;
    bool exists = false;
    if (!is_readable() || !want(path_, value, flags, &wanted) || !find(flags, &exists))
        return false;
    *result = String(text_);
    if (exists && unchanged(wanted)) return true;
    if (!exists && !create()) return false;
    expect(wanted);
    for (const Cut& cut : cuts()) {
        for (const String& form : wanted.forms) {
            *result = String(text_.substr(0, cut.begin)) + cut.before;
            if (form.empty()) drop_blanks(*result, cut.begin);
            result->append(form).append(cut.behind).append(text_.substr(cut.end));
            if (reads_back(*result)) return true;
        }
    }
    return refuse(path_, "no text would read back with just this change");
}

bool edit(std::string_view text, const char* path, const char* value, int flags, String* result) {
    if (path == nullptr || value == nullptr || *path == '\0')
        return refuse(path == nullptr ? "" : path, "there is no path or no value");
    return Editor(text, path).edit(value, flags, result);
}

}  // namespace

}  // namespace morva::pf

using namespace morva::pf;

extern "C" {

char* pfedit(const char* text, long length, const char* path, const char* value, int flags,
             long* result_length) {
    morva::String result;
    if (!edit({text, static_cast<std::size_t>(length > 0 ? length : 0)}, path, value, flags,
              &result))
        return nullptr;
    return handed_out(result, result_length);
}

int pfedit_file(const char* file, const char* path, const char* value, int flags) {
    morva::String text, result;
    if (!read_whole(file, &text) || !edit(text, path, value, flags, &result)) return -1;
    return rewrite(file, text, result);
}

}  // extern "C"
