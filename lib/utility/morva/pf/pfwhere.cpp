// Where a value comes from.
#include <algorithm>

#include "base/diagnostics.hpp"
#include "morva/pfcheck.h"
#include "pf/files.hpp"
#include "pf/pfpath.hpp"

namespace morva::pf {

namespace {

// Follows a path while files are merged, statement by statement.
class Trail {
  public:
    Trail(Outline& outline, std::string_view path) : outline_(outline), path_(path) {
        outline.watch([](void* self, std::size_t i) { static_cast<Trail*>(self)->settled(i); },
                      this);
    }

    bool empty() const { return now_ == kNone && before_.empty(); }

    Tbl* places() const {
        Tbl* list = newtbl(0);
        if (now_ != kNone)
            pushtbl(list, place_of(now_));
        else if (!before_.empty())
            pushtbl(list, place_of(taker_));
        for (std::size_t i = before_.size(); i-- > 0;) pushtbl(list, place_of(before_[i]));
        return list;
    }

  private:
    void settled(std::size_t statement) {
        Pf* node = nullptr;
        const bool found = search(outline_.root(), path_, &node) == Search::kFound;
        const std::size_t made = found ? outline_.statement_of(node) : kNone;
        if (made == now_) return;
        if (now_ != kNone) before_.push_back(now_);
        if (made == kNone) taker_ = statement;
        now_ = made;
    }

    Pfplace* place_of(std::size_t index) const;

    Outline& outline_;
    std::string_view path_;
    std::size_t now_ = kNone;    // the statement that decides
    std::size_t taker_ = kNone;  // the statement that took the value away last
    Vector<std::size_t> before_;
};

char* text_of(const Pf* node) {
    if (node->type == PFSTRING) return must_strdup(node->value.string, "text", MORVA_HERE);
    if (node->type == PFFUNCTION) return must_strdup(node->value.funct->text, "text", MORVA_HERE);
    return nullptr;
}

Pfplace* Trail::place_of(std::size_t index) const {
    const Statement& statement = outline_[index];
    const Source& source = outline_.sources()[statement.source];
    const bool taken = now_ == kNone && index == taker_;
    auto* place = must_alloc<Pfplace>(1, "pfplace", MORVA_HERE);
    *place = {
        must_strdup(source.name, "file", MORVA_HERE), statement.key.line,
        column_of(source.text, statement.key.begin),  statement.value.begin - source.text.data(),
        statement.value.end - statement.value.begin,  taken ? PFINVALID : statement.node->type,
        taken ? nullptr : text_of(statement.node)};
    return place;
}

bool is_path(const char* path) {
    PathReader reader(path);
    for (Step step; reader.next(&step);) {
    }
    if (reader.fault() != nullptr)
        elog_log(0, "bad path expression '%s', column %d: %s\n", path, reader.column(),
                 reader.fault());
    return reader.fault() == nullptr;
}

}  // namespace

}  // namespace morva::pf

using namespace morva::pf;

extern "C" {

Tbl* pfwhere(const char* name, const char* path) {
    Files files;
    if (path == nullptr || *path == '\0') {
        elog_log(0, "no path to look for\n");
        return nullptr;
    }
    if (!files.read(name)) return nullptr;
    Outline outline;
    const Trail trail(outline, path);
    files.merge_into(outline);
    // What is no path may still be a key.
    return trail.empty() && !is_path(path) ? nullptr : trail.places();
}

void freepfplace(void* place) {
    auto* record = static_cast<Pfplace*>(place);
    if (record == nullptr) return;
    std::free(record->file);
    std::free(record->text);
    std::free(record);
}

}  // extern "C"
