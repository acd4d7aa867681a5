// morva port: names and numbers of ports, and what the name of a server means.
#include "command.hpp"
#include "output.hpp"
#include "records.hpp"

namespace tool {

namespace {

constexpr std::size_t kTextSize = 256;

struct Port {
    std::string name, description;
    int number;
};

// False, with the reason, when the name means no port.
bool look_up(const std::string& name, Port& port) {
    char description[kTextSize];
    port.name = name;
    port.number = vk_portnumber(name.c_str(), description);
    port.description = description;
    if (port.number > 0) return true;
    elog_complain(0, "there is no port '%s'", one_line(name).c_str());
    return false;
}

void print_port(const Arguments& arguments, const Port& port) {
    if (arguments.has("--json"))
        return print(JsonObject()
                         .text("name", port.name)
                         .number("port", port.number)
                         .text("description", port.description)
                         .str() +
                     "\n");
    std::string name = one_line(port.name), number = std::to_string(port.number);
    name.resize(std::max<std::size_t>(name.size(), 15), ' ');
    number.insert(0, 5 - std::min<std::size_t>(number.size(), 5), ' ');
    print(coloured(Colour::cyan, name) + " " + number +
          (port.description.empty() ? "" : "  " + one_line(port.description)) + "\n");
}

int list_ports(const Arguments& arguments) {
    const Records names(vk_portnames(), nullptr);
    for (long i = 0; i < names.size(); ++i) {
        Port port;
        if (arguments.has("--names"))
            print(std::string(names.at<char>(i)) + "\n");
        else if (look_up(names.at<char>(i), port))
            print_port(arguments, port);
    }
    return finish(kDone);
}

// The names of a number; false, with the reason, when it has none.
bool find_names(const Arguments& arguments, const std::string& number) {
    const Records names(vk_portbynumber(std::atoi(number.c_str())), std::free);
    for (long i = 0; i < names.size(); ++i) {
        Port port;
        if (look_up(names.at<char>(i), port)) print_port(arguments, port);
    }
    if (names.size() > 0) return true;
    elog_complain(0, "port %s has no name", number.c_str());
    return false;
}

int find_ports(const Arguments& arguments) {
    int status = kDone;
    for (const std::string& text : arguments.texts("PORT")) {
        const bool is_number = text.find_first_not_of("0123456789") == std::string::npos;
        Port port;
        if (is_number ? find_names(arguments, text) : look_up(text, port)) {
            if (!is_number) print_port(arguments, port);
        } else {
            status = kFindings;
        }
    }
    return finish(status);
}

// ---- server

void print_server(const Arguments& arguments, const std::string& name, const char* host, int port,
                  const char* description) {
    const bool emulated = port < 0;
    if (arguments.has("--json")) {
        JsonObject object;
        object.text("name", name).text(emulated ? "program" : "host", host);
        if (!emulated) object.number("port", port).text("description", description);
        return print(object.str() + "\n");
    }
    print(one_line(name) + "  " +
          (emulated ? "is a file, which the program " + coloured(Colour::cyan, one_line(host)) +
                          " serves"
                    : "host " + coloured(Colour::cyan, one_line(host)) + ", port " +
                          coloured(Colour::cyan, std::to_string(port)) +
                          (*description == '\0' ? "" : ": " + one_line(description))) +
          "\n");
}

int explain_servers(const Arguments& arguments) {
    int status = kDone;
    for (const std::string& name : arguments.texts("NAME")) {
        char host[kTextSize] = "", description[kTextSize] = "";
        int port = 0;
        const int result =
            vk_parse_servername(name.c_str(), arguments.text("--default").c_str(),
                                arguments.text("--emulator").c_str(), host, &port, description);
        if (result == 1 || (result == 0 && port > 0)) {
            print_server(arguments, name, host, port, description);
            continue;
        }
        elog_complain(0, "'%s' names no server", one_line(name).c_str());
        status = kFindings;
    }
    return finish(status);
}

constexpr Parameter kJson = {"--json", Takes::nothing, "print JSON, an object a line"};
constexpr Parameter kList[] = {{"--names", Takes::nothing, "print only the names"}, kJson};
constexpr Parameter kFind[] = {
    {"PORT", Takes::port, "a name, or a number, whose names are wanted", "", Given::many}, kJson};
constexpr Parameter kServer[] = {
    {"NAME", Takes::text, "HOST, HOST:PORT or :PORT", "", Given::many},
    {"-d,--default", Takes::text, "the port of names without one", "PORT"},
    {"-e,--emulator", Takes::text,
     "the entry of orbserver_names with the program that serves files", "KEY"},
    kJson};

constexpr Command kCommands[] = {
    {"list", "print all ports of orbserver_names", "    morva port list", kList, list_ports},
    {"find", "look names and numbers up", "    morva port find waves 6510", kFind, find_ports},
    {"server", "tell what names of servers mean",
     "    morva port server --default 6510 archive 'archive:waves' ':6580'", kServer,
     explain_servers}};

}  // namespace

const Group port_group = {"port", "ports and servers: what their names mean",
                          "Names of ports come from the parameter file orbserver_names.",
                          kCommands};

}  // namespace tool
