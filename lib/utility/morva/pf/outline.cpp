#include "pf/outline.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "base/diagnostics.hpp"
#include "base/posix.hpp"
#include "containers/arr.hpp"
#include "pf/pfpath.hpp"

namespace morva::pf {

// Takes the scanner's events. Part of the outline; apart so that its header stays readable.
struct OutlineSink : SilentSink {
    explicit OutlineSink(Outline& outline) : out(outline) {}

    void key(const Key& key) {
        out.key_ = key.where;
        out.pending_.assign(key.text);
        out.has_key_ = true;
    }
    void value(const Value& value) {
        out.add(Statement::kString, value.where, new_string_node(value_text(value)));
    }
    void literal(const Literal& literal) {
        out.add(Statement::kLiteral, literal.where, new_string_node(literal.text));
    }
    void function(const Span& where) {
        out.add(Statement::kFunction, where, new_function_node(where.text()));
    }
    void undef(const Span& where) { out.add(Statement::kUndef, where, nullptr); }
    void open(const Span& where, Block block) {
        const bool list = block == Block::kList;
        const std::size_t made = out.add(list ? Statement::kListBlock : Statement::kArrayBlock,
                                         where, list ? new_list_node() : new_array_node());
        out.levels_.push_back({out.statements_[made].node, made});
        if (!list) out.settle(made);
    }
    void close(const Span& where) {
        const std::size_t closed = out.levels_.back().block;
        out.levels_.pop_back();
        if (out.has_key_) trouble(Trouble::kDanglingKey, out.key_);
        out.has_key_ = false;
        Statement& block = out.statements_[closed];
        block.close = where.begin;
        block.value.end = where.end;
        out.settle(closed);
    }
    void end_marker(const Span& where) { source().stop = where.begin; }
    // The reader keeps the node whose opener was one too many.
    void too_deep(const Span& where, Block block) {
        const bool list = block == Block::kList;
        out.add(list ? Statement::kListBlock : Statement::kArrayBlock, where,
                list ? new_list_node() : new_array_node());
        trouble(Trouble::kTooDeep, where);
    }
    void stray_close(const Span& where) { trouble(Trouble::kStrayClose, where); }
    void endless(const Span& where) { trouble(Trouble::kEndless, where); }

  private:
    Source& source() { return out.sources_.back(); }
    void trouble(Trouble::Kind kind, const Span& where) {
        source().troubles.push_back({kind, where});
        if (kind != Trouble::kDanglingKey) source().stop = where.begin;
    }
    Outline& out;
};

Outline::~Outline() {
    pffree(root_);
    for (Pf* node : replaced_) pffree(node);
}

const Source& Outline::read(std::string_view text, const char* name) {
    sources_.push_back({text, name, {}, text.data() + text.size(), {}, {}});
    levels_.assign(1, {root_, kNone});
    has_key_ = false;
    OutlineSink sink(*this);
    const Ending ending = scan(text, sink);
    Source& source = sources_.back();
    source.ending = ending;
    for (std::size_t i = 1; i < levels_.size(); ++i) source.open.push_back(levels_[i].block);
    return source;
}

std::size_t Outline::statement_of(const Pf* node) const {
    const auto found = made_by_.find(node);
    return found == made_by_.end() ? kNone : found->second;
}

std::size_t Outline::add(Statement::Kind kind, const Span& value, Pf* node) {
    const Level level = levels_.back();
    const Span key = has_key_ ? key_ : Span{value.begin, value.begin, value.line};
    const std::size_t index = statements_.size();
    statements_.push_back(
        {kind, sources_.size() - 1, level.block, kNone, key, value, value.end, nullptr, node});
    if (node == nullptr) {
        take_away(statements_[index]);
    } else {
        node->parent = level.container;
        made_by_[node] = index;
        place(statements_[index]);
    }
    has_key_ = false;
    if (!statements_[index].is_block()) settle(index);
    return index;
}

void Outline::place(Statement& statement) {
    Pf* container = levels_.back().container;
    if (!is_array(container)) {
        pushtbl(container->value.tbl, statement.node);
        return;
    }
    Pf* old = static_cast<Pf*>(put_key(container->value.arr, pending_, statement.node));
    if (old == nullptr) return;
    statement.replaced = statement_of(old);
    replaced_.push_back(old);
}

void Outline::take_away(Statement& statement) {
    Pf* container = levels_.back().container;
    void* old = is_array(container) ? delarr(container->value.arr, pending_.c_str())
                                    : poptbl(container->value.tbl);
    if (old == nullptr) return;
    statement.replaced = statement_of(static_cast<Pf*>(old));
    replaced_.push_back(static_cast<Pf*>(old));
}

void Outline::settle(std::size_t statement) {
    const auto is_list = [](const Level& level) { return !is_array(level.container); };
    if (settled_ == nullptr || std::any_of(levels_.begin(), levels_.end(), is_list)) return;
    settled_(watcher_, statement);
}

namespace {

Pf* entry(const Pf* array, std::string_view key) {
    return is_array(array) ? static_cast<Pf*>(find_key(array->value.arr, key)) : nullptr;
}

Pf* item(const Pf* list, long index) {
    if (list->type != PFTBL) return nullptr;
    const long count = tbl_count(list->value.tbl);
    if (index < 0 && index >= -count) index += count;
    return index < 0 || index >= count ? nullptr
                                       : static_cast<Pf*>(tbl_item(list->value.tbl, index));
}

}  // namespace

Search search(const Pf* array, std::string_view path, Pf** node) {
    const String terminated(path);
    PathReader reader(terminated.c_str());
    *node = reader.name().size() < path.size() ? entry(array, path) : nullptr;
    if (*node != nullptr) return Search::kFound;
    const Pf* at = reader.name().empty() ? array : entry(array, reader.name());
    bool through_function = false;
    for (Step step; reader.next(&step);) {
        if (at == nullptr) continue;
        through_function |= at->type == PFFUNCTION;
        at = step.by_key ? entry(at, step.key) : item(at, step.index);
    }
    if (reader.fault() != nullptr) return Search::kMalformed;
    *node = const_cast<Pf*>(at);
    if (at != nullptr) return Search::kFound;
    return through_function ? Search::kThroughFunction : Search::kMissing;
}

Search search_key(const Pf* array, std::string_view key, Pf** node) {
    *node = entry(array, key);
    return *node == nullptr ? Search::kMissing : Search::kFound;
}

bool read_whole(const char* file, String* text) {
    const Descriptor descriptor(
        static_cast<int>(retry([&] { return ::open(file, O_RDONLY | O_CLOEXEC | O_NONBLOCK); })));
    struct stat status;
    if (!descriptor || ::fstat(descriptor.get(), &status) != 0) {
        elog_log(1, "can't open '%s'", file);
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        elog_log(0, "'%s' is no regular file\n", file);
        return false;
    }
    char part[65536];
    for (;;) {
        const ssize_t n = retry([&] { return ::read(descriptor.get(), part, sizeof part); });
        if (n < 0) elog_log(1, "can't read '%s'", file);
        if (n <= 0) return n == 0;
        text->append(part, static_cast<std::size_t>(n));
    }
}

String on_one_line(std::string_view text) {
    String line;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        char escape[8] = {c, '\0'};
        if (c == '\n' || c == '\t')
            std::snprintf(escape, sizeof escape, c == '\n' ? "\\n" : "\\t");
        else if (byte < 0x20 || byte == 0x7f)
            std::snprintf(escape, sizeof escape, "\\%03o", static_cast<unsigned>(byte));
        line += escape;
    }
    return line;
}

}  // namespace morva::pf
