#include "pf/findings.hpp"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <tuple>

namespace morva::pf {

namespace {

constexpr std::size_t kMostWarnings = 1000;  // of a source
constexpr std::size_t kLongestShown = 60;    // characters of a key or value in a message

}  // namespace

void Findings::add(std::size_t source, const char* at, int severity, const char* format,
                   va_list arguments) {
    char text[1024];
    std::vsnprintf(text, sizeof text, format, arguments);
    findings_.push_back({source, at, severity, text});
}

void Findings::error(std::size_t source, const char* at, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    add(source, at, PFERROR, format, arguments);
    va_end(arguments);
}

void Findings::warning(std::size_t source, const char* at, const char* format, ...) {
    if (warnings_.size() <= source) warnings_.resize(source + 1);
    if (++warnings_[source] > kMostWarnings) return;
    if (warnings_[source] == kMostWarnings) format = "more warnings are left out";
    va_list arguments;
    va_start(arguments, format);
    add(source, at, PFWARNING, format, arguments);
    va_end(arguments);
}

Tbl* Findings::release() {
    std::stable_sort(findings_.begin(), findings_.end(), [](const Finding& a, const Finding& b) {
        return std::tie(a.source, a.at) < std::tie(b.source, b.at);
    });
    Tbl* list = newtbl(static_cast<long>(findings_.size()));
    std::size_t source = kNone;
    const char* counted = nullptr;
    long line = 1;
    for (const Finding& finding : findings_) {
        const Source& of = outline_.sources()[finding.source];
        if (source != finding.source) counted = of.text.data(), line = 1;
        source = finding.source;
        line += scanning::count_newlines(counted, finding.at);
        counted = finding.at;
        Pffinding* record = must_alloc<Pffinding>(1, "pffinding", MORVA_HERE);
        *record = {must_strdup(of.name, "file", MORVA_HERE), line, column_of(of.text, finding.at),
                   finding.severity, must_strdup(finding.text.c_str(), "text", MORVA_HERE)};
        pushtbl(list, record);
    }
    return list;
}

String shown(std::string_view text) {
    const bool cut = text.size() > kLongestShown;
    return on_one_line(text.substr(0, kLongestShown)) + (cut ? "..." : "");
}

}  // namespace morva::pf

extern "C" void freepffinding(void* finding) {
    auto* record = static_cast<Pffinding*>(finding);
    if (record == nullptr) return;
    std::free(record->file);
    std::free(record->text);
    std::free(record);
}
