// Parameter text with its places: the tree that the reader would make of it, and for every node the
// statement of the text that made it. What checks, explains, changes and lays out files starts
// here. Nothing is evaluated and nothing is logged.
#pragma once

#include <string_view>
#include <unordered_map>
#include <utility>

#include "base/memory.hpp"
#include "pf/pf.hpp"
#include "pf/pfscan.hpp"

namespace morva::pf {

inline constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// A key with its value, an item of a list, or the removal of one.
struct Statement {
    enum Kind { kString, kLiteral, kFunction, kArrayBlock, kListBlock, kUndef };
    Kind kind;
    std::size_t source;    // which text
    std::size_t block;     // the statement of the block it stands in, kNone at the root
    std::size_t replaced;  // the statement of which it replaced or removed the value
    Span key;              // of an item empty, where its value begins
    Span value;            // of a block up to its closing brace
    const char* opener;    // the end of a block's opener
    const char* close;     // a block's closing brace; null when there is none
    Pf* node;              // null for kUndef

    bool is_block() const { return kind == kArrayBlock || kind == kListBlock; }
    bool is_item() const { return key.begin == key.end; }
};

// What stops a scan, or has no statement of its own.
struct Trouble {
    enum Kind { kTooDeep, kStrayClose, kEndless, kDanglingKey };
    Kind kind;
    Span where;
};

struct Source {
    std::string_view text;
    const char* name;
    Ending ending;
    const char* stop;          // where the part that is read ends
    Vector<std::size_t> open;  // blocks without an end
    Vector<Trouble> troubles;
    bool clean() const { return ending.clean && ending.level == 0; }
};

// Frees nodes that were replaced only at the end, so that an address always means the same node.
class Outline {
  public:
    // Called when a statement has taken effect outside of lists, and once for a list as a whole.
    using Settled = void (*)(void* watcher, std::size_t statement);

    Outline() : root_(new_array_node()) {}
    ~Outline();
    Outline(const Outline&) = delete;
    Outline& operator=(const Outline&) = delete;

    void watch(Settled settled, void* watcher) { settled_ = settled, watcher_ = watcher; }

    // Merges a text into the tree, as reading one file after another does. Text and name must live
    // as long as the outline.
    const Source& read(std::string_view text, const char* name);

    Pf* root() const { return root_; }
    const Vector<Source>& sources() const { return sources_; }
    const Vector<Statement>& statements() const { return statements_; }
    const Statement& operator[](std::size_t i) const { return statements_[i]; }
    // The statement that made the node; kNone for the root and for nodes from elsewhere.
    std::size_t statement_of(const Pf* node) const;

  private:
    friend struct OutlineSink;
    struct Level {
        Pf* container;
        std::size_t block;
    };
    std::size_t add(Statement::Kind kind, const Span& value, Pf* node);
    void place(Statement& statement);
    void take_away(Statement& statement);
    void settle(std::size_t statement);

    Pf* root_;
    Vector<Source> sources_;
    Vector<Statement> statements_;
    Vector<Pf*> replaced_;
    std::unordered_map<const Pf*, std::size_t, std::hash<const Pf*>, std::equal_to<const Pf*>,
                       DyingAllocator<std::pair<const Pf* const, std::size_t>>>
        made_by_;
    Vector<Level> levels_;  // of the text being read
    Span key_{};
    String pending_;  // the text of the key
    bool has_key_ = false;
    Settled settled_ = nullptr;
    void* watcher_ = nullptr;
};

// What came of looking for a path.
enum class Search { kFound, kMissing, kThroughFunction, kMalformed };

// Finds the node of a path as pfresolve does, but evaluates nothing: a path that leads through a
// function is followed up to there.
Search search(const Pf* array, std::string_view path, Pf** node);
// The same for a key of the array.
Search search_key(const Pf* array, std::string_view key, Pf** node);

// The whole of a regular file. False with the reason registered.
bool read_whole(const char* file, String* text);

// A text of a file on one line, for messages: control characters as in C.
String on_one_line(std::string_view text);

}  // namespace morva::pf
