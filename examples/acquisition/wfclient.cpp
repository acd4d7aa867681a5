// wfclient: receives the packets of a wfserver, every one exactly once, and keeps histories.
//
//     wfclient [-o FOLDER] [-n REPETITIONS] [-u UNIT] [SERVER]
//
// SERVER is HOST:PORT, where PORT may be a name of orbserver_names. Each packet is verified,
// decoded and converted to a physical unit; rings of latency and amplitude, and the state, are kept
// in the folder. When the connection fails, it is made again, and the server asked for the packets
// behind the last one that came; so nothing is lost or doubled when server or client are killed.
// The client ends with a report when the recording is complete (-n 5: when it was replayed five
// times; 0: never), or on a signal. What is not said on the command line is a setting in the
// parameter file `wfclient`; see data/pf/wfclient.pf.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "../wf_values.hpp"
#include "batch.hpp"
#include "checkers.hpp"
#include "connection.hpp"
#include "history.hpp"
#include "morva.h"
#include "packet.hpp"

namespace {

constexpr char kVersion[] = "1.0";
constexpr char kUsage[] =
    "usage: %s [-o FOLDER] [-n REPETITIONS] [-u UNIT] [SERVER]\n"
    "\treceives packets from a wfserver; SERVER is HOST:PORT\n";

struct Settings {
    std::string server, folder, unit;
    double backoff, backoff_max, patience, bury_every;
    int ring_size, threads;
    long repetitions;
    std::size_t max_channels;
    bool announce, from_now;
};

Settings read_settings(Pf* pf) {
    Settings settings;
    settings.server = text_or(pf, "server", "localhost:waveforms");
    settings.folder = text_or(pf, "folder", "waveforms");
    settings.unit = text_or(pf, "amplitude_unit", "counts");
    settings.backoff = number_or(pf, "backoff", 0.1);
    settings.backoff_max = number_or(pf, "backoff_max", 5);
    settings.patience = number_or(pf, "patience", 10);
    settings.bury_every = number_or(pf, "bury_every", 1);
    settings.ring_size = static_cast<int>(number_or(pf, "ring_size", 3600));
    settings.threads = static_cast<int>(number_or(pf, "threads", 3));
    settings.repetitions = static_cast<long>(number_or(pf, "repetitions", 1));
    settings.max_channels = static_cast<std::size_t>(number_or(pf, "max_channels", 1000));
    settings.announce = switch_or(pf, "announce", true);
    settings.from_now = switch_or(pf, "from_now", false);
    return settings;
}

void take_arguments(int argc, char** argv, Settings& settings) {
    optind = 1;
    for (int option; (option = ::getopt(argc, argv, "o:n:u:h")) != -1;) switch (option) {
            case 'o':
                settings.folder = optarg;
                break;
            case 'n':
                settings.repetitions = std::atol(optarg);
                break;
            case 'u':
                settings.unit = optarg;
                break;
            case 'h':
                std::printf(kUsage, Program_Name);
                std::exit(0);
            default:
                elog_die(0, kUsage, Program_Name);
        }
    if (optind < argc) settings.server = argv[optind];
}

// What survives in the state file.
struct Counters {
    double next = 0;       // sequence number of the packet to come
    double total = 0;      // packets of the recording
    double received = 0;   // packets that were accepted
    double repeated = 0;   // that had come before, and were dropped
    double missed = 0;     // times that packets were left out, and asked for again
    double damaged = 0;    // packets that could not be read, and were asked for again
    double verified = 0;   // complete recordings whose CRC is right
    double different = 0;  // and those where it is not
    double connections = 0;
    double last_time = 0;    // of the newest sample
    char* recording = none;  // CRC-64 of the recording, 16 hexadecimal digits
    char* so_far = none;     // CRC-64 of what came of it; empty when its start did not

    static inline char none[] = "";
};

uint64_t number_of(const char* hex) {
    return std::strtoul(hex, nullptr, 16);
}

class Receiver {
  public:
    Receiver(int argc, char** argv) : argc_(argc), argv_(argv) {}
    int run();

  private:
    void update_settings();
    bool exhume_counters();
    bool is_complete() const;
    void connect();
    void receive(History& history);
    void accept(const Batch& batch, History& history);
    bool accept(const Checked& checked, History& history);
    void begin_recording(const Packet& packet);
    void verify(const Checked& checked);
    bool give_up(const char* why);
    void bury_counters();
    void report(const History& history) const;

