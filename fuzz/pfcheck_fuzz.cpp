// Any bytes as parameter text, with a path and a value in the first two lines: what is reported as
// an error is just what the reader refuses; a changed text reads back with this change and no
// other; a text laid out anew reads back the same, and laying it out once more changes nothing.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "morva.h"
#include "skerrows.h"

namespace {

struct Release {
    void operator()(Pf* pf) const { pffree(pf); }
    void operator()(char* text) const { std::free(text); }
};
using Tree = std::unique_ptr<Pf, Release>;
using Text = std::unique_ptr<char, Release>;

int discard(int, char*, Tbl*) {
    return 1;
}

}  // namespace

// In the place of the library's own: the reader's messages ask for stack traces, which are slow.
extern "C" int show_stack_trace(FILE*) {
    return 0;
}

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

Tree read(const char* text, long length, int* status) {
    Pf* pf = nullptr;
    *status = pfcompile_counted(text, length, &pf);
    return Tree(pf);
}

bool has_error(const char* text, long length) {
    Tbl* findings = pfcheck_text(text, length, "text");
    bool error = false;
    for (long i = 0; i < maxtbl(findings); ++i)
        error |= static_cast<Pffinding*>(gettbl(findings, i))->severity == PFERROR;
    freetbl(findings, freepffinding);
    return error;
}

void check_edit(const std::string& text, Pf* tree, const std::string& path,
                const std::string& value) {
    long length = 0;
    const Text edited(pfedit(text.data(), static_cast<long>(text.size()), path.c_str(),
                             value.c_str(), 0, &length));
    if (edited == nullptr) return;
    int status = 0;
    const Tree now = read(edited.get(), length, &status);
    require(status == 0 && pfset(tree, path.c_str(), value.c_str()) == 0);
    require(pfcmp(now.get(), tree) == 0);
}

void check_layout(const std::string& text, Pf* tree) {
    long length = 0, again_length = 0;
    const Text once(pfformat(text.data(), static_cast<long>(text.size()), &length));
    if (once == nullptr) return;
    int status = 0;
    const Tree now = read(once.get(), length, &status);
    require(status == 0 && pfcmp(now.get(), tree) == 0);
    const Text twice(pfformat(once.get(), length, &again_length));
    require(twice != nullptr && std::string(once.get(), static_cast<size_t>(length)) ==
                                    std::string(twice.get(), static_cast<size_t>(again_length)));
}

std::string take_line(std::string& text) {
    const std::string line = text.substr(0, text.find('\n'));
    text.erase(0, line.size() + 1);
    return line.c_str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int quiet =
        elog_set(ELOG_CALLBACK, 0, reinterpret_cast<void*>(discard)) + pfconfig("exec", nullptr);
    require(quiet == 0);
    std::string text(reinterpret_cast<const char*>(data), size);
    const std::string path = take_line(text), value = take_line(text);
    int status = 0;
    const Tree tree = read(text.data(), static_cast<long>(text.size()), &status);
    require((status != 0) == has_error(text.data(), static_cast<long>(text.size())));
    if (status == 0) {
        check_layout(text, tree.get());
        check_edit(text, tree.get(), path, value);
    }
    elog_clear();
    return 0;
}
