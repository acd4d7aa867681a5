#include "morva/elog.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "morva/tbl.h"

extern "C" {

static char g_name[256] = "Unknown_Program";
static std::string g_register;
static int g_count;
char* Program_Name = g_name;
int Max_msg = 50;
int Argc;
char** Argv;
const Xlat Elog_xlat[ELOG_XLAT_COUNT] = {};

int elog_init(int, char** argv) {
    const char* slash = std::strrchr(argv[0], '/');
    std::snprintf(g_name, sizeof g_name, "%s", slash ? slash + 1 : argv[0]);
    return 0;
}

void elog(int severity, int flag, const char* format, va_list arguments) {
    char text[10240];
    const int saved = errno;
    vsnprintf(text, sizeof text, format, arguments);
    g_register += std::string(g_name) + (severity == ELOG_DIE ? " *fatal*" : "") + ": " + text;
    if (g_register.back() != '\n') g_register += '\n';
    if (flag && saved) g_register += std::string("\t") + strerror(saved) + "\n";
    ++g_count;
    if (severity != ELOG_LOG) {
        fputs(g_register.c_str(), stderr);
        elog_clear();
    }
}

#define FACE(name, severity)                  \
    void name(int flag, const char* f, ...) { \
        va_list a;                            \
        va_start(a, f);                       \
        elog(severity, flag, f, a);           \
        va_end(a);                            \
        if (severity == ELOG_DIE) exit(1);    \
        if (severity == ELOG_FAULT) abort();  \
    }
FACE(elog_log, ELOG_LOG)
FACE(elog_debug, ELOG_DEBUGGING)
FACE(elog_notify, ELOG_NOTIFY)
FACE(elog_alert, ELOG_ALERT)
FACE(elog_complain, ELOG_COMPLAIN)
[[noreturn]] FACE(elog_die, ELOG_DIE) [[noreturn]] FACE(elog_fault, ELOG_FAULT)

    int elog_mark(void) {
    return g_count;
}
int elog_clear(void) {
    g_register.clear();
    return g_count = 0;
}
int elog_flush(int print, int) {
    if (print) fputs(g_register.c_str(), stderr);
    return elog_clear();
}
char* elog_string(int) {
    return strdup(g_register.c_str());
}

}  // extern "C"
