// A private folder with the two folders of a search path in it, and trees to compare with.
#pragma once

#include <filesystem>

#include "support/kit.hpp"

namespace kit {

class PfFiles : public testing::Test {
  protected:
    PfFiles() {
        for (const char* folder : {"a", "b", "c"})
            std::filesystem::create_directory(folder_.file(folder));
    }
    std::string file(const std::string& name) const { return folder_.file(name); }
    void write(const std::string& name, std::string_view text) { write_file(file(name), text); }
    void remove(const std::string& name) { std::filesystem::remove(file(name)); }
    // The text with the folder's name in the place of every "@".
    std::string here(std::string text) const {
        for (size_t at; (at = text.find('@')) != text.npos;) text.replace(at, 1, folder_.path());
        return text;
    }

    TempDir folder_;
    Env path_{"PFPATH", (folder_.file("a") + ":" + folder_.file("b")).c_str()};
};

// Whether the tree is what the text compiles to.
inline testing::AssertionResult holds(Pf* pf, const char* text) {
    if (pf == nullptr) return testing::AssertionFailure() << "no tree";
    Pf* expected = nullptr;
    pfcompile(text, &expected);
    const bool same = pfcmp(pf, expected) == 0;
    pffree(expected);
    return same ? testing::AssertionSuccess() : testing::AssertionFailure() << "not " << text;
}

}  // namespace kit
