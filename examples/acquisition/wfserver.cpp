// wfserver: replays recordings, in real time or faster, as packets for any number of clients.
//
//     wfserver [-p PORT] [-s SPEED] [-d SECONDS] [-c CODEC] [-S STATE] [FILE...]
//
// The files are GSE2 messages. -s 10 replays ten times as fast as it was recorded, -d 30 within 30
// seconds. -p 0 takes a port that is free, and tells which. What is not said on the command line is
// a setting in the parameter file `wfserver`; see data/pf/wfserver.pf.
//
// While it runs, other processes may change the dynamic controls "pause", "speed", "codec" and
// "bnssnoop" in the file .dynamic_controls of its folder. Its position in the recording is kept in
// the state file: killed and started again, it goes on where it was.
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <string>
#include <vector>

#include "../wf_values.hpp"
#include "client_thread.hpp"
#include "listen.hpp"
#include "morva.h"

namespace {

constexpr char kVersion[] = "1.0";
constexpr char kUsage[] =
    "usage: %s [-p PORT] [-s SPEED] [-d SECONDS] [-c CODEC] [-S STATE] [FILE...]\n"
    "\treplays GSE2 files as packets; without FILE: those that the parameter file names\n";
constexpr int kTick = 10;  // milliseconds between looks at the clock

struct Settings {
    std::vector<std::string> files;
    std::string port, codec, state;
    double speed, duration, bury_every, max_file_size;
    int packet_samples;
    std::size_t max_clients;
    bool repeat, pause, announce, controls;
};

Settings read_settings(Pf* pf) {
    Settings settings;
    settings.files = files_or_none(pf, "files");
    settings.port = text_or(pf, "port", "waveforms");
    settings.codec = text_or(pf, "codec", "gencompress");
    settings.state = text_or(pf, "state", "wfserver.state");
    settings.speed = number_or(pf, "speed", 1);
    settings.duration = number_or(pf, "duration", 0);
    settings.bury_every = number_or(pf, "bury_every", 1);
    settings.max_file_size =
        pfget_string(pf, "max_file_size") ? pfget_size(pf, "max_file_size") : 1e9;
    settings.packet_samples = static_cast<int>(number_or(pf, "packet_samples", 250));
    settings.max_clients = static_cast<std::size_t>(number_or(pf, "max_clients", 100));
    settings.repeat = switch_or(pf, "repeat", false);
    settings.pause = switch_or(pf, "pause", false);
    settings.announce = switch_or(pf, "announce", true);
    settings.controls = switch_or(pf, "controls", true);
    return settings;
}

void take_arguments(int argc, char** argv, Settings& settings) {
    for (int option; (option = ::getopt(argc, argv, "p:s:d:c:S:h")) != -1;) switch (option) {
            case 'p':
                settings.port = optarg;
                break;
            case 's':
                settings.speed = std::atof(optarg), settings.duration = 0;
                break;
            case 'd':
                settings.duration = std::atof(optarg);
                break;
            case 'c':
                settings.codec = optarg;
                break;
            case 'S':
                settings.state = optarg;
                break;
            case 'h':
                std::printf(kUsage, Program_Name);
                std::exit(0);
            default:
                elog_die(0, kUsage, Program_Name);
        }
    if (optind < argc) settings.files.assign(argv + optind, argv + argc);
}

// "0" stands for any port that is free.
int port_named(const std::string& name) {
    if (name == "0") return 0;
    const int port = vk_portnumber(name.c_str(), nullptr);
    if (port == 0) elog_die(0, "there is no port '%s'\n", name.c_str());
    return port;
}

// The variables of a running server that other processes may change.
struct Controls {
    int pause, speed, codec;

    explicit Controls(const Settings& settings) {
        if (settings.controls && dccreate() < 0) elog_complain(0, "no dynamic controls\n");
        pause = dcsetupbyt("pause", 0);
        speed = dcsetupflt("speed", 1);
        codec = dcsetupstr("codec", "");
        take(settings);
    }
    void take(const Settings& settings) const {
        dcsetb(pause, settings.pause);
        dcsetf(speed, settings.speed);
        dcsets(codec, settings.codec.c_str());
    }
    // The codec that is wanted; the present one when there is none of that name.
    int wanted_codec(int present) const {
        char* name = dcgets(codec);
        const int wanted = codec_number(name);
        if (wanted < 0) {
            elog_complain(0, "there is no codec '%s'\n", name);
            dcsets(codec, codec_name(present));
        }
        std::free(name);
        return wanted < 0 ? present : wanted;
    }
};

class Server {
  public:
    Server(int argc, char** argv) : argc_(argc), argv_(argv) {}
    void run();

  private:
    Replay open_state(const Recording& recording);
    bool update_settings();
    void follow_settings(const Controls& controls);
    void follow_controls(Service& service, const Controls& controls);
    void accept_clients(Service& service, std::vector<pollfd>& sockets);
    void accept_client(Service& service, int listening);
    void reap_clients();
    void bury_now_and_then(const Service& service);

