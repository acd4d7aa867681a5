// Reading, walking and printing trees.
#include "pf_tree.hpp"

#include <cstring>
#include <map>

#include "command.hpp"
#include "output.hpp"

namespace tool {

namespace {

std::string after(const std::string& path, const std::string& key) {
    const bool plain = !key.empty() && key.find_first_of("{}[]'\"") == std::string::npos;
    if (path.empty()) return key;
    if (plain) return path + "{" + key + "}";
    const char quote = key.find('"') == std::string::npos ? '"' : '\'';
    return path + "{" + quote + key + quote + "}";
}

void add_leaves(Pf* node, const std::string& path, std::vector<Leaf>& leaves) {
    if (!is_block(node)) {
        leaves.push_back({path, node->type, text_of(node, Values::as_written)});
    } else if (node->type == PFTBL) {
        for (long i = 0; i < maxtbl(node->value.tbl); ++i)
            add_leaves(static_cast<Pf*>(gettbl(node->value.tbl, i)),
                       path + "[" + std::to_string(i) + "]", leaves);
        if (maxtbl(node->value.tbl) == 0) leaves.push_back({path, node->type, "&Tbl{}"});
    } else {
        const std::vector<std::string> keys = keys_of(node);
        for (const std::string& key : keys)
            add_leaves(static_cast<Pf*>(getarr(node->value.arr, key.c_str())), after(path, key),
                       leaves);
        if (keys.empty() && !path.empty()) leaves.push_back({path, node->type, "&Arr{}"});
    }
}

void print_change(const std::string& path, const Leaf* before, const Leaf* now) {
    const std::string shown = one_line(path) + "\t";
    if (before != nullptr)
        print(coloured(Colour::red, "- " + shown + one_line(before->text)) + "\n");
    if (now != nullptr) print(coloured(Colour::green, "+ " + shown + one_line(now->text)) + "\n");
}

std::string change_json(const std::string& path, const Leaf* before, const Leaf* now) {
    JsonObject change;
    change.text("path", path);
    if (before != nullptr) change.text("old", before->text);
    if (now != nullptr) change.text("new", now->text);
    return change.str();
}

std::map<std::string, const Leaf*> by_path(const std::vector<Leaf>& leaves) {
    std::map<std::string, const Leaf*> index;
    for (const Leaf& leaf : leaves) index[leaf.path] = &leaf;
    return index;
}

// Calls `tell(path, before, now)` for each value that differs; null where there is none.
template <class Tell>
void each_difference(const std::vector<Leaf>& old_leaves, const std::vector<Leaf>& new_leaves,
                     Tell tell) {
    const auto before = by_path(old_leaves), now = by_path(new_leaves);
    for (const Leaf& leaf : old_leaves) {
        const auto found = now.find(leaf.path);
        if (found == now.end())
            tell(leaf.path, &leaf, nullptr);
        else if (found->second->type != leaf.type || found->second->text != leaf.text)
            tell(leaf.path, &leaf, found->second);
    }
    for (const Leaf& leaf : new_leaves)
        if (before.count(leaf.path) == 0) tell(leaf.path, nullptr, &leaf);
}

}  // namespace

Tree read_tree(const std::string& name) {
    const Records files(pffiles(name.c_str(), 0), std::free);
    if (files.size() == 0) {
        elog_complain(0, "no parameter file %s", name.c_str());
        return nullptr;
    }
    const int mark = elog_mark();
    Pf* pf = nullptr;
    const int result = pfread(name.c_str(), &pf);
    Tree tree(pf);
    // An empty file gives -1, too, but nobody has anything to say about it.
    if (result == 0 || (result == -1 && elog_mark() == mark && pf != nullptr)) return tree;
    elog_complain(0, "errors in parameter file %s; 'morva pf check' tells where", name.c_str());
    return nullptr;
}

Pf* find(Pf* tree, const std::string& path, const std::string& name) {
    if (path.empty()) return tree;
    Pf* node = nullptr;
    if (pfresolve(tree, path.c_str(), 0, &node) >= 0 && node != nullptr) return node;
    elog_complain(0, "no '%s' in parameter file %s", path.c_str(), name.c_str());
    return nullptr;
}

Pf* evaluated(Pf* node, Values values) {
    return node->type == PFFUNCTION && values == Values::expanded ? pfinterpret(node) : node;
}

std::string text_of(Pf* node, Values values) {
    const char* text = nullptr;
    if (node->type == PFFUNCTION)
        text = node->value.funct->text;
    else if (values == Values::expanded)
        text = pfexpand(node);
    else
        text = node->value.string;
    return text == nullptr ? "" : text;
}

std::string json_of(Pf* node, Values values) {
    node = node == nullptr ? nullptr : evaluated(node, values);
    if (node == nullptr) return "null";
    if (node->type == PFTBL) {
        JsonList list;
        for (long i = 0; i < maxtbl(node->value.tbl); ++i)
            list.add(json_of(static_cast<Pf*>(gettbl(node->value.tbl, i)), values));
        return list.str();
    }
    if (!is_array(node)) return json_string(text_of(node, values));
    JsonObject object;
    for (const std::string& key : keys_of(node))
        object.raw(key, json_of(static_cast<Pf*>(getarr(node->value.arr, key.c_str())), values));
    return object.str();
}

std::string normal_form(Pf* node) {
    char* text = nullptr;
    std::size_t size = 0;
    FILE* stream = ::open_memstream(&text, &size);
    if (stream == nullptr) elog_die(1, "can't make room for a text");
    const int type = node->type;
    if (is_array(node)) node->type = PFFILE;
    pfout(stream, node);
    node->type = type;
    std::fclose(stream);
    const std::string copy(text, size);
    std::free(text);
    return copy;
}

std::vector<std::string> keys_of(const Pf* array) {
    std::vector<std::string> keys;
    Tbl* tbl = keysarr(array->value.arr);
    for (long i = 0; i < maxtbl(tbl); ++i) keys.emplace_back(static_cast<char*>(gettbl(tbl, i)));
    freetbl(tbl, nullptr);
    return keys;
}

std::vector<Leaf> leaves_of(Pf* node, const std::string& path) {
    std::vector<Leaf> leaves;
    if (node != nullptr) add_leaves(node, path, leaves);
    return leaves;
}

void print_difference(const std::vector<Leaf>& old_leaves, const std::vector<Leaf>& new_leaves) {
    each_difference(old_leaves, new_leaves, print_change);
}

std::string difference_json(const std::vector<Leaf>& old_leaves,
                            const std::vector<Leaf>& new_leaves) {
    JsonList changes;
    each_difference(old_leaves, new_leaves,
                    [&](const std::string& path, const Leaf* before, const Leaf* now) {
                        changes.add(change_json(path, before, now));
                    });
    return changes.str();
}

int tell_difference(const Tree& a, const Tree& b, bool json) {
    if (a == nullptr || b == nullptr) return kUnusable;
    const std::vector<Leaf> was = leaves_of(a.get()), is = leaves_of(b.get());
    if (json)
        print(difference_json(was, is) + "\n");
    else
        print_difference(was, is);
    return finish(pfcmp(a.get(), b.get()) == 0 ? kDone : kFindings);
}

bool read_file(const std::string& file, std::string* text) {
    FILE* stream = std::fopen(file.c_str(), "rbe");
    char part[4096];
    for (size_t n; stream != nullptr && (n = std::fread(part, 1, sizeof part, stream)) > 0;)
        text->append(part, n);
    const bool good = stream != nullptr && std::ferror(stream) == 0;
    if (!good) elog_complain(1, "can't read '%s'", file.c_str());
    if (stream != nullptr) std::fclose(stream);
    return good;
}

}  // namespace tool
