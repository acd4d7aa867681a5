// What one node holds, for people who debug.
#include <cstdio>

#include "morva/strings.h"
#include "pf/pf.hpp"

namespace {

struct Description {
    int type;
    const char* text;
};
constexpr Description kDescriptions[] = {
    {PFEXEC_ERROR, "PFEXEC_ERROR"},
    {PFFILE, "Top level of Pf -- otherwise same as PFARR"},
    {PFSTRING, "leaf of pf: simple string"},
    {PFTBL, "ordered Tbl{ list"},
    {PFARR, "Arr{ array"},
    {PFINVALID, "invalid"},
    {PFPLACEHOLDER, "special value used internally in pfget"},
    {PFFUNCTION, "&function() : has to be evaluated"},
    {PFGRAFT, "argument to pfput to graft pf tree into another tree, sets PFFILE to PFARR"},
};

bool holds_string(const Pf* pf) {
    return pf->type == PFEXEC_ERROR || pf->type == PFSTRING ||
           (pf->type >= PFUNDEFINED && pf->type <= PFPLACEHOLDER);
}

}  // namespace

extern "C" void showpf(const char* label, Pf* pf) {
    if (pf == nullptr) {
        std::fputs("    pf=0\n", stderr);
        return;
    }
    std::fprintf(stderr, "%s pf=%p", okstr(label), static_cast<void*>(pf));
    for (const auto& [type, text] : kDescriptions)
        if (type == pf->type) std::fprintf(stderr, "    %s\n", text);
    if (pf->value.any != nullptr)
        std::fprintf(stderr, "    value=%p (%s)\n", pf->value.any,
                     okstr(holds_string(pf) ? pf->value.string : nullptr));
    if (pf->filename != nullptr) std::fprintf(stderr, "    filename=%s\n", pf->filename);
    if (pf->expanded != nullptr) std::fprintf(stderr, "    filled_out=%s\n", pf->expanded);
    std::fputc('\n', stderr);
}
