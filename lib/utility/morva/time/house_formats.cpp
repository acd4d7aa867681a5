// The house formats: the layouts that the programs of a site share, and the texts made with them.
//
// They are loaded on the first use. Loading reads files and may register messages, so it is done
// without a lock; of threads that load at once the first one publishes. Replaced texts are kept,
// for somebody may be reading them.
#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>

#include "base/diagnostics.hpp"
#include "morva/pf.h"
#include "morva/pfread.h"
#include "skerrows.h"
#include "time/fields.hpp"

extern "C" {

int Unset_formats = 1;
int Month_first = 1;

const char* Strtime_format = "%m/%d/%Y  %H:%M:%S.%s";
const char* Strydtime_format = "%m/%d/%Y  (%j) %H:%M:%S.%s";
const char* UStrydtime_format = "%m/%d/%Y  (%j) %H:%M:%S.%u";
const char* Strdate_format = "%m/%d/%Y";
const char* ZStrtime_format = "%m/%d/%Y  %H:%M:%S.%s %z";
const char* ZStrydtime_format = "%m/%d/%Y  (%j) %H:%M:%S.%s %z";
const char* UZStrydtime_format = "%m/%d/%Y  (%j) %H:%M:%S.%u %z";
const char* ZStrdate_format = "%m/%d/%Y %z";

const char* const MDtime_format = "%Y-%m-%d %T";
const char* const MD_format = "%Y-%m-%d";
const char* const YD_format = "%Y-%j";
const char* const YDtime_format = "%Y-%j %T";
const char* const ZMDtime_format = "%Y-%m-%d %T %z";
const char* const ZMD_format = "%Y-%m-%d %z";
const char* const ZYD_format = "%Y-%j %z";
const char* const ZYDtime_format = "%Y-%j %T %z";
}

namespace morva::time {
namespace {

constexpr double kFarthest = 253244534400;
constexpr double kNotRounded = 0;  // parts of a second to round to
constexpr double kMilliseconds = 1e3;
constexpr double kHundredThousandths = 1e5;
constexpr std::size_t kBuffer = 1024;  // of fmttime's callers

struct HouseFormats {
    String time;
    String ydtime;
    String uydtime;
    String date;
    bool month_first;
};

HouseFormats built_in(bool european) {
    const char* const date = european ? "%d/%m/%Y" : "%m/%d/%Y";
    return {String(date) + "  %H:%M:%S.%s", String(date) + "  (%j) %H:%M:%S.%s",
            String(date) + "  (%j) %H:%M:%S.%u", date, !european};
}

constexpr char kFile[] = "time_formats.pf";

// The values of the file that belong to a location, or to none.
class Settings {
  public:
    Settings(Pf* pf, const char* location) : pf_(pf), location_(location) {}

    // The string of a key; without it the process ends. A missing uydtime is told as ydtime where
    // no location is in use: programs' documentation has it so.
    String required(const char* key) const {
        const String path = path_of(key);
        if (const char* text = ::pfget_string(pf_, path.c_str())) return text;
        const bool told_as_ydtime = location_.empty() && path == "uydtime";
        elog_die(0, "Could not read '%s' from %s", told_as_ydtime ? "ydtime" : path.c_str(), kFile);
    }
    bool flag(const char* key) const { return ::pfget_boolean(pf_, path_of(key).c_str()) != 0; }

