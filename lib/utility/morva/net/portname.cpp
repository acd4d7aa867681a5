// Names of ports and servers.
#include <climits>
#include <cstdlib>
#include <memory>
#include <utility>

#include "base/diagnostics.hpp"
#include "base/memory.hpp"
#include "base/posix.hpp"
#include "morva/files.h"
#include "morva/pfread.h"
#include "morva/sockets.h"
#include "net/portname.hpp"
#include "net/words.hpp"

namespace morva::net {
namespace {

constexpr int kHighestPort = 65535;
constexpr int kEmulated = -2;

Pf* port_names() {
    PortFile& file = port_file();
    if (file.tried.load(std::memory_order_acquire)) return file.names;
    log_ready();
    const std::lock_guard<std::mutex> lock(file.reading);
    if (file.tried.load()) return file.names;
    if (pfread("orbserver_names", &file.names) < 0) pffree(std::exchange(file.names, nullptr));
    file.tried.store(true, std::memory_order_release);
    return file.names;
}

int clamped(long number) {
    return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

// A bare port, with the description behind its colon.
int plain_port(const char* given, const String& key, const char* suffix, char* description) {
    const int number = clamped(std::strtol(key.c_str(), nullptr, 10));
    if (number == 0) {
        elog_log(0, "Don't understand orbserver port '%s'", given);
    } else if (suffix != nullptr) {
        store_text(trimmed(suffix), description);
    }
    return number;
}

// A server's name in parts; the port is null when nothing follows the host.
struct ServerName {
    std::string_view host;
    const char* port;
};

ServerName split(const char* name) {
    // An address in brackets has colons of its own.
    const char* bracket = *name == '[' ? std::strchr(name, ']') : nullptr;
    const bool address = bracket != nullptr && std::memchr(name, ':', bracket - name) != nullptr;
    if (address && (bracket[1] == ':' || bracket[1] == '\0'))
        return {{name + 1, bracket}, bracket[1] == ':' ? bracket + 2 : nullptr};
    const char* colon = std::strchr(name, ':');
    if (colon == nullptr) return {name, nullptr};
    return {{name, colon}, colon + 1};
}

// The program that serves the file, or null when the name is no file or nothing serves it.
const char* emulator_of(const char* name, const char* key) {
    const ErrnoSaver keep;
    if (key == nullptr || *key == '\0' || is_filename(name) == 0) return nullptr;
    return top_string(port_names(), key);
}

}  // namespace

PortFile& port_file() {
    static PortFile file;
    return file;
}

}  // namespace morva::net

using namespace morva::net;
using morva::String;

void read_portname_pf() {
    port_names();
}

int vk_parse_portvalue(const char* value, const char* suffix, char* description) {
    char* rest = nullptr;
    const long number = std::strtol(value, &rest, 0);
    store_text(
        trimmed(suffix != nullptr ? std::string_view(suffix).substr(0, kTextSize - 1) : rest),
        description);
    return clamped(number);
}

int vk_portnumber(const char* portname, char* description) {
    store_text("", description);
    Pf* names = port_names();
    if (portname == nullptr || *portname == '\0') {
        elog_log(0, "port name unspecified");
        return 0;
    }
    String key(portname, ::strnlen(portname, kTextSize - 1)), suffix;
    const std::size_t colon = key.find(':');
    const bool suffixed = colon != String::npos;
    if (suffixed) {
        suffix = key.substr(colon + 1);
        key.resize(colon);
    }
    const char* said = suffixed ? suffix.c_str() : nullptr;
    const char* value = top_string(names, key);
    const int number = value != nullptr ? vk_parse_portvalue(value, said, description)
                                        : plain_port(portname, key, said, description);
    if (number <= kHighestPort) return number;
    elog_log(0, "port number is %d, but must be less than %d", number, kHighestPort);
    return 0;
}

Tbl* vk_portnames() {
    Pf* names = port_names();
    return names != nullptr ? keysarr(names->value.arr) : newtbl(0);
}

Tbl* vk_portbynumber(int port) {
    Tbl* found = newtbl(0);
    Tbl* names = vk_portnames();
    for (long i = 0; i < maxtbl(names); ++i) {
        const char* name = static_cast<char*>(gettbl(names, i));
        const char* value = top_string(port_names(), name);
        if (value != nullptr && vk_parse_portvalue(value, nullptr, nullptr) == port)
            pushtbl(found, morva::must_strdup(name, "portname", MORVA_HERE));
    }
    freetbl(names, nullptr);
    return found;
}

int vk_parse_servername(const char* name, const char* default_port, const char* emulator_key,
                        char* host, int* port, char* description) {
    store_text("", description);
    if (name == nullptr) name = "";
    if (const char* emulator = emulator_of(name, emulator_key)) {
        store_text(emulator, host);
        *port = kEmulated;
        return 1;
    }
    const ServerName parts = split(name);
    const bool named = parts.port != nullptr && *parts.port != '\0';
    *port = vk_portnumber(named ? parts.port : default_port, description);
    if (parts.host.size() >= kTextSize) {
        elog_log(0, "the name of a host has %ld characters, but must have less than %ld",
                 static_cast<long>(parts.host.size()), static_cast<long>(kTextSize));
        return -1;
    }
    store_text(parts.host.empty() ? "localhost" : parts.host, host);
    return 0;
}

int vk_parsename(const char* name, Pf* pf, char* host, char* port, char* description) {
    const char* default_port = top_string(pf, "default_port");
    store_text(default_port != nullptr ? default_port : "8000", port);
    store_text("", description);
    const ServerName parts = split(name);
    store_text(parts.host.empty() ? "localhost" : parts.host, host);
    if (parts.port != nullptr && *parts.port != '\0')
        vk_lookup_port(pf, parts.port, port, description);
    return 0;
}

int vk_lookup_port(Pf* pf, const char* portname, char* port, char* description) {
    constexpr std::size_t kLongestDescription = 64;
    void* names = nullptr;
    const int type = pf != nullptr ? pfget(pf, const_cast<char*>("names"), &names) : PFINVALID;
    const char* value = type == PFARR && portname != nullptr ? top_string(pf, portname) : nullptr;
    if (names != nullptr && type != PFARR)
        elog_complain(0, "names entry in parameter file should be Arr");
    if (value != nullptr) {
        const std::string_view text(value);
        const std::size_t blank = text.find(' ');
        const bool described = blank != std::string_view::npos;
        store_text(described ? trimmed(text.substr(blank + 1, kLongestDescription)) : "",
                   description);
    }
    // Whatever the file says, the name is the port: the system's services have names, too.
    if (portname != nullptr && *portname != '\0') store_text(portname, port);
    return 0;
}