    int argc_;
    char** argv_;
    Pf* pf_ = nullptr;
    Settings settings_;
    Counters counters_;
    char recording_[24] = "", so_far_[24] = "";  // what counters_ points to
    int64_t known_ = 0;                          // recording_ as a number
    bool whole_ = false;                         // the present recording came from its start
    uint64_t crc_ = 0;                           // of what came of it
    Connection connection_;
    std::unique_ptr<Checkers> checkers_;
    int mark_ = 0;  // of the register before the connection
    Backoff backoff_{0, 0};
    double retry_ = 0;      // when to connect again
    bool is_told_ = false;  // that there is no connection
    double next_burial_ = 0;
    double next_look_ = 0;  // at the settings
    int caught_ = 0;        // number of the signal that asked us to end
};

void Receiver::update_settings() {
    next_look_ = std_now() + 0.1;
    const int result = pfupdate("wfclient", &pf_);
    if (result < -1) elog_complain(0, "errors in the settings\n");
    if (result <= 0) return;
    settings_ = read_settings(pf_);
    take_arguments(argc_, argv_, settings_);
    require_motion(settings_.unit);
    backoff_ = Backoff(settings_.backoff, settings_.backoff_max);
}

// False when there is nothing to go on with: no state, or that of a run that was complete.
bool Receiver::exhume_counters() {
    const std::string path = settings_.folder + "/state";
    if (exhume(path.c_str(), &caught_, 10, nullptr) < 0)
        elog_die(0, "can't use the state file %s\n", path.c_str());
    int missing = 0;
    for (const auto& [name, number] : {std::pair{"next", &counters_.next},
                                       {"total", &counters_.total},
                                       {"received", &counters_.received},
                                       {"repeated", &counters_.repeated},
                                       {"missed", &counters_.missed},
                                       {"damaged", &counters_.damaged},
                                       {"verified", &counters_.verified},
                                       {"different", &counters_.different},
                                       {"connections", &counters_.connections}})
        missing += resurrect(name, number, RELIC_DOUBLE);
    missing += resurrect("last_time", &counters_.last_time, RELIC_TIME);
    missing += resurrect("recording", &counters_.recording, RELIC_STRING);
    missing += resurrect("so_far", &counters_.so_far, RELIC_STRING);
    const bool go_on = missing == 0 && counters_.next >= 0 && !is_complete();
    if (!go_on) counters_ = Counters();
    if (!go_on && settings_.from_now) counters_.next = -1;
    std::snprintf(recording_, sizeof recording_, "%s", counters_.recording);
    std::snprintf(so_far_, sizeof so_far_, "%s", counters_.so_far);
    known_ = static_cast<int64_t>(number_of(recording_));
    counters_.recording = recording_;
    counters_.so_far = so_far_;
    whole_ = so_far_[0] != '\0';
    crc_ = number_of(so_far_);
    return go_on;
}

bool Receiver::is_complete() const {
    return settings_.repetitions > 0 && counters_.total > 0 &&
           counters_.next >= counters_.total * static_cast<double>(settings_.repetitions);
}

// Asks for the packets behind the last one that came.
void Receiver::connect() {
    if (std_now() < retry_) {
        std_sleep(std::min(retry_ - std_now(), 0.1));
        return;
    }
    const Request request = {known_, static_cast<int64_t>(counters_.next)};
    mark_ = elog_mark();
    if (connection_.open(settings_.server, request, settings_.patience)) {
        ++counters_.connections;
        elog_notify(0, "connected to %s, asking for packets from number %.0f on\n",
                    settings_.server.c_str(), counters_.next);
        is_told_ = false;
        return;
    }
    retry_ = std_now() + backoff_.next();
    // Once is enough: the register must not fill up while a server is away for hours.
    if (!is_told_) elog_notify(0, "no connection to %s yet\n", settings_.server.c_str());
    is_told_ = true;
    elog_flush(0, mark_);
}

// Takes packets that have come. As long as more of them wait, some are being checked meanwhile.
void Receiver::receive(History& history) {
    Batch& batch = checkers_->next();
    const bool goes_on = connection_.read(batch, settings_.patience);
    if (!batch.is_empty()) checkers_->start();
    const bool more_waits = goes_on && connection_.has_more();
    while (checkers_->are_busy() ||
           (!checkers_->are_idle() && (!more_waits || !connection_.is_open())))
        accept(checkers_->oldest(), history);
    history.keep_last(!more_waits || !connection_.is_open());
    if (!goes_on && connection_.is_open()) give_up(connection_.reason().c_str());
    // A peer can cause failures as often as it likes: the register must not fill up.
    elog_flush(0, mark_);
}

bool Receiver::give_up(const char* why) {
    connection_.close();
    retry_ = std_now() + backoff_.next();
    elog_notify(0, "connection ended: %s\n", why);
    return false;
}

// What came behind a packet that could not be accepted, or is no longer wanted, is left.
void Receiver::accept(const Batch& batch, History& history) {
    const Packet* first = nullptr;
    for (const Checked& checked : batch.checked())
        if (connection_.is_open() && !is_complete() && accept(checked, history) && first == nullptr)
            first = &checked.packet;
    if (first != nullptr) history.note_latency(*first);
}

bool Receiver::accept(const Checked& checked, History& history) {
    if (checked.problem != nullptr) {
        ++counters_.damaged;
        return give_up(checked.problem);
    }
    const Packet& packet = checked.packet;
    if (packet.sequence < 0) return false;  // a sign of life
    if (packet.recording != known_) begin_recording(packet);
    const auto sequence = static_cast<double>(packet.sequence);
    if (counters_.next < 0) counters_.next = sequence;
    if (sequence < counters_.next) {
        ++counters_.repeated;
        return false;
    }
    if (sequence > counters_.next) {
        ++counters_.missed;
        return give_up("packets are missing");
    }
    verify(checked);
    history.add(checked);
    ++counters_.next;
    ++counters_.received;
    counters_.last_time = packet.time + (packet.nsamp - 1) / packet.rate;
    backoff_.reset();
    return true;
}

void Receiver::begin_recording(const Packet& packet) {
    if (recording_[0] != '\0') elog_notify(0, "the server has another recording now\n");
    std::snprintf(recording_, sizeof recording_, "%016lx",
                  static_cast<unsigned long>(packet.recording));
    known_ = packet.recording;
    counters_.total = static_cast<double>(packet.total);
    counters_.next = static_cast<double>(packet.sequence);
    whole_ = false;
}

// The CRC of all samples in their order tells whether each packet came, once.
void Receiver::verify(const Checked& checked) {
    const Packet& packet = checked.packet;
    const int64_t place = packet.sequence % packet.total;
    if (place == 0) {
        crc_ = 0;
        whole_ = true;
    }
    if (whole_) add_to_crc(&crc_, packet, checked.crc);
    if (!whole_ || place + 1 < packet.total) return;
    ++(static_cast<int64_t>(crc_) == known_ ? counters_.verified : counters_.different);
}

void Receiver::bury_counters() {
    std::snprintf(so_far_, sizeof so_far_, "%016lx", static_cast<unsigned long>(crc_));
    if (!whole_) so_far_[0] = '\0';
    bury();
    next_burial_ = std_now() + settings_.bury_every;
}

void print_channel(const Channel& channel) {
    double time = 0, value = 0;
    getring(channel.amplitudes, 0, &time, &value);
    char* newest = epoch2str("%Y-%m-%d %H:%M:%S.%s", time);
    const double largest = maxring(channel.amplitudes, nullptr, 1e12);
    std::printf("%-7s %-7s %8ld %9ld  %s %12.6g %s\n", channel.station.c_str(),
                channel.channel.c_str(), channel.packets, channel.samples, newest, largest,
                channel.scale.unit);
    std::free(newest);
}

void Receiver::report(const History& history) const {
    std::printf("sta     chn      packets   samples  newest                       largest unit\n");
    for (const auto& [name, channel] : history.channels()) print_channel(channel);
    int n = 0;
    double mean = 0, deviation = 0;
    meanring(history.latency(), &n, &mean, &deviation, 1e9);
    std::printf("latency of %d batches: mean %.3f s, largest %.3f s\n", n, mean,
                maxring(history.latency(), nullptr, 1e9));
    const Counters& seen = counters_;
    std::printf("%.0f packets, %.0f came twice, %.0f gaps, %.0f damaged; connections: %.0f\n",
                seen.received, seen.repeated, seen.missed, seen.damaged, seen.connections);
    if (seen.different > 0)
        std::printf("what came is NOT the recording: the CRC-64 differs\n");
    else if (seen.verified > 0)
        std::printf("every packet came exactly once: the samples have the recording's CRC-64 %s\n",
                    recording_);
    else
        std::printf("the recording is not complete yet\n");
    std::fflush(stdout);
}

int Receiver::run() {
    update_settings();
    if (pf_ == nullptr)
        elog_die(0, "no parameter file wfclient; KORVALIN or PFPATH say where it is\n");
    if (settings_.announce) announce(nullptr, kVersion);
    const bool go_on = exhume_counters();
    const auto others = static_cast<int>(std::thread::hardware_concurrency()) - 1;
    checkers_ = std::make_unique<Checkers>(std::clamp(settings_.threads, 0, std::max(others, 0)));
    History history(settings_.folder, settings_.ring_size, settings_.unit, settings_.max_channels,
                    !go_on);
    while (std::atomic_ref(caught_).load() == 0 && !is_complete()) {
        if (std_now() > next_look_) update_settings();
        connection_.is_open() ? receive(history) : connect();
        if (std_now() > next_burial_) bury_counters();
    }
    history.keep_last(true);
    bury_counters();
    report(history);
    return counters_.different > 0 ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    elog_init(argc, argv);
    return Receiver(argc, argv).run();
}
