// morva pf: the table of what it can do with parameter files.
#include "pf_commands.hpp"

namespace tool {

namespace {

constexpr Parameter kName = {"NAME", Takes::name, "parameter file, by name or by path"};
constexpr Parameter kNames = {"NAME", Takes::name, "parameter files, by name or by path", "",
                              Given::many};
constexpr Parameter kPath = {"PATH", Takes::path, "path of a value, such as stations{AAK}[0]"};
constexpr Parameter kBelow = {"PATH", Takes::path, "only what is below this path", "",
                              Given::optional};
constexpr Parameter kJson = {"--json", Takes::nothing, "print JSON"};

constexpr Parameter kGet[] = {
    kName, kPath, kJson, {"-r,--raw", Takes::nothing, "the value as written: nothing is expanded"}};
constexpr Parameter kSet[] = {
    kName,
    kPath,
    {"VALUE", Takes::text, "the new value"},
    {"--verbatim", Takes::nothing, "VALUE is parameter text: a function, a literal, a block"},
    {"--force", Takes::nothing, "replace a whole list or array"},
    {"-n,--dry-run", Takes::nothing, "tell what would change, and change nothing"},
    kJson};
constexpr Parameter kKeys[] = {
    kName, kBelow, {"-a,--all", Takes::nothing, "the paths of all values, however deep"}, kJson};
constexpr Parameter kShow[] = {
    kName,
    kBelow,
    {"-x,--expand", Takes::nothing, "expand references and evaluate functions"},
    kJson};
constexpr Parameter kExplain[] = {kName, kPath, kJson};
constexpr Parameter kCheck[] = {kNames, kJson};
constexpr Parameter kDiff[] = {
    {"A", Takes::name, "parameter file"}, {"B", Takes::name, "parameter file"}, kJson};
constexpr Parameter kFmt[] = {
    {"FILE", Takes::name, "parameter files, by name or by path", "", Given::many},
    {"-i,--in-place", Takes::nothing, "replace the files that are not laid out so"},
    {"-c,--check", Takes::nothing, "only tell which files are not laid out so"},
    {"--normal", Takes::nothing,
     "the form that programs write: sorted by key, without comments (not with -i, see --force)"},
    {"--force", Takes::nothing, "with -i --normal: lose the comments"}};
constexpr Parameter kFiles[] = {
    {"NAME", Takes::name, "parameter file; without it, every name that there is", "",
     Given::optional},
    kJson};
constexpr Parameter kWatch[] = {
    kName,
    kBelow,
    {"--interval", Takes::seconds, "time between two looks, 1 s if not given", "SECONDS"},
    {"--count", Takes::count, "end after so many reloads", "N"},
    kJson};

constexpr Command kCommands[] = {
    {"get", "print a value",
     "A string is printed as it is, a list an item a line, an array as entries. Functions are\n"
     "evaluated as in programs, &exec included; check, explain and set evaluate nothing.\n\n"
     "    morva pf get rt 'stations{AAK}{channels}[0]'",
     kGet, pf_get},
    {"set", "change a value and keep comments, order and layout",
     "Changes the file that decides the value now (see explain), or adds the value to the last "
     "one\n"
     "that is read; a NAME with a slash is the file to change. VALUE is stored as it is given, "
     "and\n"
     "what would mean something to the reader is escaped. The file is replaced in one step, after\n"
     "the result has been read back.\n\n"
     "    morva pf set rt latency 20\n"
     "    morva pf set ./rt.pf 'names[3]' 'a # b'\n"
     "    morva pf set rt home '&env(HOME)' --verbatim\n"
     "    morva pf set rt -- offset -5",
     kSet, pf_set},
    {"keys", "print the keys", "    morva pf keys rt stations\n    morva pf keys --all rt", kKeys,
     pf_keys},
    {"show", "print the merged values",
     "    morva pf show rt\n    morva pf show --json rt stations", kShow, pf_show},
    {"explain", "tell which line decided a value, and what it overrode",
     "    morva pf explain rt latency", kExplain, pf_explain},
    {"check", "find mistakes",
     "Prints FILE:LINE:COLUMN: SEVERITY: TEXT for each, and ends with 1 if there is any.\n\n"
     "    morva pf check rt ./new.pf",
     kCheck, pf_check},
    {"diff", "compare two parameter files, value by value",
     "Ends with 1 when they differ.\n\n    morva pf diff rt ./new/rt.pf", kDiff, pf_diff},
    {"fmt", "lay a file out anew",
     "Blocks are indented by four blanks, a tab stands between key and value; order, comments and\n"
     "values stay.\n\n    morva pf fmt ./rt.pf\n    morva pf fmt -i *.pf",
     kFmt, pf_fmt},
    {"files", "tell which files a name means, lowest priority first, and which are skipped",
     "    morva pf files rt", kFiles, pf_files},
    {"watch", "print every change as it is reloaded", "    morva pf watch --interval 5 rt", kWatch,
     pf_watch},
};

constexpr const char* kDetails =
    "NAME is looked up in the folders of PFPATH, or else in data/pf below the installation root "
    "and\n"
    "in the current folder; later files override earlier ones key by key. A NAME with a slash is "
    "a\n"
    "file, which overrides what is found there. The suffix .pf may be left out.\n\n"
    "PATH is a key, then {KEY} for an entry of an array and [N] for an item of a list (negative\n"
    "counts from the end), as in 'stations{AAK}{channels}[-1]'. Quote it from the shell.";

}  // namespace

const Group pf_group = {"pf", "parameter files: read, change, check, watch", kDetails, kCommands};

}  // namespace tool