  private:
    String path_of(const char* key) const {
        return location_.empty() ? String(key) : location_ + '{' + key + '}';
    }
    Pf* pf_;
    String location_;
};

struct FreePf {
    void operator()(Pf* pf) const { ::pffree(pf); }
};

HouseFormats load() {
    const bool european = std_getenv("EUROPEAN_DATE") != nullptr;
    Pf* pf = nullptr;
    const bool read = ::pfread(kFile, &pf) >= 0;
    const std::unique_ptr<Pf, FreePf> owner(pf);
    if (!read) return built_in(european);
    const char* location = european ? "european" : ::pfget_string(pf, "location");
    const Settings settings(pf, location != nullptr ? location : "");
    HouseFormats formats;
    formats.time = settings.required("time");
    formats.ydtime = settings.required("ydtime");
    formats.uydtime = settings.required("uydtime");
    formats.date = settings.required("date");
    formats.month_first = settings.flag("month_first");
    return formats;
}

// Copies of formats, for good.
const char* keep(const String& text) {
    static auto* const kept = new Vector<malloced<char>>;
    kept->emplace_back(must_strdup(text.c_str(), "new", MORVA_HERE));
    return kept->back().get();
}

// Puts plain format and zone twin in their places, unless they are there.
void publish(const char*& plain, const char*& twin, const String& format) {
    if (format != plain) plain = keep(format);
    const String with_zone = format + " %z";
    if (with_zone != twin) twin = keep(with_zone);
}

void publish(const HouseFormats& formats, bool only_first) {
    static std::mutex lock;
    const std::lock_guard held(lock);
    const std::atomic_ref unset(Unset_formats);
    if (only_first && unset.load() == 0) return;
    publish(Strtime_format, ZStrtime_format, formats.time);
    publish(Strydtime_format, ZStrydtime_format, formats.ydtime);
    publish(UStrydtime_format, UZStrydtime_format, formats.uydtime);
    publish(Strdate_format, ZStrdate_format, formats.date);
    Month_first = formats.month_first;
    unset.store(0);
}

void need_formats() {
    if (std::atomic_ref(Unset_formats).load(std::memory_order_acquire) != 0) publish(load(), true);
}

// Stands in for a time that no calendar shows. False when there is no need.
bool put_out_of_range(Text& text, double epoch) {
    const auto write = [&](std::string_view words) {
        char* at = text.start();
        std::memcpy(at, words.data(), words.size());
        text.finish(at + words.size());
        return true;
    };
    if (std::isnan(epoch)) return write("** Nan **");
    if (std::isinf(epoch))
        return write(epoch > 0 ? "** The End of Time (+infinity) **"
                               : "** The Beginning of Time (-infinity) **");
    if (std::fabs(epoch) <= kFarthest) return false;
    write("** ");
    char* at = put_general(text.start() + 3, std::floor(std::floor(epoch / kDay) / 365), 6, 6);
    const std::string_view rest = epoch < 0 ? " years ago ** " : " years ahead ** ";
    std::memcpy(at, rest.data(), rest.size());
    text.finish(at + rest.size());
    return true;
}

double rounded(double epoch, double parts) {
    return std::floor(epoch * parts + 0.5) / parts;
}

// A house text, rounded to parts of a second. The format is looked at once it is loaded.
template <class Write>
char* house_text(double epoch, double parts, Write write) {
    Text text;
    if (!put_out_of_range(text, epoch)) {
        need_formats();
        write(text, parts > 0 ? rounded(epoch, parts) : epoch);
    }
    return text.copy();
}

char* utc_text(const char* const& format, double parts, double epoch) {
    return house_text(epoch, parts, [&](Text& text, double rounded) {
        put_time(text, format, utc_fields(rounded));
    });
}

char* local_text(const char* const& format, double parts, double epoch) {
    return house_text(epoch, parts,
                      [&](Text& text, double rounded) { put_time_in("", text, format, rounded); });
}

struct Kind {
    int kind;
    const char* const* plain;
    const char* const* with_zone;
    double parts = kMilliseconds;
};

constexpr Kind kKinds[] = {
    {1, &MDtime_format, &ZMDtime_format},
    {3, &MD_format, &ZMD_format},
    {4, &YD_format, &ZYD_format},
    {5, &Strtime_format, &ZStrtime_format},
    {6, &Strdate_format, &ZStrdate_format},
    {7, &Strydtime_format, &ZStrydtime_format},
    {8, &UStrydtime_format, &UZStrydtime_format, kHundredThousandths},
};
constexpr Kind kOtherKind = {0, &YDtime_format, &ZYDtime_format};

const Kind& kind_of(int number) {
    for (const Kind& kind : kKinds)
        if (kind.kind == number) return kind;
    return kOtherKind;
}

}  // namespace
}  // namespace morva::time

using namespace morva::time;

extern "C" {

void set_time_formats(void) {
    publish(load(), false);
}

int is_month_first(void) {
    need_formats();
    return Month_first;
}

char* strtime(double epoch) {
    return utc_text(Strtime_format, kMilliseconds, epoch);
}

char* strydtime(double epoch) {
    return utc_text(Strydtime_format, kMilliseconds, epoch);
}

char* strdate(double epoch) {
    return utc_text(Strdate_format, kNotRounded, epoch);
}

char* strlocaltime(double epoch) {
    return local_text(ZStrtime_format, kMilliseconds, epoch);
}

char* strlocalydtime(double epoch) {
    return local_text(ZStrydtime_format, kMilliseconds, epoch);
}

char* strlocaldate(double epoch) {
    return local_text(ZStrdate_format, kNotRounded, epoch);
}

int fmttime(char* buffer, int kind, const char* zone, double epoch) {
    Text text;
    if (!put_out_of_range(text, epoch)) {
        need_formats();
        const Kind& layout = kind_of(kind);
        const double time = rounded(epoch, layout.parts);
        if (zone == nullptr || std::strcmp(zone, "UTC") == 0)
            put_time(text, *layout.plain, utc_fields(time));
        else
            put_time_in(zone, text, *layout.with_zone, time);
    }
    const std::string_view all = text.view().substr(0, kBuffer - 1);
    std::memcpy(buffer, all.data(), all.size());
    buffer[all.size()] = '\0';
    return 0;
}

}  // extern "C"
