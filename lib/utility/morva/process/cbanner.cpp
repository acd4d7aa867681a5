// Announcements and banners.
#include <sys/stat.h>

#include <cstdio>
#include <ctime>
#include <mutex>
#include <string_view>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "morva/banner.h"
#include "morva/epoch.h"
#include "morva/paths.h"
#include "process/release.hpp"
#include "skerrows.h"
#include "text/strings.hpp"

namespace {

namespace release = morva::release;
using morva::String;

bool is_given(const char* text) {
    return text != nullptr && morva::is_printable(*text);
}

String text_or_empty(const char* text) {
    return text != nullptr ? text : "";
}

String base_name(std::string_view path) {
    return String(path.substr(path.rfind('/') + 1));
}

// The running executable without its folders; empty when it is not known.
String executable_name() {
    return base_name(text_or_empty(getexecname()));
}

String program_name(const char* given) {
    if (given != nullptr && *given != '\0') return given;
    if (Program_Name != nullptr && *Program_Name != '\0') return Program_Name;
    return executable_name();
}

// When a file was changed last, as "Sun Nov 22 08:15:00 2026" in every locale; empty when that is
// not known.
String file_time(const char* path) {
    struct stat status;
    struct tm fields;
    char text[64];
    if (path == nullptr || ::stat(path, &status) != 0) return "";
    if (::localtime_r(&status.st_mtime, &fields) == nullptr) return "";
    // ctime_r has no bounds, strftime the names of the locale.
    std::snprintf(text, sizeof text, "%.3s %s %2d %02d:%02d:%02d %ld",
                  Week[(fields.tm_wday + 6) % 7], month_name[fields.tm_mon], fields.tm_mday,
                  fields.tm_hour, fields.tm_min, fields.tm_sec, 1900L + fields.tm_year);
    return text;
}

// The line for a program that is found along PATH, or nothing.
String file_time_line(const String& program) {
    const morva::malloced<char> path(datafile("PATH", program.c_str()));
    const String time = file_time(path.get());
    return time.empty() ? time : "    " + time + " <#>\n";
}

String release_line(const String& program, const char* version) {
    return "\n" + program + " " + text_or_empty(version) + "   using " + release::kText + "  <#>\n";
}

String revision_line() {
    return String("   ") + release::kRevision + "  <#>\n";
}

void write_error(const String& text) {
    std::fputs(text.c_str(), stderr);
}

// "FRONT" TEXT "BACK", or nothing when there is no such text.
String part(const char* front, const char* text, const char* back) {
    return is_given(text) ? String(front) + text + back : String();
}

}  // namespace

extern "C" {

void announce(const char* program, const char* version) {
    const String name = program_name(program);
    elog_notify(0, "%s", release_line(name, version).c_str());
    elog_notify(0, "%s", revision_line().c_str());
    const String time = file_time_line(name);
    if (!time.empty()) elog_notify(0, "%s", time.c_str());
    elog_commandline();
}

char* announce_str(const char* program, const char* version) {
    static constinit std::mutex lock;
    static char text[1024];
    const String name = program_name(program);
    const String lines = release_line(name, version) + revision_line() + file_time_line(name);
    const std::lock_guard guard(lock);
    std::snprintf(text, sizeof text, "%s", lines.c_str());
    return text;
}

void banner(const char* program, const char* version) {
    const String name = program_name(program);
    write_error("\n" + name + " " + text_or_empty(version) + " <#>\n" + file_time_line(name) +
                "    using " + release::kText + "  <#>\n" + revision_line());
}

void cbanner(const char* version, const char* usage, const char* author, const char* location,
             const char* email) {
    String name = executable_name();
    if (name.empty()) name = "** unknown **";
    const String time = file_time(getexecname());
    const String usage_of_program = "  Usage: " + name + " ";
    write_error(name + part(" ", version, "") + "\n" +  //
                part("    ", time.c_str(), "\n") +      //
                part(usage_of_program.c_str(), usage, "\n\n") + "    " + release::kProduct +
                " contributed software\n\tRelease " + release::kBuild + "\n\n" +  //
                part("    ", author, "\n") +                                      //
                part("    ", location, "\n\n") +                                  //
                part("    Please report problems to ", email, "\n\n"));
}

void deprecate(const char* replacement) {
    static constexpr char kNotice[] =
        "\n\n*** Please note: This program is deprecated, ***\n"
        "*** and may disappear from future releases.  ***\n\n";
    if (is_given(replacement))
        elog_complain(0, "%s*** %s ***\n\n", kNotice, replacement);
    else
        elog_complain(0, "%s", kNotice);
}

const char* morva_release(void) {
    return release::kText;
}

const char* morva_revision(void) {
    return release::kRevision;
}

}  // extern "C"
