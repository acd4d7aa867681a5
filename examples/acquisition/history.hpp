// What a client keeps for others to look at while it runs: a ring of the amplitudes of each channel
// in physical units, one of the latency of all packets together, and the last packet of each
// channel, its body as it came, in a shared heap.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "../wf_units.hpp"
#include "batch.hpp"
#include "morva.h"
#include "packet.hpp"

struct Channel {
    std::string station, channel;
    Ring* amplitudes;
    Scale scale = {};
    double calibration = 0, period = 0;  // that the scale is for
    double length = 0;                   // of the packets, in seconds
    long packets = 0, samples = 0;       // in this run
    std::string last = {};               // body of the newest packet
    long kept = 0;                       // packets when it was stored
};

class History {
  public:
    // Rings of `size` points in a folder. `anew` empties those that are there.
    History(std::string folder, int size, std::string unit, std::size_t most, bool anew)
        : folder_(std::move(folder)),
          size_(size),
          unit_(std::move(unit)),
          most_(most),
          anew_(anew) {
        latency_ = open("latency", "latency, s");
        heap_ = openx((folder_ + "/last.heap").c_str(), "r+", 1 << 16);
        if (heap_ == nullptr) elog_die(0, "no heap for the last packets\n");
    }
    ~History() {
        for (auto& [name, channel] : channels_) closering(channel.amplitudes);
        closering(latency_);
        closex(&heap_);
    }
    History(const History&) = delete;
    History& operator=(const History&) = delete;

    // Notes a packet, unless there are too many channels.
    void add(const Checked& checked) {
        const Packet& packet = checked.packet;
        auto* found = find(packet);
        if (found == nullptr) return;
        Channel& channel = found->second;
        follow(channel, packet);
        const double last = packet.time + (packet.nsamp - 1) / packet.rate;
        // A point that is there already, from before a restart, is refused, as it should be.
        pushring(channel.amplitudes, last, checked.amplitude * std::fabs(channel.scale.factor));
        channel.last = checked.body;
        if (channel.packets == channel.kept) changed_.push_back(found);
        ++channel.packets;
        channel.samples += packet.nsamp;
    }

    // Notes how long the first packet took, of those that came together.
    void note_latency(const Packet& first) {
        const double now = std_now();
        pushring(latency_, now, now - first.released);
    }

    // Stores the last packets: at once, or every tenth of a second. Whoever reads the heap, or the
    // next run after a kill, finds the old one or the new one.
    void keep_last(bool at_once) {
        const double now = std_now();
        if (!at_once && now < next_storing_) return;
        next_storing_ = now + 0.1;
        for (auto* named : changed_) {
            auto& [name, channel] = *named;
            channel.kept = channel.packets;
            if (putx_safe(heap_, name.c_str(), channel.last.data(),
                          static_cast<int>(channel.last.size())) != 0)
                elog_complain(0, "the last packet of %s can't be stored\n", name.c_str());
        }
        changed_.clear();
    }

    const std::map<std::string, Channel>& channels() const { return channels_; }
    Ring* latency() const { return latency_; }

  private:
    using Named = std::pair<const std::string, Channel>;

    // Packets of a channel are alike: what follows from their head is worked out when it changes.
    void follow(Channel& channel, const Packet& packet) const {
        if (packet.calibration != channel.calibration || packet.period != channel.period)
            channel.scale = scale_of(packet.calibration, packet.period, unit_);
        channel.calibration = packet.calibration;
        channel.period = packet.period;
        const double length = packet.nsamp / packet.rate;
        if (length != channel.length) setring(channel.amplitudes, 2 * length, -99999999);
        channel.length = length;
    }

    // What comes from a peer becomes part of a file name only when it is harmless there.
    static std::string harmless(const char* text) {
        std::string name = text;
        for (char& c : name)
            if ((c < '0' || c > '9') && (c < 'A' || c > 'Z') && (c < 'a' || c > 'z')) c = '_';
        return name;
    }

    // Where packets of these two names belong, as long as no others take the place.
    struct Known {
        char names[16];
        Named* channel;
    };

    Named* find(const Packet& packet) {
        char names[16];
        std::memcpy(names, packet.station, 8);
        std::memcpy(names + 8, packet.channel, 8);
        Known& known = known_[std::hash<std::string_view>()({names, 16}) % known_.size()];
        if (known.channel == nullptr || std::memcmp(known.names, names, 16) != 0) {
            std::memcpy(known.names, names, 16);
            known.channel = find_by_name(packet);
        }
        return known.channel;
    }

    Named* find_by_name(const Packet& packet) {
        const std::string station = harmless(packet.station), channel = harmless(packet.channel);
        const std::string name = station + "." + channel;
        const auto found = channels_.find(name);
        if (found != channels_.end()) return &*found;
        if (channels_.size() >= most_) {
            if (!std::exchange(is_crowded_, true))
                elog_complain(0, "too many channels: no history of %s\n", name.c_str());
            return nullptr;
        }
        const std::string id = station + " " + channel + ", " + unit_;
        return &*channels_.emplace(name, Channel{station, channel, open(name, id)}).first;
    }

    Ring* open(const std::string& name, const std::string& id) {
        const std::string path = folder_ + "/" + name + ".ring";
        char label[RING_ID_SIZE];
        std::snprintf(label, sizeof label, "%s", id.c_str());
        if (anew_ && newring(path.c_str(), label, size_, 0) < 0) elog_die(0, "no history\n");
        Ring* ring = openring(path.c_str(), label, size_, 0);
        if (ring == nullptr) elog_die(0, "no history in %s\n", path.c_str());
        return ring;
    }

    const std::string folder_;
    const int size_;
    const std::string unit_;
    const std::size_t most_;
    const bool anew_;
    std::map<std::string, Channel> channels_;
    std::array<Known, 256> known_{};
    bool is_crowded_ = false;
    Ring* latency_;
    Xheap* heap_;
    double next_storing_ = 0;
    std::vector<Named*> changed_;  // since the last packets were stored
};