    int argc_;
    char** argv_;
    Settings settings_;
    Pf* pf_ = nullptr;  // the newest settings
    std::list<Client> clients_;
    int caught_ = 0;       // number of the signal that asked us to end
    double position_ = 0;  // survives in the state file
    char* recording_ = nullptr;
    double span_ = 0;  // of the recording, in seconds
    double next_burial_ = 0;
    long changes_ = -1;  // of the controls, when they were looked at
    std::string told_;   // what they said then
};

// Reads the settings, unless nothing has changed. The command line comes before them.
bool Server::update_settings() {
    const int result = pfupdate("wfserver", &pf_);
    if (result < -1) elog_complain(0, "errors in the settings\n");
    if (result <= 0) return false;
    settings_ = read_settings(pf_);
    optind = 1;
    take_arguments(argc_, argv_, settings_);
    if (settings_.duration > 0) settings_.speed = span_ / settings_.duration;
    return true;
}

// A parameter file that was changed sets the controls; the other settings are for the next start.
void Server::follow_settings(const Controls& controls) {
    if (update_settings()) controls.take(settings_);
}

// The position in the state file counts for the same recording only. A replay that had come to its
// end begins anew.
Replay Server::open_state(const Recording& recording) {
    static char crc[24];
    std::snprintf(crc, sizeof crc, "%016lx", static_cast<unsigned long>(recording.crc));
    if (exhume(settings_.state.c_str(), &caught_, 10, nullptr) < 0)
        elog_die(0, "can't use the state file %s\n", settings_.state.c_str());
    resurrect("position", &position_, RELIC_DOUBLE);
    resurrect("recording", &recording_, RELIC_STRING);
    const bool same = recording_ != nullptr && std::string(recording_) == crc;
    const bool ended = !settings_.repeat && position_ >= static_cast<double>(recording.total());
    if (!same || ended || !(position_ >= 0)) position_ = 0;
    recording_ = crc;
    return Replay(recording, settings_.repeat, static_cast<int64_t>(position_));
}

// Looks at the controls, when any of them has changed.
void Server::follow_controls(Service& service, const Controls& controls) {
    const long changes = dcchanged();
    if (changes == changes_) return;
    changes_ = changes;
    settings_.pause = dcgetb(controls.pause) != 0;
    settings_.speed = dcgetf(controls.speed);
    service.codec = controls.wanted_codec(service.codec);
    char told[100];
    std::snprintf(told, sizeof told, "%s at %g times real time, codec %s\n",
                  settings_.pause ? "paused" : "replaying", settings_.speed,
                  codec_name(service.codec));
    if (told_ != told) elog_notify(0, "%s", told);
    told_ = told;
}

void Server::accept_clients(Service& service, std::vector<pollfd>& sockets) {
    if (std_poll(sockets.data(), sockets.size(), kTick) <= 0) return;
    for (const pollfd& socket : sockets)
        if (socket.revents != 0) accept_client(service, socket.fd);
}

void Server::accept_client(Service& service, int listening) {
    const int fd = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {  // gone already, or too many files are open
        std_sleep(kTick / 1000.0);
        return;
    }
    char peer[64], *comment = nullptr;
    vk_getpeername(fd, peer);
    if (legit_fd(Program_Name, pf_, fd, &comment) != 1) {
        elog_notify(0, "%s is turned away: %s\n", peer,
                    comment != nullptr ? comment : "not listed");
        ::close(fd);
    } else if (clients_.size() >= settings_.max_clients) {
        elog_notify(0, "%s is turned away: %zu clients are enough\n", peer, clients_.size());
        ::close(fd);
    } else {
        clients_.emplace_back(service, fd, peer);
    }
    std::free(comment);
}

void Server::reap_clients() {
    clients_.remove_if([](const Client& client) { return client.is_gone(); });
    // What peers did wrong has been told; what is left in the register must not pile up.
    if (clients_.empty()) elog_clear();
}

void Server::bury_now_and_then(const Service& service) {
    position_ = static_cast<double>(service.replay.position());
    if (std_now() < next_burial_) return;
    bury();
    next_burial_ = std_now() + settings_.bury_every;
}

void Server::run() {
    if (!update_settings())
        elog_die(0, "no parameter file wfserver; KORVALIN or PFPATH say where it is\n");
    if (settings_.announce) announce(nullptr, kVersion);
    const Recording recording =
        read_recording(settings_.files, settings_.max_file_size, settings_.packet_samples);
    if (recording.total() == 0) elog_die(0, "no waveforms to replay\n");
    span_ = recording.span();
    if (settings_.duration > 0) settings_.speed = span_ / settings_.duration;
    const int codec = codec_number(settings_.codec);
    if (codec < 0) elog_die(0, "there is no codec '%s'\n", settings_.codec.c_str());

    Service service{recording, open_state(recording), Packed(recording), codec, false, 10};
    const Controls controls(settings_);
    int port = port_named(settings_.port);
    std::vector<pollfd> sockets = listen_on(&port);
    elog_notify(0, "%ld packets, %.0f seconds of waveforms; starting at packet %.0f\n",
                static_cast<long>(recording.total()), recording.span(), position_);
    elog_notify(0, "listening on port %d\n", port);

    for (bool ended = false; std::atomic_ref(caught_).load() == 0;) {
        follow_settings(controls);
        follow_controls(service, controls);
        service.replay.advance(settings_.pause ? 0 : settings_.speed);
        if (service.replay.at_end() && !ended) elog_notify(0, "the recording is at its end\n");
        ended = service.replay.at_end();
        accept_clients(service, sockets);
        reap_clients();
        bury_now_and_then(service);
    }
    for (const pollfd& socket : sockets) ::close(socket.fd);
    service.over = true;
    clients_.clear();
    bury();
    elog_notify(0, "ending at packet %.0f\n", position_);
}

}  // namespace

int main(int argc, char** argv) {
    elog_init(argc, argv);
    Server(argc, argv).run();
    return 0;
}
