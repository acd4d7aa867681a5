// Parameter trees written to files, streams and strings.
#include "morva/pfwrite.h"

#include <cerrno>
#include <cstdio>

#include "base/diagnostics.hpp"
#include "base/posix.hpp"
#include "pf/pfwrite.hpp"

namespace morva::pf {
namespace {

// True for a node that can be written by itself.
bool has_value(const Pf* pf) {
    return pf != nullptr && pf->value.any != nullptr &&
           !(pf->type == PFFUNCTION && pf->value.funct->text == nullptr);
}

void append_tree(Output& out, const Pf* pf, int level) {
    Writer<Joined>(out).write(pf, level == 0 && is_array(pf), [] { return true; });
}

// Writes a tree as send(text) takes it, portion by portion; ends when that gives false.
template <class Send>
bool write_portions(const Pf* pf, Send send) {
    constexpr std::size_t kPortion = 1 << 16;
    Output out(MORVA_HERE);
    bool good = true;
    Writer<Indented>(out).write(pf, pf->type == PFFILE, [&] {
        if (out.size() < kPortion) return true;
        good = send(out.text());
        out.cut(0);
        return good;
    });
    return good && send(out.text());
}

}  // namespace

void put_quoted(Output& out, std::string_view key) {
    if (key.find(' ') == key.npos) return out.put(key);
    const char quote = key.find('"') == key.npos ? '"' : '\'';
    out.put(quote);
    out.put(key);
    out.put(quote);
}

const char* Indented::put_key(Output& out, std::string_view key) {
    if (!has_outer_blank(key) && key.find_first_of("#}\\\n") == key.npos) {
        put_quoted(out, key);
        return nullptr;
    }
    Output escaped(MORVA_HERE);
    put_escaped(escaped, key);
    put_quoted(out, escaped.text());
    return nullptr;
}

}  // namespace morva::pf

using namespace morva::pf;

extern "C" {

int pfwrite(const char* filename, Pf* pf) {
    constexpr int kUpdate = O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC;
    errno = EFAULT;
    morva::Descriptor fd(
        filename == nullptr ? -1 : morva::retry([&] { return ::open(filename, kUpdate, 0666); }));
    if (!fd) {
        elog_log(1, "Can't open %s for writing.\n", filename != nullptr ? filename : "");
        return -1;
    }
    const bool full = has_value(pf);
    const bool written = !full || write_portions(pf, [&](std::string_view text) {
        return morva::write_all(fd.get(), text.data(), text.size()) == 0;
    });
    const int reason = errno;
    const bool closed = ::close(fd.release()) == 0 || errno == EINTR;
    if (!written) errno = reason;
    if (!written || !closed) elog_log(1, "Can't close %s.\n", filename);
    return full && written && closed ? 0 : -1;
}

int pfout(FILE* stream, Pf* pf) {
    if (stream == nullptr || !has_value(pf)) return -1;
    const auto send = [stream](std::string_view text) {
        return std::fwrite(text.data(), 1, text.size(), stream) == text.size();
    };
    if (write_portions(pf, send)) return 0;
    elog_log(1, "Can't write parameters to a stream.\n");
    return -1;
}

char* pf2string(Pf* pf) {
    Output out(MORVA_HERE);
    if (has_value(pf)) append_tree(out, pf, 0);
    return out.release();
}

int pfappend(void** string, int level, Pf* pf) {
    if (string == nullptr || !has_value(pf)) return -1;
    Output out(MORVA_HERE);
    append_tree(out, pf, level);
    morva::push_text(*reinterpret_cast<morva::StringStack**>(string), out.text());
    return 0;
}

}  // extern "C"
